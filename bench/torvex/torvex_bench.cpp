// The sparse Cholesky package and the Krylov solvers on the mixed-model equations of a
// simulated animal model.
//
//   TorvexOption/<option>/<records>  one kernel option on its own (10 ordering, 20 symbolic,
//                                     40 numeric, 50 solve, 61 sparse inverse)
//   TorvexDriver/<records>           "fac" + "sol" + "inv" through the driver, from 100 units
//   Pcg/<block>/<records>            hash PCG to 1e-10 with the diagonal (block 1) or a block
//                                     preconditioner; counters: rounds and seconds per round
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/solvers/krylov.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "mmekit/torvex/torvex.hpp"

#ifdef MMEKIT_BENCH_HAVE_GENERATOR
#include "generator/generator.hpp"
#endif

using namespace mmekit;

namespace {

struct System {
  sparse_hashm hash;
  sparse_ija ija;
  Array1<double> rhs;
};

#ifdef MMEKIT_BENCH_HAVE_GENERATOR
void build_generated(std::int64_t records, System& s) {
  benchgen::Config cfg;
  cfg.seed = 11;
  cfg.records = records;
  benchgen::Dataset data = benchgen::generate(cfg);
  CaptureOutput quiet;  // the growth lines of the hash matrix
  benchgen::build_mme(data, {}, s.hash, s.rhs);
  CONVERT_HASH_IJA(s.ija, s.hash);
}
#endif

// A small animal model of our own (when the shared generator is not built, or with
// TORVEX_BENCH_OWN_DATA set): herd-years, one record per animal, random earlier parents, and
// the pedigree part with ratio 2.
void build_own(std::int64_t records, System& s) {
  // Ten generations; each animal has one record in a herd-year of its generation; sires come
  // from 40 males of the previous generation, dams from its females of the same herd.
  std::mt19937_64 g(11);
  const auto na = static_cast<std::int32_t>(records);
  const std::int32_t gens = 10, per_gen = std::max<std::int32_t>(1, na / gens);
  const std::int32_t herds = std::max<std::int32_t>(10, na / 500);
  const std::int32_t nhy = herds * gens;
  const std::int32_t n = nhy + na;
  init_sparse_hashm(s.hash, n);
  s.rhs.assign(n, 0.0);
  CaptureOutput quiet;
  for (std::int32_t k = 1; k <= na; ++k) {
    const std::int32_t gen = std::min(gens - 1, (k - 1) / per_gen);
    const std::int32_t herd = static_cast<std::int32_t>(g() % herds);
    const std::int32_t hy = 1 + gen * herds + herd, a = nhy + k;
    std::int32_t sire = 0, dam = 0;
    if (gen > 0) {
      const std::int32_t first = (gen - 1) * per_gen + 1;
      sire = nhy + first + static_cast<std::int32_t>(g() % 40) * 2;
      // a dam of the previous generation: one of the animals of the same herd position
      dam = nhy + first + 1 + 2 * static_cast<std::int32_t>(g() % (per_gen / 2 - 1));
    }
    addm_sparse_hashm(1.0, hy, hy, s.hash);
    addm_sparse_hashm(1.0, hy, a, s.hash);
    addm_sparse_hashm(1.0, a, a, s.hash);
    const double y = static_cast<double>(g() % 1000) / 100.0;
    s.rhs(hy) += y;
    s.rhs(a) += y;
    const double delta = (sire && dam) ? 2.0 : 1.0, r = 2.0;
    addm_sparse_hashm(r * delta, a, a, s.hash);
    for (std::int32_t p : {sire, dam})
      if (p) {
        addm_sparse_hashm(-r * delta / 2, p, a, s.hash);
        addm_sparse_hashm(r * delta / 4, p, p, s.hash);
      }
    if (sire && dam && sire != dam)
      addm_sparse_hashm(r * delta / 4, std::min(sire, dam), std::max(sire, dam), s.hash);
  }
  CONVERT_HASH_IJA(s.ija, s.hash);
}

void build(std::int64_t records, System& s) {
#ifdef MMEKIT_BENCH_HAVE_GENERATOR
  if (!std::getenv("TORVEX_BENCH_OWN_DATA")) return build_generated(records, s);
#endif
  build_own(records, s);
}

System& system_of(std::int64_t records) {
  static std::map<std::int64_t, std::unique_ptr<System>> cache;
  auto& p = cache[records];
  if (!p) {
    p = std::make_unique<System>();
    build(records, *p);
  }
  return *p;
}

struct KernelRun {
  TorvexWork work{2};
  std::int32_t run(std::int32_t option, sparse_ija& m, double* rhs = nullptr) {
    for (;;) {
      TorvexKernelArgs k;
      k.is = work.cells();
      k.size = work.size();
      std::int32_t flag = 0;
      torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), nullptr, rhs, flag, k);
      if (flag == 0 || k.need == 0) return flag;
      work.grow(k.need);
    }
  }
};

void TorvexOption(benchmark::State& state) {
  const auto option = static_cast<std::int32_t>(state.range(0));
  System& s = system_of(state.range(1));
  sparse_ija m = s.ija;
  KernelRun k;
  for (std::int32_t o : {10, 20, 40})
    if (k.run(o, m) != 0) state.SkipWithError("kernel failed");
  Array1<double> x = s.rhs;
  for (auto _ : state) {
    if (option == 61) {
      state.PauseTiming();
      m.a = s.ija.a;
      k.run(40, m);
      state.ResumeTiming();
    }
    if (option == 50) x = s.rhs;
    benchmark::DoNotOptimize(k.run(option, m, x.data()));
  }
  state.counters["n"] = m.n;
  state.counters["nze_factor"] = static_cast<double>(torvex_factor_nonzeros(k.work.cells()));
  state.counters["rank"] = torvex_rank(k.work.cells());
  state.counters["work_cells"] = static_cast<double>(k.work.size());
}

void TorvexDriver(benchmark::State& state) {
  System& s = system_of(state.range(0));
  Array1<double> sol;
  for (auto _ : state) {
    sparse_ija m = s.ija;
    TorvexArgs a;
    a.rhs = &s.rhs;
    a.sol = &sol;
    TORVEX("fac", m);
    TORVEX("sol", m, a);
    TORVEX("inv", m);
    TORVEX("res", m);
  }
  state.counters["n"] = s.ija.n;
}

void Pcg(benchmark::State& state) {
  const auto block = static_cast<std::int32_t>(state.range(0));
  System& s = system_of(state.range(1));
  Array1<double> x(s.ija.n);
  double rounds = 0, seconds = 0;
  for (auto _ : state) {
    CaptureOutput cap;
    const double t0 = cpu_seconds();
    SOLVE_SPARSE_HASHM_PCG(s.hash, s.rhs, x, block, 1);
    seconds = cpu_seconds() - t0;
    // The closing line starts with the number of rounds (the temporary hash matrix of a
    // block preconditioner may print its growth lines before it).
    const std::string t = cap.text();
    const std::size_t p = t.rfind(" iterations,");
    const std::size_t b = p == std::string::npos ? std::string::npos : t.rfind('\n', p);
    rounds = p == std::string::npos ? 0 : std::atof(t.c_str() + (b == std::string::npos ? 0 : b + 1));
  }
  state.counters["rounds"] = rounds;
  state.counters["sec_per_round"] = rounds > 0 ? seconds / rounds : 0;
  state.counters["n"] = s.ija.n;
}

}  // namespace

BENCHMARK(TorvexOption)
    ->ArgsProduct({{10, 20, 40, 50, 61}, {30000, 60000}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK(TorvexDriver)->Arg(30000)->Arg(60000)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(Pcg)
    ->ArgsProduct({{1, 10, 50}, {30000, 60000}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->Iterations(1);

BENCHMARK_MAIN();
