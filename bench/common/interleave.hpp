// Interleaved comparisons for the benchmarks: ours and its peers run in the same process, one
// after the other, round by round (A B A B A B ...), and the best (smallest) time of each side
// is kept. On a shared machine the load changes from minute to minute; alternating the sides
// exposes both to the same load, and the minimum over rounds is the time least disturbed by it.
//
//   auto c = benchcmp::interleave("title", {{"ours", [&] { ... }}, {"peer", [&] { ... }}}, 3);
//   benchcmp::print(c, {{0, 1}});     // per-round table, best times, ratio ours / peer
//   benchcmp::report(state, c, 0, 1); // the same figures as Google Benchmark counters
//
// A side whose first round takes longer than `slow_seconds` is not repeated (it is run once),
// so that a very slow side does not stretch the run to hours; the printout says so.
//
// MMEKIT_BENCH_MAIN() prints the load average at the start and at the end of the program.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace mmekit::benchcmp {

// The three load averages of /proc/loadavg ("1.20 0.95 0.80"), or "?" where it cannot be read.
inline std::string loadavg() {
  std::ifstream f("/proc/loadavg");
  std::string a, b, c;
  if (!(f >> a >> b >> c)) return "?";
  return a + " " + b + " " + c;
}

inline double loadavg1() {
  std::ifstream f("/proc/loadavg");
  double a = 0;
  return (f >> a) ? a : -1.0;
}

inline double cpu_now() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

inline double wall_now() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

inline std::string now_text() {
  char buf[64];
  const std::time_t t = std::time(nullptr);
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", std::localtime(&t));
  return buf;
}

struct Side {
  std::string name;
  std::function<void()> run;              // the timed work
  std::function<void()> prepare = {};     // untimed, before each run (a fresh copy of the input)
  double units = 1;                       // units of work per run (values written, rounds made):
                                          // times and ratios are given per unit
};

struct Times {
  std::vector<double> cpu, wall;  // seconds, one per round the side ran
  double best_cpu() const { return cpu.empty() ? 0.0 : *std::min_element(cpu.begin(), cpu.end()); }
  double best_wall() const { return wall.empty() ? 0.0 : *std::min_element(wall.begin(), wall.end()); }
};

struct Comparison {
  std::string title;
  std::vector<Side> sides;
  std::vector<Times> times;
  int rounds = 0;
  double slow_seconds = 0;
  std::string started, load_start, load_end;
  double load1_start = 0, load1_end = 0;

  // Best time per unit of side s, and the ratios of two sides.
  double unit_cpu(int s) const { return times[idx(s)].best_cpu() / sides[idx(s)].units; }
  double unit_wall(int s) const { return times[idx(s)].best_wall() / sides[idx(s)].units; }
  double ratio_cpu(int a, int b) const { return unit_cpu(a) / unit_cpu(b); }
  double ratio_wall(int a, int b) const { return unit_wall(a) / unit_wall(b); }

 private:
  static std::size_t idx(int s) { return static_cast<std::size_t>(s); }
};

// Rounds 1..rounds: every side once, in the order given. A side slower than slow_seconds in
// its first round is left out of the later rounds.
inline Comparison interleave(std::string title, std::vector<Side> sides, int rounds,
                             double slow_seconds = std::numeric_limits<double>::infinity()) {
  Comparison c;
  c.title = std::move(title);
  c.sides = std::move(sides);
  c.times.resize(c.sides.size());
  c.rounds = rounds;
  c.slow_seconds = slow_seconds;
  c.started = now_text();
  c.load_start = loadavg();
  c.load1_start = loadavg1();
  std::printf("\n== %s\n   started %s, load average %s\n", c.title.c_str(), c.started.c_str(), c.load_start.c_str());
  std::fflush(stdout);
  for (int r = 0; r < rounds; ++r)
    for (std::size_t s = 0; s < c.sides.size(); ++s) {
      Times& t = c.times[s];
      if (r > 0 && !t.wall.empty() && t.wall.front() > slow_seconds) continue;
      if (c.sides[s].prepare) c.sides[s].prepare();
      const double w0 = wall_now(), c0 = cpu_now();
      c.sides[s].run();
      const double c1 = cpu_now(), w1 = wall_now();
      t.cpu.push_back(c1 - c0);
      t.wall.push_back(w1 - w0);
    }
  c.load_end = loadavg();
  c.load1_end = loadavg1();
  return c;
}

// A time in a readable unit.
inline std::string seconds_text(double s) {
  char buf[32];
  if (s >= 10) std::snprintf(buf, sizeof buf, "%.2f s", s);
  else if (s >= 1) std::snprintf(buf, sizeof buf, "%.3f s", s);
  else if (s >= 1e-3) std::snprintf(buf, sizeof buf, "%.1f ms", s * 1e3);
  else if (s >= 1e-6) std::snprintf(buf, sizeof buf, "%.1f us", s * 1e6);
  else std::snprintf(buf, sizeof buf, "%.1f ns", s * 1e9);
  return buf;
}

// The rounds of every side (CPU and wall seconds), the best of each, and the ratios
// best(first) / best(second) for every pair in `ratios`.
inline void print(const Comparison& c, const std::vector<std::pair<int, int>>& ratios) {
  std::size_t width = 10;
  for (const Side& s : c.sides) width = std::max(width, s.name.size());
  const int w = static_cast<int>(width);
  std::printf("   %-*s  rounds  CPU s per round (wall s)\n", w, "side");
  for (std::size_t s = 0; s < c.sides.size(); ++s) {
    const Times& t = c.times[s];
    std::printf("   %-*s  %6zu ", w, c.sides[s].name.c_str(), t.cpu.size());
    for (std::size_t r = 0; r < t.cpu.size(); ++r) std::printf(" %.4g (%.4g)", t.cpu[r], t.wall[r]);
    if (t.cpu.size() == 1 && c.rounds > 1) std::printf("  [one round: the first took more than %.0f s]", c.slow_seconds);
    std::printf("\n");
  }
  std::printf("   best of the rounds:\n");
  for (std::size_t s = 0; s < c.sides.size(); ++s) {
    const Times& t = c.times[s];
    std::printf("   %-*s  CPU %-10s wall %-10s", w, c.sides[s].name.c_str(), seconds_text(t.best_cpu()).c_str(),
                seconds_text(t.best_wall()).c_str());
    if (c.sides[s].units != 1)
      std::printf("  per unit (1/%g of a run): CPU %s, wall %s", c.sides[s].units,
                  seconds_text(t.best_cpu() / c.sides[s].units).c_str(),
                  seconds_text(t.best_wall() / c.sides[s].units).c_str());
    std::printf("\n");
  }
  for (auto [a, b] : ratios)
    std::printf("   ratio %s / %s: CPU %.3f, wall %.3f\n", c.sides[static_cast<std::size_t>(a)].name.c_str(),
                c.sides[static_cast<std::size_t>(b)].name.c_str(), c.ratio_cpu(a, b), c.ratio_wall(a, b));
  std::printf("   load average at the end %s\n", c.load_end.c_str());
  std::fflush(stdout);
}

// Counters of a Google Benchmark run of one comparison: best CPU time per unit of sides a and b (ms),
// the ratio of sides a and b (CPU and wall), and the 1-minute load at start and end.
inline void report(benchmark::State& state, const Comparison& c, int a, int b) {
  state.counters["ours_cpu_ms"] = 1e3 * c.unit_cpu(a);
  state.counters["peer_cpu_ms"] = 1e3 * c.unit_cpu(b);
  state.counters["ratio_cpu"] = c.ratio_cpu(a, b);
  state.counters["ratio_wall"] = c.ratio_wall(a, b);
  state.counters["load_start"] = c.load1_start;
  state.counters["load_end"] = c.load1_end;
}

// A comma-separated list of numbers from the environment variable `name` ("300000,1000000"),
// or `def` when it is not set.
inline std::vector<long> list_from_env(const char* name, const std::vector<long>& def) {
  const char* e = std::getenv(name);
  if (!e) return def;
  std::vector<long> v;
  std::stringstream ss(e);
  std::string item;
  while (std::getline(ss, item, ',')) v.push_back(std::atol(item.c_str()));
  return v;
}

// Rounds of each comparison: MMEKIT_BENCH_ROUNDS, at least 3 (default 3).
inline int rounds() {
  int r = 3;
  if (const char* e = std::getenv("MMEKIT_BENCH_ROUNDS")) r = std::atoi(e);
  return std::max(r, 3);
}

// Runs the registered benchmarks (Google Benchmark's own main), with the date and the load
// average printed before and after: the body of a benchmark program's main.
inline int run_benchmarks(int argc, char** argv) {
  std::printf("run started %s, load average %s\n", now_text().c_str(), loadavg().c_str());
  std::fflush(stdout);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("run ended %s, load average %s\n", now_text().c_str(), loadavg().c_str());
  return 0;
}

}  // namespace mmekit::benchcmp

// A Google Benchmark main that prints the date and the load average before and after the run.
#define MMEKIT_BENCH_MAIN() \
  int main(int argc, char** argv) { return ::mmekit::benchcmp::run_benchmarks(argc, argv); }
