// Small mixed-model equations for the tests of solvers, factorisations and orderings, made by
// the data generator of the benchmarks: herd-years, parities, a covariate, animals with the
// inverse relationship matrix, and permanent environment. Every record has one herd-year and
// one parity, so those two effects sum to the same columns and the equations are singular.
// Link `bench_generator` to use it.
#pragma once

#include <cstdint>

#include "generator/generator.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit::test {

struct SmallMme {
  sparse_hashm hash;  // upper triangle, as accumulated
  sparse_ija ija;     // the same in the upper row form
  Array1<double> rhs;
  benchgen::Layout layout;
};

// A few herds over four years: about 150 equations for 100 records. The same arguments give
// the same equations.
inline SmallMme small_mme(std::int64_t records, std::uint64_t seed) {
  benchgen::Config c;
  c.seed = seed;
  c.records = records;
  c.years = 4;
  c.herds = 3;
  c.base_sires = 4;
  c.sires_per_year = 2;
  SmallMme m;
  m.layout = benchgen::build_mme(benchgen::generate(c), {}, m.hash, m.rhs);
  CONVERT_HASH_IJA(m.ija, m.hash);
  return m;
}

}  // namespace mmekit::test
