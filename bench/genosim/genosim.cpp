// Simulation of SNP genotypes on a pedigree; see genosim.hpp.
#include "genosim/genosim.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>

namespace mmekit::genosim {

namespace {

using Word = std::uint64_t;
constexpr int kBits = 64;

// A small generator with a fixed algorithm, so that a seed gives the same data everywhere.
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
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }               // [0, 1)
  double uniform_open() { return (static_cast<double>(next() >> 11) + 1.0) * 0x1.0p-53; }  // (0, 1]
  std::int64_t below(std::int64_t n) {
    const auto k = static_cast<std::int64_t>(uniform() * static_cast<double>(n));
    return std::min(k, n - 1);
  }
  bool bit() { return (next() >> 63) != 0; }
  double normal() {
    const double u = uniform_open(), v = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * M_PI * v);
  }
  // Poisson by the product of uniforms for the small means of crossovers, by its normal
  // approximation above 30.
  std::int32_t poisson(double mean) {
    if (mean <= 0) return 0;
    if (mean > 30) return static_cast<std::int32_t>(std::max(0.0, std::round(mean + std::sqrt(mean) * normal())));
    const double limit = std::exp(-mean);
    std::int32_t k = 0;
    for (double p = uniform(); p > limit && k < 10000; p *= uniform()) ++k;
    return k;
  }
  // Gamma(shape, 1) by the squeeze method of Marsaglia and Tsang; shapes below 1 through
  // Gamma(shape + 1) U^(1/shape).
  double gamma(double shape) {
    if (shape < 1.0) return gamma(shape + 1.0) * std::pow(uniform_open(), 1.0 / shape);
    const double d = shape - 1.0 / 3.0, c = 1.0 / std::sqrt(9.0 * d);
    for (;;) {
      const double x = normal();
      double v = 1.0 + c * x;
      if (v <= 0) continue;
      v = v * v * v;
      const double u = uniform_open();
      if (u < 1.0 - 0.0331 * x * x * x * x) return d * v;
      if (std::log(u) < 0.5 * x * x + d * (1.0 - v + std::log(v))) return d * v;
    }
  }
  double beta(double a, double b) {
    const double x = gamma(a), y = gamma(b);
    return x + y > 0 ? x / (x + y) : 0.5;
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
};

// The quantile of the standard normal distribution (rational approximations of the central
// region and the tails, relative error below 1.2e-9); -inf and +inf at 0 and 1.
double normal_quantile(double p) {
  if (p <= 0) return -std::numeric_limits<double>::infinity();
  if (p >= 1) return std::numeric_limits<double>::infinity();
  static const double a[] = {-3.969683028665376e+01, 2.209460984245205e+02,  -2.759285104469687e+02,
                             1.383577518672690e+02,  -3.066479806614716e+01, 2.506628277459239e+00};
  static const double b[] = {-5.447609879822406e+01, 1.615858368580409e+02, -1.556989798598866e+02,
                             6.680131188771972e+01, -1.328068155288572e+01};
  static const double c[] = {-7.784894002430293e-03, -3.223964580411365e-01, -2.400758277161838e+00,
                             -2.549732539343734e+00, 4.374664141464968e+00,  2.938163982698783e+00};
  static const double d[] = {7.784695709041462e-03, 3.224671290700398e-01, 2.445134137142996e+00,
                             3.754408661907416e+00};
  const double low = 0.02425;
  if (p < low || p > 1 - low) {
    const double q = std::sqrt(-2 * std::log(p < low ? p : 1 - p));
    const double x = (((((c[0] * q + c[1]) * q + c[2]) * q + c[3]) * q + c[4]) * q + c[5]) /
                     ((((d[0] * q + d[1]) * q + d[2]) * q + d[3]) * q + 1);
    return p < low ? x : -x;
  }
  const double q = p - 0.5, r = q * q;
  return (((((a[0] * r + a[1]) * r + a[2]) * r + a[3]) * r + a[4]) * r + a[5]) * q /
         (((((b[0] * r + b[1]) * r + b[2]) * r + b[3]) * r + b[4]) * r + 1);
}

// Copies bits [from, to) of one chromosome from src into dst (both at the chromosome's first word).
void copy_bits(Word* dst, const Word* src, std::int32_t from, std::int32_t to) {
  if (from >= to) return;
  const std::int32_t w0 = from / kBits, w1 = (to - 1) / kBits;
  for (std::int32_t w = w0; w <= w1; ++w) {
    Word m = ~Word{0};
    if (w == w0) m &= ~Word{0} << (from % kBits);
    if (w == w1 && to % kBits != 0) m &= ~Word{0} >> (kBits - to % kBits);
    dst[w] = (dst[w] & ~m) | (src[w] & m);
  }
}

// The haplotypes of the animals alive at one time, in fixed-size slots reused through a free
// list: memory follows the largest number alive, not the pedigree.
class HaplotypeStore {
 public:
  explicit HaplotypeStore(std::size_t words_per_animal) : words_(words_per_animal) {}
  std::int32_t take() {
    ++live_;
    peak_ = std::max(peak_, live_);
    if (!free_.empty()) {
      const std::int32_t s = free_.back();
      free_.pop_back();
      return s;
    }
    slots_.push_back(std::make_unique<Word[]>(words_));
    return static_cast<std::int32_t>(slots_.size()) - 1;
  }
  void give_back(std::int32_t slot) {
    --live_;
    free_.push_back(slot);
  }
  Word* operator[](std::int32_t slot) { return slots_[static_cast<std::size_t>(slot)].get(); }
  std::int64_t peak() const { return peak_; }

 private:
  std::size_t words_;
  std::vector<std::unique_ptr<Word[]>> slots_;
  std::vector<std::int32_t> free_;
  std::int64_t live_ = 0, peak_ = 0;
};

struct Genome {
  std::int32_t chromosomes = 0, snps = 0;  // SNPs per chromosome
  std::int32_t words = 0;                  // words per chromosome
  double length_bp = 0;
  std::vector<std::int32_t> position;  // of the SNPs of chromosome c at [c * snps]
  std::int32_t haplotype_words() const { return chromosomes * words; }
  // The first SNP (0-based within the chromosome) after a point of the chromosome.
  std::int32_t snp_after(std::int32_t c, double bp) const {
    const auto first = position.begin() + static_cast<std::ptrdiff_t>(c) * snps;
    return static_cast<std::int32_t>(std::upper_bound(first, first + snps, bp) - first);
  }
};

void check_config(const Config& c, std::size_t n) {
  auto fail = [](const std::string& what) { throw std::invalid_argument("genosim: " + what); };
  if (n < 1) fail("empty pedigree");
  if (n > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - 1)) fail("pedigree too large");
  if (c.genotyped < 1 || static_cast<std::size_t>(c.genotyped) > n)
    fail("genotyped animals must be between 1 and the animals of the pedigree");
  if (c.chromosomes < 1 || c.snps_per_chromosome < 1) fail("chromosomes and SNPs must be positive");
  if (static_cast<std::int64_t>(c.chromosomes) * c.snps_per_chromosome > 10'000'000) fail("more than 10000000 SNPs");
  // At least 5 bp per SNP keeps the jittered positions distinct.
  if (!(c.chromosome_mb * 1e6 >= 5.0 * c.snps_per_chromosome)) fail("chromosomes too short for their SNPs");
  if (c.chromosome_mb > 2000) fail("chromosomes longer than 2000 Mb");
  if (!(c.beta_a > 0 && c.beta_b > 0)) fail("beta parameters must be positive");
  auto share = [&](double v, const char* what) {
    if (!(v >= 0 && v <= 1)) fail(std::string(what) + " must be between 0 and 1");
  };
  share(c.sire_share, "sire share");
  share(c.monomorphic, "monomorphic share");
  share(c.missing, "missing rate");
  share(c.low_call_rate, "low call rate");
  if (!(c.young_pool >= 1 && c.young_pool < 1e6)) fail("young pool must be at least 1");
  if (c.ancestral_haplotypes < 1 || c.ancestral_haplotypes > 1'000'000) fail("ancestral haplotypes out of range");
  if (!(c.segment_mb > 0) || !(c.ld_mb > 0) || !(c.crossovers_per_100mb >= 0 && c.crossovers_per_100mb <= 100))
    fail("segment length and crossover rate out of range");
  if (c.parent_conflicts < 0 || c.duplicates < 0 || c.low_call_snps < 0) fail("fault counts must not be negative");
  if (c.low_call_snps > c.chromosomes * c.snps_per_chromosome) fail("more low-call SNPs than SNPs");
  if (c.real_width != 0 && (c.real_width < 4 || c.real_width > 20)) fail("real width must be 0 or 4 to 20");
}

// Founder haplotype: ancestral segments between the points of a Poisson process.
void make_founder(const Genome& g, const Config& c, const std::vector<Word>& ancestral, Rng& rng, Word* out) {
  const auto hw = static_cast<std::size_t>(g.haplotype_words());
  const double mean_bp = c.segment_mb * 1e6;
  for (std::int32_t chr = 0; chr < g.chromosomes; ++chr) {
    const std::size_t off = static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.words);
    std::int32_t from = 0;
    double at = 0;
    while (from < g.snps) {
      at += -std::log(rng.uniform_open()) * mean_bp;
      const std::int32_t to = at >= g.length_bp ? g.snps : std::max(from, g.snp_after(chr, at));
      const Word* src = ancestral.data() + static_cast<std::size_t>(rng.below(c.ancestral_haplotypes)) * hw + off;
      copy_bits(out + off, src, from, to);
      from = to;
    }
  }
}

// One gamete of a parent with haplotypes h0, h1: crossovers at uniform points.
void make_gamete(const Genome& g, const Config& c, const Word* h0, const Word* h1, Rng& rng,
                 std::vector<double>& points, Word* out) {
  const double mean = c.crossovers_per_100mb * g.length_bp / 1e8;
  for (std::int32_t chr = 0; chr < g.chromosomes; ++chr) {
    const std::size_t off = static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.words);
    points.clear();
    for (std::int32_t k = rng.poisson(mean); k > 0; --k) points.push_back(rng.uniform() * g.length_bp);
    std::sort(points.begin(), points.end());
    bool second = rng.bit();
    std::int32_t from = 0;
    for (std::size_t k = 0; k <= points.size(); ++k) {
      const std::int32_t to = k < points.size() ? g.snp_after(chr, points[k]) : g.snps;
      copy_bits(out + off, (second ? h1 : h0) + off, from, to);
      from = std::max(from, to);
      second = !second;
    }
  }
}

}  // namespace

const char* fault_name(FaultKind kind) {
  switch (kind) {
    case FaultKind::parent_conflict: return "parent_conflict";
    case FaultKind::duplicate: return "duplicate";
    case FaultKind::low_call_rate: return "low_call_rate";
    case FaultKind::monomorphic: return "monomorphic";
  }
  return "";
}

std::string original_id(std::int32_t animal) {
  char s[32];
  std::snprintf(s, sizeof s, "A%09d", animal);
  return s;
}

Simulation simulate(const Config& c, std::span<const std::int32_t> sire, std::span<const std::int32_t> dam,
                    const Sink& sink) {
  if (sire.size() != dam.size()) throw std::invalid_argument("genosim: sire and dam of different lengths");
  check_config(c, sire.size());
  const auto n = static_cast<std::int32_t>(sire.size());
  auto S = [&](std::int32_t a) { return sire[static_cast<std::size_t>(a - 1)]; };
  auto D = [&](std::int32_t a) { return dam[static_cast<std::size_t>(a - 1)]; };
  for (std::int32_t a = 1; a <= n; ++a)
    if (S(a) < 0 || S(a) >= a || D(a) < 0 || D(a) >= a)
      throw std::invalid_argument("genosim: a parent of animal " + std::to_string(a) +
                                  " is not an earlier animal of the pedigree");

  Rng rng(c.seed);
  Simulation sim;
  sim.nsnp = c.chromosomes * c.snps_per_chromosome;
  const auto nsnp = static_cast<std::size_t>(sim.nsnp);

  // The map: SNPs spread evenly with jitter, strictly ascending.
  Genome g;
  g.chromosomes = c.chromosomes;
  g.snps = c.snps_per_chromosome;
  g.words = (g.snps + kBits - 1) / kBits;
  g.length_bp = std::floor(c.chromosome_mb * 1e6);
  g.position.resize(nsnp);
  const double spacing = g.length_bp / g.snps;
  for (std::int32_t chr = 0; chr < g.chromosomes; ++chr)
    for (std::int32_t k = 0; k < g.snps; ++k) {
      const std::size_t j =
          static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.snps) + static_cast<std::size_t>(k);
      g.position[j] = static_cast<std::int32_t>(std::floor((k + 0.1 + 0.8 * rng.uniform()) * spacing)) + 1;
      sim.chromosome.push_back(chr + 1);
    }
  sim.position = g.position;

  // Allele frequencies and the ancestral haplotypes.
  sim.frequency.resize(nsnp);
  for (double& p : sim.frequency) p = 0.02 + 0.96 * rng.beta(c.beta_a, c.beta_b);
  const auto n_fixed = static_cast<std::int64_t>(std::llround(c.monomorphic * static_cast<double>(nsnp)));
  {
    std::vector<std::int32_t> order(nsnp);
    for (std::size_t j = 0; j < nsnp; ++j) order[j] = static_cast<std::int32_t>(j);
    for (std::int64_t k = 0; k < n_fixed; ++k) {
      std::swap(order[static_cast<std::size_t>(k)],
                order[static_cast<std::size_t>(k + rng.below(static_cast<std::int64_t>(nsnp) - k))]);
      sim.frequency[static_cast<std::size_t>(order[static_cast<std::size_t>(k)])] = rng.bit() ? 1.0 : 0.0;
    }
  }
  const auto hw = static_cast<std::size_t>(g.haplotype_words());
  std::vector<Word> ancestral(hw * static_cast<std::size_t>(c.ancestral_haplotypes), 0);
  {
    // Each ancestral haplotype thresholds a Gaussian walk along the chromosome whose correlation
    // falls with distance: allele frequencies stay p, neighbouring alleles go together.
    std::vector<double> threshold(nsnp), rho(nsnp), fresh(nsnp);
    for (std::size_t j = 0; j < nsnp; ++j) {
      threshold[j] = normal_quantile(sim.frequency[j]);
      const bool first = j % static_cast<std::size_t>(g.snps) == 0;
      rho[j] = first ? 0.0 : std::exp(-(g.position[j] - g.position[j - 1]) / (c.ld_mb * 1e6));
      fresh[j] = std::sqrt(1.0 - rho[j] * rho[j]);
    }
    for (std::int32_t h = 0; h < c.ancestral_haplotypes; ++h) {
      double z = 0;
      for (std::int32_t chr = 0; chr < g.chromosomes; ++chr)
        for (std::int32_t k = 0; k < g.snps; ++k) {
          const std::size_t j =
              static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.snps) + static_cast<std::size_t>(k);
          z = rho[j] * z + fresh[j] * rng.normal();
          if (z < threshold[j])
            ancestral[static_cast<std::size_t>(h) * hw +
                      static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.words) +
                      static_cast<std::size_t>(k / kBits)] |= Word{1} << (k % kBits);
        }
    }
  }

  // The genotyped animals: the sires with most progeny, then young animals.
  std::vector<std::int32_t> progeny(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t a = 1; a <= n; ++a) ++progeny[static_cast<std::size_t>(S(a))];
  progeny[0] = 0;
  std::vector<std::int32_t> sires;
  for (std::int32_t a = 1; a <= n; ++a)
    if (progeny[static_cast<std::size_t>(a)] > 0) sires.push_back(a);
  std::stable_sort(sires.begin(), sires.end(), [&](std::int32_t x, std::int32_t y) {
    return progeny[static_cast<std::size_t>(x)] > progeny[static_cast<std::size_t>(y)];
  });
  const auto n_sires =
      std::min<std::size_t>(sires.size(), static_cast<std::size_t>(std::llround(c.sire_share * c.genotyped)));
  sires.resize(n_sires);
  std::vector<char> is_gen(static_cast<std::size_t>(n) + 1, 0), is_sire(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t s : sires) is_gen[static_cast<std::size_t>(s)] = is_sire[static_cast<std::size_t>(s)] = 1;
  {
    const auto rest = static_cast<std::int64_t>(c.genotyped) - static_cast<std::int64_t>(n_sires);
    const auto want = static_cast<std::int64_t>(std::ceil(c.young_pool * static_cast<double>(rest)));
    std::vector<std::int32_t> pool;
    for (std::int32_t a = n; a >= 1 && static_cast<std::int64_t>(pool.size()) < want; --a)
      if (!is_gen[static_cast<std::size_t>(a)]) pool.push_back(a);
    for (std::int64_t k = 0; k < rest; ++k) {
      const auto pick = static_cast<std::size_t>(k + rng.below(static_cast<std::int64_t>(pool.size()) - k));
      std::swap(pool[static_cast<std::size_t>(k)], pool[pick]);
      is_gen[static_cast<std::size_t>(pool[static_cast<std::size_t>(k)])] = 1;
    }
  }
  for (std::int32_t a = 1; a <= n; ++a)
    if (is_gen[static_cast<std::size_t>(a)]) sim.genotyped.push_back(a);

  // Planted animal faults. Special animals take part in one fault only.
  std::vector<char> special(static_cast<std::size_t>(n) + 1, 0);
  std::vector<char> has_gen_progeny(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t a : sim.genotyped)
    has_gen_progeny[static_cast<std::size_t>(S(a))] = has_gen_progeny[static_cast<std::size_t>(D(a))] = 1;
  std::vector<std::int32_t> copy_of(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t k = 0; k < c.duplicates; ++k) {
    std::int32_t y = 0;
    for (auto it = sim.genotyped.rbegin(); it != sim.genotyped.rend() && !y; ++it)
      if (!special[static_cast<std::size_t>(*it)] && !is_sire[static_cast<std::size_t>(*it)] &&
          !has_gen_progeny[static_cast<std::size_t>(*it)])
        y = *it;
    std::vector<std::int32_t> sources;
    for (std::int32_t a : sim.genotyped)
      if (a < y && !special[static_cast<std::size_t>(a)]) sources.push_back(a);
    if (!y || sources.empty()) break;
    const std::int32_t x = sources[static_cast<std::size_t>(rng.below(static_cast<std::int64_t>(sources.size())))];
    copy_of[static_cast<std::size_t>(y)] = x;
    special[static_cast<std::size_t>(y)] = special[static_cast<std::size_t>(x)] = 1;
    sim.faults.push_back({FaultKind::duplicate, y, x, 0, 0, 0});
  }
  sim.recorded_sire.assign(sire.begin(), sire.end());
  {
    std::vector<std::int32_t> candidates;
    for (std::int32_t a : sim.genotyped)
      if (!special[static_cast<std::size_t>(a)] && !is_sire[static_cast<std::size_t>(a)] && S(a) != 0)
        candidates.push_back(a);
    std::int32_t planted = 0;
    for (std::size_t k = 0; k < candidates.size() && planted < c.parent_conflicts; ++k) {
      std::swap(candidates[k],
                candidates[k + static_cast<std::size_t>(rng.below(static_cast<std::int64_t>(candidates.size() - k)))]);
      const std::int32_t p = candidates[k];
      std::vector<std::int32_t> wrong;
      for (std::int32_t s : sires)
        if (s < p && s != S(p) && s != D(p) && S(s) != S(p) && S(S(p)) != s && !special[static_cast<std::size_t>(s)])
          wrong.push_back(s);
      if (wrong.empty()) continue;
      const std::int32_t s = wrong[static_cast<std::size_t>(rng.below(static_cast<std::int64_t>(wrong.size())))];
      sim.recorded_sire[static_cast<std::size_t>(p - 1)] = s;
      special[static_cast<std::size_t>(p)] = 1;
      sim.faults.push_back({FaultKind::parent_conflict, p, s, S(p), 0, 0});
      ++planted;
    }
  }
  std::vector<std::int32_t> low_call;
  {
    std::vector<std::int32_t> poly;
    for (std::size_t j = 0; j < nsnp; ++j)
      if (sim.frequency[j] > 0.05 && sim.frequency[j] < 0.95) poly.push_back(static_cast<std::int32_t>(j));
    for (std::int32_t k = 0; k < c.low_call_snps && static_cast<std::size_t>(k) < poly.size(); ++k) {
      std::swap(poly[static_cast<std::size_t>(k)],
                poly[static_cast<std::size_t>(k + rng.below(static_cast<std::int64_t>(poly.size()) - k))]);
      low_call.push_back(poly[static_cast<std::size_t>(k)]);
    }
    std::sort(low_call.begin(), low_call.end());
  }

  // The animals to make, and how often each one's haplotypes are still needed.
  std::vector<char> need(is_gen);
  for (std::int32_t a = n; a >= 1; --a)
    if (need[static_cast<std::size_t>(a)])
      need[static_cast<std::size_t>(S(a))] = need[static_cast<std::size_t>(D(a))] = 1;
  std::vector<std::int32_t> uses(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t a = 1; a <= n; ++a)
    if (need[static_cast<std::size_t>(a)]) {
      ++uses[static_cast<std::size_t>(S(a))];
      ++uses[static_cast<std::size_t>(D(a))];
      ++uses[static_cast<std::size_t>(copy_of[static_cast<std::size_t>(a)])];
    }

  HaplotypeStore store(2 * hw);
  std::vector<std::int32_t> slot(static_cast<std::size_t>(n) + 1, -1);
  std::vector<double> points;
  std::vector<std::int8_t> codes(nsnp);
  std::vector<std::int32_t> counts(4 * nsnp, 0);  // 0, 1, 2, missing per SNP
  const double log_keep = c.missing > 0 && c.missing < 1 ? std::log1p(-c.missing) : 0;
  auto gap = [&]() -> std::int64_t {  // genotypes before the next missing one
    if (c.missing <= 0) return std::numeric_limits<std::int64_t>::max();
    if (c.missing >= 1) return 0;
    const double k = std::floor(std::log(rng.uniform_open()) / log_keep);
    return k < 1e18 ? static_cast<std::int64_t>(k) : std::numeric_limits<std::int64_t>::max();
  };
  std::int64_t to_missing = gap();
  auto release = [&](std::int32_t a) {
    if (a && --uses[static_cast<std::size_t>(a)] == 0 && slot[static_cast<std::size_t>(a)] >= 0) {
      store.give_back(slot[static_cast<std::size_t>(a)]);
      slot[static_cast<std::size_t>(a)] = -1;
    }
  };
  std::int32_t line_no = 0;
  for (std::int32_t a = 1; a <= n; ++a) {
    if (!need[static_cast<std::size_t>(a)]) continue;
    const std::int32_t s = store.take();
    slot[static_cast<std::size_t>(a)] = s;
    Word* h = store[s];
    const std::int32_t parents[2] = {S(a), D(a)};
    for (int k = 0; k < 2; ++k) {
      const std::int32_t p = parents[k];
      if (p == 0) {
        make_founder(g, c, ancestral, rng, h + k * hw);
      } else {
        const Word* ph = store[slot[static_cast<std::size_t>(p)]];
        make_gamete(g, c, ph, ph + hw, rng, points, h + k * hw);
      }
    }
    release(parents[0]);
    release(parents[1]);
    ++sim.simulated;
    if (is_gen[static_cast<std::size_t>(a)]) {
      const std::int32_t src = copy_of[static_cast<std::size_t>(a)] ? copy_of[static_cast<std::size_t>(a)] : a;
      const Word* sh = store[slot[static_cast<std::size_t>(src)]];
      for (std::int32_t chr = 0; chr < g.chromosomes; ++chr) {
        const Word* w0 = sh + static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.words);
        const Word* w1 = w0 + hw;
        std::int8_t* out = codes.data() + static_cast<std::size_t>(chr) * static_cast<std::size_t>(g.snps);
        for (std::int32_t k = 0; k < g.snps; ++k)
          out[k] =
              static_cast<std::int8_t>(((w0[k / kBits] >> (k % kBits)) & 1) + ((w1[k / kBits] >> (k % kBits)) & 1));
      }
      for (std::size_t j = 0;;) {
        if (to_missing >= static_cast<std::int64_t>(nsnp - j)) {
          to_missing -= static_cast<std::int64_t>(nsnp - j);
          break;
        }
        j += static_cast<std::size_t>(to_missing);
        codes[j++] = 5;
        to_missing = gap();
      }
      for (std::int32_t j : low_call)
        if (rng.uniform() >= c.low_call_rate) codes[static_cast<std::size_t>(j)] = 5;
      for (std::size_t j = 0; j < nsnp; ++j) ++counts[4 * j + static_cast<std::size_t>(codes[j] == 5 ? 3 : codes[j])];
      sink(Line{++line_no, a, codes});
      if (src != a) release(src);
    }
    if (uses[static_cast<std::size_t>(a)] == 0) {
      store.give_back(s);
      slot[static_cast<std::size_t>(a)] = -1;
    }
  }
  sim.peak_live = store.peak();

  const double lines = static_cast<double>(sim.genotyped.size());
  for (std::int32_t j : low_call) {
    const double called = lines - counts[4 * static_cast<std::size_t>(j) + 3];
    sim.faults.push_back({FaultKind::low_call_rate, 0, 0, 0, j + 1, called / lines});
  }
  for (std::size_t j = 0; j < nsnp; ++j) {
    // One allele only: no heterozygote, and not both homozygotes.
    if (counts[4 * j + 1] == 0 && (counts[4 * j] == 0 || counts[4 * j + 2] == 0))
      sim.faults.push_back({FaultKind::monomorphic, 0, 0, 0, static_cast<std::int32_t>(j) + 1, 0});
  }
  return sim;
}

benchgen::Dataset pedigree_of_parents(std::span<const std::int32_t> sire, std::span<const std::int32_t> dam) {
  if (sire.size() != dam.size()) throw std::invalid_argument("genosim: sire and dam of different lengths");
  benchgen::Dataset data;
  data.animals.resize(sire.size());
  for (std::size_t k = 0; k < sire.size(); ++k) {
    auto& a = data.animals[k];
    a.sire = sire[k];
    a.dam = dam[k];
    if (a.sire < 0 || static_cast<std::size_t>(a.sire) > k || a.dam < 0 || static_cast<std::size_t>(a.dam) > k)
      throw std::invalid_argument("genosim: a parent of animal " + std::to_string(k + 1) +
                                  " is not an earlier animal of the pedigree");
    if (a.sire) ++data.animals[static_cast<std::size_t>(a.sire - 1)].n_as_sire;
    if (a.dam) ++data.animals[static_cast<std::size_t>(a.dam - 1)].n_as_dam;
  }
  return data;
}

benchgen::Dataset pedigree_of_size(std::uint64_t seed, std::int32_t animals) {
  if (animals < 1) throw std::invalid_argument("genosim: animals must be positive");
  benchgen::Config cfg;
  cfg.seed = seed;
  cfg.records = 3 * static_cast<std::int64_t>(animals);
  benchgen::Dataset data = benchgen::generate(cfg);
  while (data.animals.size() < static_cast<std::size_t>(animals)) {
    cfg.records = cfg.records * 3 / 2 + 100;
    data = benchgen::generate(cfg);
  }
  data.animals.resize(static_cast<std::size_t>(animals));
  std::erase_if(data.records, [&](const benchgen::Record& r) { return r.animal > animals; });
  for (auto& a : data.animals) a.n_as_sire = a.n_as_dam = 0;
  for (const auto& a : data.animals) {
    if (a.sire) ++data.animals[static_cast<std::size_t>(a.sire - 1)].n_as_sire;
    if (a.dam) ++data.animals[static_cast<std::size_t>(a.dam - 1)].n_as_dam;
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
  if (!f) throw std::runtime_error("genosim: cannot write " + path);
  std::setvbuf(f.get(), nullptr, _IOFBF, 1 << 20);
  return f;
}

void close_checked(File& f, const std::string& path) {
  if (std::ferror(f.get()) || std::fclose(f.release()) != 0) throw std::runtime_error("genosim: error writing " + path);
}

// The identifier field: the original id left-adjusted in 20 columns, markers from column 21.
constexpr int kIdWidth = 20;

}  // namespace

Simulation write_data_set(const Config& config, const benchgen::Dataset& pedigree, const std::string& prefix) {
  std::vector<std::int32_t> sire(pedigree.animals.size()), dam(pedigree.animals.size());
  for (std::size_t k = 0; k < sire.size(); ++k) {
    sire[k] = pedigree.animals[k].sire;
    dam[k] = pedigree.animals[k].dam;
  }
  check_config(config, sire.size());  // before any file is made
  const std::string snp = prefix + ".snp", real = prefix + ".real.snp";
  File fsnp = open_for_writing(snp), fxref = open_for_writing(snp + "_XrefID");
  File freal, frxref;
  if (config.real_width > 0) {
    freal = open_for_writing(real);
    frxref = open_for_writing(real + "_XrefID");
  }
  std::string text, reals;
  const char* real_codes[6] = {};
  std::string real_text[6];
  for (int v : {0, 1, 2, 5}) {
    char s[32];
    std::snprintf(s, sizeof s, "%*.2f", config.real_width, static_cast<double>(v));
    real_text[v] = s;
    real_codes[v] = real_text[v].c_str();
  }
  auto sink = [&](const Line& line) {
    const std::string id = original_id(line.animal);
    char head[64];
    std::snprintf(head, sizeof head, "%-*s", kIdWidth, id.c_str());
    text.assign(head);
    const std::size_t at = text.size();
    text.resize(at + line.codes.size() + 1);
    for (std::size_t j = 0; j < line.codes.size(); ++j) text[at + j] = static_cast<char>('0' + line.codes[j]);
    text.back() = '\n';
    std::fwrite(text.data(), 1, text.size(), fsnp.get());
    std::fprintf(fxref.get(), "%d %s\n", line.animal, id.c_str());
    if (freal) {
      reals.assign(head);
      for (std::int8_t v : line.codes) reals.append(real_codes[v]);
      reals.push_back('\n');
      std::fwrite(reals.data(), 1, reals.size(), freal.get());
      std::fprintf(frxref.get(), "%d %s\n", line.animal, id.c_str());
    }
  };
  Simulation sim = simulate(config, sire, dam, sink);
  close_checked(fsnp, snp);
  close_checked(fxref, snp + "_XrefID");
  if (freal) {
    close_checked(freal, real);
    close_checked(frxref, real + "_XrefID");
  }

  {
    File f = open_for_writing(prefix + ".map");
    for (std::int32_t j = 0; j < sim.nsnp; ++j)
      std::fprintf(f.get(), "%d %d %d SNP%d\n", j + 1, sim.chromosome[static_cast<std::size_t>(j)],
                   sim.position[static_cast<std::size_t>(j)], j + 1);
    close_checked(f, prefix + ".map");
  }
  {
    benchgen::Dataset recorded = pedigree;
    for (std::size_t k = 0; k < recorded.animals.size(); ++k) {
      auto& a = recorded.animals[k];
      const std::int32_t s = sim.recorded_sire[k];
      if (s == a.sire) continue;
      if (a.sire) --recorded.animals[static_cast<std::size_t>(a.sire - 1)].n_as_sire;
      if (s) ++recorded.animals[static_cast<std::size_t>(s - 1)].n_as_sire;
      a.sire = s;
    }
    benchgen::write_pedigree(recorded, prefix + ".ped");
  }
  {
    File f = open_for_writing(prefix + ".truth");
    std::fprintf(f.get(), "# planted faults: kind, then the animal or SNP numbers\n");
    for (const Fault& x : sim.faults) {
      switch (x.kind) {
        case FaultKind::parent_conflict:
          std::fprintf(f.get(), "parent_conflict animal %d recorded_sire %d true_sire %d\n", x.animal, x.other,
                       x.truth);
          break;
        case FaultKind::duplicate: std::fprintf(f.get(), "duplicate animal %d copy_of %d\n", x.animal, x.other); break;
        case FaultKind::low_call_rate:
          std::fprintf(f.get(), "low_call_rate snp %d call_rate %.4f\n", x.snp, x.call_rate);
          break;
        case FaultKind::monomorphic: std::fprintf(f.get(), "monomorphic snp %d\n", x.snp); break;
      }
    }
    close_checked(f, prefix + ".truth");
  }
  return sim;
}

}  // namespace mmekit::genosim
