// Fill (entries of L) and ordering time of every ordering of the supernodal solver, with
// SuiteSparse AMD and METIS called directly as peers in the same run.
//
// Patterns: the mixed-model equations of an animal model (~300,000 equations), a 500 x 500
// 2-D grid and a 60 x 60 x 60 3-D grid. Each benchmark reports the time of one ordering and
// the counter nnzL (computed outside the timed region from the permutation it produced).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mmekit/skelda/amd.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "skelda/bench_patterns.hpp"
#include "mmekit/support/output.hpp"

#ifdef SKELDA_BENCH_HAVE_AMD
#include <amd.h>
#endif
#ifdef MMEKIT_BENCH_HAVE_METIS
#include <metis.h>
#endif

using skelda_bench::Graph;

namespace {

const Graph& pattern(const std::string& name) {
  static std::map<std::string, std::unique_ptr<Graph>> cache;
  auto it = cache.find(name);
  if (it != cache.end()) return *it->second;
  std::unique_ptr<Graph> g;
  if (name == "mme") g = std::make_unique<Graph>(skelda_bench::animal_mme(298000, 2000, 12345u));
  else if (name == "grid2d") g = std::make_unique<Graph>(skelda_bench::grid2d(500));
  else g = std::make_unique<Graph>(skelda_bench::grid3d(60));
  return *cache.emplace(name, std::move(g)).first->second;
}

using Orderer = std::function<void(const Graph&, std::vector<std::int32_t>&)>;

void to_vector(const mmekit::Array1<std::int32_t>& perm, std::vector<std::int32_t>& out) {
  out.assign(perm.begin(), perm.end());
}

void ours(const Graph& g, std::vector<std::int32_t>& out, int method) {
  mmekit::Array1<std::int32_t> perm, iperm;
  switch (method) {
    case 1: mmekit::skelda_amd(g.n, g.xadj, g.adj, perm, iperm); break;
    case 2: mmekit::skelda_qamd(g.n, g.xadj, g.adj, perm, iperm); break;
    case 3: mmekit::skelda_amf(g.n, g.xadj, g.adj, perm, iperm); break;
    case 4: mmekit::skelda_mmd(g.n, g.xadj, g.adj, 0, perm, iperm); break;
    case 0: mmekit::skelda_metis(g.n, g.xadj, g.adj, mmekit::Array1<std::int32_t>(8, 0), perm, iperm); break;
  }
  to_vector(perm, out);
}

// The whole ordering step of the solver (graph from ia/ja, method, postorder).
void ours_step(const Graph& g, std::vector<std::int32_t>& out, int method) {
  mmekit::skelda_init();
  std::int32_t st = 0;
  mmekit::skelda_order(g.n, g.ia, g.ja, method, st, nullptr, nullptr, 0);
  to_vector(*mmekit::skelda_state.perm, out);
}

#ifdef SKELDA_BENCH_HAVE_AMD
void suitesparse_amd(const Graph& g, std::vector<std::int32_t>& out) {
  std::vector<std::int32_t> ap(g.n + 1), ai(std::max<std::int64_t>(g.xadj(g.n + 1) - 1, 1));
  for (std::int32_t i = 0; i <= g.n; ++i) ap[i] = g.xadj(i + 1) - 1;
  for (std::int64_t k = 0; k + 1 < g.xadj(g.n + 1); ++k) ai[k] = g.adj(k + 1) - 1;
  std::vector<std::int32_t> p(g.n);
  double control[AMD_CONTROL], info[AMD_INFO];
  amd_defaults(control);
  amd_order(g.n, ap.data(), ai.data(), p.data(), control, info);
  out.resize(g.n);
  for (std::int32_t k = 0; k < g.n; ++k) out[k] = p[k] + 1;
}
#endif

#ifdef MMEKIT_BENCH_HAVE_METIS
void metis_direct(const Graph& g, std::vector<std::int32_t>& out) {
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

void run(benchmark::State& state, const std::string& name, const Orderer& orderer) {
  const Graph& g = pattern(name);
  std::vector<std::int32_t> perm;
  for (auto _ : state) {
    orderer(g, perm);
    benchmark::DoNotOptimize(perm.data());
  }
  state.counters["n"] = g.n;
  state.counters["nnzA"] = static_cast<double>(g.ia(g.n + 1) - 1);
  state.counters["nnzL"] = static_cast<double>(skelda_bench::fill(g, perm));
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::pair<std::string, Orderer>> methods = {
      {"skelda_AMD", [](const Graph& g, auto& o) { ours(g, o, 1); }},
      {"skelda_QAMD", [](const Graph& g, auto& o) { ours(g, o, 2); }},
      {"skelda_AMF", [](const Graph& g, auto& o) { ours(g, o, 3); }},
      {"skelda_MMD", [](const Graph& g, auto& o) { ours(g, o, 4); }},
      {"skelda_step_AMD", [](const Graph& g, auto& o) { ours_step(g, o, 1); }},
  };
  if (mmekit::skelda_have_metis()) {
    methods.push_back({"skelda_METIS", [](const Graph& g, auto& o) { ours(g, o, 0); }});
    methods.push_back({"skelda_step_METIS", [](const Graph& g, auto& o) { ours_step(g, o, 0); }});
  }
#ifdef SKELDA_BENCH_HAVE_AMD
  methods.push_back({"peer_SuiteSparse_AMD", suitesparse_amd});
#endif
#ifdef MMEKIT_BENCH_HAVE_METIS
  methods.push_back({"peer_METIS_NodeND", metis_direct});
#endif
  for (const char* pat : {"mme", "grid2d", "grid3d"})
    for (auto& [mname, fn] : methods) {
      std::string p = pat;
      Orderer f = fn;
      benchmark::RegisterBenchmark((p + "/" + mname).c_str(),
                                   [p, f](benchmark::State& s) { run(s, p, f); })
          ->Unit(benchmark::kMillisecond)
          ->Iterations(3)
          ->UseRealTime();
    }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
