// Sparse inversion of the supernodal solver (task 61) on the generator's animal-model MME.
//
//   bench/skelda/run_spinv.sh [build-dir] [extra benchmark arguments]
//
//   SpinvVsTorvex/<records>    task 61 against the sparse Cholesky package's inverse (its option
//                              61) on the equations of the package's own benchmark (seed 11):
//                              58,000 records give about 46,000 equations
//   SpinvVsNumeric/<records>   task 61 against our numeric factorisation (task 40) of the same
//                              matrix, with the pipeline's generator settings (seed 2024):
//                              385,000 and 1,290,000 records give about 300,000 and 1,000,000
//                              equations; also the two panel paths of the work matrix (limC 128,
//                              blksz 64, both gathers) and the sizes of all three from the simulation
// Both solvers get the singular system as it comes (rank n-1), which each handles with its own
// dependency check. Sides are interleaved round by round, best of MMEKIT_BENCH_ROUNDS (>= 3).
// One OpenBLAS thread. Environment: MMEKIT_SPINV_RECORDS (comma-separated, for SpinvVsNumeric).
#include <cblas.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/interleave.hpp"
#include "generator/generator.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/spinv.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/kernel.hpp"

namespace {

using mmekit::Array1;
namespace bc = mmekit::benchcmp;

// The state ordered and analysed (tasks 10 and 20) for m, with the dense rows last.
void analyse(const mmekit::sparse_ija& m) {
  using namespace mmekit;
  std::int32_t st = 0, n = m.n;
  skeldatask(0);
  skelda_state.switches.dense_rows_last = true;
  skeldatask(20, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .status = &st});
  if (st != 0) std::printf("   skelda analysis: status %d\n", st);
}

// Task 40 from stage 20 (the factor cleared first), or task 61 on a fresh factor.
void factorise(const mmekit::sparse_ija& m, Array1<double>& a) {
  using namespace mmekit;
  std::int32_t st = 0, n = m.n;
  skelda_clear();
  skeldatask(40, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &a, .status = &st});
  if (st != 0) std::printf("   skelda numeric: status %d\n", st);
}
void invert(const mmekit::sparse_ija& m, Array1<double>& a) {
  using namespace mmekit;
  std::int32_t st = 0, n = m.n;
  skeldatask(61, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &a, .status = &st});
  if (st != 0) std::printf("   skelda spinv: status %d\n", st);
}

void print_sizes(const char* what, std::int64_t lim, std::int64_t blk, std::int64_t spd) {
  mmekit::InvmfSizes z;
  mmekit::invmf_simulate(mmekit::skelda_layout(), {lim, blk, spd, true}, z);
  const double mib = 8.0 / 1048576.0;
  std::printf("   %-28s limC %6lld blksz %3lld spdopt %lld: maxnc %lld, C %.1f MiB (full %.1f, panel-spd %.1f, panel-mem %.1f), "
              "work %.1f MiB, factor %.1f MiB\n",
              what, static_cast<long long>(lim), static_cast<long long>(blk), static_cast<long long>(spd), static_cast<long long>(z.maxnc),
              static_cast<double>(z.c_words) * mib, static_cast<double>(z.size_full) * mib,
              static_cast<double>(z.size_panel_spd) * mib, static_cast<double>(z.size_panel_mem) * mib,
              static_cast<double>(z.work) * mib,
              static_cast<double>(mmekit::skelda_state.iparm(mmekit::kLnzAllocated)) * mib);
}

void SpinvVsNumeric(benchmark::State& state, long records) {
  mmekit::benchgen::Config cfg;
  cfg.seed = 2024;
  cfg.records = records;
  mmekit::sparse_ija m;
  Array1<double> rhs;
  {
    mmekit::CaptureOutput quiet;
    mmekit::benchgen::build_mme_ija(mmekit::benchgen::generate(cfg), {}, m, rhs);
  }
  openblas_set_num_threads(1);
  analyse(m);
  Array1<double> a;
  auto set_c = [](std::int64_t lim, std::int64_t spd) {
    mmekit::set_iparm(mmekit::kLimC, lim);
    mmekit::set_iparm(mmekit::kBlksz, lim == 8192 ? 256 : 64);
    mmekit::skelda_state.iparm(mmekit::kSpdopt) = spd;
  };
  std::vector<bc::Side> sides = {
      {"numeric (task 40)", [&] { factorise(m, a); }, [&] { a = m.a; }},
      {"spinv full C (task 61)", [&] { invert(m, a); }, [&] { set_c(8192, 0), a = m.a, factorise(m, a); }},
      {"spinv panel C, gather all", [&] { invert(m, a); }, [&] { set_c(128, 1), a = m.a, factorise(m, a); }},
      {"spinv panel C, by block", [&] { invert(m, a); }, [&] { set_c(128, 0), a = m.a, factorise(m, a); }},
  };
  for (auto _ : state) {
    const bc::Comparison c =
        bc::interleave("sparse inversion against numeric factorisation, " + std::to_string(m.n) + " equations (" +
                           std::to_string(records) + " records), " + std::to_string(m.nel) + " stored entries",
                       sides, bc::rounds(), 600);
    bc::print(c, {{1, 0}, {2, 0}, {3, 0}});
    bc::report(state, c, 1, 0);
    state.SetIterationTime(c.times[1].best_wall());
  }
  print_sizes("work of the full-C path:", 8192, 256, 0);
  print_sizes("work of the panel path:", 128, 64, 1);
  print_sizes("work of the panel path:", 128, 64, 0);
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  std::printf("   rank %lld of %d; maximum resident set of the process %.1f MiB\n",
              static_cast<long long>(mmekit::skelda_state.iparm(mmekit::kRank)), m.n, u.ru_maxrss / 1024.0);
  std::fflush(stdout);
  state.counters["n"] = m.n;
}

struct TorvexRun {
  mmekit::TorvexWork work{2};
  std::int32_t run(std::int32_t option, mmekit::sparse_ija& m) {
    for (;;) {
      mmekit::TorvexKernelArgs k;
      k.is = work.cells();
      k.size = work.size();
      std::int32_t flag = 0;
      mmekit::torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), nullptr, nullptr, flag, k);
      if (flag == 0 || k.need == 0) return flag;
      work.grow(k.need);
    }
  }
};

void SpinvVsTorvex(benchmark::State& state, long records) {
  mmekit::benchgen::Config cfg;
  cfg.seed = 11;
  cfg.records = records;
  mmekit::sparse_hashm hash;
  Array1<double> rhs;
  mmekit::sparse_ija m;
  {
    mmekit::CaptureOutput quiet;
    mmekit::benchgen::build_mme(mmekit::benchgen::generate(cfg), {}, hash, rhs);
    mmekit::CONVERT_HASH_IJA(m, hash);
  }
  openblas_set_num_threads(1);
  analyse(m);
  mmekit::sparse_ija tm = m;
  TorvexRun t;
  for (std::int32_t o : {10, 20, 40})
    if (t.run(o, tm) != 0) state.SkipWithError("the package's factorisation failed");
  Array1<double> a;
  std::vector<bc::Side> sides = {
      {"skelda task 61", [&] { invert(m, a); }, [&] { a = m.a, factorise(m, a); }},
      {"TORVEX option 61", [&] { t.run(61, tm); }, [&] { tm.a = m.a, t.run(40, tm); }},
      {"skelda task 40", [&] { factorise(m, a); }, [&] { a = m.a; }},
  };
  for (auto _ : state) {
    const bc::Comparison c = bc::interleave("sparse inverse against the Cholesky package's, " + std::to_string(m.n) +
                                                " equations (" + std::to_string(records) + " records)",
                                            sides, bc::rounds());
    bc::print(c, {{0, 1}, {0, 2}});
    bc::report(state, c, 0, 1);
    state.SetIterationTime(c.times[0].best_wall());
  }
  a = m.a;  // the last side run may have been the factorisation: invert once more
  factorise(m, a);
  invert(m, a);
  // The two inverses on the pattern (TORVEX writes its inverse over tm.a): generalised inverses
  // of the singular system, equal where both drop the same dependent equation.
  double diff = 0, big = 0, bigs = 0;
  std::int64_t where = 1;
  for (std::int64_t k = 1; k <= m.nel; ++k) {
    if (std::abs(a(k) - tm.a(k)) > diff) diff = std::abs(a(k) - tm.a(k)), where = k;
    big = std::max(big, std::abs(tm.a(k)));
    bigs = std::max(bigs, std::abs(a(k)));
  }
  std::printf("   largest difference of the two inverses on the pattern: %.3g at entry %lld (largest element %.3g, "
              "ours %.3g)\n", diff, static_cast<long long>(where), big, bigs);
  // Rows of the inverse by solves with our own factor (the same generalised inverse): 60 rows
  // spread over the equations, every entry of the pattern in them.
  Array1<double> inv = a, f = m.a;
  factorise(m, f);
  double dsol = 0;
  for (std::int32_t j = 1; j <= m.n; j += m.n / 60) {
    mmekit::Array2<double> b(m.n, 1, 0.0), x(m.n, 1);
    b(j, 1) = 1.0;
    std::int32_t st = 0, n = m.n;
    mmekit::skeldatask(50, {.neq = &n, .ia = &m.ia, .ja = &m.ja, .a = &f, .rhs = &b, .sol = &x, .status = &st});
    for (std::int32_t k = m.ia(j); k < m.ia(j + 1); ++k) dsol = std::max(dsol, std::abs(inv(k) - x(m.ja(k), 1)));
  }
  std::printf("   largest difference from the rows of the inverse by solves: %.3g\n", dsol);
  std::fflush(stdout);
  state.counters["n"] = m.n;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("SpinvVsTorvex/58000", [](benchmark::State& s) { SpinvVsTorvex(s, 58000); })
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1)
      ->UseManualTime();
  for (long rec : mmekit::benchcmp::list_from_env("MMEKIT_SPINV_RECORDS", {385000, 1290000}))
    benchmark::RegisterBenchmark(("SpinvVsNumeric/" + std::to_string(rec)).c_str(),
                                 [rec](benchmark::State& s) { SpinvVsNumeric(s, rec); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1)
        ->UseManualTime();
  return bc::run_benchmarks(argc, argv);
}
