// Throughput of the format interpreter against snprintf: each comparison runs both sides
// interleaved, round by round, in one benchmark (common/interleave.hpp) and prints the best
// time per value of each and their ratio with the load average. The other cases (no peer) are
// plain benchmarks.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "common/interleave.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"

namespace {

std::vector<double> values(std::size_t n) {
  std::mt19937_64 rng(1);
  std::normal_distribution<double> d(0.0, 100.0);
  std::vector<double> v(n);
  for (auto& x : v) x = d(rng);
  return v;
}

const std::vector<double> data = values(1000);

// Writes of the 1000 values per run of a side; a run takes some 0.1 to 0.5 s.
constexpr int kWrites = 2000;

// The 1000 values written `kWrites` times by a parsed Format and by snprintf with the same
// edit, interleaved for `rounds` rounds (at least 5: one run is short).
void compare_with_snprintf(benchmark::State& state, const char* format, const char* printf_format) {
  mmekit::Format f(format);
  std::size_t bytes_ours = 0, bytes_peer = 0;
  auto ours = [&] {
    for (int w = 0; w < kWrites; ++w) {
      std::string s = f.write(mmekit::FormatList(data));
      bytes_ours = s.size();
      benchmark::DoNotOptimize(s.data());
    }
  };
  auto peer = [&] {
    for (int w = 0; w < kWrites; ++w) {
      std::string s;
      char buf[64];
      for (double x : data) {
        int n = std::snprintf(buf, sizeof buf, printf_format, x);
        s.append(buf, static_cast<std::size_t>(n));
      }
      bytes_peer = s.size();
      benchmark::DoNotOptimize(s.data());
    }
  };
  const double values = static_cast<double>(kWrites) * static_cast<double>(data.size());
  mmekit::benchcmp::Comparison c;
  for (auto _ : state) {
    c = mmekit::benchcmp::interleave(std::string("Format(\"") + format + "\") against snprintf(\"" + printf_format +
                                         "\"), " + std::to_string(data.size()) + " values written " +
                                         std::to_string(kWrites) + " times a run",
                                     {{"Format", ours, {}, values}, {"snprintf", peer, {}, values}},
                                     std::max(mmekit::benchcmp::rounds(), 5));
    state.SetIterationTime(c.times[0].best_wall());
  }
  std::printf("   bytes written per 1000 values: Format %zu, snprintf %zu\n", bytes_ours, bytes_peer);
  mmekit::benchcmp::print(c, {{0, 1}});
  mmekit::benchcmp::report(state, c, 0, 1);
  state.counters["ours_ns_per_value"] = 1e9 * c.unit_cpu(0);
  state.counters["peer_ns_per_value"] = 1e9 * c.unit_cpu(1);
}

void BM_format_f0_5_vs_snprintf(benchmark::State& state) { compare_with_snprintf(state, "(100(1x,f0.5))", " %.5f"); }
BENCHMARK(BM_format_f0_5_vs_snprintf)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_format_g12_5_vs_snprintf(benchmark::State& state) { compare_with_snprintf(state, "(20g12.5)", "%12.5g"); }
BENCHMARK(BM_format_g12_5_vs_snprintf)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// One value per write, parsing the format text each time (fformat), as a caller that does not
// keep a Format does.
void BM_fformat_one_value(benchmark::State& state) {
  std::size_t i = 0;
  for (auto _ : state) {
    std::string s = mmekit::fformat("(1x,f0.5)", data[i++ % data.size()]);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_fformat_one_value);

void BM_parse_effect_line_format(benchmark::State& state) {
  for (auto _ : state) {
    mmekit::Format f("(i2,2x,a19,i2i3,t75,i10,t90,20i3)");
    benchmark::DoNotOptimize(&f);
  }
}
BENCHMARK(BM_parse_effect_line_format);

void BM_free_format_reals(benchmark::State& state) {
  for (auto _ : state) {
    std::string s = mmekit::free_format_list(mmekit::FormatList(data));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_free_format_reals);

void BM_read_fixed_float(benchmark::State& state) {
  const char* items[] = {"12.5", "150", "-3.25e2", "0.000125", "16777217", "7"};
  std::size_t i = 0;
  float v = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(mmekit::read_fixed(items[i++ % 6], v));
    benchmark::DoNotOptimize(v);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_read_fixed_float);

}  // namespace

MMEKIT_BENCH_MAIN()
