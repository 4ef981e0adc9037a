// Accumulation of the MME of an animal model into the hash matrix against std::unordered_map,
// and a Gauss-Seidel round against a plain CSR matrix-vector product over the same elements.
//
// The data set is simulated once per run (records from MMEKIT_BENCH_RECORDS, default
// 2,000,000; seed 2024). Counters: adds/s (elements added per second of the accumulation),
// elements/s (stored elements per second of the round or product).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <unordered_map>
#include <vector>

#include "generator/generator.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/sparse/solve.hpp"
#include "mmekit/support/output.hpp"

namespace {

using namespace mmekit;

struct Data {
  benchgen::Dataset set;
  benchgen::Layout layout;
  std::int64_t adds = 0;
};

const Data& data() {
  static std::unique_ptr<Data> d = [] {
    auto p = std::make_unique<Data>();
    benchgen::Config cfg;
    cfg.seed = 2024;
    cfg.records = 2000000;
    if (const char* e = std::getenv("MMEKIT_BENCH_RECORDS")) cfg.records = std::atoll(e);
    p->set = benchgen::generate(cfg);
    p->layout = benchgen::mme_layout(p->set);
    benchgen::for_each_mme_add(p->set, {}, [&](std::int32_t, std::int32_t, double) { ++p->adds; });
    return p;
  }();
  return *d;
}

// The sorted hash matrix of the MME, its right-hand side, and the same elements in CSR form.
struct System {
  sparse_hashm h;
  Array1<double> rhs;
  std::vector<std::int64_t> ia;  // 0-based row starts
  std::vector<std::int32_t> ja;  // 0-based columns
  std::vector<double> a;
};

System& sorted_system() {
  static std::unique_ptr<System> s = [] {
    auto p = std::make_unique<System>();
    CaptureOutput quiet;
    benchgen::build_mme(data().set, {}, p->h, p->rhs);
    sort_sparse_hashm(p->h);
    const std::int64_t n = p->h.n, nel = p->h.nel;
    p->ia.assign(static_cast<std::size_t>(n) + 1, 0);
    p->ja.resize(static_cast<std::size_t>(nel));
    p->a.resize(static_cast<std::size_t>(nel));
    const double* x = p->h.x.data();
    for (std::int64_t k = 0; k < nel; ++k) {
      ++p->ia[static_cast<std::size_t>(x[3 * k])];
      p->ja[static_cast<std::size_t>(k)] = static_cast<std::int32_t>(x[3 * k + 1]) - 1;
      p->a[static_cast<std::size_t>(k)] = x[3 * k + 2];
    }
    for (std::int64_t i = 0; i < n; ++i) p->ia[static_cast<std::size_t>(i) + 1] += p->ia[static_cast<std::size_t>(i)];
    return p;
  }();
  return *s;
}

void BM_HashAccumulate(benchmark::State& state) {
  const Data& d = data();
  std::int64_t nel = 0, size = 0;
  for (auto _ : state) {
    sparse_hashm h;
    CaptureOutput quiet;  // the growth lines
    init_sparse_hashm(h, d.layout.n);
    benchgen::for_each_mme_add(d.set, {}, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(v, i, j, h); });
    nel = h.nel;
    size = h.hash_size;
    benchmark::DoNotOptimize(h.x.data());
  }
  state.counters["adds/s"] = benchmark::Counter(static_cast<double>(d.adds), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["adds"] = static_cast<double>(d.adds);
  state.counters["elements"] = static_cast<double>(nel);
  state.counters["slots"] = static_cast<double>(size);
}

// The same with the table sized for the final count from the start (a program that knows the
// size of its equations passes it to init_sparse_hashm): no growth.
void BM_HashAccumulateSized(benchmark::State& state) {
  const Data& d = data();
  const std::int64_t slots = sorted_system().h.hash_size;
  for (auto _ : state) {
    sparse_hashm h;
    init_sparse_hashm(h, d.layout.n, slots);
    benchgen::for_each_mme_add(d.set, {}, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(v, i, j, h); });
    benchmark::DoNotOptimize(h.x.data());
  }
  state.counters["adds/s"] = benchmark::Counter(static_cast<double>(d.adds), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["slots"] = static_cast<double>(slots);
}

struct KeyHash {
  std::size_t operator()(std::uint64_t k) const noexcept { return std::hash<std::uint64_t>{}(k); }
};

void BM_UnorderedMapAccumulate(benchmark::State& state) {
  const Data& d = data();
  const bool reserve = state.range(0) != 0;
  std::int64_t nel = 0;
  for (auto _ : state) {
    std::unordered_map<std::uint64_t, double, KeyHash> m;
    if (reserve) m.reserve(static_cast<std::size_t>(sorted_system().h.nel));
    benchgen::for_each_mme_add(d.set, {}, [&](std::int32_t i, std::int32_t j, double v) {
      m[(static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32) | static_cast<std::uint32_t>(j)] += v;
    });
    nel = static_cast<std::int64_t>(m.size());
    benchmark::DoNotOptimize(m.size());
  }
  state.counters["adds/s"] = benchmark::Counter(static_cast<double>(d.adds), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["elements"] = static_cast<double>(nel);
}

// Rounds of Gauss-Seidel on the sorted hash matrix; the time is per round (the row pointers and
// the diagonal are built once per call, so one call of `rounds` rounds is timed).
void BM_GaussSeidelRoundHash(benchmark::State& state) {
  System& s = sorted_system();
  const std::int32_t rounds = static_cast<std::int32_t>(state.range(0));
  reset_sparse_parameters();
  sparse_param.solve_rounds = rounds;
  sparse_param.solve_conv = 0.0f;
  sparse_param.solve_verbose = 0;
  Array1<double> sol(s.h.n, 0.0);
  for (auto _ : state) {
    CaptureOutput quiet;  // the round lines
    SOLVE_SPARSE_HASHM(s.h, s.rhs, sol);
    benchmark::DoNotOptimize(sol.data());
  }
  reset_sparse_parameters();
  state.counters["rounds/call"] = rounds;
  state.counters["elements/s"] =
      benchmark::Counter(static_cast<double>(s.h.nel) * rounds, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["elements"] = static_cast<double>(s.h.nel);
}

// One product y = A x of the symmetric matrix from its upper triangle in CSR form: each stored
// element is used for both triangles, as in the Gauss-Seidel sweep.
void BM_CsrSymmetricProduct(benchmark::State& state) {
  System& s = sorted_system();
  const std::int64_t n = s.h.n;
  std::vector<double> x(static_cast<std::size_t>(n), 1.0), y(static_cast<std::size_t>(n));
  for (std::int64_t i = 0; i < n; ++i) x[static_cast<std::size_t>(i)] = 1.0 + 1e-6 * static_cast<double>(i % 1000);
  for (auto _ : state) {
    std::fill(y.begin(), y.end(), 0.0);
    const std::int64_t* ia = s.ia.data();
    const std::int32_t* ja = s.ja.data();
    const double* a = s.a.data();
    double* yy = y.data();
    const double* xx = x.data();
    for (std::int64_t i = 0; i < n; ++i) {
      double sum = 0.0;
      const double xi = xx[i];
      for (std::int64_t k = ia[i]; k < ia[i + 1]; ++k) {
        const std::int32_t j = ja[k];
        sum += a[k] * xx[j];
        if (j != i) yy[j] += a[k] * xi;
      }
      yy[i] += sum;
    }
    benchmark::DoNotOptimize(y.data());
  }
  state.counters["elements/s"] =
      benchmark::Counter(static_cast<double>(s.ia.back()), benchmark::Counter::kIsIterationInvariantRate);
}

// The plain (one-triangle) CSR product over the same stored elements.
void BM_CsrProduct(benchmark::State& state) {
  System& s = sorted_system();
  const std::int64_t n = s.h.n;
  std::vector<double> x(static_cast<std::size_t>(n), 1.0), y(static_cast<std::size_t>(n));
  for (auto _ : state) {
    const std::int64_t* ia = s.ia.data();
    const std::int32_t* ja = s.ja.data();
    const double* a = s.a.data();
    for (std::int64_t i = 0; i < n; ++i) {
      double sum = 0.0;
      for (std::int64_t k = ia[i]; k < ia[i + 1]; ++k) sum += a[k] * x[static_cast<std::size_t>(ja[k])];
      y[static_cast<std::size_t>(i)] = sum;
    }
    benchmark::DoNotOptimize(y.data());
  }
  state.counters["elements/s"] =
      benchmark::Counter(static_cast<double>(s.ia.back()), benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

BENCHMARK(BM_HashAccumulate)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_HashAccumulateSized)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_UnorderedMapAccumulate)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_GaussSeidelRoundHash)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CsrSymmetricProduct)->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_CsrProduct)->Unit(benchmark::kMillisecond)->Iterations(10);

BENCHMARK_MAIN();
