// Orderings of the supernodal solver other than the quotient-graph family (see amd.hpp):
// multiple minimum degree and nested dissection through METIS.
#pragma once

#include <cstdint>
#include <functional>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Multiple minimum degree on the full graph (1-based, xadj(1)=1): the graph is copied, the
// kernel's tolerance is delta and its marker bound the largest 4-byte integer.
void skelda_mmd(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                std::int32_t delta, Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm);
// The 8-byte entry has no kernel: it says so and returns the identity.
void skelda_mmd8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                 std::int64_t delta, Array1<std::int64_t>& perm, Array1<std::int64_t>& iperm);

// Nested dissection by METIS_NodeND with 1-based numbering. `options` are the eight option
// words: options(1) = 0 takes METIS's defaults; otherwise options(5) is the debug level,
// options(7) the dense-column factor and options(8) the number of separators tried (the
// coarsening, initial-partition and refinement choices of the old words 2-4 and the flags
// of word 6 have no counterpart and are ignored). Without METIS in the build it prints a
// caution line and returns the identity.
void skelda_metis(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                  const Array1<std::int32_t>& options, Array1<std::int32_t>& perm,
                  Array1<std::int32_t>& iperm);
// The 8-byte entry is not implemented: it says so and returns the identity.
void skelda_metis8(std::int64_t n, const Array1<std::int64_t>& xadj, const Array1<std::int64_t>& adj,
                   const Array1<std::int64_t>& options, Array1<std::int64_t>& perm,
                   Array1<std::int64_t>& iperm);

// True when the build links METIS.
bool skelda_have_metis();

// Dense rows set aside. Mixed-model equations with covariates, fixed effects with few levels
// and sires with many progeny have a few rows joined to a large part of all equations; every
// minimum-degree method spends most of its time updating their degrees, and a row of that kind
// ends up among the last pivots anyway. With them set aside, the rest of the graph is ordered
// alone and the dense rows follow it, in their original order.
//
// A row is dense when its degree (off-diagonal entries in the full graph) exceeds
// dense_row_threshold(n, alpha) = max(16, alpha * sqrt(n)).
//
// alpha = 2 was chosen by measurement: AMD with the rows set aside, on the animal-model
// equations of the benchmark generator (bench/skelda/ordering_bench.cpp, MMEKIT_BENCH_ALPHAS),
// fill and CPU time against the peer AMD of that benchmark at its default settings:
//
//   alpha   51,033 equations   302,233 equations   1,000,400 equations
//     1      +0.60 %  0.49 x     -3.38 %  0.46 x      +0.03 %  0.27 x
//     2      -0.13 %  0.76 x     -3.11 %  0.46 x      -0.02 %  0.41 x
//     3                          -1.20 %  0.68 x      -0.08 %  0.50 x
//     5      -0.17 %  0.88 x     -0.16 %  0.72 x      -0.14 %  0.70 x
//    10      -0.14 %  1.07 x     -0.19 %  0.82 x      -0.21 %  1.27 x
//
// Below 2 the fill grows on the smaller system; above it the time grows (the rows of a few
// thousand entries, popular sires, stay in the graph) for at most 0.2 % less fill.
inline constexpr double kDenseRowAlpha = 2.0;
//
// Multiple minimum degree (method 4 and TORVEX's ordering) uses alpha = 0.7. Its degrees are
// exact: every elimination next to a row of a few hundred entries (a popular sire) rescans
// all the elements that row belongs to, and at alpha = 2 those rows made the method 1.8 to 5
// times slower than the peer. Measured as above, fill and CPU time of MMD against the peer:
//
//   alpha   51,033 equations   302,233 equations   1,000,400 equations
//     0.3                                                         +0.88 %  0.29 x
//     0.35   +3.02 %  0.18 x    +57.3 %   0.34 x
//     0.5    +2.19 %  0.29 x     -2.24 %  1.02 x      +0.17 %  0.34 x
//     0.7    +1.66 %  0.67 x     -3.73 %  1.44 x      -0.05 %  0.48 x
//     1      +0.37 %  1.52 x     -3.73 %  2.41 x      -0.06 %  0.68 x
//     2      +0.22 %  2.46 x     -3.19 %  3.33 x      -0.09 %  1.77 x
//
// At alpha 0.7 the rows above 158, 384 and 700 entries are set aside. Lower is faster, but the
// fill can grow fast: at 0.35 (rows above 192 entries) by more than half on the
// 302,233-equation system, while 0.5 (above 274) still gave 2.2 % less than the peer there.
inline constexpr double kDenseRowAlphaMmd = 0.7;
std::int64_t dense_row_threshold(std::int64_t n, double alpha = kDenseRowAlpha);

// A graph (1-based full adjacency, xadj(1) = 1) split into its dense rows and the rest. The
// rest keeps the original order of its nodes, renumbered 1..n, and loses every edge to a dense
// row.
struct DenseRowSplit {
  std::int32_t n = 0;               // nodes left
  Array1<std::int32_t> xadj, adj;   // the graph of the nodes left
  Array1<std::int32_t> node;        // node(k): original number of node k of the reduced graph
  Array1<std::int32_t> dense;       // original numbers of the dense rows, ascending
};
// Rows of degree above `threshold` go to split.dense.
void split_dense_rows(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                      std::int64_t threshold, DenseRowSplit& split);
// The permutation of the whole graph from one of the reduced graph (rperm(k) = reduced node
// eliminated k-th): the reduced nodes in that order, then the dense rows.
void append_dense_rows(const DenseRowSplit& split, const Array1<std::int32_t>& rperm, Array1<std::int32_t>& perm,
                       Array1<std::int32_t>& iperm);

// An ordering of a graph: n, xadj, adj in, perm and iperm out. It may overwrite the graph.
using GraphOrdering = std::function<void(std::int32_t n, Array1<std::int32_t>& xadj, Array1<std::int32_t>& adj,
                                         Array1<std::int32_t>& perm, Array1<std::int32_t>& iperm)>;
// Orders the graph without its dense rows (degree above `threshold`) by `order`, and numbers
// the dense rows last. Without dense rows, `order` gets a copy of the whole graph. Returns the
// number of dense rows.
std::int32_t order_dense_rows_last(std::int32_t n, const Array1<std::int32_t>& xadj, const Array1<std::int32_t>& adj,
                                   std::int64_t threshold, const GraphOrdering& order, Array1<std::int32_t>& perm,
                                   Array1<std::int32_t>& iperm);

}  // namespace mmekit
