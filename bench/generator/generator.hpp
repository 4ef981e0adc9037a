// Simulated breeding data for benchmarks: a pedigree over overlapping generations, herds and
// years, repeated records with fixed and random effects, and the mixed-model equations of the
// animal model built from them.
//
// Usage:
//   mmekit::benchgen::Config cfg;          // seed and size, everything else has a default
//   cfg.seed = 7;
//   cfg.records = 2'000'000;
//   auto data = mmekit::benchgen::generate(cfg);
//   mmekit::benchgen::write_pedigree(data, "ped.txt");
//   mmekit::benchgen::write_data(data, "data.txt");
//   mmekit::sparse_hashm lhs;  mmekit::Array1<double> rhs;
//   auto layout = mmekit::benchgen::build_mme(data, {}, lhs, rhs);   // or build_mme_ija
//   mmekit::benchgen::for_each_mme_add(data, {}, [&](int32_t i, int32_t j, double v) { ... });
//
// The same seed and size give the same data, bit for bit, on every run.
//
// The simulation. Base animals (bulls and cows, parents unknown) come first. Then, year by
// year, every active cow calves once and has one record (herd-year, parity 1..5, age at
// calving, the animal, its permanent environment). About a third of the calvings gives a heifer
// that is kept (the share follows the number of cows, to keep the herds at their size): it enters the pedigree at birth, in its dam's herd, and calves from two years on for
// 1 to 5 lactations. Sires are drawn from the bulls born 2 to 6 years earlier (base bulls for
// the first years) with a skewed popularity, so that a few bulls have thousands of daughters; a
// share of the calves has an unknown sire, a few an unknown dam. Each year `sires_per_year`
// young bulls are born to popular sires and recorded cows. Animals are numbered in order of
// birth, so parents always precede their progeny. Records are generated in calendar order
// until `records` are made.
//
// The model: y = herd-year + parity + b (age - 48) / 12 + animal + permanent environment + e,
// animal ~ N(0, A sa2), pe ~ N(0, I spe2), with the variance ratios of `Ratios` in the MME.
// Equation numbers (1-based) run herd-years, parities, the covariate, animals, then the
// permanent-environment levels (cows with records).
//
// Files (blank-separated text, one line each):
//   pedigree: animal sire dam 0 known-parents records 0 daughters-as-sire progeny-as-dam id
//             (10 columns; 0 for an unknown parent; the original id is "A" and 9 digits)
//   data:     y herd-year parity age animal pe
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit::benchgen {

struct Config {
  std::uint64_t seed = 2024;
  std::int64_t records = 100000;   // number of records to make
  std::int32_t years = 20;         // the herd sizes are set so that the records take about this many years
  std::int32_t herds = 0;          // 0: records / 2000, at least 10
  std::int32_t sires_per_year = 25;
  std::int32_t base_sires = 60;
  double unknown_sire = 0.05;      // share of calvings with an unknown sire
  double unknown_dam = 0.02;       // share of kept heifers with an unknown dam
};

struct Animal {
  std::int32_t sire = 0;  // 0 unknown
  std::int32_t dam = 0;
  std::int32_t birth_year = 0;
  std::int32_t herd = 0;  // 0 for bulls
  std::int8_t male = 0;
  std::int32_t n_records = 0;
  std::int32_t n_as_sire = 0;
  std::int32_t n_as_dam = 0;
  std::int32_t pe = 0;    // permanent-environment level, 0 without records
};

struct Record {
  double y = 0;
  std::int32_t herd_year = 0;  // 1-based level
  std::int32_t parity = 0;     // 1..5
  double age = 0;              // months at calving
  std::int32_t animal = 0;     // 1-based animal number
  std::int32_t pe = 0;         // 1-based permanent-environment level
};

struct Dataset {
  Config config;
  std::vector<Animal> animals;  // animal k + 1 is animals[k]
  std::vector<Record> records;
  std::int32_t n_herd_years = 0;
  std::int32_t n_parities = 5;
  std::int32_t n_pe = 0;
  std::int32_t n_years = 0;     // calendar years with records
};

Dataset generate(const Config& config);
void write_pedigree(const Dataset& data, const std::string& path);
void write_data(const Dataset& data, const std::string& path);

// Variance ratios se2 / sa2 and se2 / spe2 of the MME.
struct Ratios {
  double animal = 2.0;
  double pe = 3.0;
};

// First equation of each effect and the order of the system.
struct Layout {
  std::int32_t herd_year = 1, parity = 0, covariate = 0, animal = 0, pe = 0, n = 0;
};
Layout mme_layout(const Dataset& data);

// The covariate of a record as it enters the equations.
inline double covariate(const Record& r) { return (r.age - 48.0) / 12.0; }

// Calls add(i, j, value) with i <= j for every contribution to the left-hand side, in the
// order a program accumulating the MME would make them: the 15 products of each record, then
// the inverse relationship matrix of each animal (no inbreeding), then the pe diagonal.
template <class Add>
void for_each_mme_add(const Dataset& data, const Ratios& ratios, Add&& add) {
  const Layout l = mme_layout(data);
  for (const Record& r : data.records) {
    const std::int32_t eq[5] = {l.herd_year + r.herd_year - 1, l.parity + r.parity - 1, l.covariate,
                                l.animal + r.animal - 1, l.pe + r.pe - 1};
    const double v[5] = {1.0, 1.0, covariate(r), 1.0, 1.0};
    for (int a = 0; a < 5; ++a)
      for (int b = a; b < 5; ++b) add(eq[a], eq[b], v[a] * v[b]);
  }
  const double ra = ratios.animal;
  for (std::size_t k = 0; k < data.animals.size(); ++k) {
    const std::int32_t i = l.animal + static_cast<std::int32_t>(k);
    const std::int32_t s = data.animals[k].sire ? l.animal + data.animals[k].sire - 1 : 0;
    const std::int32_t d = data.animals[k].dam ? l.animal + data.animals[k].dam - 1 : 0;
    const double delta = (s && d) ? 2.0 : (s || d) ? 4.0 / 3.0 : 1.0;
    add(i, i, ra * delta);
    for (std::int32_t p : {s, d})
      if (p) {
        add(p, i, -ra * delta / 2);
        add(p, p, ra * delta / 4);
      }
    if (s && d) add(s < d ? s : d, s < d ? d : s, ra * delta / 4);
  }
  for (std::int32_t p = 0; p < data.n_pe; ++p) add(l.pe + p, l.pe + p, ratios.pe);
}

// The right-hand side X'y (Z'y) of the MME.
void mme_rhs(const Dataset& data, Array1<double>& rhs);

// The MME accumulated into an upper-stored hash matrix (left as accumulated, in hash order).
Layout build_mme(const Dataset& data, const Ratios& ratios, sparse_hashm& lhs, Array1<double>& rhs);
// The same in the row form (diagonal first, upper triangle).
Layout build_mme_ija(const Dataset& data, const Ratios& ratios, sparse_ija& lhs, Array1<double>& rhs);

}  // namespace mmekit::benchgen
