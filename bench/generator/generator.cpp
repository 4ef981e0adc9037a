// Simulation of the benchmark data sets; see generator.hpp.
#include "generator/generator.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

namespace mmekit::benchgen {

namespace {

// A small, fast generator with a fixed algorithm (the same numbers on every platform).
class Rng {
 public:
  explicit Rng(std::uint64_t seed) {
    std::uint64_t z = seed;
    for (auto& w : s_) w = splitmix(z);
  }
  std::uint64_t next() {
    const std::uint64_t result = rotl(s_[1] * 5, 7) * 9;
    const std::uint64_t t = s_[1] << 17;
    s_[2] ^= s_[0];
    s_[3] ^= s_[1];
    s_[1] ^= s_[2];
    s_[0] ^= s_[3];
    s_[2] ^= t;
    s_[3] = rotl(s_[3], 45);
    return result;
  }
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
  // 0 .. n-1
  std::int64_t below(std::int64_t n) { return static_cast<std::int64_t>(uniform() * static_cast<double>(n)); }
  double normal() {
    if (has_spare_) {
      has_spare_ = false;
      return spare_;
    }
    double u = uniform();
    while (u <= 0.0) u = uniform();
    const double v = uniform();
    const double r = std::sqrt(-2.0 * std::log(u));
    spare_ = r * std::sin(2.0 * M_PI * v);
    has_spare_ = true;
    return r * std::cos(2.0 * M_PI * v);
  }

 private:
  static std::uint64_t rotl(std::uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  static std::uint64_t splitmix(std::uint64_t& z) {
    z += 0x9E3779B97F4A7C15ull;
    std::uint64_t r = z;
    r = (r ^ (r >> 30)) * 0xBF58476D1CE4E5B9ull;
    r = (r ^ (r >> 27)) * 0x94D049BB133111EBull;
    return r ^ (r >> 31);
  }
  std::uint64_t s_[4];
  double spare_ = 0;
  bool has_spare_ = false;
};

struct Bull {
  std::int32_t id;
  std::int32_t birth_year;
  double popularity;
};

struct Cow {
  std::int32_t id;
  std::int32_t parity;     // next parity
  std::int32_t remaining;  // lactations left
};

constexpr double kSa2 = 1.0, kSpe2 = 2.0 / 3.0, kSe2 = 2.0;

}  // namespace

Dataset generate(const Config& config) {
  if (config.records < 1) throw std::invalid_argument("benchgen: records must be positive");
  Dataset data;
  data.config = config;
  Rng rng(config.seed);
  const std::int64_t per_year = std::max<std::int64_t>(10, config.records / std::max(1, config.years));
  const std::int32_t herds =
      config.herds > 0 ? config.herds : static_cast<std::int32_t>(std::max<std::int64_t>(10, config.records / 2000));
  data.records.reserve(static_cast<std::size_t>(config.records));

  std::vector<double> bv;  // true breeding values, by animal
  auto new_animal = [&](std::int32_t sire, std::int32_t dam, std::int32_t year, std::int32_t herd, bool male) {
    Animal a;
    a.sire = sire;
    a.dam = dam;
    a.birth_year = year;
    a.herd = herd;
    a.male = male ? 1 : 0;
    const int known = (sire != 0) + (dam != 0);
    const double parent_mean = ((sire ? bv[sire - 1] : 0.0) + (dam ? bv[dam - 1] : 0.0)) / 2.0;
    const double mendel = known == 2 ? 0.5 : known == 1 ? 0.75 : 1.0;
    data.animals.push_back(a);
    bv.push_back(parent_mean + std::sqrt(mendel * kSa2) * rng.normal());
    return static_cast<std::int32_t>(data.animals.size());
  };

  // Base bulls and cows, parents unknown.
  std::vector<Bull> bulls;
  for (std::int32_t b = 0; b < config.base_sires; ++b) {
    const std::int32_t id = new_animal(0, 0, -static_cast<std::int32_t>(rng.below(5)) - 2, 0, true);
    bulls.push_back({id, -2, std::exp(1.2 * rng.normal())});
  }
  std::vector<Cow> active;
  for (std::int64_t c = 0; c < per_year; ++c) {
    const std::int32_t parity = 1 + static_cast<std::int32_t>(rng.below(5));
    const std::int32_t id = new_animal(0, 0, -parity, 1 + static_cast<std::int32_t>(rng.below(herds)), false);
    active.push_back({id, parity, 1 + static_cast<std::int32_t>(rng.below(6 - parity))});
  }
  std::vector<std::vector<Cow>> heifers;  // heifers[t]: first calving in year t
  std::vector<double> pe_value;
  std::vector<double> hy_effect;
  std::vector<std::int32_t> hy_of_herd;  // this year's herd-year level of each herd (0 none yet)
  const double parity_effect[5] = {0.0, 1.5, 2.2, 2.4, 2.0};

  std::vector<double> weights;
  for (std::int32_t year = 1; static_cast<std::int64_t>(data.records.size()) < config.records; ++year) {
    data.n_years = year;
    if (static_cast<std::size_t>(year) < heifers.size())
      for (const Cow& h : heifers[static_cast<std::size_t>(year)]) active.push_back(h);
    // Bulls in service: born 2 to 6 years before, or base bulls during the first years.
    std::vector<std::int32_t> service;  // ids of the bulls in service
    weights.clear();
    double total = 0;
    for (const Bull& b : bulls) {
      const bool base = b.birth_year == -2;
      if ((base && year <= 6) || (!base && year - b.birth_year >= 2 && year - b.birth_year <= 6)) {
        service.push_back(b.id);
        weights.push_back(total += b.popularity);
      }
    }
    auto draw_sire = [&]() -> std::int32_t {
      if (service.empty()) return 0;
      const double u = rng.uniform() * total;
      const auto it = std::upper_bound(weights.begin(), weights.end(), u);
      const std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(it - weights.begin()), service.size() - 1);
      return service[k];
    };
    hy_of_herd.assign(static_cast<std::size_t>(herds) + 1, 0);
    // A third of the calves replaces the cows of a stable herd; the rate follows the number of
    // cows, so that the herds keep their size.
    const double keep = std::clamp(static_cast<double>(per_year) / (3.0 * static_cast<double>(std::max<std::size_t>(active.size(), 1))), 0.1, 0.9);
    std::vector<Cow> still;
    still.reserve(active.size());
    std::vector<std::int32_t> recorded_dams;
    for (const Cow& c : active) {
      if (static_cast<std::int64_t>(data.records.size()) >= config.records) break;
      Animal& cow = data.animals[static_cast<std::size_t>(c.id - 1)];
      if (cow.pe == 0) {
        cow.pe = ++data.n_pe;
        pe_value.push_back(std::sqrt(kSpe2) * rng.normal());
      }
      std::int32_t& hy = hy_of_herd[static_cast<std::size_t>(cow.herd)];
      if (hy == 0) {
        hy = ++data.n_herd_years;
        hy_effect.push_back(2.0 * rng.normal());
      }
      Record r;
      r.herd_year = hy;
      r.parity = c.parity;
      r.age = 24.0 + 12.0 * (c.parity - 1) + std::floor(rng.uniform() * 10.0) - 3.0;
      r.animal = c.id;
      r.pe = cow.pe;
      r.y = 30.0 + hy_effect[static_cast<std::size_t>(hy - 1)] + parity_effect[c.parity - 1] + 0.3 * covariate(r) +
            bv[static_cast<std::size_t>(c.id - 1)] + pe_value[static_cast<std::size_t>(cow.pe - 1)] +
            std::sqrt(kSe2) * rng.normal();
      r.y = std::round(r.y * 100.0) / 100.0;
      data.records.push_back(r);
      ++cow.n_records;
      recorded_dams.push_back(c.id);
      // The calving: a third of the calves is a heifer that is kept.
      const std::int32_t sire = rng.uniform() < config.unknown_sire ? 0 : draw_sire();
      if (rng.uniform() < keep) {
        const std::int32_t dam = rng.uniform() < config.unknown_dam ? 0 : c.id;
        const std::int32_t id = new_animal(sire, dam, year, cow.herd, false);
        if (sire) ++data.animals[static_cast<std::size_t>(sire - 1)].n_as_sire;
        if (dam) ++data.animals[static_cast<std::size_t>(dam - 1)].n_as_dam;
        if (heifers.size() <= static_cast<std::size_t>(year + 2)) heifers.resize(static_cast<std::size_t>(year) + 3);
        heifers[static_cast<std::size_t>(year + 2)].push_back({id, 1, 1 + static_cast<std::int32_t>(rng.below(5))});
      }
      if (c.remaining > 1 && c.parity < 5) still.push_back({c.id, c.parity + 1, c.remaining - 1});
    }
    active.swap(still);
    // Young bulls of the year: sons of popular sires and recorded cows.
    for (std::int32_t b = 0; b < config.sires_per_year && !recorded_dams.empty(); ++b) {
      const std::int32_t sire = draw_sire();
      const std::int32_t dam = recorded_dams[static_cast<std::size_t>(rng.below(static_cast<std::int64_t>(recorded_dams.size())))];
      const std::int32_t id = new_animal(sire, dam, year, 0, true);
      if (sire) ++data.animals[static_cast<std::size_t>(sire - 1)].n_as_sire;
      ++data.animals[static_cast<std::size_t>(dam - 1)].n_as_dam;
      bulls.push_back({id, year, std::exp(1.2 * rng.normal())});
    }
    if (year > 10000) break;  // a population that died out
  }
  return data;
}

namespace {
struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f) std::fclose(f);
  }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_for_writing(const std::string& path) {
  File f(std::fopen(path.c_str(), "w"));
  if (!f) throw std::runtime_error("benchgen: cannot write " + path);
  return f;
}
}  // namespace

void write_pedigree(const Dataset& data, const std::string& path) {
  File f = open_for_writing(path);
  for (std::size_t k = 0; k < data.animals.size(); ++k) {
    const Animal& a = data.animals[k];
    const int known = (a.sire != 0) + (a.dam != 0);
    std::fprintf(f.get(), "%zu %d %d 0 %d %d 0 %d %d A%09zu\n", k + 1, a.sire, a.dam, known, a.n_records, a.n_as_sire,
                 a.n_as_dam, k + 1);
  }
}

void write_data(const Dataset& data, const std::string& path) {
  File f = open_for_writing(path);
  for (const Record& r : data.records)
    std::fprintf(f.get(), "%.2f %d %d %.0f %d %d\n", r.y, r.herd_year, r.parity, r.age, r.animal, r.pe);
}

Layout mme_layout(const Dataset& data) {
  Layout l;
  l.herd_year = 1;
  l.parity = l.herd_year + data.n_herd_years;
  l.covariate = l.parity + data.n_parities;
  l.animal = l.covariate + 1;
  l.pe = l.animal + static_cast<std::int32_t>(data.animals.size());
  l.n = l.pe + data.n_pe - 1;
  return l;
}

void mme_rhs(const Dataset& data, Array1<double>& rhs) {
  const Layout l = mme_layout(data);
  rhs.assign(l.n, 0.0);
  for (const Record& r : data.records) {
    rhs(l.herd_year + r.herd_year - 1) += r.y;
    rhs(l.parity + r.parity - 1) += r.y;
    rhs(l.covariate) += covariate(r) * r.y;
    rhs(l.animal + r.animal - 1) += r.y;
    rhs(l.pe + r.pe - 1) += r.y;
  }
}

Layout build_mme(const Dataset& data, const Ratios& ratios, sparse_hashm& lhs, Array1<double>& rhs) {
  const Layout l = mme_layout(data);
  init_sparse_hashm(lhs, l.n);
  for_each_mme_add(data, ratios, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(v, i, j, lhs); });
  mme_rhs(data, rhs);
  return l;
}

Layout build_mme_ija(const Dataset& data, const Ratios& ratios, sparse_ija& lhs, Array1<double>& rhs) {
  sparse_hashm h;
  const Layout l = build_mme(data, ratios, h, rhs);
  CONVERT_HASH_IJA(lhs, h);
  return l;
}

}  // namespace mmekit::benchgen
