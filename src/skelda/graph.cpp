#include "mmekit/skelda/graph.hpp"

#include <sstream>
#include <vector>

#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/row_structure.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

void check_ija(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, bool show) {
  if (neq < 1) stop("ERROR: neq < 1");
  std::vector<std::int32_t> mark(static_cast<std::size_t>(neq) + 1, 0);
  RowStructureRules rules;
  rules.empty_rows = false;
  const RowStructureFault f = scan_row_structure<std::int32_t>(
      neq, span_of(ia), span_of(ja), rules,
      [&](std::int64_t, std::int64_t first, std::int64_t last) {
        if (!show) return;
        std::ostringstream line;
        line << " ia= " << first << ' ' << last << " ; ja=";
        for (std::int64_t k = first; k <= last; ++k) line << ' ' << ja(k);
        out() << line.str() << '\n';
      },
      [&](std::int64_t i, std::int64_t, std::int64_t j) {
        if (mark[static_cast<std::size_t>(j)] == i) stop("ERROR: j found twice or more");
        mark[static_cast<std::size_t>(j)] = static_cast<std::int32_t>(i);
      });
  switch (f.kind) {
    case RowFault::none:
      return;
    case RowFault::decreasing:
    case RowFault::empty_row:
      stop("ERROR: ia(i) > ia(i+1)-1");
    case RowFault::first_start:
      if (f.value < 1) stop("ERROR: zero or negative ia");
      break;
    case RowFault::column_low:
      stop("ERROR: zero or negative j");
    default:
      break;
  }
  // Faults that the row-by-row messages do not cover: arrays too short for the pattern, a
  // first row that starts beyond 1, a column beyond neq.
  stop("check_ija: " + describe(f));
}

void count_columns(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   const Array1<double>& a, std::int64_t& empty, std::int64_t& zero_diag,
                   std::int64_t& nonzero) {
  empty = zero_diag = nonzero = 0;
  // The columns are only compared with their row, never used as an index.
  RowStructureRules rules;
  rules.values = a.size();
  rules.columns = false;
  const RowStructureFault f = scan_row_structure<std::int32_t>(
      n, span_of(ia), span_of(ja), rules,
      [&](std::int64_t i, std::int64_t first, std::int64_t last) {
        const std::int64_t len = last - first + 1;
        if (len == 1) {
          if (ja(first) != i) stop("There is no diagonal element within the column.\nThe matrix seems not to be a MME.");
          if (a(first) == 0.0) ++zero_diag;
          else ++nonzero;
        } else if (len == 0) {
          ++empty;
        } else {
          nonzero += len;
        }
      },
      [](std::int64_t, std::int64_t, std::int64_t) {});
  if (f) stop("count_columns: " + describe(f));
}

namespace {

template <class I>
std::int64_t off_diagonal_twice(I n, const Array1<I>& ia, const Array1<I>& ja) {
  std::int64_t count = 0;
  for (I i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k)
      if (ja(k) != i) ++count;
  return 2 * count;
}

// Two passes: count the entries of each node, then place both directions of each entry.
// `rename` maps a node to its number in the graph (identity when empty). The structure and the
// renaming have been checked by the caller.
template <class I>
void build_graph(I n, const Array1<I>& ia, const Array1<I>& ja, const Array1<I>& rename,
                 Array1<I>& xadj, Array1<I>& adj) {
  const bool renamed = !rename.empty();
  auto nm = [&](I v) { return renamed ? rename(v) : v; };
  xadj = Array1<I>(static_cast<std::int64_t>(n) + 1, 0);
  for (I i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const I j = ja(k);
      if (j == i) continue;
      ++xadj(nm(i));
      ++xadj(nm(j));
    }
  // Prefix sums: xadj(v) becomes the start of v's list.
  std::int64_t start = 1;
  for (I v = 1; v <= n; ++v) {
    const std::int64_t c = xadj(v);
    xadj(v) = static_cast<I>(start);
    start += c;
  }
  xadj(static_cast<std::int64_t>(n) + 1) = static_cast<I>(start);
  adj = Array1<I>(std::max<std::int64_t>(start - 1, 1), 0);
  std::vector<std::int64_t> fillp(static_cast<std::size_t>(n) + 1);
  for (I v = 1; v <= n; ++v) fillp[v] = xadj(v);
  for (I i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const I j = ja(k);
      if (j == i) continue;
      const I a = nm(i), b = nm(j);
      adj(fillp[a]++) = b;
      adj(fillp[b]++) = a;
    }
}

}  // namespace

std::int64_t get_size_for_graph_robust(std::int32_t n, const Array1<std::int32_t>& ia,
                                       const Array1<std::int32_t>& ja) {
  require_row_structure("get_size_for_graph_robust", n, span_of(ia), span_of(ja));
  skelda_state.graph_n = n;
  return off_diagonal_twice<std::int32_t>(n, ia, ja);
}

std::int64_t get_size_for_graph_robust8(std::int64_t n, const Array1<std::int64_t>& ia,
                                        const Array1<std::int64_t>& ja) {
  require_row_structure("get_size_for_graph_robust8", n, span_of(ia), span_of(ja));
  skelda_state.graph_n = n;
  return off_diagonal_twice<std::int64_t>(n, ia, ja);
}

std::int64_t get_size_for_graph(std::int32_t, std::int32_t) {
  stop("This function (get_size_for_graph) is obsolete.\n"
       "You have to use new function [get_size_for_graph_robust(n,ia,ja) ].");
}

void permuted_graph(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                    const Array1<std::int32_t>& iperm, Array1<std::int32_t>& xadj,
                    Array1<std::int32_t>& adj) {
  require_row_structure("permuted_graph", n, span_of(ia), span_of(ja));
  if (!iperm.empty()) {
    if (iperm.size() < n)
      stop("permuted_graph: n = " + std::to_string(n) + " but iperm holds " + std::to_string(iperm.size()) + " entries");
    for (std::int32_t v = 1; v <= n; ++v)
      if (iperm(v) < 1 || iperm(v) > n)
        stop("permuted_graph: iperm(" + std::to_string(v) + ") = " + std::to_string(iperm(v)) + " is outside 1.." +
             std::to_string(n));
  }
  build_graph<std::int32_t>(n, ia, ja, iperm, xadj, adj);
}

void full_graph(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                Array1<std::int32_t>& xadj, Array1<std::int32_t>& adj) {
  require_row_structure("full_graph", n, span_of(ia), span_of(ja));
  build_graph<std::int32_t>(n, ia, ja, Array1<std::int32_t>(), xadj, adj);
}

void full_graph8(std::int64_t n, const Array1<std::int64_t>& ia, const Array1<std::int64_t>& ja,
                 Array1<std::int64_t>& xadj, Array1<std::int64_t>& adj) {
  require_row_structure("full_graph8", n, span_of(ia), span_of(ja));
  build_graph<std::int64_t>(n, ia, ja, Array1<std::int64_t>(), xadj, adj);
}

void elimination_tree(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                      Array1<std::int32_t>& parent) {
  require_row_structure("elimination_tree", n, span_of(xadj), span_of(adj));
  parent = Array1<std::int32_t>(n, 0);
  std::vector<std::int32_t> ancestor(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t i = 1; i <= n; ++i) {
    for (std::int64_t k = xadj(i); k < xadj(i + 1); ++k) {
      std::int32_t j = adj(k);
      if (j >= i) continue;
      // Climb from j to the root of its subtree, pointing every visited node at i.
      while (true) {
        const std::int32_t next = ancestor[j];
        if (next == i) break;
        ancestor[j] = i;
        if (next == 0) {
          parent(j) = i;
          break;
        }
        j = next;
      }
    }
  }
}

void tree_postorder(std::int32_t n, const Array1<std::int32_t>& parent, Array1<std::int32_t>& post) {
  post = Array1<std::int32_t>(n, 0);
  std::vector<std::int32_t> first_child(static_cast<std::size_t>(n) + 1, 0),
      sibling(static_cast<std::size_t>(n) + 1, 0);
  // From n down to 1, so that each child list comes out ascending.
  for (std::int32_t v = n; v >= 1; --v) {
    const std::int32_t p = parent(v);
    if (p >= 1 && p <= n) {
      sibling[v] = first_child[p];
      first_child[p] = v;
    }
  }
  std::vector<std::int32_t> stack;
  stack.reserve(static_cast<std::size_t>(n));
  std::int32_t k = 0;
  for (std::int32_t root = 1; root <= n; ++root) {
    if (parent(root) >= 1 && parent(root) <= n) continue;
    // Depth first: a node leaves the stack once its children are done; first_child is
    // consumed as the walk goes down.
    stack.push_back(root);
    while (!stack.empty()) {
      const std::int32_t v = stack.back();
      const std::int32_t c = first_child[v];
      if (c != 0) {
        first_child[v] = sibling[c];
        stack.push_back(c);
      } else {
        stack.pop_back();
        post(++k) = v;
      }
    }
  }
}

void compose_postorder(std::int32_t n, Array1<std::int32_t>& parent, const Array1<std::int32_t>& post,
                       Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm) {
  std::vector<std::int32_t> inv(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t k = 1; k <= n; ++k) inv[post(k)] = k;
  Array1<std::int32_t> new_parent(n, 0), new_perm(n, 0);
  for (std::int32_t k = 1; k <= n; ++k) {
    const std::int32_t v = post(k);
    const std::int32_t p = parent(v);
    new_parent(k) = (p >= 1 && p <= n) ? inv[p] : 0;
    new_perm(k) = perm(v);
  }
  parent = std::move(new_parent);
  perm = std::move(new_perm);
  for (std::int32_t k = 1; k <= n; ++k) iperm(perm(k)) = k;
}

}  // namespace mmekit
