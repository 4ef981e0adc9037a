// Symbolic factorisation: from the ordered pattern to the structures of the supernodal factor.
//
// The step (task 20) rebuilds the elimination tree under the permutation of the ordering step,
// postorders it once more (a caller's permutation arrives unpostordered), reads each column's
// rows from the matrix, merges the structures of the tree's children into their parents with a
// sorted linked list, groups the columns into supernodes, picks the panel size when asked to,
// cuts wide non-root supernodes, and lays out the factor in the sx2 form of layout.hpp. It
// leaves xsuper, snode, snparent, xlindx, lindx, xlnz, cflag and a zeroed lnz in skelda_state.
//
// The algorithms below work on explicit arrays (1-based, numbers in the permuted order) so
// that each can be run and checked on its own.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The symbolic step: status 0 and stage 20 on success; 3 when the state is not ordered; 4 when
// neq, the pattern or the stored parameters do not fit the ordered matrix; 1 when a work array
// cannot be allocated; 90 when the size of the factor does not fit an 8-byte count. A failure
// leaves the state as it was. At |verbose| above 2 the supernode statistics are printed.
void skelda_symfac(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   std::int32_t& status, std::int32_t verbose);

// The same as a step of the task front end (installed as skelda_steps().symfac).
std::int32_t skelda_symfac_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);

// The storage map of the factor held in skelda_state. Before the symbolic step (or after a
// reset) the view is empty: nsn 0 and null arrays.
Sx2Layout skelda_layout();

// ---------------------------------------------------------------------------------------------
// The algorithms.

// The strict lower triangle of the matrix under iperm, by columns: column c holds the rows r > c
// with an entry (i, j) of the upper-triangle pattern such that {iperm(i), iperm(j)} = {c, r}.
// Rows come out ascending; an entry given twice (or in both triangles) appears twice.
// xlow has n+1 entries, xlow(1) = 1; low holds xlow(n+1)-1 rows (at least one element).
void lower_pattern(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   const Array1<std::int32_t>& iperm, Array1<std::int64_t>& xlow, Array1<std::int32_t>& low);

// The row structure of every column of L: column j holds its own row j first, then the rows
// below it, ascending. colcnt(j) is their number (the diagonal counted).
struct ColumnStructures {
  Array1<std::int64_t> colcnt;     // n
  Array1<std::int64_t> start;      // n+1: column j is rows[start(j)-1 .. start(j+1)-2]
  std::vector<std::int32_t> rows;  // all columns, packed

  std::span<const std::int32_t> column(std::int32_t j) const {
    return {rows.data() + (start(j) - 1), static_cast<std::size_t>(start(j + 1) - start(j))};
  }
};

// Merges, column by column, the matrix rows of the column (from lower_pattern) and the
// structures of its children in the elimination tree `parent` (0 for a root; a parent outside
// j+1..n counts as none) through a sorted linked list.
void column_structures(std::int32_t n, const Array1<std::int64_t>& xlow, const Array1<std::int32_t>& low,
                       const Array1<std::int32_t>& parent, ColumnStructures& cs);

// Supernodes of exactly nested columns: column c+t joins the supernode that starts at c when
// parent(c+t-1) = c+t and colcnt(c) = colcnt(c+t) + t. xsuper gets nsn+1 entries (the last
// n+1), snode n.
void find_supernodes(std::int32_t n, const Array1<std::int32_t>& parent, const Array1<std::int64_t>& colcnt,
                     std::int32_t& nsn, Array1<std::int32_t>& xsuper, Array1<std::int32_t>& snode);

// snparent(s): the supernode of the tree parent of the last column of s (always a later
// supernode), 0 for a root.
void supernode_parents(const Array1<std::int32_t>& parent, std::int32_t nsn, const Array1<std::int32_t>& xsuper,
                       Array1<std::int32_t>& snparent);

// Sums over the supernodes, with w the width and cc = colcnt(xsuper(s)) the count of the first
// column: lindx_size = sum of cc-w, rows_sum = sum of cc, lx_size = sum of the sx2 sizes
// (panel size `panel`). lx_size is -1 when a count is inconsistent (cc below w) or the sum
// does not fit an 8-byte integer.
void supernode_sizes(std::int32_t n, const Array1<std::int64_t>& colcnt, std::int32_t nsn,
                     const Array1<std::int32_t>& xsuper, std::int64_t panel, std::int64_t& lx_size,
                     std::int64_t& rows_sum, std::int64_t& lindx_size);

// Cuts every non-root supernode wider than `threshold` into ceil(w/threshold) pieces of width
// threshold, the last one narrower; roots stay whole. nsplit counts the supernodes cut;
// new_xsuper receives the partition (a copy of xsuper when nothing is cut). A threshold below
// 1 cuts nothing.
void split_supernodes(std::int32_t nsn, const Array1<std::int32_t>& xsuper, const Array1<std::int32_t>& snparent,
                      std::int64_t threshold, std::int32_t& nsplit, std::int32_t& new_nsn,
                      Array1<std::int32_t>& new_xsuper);

// Relaxed amalgamation (an option of the library, off by default): a supernode is merged into
// the next one when that is its parent and the merged supernode stays narrow or gains few
// explicit zeros. The merged supernode keeps all its columns dense and the rows below its
// parent part, which hold the rows below the child, so the stored pattern contains the exact
// one; the added positions are zeros and factorise as zeros.
struct AmalgamationBounds {
  std::int64_t always_width = 4;   // merge whenever the merged width is at most this
  std::int64_t small_width = 16;   // up to this width: merge when zeros are at most small_share
  double small_share = 0.5;        // ... of the entries of the merged supernode's columns
  std::int64_t medium_width = 48;  // up to this width: medium_share
  double medium_share = 0.1;
  double large_share = 0.05;       // wider: large_share
};
// Merges in place (nsn, xsuper); snparent must be that of the given partition and is to be
// recomputed afterwards. Returns the number of merges.
std::int32_t amalgamate_supernodes(const Array1<std::int64_t>& colcnt, std::int32_t& nsn,
                                   Array1<std::int32_t>& xsuper, const Array1<std::int32_t>& snparent,
                                   const AmalgamationBounds& bounds = {});

// The column counts of the stored factor: for column c of a supernode whose last column is e,
// (e - c) + colcnt(e). On exactly nested supernodes these are the column counts themselves.
void effective_counts(std::int32_t n, const Array1<std::int64_t>& colcnt, std::int32_t nsn,
                      const Array1<std::int32_t>& xsuper, Array1<std::int64_t>& effcnt);

// ---------------------------------------------------------------------------------------------
// Elements and relative indices.

// Position in lnz of the factor element (r, c), r >= c, both in the permuted numbering, c a
// column of supernode s; 0 when the element has no place in s (c outside s, r below c, r
// neither in the diagonal block nor in the row list of s, s outside 1..nsn). The row list is
// searched by a linear scan.
std::int64_t sx2_element_position(const Sx2Layout& layout, std::int32_t s, std::int64_t r, std::int64_t c);

// Stores `value` at element (r, c) of supernode s (as sx2_element_position). An element without
// a place prints "ERROR: set_sx2_factor_element() Element not allocated" and stops.
void set_sx2_factor_element(const Sx2Layout& layout, Array1<double>& lnz, std::int32_t s, std::int64_t r,
                            std::int64_t c, double value);
// The same on the factor of skelda_state.
void set_sx2_factor_element(std::int32_t s, std::int64_t r, std::int64_t c, double value);

// Relative indices: where the rows of one supernode (a child, an updating supernode) lie in the
// rows of another (the target), found by merging the two ascending lists in one pass. The
// target has the diagonal block columns first..last (w = last-first+1) and the m rows of its
// row list below. `rows` must ascend; relidx[k] (0-based, at least rows.size() entries)
// receives the index of rows[k]. A row that the target does not hold prints the routine's
// "ERROR: <name>() ridx is not determined." and stops.
//
// set_relative_indices: counted from the bottom of the target, from 1: list row k (k from 0)
// is m-k, so the last row is 1; diagonal row r is (last-r)+m+1, so column `first` is m+w.
void set_relative_indices(std::span<const std::int32_t> rows, std::int32_t first, std::int32_t last,
                          std::span<const std::int32_t> list, std::span<std::int32_t> relidx);
// set_relative_indices1: counted from the top, from 1 (the row's place in the target's front):
// diagonal row r is r-first+1, list row k (from 0) is w+k+1.
void set_relative_indices1(std::span<const std::int32_t> rows, std::int32_t first, std::int32_t last,
                           std::span<const std::int32_t> list, std::span<std::int32_t> relidx);
// set_relative_indices2: the index (from 1) of each row in a plain ascending list, such as the
// row list of a parent's update matrix receiving a child's update rows (extend-add).
void set_relative_indices2(std::span<const std::int32_t> rows, std::span<const std::int32_t> list,
                           std::span<std::int32_t> relidx);

}  // namespace mmekit
