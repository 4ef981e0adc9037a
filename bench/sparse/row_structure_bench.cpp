// The check of a row-compressed structure, which every routine that walks a `sparse_ija` makes
// first, against a plain pass over the same elements that only adds them up (the least work a
// routine that reads the matrix does).
//
// The matrix is the upper form of the MME of the simulated animal model (records from
// MMEKIT_BENCH_RECORDS, default 2,000,000; seed 2024). Counter: elements/s.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "generator/generator.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"

namespace {

using namespace mmekit;

const sparse_ija& matrix() {
  static std::unique_ptr<sparse_ija> m = [] {
    benchgen::Config cfg;
    cfg.seed = 2024;
    cfg.records = 2000000;
    if (const char* e = std::getenv("MMEKIT_BENCH_RECORDS")) cfg.records = std::atoll(e);
    const benchgen::Dataset set = benchgen::generate(cfg);
    sparse_hashm h;
    Array1<double> rhs;
    CaptureOutput quiet;
    benchgen::build_mme(set, {}, h, rhs);
    auto p = std::make_unique<sparse_ija>();
    CONVERT_HASH_IJA(*p, h);
    return p;
  }();
  return *m;
}

void BM_CheckSparseIja(benchmark::State& state) {
  const sparse_ija& m = matrix();
  for (auto _ : state) benchmark::DoNotOptimize(check_sparse_ija(m));
  state.counters["elements/s"] = benchmark::Counter(static_cast<double>(m.nel) * static_cast<double>(state.iterations()),
                                                    benchmark::Counter::kIsRate);
  state.counters["nel"] = m.nel;
}

// The sum of a(k) x[ja(k)] over the rows: one read of ia, ja and a, and a gather.
void BM_PlainPass(benchmark::State& state) {
  const sparse_ija& m = matrix();
  Array1<double> x(m.n, 1.0);
  for (auto _ : state) {
    double s = 0.0;
    const std::int32_t* ia = m.ia.data();
    const std::int32_t* ja = m.ja.data();
    const double* a = m.a.data();
    const double* xv = x.data();
    for (std::int32_t i = 0; i < m.n; ++i)
      for (std::int32_t k = ia[i] - 1; k < ia[i + 1] - 1; ++k) s += a[k] * xv[ja[k] - 1];
    benchmark::DoNotOptimize(s);
  }
  state.counters["elements/s"] = benchmark::Counter(static_cast<double>(m.nel) * static_cast<double>(state.iterations()),
                                                    benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_CheckSparseIja)->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_PlainPass)->Unit(benchmark::kMillisecond)->Iterations(10);

BENCHMARK_MAIN();
