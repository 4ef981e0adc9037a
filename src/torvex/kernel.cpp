// The sparse Cholesky kernel. See kernel.hpp for the factor form and the option numbers.
//
// Layout of the work array `is` (0-based cells; every real part starts at an even cell):
//   header (32 cells: sizes, offsets, stage, rank, determinants)
//   perm, invp                       n + 1 cells each; perm[new] = old, invp[old] = new (0-based)
//   xlnz                             n + 1: start of column j in lnz
//   xnzsub                           n + 1: start of the row subscripts of column j in nzsub
//   nzsub                            the compressed row subscripts, shared between columns
//   lnz                              off-diagonal values of the factor, by columns
//   diag                             n reals
//   link, first                      n cells each: column lists of the numeric factorisation
//   temp                             n reals, zero between uses
//   behind them, per option: temp2 (n reals) and the bucket of the matrix elements by column.
// Everything the kernel keeps between options lives there; only the statistics are outside.
#include "mmekit/torvex/kernel.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "mmekit/skelda/mmd.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/support/array.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/row_structure.hpp"
#include "mmekit/torvex/torvex.hpp"

namespace mmekit {

// ---- the work array ---------------------------------------------------------------------------

void TorvexWork::allocate(std::int64_t cells) {
  cells = std::max<std::int64_t>(cells, 2);
  std::int64_t bytes = (cells / 2 + 1) * 8;
  storage_ = std::make_unique<std::byte[]>(static_cast<std::size_t>(bytes));
  size_ = cells;
}

void TorvexWork::grow(std::int64_t cells) {
  if (!storage_) {
    allocate(cells);
    return;
  }
  std::int64_t old_bytes = (size_ / 2 + 1) * 8;
  std::unique_ptr<std::byte[]> old = std::move(storage_);
  allocate(cells);
  std::int64_t new_bytes = (size_ / 2 + 1) * 8;
  std::memcpy(storage_.get(), old.get(), static_cast<std::size_t>(std::min(old_bytes, new_bytes)));
}

void TorvexWork::release() {
  storage_.reset();
  size_ = 0;
}

namespace {

// ---- header -----------------------------------------------------------------------------------

enum Header : int {
  H_N = 0, H_NNZA, H_STAGE, H_NOFSUB, H_NNZL, H_RANK,
  H_PERM, H_INVP, H_XLNZ, H_XNZSUB, H_NZSUB, H_LNZ, H_DIAG, H_LINK, H_FIRST, H_TEMP, H_END,
  H_EMPTY, H_MAXNEED, H_MAGIC,
  H_DET = 20,   // two cells (a real)
  H_LDET = 22,  // two cells
  H_CELLS = 32
};
constexpr std::int32_t magic_value = 0x54525658;
// Stages recorded in the header.
enum Stage : int { S_NONE = 0, S_ORDERED = 1, S_SYMBOLIC = 2, S_FACTOR = 3 };

constexpr std::int64_t max_cells = std::numeric_limits<std::int32_t>::max();

std::int64_t even(std::int64_t c) { return c + (c & 1); }

double* real_at(std::int32_t* is, std::int64_t off) { return reinterpret_cast<double*>(is + off); }
void set_real(std::int32_t* is, int h, double v) { std::memcpy(is + h, &v, sizeof v); }

// A view of the parts of the work array after the symbolic stage.
struct Parts {
  std::int32_t n = 0;
  std::int32_t* perm = nullptr;
  std::int32_t* invp = nullptr;
  std::int32_t* xlnz = nullptr;
  std::int32_t* xnzsub = nullptr;
  std::int32_t* nzsub = nullptr;
  double* lnz = nullptr;
  double* diag = nullptr;
  std::int32_t* link = nullptr;
  std::int32_t* first = nullptr;
  double* temp = nullptr;
  std::int64_t end = 0;
};

Parts parts_of(std::int32_t* is) {
  Parts p;
  p.n = is[H_N];
  p.perm = is + is[H_PERM];
  p.invp = is + is[H_INVP];
  if (is[H_STAGE] >= S_SYMBOLIC) {
    p.xlnz = is + is[H_XLNZ];
    p.xnzsub = is + is[H_XNZSUB];
    p.nzsub = is + is[H_NZSUB];
    p.lnz = real_at(is, is[H_LNZ]);
    p.diag = real_at(is, is[H_DIAG]);
    p.link = is + is[H_LINK];
    p.first = is + is[H_FIRST];
    p.temp = real_at(is, is[H_TEMP]);
    p.end = is[H_END];
  }
  return p;
}

// Records a need and says whether the array is short of it.
bool lacks(TorvexKernelArgs& args, std::int64_t need) {
  std::int32_t* is = args.is;
  if (args.size >= H_CELLS) {
    std::int64_t cap = std::min<std::int64_t>(need, max_cells);
    if (cap > is[H_MAXNEED]) is[H_MAXNEED] = static_cast<std::int32_t>(cap);
  }
  if (need <= std::min(args.size, max_cells)) return false;
  args.need = need;
  return true;
}

// The flag for a lack of memory: the need itself where the code leaves room for it.
std::int32_t lack_flag(std::int32_t option, std::int64_t need) {
  if (need > 100 && need < 4000000) return static_cast<std::int32_t>(need);
  return option * 100 + 1;
}

std::int64_t ordering_end(std::int64_t n) { return even(H_CELLS + 2 * (n + 1)); }

// The structure of the matrix for an option that reads it (and its values when `values`):
// false, with the fault printed, when it cannot be walked safely.
bool sound_structure(std::int32_t option, std::int32_t n, std::span<const std::int32_t> ia,
                     std::span<const std::int32_t> ja, std::span<double> a, bool values) {
  RowStructureRules rules;
  if (values) rules.values = static_cast<std::int64_t>(a.size());
  const RowStructureFault f = check_row_structure(n, ia, ja, rules);
  if (f) print_free("torvex_kernel: option " + std::to_string(option) + ": " + describe(f));
  return !f;
}

std::int64_t count_elements(std::int32_t n, const std::int32_t* ia) { return n > 0 ? std::int64_t{ia[n]} - 1 : 0; }

// Both off-diagonal directions of the graph of ia/ja, in the numbering `map` (0-based new
// index of each 0-based old one; null: unchanged), without duplicates. xadj has n + 1 entries;
// adj needs 2 x (off-diagonal elements) cells; marker n cells. Returns the length of adj.
std::int64_t build_graph(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja,
                         const std::int32_t* map, std::int32_t* xadj, std::int32_t* adj,
                         std::int32_t* marker) {
  std::fill(xadj, xadj + n + 1, 0);
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) {
      std::int32_t c = ja[e] - 1;
      if (c == r) continue;
      std::int32_t pr = map ? map[r] : r, pc = map ? map[c] : c;
      ++xadj[pr + 1];
      ++xadj[pc + 1];
    }
  for (std::int32_t i = 0; i < n; ++i) xadj[i + 1] += xadj[i];
  // Fill using marker as the running position of each node.
  for (std::int32_t i = 0; i < n; ++i) marker[i] = xadj[i];
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) {
      std::int32_t c = ja[e] - 1;
      if (c == r) continue;
      std::int32_t pr = map ? map[r] : r, pc = map ? map[c] : c;
      adj[marker[pr]++] = pc;
      adj[marker[pc]++] = pr;
    }
  // Remove duplicates in place (a full form holds every pair twice).
  std::fill(marker, marker + n, -1);
  std::int32_t out = 0;
  std::int32_t start = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    std::int32_t end = xadj[i + 1];
    xadj[i] = out;
    for (std::int32_t k = start; k < end; ++k) {
      std::int32_t j = adj[k];
      if (marker[j] == i) continue;
      marker[j] = i;
      adj[out++] = j;
    }
    start = end;
  }
  xadj[n] = out;
  return out;
}

// ---- option 10: ordering -------------------------------------------------------------------

void set_ordering_header(std::int32_t* is, std::int32_t n, std::int64_t nnza) {
  is[H_N] = n;
  is[H_NNZA] = static_cast<std::int32_t>(nnza);
  is[H_STAGE] = S_ORDERED;
  is[H_PERM] = H_CELLS;
  is[H_INVP] = H_CELLS + n + 1;
  is[H_RANK] = 0;
  is[H_MAGIC] = magic_value;
}

void ordering(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, std::int32_t* perm_out,
              std::int32_t& flag, TorvexKernelArgs& args) {
  std::int32_t* is = args.is;
  std::int64_t nnza = count_elements(n, ia);
  // Graph and the minimum-degree work vectors.
  Array1<std::int32_t> xadj(n + 1), head(n), qsize(n), list(n), marker(std::max(n, 1));
  Array1<std::int32_t> invp(n), perm(n);
  std::int64_t offd = 0;
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) offd += (ja[e] - 1 != r);
  Array1<std::int32_t> adjncy(std::max<std::int64_t>(2 * offd, 1));
  std::int64_t len = build_graph(n, ia, ja, nullptr, xadj.data(), adjncy.data(), marker.data());
  (void)len;
  for (std::int32_t i = 1; i <= n + 1; ++i) xadj(i) += 1;
  for (auto& v : adjncy) v += 1;
  std::int32_t nofsub = 0;
  if (n > 0 && args.dense_rows_last) {
    // The graph without its dense rows gets the minimum-degree order, the dense rows come last.
    // The subscript count is then that of the reduced graph plus the dense rows' own block; no
    // later stage sizes anything by it.
    const std::int64_t dense = order_dense_rows_last(
        n, xadj, adjncy, dense_row_threshold(n, kDenseRowAlphaMmd),
        [&](std::int32_t rn, Array1<std::int32_t>& x, Array1<std::int32_t>& a, Array1<std::int32_t>& p,
            Array1<std::int32_t>& ip) {
          p.resize(rn);
          ip.resize(rn);
          mmd_genmmd(rn, x, a, ip, p, 0, head, qsize, list, marker, 9999999, nofsub);
        },
        perm, invp);
    nofsub = static_cast<std::int32_t>(
        std::min<std::int64_t>(nofsub + dense * (dense + 1) / 2, std::numeric_limits<std::int32_t>::max()));
  } else if (n > 0) {
    mmd_genmmd(n, xadj, adjncy, invp, perm, 0, head, qsize, list, marker, 9999999, nofsub);
  }
  set_ordering_header(is, n, nnza);
  std::int32_t* p = is + is[H_PERM];
  std::int32_t* q = is + is[H_INVP];
  for (std::int32_t k = 0; k < n; ++k) {
    p[k] = perm(k + 1) - 1;
    q[p[k]] = k;
  }
  is[H_NOFSUB] = nofsub;
  if (args.order_out) {
    if (!args.order_out->is_open()) {
      print_free("error in unit IOOR ");
      flag = torvex_flag_order_unit;
      return;
    }
    std::vector<std::int32_t> pv(static_cast<std::size_t>(n)), iv(static_cast<std::size_t>(n));
    for (std::int32_t k = 0; k < n; ++k) {
      pv[static_cast<std::size_t>(k)] = p[k] + 1;
      iv[static_cast<std::size_t>(k)] = q[k] + 1;
    }
    args.order_out->write(n, nofsub);
    args.order_out->write(pv);
    args.order_out->write(iv);
  }
  if (perm_out)
    for (std::int32_t k = 0; k < n; ++k) perm_out[k] = p[k] + 1;
}

// ---- option 70: ordering read from the order unit ------------------------------------------

void read_ordering(std::int32_t n, const std::int32_t* ia, std::int32_t* perm_out, std::int32_t& flag,
                   TorvexKernelArgs& args) {
  std::int32_t* is = args.is;
  auto unit_error = [&] {
    print_free("error in unit IOOR ");
    flag = torvex_flag_order_unit;
  };
  if (!args.order_in || !args.order_in->is_open()) return unit_error();
  std::int32_t found = 0, nofsub = 0;
  if (args.order_in->read(found, nofsub) != FramedStatus::ok) return unit_error();
  set_ordering_header(is, n, count_elements(n, ia));
  std::int32_t* p = is + is[H_PERM];
  std::int32_t* q = is + is[H_INVP];
  if (found == 0) {  // no permutation: the natural order
    for (std::int32_t k = 0; k < n; ++k) p[k] = q[k] = k;
    is[H_NOFSUB] = 0;
  } else if (found != n) {
    print_free("incorrect size of permutation vector");
    print_free("size ", found, " found; size ", n, " required");
    print_free("error in unit IOOR ");
    print_free("option no. ", 70, " not implemented");
    is[H_STAGE] = S_NONE;
    flag = torvex_flag_wrong_permutation;
    return;
  } else {
    std::vector<std::int32_t> pv(static_cast<std::size_t>(n)), iv(static_cast<std::size_t>(n));
    if (args.order_in->read(pv) != FramedStatus::ok || args.order_in->read(iv) != FramedStatus::ok) {
      is[H_STAGE] = S_NONE;
      return unit_error();
    }
    // A permutation must hold every equation once; the inverse is rebuilt from it.
    std::fill(q, q + n, -1);
    for (std::int32_t k = 0; k < n; ++k) {
      std::int32_t old = pv[static_cast<std::size_t>(k)] - 1;
      if (old < 0 || old >= n || q[old] != -1) {
        is[H_STAGE] = S_NONE;
        return unit_error();
      }
      p[k] = old;
      q[old] = k;
    }
    is[H_NOFSUB] = nofsub;
  }
  if (perm_out)
    for (std::int32_t k = 0; k < n; ++k) perm_out[k] = p[k] + 1;
}

// ---- option 20: symbolic factorisation ----------------------------------------------------

// Layout of the factor from the symbolic sizes; returns the end of temp.
std::int64_t factor_layout(std::int64_t n, std::int64_t struct_start, std::int64_t nofsub, std::int64_t nnzl,
                           std::int64_t* off /* nzsub, lnz, diag, link, first, temp */) {
  off[0] = struct_start;
  off[1] = even(struct_start + nofsub);
  off[2] = off[1] + 2 * nnzl;
  off[3] = off[2] + 2 * n;
  off[4] = off[3] + n;
  off[5] = even(off[4] + n);
  return off[5] + 2 * n;
}

// Cells behind the factor for the bucket of the matrix elements by column.
std::int64_t bucket_cells(std::int64_t n, std::int64_t nnza) { return even(nnza + n + 1); }

void symbolic(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, std::int32_t& flag,
              TorvexKernelArgs& args) {
  std::int32_t* is = args.is;
  std::int64_t nnza = count_elements(n, ia);
  std::int64_t offd = 0;
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) offd += (ja[e] - 1 != r);
  const std::int64_t xlnz_off = ordering_end(n);
  const std::int64_t xnzsub_off = xlnz_off + n + 1;
  const std::int64_t struct_start = even(xnzsub_off + n + 1);
  // Scratch: graph, elimination tree, marks, children lists.
  const std::int64_t g_xadj = struct_start;
  const std::int64_t g_adj = g_xadj + n + 1;
  const std::int64_t g_parent = g_adj + 2 * offd;
  const std::int64_t g_marker = g_parent + n;
  const std::int64_t g_count = g_marker + n;  // ancestors, then column counts, then child heads
  const std::int64_t g_next = g_count + n;    // child lists
  const std::int64_t g_nz = g_next + n;       // candidate subscripts
  if (lacks(args, g_nz)) {
    flag = lack_flag(20, args.need);
    return;
  }
  std::int32_t* perm = is + is[H_PERM];
  std::int32_t* invp = is + is[H_INVP];
  (void)perm;
  std::int32_t* xadj = is + g_xadj;
  std::int32_t* adj = is + g_adj;
  std::int32_t* parent = is + g_parent;
  std::int32_t* marker = is + g_marker;
  std::int32_t* count = is + g_count;
  std::int32_t* next = is + g_next;
  build_graph(n, ia, ja, invp, xadj, adj, marker);

  // Elimination tree (with path compression through the ancestor vector in `count`).
  std::int32_t* ancestor = count;
  for (std::int32_t i = 0; i < n; ++i) {
    parent[i] = -1;
    ancestor[i] = -1;
    for (std::int32_t t = xadj[i]; t < xadj[i + 1]; ++t) {
      std::int32_t k = adj[t];
      if (k >= i) continue;
      while (ancestor[k] != -1 && ancestor[k] != i) {
        std::int32_t up = ancestor[k];
        ancestor[k] = i;
        k = up;
      }
      if (ancestor[k] == -1) {
        ancestor[k] = i;
        parent[k] = i;
      }
    }
  }
  // Column counts by row subtrees: row i of the factor is the union of the tree paths from
  // the nonzeros of row i of A up to i.
  std::int32_t* colcount = count;
  std::fill(colcount, colcount + n, 0);
  std::fill(marker, marker + n, -1);
  std::int64_t nnzl = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    marker[i] = i;
    for (std::int32_t t = xadj[i]; t < xadj[i + 1]; ++t) {
      std::int32_t k = adj[t];
      if (k >= i) continue;
      while (marker[k] != i) {
        ++colcount[k];
        ++nnzl;
        marker[k] = i;
        k = parent[k];
      }
    }
  }
  // The whole need: scratch with the candidate subscripts (at most nnzl), and the factor with
  // the loading bucket of the numeric stage, so that the numeric stage never runs short.
  std::int64_t off[6];
  const std::int64_t factor_end = factor_layout(n, struct_start, nnzl, nnzl, off);
  const std::int64_t need = std::max(g_nz + nnzl, factor_end + bucket_cells(n, nnza));
  if (lacks(args, need)) {
    flag = lack_flag(20, args.need);
    return;
  }
  std::int32_t* xlnz = is + xlnz_off;
  std::int32_t* xnzsub = is + xnzsub_off;
  std::int32_t* nz = is + g_nz;
  // Children lists of the tree (heads reuse `count`).
  std::int32_t* child = count;
  std::fill(child, child + n, -1);
  for (std::int32_t k = n - 1; k >= 0; --k) {
    next[k] = -1;
    if (parent[k] >= 0) {
      next[k] = child[parent[k]];
      child[parent[k]] = k;
    }
  }
  // Structure of each column: its entries in A below the diagonal and those of its children;
  // a column whose structure is that of a child less the child's first row, or the tail of the
  // last stored list, shares those subscripts.
  std::fill(marker, marker + n, -1);
  std::int64_t nzbeg = 0, nzend = 0;
  xlnz[0] = 0;
  for (std::int32_t k = 0; k < n; ++k) {
    std::int64_t base = nzend;
    std::int64_t len = 0;
    marker[k] = k;
    for (std::int32_t t = xadj[k]; t < xadj[k + 1]; ++t) {
      std::int32_t r = adj[t];
      if (r > k && marker[r] != k) {
        marker[r] = k;
        nz[base + len++] = r;
      }
    }
    for (std::int32_t m = child[k]; m != -1; m = next[m]) {
      std::int32_t cnt = xlnz[m + 1] - xlnz[m];
      const std::int32_t* sub = nz + xnzsub[m];
      for (std::int32_t t = 0; t < cnt; ++t) {
        std::int32_t r = sub[t];
        if (marker[r] != k) {
          marker[r] = k;
          nz[base + len++] = r;
        }
      }
    }
    std::sort(nz + base, nz + base + len);
    xlnz[k + 1] = static_cast<std::int32_t>(xlnz[k] + len);
    bool shared = false;
    if (len == 0) {
      xnzsub[k] = static_cast<std::int32_t>(nzend);
      shared = true;
    }
    for (std::int32_t m = child[k]; !shared && m != -1; m = next[m]) {
      if (xlnz[m + 1] - xlnz[m] - 1 == len) {
        xnzsub[k] = xnzsub[m] + 1;
        shared = true;
      }
    }
    if (!shared && nzend > nzbeg) {
      std::int32_t* seg = nz + nzbeg;
      std::int32_t* hit = std::lower_bound(seg, nz + nzend, nz[base]);
      if (hit != nz + nzend && *hit == nz[base] && (nz + nzend) - hit == len &&
          std::equal(hit, nz + nzend, nz + base)) {
        xnzsub[k] = static_cast<std::int32_t>(hit - nz);
        shared = true;
      }
    }
    if (!shared) {
      xnzsub[k] = static_cast<std::int32_t>(base);
      nzbeg = base;
      nzend = base + len;
    }
  }
  xnzsub[n] = static_cast<std::int32_t>(nzend);
  const std::int64_t nofsub = nzend;
  // The subscripts move down to their place behind xnzsub; the rest of the scratch is free.
  std::memmove(is + struct_start, nz, static_cast<std::size_t>(nofsub) * sizeof(std::int32_t));
  const std::int64_t end = factor_layout(n, struct_start, nofsub, nnzl, off);
  is[H_NNZA] = static_cast<std::int32_t>(nnza);
  is[H_NOFSUB] = static_cast<std::int32_t>(nofsub);
  is[H_NNZL] = static_cast<std::int32_t>(nnzl);
  is[H_XLNZ] = static_cast<std::int32_t>(xlnz_off);
  is[H_XNZSUB] = static_cast<std::int32_t>(xnzsub_off);
  is[H_NZSUB] = static_cast<std::int32_t>(off[0]);
  is[H_LNZ] = static_cast<std::int32_t>(off[1]);
  is[H_DIAG] = static_cast<std::int32_t>(off[2]);
  is[H_LINK] = static_cast<std::int32_t>(off[3]);
  is[H_FIRST] = static_cast<std::int32_t>(off[4]);
  is[H_TEMP] = static_cast<std::int32_t>(off[5]);
  is[H_END] = static_cast<std::int32_t>(end);
  is[H_STAGE] = S_SYMBOLIC;
  is[H_RANK] = 0;
  double* temp = real_at(is, off[5]);
  std::fill(temp, temp + n, 0.0);
}

// ---- bucket of the matrix elements by the column of the factor ----------------------------

// Sorts the element numbers e (0-based positions of ja) by the lower of the two permuted
// indices, in two counting passes. start has n + 1 cells, order nnza cells.
void bucket_elements(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, const std::int32_t* invp,
                     std::int32_t* start, std::int32_t* order) {
  std::fill(start, start + n + 1, 0);
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) {
      std::int32_t lo = std::min(invp[r], invp[ja[e] - 1]);
      ++start[lo + 1];
    }
  for (std::int32_t i = 0; i < n; ++i) start[i + 1] += start[i];
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) {
      std::int32_t lo = std::min(invp[r], invp[ja[e] - 1]);
      order[start[lo]++] = static_cast<std::int32_t>(e);
    }
  for (std::int32_t i = n; i > 0; --i) start[i] = start[i - 1];
  start[0] = 0;
}

// ---- option 40: numeric factorisation -------------------------------------------------------

void numeric(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, const double* a, std::int32_t& flag,
             TorvexKernelArgs& args, TorvexStatistics& st) {
  std::int32_t* is = args.is;
  Parts P = parts_of(is);
  const std::int64_t nnza = count_elements(n, ia);
  if (lacks(args, P.end + bucket_cells(n, nnza))) {
    flag = lack_flag(40, args.need);
    return;
  }
  std::int32_t* start = is + P.end;
  std::int32_t* order = start + n + 1;
  const std::int64_t nnzl = is[H_NNZL];
  std::fill(P.lnz, P.lnz + nnzl, 0.0);
  std::fill(P.diag, P.diag + n, 0.0);

  // Loading: each element goes to the column of the lower permuted index, by a map of the
  // column's rows to their positions (held in `first`).
  bucket_elements(n, ia, ja, P.invp, start, order);
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t* sub = P.nzsub + P.xnzsub[j];
    for (std::int32_t q = P.xlnz[j]; q < P.xlnz[j + 1]; ++q) P.first[sub[q - P.xlnz[j]]] = q;
    for (std::int32_t t = start[j]; t < start[j + 1]; ++t) {
      std::int32_t e = order[t];
      // the row of element e, by a search of ia
      const std::int32_t r = static_cast<std::int32_t>(std::upper_bound(ia, ia + n + 1, e + 1) - ia) - 1;
      std::int32_t hi = std::max(P.invp[r], P.invp[ja[e] - 1]);
      if (hi == j) {
        P.diag[j] = a[e];
        continue;
      }
      const std::int32_t q = P.first[hi];
      if (q < P.xlnz[j] || q >= P.xlnz[j + 1] || sub[q - P.xlnz[j]] != hi) {
        flag = torvex_flag_pattern_changed;  // not the structure that was analysed
        return;
      }
      P.lnz[q] = a[e];
    }
  }
  // Equations without any nonzero element.
  std::fill(P.link, P.link + n, 0);
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e)
      if (a[e] != 0.0) P.link[r] = P.link[ja[e] - 1] = 1;
  std::int32_t empty = 0;
  for (std::int32_t r = 0; r < n; ++r) empty += (P.link[r] == 0);
  is[H_EMPTY] = empty;
  if (empty > 0) print_free(" WARNING! ", empty, " empty rows");

  // Left-looking factorisation. link[j] heads the list of columns that update column j;
  // first[k] is the position in lnz of the next entry of column k to be used.
  std::int32_t* link = P.link;
  std::int32_t* first = P.first;
  double* lnz = P.lnz;
  double* temp = P.temp;
  const std::int32_t* xlnz = P.xlnz;
  const std::int32_t* xnzsub = P.xnzsub;
  const std::int32_t* nzsub = P.nzsub;
  std::fill(link, link + n, -1);
  std::fill(temp, temp + n, 0.0);
  std::int32_t rank = 0;
  double ops = 0;
  for (std::int32_t j = 0; j < n; ++j) {
    double s = 0.0;
    std::int32_t k = link[j];
    while (k != -1) {
      const std::int32_t nextk = link[k];
      const std::int32_t p = first[k];
      const double v = lnz[p];
      s += v * v;
      ops += 1;
      const std::int32_t pend = xlnz[k + 1];
      if (p + 1 < pend) {
        first[k] = p + 1;
        const std::int32_t* sub = nzsub + xnzsub[k] + (p + 1 - xlnz[k]);
        const std::int32_t i = sub[0];
        link[k] = link[i];
        link[i] = k;
        const double* l = lnz + p + 1;
        const std::int32_t cnt = pend - (p + 1);
        std::int32_t t = 0;
        for (; t + 1 < cnt; t += 2) {
          temp[sub[t]] += l[t] * v;
          temp[sub[t + 1]] += l[t + 1] * v;
        }
        if (t < cnt) temp[sub[t]] += l[t] * v;
      }
      k = nextk;
    }
    const double d = P.diag[j];
    double scale;
    if (d < torvex_small || d - s < d * torvex_tol) {
      P.diag[j] = 0.0;
      scale = 0.0;
    } else {
      P.diag[j] = std::sqrt(d - s);
      ++rank;
      scale = 1.0 / P.diag[j];
    }
    const std::int32_t p0 = xlnz[j], p1 = xlnz[j + 1];
    if (p1 > p0) {
      first[j] = p0;
      const std::int32_t* sub = nzsub + xnzsub[j];
      const std::int32_t i = sub[0];
      link[j] = link[i];
      link[i] = j;
      for (std::int32_t q = p0; q < p1; ++q) {
        const std::int32_t r = sub[q - p0];
        lnz[q] = (lnz[q] - temp[r]) * scale;
        temp[r] = 0.0;
      }
    }
  }
  // Conversion: diag = 1 / d^2, off-diagonal l / (-d); zero pivots keep their zeros.
  for (std::int32_t j = 0; j < n; ++j) {
    const double d = P.diag[j];
    if (d == 0.0) continue;
    P.diag[j] = 1.0 / (d * d);
    const double f = -1.0 / d;
    for (std::int32_t q = xlnz[j]; q < xlnz[j + 1]; ++q) lnz[q] *= f;
  }
  is[H_RANK] = rank;
  is[H_STAGE] = S_FACTOR;
  st.calls_numeric += 1;
  st.operations += ops;
}

// ---- solves ----------------------------------------------------------------------------------

void forward_pass(const Parts& P, double* x, std::int32_t j) {
  const double xj = x[j];
  if (xj == 0.0) return;
  const std::int32_t p0 = P.xlnz[j], p1 = P.xlnz[j + 1];
  const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
  std::int32_t q = p0;
  for (; q + 1 < p1; q += 2) {
    x[sub[q]] += P.lnz[q] * xj;
    x[sub[q + 1]] += P.lnz[q + 1] * xj;
  }
  if (q < p1) x[sub[q]] += P.lnz[q] * xj;
}

void backward_pass(const Parts& P, double* x, std::int32_t j) {
  const std::int32_t p0 = P.xlnz[j], p1 = P.xlnz[j + 1];
  const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
  double s0 = x[j], s1 = 0.0;
  std::int32_t q = p0;
  for (; q + 1 < p1; q += 2) {
    s0 += P.lnz[q] * x[sub[q]];
    s1 += P.lnz[q + 1] * x[sub[q + 1]];
  }
  if (q < p1) s0 += P.lnz[q] * x[sub[q]];
  x[j] = s0 + s1;
}

void solve(std::int32_t n, double* rhs, const Parts& P) {
  double* x = P.temp;
  for (std::int32_t k = 0; k < n; ++k) x[k] = rhs[P.perm[k]];
  for (std::int32_t j = 0; j < n; ++j) forward_pass(P, x, j);
  for (std::int32_t j = 0; j < n; ++j) x[j] *= P.diag[j];
  for (std::int32_t j = n - 1; j >= 0; --j) backward_pass(P, x, j);
  for (std::int32_t k = 0; k < n; ++k) {
    rhs[P.perm[k]] = x[k];
    x[k] = 0.0;
  }
}

// Sparse solve: the forward pass on the tree paths from the right-hand side's nonzeros, the
// backward pass on those from the wanted solution entries.
void sparse_solve(std::int32_t n, double* rhs, const std::int32_t* rlist, std::int32_t rcount,
                  const std::int32_t* slist, std::int32_t scount, std::int32_t& flag, TorvexKernelArgs& args,
                  TorvexStatistics& st, std::int32_t option) {
  std::int32_t* is = args.is;
  Parts P = parts_of(is);
  if (lacks(args, P.end + 2 * std::int64_t{n})) {
    flag = lack_flag(option, args.need);
    return;
  }
  for (std::int32_t t = 0; t < rcount; ++t)
    if (rlist[t] < 1 || rlist[t] > n) { flag = torvex_flag_bad_structure; return; }
  for (std::int32_t t = 0; t < scount; ++t)
    if (slist[t] < 1 || slist[t] > n) { flag = torvex_flag_bad_structure; return; }
  std::int32_t* mark = is + P.end;  // 1: forward set, 2: backward set
  std::int32_t* fnodes = P.link;
  std::int32_t* bnodes = P.first;
  std::fill(mark, mark + n, 0);
  auto parent = [&](std::int32_t j) {
    return P.xlnz[j + 1] > P.xlnz[j] ? P.nzsub[P.xnzsub[j]] : -1;
  };
  auto collect = [&](const std::int32_t* list, std::int32_t count, int bit, std::int32_t* nodes,
                     double& longest) {
    std::int32_t m = 0;
    longest = 0;
    for (std::int32_t t = 0; t < count; ++t) {
      std::int32_t j = P.invp[list[t] - 1];
      double length = 0;
      for (std::int32_t u = j; u != -1; u = parent(u)) {
        length += 1;
        if (!(mark[u] & bit)) {
          mark[u] |= bit;
          nodes[m++] = u;
        }
      }
      longest = std::max(longest, length);
    }
    std::sort(nodes, nodes + m);
    return m;
  };
  double flong = 0, blong = 0;
  const std::int32_t nf = collect(rlist, rcount, 1, fnodes, flong);
  double* x = P.temp;
  for (std::int32_t t = 0; t < rcount; ++t) x[P.invp[rlist[t] - 1]] = rhs[rlist[t] - 1];
  for (std::int32_t t = 0; t < nf; ++t) forward_pass(P, x, fnodes[t]);
  for (std::int32_t t = 0; t < nf; ++t) x[fnodes[t]] *= P.diag[fnodes[t]];
  const std::int32_t nb = collect(slist, scount, 2, bnodes, blong);
  for (std::int32_t t = nb - 1; t >= 0; --t) backward_pass(P, x, bnodes[t]);
  for (std::int32_t t = 0; t < scount; ++t) rhs[slist[t] - 1] = x[P.invp[slist[t] - 1]];
  for (std::int32_t t = 0; t < nf; ++t) x[fnodes[t]] = 0.0;
  for (std::int32_t t = 0; t < nb; ++t) x[bnodes[t]] = 0.0;
  st.calls_sparse_solve += 1;
  st.max_nodes = std::max({st.max_nodes, double(nf), double(nb)});
  st.max_path = std::max({st.max_path, flong, blong});
  st.sum_fnodes += nf;
  st.sum_bnodes += nb;
  st.sum_fpath += flong;
  st.sum_bpath += blong;
}

// ---- products with the factor C (P A P' = C C') -------------------------------------------

// rhs (original order) -> C^-1 P rhs (factor order).
void mult_inverse_factor(std::int32_t n, double* rhs, const Parts& P) {
  double* x = P.temp;
  for (std::int32_t k = 0; k < n; ++k) x[k] = rhs[P.perm[k]];
  for (std::int32_t j = 0; j < n; ++j) forward_pass(P, x, j);
  for (std::int32_t j = 0; j < n; ++j) {
    rhs[j] = x[j] * std::sqrt(P.diag[j]);
    x[j] = 0.0;
  }
}

// rhs (factor order) -> P' C rhs (original order).
void mult_factor(std::int32_t n, double* rhs, const Parts& P) {
  double* x = P.temp;
  for (std::int32_t j = 0; j < n; ++j) x[j] = P.diag[j] > 0.0 ? rhs[j] / std::sqrt(P.diag[j]) : 0.0;
  for (std::int32_t j = n - 1; j >= 0; --j) {
    const double xj = x[j];
    if (xj == 0.0) continue;
    const std::int32_t p0 = P.xlnz[j];
    const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
    for (std::int32_t q = p0; q < P.xlnz[j + 1]; ++q) x[sub[q]] -= P.lnz[q] * xj;
  }
  for (std::int32_t k = 0; k < n; ++k) {
    rhs[P.perm[k]] = x[k];
    x[k] = 0.0;
  }
}

// ---- option 56: check of a solution --------------------------------------------------------

void check_solution(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, const double* a,
                    const double* b, const double* x, double tolerance, const Parts& P) {
  double* y = P.temp;
  std::fill(y, y + n, 0.0);
  for (std::int32_t r = 0; r < n; ++r)
    for (std::int64_t e = ia[r] - 1; e < ia[r + 1] - 1; ++e) {
      std::int32_t c = ja[e] - 1;
      if (c < r) continue;  // upper form; the lower half of a full form is its mirror
      y[r] += a[e] * x[c];
      if (c != r) y[c] += a[e] * x[r];
    }
  double dev = 0.0, bmax = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    dev = std::max(dev, std::abs(y[i] - b[i]));
    bmax = std::max(bmax, std::abs(b[i]));
    y[i] = 0.0;
  }
  const double allowed = tolerance * std::max(1.0, bmax);
  if (!(dev <= allowed)) {
    print_free("ERROR in CHECKB: not accurate solution");
    print_free("observed deviation = ", dev);
    print_free("maximum allowed    = ", allowed);
  }
}

// ---- options 60/61: sparse inverse --------------------------------------------------------

void inverse(std::int32_t n, const std::int32_t* ia, const std::int32_t* ja, double* a, std::int32_t& flag,
             TorvexKernelArgs& args, TorvexStatistics& st, bool shared) {
  std::int32_t* is = args.is;
  Parts P = parts_of(is);
  const std::int64_t nnza = count_elements(n, ia);
  const std::int64_t temp2_off = P.end;
  const std::int64_t bucket_off = temp2_off + 2 * std::int64_t{n};
  const std::int64_t marker_off = bucket_off + bucket_cells(n, nnza);
  const std::int64_t need = shared ? marker_off : marker_off + n;
  if (lacks(args, need)) {
    flag = lack_flag(shared ? 61 : 60, args.need);
    return;
  }
  double* temp = P.temp;
  double* temp2 = real_at(is, temp2_off);
  std::int32_t* marker = shared ? P.first : is + marker_off;
  double* lnz = P.lnz;
  double* diag = P.diag;
  // The elements by the column of the factor they come back to. Each must have its place in
  // that column: a pattern that changed since the symbolic stage would get values that were
  // never computed, so it is refused before anything is overwritten.
  std::int32_t* start = is + bucket_off;
  std::int32_t* order = start + n + 1;
  bucket_elements(n, ia, ja, P.invp, start, order);
  auto row_of = [&](std::int32_t e) {
    return static_cast<std::int32_t>(std::upper_bound(ia, ia + n + 1, e + 1) - ia) - 1;
  };
  std::fill(marker, marker + n, -1);
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t p0 = P.xlnz[j], p1 = P.xlnz[j + 1];
    const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
    for (std::int32_t q = p0; q < p1; ++q) marker[sub[q]] = j;
    for (std::int32_t t = start[j]; t < start[j + 1]; ++t) {
      const std::int32_t e = order[t];
      const std::int32_t hi = std::max(P.invp[row_of(e)], P.invp[ja[e] - 1]);
      if (hi != j && marker[hi] != j) {
        flag = torvex_flag_pattern_changed;
        return;
      }
    }
  }
  std::fill(temp2, temp2 + n, 0.0);
  std::fill(temp, temp + n, 0.0);
  std::fill(marker, marker + n, -1);
  // Takahashi's recursion from the last column: z(i,j) = sum over the pattern of column j of
  // l(k,j) z(i,k), and z(j,j) = diag(j) + sum l(i,j) z(i,j). Column j of L sits in temp; the
  // walk of column i of Z adds z(r,i) to both z(i,j) (as k = r) and z(r,j) (as k = i).
  for (std::int32_t j = n - 1; j >= 0; --j) {
    const std::int32_t p0 = P.xlnz[j], p1 = P.xlnz[j + 1];
    const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
    for (std::int32_t q = p0; q < p1; ++q) {
      temp[sub[q]] = lnz[q];
      marker[sub[q]] = j;
    }
    for (std::int32_t q = p0; q < p1; ++q) {
      const std::int32_t i = sub[q];
      const double li = temp[i];
      double acc = li * diag[i];
      const std::int32_t c0 = P.xlnz[i], c1 = P.xlnz[i + 1];
      const std::int32_t* csub = P.nzsub + P.xnzsub[i] - c0;
      for (std::int32_t t = c0; t < c1; ++t) {
        const std::int32_t r = csub[t];
        if (marker[r] != j) continue;
        const double z = lnz[t];
        acc += temp[r] * z;
        temp2[r] += li * z;
      }
      temp2[i] += acc;
    }
    double zjj = diag[j];
    for (std::int32_t q = p0; q < p1; ++q) {
      const std::int32_t i = sub[q];
      const double zij = temp2[i];
      zjj += temp[i] * zij;
      lnz[q] = zij;
      temp2[i] = 0.0;
      temp[i] = 0.0;
    }
    diag[j] = zjj;
  }
  // Back to the positions of ia/ja by the buckets, each column of Z scattered into temp by rows.
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t p0 = P.xlnz[j], p1 = P.xlnz[j + 1];
    const std::int32_t* sub = P.nzsub + P.xnzsub[j] - p0;
    for (std::int32_t q = p0; q < p1; ++q) temp[sub[q]] = lnz[q];
    for (std::int32_t t = start[j]; t < start[j + 1]; ++t) {
      const std::int32_t e = order[t];
      const std::int32_t hi = std::max(P.invp[row_of(e)], P.invp[ja[e] - 1]);
      a[e] = hi == j ? diag[j] : temp[hi];
    }
    for (std::int32_t q = p0; q < p1; ++q) temp[sub[q]] = 0.0;
  }
  // The factor is gone: the structure stays for a new numeric stage.
  is[H_STAGE] = S_SYMBOLIC;
  st.calls_inverse += 1;
}

// ---- option 80: statistics -------------------------------------------------------------------

void statistics(const TorvexKernelArgs& args, const TorvexStatistics& st) {
  const std::int32_t* is = args.is;
  const bool have = is && args.size >= H_CELLS && is[H_MAGIC] == magic_value;
  auto h = [&](int k) -> std::int64_t { return have ? is[k] : 0; };
  const std::int64_t nzl = have && is[H_STAGE] >= S_SYMBOLIC ? h(H_NNZL) + h(H_N) : 0;
  auto avg = [&](double s) { return st.calls_sparse_solve > 0 ? s / st.calls_sparse_solve : 0.0; };
  // The counters are whole numbers held as reals; beyond the range of i8 they are not counts.
  auto count = [](double v) -> std::int64_t {
    return v >= -9.2e18 && v <= 9.2e18 ? static_cast<std::int64_t>(v) : std::int64_t{0};
  };
  const double total = st.time_order + st.time_symbolic + st.time_numeric + st.time_solve +
                       st.time_sparse_solve + st.time_inverse + st.time_other;
  static const Format head("(1x,46('*')/'               **** TORVEX ***'/1x,46('*')/'              SPARSE STATISTICS')");
  static const Format counts("(a,i12)"), averages("(a,f12.2)"), total_time("(a,f11.3)"), times("(a,f12.3)");
  std::ostream& o = out();
  o << head.write(FormatList());
  o << counts.write(FormatList("      DIMENSION OF MATRIX     =", h(H_N), "      RANK                    =", h(H_RANK),
                               "      STORAGE AVAILABLE       =", args.size, "      MAXIMUM NEEDED          =",
                               h(H_MAXNEED), "      NZE IN UPPER TRIANGULAR =", h(H_NNZA),
                               "      NZE IN FACTOR           =", nzl, "      NO. OF CALLS NUM FACT   =",
                               count(st.calls_numeric), "      NO. OF CALLS SOLVE      =", count(st.calls_solve),
                               "      NO. OF CALLS SPARS SOLV =", count(st.calls_sparse_solve),
                               "      NO. OF CALLS DET / LDET =", count(st.calls_det),
                               "      NO. OF CALLS SPARS INV  =", count(st.calls_inverse),
                               "      MAX NO. NODES           =", count(st.max_nodes),
                               "      MAX PATH LENGTH         =", count(st.max_path)));
  o << averages.write(FormatList("      AVG NO. NODES FPATH     =", avg(st.sum_fnodes), "      AVG NO. NODES BPATH     =",
                                 avg(st.sum_bnodes), "      AVG FPATH LENGTH        =", avg(st.sum_fpath),
                                 "      AVG BPATH LENGTH        =", avg(st.sum_bpath)));
  o << total_time.write(FormatList("      TOTAL CPU TIME IN TORVEX =", total));
  o << times.write(FormatList("      TIME FOR FINDING ORDER  =", st.time_order, "      TIME FOR SYMBOLIC FAC   =",
                              st.time_symbolic, "      TIME FOR NUMERICAL FAC  =", st.time_numeric,
                              "      TIME FOR SOLVE          =", st.time_solve, "      TIME FOR SPARSE SOLVE   =",
                              st.time_sparse_solve, "      TIME FOR SPARSE INVERSE =", st.time_inverse));
}

// ---- options 72 to 75: copies of the structure and the factor -------------------------------

// The check sum of a saved work array: its 8-byte words (and a last 4-byte one) mixed in
// turn. Every step is one-to-one in the word and in the sum so far, so a change of any one
// word always shows.
std::uint64_t image_sum(const unsigned char* bytes, std::uint64_t size) {
  std::uint64_t h = 0x9e3779b97f4a7c15ull ^ size;
  auto mix = [&h](std::uint64_t w) {
    h = (h ^ w) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  };
  std::uint64_t k = 0;
  for (; k + 8 <= size; k += 8) {
    std::uint64_t w;
    std::memcpy(&w, bytes + k, 8);
    mix(w);
  }
  if (k < size) {
    std::uint64_t w = 0;
    std::memcpy(&w, bytes + k, static_cast<std::size_t>(size - k));
    mix(w);
  }
  return h;
}

void copy_out(std::int32_t option, std::int32_t& flag, TorvexKernelArgs& args) {
  std::int32_t* is = args.is;
  const std::int64_t used = is[H_STAGE] >= S_SYMBOLIC ? is[H_END] : ordering_end(is[H_N]);
  if (option == 72) {
    if (!args.is2 || args.size2 < used) {
      flag = option * 100 + 1;
      return;
    }
    std::memcpy(args.is2, is, static_cast<std::size_t>(used) * sizeof(std::int32_t));
    return;
  }
  if (!args.save_unit || !args.save_unit->is_open()) {
    flag = option * 100 + 1;
    return;
  }
  // Two records: the number of cells with the check sum of their bytes, then the cells.
  const std::uint64_t bytes = static_cast<std::uint64_t>(used) * sizeof(std::int32_t);
  const std::int64_t u = used;
  args.save_unit->write(u, image_sum(reinterpret_cast<const unsigned char*>(is), bytes));
  args.save_unit->write_bytes(is, bytes);
}

// Why a saved work array (of option 72 or 74), given as `used` cells at `bytes`, cannot be
// taken back, or "" when it can. Every size and offset of its header must be the one that the
// layout gives for its order and sizes, the permutation must be one with its inverse beside it,
// and the structure of the factor must stay inside its arrays, the row subscripts of each
// column rising below the diagonal. The values are not judged.
std::string damaged_image(const unsigned char* bytes, std::int64_t used) {
  auto cell = [bytes](std::int64_t k) {
    std::int32_t v;
    std::memcpy(&v, bytes + k * 4, 4);
    return std::int64_t{v};
  };
  auto say = [](const auto&... parts) {
    std::string t;
    ((t += [](const auto& p) {
       if constexpr (std::is_arithmetic_v<std::decay_t<decltype(p)>>)
         return std::to_string(p);
       else
         return std::string(p);
     }(parts)),
     ...);
    return t;
  };
  if (used < H_CELLS) return say("it holds ", used, " cells, fewer than its header");
  if (cell(H_MAGIC) != magic_value) return "it is not a work array of this package";
  const std::int64_t n = cell(H_N), stage = cell(H_STAGE);
  if (n < 0) return say("the order ", n, " is negative");
  if (stage < S_ORDERED || stage > S_FACTOR) return say("the stage ", stage, " is unknown");
  if (cell(H_NNZA) < 0) return say("the element count ", cell(H_NNZA), " is negative");
  if (cell(H_RANK) < 0 || cell(H_RANK) > n) return say("the rank ", cell(H_RANK), " is outside 0..", n);
  if (cell(H_EMPTY) < 0 || cell(H_EMPTY) > n) return say("the count of empty rows ", cell(H_EMPTY), " is outside 0..", n);
  std::int64_t want_used = ordering_end(n);
  std::vector<std::pair<int, std::int64_t>> offsets = {{H_PERM, H_CELLS}, {H_INVP, H_CELLS + n + 1}};
  std::int64_t off[6] = {};
  const std::int64_t nofsub = cell(H_NOFSUB), nnzl = cell(H_NNZL);
  if (stage >= S_SYMBOLIC) {
    if (nofsub < 0 || nnzl < 0)
      return say("a size of the factor is negative (", nofsub, " subscripts, ", nnzl, " values)");
    const std::int64_t xlnz_off = ordering_end(n), xnzsub_off = xlnz_off + n + 1;
    want_used = factor_layout(n, even(xnzsub_off + n + 1), nofsub, nnzl, off);
    offsets.insert(offsets.end(), {{H_XLNZ, xlnz_off}, {H_XNZSUB, xnzsub_off}, {H_NZSUB, off[0]}, {H_LNZ, off[1]},
                                   {H_DIAG, off[2]}, {H_LINK, off[3]}, {H_FIRST, off[4]}, {H_TEMP, off[5]},
                                   {H_END, want_used}});
  }
  for (const auto& [h, want] : offsets)
    if (cell(h) != want) return say("header cell ", h, " holds ", cell(h), " where its sizes give ", want);
  if (used != want_used) return say("it holds ", used, " cells where its sizes give ", want_used);
  // perm[new] = old and invp[old] = new, both 0-based: each must undo the other.
  for (std::int64_t k = 0; k < n; ++k) {
    const std::int64_t p = cell(H_CELLS + k);
    if (p < 0 || p >= n || cell(H_CELLS + n + 1 + p) != k) return "the permutation and its inverse do not match";
  }
  if (stage < S_SYMBOLIC) return {};
  const std::int64_t xlnz = ordering_end(n), xnzsub = xlnz + n + 1;
  if (cell(xlnz) != 0 || cell(xlnz + n) != nnzl) return "the columns of the factor do not fill it from its start";
  for (std::int64_t j = 0; j < n; ++j) {
    const std::int64_t len = cell(xlnz + j + 1) - cell(xlnz + j), first = cell(xnzsub + j);
    if (len < 0) return say("column ", j + 1, " of the factor has a negative length");
    if (first < 0 || first + len > nofsub) return say("the subscripts of column ", j + 1, " lie outside the stored ones");
    std::int64_t previous = j;
    for (std::int64_t t = 0; t < len; ++t) {
      const std::int64_t r = cell(off[0] + first + t);
      if (r <= previous || r >= n) return say("the subscripts of column ", j + 1, " do not rise below the diagonal");
      previous = r;
    }
  }
  return {};
}

// Takes a sound image of `used` cells into the work array (when it is large enough), keeping
// the largest need seen. The work vector of the solves is zero between uses.
void take_image(const unsigned char* bytes, std::int64_t used, std::int32_t option, std::int32_t& flag,
                TorvexKernelArgs& args) {
  const std::string why = damaged_image(bytes, used);
  if (!why.empty()) {
    print_free(std::string(option == 75 ? "torvex_kernel: the factor file is damaged: "
                                        : "torvex_kernel: the copy of the factor is damaged: ") + why);
    flag = option * 100 + 1;
    return;
  }
  if (lacks(args, used)) {
    flag = lack_flag(option, args.need);
    return;
  }
  std::int32_t* is = args.is;
  const std::int32_t keep = is[H_MAXNEED];
  std::memmove(is, bytes, static_cast<std::size_t>(used) * sizeof(std::int32_t));
  is[H_MAXNEED] = std::max(keep, is[H_MAXNEED]);
  if (is[H_STAGE] >= S_SYMBOLIC) {
    double* temp = real_at(is, is[H_TEMP]);
    std::fill(temp, temp + is[H_N], 0.0);
  }
}

// Options 73 and 75. Nothing of the work array changes unless the whole image is sound.
void copy_in(std::int32_t option, std::int32_t& flag, TorvexKernelArgs& args) {
  if (option == 73) {
    if (!args.is2 || args.size2 < H_CELLS) {
      flag = option * 100 + 1;
      return;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(args.is2);
    const std::int64_t stage = args.is2[H_STAGE], n = args.is2[H_N];
    std::int64_t used = stage >= S_SYMBOLIC ? args.is2[H_END] : ordering_end(std::max<std::int64_t>(n, 0));
    // A header that claims more than the copy holds is judged on what it holds.
    if (used < H_CELLS || used > args.size2) used = std::min(args.size2, max_cells);
    take_image(bytes, used, option, flag, args);
    return;
  }
  if (!args.load_unit || !args.load_unit->is_open()) {
    flag = option * 100 + 1;
    return;
  }
  // Two records: the number of cells with their check sum, then the cells. The sizes are
  // checked against each other and the sum against the cells before anything is read into the
  // work array; the framing keeps a damaged count from asking for more than the file holds.
  auto damaged = [&](const std::string& why) {
    print_free("torvex_kernel: the factor file is damaged: " + why);
    flag = option * 100 + 1;
  };
  std::vector<unsigned char> head, rec;
  if (args.load_unit->read_bytes(head) != FramedStatus::ok || head.size() != 2 * sizeof(std::int64_t))
    return damaged("its first record is not the size and check sum of a work array");
  std::int64_t used = 0;
  std::uint64_t sum = 0;
  std::memcpy(&used, head.data(), sizeof used);
  std::memcpy(&sum, head.data() + sizeof used, sizeof sum);
  if (used < H_CELLS || used > max_cells) return damaged("it announces a work array of " + std::to_string(used) + " cells");
  if (args.load_unit->read_bytes(rec) != FramedStatus::ok) return damaged("the record of the work array is missing or cut short");
  if (rec.size() != static_cast<std::uint64_t>(used) * sizeof(std::int32_t))
    return damaged("the record of the work array holds " + std::to_string(rec.size()) + " bytes for " +
                   std::to_string(used) + " cells");
  if (image_sum(rec.data(), rec.size()) != sum) return damaged("its check sum does not match its contents");
  take_image(rec.data(), used, option, flag, args);
}

}  // namespace

// ---- the kernel ----------------------------------------------------------------------------

std::int64_t torvex_factor_cells(const std::int32_t* is) {
  return is && is[H_MAGIC] == magic_value && is[H_STAGE] >= S_SYMBOLIC ? is[H_END] : 0;
}

std::int64_t torvex_factor_nonzeros(const std::int32_t* is) {
  return is && is[H_MAGIC] == magic_value && is[H_STAGE] >= S_SYMBOLIC ? is[H_NNZL] : 0;
}

std::int32_t torvex_rank(const std::int32_t* is) {
  return is && is[H_MAGIC] == magic_value ? is[H_RANK] : 0;
}

void torvex_kernel(std::int32_t option, std::int32_t n, const std::int32_t* ia, const std::int32_t* ja,
                   double* a, std::int32_t* perm, double* rhs, std::int32_t& flag, TorvexKernelArgs& args) {
  // The sizes that the caller vouches for: n + 1 row starts, ia(n+1)-1 columns and values. The
  // row starts are read only by the options that use the matrix.
  const bool reads_matrix = option == 10 || option == 70 || option == 20 || option == 40 || option == 56 ||
                            option == 60 || option == 61;
  std::span<const std::int32_t> ia_s, ja_s;
  std::span<double> a_s;
  if (reads_matrix && ia && n >= 0) {
    ia_s = {ia, static_cast<std::size_t>(n) + 1};
    const std::int64_t count = std::max<std::int64_t>(std::int64_t{ia[n]} - 1, 0);
    if (ja) ja_s = {ja, static_cast<std::size_t>(count)};
    if (a) a_s = {a, static_cast<std::size_t>(count)};
  }
  torvex_kernel(option, n, ia_s, ja_s, a_s, perm, rhs, flag, args);
}

void torvex_kernel(std::int32_t option, std::int32_t n, std::span<const std::int32_t> ia_s,
                   std::span<const std::int32_t> ja_s, std::span<double> a_s, std::int32_t* perm, double* rhs,
                   std::int32_t& flag, TorvexKernelArgs& args) {
  const std::int32_t* ia = ia_s.data();
  const std::int32_t* ja = ja_s.data();
  double* a = a_s.data();
  flag = 0;
  args.need = 0;
  TorvexStatistics& st = args.stats ? *args.stats : torvex_state.stats;
  const double t0 = cpu_seconds();
  std::int32_t* is = args.is;
  auto stage_ok = [&](int at_least) {
    return is && args.size >= H_CELLS && is[H_MAGIC] == magic_value && is[H_N] == n &&
           is[H_STAGE] >= at_least;
  };
  double* time_slot = &st.time_other;

  switch (option) {
    case 10:
    case 70: {
      time_slot = &st.time_order;
      if (!sound_structure(option, n, ia_s, ja_s, a_s, false)) { flag = torvex_flag_bad_structure; break; }
      if (!is || args.size < H_CELLS) {
        args.need = ordering_end(n);
        flag = lack_flag(option, args.need);
        break;
      }
      if (is[H_MAGIC] != magic_value) {
        std::memset(is, 0, H_CELLS * sizeof(std::int32_t));
        is[H_MAGIC] = magic_value;
      }
      if (lacks(args, ordering_end(n))) { flag = lack_flag(option, args.need); break; }
      if (count_elements(n, ia) > max_cells) { flag = option * 100 + 1; break; }
      if (option == 10)
        ordering(n, ia, ja, perm, flag, args);
      else
        read_ordering(n, ia, perm, flag, args);
      break;
    }
    case 20:
      time_slot = &st.time_symbolic;
      if (!stage_ok(S_ORDERED)) { flag = torvex_flag_out_of_order; break; }
      if (!sound_structure(option, n, ia_s, ja_s, a_s, false)) { flag = torvex_flag_bad_structure; break; }
      symbolic(n, ia, ja, flag, args);
      break;
    case 40:
      time_slot = &st.time_numeric;
      if (!stage_ok(S_SYMBOLIC)) {
        flag = torvex_flag_out_of_order;
      } else if (!sound_structure(option, n, ia_s, ja_s, a_s, true)) {
        flag = torvex_flag_bad_structure;
      } else if (count_elements(n, ia) != is[H_NNZA]) {
        flag = torvex_flag_pattern_changed;
      } else {
        numeric(n, ia, ja, a, flag, args, st);
      }
      if (flag != 0) flag += torvex_numeric_offset;
      break;
    case 50:
      time_slot = &st.time_solve;
      if (!stage_ok(S_FACTOR)) { flag = torvex_flag_out_of_order; break; }
      solve(n, rhs, parts_of(is));
      st.calls_solve += 1;
      break;
    case 51:
    case 52:
      time_slot = &st.time_sparse_solve;
      if (!stage_ok(S_FACTOR)) { flag = torvex_flag_out_of_order; break; }
      if (option == 52)
        sparse_solve(n, rhs, args.rhs_list, args.rhs_count, args.rhs_list, args.rhs_count, flag, args, st, option);
      else
        sparse_solve(n, rhs, args.rhs_list, args.rhs_count, args.sol_list, args.sol_count, flag, args, st, option);
      break;
    case 54:
    case 55: {
      if (!stage_ok(S_FACTOR)) { flag = torvex_flag_out_of_order; break; }
      const double* diag = parts_of(is).diag;
      double v = option == 54 ? 1.0 : 0.0;
      for (std::int32_t j = 0; j < n; ++j) {
        if (diag[j] == 0.0) continue;
        if (option == 54)
          v *= 1.0 / diag[j];
        else
          v -= std::log(diag[j]);
      }
      if (n >= 1) {
        set_real(is, option == 54 ? H_DET : H_LDET, v);
        if (args.det) *args.det = v;
      }
      st.calls_det += 1;
      break;
    }
    case 56:
      if (!stage_ok(S_FACTOR) || !args.x || !rhs) { flag = torvex_flag_out_of_order; break; }
      if (!sound_structure(option, n, ia_s, ja_s, a_s, true)) { flag = torvex_flag_bad_structure; break; }
      check_solution(n, ia, ja, a, rhs, args.x, args.check_tolerance, parts_of(is));
      break;
    case 60:
    case 61:
      time_slot = &st.time_inverse;
      if (!stage_ok(S_FACTOR)) { flag = torvex_flag_out_of_order; break; }
      if (!sound_structure(option, n, ia_s, ja_s, a_s, true)) { flag = torvex_flag_bad_structure; break; }
      if (count_elements(n, ia) != is[H_NNZA]) { flag = torvex_flag_pattern_changed; break; }
      inverse(n, ia, ja, a, flag, args, st, option == 61);
      break;
    case 72:
    case 74:
      if (!stage_ok(S_ORDERED)) { flag = torvex_flag_out_of_order; break; }
      copy_out(option, flag, args);
      break;
    case 73:
    case 75:
      if (!is || args.size < H_CELLS) { flag = option * 100 + 1; break; }
      copy_in(option, flag, args);
      break;
    case 80:
      statistics(args, st);
      break;
    case 90:
    case 100:
      if (!stage_ok(S_FACTOR) || !rhs) { flag = torvex_flag_out_of_order; break; }
      if (option == 90)
        mult_inverse_factor(n, rhs, parts_of(is));
      else
        mult_factor(n, rhs, parts_of(is));
      break;
    default:
      print_free("option no. ", option, " not implemented");
      flag = -99;
      break;
  }
  *time_slot += cpu_seconds() - t0;
}

}  // namespace mmekit
