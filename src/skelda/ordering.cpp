// The ordering step: graph of the pattern, the chosen method, and the postorder of the
// elimination tree composed into the permutation.
#include "mmekit/skelda/ordering.hpp"

#include <algorithm>
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
    switch (ordering) {
      case 0: {
        if (loud) out() << "   Ordering = METIS\n";
        Array1<std::int32_t> opts(8);
        for (int k = 0; k < 8; ++k) opts(k + 1) = static_cast<std::int32_t>(s.iparm(30 + k));
        skelda_metis(neq, xadj, adj, opts, perm, iperm);
        break;
      }
      case 2:
        if (loud) out() << "   Ordering = QAMD\n";
        skelda_qamd(neq, xadj, adj, perm, iperm);
        break;
      case 3:
        if (loud) out() << "   Ordering = AMF\n";
        skelda_amf(neq, xadj, adj, perm, iperm);
        break;
      case 4: {
        if (loud) out() << "   Ordering = MMD\n";
        const std::int32_t delta = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(s.iparm(kMmdDelta), std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max()));
        skelda_mmd(neq, xadj, adj, delta, perm, iperm);
        break;
      }
      case 8:
        if (loud) out() << "   Ordering = natural\n";
        identity<std::int32_t>(neq, perm, iperm);
        break;
      case 9:
        if (loud) out() << "   Ordering = user\n";
        for (std::int32_t k = 1; k <= neq; ++k) perm(k) = (*perm_in)(k);
        for (std::int32_t k = 1; k <= neq; ++k) iperm(perm(k)) = k;
        break;
      default:
        if (loud) out() << "   Ordering = AMD\n";
        skelda_amd(neq, xadj, adj, perm, iperm);
        used = 1;
        break;
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
