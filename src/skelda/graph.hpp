// Pattern checks, the full adjacency graph of an upper-triangle pattern, and the elimination
// tree routines shared by the ordering and the symbolic steps. All numbers are 1-based.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Checks a row-compressed pattern: neq at least 1, every row non-empty with increasing bounds,
// every column number at least 1 and no column twice in a row. Prints the row bounds and
// entries of each row when `show` is set. A violation prints its message and stops.
void check_ija(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, bool show);

// Counts over the rows of a mixed-model matrix: `empty` rows without entries, `zero_diag` rows
// holding only a zero diagonal, `nonzero` all other entries. A row with one entry that is not
// its diagonal stops the run.
void count_columns(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   const Array1<double>& a, std::int64_t& empty, std::int64_t& zero_diag,
                   std::int64_t& nonzero);

// Entries of the full graph: twice the number of off-diagonal entries. Records n in the
// solver state.
std::int64_t get_size_for_graph_robust(std::int32_t n, const Array1<std::int32_t>& ia,
                                       const Array1<std::int32_t>& ja);
std::int64_t get_size_for_graph_robust8(std::int64_t n, const Array1<std::int64_t>& ia,
                                        const Array1<std::int64_t>& ja);
// The former size routine: prints that it is obsolete and stops.
[[noreturn]] std::int64_t get_size_for_graph(std::int32_t ia1, std::int32_t ian);

// Full graph (both directions of every off-diagonal entry, no diagonal) of the pattern, with
// node i renamed iperm(i) when iperm is given (non-empty). xadj(1) = 1.
void permuted_graph(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                    const Array1<std::int32_t>& iperm, Array1<std::int32_t>& xadj,
                    Array1<std::int32_t>& adj);
void full_graph(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                Array1<std::int32_t>& xadj, Array1<std::int32_t>& adj);
void full_graph8(std::int64_t n, const Array1<std::int64_t>& ia, const Array1<std::int64_t>& ja,
                 Array1<std::int64_t>& xadj, Array1<std::int64_t>& adj);

// Elimination tree of the graph in its own numbering: parent(i) is the parent column, 0 for a
// root (ancestor climbing with path compression).
void elimination_tree(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                      Array1<std::int32_t>& parent);

// Postorder of a forest: post(k) is the k-th node visited; roots in ascending order, children
// smallest first.
void tree_postorder(std::int32_t n, const Array1<std::int32_t>& parent, Array1<std::int32_t>& post);

// Renumbers `parent` by the postorder and composes perm (new -> original) and iperm
// (original -> new) with it: the k-th pivot becomes perm(post(k)).
void compose_postorder(std::int32_t n, Array1<std::int32_t>& parent, const Array1<std::int32_t>& post,
                       Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);

}  // namespace mmekit
