// The supernodal solver's whole pipeline (ordering, symbolic and numeric factorisation, solve)
// on the generator's animal-model MME, side by side with CHOLMOD in the same process.
//
//   bench/skelda/run_pipeline.sh [build-dir]        (installs libsuitesparse-dev if missing)
//
// Sides, per round (three rounds, best time of each phase kept):
//   skelda          ordering with the dense rows set aside (AMD), symbolic, numeric, one solve
//   skelda relaxed  the same with relaxed supernode amalgamation
//   cholmod given   CHOLMOD's supernodal analysis and factorisation with skelda's permutation
//   cholmod default CHOLMOD's analysis with its default ordering, its factorisation and solve
// Both solvers get the same positive definite matrix: the generator's MME has rank n-1 (the
// herd-years and the parities both sum to the records), so the equation of the last parity is
// dropped. A last line gives skelda on the singular system, which its dependency check takes.
//
// Environment: MMEKIT_PIPELINE_RECORDS (comma-separated record counts, default
// 385000,1290000 for about 300,000 and 1,000,000 equations), MMEKIT_PIPELINE_THREADS
// (OpenBLAS threads, default "1,2"), MMEKIT_BENCH_ROUNDS (at least 3).
#include <cblas.h>
#include <suitesparse/cholmod.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "common/interleave.hpp"
#include "generator/generator.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"

namespace {

using mmekit::Array1;
using mmekit::Array2;
using mmekit::benchcmp::wall_now;

struct Phases {
  double order = 0, symbolic = 0, numeric = 0, solve = 0;
  double nnz_l = 0, stored = 0, peak_bytes = 0;
  double total() const { return order + symbolic + numeric; }
};

void keep_best(Phases& best, const Phases& p, bool first) {
  if (first) {
    best = p;
    return;
  }
  best.order = std::min(best.order, p.order);
  best.symbolic = std::min(best.symbolic, p.symbolic);
  best.numeric = std::min(best.numeric, p.numeric);
  best.solve = std::min(best.solve, p.solve);
}

// The upper triangle without equation `drop` (0: keep all).
mmekit::sparse_ija without_equation(const mmekit::sparse_ija& a, std::int32_t drop) {
  mmekit::sparse_ija b;
  const std::int32_t n = a.n - (drop > 0 ? 1 : 0);
  b.n = n;
  b.ia = Array1<std::int32_t>(n + 1);
  std::vector<std::int32_t> ja;
  std::vector<double> v;
  ja.reserve(static_cast<std::size_t>(a.nel));
  v.reserve(static_cast<std::size_t>(a.nel));
  auto renum = [drop](std::int32_t i) { return (drop > 0 && i > drop) ? i - 1 : i; };
  std::int32_t row = 0;
  for (std::int32_t i = 1; i <= a.n; ++i) {
    if (i == drop) continue;
    b.ia(++row) = static_cast<std::int32_t>(ja.size()) + 1;
    for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k) {
      if (a.ja(k) == drop) continue;
      ja.push_back(renum(a.ja(k)));
      v.push_back(a.a(k));
    }
  }
  b.ia(n + 1) = static_cast<std::int32_t>(ja.size()) + 1;
  b.nel = static_cast<std::int32_t>(ja.size());
  b.ja = Array1<std::int32_t>(b.nel);
  b.a = Array1<double>(b.nel);
  std::copy(ja.begin(), ja.end(), b.ja.begin());
  std::copy(v.begin(), v.end(), b.a.begin());
  return b;
}

// One run of skelda's chain: task 10, 20, 40, 50 with the given switches.
Phases run_skelda(const mmekit::sparse_ija& m, const Array1<double>& rhs, bool relaxed,
                  Array1<std::int32_t>* perm_out) {
  using namespace mmekit;
  std::int32_t st = 0, n = m.n, verbose = 0;
  skeldatask(0);
  skelda_state.switches.dense_rows_last = true;
  skelda_state.switches.relaxed_amalgamation = relaxed;
  Array1<std::int32_t> ia = m.ia, ja = m.ja;
  Array1<double> a = m.a;
  Phases p;
  double t0 = wall_now();
  skeldatask(10, {.neq = &n, .ia = &ia, .ja = &ja, .verbose = &verbose, .status = &st});
  double t1 = wall_now();
  if (st != 0) std::printf("   skelda ordering: status %d\n", st);
  skeldatask(20, {.neq = &n, .ia = &ia, .ja = &ja, .verbose = &verbose, .status = &st});
  double t2 = wall_now();
  if (st != 0) std::printf("   skelda symbolic: status %d\n", st);
  std::int32_t rank = 0;
  skeldatask(40, {.neq = &n, .ia = &ia, .ja = &ja, .a = &a, .ival = &rank, .verbose = &verbose, .status = &st});
  double t3 = wall_now();
  if (st != 0) std::printf("   skelda numeric: status %d\n", st);
  Array2<double> b(n, 1), x(n, 1);
  for (std::int32_t i = 1; i <= n; ++i) b(i, 1) = rhs(i);
  skeldatask(50, {.neq = &n, .ia = &ia, .ja = &ja, .a = &a, .rhs = &b, .sol = &x, .verbose = &verbose, .status = &st});
  double t4 = wall_now();
  if (st != 0) std::printf("   skelda solve: status %d\n", st);
  p.order = t1 - t0;
  p.symbolic = t2 - t1;
  p.numeric = t3 - t2;
  p.solve = t4 - t3;
  const SkeldaState& s = skelda_state;
  p.nnz_l = static_cast<double>(s.iparm(kLnzEffective));
  p.stored = static_cast<double>(s.iparm(kLnzAllocated));
  // The solver's own arrays at their largest: the factor and its index arrays, the permutation
  // and the flags, and the temporary of the numeric loop.
  p.peak_bytes = 8.0 * static_cast<double>(s.iparm(kLnzAllocated) + s.iparm(kTempFact)) +
                 4.0 * static_cast<double>(s.iparm(kLindxSize) + 4LL * n) +
                 20.0 * static_cast<double>(s.iparm(kNsn));
  if (perm_out && s.perm) *perm_out = *s.perm;
  if (rank != n) std::printf("   skelda rank %d of %d\n", rank, n);
  return p;
}

// One run of CHOLMOD: supernodal LL' of the same matrix, with `perm` (1-based) or its defaults.
Phases run_cholmod(const mmekit::sparse_ija& m, const Array1<double>& rhs, const Array1<std::int32_t>* perm) {
  cholmod_common c;
  cholmod_start(&c);
  c.supernodal = CHOLMOD_SUPERNODAL;
  const std::size_t n = static_cast<std::size_t>(m.n);
  // Our rows of the upper triangle are CHOLMOD's columns of the lower triangle (stype -1).
  cholmod_sparse* a = cholmod_allocate_sparse(n, n, static_cast<std::size_t>(m.nel), 0, 1, -1, CHOLMOD_REAL, &c);
  auto* ap = static_cast<int*>(a->p);
  auto* ai = static_cast<int*>(a->i);
  auto* ax = static_cast<double*>(a->x);
  for (std::int32_t j = 1; j <= m.n + 1; ++j) ap[j - 1] = m.ia(j) - 1;
  for (std::int32_t k = 1; k <= m.nel; ++k) {
    ai[k - 1] = m.ja(k) - 1;
    ax[k - 1] = m.a(k);
  }
  std::vector<int> p0;
  if (perm) {
    p0.resize(n);
    for (std::size_t i = 0; i < n; ++i) p0[i] = (*perm)(static_cast<std::int64_t>(i) + 1) - 1;
    c.nmethods = 1;
    c.method[0].ordering = CHOLMOD_GIVEN;
    c.postorder = 0;
  }
  Phases p;
  const double t0 = wall_now();
  cholmod_factor* l = perm ? cholmod_analyze_p(a, p0.data(), nullptr, 0, &c) : cholmod_analyze(a, &c);
  const double t1 = wall_now();
  cholmod_factorize(a, l, &c);
  const double t2 = wall_now();
  cholmod_dense* b = cholmod_allocate_dense(n, 1, n, CHOLMOD_REAL, &c);
  for (std::size_t i = 0; i < n; ++i) static_cast<double*>(b->x)[i] = rhs(static_cast<std::int64_t>(i) + 1);
  const double t3 = wall_now();
  cholmod_dense* x = cholmod_solve(CHOLMOD_A, l, b, &c);
  const double t4 = wall_now();
  if (c.status != CHOLMOD_OK) std::printf("   cholmod status %d\n", c.status);
  // CHOLMOD's analysis does ordering and symbolic work in one call; its times of the ordering
  // alone are not exposed, so the analysis goes in `order` and symbolic stays 0.
  p.order = t1 - t0;
  p.numeric = t2 - t1;
  p.solve = t4 - t3;
  p.nnz_l = c.lnz;
  p.stored = static_cast<double>(l->xsize);
  p.peak_bytes = static_cast<double>(c.memory_usage);
  cholmod_free_dense(&x, &c);
  cholmod_free_dense(&b, &c);
  cholmod_free_factor(&l, &c);
  cholmod_free_sparse(&a, &c);
  cholmod_finish(&c);
  return p;
}

void print_row(const char* name, const Phases& p, const Phases& ref) {
  std::printf("   %-16s %9.3f %9.3f %9.3f %9.3f %9.3f %8.3f  %13.0f %13.0f %9.1f\n", name, p.order, p.symbolic,
              p.numeric, p.total(), p.solve, p.total() / ref.total(), p.nnz_l, p.stored, p.peak_bytes / 1048576.0);
}

void Pipeline(benchmark::State& state, long records, int threads) {
  mmekit::benchgen::Config cfg;
  cfg.seed = 2024;
  cfg.records = records;
  const auto data = mmekit::benchgen::generate(cfg);
  mmekit::sparse_ija full;
  Array1<double> rhs_full;
  mmekit::benchgen::Layout layout;
  {
    mmekit::CaptureOutput quiet;
    layout = mmekit::benchgen::build_mme_ija(data, {}, full, rhs_full);
  }
  const std::int32_t drop = layout.parity + data.n_parities - 1;
  const mmekit::sparse_ija m = without_equation(full, drop);
  Array1<double> rhs(m.n);
  for (std::int32_t i = 1, k = 1; i <= full.n; ++i)
    if (i != drop) rhs(k++) = rhs_full(i);
  openblas_set_num_threads(threads);

  Phases best[4];
  Array1<std::int32_t> perm;
  const int rounds = mmekit::benchcmp::rounds();
  const std::string load0 = mmekit::benchcmp::loadavg();
  for (auto _ : state) {
    for (int r = 0; r < rounds; ++r) {
      keep_best(best[0], run_skelda(m, rhs, false, &perm), r == 0);
      keep_best(best[1], run_skelda(m, rhs, true, nullptr), r == 0);
      keep_best(best[2], run_cholmod(m, rhs, &perm), r == 0);
      keep_best(best[3], run_cholmod(m, rhs, nullptr), r == 0);
    }
    state.SetIterationTime(best[0].total());
  }
  std::printf("\n== pipeline on the generator's MME: %d equations (one dependent equation dropped), %d stored "
              "entries, %d OpenBLAS thread(s), best of %d rounds; load %s at the start, %s at the end\n",
              m.n, m.nel, threads, rounds, load0.c_str(), mmekit::benchcmp::loadavg().c_str());
  std::printf("   %-16s %9s %9s %9s %9s %9s %8s  %13s %13s %9s\n", "side", "order s", "symbol s", "numeric s",
              "total s", "solve s", "/default", "nnz(L)", "stored", "peak MiB");
  const char* names[4] = {"skelda", "skelda relaxed", "cholmod given", "cholmod default"};
  for (int k = 0; k < 4; ++k) print_row(names[k], best[k], best[3]);
  std::printf("   numeric skelda / cholmod given: %.3f (relaxed %.3f); solve skelda / cholmod default: %.3f "
              "(relaxed %.3f); symbolic / numeric (relaxed): %.3f\n",
              best[0].numeric / best[2].numeric, best[1].numeric / best[2].numeric, best[0].solve / best[3].solve,
              best[1].solve / best[3].solve, best[1].symbolic / best[1].numeric);
  // The singular system as it comes from the generator, for the dependency check.
  const Phases sing = run_skelda(full, rhs_full, true, nullptr);
  std::printf("   skelda relaxed on the singular system (%d equations): order %.3f s, symbolic %.3f s, numeric "
              "%.3f s, solve %.3f s, rank %lld\n",
              full.n, sing.order, sing.symbolic, sing.numeric, sing.solve,
              static_cast<long long>(mmekit::skelda_state.iparm(mmekit::kRank)));
  std::fflush(stdout);
  state.counters["n"] = m.n;
  state.counters["numeric_ratio_given"] = best[1].numeric / best[2].numeric;
  state.counters["pipeline_ratio_default"] = best[1].total() / best[3].total();
  state.counters["solve_ratio"] = best[1].solve / best[3].solve;
}

}  // namespace

int main(int argc, char** argv) {
  for (long rec : mmekit::benchcmp::list_from_env("MMEKIT_PIPELINE_RECORDS", {385000, 1290000}))
    for (long th : mmekit::benchcmp::list_from_env("MMEKIT_PIPELINE_THREADS", {1, 2}))
      benchmark::RegisterBenchmark(("Pipeline/" + std::to_string(rec) + "/threads:" + std::to_string(th)).c_str(),
                                   [rec, th](benchmark::State& s) { Pipeline(s, rec, static_cast<int>(th)); })
          ->Unit(benchmark::kMillisecond)
          ->Iterations(1)
          ->UseManualTime();
  return mmekit::benchcmp::run_benchmarks(argc, argv);
}
