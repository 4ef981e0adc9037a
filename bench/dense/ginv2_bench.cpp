// ginv2 against LAPACK's Cholesky factorisation and inversion (dpotrf + dpotri) on the same
// positive definite matrix, and ginv2 on a rank-deficient matrix of the same order.
//
// The matrices look like genomic relationship matrices: unit diagonal, small off-diagonal
// elements. The rank-deficient one repeats every 20th row and column of an earlier one, so
// one row in 20 is dependent. Each iteration inverts a fresh copy; the copy is not timed.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <random>

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
  const double n = static_cast<double>(src.order());
  state.counters["GFlops"] = benchmark::Counter(n * n * n * 1e-9 * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate);
}

void BM_ginv2_pd(benchmark::State& state) { run_ginv2(state, positive_definite(state.range(0)), 0); }
void BM_ginv2_rank_deficient(benchmark::State& state) { run_ginv2(state, rank_deficient(state.range(0)), 0); }
void BM_ginv2_pd_block(benchmark::State& state) {
  run_ginv2(state, positive_definite(state.range(0)), state.range(1));
}

void BM_lapack_potrf_potri_pd(benchmark::State& state) {
  const densem& src = positive_definite(state.range(0));
  densem a;
  const blas_int n = static_cast<blas_int>(src.order());
  blas_int info = 0;
  for (auto _ : state) {
    state.PauseTiming();
    a = src;
    state.ResumeTiming();
    info = blas::potrf('L', n, a.data(), n);
    if (info == 0) info = blas::potri('L', n, a.data(), n);
    benchmark::DoNotOptimize(a.data());
  }
  if (info != 0) state.SkipWithError("dpotrf/dpotri failed");
  const double nn = static_cast<double>(n);
  state.counters["GFlops"] = benchmark::Counter(nn * nn * nn * 1e-9 * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate);
}

}  // namespace

// One inversion of order 8000 is about 5e11 flops: few iterations, the same for each contender.
BENCHMARK(BM_lapack_potrf_potri_pd)->Arg(4000)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ginv2_pd)->Arg(4000)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ginv2_rank_deficient)->Arg(4000)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_lapack_potrf_potri_pd)->Arg(8000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ginv2_pd)->Arg(8000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ginv2_rank_deficient)->Arg(8000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
// Block size sweep (not part of the comparison; select it with --benchmark_filter=block).
BENCHMARK(BM_ginv2_pd_block)
    ->Args({4000, 64})->Args({4000, 128})->Args({4000, 192})->Args({4000, 256})->Args({4000, 384})
    ->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

BENCHMARK_MAIN();
