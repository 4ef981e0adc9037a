// Accumulation of the MME of an animal model into the hash matrix against std::unordered_map,
// and a Gauss-Seidel round against a plain CSR matrix-vector product over the same elements.
// Each comparison runs its sides interleaved, round by round, in one benchmark and keeps the
// best time of each (common/interleave.hpp); the ratios are printed with the load average.
//
// The data set is simulated once per run (records from MMEKIT_BENCH_RECORDS, default
// 2,000,000; seed 2024). Rounds: MMEKIT_BENCH_ROUNDS (at least and by default 3).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/interleave.hpp"
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

struct KeyHash {
  std::size_t operator()(std::uint64_t k) const noexcept { return std::hash<std::uint64_t>{}(k); }
};
using Map = std::unordered_map<std::uint64_t, double, KeyHash>;

// The same stream of adds, in the same order, into four structures, interleaved:
//   0 sparse_hashm as a program uses it: the default size, growing by doubling;
//   1 sparse_hashm sized for the final count from the start (no growth);
//   2 std::unordered_map keyed by the pair packed into 64 bits;
//   3 the same with reserve() for the final count.
// The structure is released before the next side runs, outside the timed region.
void BM_Accumulate(benchmark::State& state) {
  const Data& d = data();
  const std::int64_t slots = sorted_system().h.hash_size;
  const std::int64_t elements = sorted_system().h.nel;
  std::unique_ptr<sparse_hashm> h;
  std::unique_ptr<Map> m;
  std::int64_t grown_slots = 0, grown_elements = 0, map_elements = 0;
  auto release = [&] {
    h.reset();
    m.reset();
  };
  auto hash = [&](bool sized) {
    h = std::make_unique<sparse_hashm>();
    CaptureOutput quiet;  // the growth lines
    if (sized) init_sparse_hashm(*h, d.layout.n, slots);
    else init_sparse_hashm(*h, d.layout.n);
    benchgen::for_each_mme_add(d.set, {}, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(v, i, j, *h); });
    benchmark::DoNotOptimize(h->x.data());
    if (!sized) {
      grown_slots = h->hash_size;
      grown_elements = h->nel;
    }
  };
  auto map = [&](bool reserve) {
    m = std::make_unique<Map>();
    if (reserve) m->reserve(static_cast<std::size_t>(elements));
    benchgen::for_each_mme_add(d.set, {}, [&](std::int32_t i, std::int32_t j, double v) {
      (*m)[(static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32) | static_cast<std::uint32_t>(j)] += v;
    });
    map_elements = static_cast<std::int64_t>(m->size());
    benchmark::DoNotOptimize(m->size());
  };
  benchcmp::Comparison c;
  for (auto _ : state) {
    c = benchcmp::interleave("MME accumulation: " + std::to_string(d.set.records.size()) + " records, " +
                                 std::to_string(d.adds) + " adds, " + std::to_string(elements) + " distinct elements",
                             {{"sparse_hashm growing", [&] { hash(false); }, release},
                              {"sparse_hashm sized", [&] { hash(true); }, release},
                              {"unordered_map", [&] { map(false); }, release},
                              {"unordered_map reserved", [&] { map(true); }, release}},
                             benchcmp::rounds());
    release();
    state.SetIterationTime(c.times[0].best_wall());
  }
  std::printf("   growing table: %lld slots at the end, %lld elements; unordered_map: %lld elements\n",
              static_cast<long long>(grown_slots), static_cast<long long>(grown_elements),
              static_cast<long long>(map_elements));
  benchcmp::print(c, {{0, 2}, {1, 2}, {0, 3}, {1, 3}, {3, 2}});
  benchcmp::report(state, c, 0, 2);
  state.counters["ratio_sized_cpu"] = c.ratio_cpu(1, 2);
  state.counters["adds"] = static_cast<double>(d.adds);
  state.counters["elements"] = static_cast<double>(grown_elements);
}

// Gauss-Seidel on the sorted hash matrix against the CSR products over the same stored
// elements, interleaved. Times are per round or per product:
//   0 a call of 10 rounds of SOLVE_SPARSE_HASHM (row pointers, diagonal and work vector are
//     set up once per call), divided by 10;
//   1 a call of one round, its set-up included;
//   2 y = A x from the upper triangle in CSR form, each stored element used for both triangles
//     (the access pattern of the sweep: a gather from x and a scatter into y per element),
//     10 products per run;
//   3 the plain one-triangle CSR product, 10 products per run.
void BM_GaussSeidelRound(benchmark::State& state) {
  System& s = sorted_system();
  const std::int64_t n = s.h.n;
  Array1<double> sol(s.h.n, 0.0);
  std::vector<double> x(static_cast<std::size_t>(n)), y(static_cast<std::size_t>(n));
  for (std::int64_t i = 0; i < n; ++i) x[static_cast<std::size_t>(i)] = 1.0 + 1e-6 * static_cast<double>(i % 1000);
  constexpr int products = 10;
  auto gauss_seidel = [&](std::int32_t rounds) {
    reset_sparse_parameters();
    sparse_param.solve_rounds = rounds;
    sparse_param.solve_conv = 0.0f;
    sparse_param.solve_verbose = 0;
    CaptureOutput quiet;  // the round lines
    SOLVE_SPARSE_HASHM(s.h, s.rhs, sol);
    benchmark::DoNotOptimize(sol.data());
    reset_sparse_parameters();
  };
  auto symmetric = [&] {
    const std::int64_t* ia = s.ia.data();
    const std::int32_t* ja = s.ja.data();
    const double* a = s.a.data();
    double* yy = y.data();
    const double* xx = x.data();
    for (int p = 0; p < products; ++p) {
      std::fill(y.begin(), y.end(), 0.0);
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
      benchmark::ClobberMemory();
    }
  };
  auto one_triangle = [&] {
    const std::int64_t* ia = s.ia.data();
    const std::int32_t* ja = s.ja.data();
    const double* a = s.a.data();
    for (int p = 0; p < products; ++p) {
      for (std::int64_t i = 0; i < n; ++i) {
        double sum = 0.0;
        for (std::int64_t k = ia[i]; k < ia[i + 1]; ++k) sum += a[k] * x[static_cast<std::size_t>(ja[k])];
        y[static_cast<std::size_t>(i)] = sum;
      }
      benchmark::DoNotOptimize(y.data());
      benchmark::ClobberMemory();
    }
  };
  benchcmp::Comparison c;
  for (auto _ : state) {
    c = benchcmp::interleave("Gauss-Seidel round: " + std::to_string(n) + " equations, " + std::to_string(s.h.nel) +
                                 " stored elements",
                             {{"GS 10-round call", [&] { gauss_seidel(10); }, {}, 10},
                              {"GS 1-round call", [&] { gauss_seidel(1); }},
                              {"CSR symmetric product", symmetric, {}, products},
                              {"CSR one-triangle product", one_triangle, {}, products}},
                             std::max(benchcmp::rounds(), 5));
    state.SetIterationTime(c.times[0].best_wall());
  }
  benchcmp::print(c, {{0, 2}, {1, 2}, {3, 2}, {0, 3}});
  benchcmp::report(state, c, 0, 2);
  state.counters["elements"] = static_cast<double>(s.h.nel);
}

}  // namespace

BENCHMARK(BM_Accumulate)->Unit(benchmark::kMillisecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_GaussSeidelRound)->Unit(benchmark::kMillisecond)->Iterations(1)->UseManualTime();

MMEKIT_BENCH_MAIN()
