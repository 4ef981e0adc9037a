// Symbolic and numeric factorisation of the supernodal solver on the generator's animal-model
// MME (about 300,000 equations; 1,000,000 on request): the task steps as a program calls them,
// and the multifrontal kernel on the same structure. The ordering runs once, outside the
// timing. Single-threaded BLAS is what the comparison with other solvers assumes: run with
// OPENBLAS_NUM_THREADS=1.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "generator/generator.hpp"
#include "mmekit/skelda/multifrontal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"

namespace {

// Records of the generator for about 300,000 and 1,000,000 equations (seed 2024).
constexpr std::int64_t kRecords300k = 385000;
constexpr std::int64_t kRecords1m = 1290000;

const mmekit::sparse_ija& mme(std::int64_t records) {
  static std::map<std::int64_t, std::unique_ptr<mmekit::sparse_ija>> cache;
  auto it = cache.find(records);
  if (it != cache.end()) return *it->second;
  mmekit::benchgen::Config cfg;
  cfg.seed = 2024;
  cfg.records = records;
  const mmekit::benchgen::Dataset data = mmekit::benchgen::generate(cfg);
  auto ija = std::make_unique<mmekit::sparse_ija>();
  mmekit::Array1<double> rhs;
  {
    mmekit::CaptureOutput quiet;  // the growth lines of the hash matrix
    mmekit::sparse_hashm h;
    mmekit::benchgen::build_mme(data, {}, h, rhs);
    mmekit::CONVERT_HASH_IJA(*ija, h);
  }
  return *cache.emplace(records, std::move(ija)).first->second;
}

struct Task {
  std::int32_t n = 0, status = 0, rank = 0;
  mmekit::sparse_ija* m = nullptr;
  mmekit::SkeldaArgs args() {
    return {.neq = &n, .ia = &m->ia, .ja = &m->ja, .a = &m->a, .ival = &rank, .status = &status};
  }
};

// An ordered state. The ordering of each matrix is computed once and handed in again as the
// caller's permutation (task 11) for the later benchmarks.
Task ordered(std::int64_t records) {
  static std::map<std::int64_t, std::pair<mmekit::Array1<std::int32_t>, mmekit::Array1<std::int32_t>>> perms;
  Task t;
  t.m = const_cast<mmekit::sparse_ija*>(&mme(records));
  t.n = t.m->n;
  mmekit::skeldatask(0);
  // AMD (the default method) with the dense rows of the MME set aside and numbered last.
  mmekit::skelda_state.switches.dense_rows_last = true;
  auto it = perms.find(records);
  if (it == perms.end()) {
    mmekit::skeldatask(10, t.args());
    perms[records] = {*mmekit::skelda_state.perm, *mmekit::skelda_state.iperm};
  } else {
    mmekit::SkeldaArgs a = t.args();
    a.perm = &it->second.first;
    a.iperm = &it->second.second;
    mmekit::skeldatask(11, a);
  }
  return t;
}

void counters(benchmark::State& state, const Task& t) {
  const mmekit::SkeldaState& s = mmekit::skelda_state;
  state.counters["n"] = t.n;
  state.counters["nsn"] = static_cast<double>(s.iparm(mmekit::kNsn));
  state.counters["lx_size"] = static_cast<double>(s.iparm(mmekit::kLnzAllocated));
  state.counters["rank"] = t.rank;
}

// Task 20 on an ordered state.
void BM_Symbolic(benchmark::State& state) {
  Task t = ordered(state.range(0));
  for (auto _ : state) {
    mmekit::skeldatask(20, t.args());
    if (t.status != 0) state.SkipWithError("symbolic factorisation failed");
  }
  counters(state, t);
}

// Task 40: clear, load, simulation, left-looking factorisation with dependent-column detection,
// LDL conversion.
void BM_NumericLeftLooking(benchmark::State& state) {
  Task t = ordered(state.range(0));
  mmekit::skeldatask(20, t.args());
  for (auto _ : state) {
    mmekit::skeldatask(40, t.args());
    if (t.status != 0) state.SkipWithError("numerical factorisation failed");
  }
  counters(state, t);
}

// The multifrontal kernel on the same structure: load and factorisation with the same options.
void BM_NumericMultifrontal(benchmark::State& state) {
  Task t = ordered(state.range(0));
  mmekit::skeldatask(20, t.args());
  mmekit::SkeldaState& s = mmekit::skelda_state;
  const mmekit::Sx2Layout l = mmekit::skelda_layout();
  mmekit::MfOptions opt;
  opt.kachman = true;
  opt.ldl = true;
  opt.tol_abs = s.rparm(11);
  opt.tol_rel = s.rparm(10);
  opt.variant = static_cast<int>(state.range(1));
  std::int64_t rank = 0;
  for (auto _ : state) {
    s.cflag->fill(0);
    if (mmekit::load_matrix(t.n, t.m->ia, t.m->ja, t.m->a, *s.iperm, l, *s.lnz, *s.cflag) != 0 ||
        mmekit::supernodal_sx2_mf_omp_v1(l, *s.snparent, *s.lnz, *s.cflag, opt, mmekit::default_skelda_blas(), rank,
                                         0) != 0)
      state.SkipWithError("multifrontal factorisation failed");
  }
  t.rank = static_cast<std::int32_t>(rank);
  counters(state, t);
}

BENCHMARK(BM_Symbolic)->Arg(kRecords300k)->Arg(kRecords1m)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_NumericLeftLooking)->Arg(kRecords300k)->Arg(kRecords1m)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_NumericMultifrontal)
    ->Args({kRecords300k, 1})
    ->Args({kRecords300k, 2})
    ->Args({kRecords1m, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
