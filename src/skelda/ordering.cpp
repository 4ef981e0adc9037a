// The ordering step: graph of the pattern, the chosen method, and the postorder of the
// elimination tree composed into the permutation.
#include "mmekit/skelda/ordering.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "mmekit/skelda/amd.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/mmd.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/row_structure.hpp"

#ifdef MMEKIT_HAVE_METIS
#include <metis.h>
#endif

namespace mmekit {

namespace {

template <class I>
void identity(I n, Array1<I>& perm, Array1<I>& iperm) {
  if (perm.size() < n) perm.resize(n);
  if (iperm.size() < n) iperm.resize(n);
  for (I i = 1; i <= n; ++i) perm(i) = iperm(i) = i;
}

}  // namespace

bool skelda_have_metis() {
#ifdef MMEKIT_HAVE_METIS
  return true;
#else
  return false;
#endif
}

std::int64_t dense_row_threshold(std::int64_t n, double alpha) {
  const double t = alpha * std::sqrt(static_cast<double>(std::max<std::int64_t>(n, 0)));
  return std::max<std::int64_t>(16, static_cast<std::int64_t>(t));
}

void split_dense_rows(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                      std::int64_t threshold, DenseRowSplit& split) {
  // renum[i]: number of node i in the reduced graph, 0 for a dense row.
  std::vector<std::int32_t> renum(static_cast<std::size_t>(std::max(n, 0)) + 1, 0);
  std::int32_t kept = 0, dense = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    if (static_cast<std::int64_t>(xadj(i + 1)) - xadj(i) > threshold) ++dense;
    else renum[static_cast<std::size_t>(i)] = ++kept;
  }
  split.n = kept;
  split.node = Array1<std::int32_t>(kept, 0);
  split.dense = Array1<std::int32_t>(dense, 0);
  split.xadj = Array1<std::int32_t>(kept + 1, 0);
  std::int32_t d = 0;
  std::int64_t edges = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::int32_t r = renum[static_cast<std::size_t>(i)];
    if (r == 0) {
      split.dense(++d) = i;
      continue;
    }
    split.node(r) = i;
    for (std::int64_t k = xadj(i); k < xadj(i + 1); ++k) edges += renum[static_cast<std::size_t>(adj(k))] != 0;
  }
  split.adj = Array1<std::int32_t>(edges, 0);
  std::int64_t p = 1;
  for (std::int32_t r = 1; r <= kept; ++r) {
    split.xadj(r) = static_cast<std::int32_t>(p);
    const std::int32_t i = split.node(r);
    for (std::int64_t k = xadj(i); k < xadj(i + 1); ++k) {
      const std::int32_t j = renum[static_cast<std::size_t>(adj(k))];
      if (j != 0) split.adj(p++) = j;
    }
  }
  split.xadj(kept + 1) = static_cast<std::int32_t>(p);
}

void append_dense_rows(const DenseRowSplit& split, const Array1<std::int32_t>& rperm, Array1<std::int32_t>& perm,
                       Array1<std::int32_t>& iperm) {
  const std::int32_t kept = split.n, dense = static_cast<std::int32_t>(split.dense.size()), n = kept + dense;
  if (perm.size() < n) perm.resize(n);
  if (iperm.size() < n) iperm.resize(n);
  for (std::int32_t k = 1; k <= kept; ++k) perm(k) = split.node(rperm(k));
  for (std::int32_t k = 1; k <= dense; ++k) perm(kept + k) = split.dense(k);
  for (std::int32_t k = 1; k <= n; ++k) iperm(perm(k)) = k;
}

std::int32_t order_dense_rows_last(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                                   std::int64_t threshold, const GraphOrdering& order, Array1<std::int32_t>& perm,
                                   Array1<std::int32_t>& iperm) {
  DenseRowSplit split;
  split_dense_rows(n, xadj, adj, threshold, split);
  const std::int32_t dense = static_cast<std::int32_t>(split.dense.size());
  if (dense == 0) {
    split = DenseRowSplit{};
    Array1<std::int32_t> x(xadj), a(adj);
    order(n, x, a, perm, iperm);
    return 0;
  }
  Array1<std::int32_t> rperm, riperm;
  if (split.n > 0) order(split.n, split.xadj, split.adj, rperm, riperm);
  append_dense_rows(split, rperm, perm, iperm);
  return dense;
}

void skelda_mmd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                std::int32_t delta, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  if (perm.size() < n) perm.resize(n);
  if (iperm.size() < n) iperm.resize(n);
  if (n < 1) return;
  Array1<std::int32_t> x(xadj), a(adj);  // the kernel consumes its graph
  Array1<std::int32_t> head(n), qsize(n), list(n), marker(n);
  std::int32_t nofsub = 0;
  mmd_genmmd(n, x, a, iperm, perm, delta, head, qsize, list, marker,
             std::numeric_limits<std::int32_t>::max(), nofsub);
}

void skelda_mmd8(std::int64_t n, const Array1<std::int64_t>&, const Array1<std::int64_t>&, std::int64_t,
                 Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm) {
  out() << "ERROR: GENMMD8 is not implemented yet.\n";
  identity<std::int64_t>(n, perm, iperm);
}

void skelda_metis(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                  const Array1<std::int32_t>& options, Array1<std::int32_t>& perm,
                  Array1<std::int32_t>& iperm) {
#ifdef MMEKIT_HAVE_METIS
  if (perm.size() < n) perm.resize(n);
  if (iperm.size() < n) iperm.resize(n);
  if (n < 1) return;
  idx_t opts[METIS_NOPTIONS];
  METIS_SetDefaultOptions(opts);
  opts[METIS_OPTION_NUMBERING] = 1;
  auto word = [&](std::int64_t k) { return options.size() >= k ? options(k) : 0; };
  if (word(1) != 0) {
    opts[METIS_OPTION_DBGLVL] = word(5);
    if (word(7) > 0) opts[METIS_OPTION_PFACTOR] = word(7);
    if (word(8) > 0) opts[METIS_OPTION_NSEPS] = word(8);
  }
  idx_t nv = n;
  // METIS takes non-const pointers; it does not change the graph.
  std::vector<idx_t> x(xadj.begin(), xadj.begin() + n + 1);
  std::vector<idx_t> a(adj.begin(), adj.end());
  if (a.empty()) a.push_back(0);
  std::vector<idx_t> p(static_cast<std::size_t>(n)), ip(static_cast<std::size_t>(n));
  const int rc = METIS_NodeND(&nv, x.data(), a.data(), nullptr, opts, p.data(), ip.data());
  if (rc != METIS_OK) {
    identity<std::int32_t>(n, perm, iperm);
    return;
  }
  for (std::int32_t i = 1; i <= n; ++i) {
    perm(i) = p[static_cast<std::size_t>(i - 1)];
    iperm(i) = ip[static_cast<std::size_t>(i - 1)];
  }
#else
  (void)xadj;
  (void)adj;
  (void)options;
  out() << "Caution: You actually use a dummy subroutine for METIS_NodeND.\n";
  identity<std::int32_t>(n, perm, iperm);
#endif
}

void skelda_metis8(std::int64_t n, const Array1<std::int64_t>&, const Array1<std::int64_t>&,
                   const Array1<std::int64_t>&, Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm) {
  out() << "ERROR: METIS_NodeND8 is not implemented yet.\n";
  identity<std::int64_t>(n, perm, iperm);
}

void skelda_order(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                  std::int32_t ordering, std::int32_t& status, Array1<std::int32_t>* perm_in,
                  Array1<std::int32_t>* iperm_in, std::int32_t verbose) {
  SkeldaState& s = skelda_state;
  if (s.first_use) skelda_init();
  if (neq < 1) {
    status = kSkeldaAbnormalArgs;
    return;
  }
  if (s.stage() > 10) {
    status = kSkeldaInvalidStep;
    return;
  }
  // A pattern that does not fit its arrays, or names a column outside 1..neq, is an abnormal
  // argument.
  if (check_row_structure(neq, span_of(ia), span_of(ja))) {
    status = kSkeldaAbnormalArgs;
    return;
  }
  if (ordering == 9) {
    // The caller's permutation must be one.
    if (!perm_in || perm_in->size() < neq) {
      status = kSkeldaAbnormalArgs;
      return;
    }
    std::vector<char> seen(static_cast<std::size_t>(neq) + 1, 0);
    for (std::int32_t k = 1; k <= neq; ++k) {
      const std::int32_t v = (*perm_in)(k);
      if (v < 1 || v > neq || seen[v]) {
        status = kSkeldaAbnormalArgs;
        return;
      }
      seen[v] = 1;
    }
  }
  Stopwatch clock;
  const bool loud = (verbose < 0 ? -static_cast<std::int64_t>(verbose) : verbose) > 2;
  try {
    status = kSkeldaNoPermMemory;
    s.perm.emplace(neq, 0);
    s.iperm.emplace(neq, 0);
    status = kSkeldaNoTempMemory;
    Array1<std::int32_t> xadj, adj;
    full_graph(neq, ia, ja, xadj, adj);
    Array1<std::int32_t>& perm = *s.perm;
    Array1<std::int32_t>& iperm = *s.iperm;
    std::int64_t used = ordering;
    const char* name = ordering == 0 ? "METIS" : ordering == 2 ? "QAMD" : ordering == 3 ? "AMF" : ordering == 4 ? "MMD" : "AMD";
    if (ordering != 0 && ordering != 2 && ordering != 3 && ordering != 4 && ordering != 8 && ordering != 9) used = 1;
    // The chosen method on a graph: the whole one, or the one without its dense rows.
    const GraphOrdering method = [&](std::int32_t n, Array1<std::int32_t>& x, Array1<std::int32_t>& a,
                                     Array1<std::int32_t>& p, Array1<std::int32_t>& ip) {
      switch (ordering) {
        case 0: {
          Array1<std::int32_t> opts(8);
          for (int k = 0; k < 8; ++k) opts(k + 1) = static_cast<std::int32_t>(s.iparm(30 + k));
          skelda_metis(n, x, a, opts, p, ip);
          break;
        }
        case 2:
          if (n == neq) {
            skelda_qamd(n, x, a, p, ip);
          } else {
            // The graph without the dense rows: the quasi-dense rule keeps the threshold of
            // the whole matrix. On the reduced graph alone its longest row is small, the
            // threshold falls to a few times the mean, and rows of moderate length would be
            // postponed unordered (+74 % fill on the 300,000-equation MME).
            std::int64_t lenmax = 0;
            for (std::int32_t i = 1; i <= neq; ++i) lenmax = std::max<std::int64_t>(lenmax, xadj(i + 1) - xadj(i));
            skelda_qamd(n, x, a, qamd_dense_threshold(neq, lenmax, static_cast<std::int64_t>(xadj(neq + 1)) - 1), p, ip);
          }
          break;
        case 3:
          skelda_amf(n, x, a, p, ip);
          break;
        case 4: {
          const std::int32_t delta = static_cast<std::int32_t>(
              std::clamp<std::int64_t>(s.iparm(kMmdDelta), std::numeric_limits<std::int32_t>::min(),
                                       std::numeric_limits<std::int32_t>::max()));
          skelda_mmd(n, x, a, delta, p, ip);
          break;
        }
        default:
          skelda_amd(n, x, a, p, ip);
          break;
      }
    };
    if (ordering == 8) {
      if (loud) out() << "   Ordering = natural\n";
      identity<std::int32_t>(neq, perm, iperm);
    } else if (ordering == 9) {
      if (loud) out() << "   Ordering = user\n";
      for (std::int32_t k = 1; k <= neq; ++k) perm(k) = (*perm_in)(k);
      for (std::int32_t k = 1; k <= neq; ++k) iperm(perm(k)) = k;
    } else if (s.switches.dense_rows_last) {
      if (loud) out() << "   Ordering = " << name << "\n";
      // MMD's exact degrees make it slow next to rows of a few hundred entries: it sets aside
      // more of them (see kDenseRowAlphaMmd).
      order_dense_rows_last(neq, xadj, adj,
                            dense_row_threshold(neq, ordering == 4 ? kDenseRowAlphaMmd : kDenseRowAlpha),
                            method, perm, iperm);
    } else {
      if (loud) out() << "   Ordering = " << name << "\n";
      method(neq, xadj, adj, perm, iperm);
    }
    // Postorder of the elimination tree of the permuted pattern.
    Array1<std::int32_t> pxadj, padj, parent, post;
    permuted_graph(neq, ia, ja, iperm, pxadj, padj);
    elimination_tree(neq, pxadj, padj, parent);
    tree_postorder(neq, parent, post);
    compose_postorder(neq, parent, post, perm, iperm);
    if (perm_in) {
      if (perm_in->size() < neq) perm_in->resize(neq);
      for (std::int32_t k = 1; k <= neq; ++k) (*perm_in)(k) = perm(k);
    }
    if (iperm_in) {
      if (iperm_in->size() < neq) iperm_in->resize(neq);
      for (std::int32_t k = 1; k <= neq; ++k) (*iperm_in)(k) = iperm(k);
    }
    s.iparm(kN) = neq;
    s.iparm(kNnz) = static_cast<std::int64_t>(ia(neq + 1)) - 1;
    s.stage() = 10;
    s.iparm(kOrderingUsed) = used;
    s.rparm(51) = clock.cpu();
    s.rparm(52) = clock.wall();
    status = kSkeldaOk;
  } catch (const std::bad_alloc&) {
    // status holds the stage of the failed allocation
  }
}

}  // namespace mmekit
