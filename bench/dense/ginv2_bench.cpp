// ginv2 against LAPACK's Cholesky factorisation and inversion (dpotrf + dpotri) on the same
// positive definite matrix, and ginv2 on a rank-deficient matrix of the same order, interleaved
// round by round in one benchmark per order (common/interleave.hpp); the best time of each is
// kept and the ratio printed with the load average. Run with OPENBLAS_NUM_THREADS=1 for the
// one-thread comparison (process CPU time is then the time of the whole computation).
//
// The matrices look like genomic relationship matrices: unit diagonal, small off-diagonal
// elements. The rank-deficient one repeats every 20th row and column of an earlier one, so
// one row in 20 is dependent. Each iteration inverts a fresh copy; the copy is not timed.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "common/interleave.hpp"
#include "mmekit/dense/blas.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/dense/inverse.hpp"

using namespace mmekit;

namespace {

const densem& positive_definite(std::int64_t n) {
  static std::map<std::int64_t, densem> cache;
  auto it = cache.find(n);
  if (it != cache.end()) return it->second;
  std::mt19937_64 gen(static_cast<std::uint64_t>(n));
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  densem a(n);
  const double scale = 0.5 / static_cast<double>(n);
  for (std::int64_t j = 1; j <= n; ++j) {
    for (std::int64_t i = j + 1; i <= n; ++i) a(i, j) = a(j, i) = scale * u(gen);
    a(j, j) = 1.0;
  }
  return cache.emplace(n, std::move(a)).first->second;
}

// Every 20th row and column (20, 40, ...) is a copy of a random earlier one.
const densem& rank_deficient(std::int64_t n) {
  static std::map<std::int64_t, densem> cache;
  auto it = cache.find(n);
  if (it != cache.end()) return it->second;
  const densem& base = positive_definite(n);
  std::mt19937_64 gen(static_cast<std::uint64_t>(n) + 1);
  std::vector<std::int64_t> source(static_cast<std::size_t>(n + 1));
  for (std::int64_t i = 1; i <= n; ++i) {
    source[i] = i;
    if (i % 20 == 0) source[i] = source[std::uniform_int_distribution<std::int64_t>(1, i - 1)(gen)];
  }
  densem a(n);
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i <= n; ++i) a(i, j) = base(source[i], source[j]);
  return cache.emplace(n, std::move(a)).first->second;
}

// ginv2 with block size `block` (0: the default) on a fresh copy of src.
void run_ginv2(benchmark::State& state, const densem& src, std::int64_t block) {
  densem a;
  std::int32_t rank = 0;
  for (auto _ : state) {
    state.PauseTiming();
    a = src;
    state.ResumeTiming();
    ginv2_kernel(a.data(), a.order(), a.ld(), rank, 1e-10, block);
    benchmark::DoNotOptimize(a.data());
  }
  state.counters["rank"] = rank;
}

// Block size sweep of ginv2 (not a comparison with a peer).
void BM_ginv2_pd_block(benchmark::State& state) {
  run_ginv2(state, positive_definite(state.range(0)), state.range(1));
}

// Interleaved: 0 dpotrf + dpotri, 1 ginv2 on the same positive definite matrix, 2 ginv2 on the
// rank-deficient one. Each run inverts a fresh copy; the copy is not timed.
void BM_ginv2_vs_lapack(benchmark::State& state) {
  const std::int64_t order = state.range(0);
  const densem& pd = positive_definite(order);
  const densem& rd = rank_deficient(order);
  densem a;
  const blas_int n = static_cast<blas_int>(order);
  blas_int info = 0;
  std::int32_t rank_pd = 0, rank_rd = 0;
  auto lapack = [&] {
    info = blas::potrf('L', n, a.data(), n);
    if (info == 0) info = blas::potri('L', n, a.data(), n);
    benchmark::DoNotOptimize(a.data());
  };
  auto ginv2 = [&](std::int32_t& rank) {
    ginv2_kernel(a.data(), a.order(), a.ld(), rank, 1e-10, 0);
    benchmark::DoNotOptimize(a.data());
  };
  benchcmp::Comparison c;
  for (auto _ : state) {
    c = benchcmp::interleave("ginv2 against dpotrf + dpotri, n = " + std::to_string(order),
                             {{"dpotrf + dpotri", lapack, [&] { a = pd; }},
                              {"ginv2 positive definite", [&] { ginv2(rank_pd); }, [&] { a = pd; }},
                              {"ginv2 rank deficient", [&] { ginv2(rank_rd); }, [&] { a = rd; }}},
                             benchcmp::rounds());
    state.SetIterationTime(c.times[1].best_wall());
  }
  if (info != 0) state.SkipWithError("dpotrf/dpotri failed");
  std::printf("   ranks: positive definite %d, rank deficient %d (of %lld)\n", rank_pd, rank_rd,
              static_cast<long long>(order));
  benchcmp::print(c, {{1, 0}, {2, 0}});
  benchcmp::report(state, c, 1, 0);
  state.counters["rank_deficient"] = rank_rd;
}

}  // namespace

// One inversion of order 8000 is about 5e11 flops, some 12 s on one core.
BENCHMARK(BM_ginv2_vs_lapack)->Arg(4000)->Arg(8000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();
// Block size sweep (not part of the comparison; select it with --benchmark_filter=block).
BENCHMARK(BM_ginv2_pd_block)
    ->Args({4000, 64})->Args({4000, 128})->Args({4000, 192})->Args({4000, 256})->Args({4000, 384})
    ->Unit(benchmark::kMillisecond)->Iterations(2)->MeasureProcessCPUTime()->UseRealTime();

MMEKIT_BENCH_MAIN()
