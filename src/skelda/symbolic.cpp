// Symbolic factorisation: elimination tree, column structures, supernodes, panels, the split of
// wide supernodes and the storage map of the factor.
#include "mmekit/skelda/symbolic.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/row_structure.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

std::int64_t abs_verbose(std::int32_t v) { return v < 0 ? -static_cast<std::int64_t>(v) : v; }

// a / b in 4-byte reals, as the statistics print their ratios; a zero divisor gives an
// infinity (or NaN for 0/0) without dividing.
float ratio(std::int64_t a, std::int64_t b) {
  const float fa = static_cast<float>(a), fb = static_cast<float>(b);
  if (fb == 0.0f) {
    if (fa == 0.0f) return std::numeric_limits<float>::quiet_NaN();
    return fa > 0.0f ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
  }
  return fa / fb;
}

bool has_parent(std::int64_t p, std::int64_t j, std::int64_t n) { return p > j && p <= n; }

template <class... Args>
void say(const char* label, const Args&... values) {
  out() << label << free_format(values...) << '\n';
}

// Finds each row of `rows` among the target rows (the columns first..last, then `list`) by one
// merge of the two ascending lists, and stores place(t) for its 0-based index t in the target.
template <class Place>
void merge_rows(const char* name, std::span<const std::int32_t> rows, std::int64_t first, std::int64_t last,
                std::span<const std::int32_t> list, std::span<std::int32_t> relidx, Place place) {
  if (relidx.size() < rows.size())
    stop("ERROR: " + std::string(name) + "() relidx holds " + std::to_string(relidx.size()) + " entries for " +
         std::to_string(rows.size()) + " rows");
  const std::int64_t w = last >= first ? last - first + 1 : 0;
  const std::int64_t total = w + static_cast<std::int64_t>(list.size());
  auto at = [&](std::int64_t t) -> std::int64_t { return t < w ? first + t : list[static_cast<std::size_t>(t - w)]; };
  std::int64_t t = 0;
  for (std::size_t k = 0; k < rows.size(); ++k) {
    const std::int64_t r = rows[k];
    while (t < total && at(t) < r) ++t;
    if (t == total || at(t) != r) stop("ERROR: " + std::string(name) + "() ridx is not determined.");
    relidx[k] = static_cast<std::int32_t>(place(t, w, total));
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Row pattern and column structures.

namespace {

// The strict lower triangle of the matrix under iperm, by rows: row r holds the columns c < r
// of its entries, in the order of the matrix's rows: by_row[xrow[r]] .. by_row[xrow[r+1]-1].
// The structure and iperm have been checked by the caller.
void lower_rows(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                const Array1<std::int32_t>& iperm, std::vector<std::int64_t>& xrow, std::vector<std::int32_t>& by_row) {
  const auto un = static_cast<std::size_t>(n);
  const std::int32_t* ip = iperm.data() - 1;  // ip[v] = iperm(v)
  const std::int32_t* col = ja.data() - 1;    // col[k] = ja(k)
  xrow.assign(un + 2, 0);
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::int32_t a = ip[i];
    for (std::int64_t k = ia(i), e = ia(i + 1); k < e; ++k)
      if (col[k] != i) ++xrow[static_cast<std::size_t>(std::max(a, ip[col[k]]))];
  }
  // xrow[r] becomes the end of row r; the fill, backwards, moves each end back to its start.
  std::int64_t total = 0;
  for (std::size_t r = 1; r <= un; ++r) {
    total += xrow[r];
    xrow[r] = total;
  }
  xrow[un + 1] = total;
  by_row.resize(static_cast<std::size_t>(total));
  for (std::int32_t i = n; i >= 1; --i) {
    const std::int32_t a = ip[i];
    for (std::int64_t k = ia(i + 1) - 1, e = ia(i); k >= e; --k)
      if (col[k] != i) {
        const std::int32_t b = ip[col[k]];
        by_row[static_cast<std::size_t>(--xrow[static_cast<std::size_t>(std::max(a, b))])] = std::min(a, b);
      }
  }
}

// Liu's elimination tree on the lower rows (every entry of row i lies below i): for each
// column i, for each entry j of its row, climb from j by ancestors, compressing to i, until a
// root, and make i its parent.
void tree_of_lower_rows(std::int32_t n, const std::vector<std::int64_t>& xrow, const std::vector<std::int32_t>& by_row,
                        Array1<std::int32_t>& parent) {
  parent = Array1<std::int32_t>(n, 0);
  std::int32_t* par = parent.data() - 1;
  std::vector<std::int32_t> ancestor(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t i = 1; i <= n; ++i) {
    for (std::int64_t k = xrow[static_cast<std::size_t>(i)], e = xrow[static_cast<std::size_t>(i) + 1]; k < e; ++k) {
      std::int32_t j = by_row[static_cast<std::size_t>(k)];
      while (true) {
        const std::int32_t next = ancestor[static_cast<std::size_t>(j)];
        if (next == i) break;
        ancestor[static_cast<std::size_t>(j)] = i;
        if (next == 0) {
          par[j] = i;
          break;
        }
        j = next;
      }
    }
  }
}

// The rows by columns: taking the rows in ascending order leaves every column's rows sorted.
void columns_of_lower_rows(std::int32_t n, const std::vector<std::int64_t>& xrow,
                           const std::vector<std::int32_t>& by_row, Array1<std::int64_t>& xlow,
                           Array1<std::int32_t>& low) {
  const auto un = static_cast<std::size_t>(n);
  const auto total = static_cast<std::int64_t>(by_row.size());
  xlow = Array1<std::int64_t>(static_cast<std::int64_t>(n) + 1, 0);
  std::int64_t* x = xlow.data() - 1;  // x[c] = xlow(c)
  for (std::int32_t c : by_row) ++x[c];
  std::int64_t start = 1;
  for (std::int32_t c = 1; c <= n; ++c) {
    const std::int64_t k = x[c];
    x[c] = start;
    start += k;
  }
  x[n + 1] = start;
  low = Array1<std::int32_t>(std::max<std::int64_t>(total, 1), 0);
  std::int32_t* out = low.data() - 1;
  std::vector<std::int64_t> fill(x + 1, x + n + 1);  // fill[c-1]: next place in column c
  for (std::size_t r = 1; r <= un; ++r)
    for (std::int64_t k = xrow[r]; k < xrow[r + 1]; ++k)
      out[fill[static_cast<std::size_t>(by_row[static_cast<std::size_t>(k)] - 1)]++] = static_cast<std::int32_t>(r);
}

}  // namespace

void lower_pattern(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   const Array1<std::int32_t>& iperm, Array1<std::int64_t>& xlow, Array1<std::int32_t>& low) {
  require_row_structure("lower_pattern", n, span_of(ia), span_of(ja));
  if (iperm.size() < n) stop("lower_pattern: iperm holds " + std::to_string(iperm.size()) + " entries for n = " + std::to_string(n));
  for (std::int32_t v = 1; v <= n; ++v)
    if (iperm(v) < 1 || iperm(v) > n)
      stop("lower_pattern: iperm(" + std::to_string(v) + ") = " + std::to_string(iperm(v)) + " is outside 1.." + std::to_string(n));
  std::vector<std::int64_t> xrow;
  std::vector<std::int32_t> by_row;
  lower_rows(n, ia, ja, iperm, xrow, by_row);
  columns_of_lower_rows(n, xrow, by_row, xlow, low);
}

void column_structures(std::int32_t n, const Array1<std::int64_t>& xlow, const Array1<std::int32_t>& low,
                       const Array1<std::int32_t>& parent, ColumnStructures& cs) {
  if (n < 0 || xlow.size() < static_cast<std::int64_t>(n) + 1 || parent.size() < n ||
      (n > 0 && (xlow(1) != 1 || xlow(static_cast<std::int64_t>(n) + 1) - 1 > low.size())))
    stop("column_structures: the arrays do not hold a pattern of order " + std::to_string(n));
  const std::int32_t end = n + 1;  // end mark of the list
  const auto un = static_cast<std::size_t>(n);
  // link[v]: the next row after v in the list of the current column (whose head is the column).
  std::vector<std::int32_t> link(un + 2, end);
  // Children waiting for their parent, chained in the order they were finished.
  std::vector<std::int32_t> chain_head(un + 2, 0), chain_tail(un + 2, 0), chain_next(un + 2, 0);
  cs.colcnt = Array1<std::int64_t>(n, 0);
  cs.start = Array1<std::int64_t>(static_cast<std::int64_t>(n) + 1, 1);
  cs.rows.clear();
  cs.rows.reserve(static_cast<std::size_t>(n) + static_cast<std::size_t>(n > 0 ? xlow(n + 1) - 1 : 0));

  for (std::int32_t j = 1; j <= n; ++j) {
    link[static_cast<std::size_t>(j)] = end;
    std::int32_t cur = j;  // the last insertion point
    // Inserts row r (j < r <= n) into the sorted list, walking on from the last insertion.
    auto insert = [&](std::int32_t r) {
      if (r <= j || r > n || r == cur) return;
      if (r < cur) cur = j;
      while (link[static_cast<std::size_t>(cur)] < r) cur = link[static_cast<std::size_t>(cur)];
      if (link[static_cast<std::size_t>(cur)] != r) {
        link[static_cast<std::size_t>(r)] = link[static_cast<std::size_t>(cur)];
        link[static_cast<std::size_t>(cur)] = r;
      }
      cur = r;
    };
    for (std::int64_t k = xlow(j); k < xlow(j + 1); ++k) insert(low(k));
    for (std::int32_t child = chain_head[static_cast<std::size_t>(j)]; child != 0;
         child = chain_next[static_cast<std::size_t>(child)]) {
      cur = j;
      for (std::int32_t r : cs.column(child)) insert(r);
    }
    chain_head[static_cast<std::size_t>(j)] = 0;
    // Read the list out, resetting its links.
    cs.start(j) = static_cast<std::int64_t>(cs.rows.size()) + 1;
    std::int64_t count = 0;
    for (std::int32_t v = j; v != end;) {
      cs.rows.push_back(v);
      const std::int32_t next = link[static_cast<std::size_t>(v)];
      link[static_cast<std::size_t>(v)] = end;
      v = next;
      ++count;
    }
    cs.colcnt(j) = count;
    cs.start(j + 1) = static_cast<std::int64_t>(cs.rows.size()) + 1;
    const std::int32_t p = parent(j);
    if (has_parent(p, j, n)) {
      const auto up = static_cast<std::size_t>(p);
      chain_next[static_cast<std::size_t>(j)] = 0;
      if (chain_head[up] == 0) chain_head[up] = j;
      else chain_next[static_cast<std::size_t>(chain_tail[up])] = j;
      chain_tail[up] = j;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Supernodes.

void find_supernodes(std::int32_t n, const Array1<std::int32_t>& parent, const Array1<std::int64_t>& colcnt,
                     std::int32_t& nsn, Array1<std::int32_t>& xsuper, Array1<std::int32_t>& snode) {
  if (n < 0 || parent.size() < n || colcnt.size() < n)
    stop("find_supernodes: parent or colcnt holds fewer than n = " + std::to_string(n) + " entries");
  xsuper = Array1<std::int32_t>(static_cast<std::int64_t>(n) + 1, 0);
  snode = Array1<std::int32_t>(n, 0);
  nsn = 0;
  for (std::int32_t c = 1; c <= n;) {
    ++nsn;
    xsuper(nsn) = c;
    snode(c) = nsn;
    std::int32_t t = 1;
    while (c + static_cast<std::int64_t>(t) <= n && parent(c + t - 1) == c + t &&
           static_cast<__int128>(colcnt(c)) == static_cast<__int128>(colcnt(c + t)) + t) {
      snode(c + t) = nsn;
      ++t;
    }
    c += t;
  }
  xsuper(nsn + 1) = n + 1;
  xsuper.resize(static_cast<std::int64_t>(nsn) + 1);
}

void supernode_parents(const Array1<std::int32_t>& parent, std::int32_t nsn, const Array1<std::int32_t>& xsuper,
                       Array1<std::int32_t>& snparent) {
  if (nsn < 0 || xsuper.size() < static_cast<std::int64_t>(nsn) + 1)
    stop("supernode_parents: xsuper holds fewer than nsn+1 = " + std::to_string(nsn + 1) + " entries");
  snparent = Array1<std::int32_t>(nsn, 0);
  const std::int64_t n = nsn > 0 ? xsuper(nsn + 1) - 1 : 0;
  if (parent.size() < n) stop("supernode_parents: parent holds fewer than n = " + std::to_string(n) + " entries");
  // A partition of 1..n (the usual case) gives each column its supernode directly; the
  // supernode of p then is the one the search below would find.
  bool partition = nsn > 0 && xsuper(1) == 1;
  for (std::int32_t s = 1; partition && s <= nsn; ++s) partition = xsuper(s) < xsuper(s + 1);
  if (partition) {
    std::vector<std::int32_t> owner(static_cast<std::size_t>(n) + 1, 0);
    for (std::int32_t s = 1; s <= nsn; ++s)
      for (std::int32_t c = xsuper(s); c < xsuper(s + 1); ++c) owner[static_cast<std::size_t>(c)] = s;
    for (std::int32_t s = 1; s <= nsn; ++s) {
      const std::int32_t last = xsuper(s + 1) - 1;
      const std::int32_t p = parent(last);
      if (has_parent(p, last, n)) snparent(s) = owner[static_cast<std::size_t>(p)];
    }
    return;
  }
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int32_t last = xsuper(s + 1) - 1;
    const std::int32_t p = parent(last);
    if (!has_parent(p, last, n)) continue;
    // The supernode holding p among s+1..nsn, whose first columns ascend: the last one that
    // starts at or before p.
    std::int32_t lo = s + 1, hi = nsn;
    while (lo < hi) {
      const std::int32_t mid = lo + (hi - lo + 1) / 2;
      if (xsuper(mid) <= p) lo = mid;
      else hi = mid - 1;
    }
    if (lo <= nsn && xsuper(lo) <= p && p < xsuper(lo + 1)) snparent(s) = lo;
  }
}

void supernode_sizes(std::int32_t n, const Array1<std::int64_t>& colcnt, std::int32_t nsn,
                     const Array1<std::int32_t>& xsuper, std::int64_t panel, std::int64_t& lx_size,
                     std::int64_t& rows_sum, std::int64_t& lindx_size) {
  if (nsn < 0 || xsuper.size() < static_cast<std::int64_t>(nsn) + 1 || colcnt.size() < n)
    stop("supernode_sizes: xsuper or colcnt is shorter than the partition");
  lx_size = rows_sum = lindx_size = 0;
  bool fits = panel >= 1;
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int64_t first = xsuper(s);
    const std::int64_t w = xsuper(s + 1) - first;
    if (first < 1 || first > n || w < 1) stop("supernode_sizes: xsuper does not partition 1.." + std::to_string(n));
    const std::int64_t cc = colcnt(first);
    if (cc < w) {
      fits = false;
      continue;
    }
    const std::int64_t size = fits ? sx2_size(w, cc - w, panel) : -1;
    if (size < 0 || __builtin_add_overflow(lx_size, size, &lx_size)) fits = false;
    if (__builtin_add_overflow(rows_sum, cc, &rows_sum) || __builtin_add_overflow(lindx_size, cc - w, &lindx_size))
      fits = false;
  }
  if (!fits) lx_size = -1;
}

void split_supernodes(std::int32_t nsn, const Array1<std::int32_t>& xsuper, const Array1<std::int32_t>& snparent,
                      std::int64_t threshold, std::int32_t& nsplit, std::int32_t& new_nsn,
                      Array1<std::int32_t>& new_xsuper) {
  if (nsn < 0 || xsuper.size() < static_cast<std::int64_t>(nsn) + 1 || snparent.size() < nsn)
    stop("split_supernodes: xsuper or snparent is shorter than nsn = " + std::to_string(nsn));
  nsplit = 0;
  auto parts = [&](std::int32_t s) -> std::int64_t {
    if (threshold < 1 || snparent(s) == 0) return 1;
    const double w = static_cast<double>(xsuper(s + 1) - xsuper(s));
    return std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(w / static_cast<double>(threshold))));
  };
  std::int64_t count = 0;
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int64_t k = parts(s);
    if (k > 1) ++nsplit;
    count += k;
  }
  new_nsn = static_cast<std::int32_t>(count);  // at most n pieces
  new_xsuper = Array1<std::int32_t>(count + 1, 0);
  std::int64_t at = 0;
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int64_t k = parts(s);
    for (std::int64_t i = 0; i < k; ++i) new_xsuper(++at) = static_cast<std::int32_t>(xsuper(s) + i * threshold);
  }
  new_xsuper(count + 1) = xsuper(nsn + 1);
}

std::int32_t amalgamate_supernodes(const Array1<std::int64_t>& colcnt, std::int32_t& nsn,
                                   Array1<std::int32_t>& xsuper, const Array1<std::int32_t>& snparent,
                                   const AmalgamationBounds& bounds) {
  if (nsn < 2) return 0;
  if (xsuper.size() < static_cast<std::int64_t>(nsn) + 1 || snparent.size() < nsn ||
      colcnt.size() < xsuper(nsn + 1) - 1)
    stop("amalgamate_supernodes: the arrays are shorter than the partition");
  auto accept = [&](std::int64_t width, double zeros, double entries) {
    if (width <= bounds.always_width) return true;
    const double share = entries > 0 ? zeros / entries : 0.0;
    if (width <= bounds.small_width) return share <= bounds.small_share;
    if (width <= bounds.medium_width) return share <= bounds.medium_share;
    return share <= bounds.large_share;
  };
  Array1<std::int32_t> merged(static_cast<std::int64_t>(nsn) + 1, 0);
  std::int32_t groups = 0, merges = 0;
  // The group being built: its width, the rows below it (those of its last part), its explicit
  // zeros and all its entries (lower triangle, zeros included).
  std::int64_t gw = 0, gm = 0;
  double gz = 0, ge = 0;
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int32_t c = xsuper(s);
    const std::int64_t w = xsuper(s + 1) - c;
    const std::int64_t m = colcnt(c) - w;
    double entries = 0;
    for (std::int64_t k = c; k < c + w; ++k) entries += static_cast<double>(colcnt(k));
    if (s > 1 && snparent(s - 1) == s) {
      // Every column of the group now reaches down through s and the rows below s.
      const double extra = static_cast<double>(gw) * static_cast<double>(std::max<std::int64_t>(w + m - gm, 0));
      if (accept(gw + w, gz + extra, ge + extra + entries)) {
        gw += w;
        gm = m;
        gz += extra;
        ge += extra + entries;
        ++merges;
        continue;
      }
    }
    merged(++groups) = c;
    gw = w;
    gm = m;
    gz = 0;
    ge = entries;
  }
  merged(groups + 1) = xsuper(nsn + 1);
  merged.resize(static_cast<std::int64_t>(groups) + 1);
  xsuper = std::move(merged);
  nsn = groups;
  return merges;
}

void effective_counts(std::int32_t n, const Array1<std::int64_t>& colcnt, std::int32_t nsn,
                      const Array1<std::int32_t>& xsuper, Array1<std::int64_t>& effcnt) {
  if (nsn < 0 || xsuper.size() < static_cast<std::int64_t>(nsn) + 1 || colcnt.size() < n ||
      (nsn > 0 && (xsuper(1) != 1 || xsuper(nsn + 1) != n + 1)))
    stop("effective_counts: xsuper does not partition 1.." + std::to_string(n));
  effcnt = Array1<std::int64_t>(n, 0);
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int32_t e = xsuper(s + 1) - 1;
    for (std::int32_t c = xsuper(s); c <= e; ++c) effcnt(c) = (e - c) + colcnt(e);
  }
}

// ---------------------------------------------------------------------------------------------
// The step.

void skelda_symfac(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                   std::int32_t& status, std::int32_t verbose) {
  SkeldaState& S = skelda_state;
  if (S.first_use) skelda_init();
  if (S.stage() < 10) {
    status = kSkeldaInvalidStep;
    return;
  }
  const std::int32_t n = neq;
  if (n < 1 || n != S.iparm(kN) || check_row_structure(n, span_of(ia), span_of(ja)) ||
      ia(static_cast<std::int64_t>(n) + 1) - 1 != S.iparm(kNnz) || !S.perm || !S.iperm || S.perm->size() < n ||
      S.iperm->size() < n || S.iparm(kPanelSize) < 1) {
    status = kSkeldaAbnormalArgs;
    return;
  }
  for (std::int32_t k = 1; k <= n; ++k) {
    const std::int32_t v = (*S.perm)(k);
    if (v < 1 || v > n || (*S.iperm)(v) != k) {
      status = kSkeldaAbnormalArgs;
      return;
    }
  }
  Stopwatch clock;
  const bool loud = abs_verbose(verbose) > 2;
  status = kSkeldaNoTempMemory;
  try {
    // The tree and its postorder once more: a caller's permutation arrives unpostordered.
    Array1<std::int32_t> perm(*S.perm), iperm(*S.iperm), parent;
    ColumnStructures cs;
    {
      // The tree reads only the neighbours below each node: the graph is kept as its lower
      // rows. They are the row pattern under the final permutation as well when the postorder
      // leaves the numbering as it is (always after the ordering step); otherwise the row
      // pattern is built again under the new numbering, into the same arrays.
      std::vector<std::int64_t> xrow;
      std::vector<std::int32_t> by_row;
      bool renumbered = false;
      {
        Array1<std::int32_t> post;
        lower_rows(n, ia, ja, iperm, xrow, by_row);
        tree_of_lower_rows(n, xrow, by_row, parent);
        tree_postorder(n, parent, post);
        for (std::int32_t k = 1; k <= n && !renumbered; ++k) renumbered = post(k) != k;
        compose_postorder(n, parent, post, perm, iperm);
      }
      Array1<std::int64_t> xlow;
      Array1<std::int32_t> low;
      if (renumbered) lower_rows(n, ia, ja, iperm, xrow, by_row);
      columns_of_lower_rows(n, xrow, by_row, xlow, low);
      std::vector<std::int64_t>().swap(xrow);
      std::vector<std::int32_t>().swap(by_row);
      column_structures(n, xlow, low, parent, cs);
    }
    std::int32_t nsn = 0;
    Array1<std::int32_t> xsuper, snode, snparent;
    find_supernodes(n, parent, cs.colcnt, nsn, xsuper, snode);
    supernode_parents(parent, nsn, xsuper, snparent);
    if (S.switches.relaxed_amalgamation && amalgamate_supernodes(cs.colcnt, nsn, xsuper, snparent) > 0)
      supernode_parents(parent, nsn, xsuper, snparent);
    Array1<std::int64_t> cc;  // counts of the stored columns
    effective_counts(n, cs.colcnt, nsn, xsuper, cc);

    const bool detect = S.iparm(kDetectPanel) != 0;
    std::int64_t panel = S.iparm(kPanelSize);
    if (detect) {
      std::int64_t widest = 0;
      for (std::int32_t s = 1; s <= nsn; ++s) widest = std::max<std::int64_t>(widest, xsuper(s + 1) - xsuper(s));
      panel = widest < 2 ? 1 : widest;
    }
    std::int64_t lx_size = 0, rows_sum = 0, lindx_size = 0, maxcolcnt = 0, l0 = 0;
    supernode_sizes(n, cc, nsn, xsuper, panel, lx_size, rows_sum, lindx_size);
    for (std::int32_t c = 1; c <= n; ++c) {
      maxcolcnt = std::max(maxcolcnt, cc(c));
      l0 += cs.colcnt(c);
    }
    const std::int64_t nnz = S.iparm(kNnz);
    const std::int64_t threshold = S.iparm(kSplitThreshold);
    if (loud) {
      if (detect) say("   NOTE: panel size is automatically detecied: SM=", panel);
      say("   ns       =", nsn);
      say("   maxcolcnt=", maxcolcnt);
      say("   increase =", ratio(lx_size, nnz));
      say("   nsplit   =", threshold);
      std::int64_t root_width = 0, inner_width = 0, kids_max = 0, root_kids_max = 0;
      std::vector<std::int64_t> kids(static_cast<std::size_t>(nsn) + 1, 0);
      for (std::int32_t s = 1; s <= nsn; ++s)
        if (snparent(s) != 0) ++kids[static_cast<std::size_t>(snparent(s))];
      for (std::int32_t s = 1; s <= nsn; ++s) {
        const std::int64_t w = xsuper(s + 1) - xsuper(s);
        const std::int64_t k = kids[static_cast<std::size_t>(s)];
        kids_max = std::max(kids_max, k);
        if (snparent(s) == 0) {
          root_width = std::max(root_width, w);
          root_kids_max = std::max(root_kids_max, k);
        } else {
          inner_width = std::max(inner_width, w);
        }
      }
      say("   |Sm|     =", root_width);
      say("   max|Sj|  =", inner_width);
      // The most children of any supernode, then of any root.
      say("   max_kids =", kids_max);
      say("   max_kids =", root_kids_max);
    }

    // Cut the wide non-root supernodes; the pieces keep the rows of the whole.
    const Array1<std::int32_t> whole = xsuper;
    std::int32_t nsplit = 0;
    {
      std::int32_t new_nsn = nsn;
      Array1<std::int32_t> pieces;
      split_supernodes(nsn, xsuper, snparent, threshold, nsplit, new_nsn, pieces);
      if (nsplit > 0) {
        nsn = new_nsn;
        xsuper = std::move(pieces);
        supernode_parents(parent, nsn, xsuper, snparent);
        supernode_sizes(n, cc, nsn, xsuper, panel, lx_size, rows_sum, lindx_size);
      }
    }
    if (loud) {
      say("   ntarget  =", nsplit);
      say("   splns    =", nsn);
      say("   |A|      =", nnz);
      say("   |L0|     =", l0);
      say("   |Lx|     =", lx_size);
      say("   Lx blk   =", panel);
      say("   |L0|/|A| =", ratio(l0, nnz));
      say("   |Lx|/|A| =", ratio(lx_size, nnz));
      say("   |Lx|/|L0|=", ratio(lx_size, l0));
    }
    if (lx_size < 0) {
      status = kSkeldaOverflow;
      return;
    }

    // The row lists and the storage map. The rows below a piece [c, d] of a whole supernode
    // ending at e are d+1..e and the rows below e.
    Array1<std::int64_t> xlindx(static_cast<std::int64_t>(nsn) + 1, 1), xlnz(static_cast<std::int64_t>(nsn) + 1, 1);
    // lindx is appended to, not zeroed first: every entry is written once.
    Array1<std::int32_t> lindx;
    std::vector<std::int32_t>& rows = lindx.vec();
    rows.reserve(static_cast<std::size_t>(lindx_size));
    snode = Array1<std::int32_t>(n, 0);
    std::int32_t t = 1;
    for (std::int32_t s = 1; s <= nsn; ++s) {
      const std::int32_t c = xsuper(s), d = xsuper(s + 1) - 1;
      while (whole(t + 1) <= c) ++t;
      const std::int32_t e = whole(t + 1) - 1;
      for (std::int32_t r = d + 1; r <= e; ++r) rows.push_back(r);
      const std::span<const std::int32_t> below = cs.column(e);
      if (below.size() > 1) rows.insert(rows.end(), below.begin() + 1, below.end());
      const std::int64_t at = static_cast<std::int64_t>(rows.size()) + 1;
      xlindx(s + 1) = at;
      const std::int64_t size = sx2_size(d - c + 1, at - xlindx(s), panel);
      if (size < 0 || __builtin_add_overflow(xlnz(s), size, &xlnz(s + 1))) {
        status = kSkeldaOverflow;
        return;
      }
      for (std::int32_t k = c; k <= d; ++k) snode(k) = s;
    }
    if (lx_size != xlnz(static_cast<std::int64_t>(nsn) + 1) - 1) {
      status = kSkeldaOverflow;
      return;
    }
    cs = ColumnStructures{};
    Array1<std::int32_t> cflag(n, 0);
    Array1<double> lnz(lx_size, 0.0);

    S.perm = std::move(perm);
    S.iperm = std::move(iperm);
    S.xsuper = std::move(xsuper);
    S.snode = std::move(snode);
    S.snparent = std::move(snparent);
    S.xlnz = std::move(xlnz);
    S.xlindx = std::move(xlindx);
    S.lindx = std::move(lindx);
    S.lnz = std::move(lnz);
    S.cflag = std::move(cflag);
    if (detect) S.iparm(kPanelSize) = panel;
    S.iparm(kNsn) = nsn;
    S.iparm(kMaxcolcnt) = maxcolcnt;
    S.stage() = 20;
    S.iparm(kLnzAllocated) = lx_size;
    S.iparm(kLnzRowsSum) = rows_sum;
    S.iparm(kLindxSize) = lindx_size;
    S.iparm(kLnzEffective) = l0;
    S.rparm(53) = clock.cpu();
    S.rparm(54) = clock.wall();
    status = kSkeldaOk;
  } catch (const std::bad_alloc&) {
    status = kSkeldaNoTempMemory;
  } catch (const std::length_error&) {
    status = kSkeldaNoTempMemory;
  }
}

std::int32_t skelda_symfac_step(std::int32_t, const SkeldaArgs& args, std::int32_t verbose) {
  if (!args.neq || !args.ia || !args.ja) return kSkeldaLackOfArguments;
  std::int32_t status = kSkeldaOk;
  skelda_symfac(*args.neq, *args.ia, *args.ja, status, verbose);
  return status;
}

Sx2Layout skelda_layout() {
  const SkeldaState& S = skelda_state;
  Sx2Layout layout;
  if (!(S.xsuper && S.snode && S.xlindx && S.lindx && S.xlnz)) return layout;
  layout.n = static_cast<std::int32_t>(S.snode->size());
  layout.nsn = static_cast<std::int32_t>(S.xsuper->size() - 1);
  layout.panel = S.iparm(kPanelSize);
  layout.xsuper = &*S.xsuper;
  layout.snode = &*S.snode;
  layout.xlindx = &*S.xlindx;
  layout.lindx = &*S.lindx;
  layout.xlnz = &*S.xlnz;
  return layout;
}

// ---------------------------------------------------------------------------------------------
// Elements and relative indices.

std::int64_t sx2_element_position(const Sx2Layout& layout, std::int32_t s, std::int64_t r, std::int64_t c) {
  if (!layout.xsuper || !layout.xlindx || !layout.lindx || !layout.xlnz || s < 1 || s > layout.nsn ||
      layout.panel < 1)
    return 0;
  const std::int64_t first = layout.first(s), w = layout.width(s);
  if (c < first || c >= first + w || r < c) return 0;
  const std::int64_t rl = r - first + 1, cl = c - first + 1;
  if (rl <= w) return layout.diag_position(s, rl, cl);
  if (layout.panel_form(s)) return 0;
  const std::int64_t base = (*layout.xlindx)(s), m = layout.rows_below(s);
  for (std::int64_t k = 0; k < m; ++k)
    if ((*layout.lindx)(base + k) == r) return layout.below_position(s, k, cl);
  return 0;
}

void set_sx2_factor_element(const Sx2Layout& layout, Array1<double>& lnz, std::int32_t s, std::int64_t r,
                            std::int64_t c, double value) {
  const std::int64_t at = sx2_element_position(layout, s, r, c);
  if (at < 1 || at > lnz.size()) stop("ERROR: set_sx2_factor_element() Element not allocated");
  lnz(at) = value;
}

void set_sx2_factor_element(std::int32_t s, std::int64_t r, std::int64_t c, double value) {
  if (!skelda_state.lnz) stop("ERROR: set_sx2_factor_element() Element not allocated");
  set_sx2_factor_element(skelda_layout(), *skelda_state.lnz, s, r, c, value);
}

void set_relative_indices(std::span<const std::int32_t> rows, std::int32_t first, std::int32_t last,
                          std::span<const std::int32_t> list, std::span<std::int32_t> relidx) {
  merge_rows("set_relative_indices", rows, first, last, list, relidx,
             [](std::int64_t t, std::int64_t, std::int64_t total) { return total - t; });
}

void set_relative_indices1(std::span<const std::int32_t> rows, std::int32_t first, std::int32_t last,
                           std::span<const std::int32_t> list, std::span<std::int32_t> relidx) {
  merge_rows("set_relative_indices1", rows, first, last, list, relidx,
             [](std::int64_t t, std::int64_t, std::int64_t) { return t + 1; });
}

void set_relative_indices2(std::span<const std::int32_t> rows, std::span<const std::int32_t> list,
                           std::span<std::int32_t> relidx) {
  merge_rows("set_relative_indices2", rows, 1, 0, list, relidx,
             [](std::int64_t t, std::int64_t, std::int64_t) { return t + 1; });
}

}  // namespace mmekit
