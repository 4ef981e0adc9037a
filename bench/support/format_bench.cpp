// Throughput of the format interpreter against snprintf in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

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

void BM_format_f0_5(benchmark::State& state) {
  mmekit::Format f("(100(1x,f0.5))");
  for (auto _ : state) {
    std::string s = f.write(mmekit::FormatList(data));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_format_f0_5);

void BM_snprintf_f5(benchmark::State& state) {
  for (auto _ : state) {
    std::string s;
    char buf[64];
    for (double x : data) {
      int n = std::snprintf(buf, sizeof buf, " %.5f", x);
      s.append(buf, static_cast<std::size_t>(n));
    }
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_snprintf_f5);

void BM_format_g12_5(benchmark::State& state) {
  mmekit::Format f("(20g12.5)");
  for (auto _ : state) {
    std::string s = f.write(mmekit::FormatList(data));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_format_g12_5);

void BM_snprintf_g12_5(benchmark::State& state) {
  for (auto _ : state) {
    std::string s;
    char buf[64];
    for (double x : data) {
      int n = std::snprintf(buf, sizeof buf, "%12.5g", x);
      s.append(buf, static_cast<std::size_t>(n));
    }
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_snprintf_g12_5);

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

BENCHMARK_MAIN();
