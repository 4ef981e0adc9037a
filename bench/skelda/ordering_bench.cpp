// Fill (entries of L) and ordering time of every ordering of the supernodal solver, with
// SuiteSparse AMD (default controls, and with its dense-row rule off) and METIS called directly
// as peers, all in one interleaved run per pattern: round by round every method orders the same
// graph once (common/interleave.hpp), and the best time of each is kept. The fill is counted
// outside the timed region from the permutation each method returned, by the same counter for
// every method.
//
// Patterns: the mixed-model equations of the shared data generator (animal model with
// herd-years, parities, an age covariate, animals and permanent environment) at about 50,000,
// 300,000 and 1,000,000 equations; a 500 x 500 2-D grid and a 60 x 60 x 60 3-D grid.
//
// Methods: our kernels as the solver calls them (AMD and MMD compared with SuiteSparse AMD with
// its dense-row rule off, since they treat no row as dense; QAMD with the default peer), the
// whole ordering step, the sparse Cholesky package's minimum-degree ordering, and the same with
// the dense-row switch on ("dense last", compared with SuiteSparse AMD at its defaults).
//
// Rounds: MMEKIT_BENCH_ROUNDS (at least and by default 3). A method whose first round takes
// longer than MMEKIT_BENCH_SLOW_SECONDS (default 180) is run once. MMEKIT_BENCH_METHODS
// chooses the methods (see methods()); MMEKIT_BENCH_ALPHAS adds AMD and MMD with the dense-row
// rule at other alphas.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/interleave.hpp"
#include "generator/generator.hpp"
#include "mmekit/skelda/amd.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/output.hpp"
#include "skelda/bench_patterns.hpp"

#ifdef SKELDA_BENCH_HAVE_AMD
#include <amd.h>
#endif
#ifdef MMEKIT_BENCH_HAVE_METIS
#include <metis.h>
#endif

using skelda_bench::Graph;

namespace {

// Records of the generator for about 50,000 and 300,000 equations (seed 2024).
constexpr std::int64_t kRecordsSmall = 64000;
constexpr std::int64_t kRecordsLarge = 385000;
constexpr std::int64_t kRecordsHuge = 1275000;  // about 1,000,000 equations

Graph generated_mme(std::int64_t records) {
  mmekit::benchgen::Config cfg;
  cfg.seed = 2024;
  cfg.records = records;
  const mmekit::benchgen::Dataset data = mmekit::benchgen::generate(cfg);
  mmekit::sparse_hashm h;
  mmekit::Array1<double> rhs;
  mmekit::sparse_ija ija;
  {
    mmekit::CaptureOutput quiet;  // the growth lines of the hash matrix
    mmekit::benchgen::build_mme(data, {}, h, rhs);
    mmekit::CONVERT_HASH_IJA(ija, h);
  }
  return skelda_bench::from_ija(ija);
}

const Graph& pattern(const std::string& name) {
  static std::map<std::string, std::unique_ptr<Graph>> cache;
  auto it = cache.find(name);
  if (it != cache.end()) return *it->second;
  std::unique_ptr<Graph> g;
  if (name == "mme50k") g = std::make_unique<Graph>(generated_mme(kRecordsSmall));
  else if (name == "mme300k") g = std::make_unique<Graph>(generated_mme(kRecordsLarge));
  else if (name == "mme1m") g = std::make_unique<Graph>(generated_mme(kRecordsHuge));
  else if (name == "grid2d") g = std::make_unique<Graph>(skelda_bench::grid2d(500));
  else g = std::make_unique<Graph>(skelda_bench::grid3d(60));
  return *cache.emplace(name, std::move(g)).first->second;
}

using Perm = std::vector<std::int32_t>;

void to_vector(const mmekit::Array1<std::int32_t>& perm, Perm& out) { out.assign(perm.begin(), perm.end()); }

void kernel(int method, std::int32_t n, const mmekit::Array1<std::int32_t>& xadj, const mmekit::Array1<std::int32_t>& adj,
            mmekit::Array1<std::int32_t>& perm, mmekit::Array1<std::int32_t>& iperm) {
  switch (method) {
    case 1: mmekit::skelda_amd(n, xadj, adj, perm, iperm); break;
    case 2: mmekit::skelda_qamd(n, xadj, adj, perm, iperm); break;
    case 3: mmekit::skelda_amf(n, xadj, adj, perm, iperm); break;
    case 4: mmekit::skelda_mmd(n, xadj, adj, 0, perm, iperm); break;
    case 0: mmekit::skelda_metis(n, xadj, adj, mmekit::Array1<std::int32_t>(8, 0), perm, iperm); break;
  }
}

// Our kernel on the whole graph, or (alpha > 0) on the graph without the rows of degree above
// dense_row_threshold(n, alpha), those numbered last.
void ours(const Graph& g, Perm& out, int method, double alpha = 0) {
  mmekit::Array1<std::int32_t> perm, iperm;
  if (alpha > 0)
    mmekit::order_dense_rows_last(
        g.n, g.xadj, g.adj, mmekit::dense_row_threshold(g.n, alpha),
        [method, &g](std::int32_t n, mmekit::Array1<std::int32_t>& x, mmekit::Array1<std::int32_t>& a,
                     mmekit::Array1<std::int32_t>& p, mmekit::Array1<std::int32_t>& ip) {
          if (method == 2 && n < g.n) {  // as the ordering step does: the whole matrix's threshold
            std::int64_t lenmax = 0;
            for (std::int32_t i = 1; i <= g.n; ++i) lenmax = std::max<std::int64_t>(lenmax, g.xadj(i + 1) - g.xadj(i));
            mmekit::skelda_qamd(n, x, a, mmekit::qamd_dense_threshold(g.n, lenmax, g.xadj(g.n + 1) - 1), p, ip);
          } else {
            kernel(method, n, x, a, p, ip);
          }
        },
        perm, iperm);
  else
    kernel(method, g.n, g.xadj, g.adj, perm, iperm);
  to_vector(perm, out);
}

// The minimum-degree ordering of the sparse Cholesky package (its option 10) with the dense-row
// switch as given.
void torvex_order(const Graph& g, Perm& out, bool dense_last) {
  std::vector<std::int32_t> is(2 * static_cast<std::size_t>(g.n) + 4096), perm(static_cast<std::size_t>(g.n));
  mmekit::TorvexKernelArgs args;
  args.is = is.data();
  args.size = static_cast<std::int64_t>(is.size());
  args.dense_rows_last = dense_last;
  std::int32_t flag = 0;
  mmekit::torvex_kernel(10, g.n, g.ia.data(), g.ja.data(), nullptr, perm.data(), nullptr, flag, args);
  if (flag != 0) std::fprintf(stderr, "TORVEX ordering: flag %d\n", flag);
  out = perm;
}

// The whole ordering step of the solver (graph from ia/ja, method, postorder).
void ours_step(const Graph& g, Perm& out, int method, bool dense_last = false) {
  mmekit::skelda_init();
  mmekit::skelda_state.switches.dense_rows_last = dense_last;
  std::int32_t st = 0;
  mmekit::skelda_order(g.n, g.ia, g.ja, method, st, nullptr, nullptr, 0);
  to_vector(*mmekit::skelda_state.perm, out);
  mmekit::skelda_state.switches.dense_rows_last = false;
}

#ifdef SKELDA_BENCH_HAVE_AMD
// dense: the control word of the dense-row rule (negative: no row is dense, as in our AMD).
void suitesparse_amd(const Graph& g, Perm& out, double dense = -2) {
  std::vector<std::int32_t> ap(g.n + 1), ai(std::max<std::int64_t>(g.xadj(g.n + 1) - 1, 1));
  for (std::int32_t i = 0; i <= g.n; ++i) ap[i] = g.xadj(i + 1) - 1;
  for (std::int64_t k = 0; k + 1 < g.xadj(g.n + 1); ++k) ai[k] = g.adj(k + 1) - 1;
  std::vector<std::int32_t> p(g.n);
  double control[AMD_CONTROL], info[AMD_INFO];
  amd_defaults(control);
  if (dense != -2) control[AMD_DENSE] = dense;
  amd_order(g.n, ap.data(), ai.data(), p.data(), control, info);
  out.resize(g.n);
  for (std::int32_t k = 0; k < g.n; ++k) out[k] = p[k] + 1;
}
#endif

#ifdef MMEKIT_BENCH_HAVE_METIS
void metis_direct(const Graph& g, Perm& out) {
  std::vector<idx_t> x(g.n + 1), a(std::max<std::int64_t>(g.xadj(g.n + 1) - 1, 1));
  for (std::int32_t i = 0; i <= g.n; ++i) x[i] = g.xadj(i + 1) - 1;
  for (std::int64_t k = 0; k + 1 < g.xadj(g.n + 1); ++k) a[k] = g.adj(k + 1) - 1;
  idx_t n = g.n, opts[METIS_NOPTIONS];
  METIS_SetDefaultOptions(opts);
  std::vector<idx_t> p(g.n), ip(g.n);
  METIS_NodeND(&n, x.data(), a.data(), nullptr, opts, p.data(), ip.data());
  out.resize(g.n);
  for (std::int32_t k = 0; k < g.n; ++k) out[k] = static_cast<std::int32_t>(p[k]) + 1;
}
#endif

struct Method {
  std::string name;
  std::function<void(const Graph&, Perm&)> order;
  std::string peer;  // the method it is compared with ("" for none)
};

// Peers first, each of our methods after the peer it is compared with.
std::vector<Method> methods() {
  std::vector<Method> m;
#ifdef SKELDA_BENCH_HAVE_AMD
  const std::string amd_peer = "SuiteSparse AMD";
  const std::string amd_nodense = "SuiteSparse AMD dense off";
  m.push_back({amd_peer, [](const Graph& g, Perm& o) { suitesparse_amd(g, o); }, ""});
  m.push_back({amd_nodense, [](const Graph& g, Perm& o) { suitesparse_amd(g, o, -1); }, ""});
#else
  const std::string amd_peer = "";
  const std::string amd_nodense = "";
#endif
  m.push_back({"skelda AMD", [](const Graph& g, Perm& o) { ours(g, o, 1); }, amd_nodense});
#ifdef MMEKIT_BENCH_HAVE_METIS
  const std::string metis_peer = "METIS_NodeND";
  m.push_back({metis_peer, metis_direct, ""});
#else
  const std::string metis_peer = "";
#endif
  if (mmekit::skelda_have_metis()) m.push_back({"skelda METIS", [](const Graph& g, Perm& o) { ours(g, o, 0); }, metis_peer});
  m.push_back({"skelda QAMD", [](const Graph& g, Perm& o) { ours(g, o, 2); }, amd_peer});
  m.push_back({"skelda AMF", [](const Graph& g, Perm& o) { ours(g, o, 3); }, amd_nodense});
  m.push_back({"skelda MMD", [](const Graph& g, Perm& o) { ours(g, o, 4); }, amd_nodense});
  m.push_back({"skelda step AMD", [](const Graph& g, Perm& o) { ours_step(g, o, 1); }, amd_nodense});
  m.push_back({"TORVEX MMD", [](const Graph& g, Perm& o) { torvex_order(g, o, false); }, amd_nodense});
  // The dense-row switch on: the same methods without the dense rows, compared with
  // SuiteSparse AMD at its default settings.
  const double a = mmekit::kDenseRowAlpha;
  m.push_back({"skelda AMD dense last", [a](const Graph& g, Perm& o) { ours(g, o, 1, a); }, amd_peer});
  if (mmekit::skelda_have_metis())
    m.push_back({"skelda METIS dense last", [a](const Graph& g, Perm& o) { ours(g, o, 0, a); }, metis_peer});
  m.push_back({"skelda QAMD dense last", [a](const Graph& g, Perm& o) { ours(g, o, 2, a); }, amd_peer});
  m.push_back({"skelda AMF dense last", [a](const Graph& g, Perm& o) { ours(g, o, 3, a); }, amd_peer});
  // MMD sets aside more rows (its own alpha, as the ordering step and TORVEX do).
  const double a_mmd = mmekit::kDenseRowAlphaMmd;
  m.push_back({"skelda MMD dense last", [a_mmd](const Graph& g, Perm& o) { ours(g, o, 4, a_mmd); }, amd_peer});
  m.push_back({"skelda step AMD dense last", [](const Graph& g, Perm& o) { ours_step(g, o, 1, true); }, amd_peer});
  m.push_back({"skelda step MMD dense last", [](const Graph& g, Perm& o) { ours_step(g, o, 4, true); }, amd_peer});
  m.push_back({"TORVEX MMD dense last", [](const Graph& g, Perm& o) { torvex_order(g, o, true); }, amd_peer});
  // MMEKIT_BENCH_ALPHAS (e.g. "2,5,10,20,40"): our AMD and MMD with the dense-row rule at each
  // of these alphas, for the choice of the default.
  if (const char* e = std::getenv("MMEKIT_BENCH_ALPHAS")) {
    std::string list = e;
    for (std::size_t p = 0; p < list.size();) {
      std::size_t q = list.find(',', p);
      if (q == std::string::npos) q = list.size();
      const std::string t = list.substr(p, q - p);
      const double al = std::atof(t.c_str());
      m.push_back({"skelda AMD alpha " + t, [al](const Graph& g, Perm& o) { ours(g, o, 1, al); }, amd_peer});
      m.push_back({"skelda MMD alpha " + t, [al](const Graph& g, Perm& o) { ours(g, o, 4, al); }, amd_peer});
      p = q + 1;
    }
  }
  if (mmekit::skelda_have_metis())
    m.push_back({"skelda step METIS", [](const Graph& g, Perm& o) { ours_step(g, o, 0); }, metis_peer});
  // MMEKIT_BENCH_METHODS: a comma-separated list of the methods to run (all by default); a
  // method's peer is run with it.
  if (const char* e = std::getenv("MMEKIT_BENCH_METHODS")) {
    const std::string list = "," + std::string(e) + ",";
    auto wanted = [&](const std::string& name) { return list.find("," + name + ",") != std::string::npos; };
    std::vector<Method> kept;
    for (const Method& x : m) {
      bool keep = wanted(x.name);
      for (const Method& y : m) keep = keep || (y.peer == x.name && wanted(y.name));
      if (keep) kept.push_back(x);
    }
    m = kept;
  }
  return m;
}

double slow_seconds() {
  if (const char* e = std::getenv("MMEKIT_BENCH_SLOW_SECONDS")) return std::atof(e);
  return 180.0;
}

void Orderings(benchmark::State& state, const std::string& name) {
  const Graph& g = pattern(name);
  // Rows of the full symmetric matrix (diagonal included) with more than 1,000 entries.
  std::int64_t dense_rows = 0, longest = 0;
  for (std::int32_t i = 1; i <= g.n; ++i) {
    const std::int64_t len = g.xadj(i + 1) - g.xadj(i) + 1;
    dense_rows += len > 1000;
    longest = std::max(longest, len);
  }
  const std::vector<Method> ms = methods();
  std::vector<Perm> perms(ms.size());
  std::vector<mmekit::benchcmp::Side> sides;
  for (std::size_t k = 0; k < ms.size(); ++k)
    sides.push_back({ms[k].name, [&g, &ms, &perms, k] { ms[k].order(g, perms[k]); }});
  char title[256];
  std::snprintf(title, sizeof title,
                "orderings of %s: %d equations, %lld stored entries (upper triangle), %lld rows above 1,000 "
                "entries, longest row %lld",
                name.c_str(), g.n, static_cast<long long>(g.ia(g.n + 1) - 1), static_cast<long long>(dense_rows),
                static_cast<long long>(longest));
  mmekit::benchcmp::Comparison c;
  for (auto _ : state) {
    c = mmekit::benchcmp::interleave(title, sides, mmekit::benchcmp::rounds(), slow_seconds());
    state.SetIterationTime(c.times[0].best_wall());
  }
  std::vector<std::pair<int, int>> ratios;
  std::map<std::string, int> index;
  for (std::size_t k = 0; k < ms.size(); ++k) index[ms[k].name] = static_cast<int>(k);
  for (std::size_t k = 0; k < ms.size(); ++k)
    if (!ms[k].peer.empty()) ratios.push_back({static_cast<int>(k), index[ms[k].peer]});
  mmekit::benchcmp::print(c, ratios);

  std::vector<std::int64_t> fill(ms.size());
  for (std::size_t k = 0; k < ms.size(); ++k) fill[k] = skelda_bench::fill(g, perms[k]);
  std::printf("   %-18s %14s %12s %12s %10s\n", "method", "nnz(L)", "best CPU s", "best wall s", "ratio CPU");
  for (std::size_t k = 0; k < ms.size(); ++k) {
    std::printf("   %-18s %14lld %12.4g %12.4g", ms[k].name.c_str(), static_cast<long long>(fill[k]),
                c.times[k].best_cpu(), c.times[k].best_wall());
    if (!ms[k].peer.empty()) {
      const int p = index[ms[k].peer];
      std::printf(" %10.3f   fill %+.4f %% against %s", c.ratio_cpu(static_cast<int>(k), p),
                  100.0 * (static_cast<double>(fill[k]) / static_cast<double>(fill[static_cast<std::size_t>(p)]) - 1.0),
                  ms[k].peer.c_str());
    }
    std::printf("\n");
  }
  std::fflush(stdout);
  state.counters["n"] = g.n;
  state.counters["rows_above_1000"] = static_cast<double>(dense_rows);
  if (ms.size() > 1 && !ms[1].peer.empty()) {
    mmekit::benchcmp::report(state, c, 1, index[ms[1].peer]);
    state.counters["fill_ratio"] = static_cast<double>(fill[1]) / static_cast<double>(fill[static_cast<std::size_t>(index[ms[1].peer])]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const char* pat : {"mme50k", "grid2d", "grid3d", "mme300k", "mme1m"}) {
    const std::string p = pat;
    benchmark::RegisterBenchmark(("Orderings/" + p).c_str(), [p](benchmark::State& s) { Orderings(s, p); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1)
        ->UseManualTime();
  }
  return mmekit::benchcmp::run_benchmarks(argc, argv);
}
