// Saving and reading a genomic matrix in the old position form, binary and text, against the
// least a program can do for the same bytes: the framed records assembled in memory and
// written by one fwrite, and the text lines made by snprintf("%d %d %.12f").
//
// Order from MMEKIT_BENCH_GMAT_N (default 3000: 4.5 million elements of the lower triangle).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mmekit/genomic/matrix_files.hpp"
#include "mmekit/support/output.hpp"

namespace {

using namespace mmekit;

const densem& matrix() {
  static const densem a = [] {
    std::int64_t n = 3000;
    if (const char* e = std::getenv("MMEKIT_BENCH_GMAT_N")) n = std::atoll(e);
    densem m(n, 0.0);
    for (std::int64_t j = 1; j <= n; ++j)
      for (std::int64_t i = j; i <= n; ++i) m(i, j) = m(j, i) = (i == j ? 1.0 : 0.0) + 1.0 / static_cast<double>(i + 3 * j);
    return m;
  }();
  return a;
}

std::int64_t elements() {
  const std::int64_t n = matrix().order();
  return n * (n + 1) / 2;
}

void BM_save_binary(benchmark::State& st) {
  for (auto _ : st) save_positions(matrix(), "bench_gmat.bin", true, nullptr);
  st.SetItemsProcessed(st.iterations() * elements());
}

void BM_peer_save_binary(benchmark::State& st) {
  const densem& a = matrix();
  for (auto _ : st) {
    std::vector<unsigned char> buf;
    buf.reserve(static_cast<std::size_t>(elements()) * 24);
    for (std::int64_t j = 1; j <= a.order(); ++j)
      for (std::int64_t i = j; i <= a.order(); ++i) {
        unsigned char r[24];
        const std::int32_t len = 16, ii = static_cast<std::int32_t>(i), jj = static_cast<std::int32_t>(j);
        const double v = a(i, j);
        std::memcpy(r, &len, 4);
        std::memcpy(r + 4, &ii, 4);
        std::memcpy(r + 8, &jj, 4);
        std::memcpy(r + 12, &v, 8);
        std::memcpy(r + 20, &len, 4);
        buf.insert(buf.end(), r, r + 24);
      }
    std::FILE* f = std::fopen("bench_gmat_peer.bin", "wb");
    std::fwrite(buf.data(), 1, buf.size(), f);
    std::fclose(f);
  }
  st.SetItemsProcessed(st.iterations() * elements());
}

void BM_save_text(benchmark::State& st) {
  for (auto _ : st) save_positions(matrix(), "bench_gmat.txt", false, nullptr);
  st.SetItemsProcessed(st.iterations() * elements());
}

void BM_peer_save_text(benchmark::State& st) {
  const densem& a = matrix();
  for (auto _ : st) {
    std::FILE* f = std::fopen("bench_gmat_peer.txt", "w");
    for (std::int64_t j = 1; j <= a.order(); ++j)
      for (std::int64_t i = j; i <= a.order(); ++i)
        std::fprintf(f, "%d %d %.12f\n", static_cast<int>(i), static_cast<int>(j), a(i, j));
    std::fclose(f);
  }
  st.SetItemsProcessed(st.iterations() * elements());
}

void BM_read_binary(benchmark::State& st) {
  save_positions(matrix(), "bench_gmat.bin", true, nullptr);
  CaptureOutput quiet;
  densem b;
  for (auto _ : st) read_positions(b, "bench_gmat.bin", true, matrix().order(), nullptr);
  st.SetItemsProcessed(st.iterations() * elements());
}

void BM_read_text(benchmark::State& st) {
  save_positions(matrix(), "bench_gmat.txt", false, nullptr);
  CaptureOutput quiet;
  densem b;
  for (auto _ : st) read_positions(b, "bench_gmat.txt", false, matrix().order(), nullptr);
  st.SetItemsProcessed(st.iterations() * elements());
}

BENCHMARK(BM_save_binary)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_peer_save_binary)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_save_text)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_peer_save_text)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_read_binary)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_read_text)->Unit(benchmark::kMillisecond)->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
