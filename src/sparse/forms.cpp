// Block, trace and quadratic forms on the dense, hash and row-compressed kinds.
#include "mmekit/sparse/forms.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>

#include "mmekit/dense/blas.hpp"
#include "mmekit/sparse/fields.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

[[noreturn]] void fail(std::string_view who, std::string_view what) {
  std::string text(who);
  text += what;
  stop(text);
}

// A validated block: element (r, c) of the block is (i1 + (r - 1) step, j1 + (c - 1) step).
struct Block {
  std::int64_t i1 = 0, j1 = 0, step = 1, order = 0;
  std::int64_t row(std::int64_t r) const { return i1 + (r - 1) * step; }
  std::int64_t col(std::int64_t c) const { return j1 + (c - 1) * step; }
  // The block index (1-based) of matrix row i among the block rows, or 0 when it is not one.
  std::int64_t row_index(std::int64_t i) const { return index_of(i, i1); }
  std::int64_t col_index(std::int64_t j) const { return index_of(j, j1); }

 private:
  std::int64_t index_of(std::int64_t v, std::int64_t first) const {
    const std::int64_t d = v - first;
    if (d < 0 || d % step != 0) return 0;
    const std::int64_t k = d / step + 1;
    return k <= order ? k : 0;
  }
};

// Checks a block request against a source of order n. `unequal` is the text for ranges of
// different length. Differences are taken in 64 bits, so that no extreme i4 value overflows.
Block block_of(std::string_view who, std::string_view unequal, std::int32_t i1, std::int32_t i2, std::int32_t j1,
               std::int32_t j2, std::int32_t step, std::int64_t n) {
  const std::int64_t di = std::int64_t{i2} - i1, dj = std::int64_t{j2} - j1;
  if (di != dj) fail(who, unequal);
  if (step < 1) fail(who, ": step not positive");
  if (di < 0) fail(who, ": empty range");
  if (i1 < 1 || j1 < 1 || i2 > n || j2 > n) fail(who, ": range outside the matrix");
  Block b;
  b.i1 = i1;
  b.j1 = j1;
  b.step = step;
  b.order = di / step + 1;
  return b;
}

// True when a row-form matrix holds an element below the diagonal: it is then the full form.
bool ija_is_full(const sparse_ija& a) {
  for (std::int32_t i = 1; i <= a.n; ++i)
    for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k)
      if (a.ja(k) < i) return true;
  return false;
}

// Stops when a stored index lies outside 1..n (a damaged matrix; it would be read past a vector).
inline void check_index(std::string_view who, std::int64_t i, std::int64_t j, std::int64_t n) {
  if (i < 1 || j < 1 || i > n || j > n)
    stop(std::string(who) + ": element outside the order of the matrix" + free_format(i, j, n));
}

// The structure of a row-form matrix, checked once before it is walked. A column outside 1..n
// is named as an element outside the order, like a stray index of the hash form.
void check_structure(std::string_view who, const sparse_ija& a) {
  const RowStructureFault f = check_sparse_ija(a);
  if (!f) return;
  if (f.kind == RowFault::column_low || f.kind == RowFault::column_high) check_index(who, f.row, f.value, a.n);
  stop(std::string(who) + ": " + describe(f));
}

// The trace from its three parts, with the warning when the two triangles disagree.
double trace_of_parts(std::string_view warning, double lower, double diag, double upper) {
  const double larger = std::max(std::fabs(lower), std::fabs(upper));
  const double d = larger > 0.0 ? std::fabs(lower - upper) / larger : 0.0;
  if (d >= 1e-06) out() << sparse_detail::message(warning, lower, diag, upper) << '\n';
  return lower + diag + upper;
}

void refuse_full(const sparse_hashm& a, std::string_view who) {
  if (a.storage == 'f') fail(who, ": not yet implemented for full-stored matrix");
}

// Calls f(i, j, value) for every occupied slot of a hash matrix, in slot order.
template <class F>
void for_each_slot(const sparse_hashm& a, F&& f) {
  if (!a.allocated()) return;
  const double* x = a.x.data();
  const std::int64_t slots = a.x.cols();
  for (std::int64_t k = 0; k < slots; ++k, x += 3) {
    const std::int64_t i = trunc_index(x[0]);
    if (i == 0) continue;
    f(i, trunc_index(x[1]), x[2]);
  }
}

// The sum over r, c = 0..m-1 of a[r + c lda] b[c bs + r bld] (0-based pointers): the trace of a
// times a matrix read from b with the strides bs (its rows) and bld (its columns). One of the two
// operands is walked across its columns in any loop order, so the sum runs over square tiles
// small enough for both tiles to stay in cache.
double tiled_trace(std::int64_t m, const double* a, std::int64_t lda, const double* b, std::int64_t bs,
                   std::int64_t bld) {
  constexpr std::int64_t tile = 64;
  double s = 0.0;
  for (std::int64_t c0 = 0; c0 < m; c0 += tile) {
    const std::int64_t c1 = std::min(m, c0 + tile);
    for (std::int64_t r0 = 0; r0 < m; r0 += tile) {
      const std::int64_t r1 = std::min(m, r0 + tile);
      for (std::int64_t c = c0; c < c1; ++c) {
        const double* ac = a + c * lda;
        const double* bc = b + c * bs;
        double t = 0.0;
        for (std::int64_t r = r0; r < r1; ++r) t += ac[r] * bc[r * bld];
        s += t;
      }
    }
  }
  return s;
}

// The order of `a` against the block; false for an empty `a` (the form is then 0.0).
bool small_matches(const densem& a, const Block& b, std::string_view who) {
  if (a.empty()) return false;
  if (a.order() != b.order) fail(who, ": Matrices of different size");
  return true;
}

}  // namespace

// ---- BLOCK_* -----------------------------------------------------------------------------------

void BLOCK_DENSEM(densem& target, const densem& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                  std::int32_t j2, std::int32_t step) {
  const Block b = block_of("BLOCK_DENSEM", ": matrix not square", i1, i2, j1, j2, step, source.order());
  densem block(b.order, 0.0);
  const std::int64_t ld = source.rows();
  for (std::int64_t c = 1; c <= b.order; ++c) {
    const double* col = source.data() + (b.col(c) - 1) * ld + (b.i1 - 1);
    double* dst = block.data() + (c - 1) * b.order;
    for (std::int64_t r = 0; r < b.order; ++r) dst[r] = col[r * b.step];
  }
  // Built aside and moved in, so that the target may be the source itself.
  target = std::move(block);
}

void BLOCK_HASHM(densem& target, const sparse_hashm& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                 std::int32_t j2, std::int32_t step) {
  const Block b = block_of("BLOCK_HASHM", ": matrix not square", i1, i2, j1, j2, step, source.n);
  target.resize(b.order, 0.0);
  for (std::int64_t c = 1; c <= b.order; ++c)
    for (std::int64_t r = 1; r <= b.order; ++r)
      target(r, c) = getm_sparse_hashm(static_cast<std::int32_t>(b.row(r)), static_cast<std::int32_t>(b.col(c)),
                                       source);
}

void BLOCK_IJA(densem& target, const sparse_ija& source, std::int32_t i1, std::int32_t i2, std::int32_t j1,
               std::int32_t j2, std::int32_t step) {
  const Block b = block_of("BLOCK_IJA", ": matrix not square", i1, i2, j1, j2, step, source.n);
  check_structure("BLOCK_IJA", source);
  target.resize(b.order, 0.0);
  // The value element access gives (the first element of row p with column q, 0.0 if none),
  // with one pass over each block row instead of a search per element: walking the row
  // backwards lets the first match be the one that stays.
  for (std::int64_t r = 1; r <= b.order; ++r) {
    const std::int64_t p = b.row(r);
    for (std::int32_t k = source.ia(p + 1) - 1; k >= source.ia(p); --k)
      if (const std::int64_t c = b.col_index(source.ja(k))) target(r, c) = source.a(k);
  }
}

// ---- QUADR_* -----------------------------------------------------------------------------------

double QUADR_DENSEM(const Array1<double>& x, const densem& a, const Array1<double>& y) {
  const std::int64_t n = a.order();
  if (x.size() != n || y.size() != n) stop("QUADR_DENSEM: incompatible dimensions");
  // x' A y = sum over columns j of y(j) (x' A(:, j)).
  const double* px = x.data();
  const double* py = y.data();
  double s = 0.0;
  for (std::int64_t j = 0; j < n; ++j)
    s += py[j] * blas::dot(static_cast<blas_int>(n), px, 1, a.data() + j * a.ld(), 1);
  return s;
}

double QUADR_HASHM(const Array1<double>& x, const sparse_hashm& a, const Array1<double>& y) {
  const std::int64_t n = a.n;
  if (x.size() != n || y.size() != n) stop("QUADR_HASHM: incompatible dimensions");
  refuse_full(a, "QUADR_HASHM");
  const double* px = x.data();
  const double* py = y.data();
  double s = 0.0;
  for_each_slot(a, [&](std::int64_t i, std::int64_t j, double v) {
    check_index("QUADR_HASHM", i, j, n);
    s += px[i - 1] * v * py[j - 1];
    if (i != j) s += px[j - 1] * v * py[i - 1];
  });
  return s;
}

double QUADR_IJA(const Array1<double>& x, const sparse_ija& a, const Array1<double>& y) {
  const std::int64_t n = a.n;
  if (x.size() != n || y.size() != n) stop("QUADR_IJA: incompatible dimensions");
  check_structure("QUADR_IJA", a);
  // One pass: the sum over the stored elements, the sum over the mirrors of the upper ones, and
  // whether the matrix is the full form (then the mirrors are stored and the second sum is idle).
  const double* px = x.data();
  const double* py = y.data();
  double stored = 0.0, mirrored = 0.0;
  bool full = false;
  for (std::int32_t i = 1; i <= a.n; ++i) {
    const double xi = px[i - 1], yi = py[i - 1];
    for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k) {
      const std::int32_t j = a.ja(k);
      const double v = a.a(k);
      stored += xi * v * py[j - 1];
      if (j > i)
        mirrored += px[j - 1] * v * yi;
      else if (j < i)
        full = true;
    }
  }
  return full ? stored : stored + mirrored;
}

// ---- TRACE_* -----------------------------------------------------------------------------------

double TRACE_DENSEM(const densem& a, const densem& b) {
  if (a.order() != b.order()) stop("TRACE_DENSEM: Matrices of different size");
  // the sum of a(i, j) b(j, i)
  return tiled_trace(a.order(), a.data(), a.ld(), b.data(), 1, b.ld());
}

double TRACE_HASHM(const sparse_hashm& a, const sparse_hashm& b) {
  if (a.n != b.n) stop("TRACE_HASHM: Matrices of different size");
  refuse_full(a, "TRACE_HASHM");
  refuse_full(b, "TRACE_HASHM");
  double lower = 0.0, diag = 0.0, upper = 0.0;
  for_each_slot(a, [&](std::int64_t i, std::int64_t j, double v) {
    const double p = v * getm_sparse_hashm(static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), b);
    if (i == j) {
      diag += p;
    } else {
      // Upper storage: the element stands for itself and its mirror.
      upper += p;
      lower += p;
    }
  });
  return trace_of_parts("TRACE_HASHM inconsistent trace value: tr[lower,diag,upper]= ", lower, diag, upper);
}

double TRACE_IJA(const sparse_ija& a, const sparse_ija& b) {
  if (a.n != b.n) stop("TRACE_IJA: Matrices of different size");
  check_structure("TRACE_IJA", a);
  check_structure("TRACE_IJA", b);
  const std::int32_t n = a.n;
  const bool a_full = ija_is_full(a), b_full = ija_is_full(b);
  // pos[j - 1]: position of column j in the current row of b, 0 when absent.
  Array1<std::int32_t> pos_v(n, 0);
  std::int32_t* pos = pos_v.data();
  double lower = 0.0, diag = 0.0, upper = 0.0;
  for (std::int32_t i = 1; i <= n; ++i) {
    for (std::int32_t k = b.ia(i); k < b.ia(i + 1); ++k) pos[b.ja(k) - 1] = k;
    auto in_row = [&](std::int32_t j) { return pos[j - 1] ? b.a(pos[j - 1]) : 0.0; };
    for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k) {
      const std::int32_t j = a.ja(k);
      const double v = a.a(k);
      if (j == i) {
        diag += v * in_row(j);
      } else if (j > i) {
        const double bij = in_row(j);
        upper += v * bij;
        // The upper form's element also stands at (j, i); b's element there is its own mirror
        // unless b is the full form.
        if (!a_full) lower += v * (b_full ? getm_sparse_ija(j, i, b) : bij);
      } else {
        lower += v * (b_full ? in_row(j) : getm_sparse_ija(j, i, b));
      }
    }
    for (std::int32_t k = b.ia(i); k < b.ia(i + 1); ++k) pos[b.ja(k) - 1] = 0;
  }
  return trace_of_parts("TRACE_IJA: inconsistent trace value: tr[lower,diag,upper]= ", lower, diag, upper);
}

// ---- BLOCKTRACE_* ------------------------------------------------------------------------------

double BLOCKTRACE_DENSEM(const densem& a, const densem& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                         std::int32_t j2, std::int32_t step) {
  const Block blk = block_of("BLOCKTRACE_DENSEM", ": ranges not equal", i1, i2, j1, j2, step, b.order());
  if (!small_matches(a, blk, "BLOCKTRACE_DENSEM")) return 0.0;
  // a(r, c) meets b(i1 + (c - 1) step, j1 + (r - 1) step): from b(i1, j1), c moves by step
  // elements and r by step columns.
  return tiled_trace(blk.order, a.data(), a.ld(), b.data() + (blk.j1 - 1) * b.ld() + (blk.i1 - 1), blk.step,
                     blk.step * b.ld());
}

double BLOCKTRACE_HASHM(const densem& a, const sparse_hashm& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                        std::int32_t j2, std::int32_t step) {
  if (std::int64_t{i2} - i1 != std::int64_t{j2} - j1) stop("BLOCKTRACE_HASHM: ranges not equal");
  refuse_full(b, "BLOCKTRACE_HASHM");
  const Block blk = block_of("BLOCKTRACE_HASHM", ": ranges not equal", i1, i2, j1, j2, step, b.n);
  if (!small_matches(a, blk, "BLOCKTRACE_HASHM")) return 0.0;
  double s = 0.0;
  for (std::int64_t c = 1; c <= blk.order; ++c) {
    const std::int64_t p = blk.row(c);
    for (std::int64_t r = 1; r <= blk.order; ++r) {
      const std::int64_t q = blk.col(r);
      // An upper-stored matrix holds (p, q) at its upper position.
      const double v = getm_sparse_hashm(static_cast<std::int32_t>(std::min(p, q)),
                                         static_cast<std::int32_t>(std::max(p, q)), b);
      s += a(r, c) * v;
    }
  }
  return s;
}

double BLOCKTRACE_IJA_HASHM(const densem& a, const sparse_hashm& b, std::int32_t i1, std::int32_t i2,
                            std::int32_t j1, std::int32_t j2, std::int32_t step) {
  if (std::int64_t{i2} - i1 != std::int64_t{j2} - j1) stop("BLOCKTRACE_IJA_HASHM: ranges not equal");
  refuse_full(b, "BLOCKTRACE_IJA_HASHM");
  const Block blk = block_of("BLOCKTRACE_IJA_HASHM", ": ranges not equal", i1, i2, j1, j2, step, b.n);
  if (!small_matches(a, blk, "BLOCKTRACE_IJA_HASHM")) return 0.0;
  double s = 0.0;
  for_each_slot(b, [&](std::int64_t i, std::int64_t j, double v) {
    // b(i, j) is b(p, q) for block column c = index of p among the rows, block row r = index of
    // q among the columns, and enters with a(r, c); an off-diagonal element also as b(j, i).
    if (const std::int64_t c = blk.row_index(i)) {
      if (const std::int64_t r = blk.col_index(j)) s += a(r, c) * v;
    }
    if (i != j) {
      if (const std::int64_t c = blk.row_index(j)) {
        if (const std::int64_t r = blk.col_index(i)) s += a(r, c) * v;
      }
    }
  });
  return s;
}

double BLOCKTRACE_IJA(const densem& a, const sparse_ija& b, std::int32_t i1, std::int32_t i2, std::int32_t j1,
                      std::int32_t j2, std::int32_t step) {
  const Block blk = block_of("BLOCKTRACE_IJA", ": ranges not equal", i1, i2, j1, j2, step, b.n);
  check_structure("BLOCKTRACE_IJA", b);
  if (!small_matches(a, blk, "BLOCKTRACE_IJA")) return 0.0;
  // The form is told by the rows the block touches: when none of them holds an element below
  // the diagonal, the full form of a symmetric matrix has no element that the upper reading
  // would miss or count twice (the mirror that the upper reading adds would be a lower element
  // of a touched row), so both readings agree.
  auto lower_in_row = [&](std::int64_t i) {
    for (std::int32_t k = b.ia(i); k < b.ia(i + 1); ++k)
      if (b.ja(k) < i) return true;
    return false;
  };
  bool full = false;
  for (std::int64_t c = 1; c <= blk.order && !full; ++c) full = lower_in_row(blk.row(c)) || lower_in_row(blk.col(c));
  double s = 0.0;
  // Row i of b: its stored elements enter as b(i, j); in the upper form the off-diagonal ones
  // also as b(j, i).
  auto walk_row = [&](std::int64_t i) {
    const std::int64_t c_direct = blk.row_index(i);
    const std::int64_t r_mirror = full ? 0 : blk.col_index(i);
    if (!c_direct && !r_mirror) return;
    for (std::int32_t k = b.ia(i); k < b.ia(i + 1); ++k) {
      const std::int64_t j = b.ja(k);
      const double v = b.a(k);
      if (c_direct)
        if (const std::int64_t r = blk.col_index(j)) s += a(r, c_direct) * v;
      if (r_mirror && j != i)
        if (const std::int64_t c = blk.row_index(j)) s += a(r_mirror, c) * v;
    }
  };
  // The block rows, then (upper form) the block columns that are not block rows as well.
  for (std::int64_t c = 1; c <= blk.order; ++c) walk_row(blk.row(c));
  if (!full)
    for (std::int64_t r = 1; r <= blk.order; ++r)
      if (!blk.row_index(blk.col(r))) walk_row(blk.col(r));
  return s;
}

}  // namespace mmekit
