// Sparse inversion on the supernodal factor.
#include "mmekit/skelda/spinv.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

const SkeldaInvBlas& default_skelda_inv_blas() {
  static const SkeldaInvBlas table{
      [](blas_int n, const double* x, blas_int incx, double* y, blas_int incy) { blas::copy(n, x, incx, y, incy); },
      [](blas_int n, double alpha, double* x, blas_int incx) { blas::scal(n, alpha, x, incx); },
      [](char side, char uplo, blas_int m, blas_int n, double alpha, const double* a, blas_int lda, const double* b,
         blas_int ldb, double beta, double* c, blas_int ldc) {
        blas::symm(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
      },
      [](char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a, blas_int lda,
         const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
        blas::gemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      },
      [](char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha, const double* a,
         blas_int lda, double* b, blas_int ldb) { blas::trmm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb); },
      [](char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha, const double* a,
         blas_int lda, double* b, blas_int ldb) { blas::trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb); },
      [](char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a, blas_int lda, double beta,
         double* c, blas_int ldc) { blas::syrk(uplo, trans, n, k, alpha, a, lda, beta, c, ldc); },
      [](char uplo, char diag, blas_int n, double* a, blas_int lda) { return blas::trtri(uplo, diag, n, a, lda); },
      [](char uplo, blas_int n, double* a, blas_int lda) { return blas::lauum(uplo, n, a, lda); },
      [](char uplo, blas_int n, double* a, blas_int lda) { return blas::potri(uplo, n, a, lda); },
  };
  return table;
}

namespace {

blas_int bi(std::int64_t v) { return static_cast<blas_int>(v); }

// Block edge of the panel-form C of a supernode with m rows.
std::int64_t c_block_edge(std::int64_t m, std::int64_t blksz) { return std::max<std::int64_t>(1, std::min(blksz, m)); }

// One supernode as the kernel sees it. In both forms the column c (local, from 1) is one
// contiguous piece from its diagonal element down to the last row of the diagonal block: in
// the normal form the rows below the block follow in B, in the panel form the block column's
// rectangle holds all of them.
struct Node {
  std::int64_t f = 0, w = 0, m = 0, p = 1, nb = 1;
  bool panel = false;
  double* base = nullptr;
  const std::int32_t* rows = nullptr;  // the m rows below the diagonal block

  // Pointer to element (c, c), local from 1.
  double* diag(std::int64_t c) const {
    if (!panel) return base + (c - 1) * w + (c - 1);
    return base + sx2_panel_offset(c, c, nb, p);
  }
  // Pointer to the first of the rows below the block in column c (normal form).
  double* below(std::int64_t c) const { return base + w * w + (c - 1) * m; }
};

Node node_of(const Sx2Layout& l, Array1<double>& lnz, std::int32_t s) {
  Node b;
  b.f = l.first(s);
  b.w = l.width(s);
  b.m = l.rows_below(s);
  b.p = l.panel;
  b.panel = l.panel_form(s);
  if (b.panel) b.nb = sx2_blocks(b.w, b.p);
  b.base = lnz.data() + ((*l.xlnz)(s) - 1);
  b.rows = l.lindx->data() + ((*l.xlindx)(s) - 1);
  return b;
}

bool flagged(const Array1<std::int32_t>& cflag, std::int64_t j) { return (cflag(j) & 1) != 0; }

// Zero rows and columns for the flagged columns, 1 on their diagonal.
void clear_flagged(const Sx2Layout& l, Array1<double>& lnz, const Array1<std::int32_t>& cflag) {
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const Node b = node_of(l, lnz, s);
    for (std::int64_t c = 1; c <= b.w; ++c) {
      double* d = b.diag(c);
      if (flagged(cflag, b.f + c - 1)) {
        *d = 1.0;
        std::fill(d + 1, d + (b.w - c) + 1, 0.0);
        if (b.m > 0) std::fill(b.below(c), b.below(c) + b.m, 0.0);
        continue;
      }
      for (std::int64_t r = c + 1; r <= b.w; ++r)
        if (flagged(cflag, b.f + r - 1)) d[r - c] = 0.0;
      for (std::int64_t k = 0; k < b.m; ++k)
        if (flagged(cflag, b.rows[k])) b.below(c)[k] = 0.0;
    }
  }
}

// Scales the LDL columns of a root back into Cholesky columns: sqrt(d) on the diagonal and the
// column below multiplied by it, where d is above 0.
void root_to_cholesky(const Node& b, const SkeldaInvBlas& blas) {
  for (std::int64_t c = 1; c <= b.w; ++c) {
    double* d = b.diag(c);
    if (!(*d > 0.0)) continue;
    const double g = std::sqrt(*d);
    *d = g;
    if (c < b.w) blas.dscal(bi(b.w - c), g, d + 1, 1);
  }
}

// Places (from 1, counted from the top of the front of a supernode with the diagonal block
// first..first+w-1 and the row list `list` of mt rows) of the ascending rows[0..k-1], all of
// them rows of that front. The list is searched by galloping from the last place found, so a
// few rows in a long list cost k log(mt/k) rather than a walk over the list. A row that the
// front does not hold stops the run: the structure is corrupted.
void front_places(const std::int32_t* rows, std::int64_t k, std::int64_t first, std::int64_t w,
                  const std::int32_t* list, std::int64_t mt, std::int32_t* rel) {
  std::int64_t pos = 0;
  for (std::int64_t i = 0; i < k; ++i) {
    const std::int32_t r = rows[i];
    if (r < first + w) {
      if (r < first) stop("ERROR: set_relative_indices1() ridx is not determined.");
      rel[i] = static_cast<std::int32_t>(r - first + 1);
      continue;
    }
    std::int64_t lo = pos, hi = pos, step = 1;
    while (hi < mt && list[hi] < r) {
      lo = hi + 1;
      hi = lo + step;
      step *= 2;
    }
    hi = std::min(hi, mt);
    pos = std::lower_bound(list + lo, list + hi, r) - list;
    if (pos == mt || list[pos] != r) stop("ERROR: set_relative_indices1() ridx is not determined.");
    rel[i] = static_cast<std::int32_t>(w + pos + 1);
    ++pos;
  }
}

// Gathers columns of C = Z(R,R) (lower triangle, column j from row j down) from the ancestors'
// storage. The rows R[j..m-1] lie in the front of the supernode t that holds column R[j]; their
// places there (relative indices) are found once per run of columns of R that fall in the same
// t. Rows that are consecutive in t are copied as one block.
class Gather {
 public:
  Gather(const Sx2Layout& l, Array1<double>& lnz, std::int32_t* rel) : l_(l), lnz_(lnz), rel_(rel) {}

  void start(const std::int32_t* rows, std::int64_t m) {
    rows_ = rows;
    m_ = m;
    t_ = 0;
  }

  // Column j (from 0) into dest[0 .. m-1-j] (dest points at C(j,j)).
  void column(std::int64_t j, double* dest) {
    const std::int32_t r = rows_[j];
    const std::int32_t t = (*l_.snode)(r);
    if (t != t_) {
      t_ = t;
      node_ = node_of(l_, lnz_, t);
      front_places(rows_ + j, m_ - j, node_.f, node_.w, node_.rows, node_.m, rel_ + j);
    }
    const std::int64_t c = r - node_.f + 1, w = node_.w;
    // Element at front place q (from 1, q >= c) of column c: diag + (q - c) down to the last
    // row of the diagonal block, then low + (q - w - 1).
    const double* diag = node_.diag(c);
    const double* low = node_.panel ? nullptr : node_.below(c);
    std::int64_t i = j;
    while (i < m_) {
      const std::int64_t q0 = rel_[i];
      std::int64_t e = i;
      while (e + 1 < m_ && rel_[e + 1] == rel_[e] + 1 && !(rel_[e] == w && !node_.panel)) ++e;
      const double* src = (q0 <= w || node_.panel) ? diag + (q0 - c) : low + (q0 - w - 1);
      std::memcpy(dest + (i - j), src, static_cast<std::size_t>(e - i + 1) * sizeof(double));
      i = e + 1;
    }
  }

 private:
  const Sx2Layout& l_;
  Array1<double>& lnz_;
  std::int32_t* rel_;
  const std::int32_t* rows_ = nullptr;
  std::int64_t m_ = 0;
  std::int32_t t_ = 0;
  Node node_;
};

// Z2 += C(:, J) T2(J, :) and its symmetric partner for block column J of the lower triangle of
// C, columns j0..j0+jb-1, given by `cj` = &C(j0, j0) with leading dimension ldc.
void apply_block_column(std::int64_t m, std::int64_t w, std::int64_t j0, std::int64_t jb, const double* cj,
                        std::int64_t ldc, const double* t2, double* z2, const SkeldaInvBlas& blas) {
  blas.dsymm('L', 'L', bi(jb), bi(w), 1.0, cj, bi(ldc), t2 + j0, bi(m), 1.0, z2 + j0, bi(m));
  const std::int64_t below = m - j0 - jb;
  if (below <= 0) return;
  blas.dgemm('N', 'N', bi(below), bi(w), bi(jb), 1.0, cj + jb, bi(ldc), t2 + j0, bi(m), 1.0, z2 + j0 + jb, bi(m));
  blas.dgemm('T', 'N', bi(jb), bi(w), bi(below), 1.0, cj + jb, bi(ldc), t2 + j0 + jb, bi(m), 1.0, z2 + j0, bi(m));
}

// The dense steps of a small supernode written out: below a few thousand multiply-adds a call of
// a level-3 routine costs more than its work, and most supernodes of an MME are that small.
// Z2 = C T2 with the lower triangle of C (m by m), T2 and Z2 m by w.
void small_symm(std::int64_t m, std::int64_t w, const double* c, const double* t2, double* z2) {
  for (std::int64_t q = 0; q < w; ++q) {
    const double* t = t2 + q * m;
    double* z = z2 + q * m;
    std::fill(z, z + m, 0.0);
    for (std::int64_t k = 0; k < m; ++k) {
      const double* ck = c + k * m;
      double acc = ck[k] * t[k];
      for (std::int64_t i = k + 1; i < m; ++i) {
        z[i] += ck[i] * t[k];
        acc += ck[i] * t[i];
      }
      z[k] += acc;
    }
  }
}
// X := X L^-1 (rows by w, leading dimension ldx) with L unit lower (leading dimension w).
void small_right_solve(std::int64_t rows, std::int64_t w, const double* l, double* x, std::int64_t ldx) {
  for (std::int64_t j = w - 2; j >= 0; --j)
    for (std::int64_t k = j + 1; k < w; ++k) {
      const double f = l[k + j * w];
      if (f == 0.0) continue;
      for (std::int64_t i = 0; i < rows; ++i) x[i + j * ldx] -= x[i + k * ldx] * f;
    }
}
// X := L^-T X (w by w) with L unit lower.
void small_left_solve_t(std::int64_t w, const double* l, double* x) {
  for (std::int64_t j = w - 2; j >= 0; --j)
    for (std::int64_t k = j + 1; k < w; ++k) {
      const double f = l[k + j * w];
      if (f == 0.0) continue;
      for (std::int64_t q = 0; q < w; ++q) x[j + q * w] -= f * x[k + q * w];
    }
}

class Timer {
 public:
  explicit Timer(InvmfTimers* t) : on_(t != nullptr), t0_(on_ ? wall_seconds() : 0.0) {}
  void lap(double& into) {
    if (!on_) return;
    const double t = wall_seconds();
    into += t - t0_;
    t0_ = t;
  }

 private:
  bool on_;
  double t0_;
};

std::int32_t invmf_kernel(const Sx2Layout& l, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                          const InvmfOptions& opt, const InvmfSizes& sizes, const SkeldaInvBlas& blas,
                          InvmfTimers* timers) {
  // All work at once, before anything is changed.
  std::vector<double> cbuf(static_cast<std::size_t>(sizes.c_words));
  std::vector<double> work1(static_cast<std::size_t>(sizes.work));  // -L21, then L11 behind it
  std::vector<double> piv(static_cast<std::size_t>(sizes.maxnd));
  std::vector<std::int32_t> rel(static_cast<std::size_t>(sizes.maxnc));
  std::vector<std::int64_t> colpos(static_cast<std::size_t>(sizes.maxnc));

  if (!opt.ldl) ldl_from_cholesky(l, lnz, default_skelda_blas());  // the factorisation's own conversion
  clear_flagged(l, lnz, cflag);
  Gather gather(l, lnz, rel.data());
  Timer clock(timers);
  InvmfTimers sink;
  InvmfTimers& tm = timers ? *timers : sink;

  for (std::int32_t s = l.nsn; s >= 1; --s) {
    const Node b = node_of(l, lnz, s);
    const std::int64_t w = b.w, m = b.m;
    double* dblk = b.base;
    if (m == 0) {
      clock.lap(tm.troot);
      if (w == 1) {
        if (*dblk != 0.0) *dblk = 1.0 / *dblk;
        clock.lap(tm.troot);
        continue;
      }
      root_to_cholesky(b, blas);
      if (!b.panel) {
        const blas_int info = blas.dpotri('L', bi(w), dblk, bi(w));
        clock.lap(tm.troot);
        if (info != 0) return info;
      } else {
        std::int32_t info = root_panel_trtri(w, b.p, dblk, blas);
        if (info == 0) info = root_panel_lauum(w, b.p, dblk, blas);
        clock.lap(tm.tpanel);
        if (info != 0) return info;
      }
      continue;
    }
    clock.lap(tm.tstep0);
    // tstep0: T2 = -L21.
    double* t2 = work1.data();
    double* l11 = t2 + m * w;
    double* z2 = b.below(1);
    const bool small = m < opt.limC && m * m * w <= opt.small_work;
    if (small) {
      for (std::int64_t k = 0; k < m * w; ++k) t2[k] = -z2[k];
    } else {
      blas.dcopy(bi(m * w), z2, 1, t2, 1);
      blas.dscal(bi(m * w), -1.0, t2, 1);
    }
    gather.start(b.rows, m);
    clock.lap(tm.tstep0);

    // tstep1: Z2 = C T2 with C = Z(R,R), written over L21.
    if (m < opt.limC) {
      double* c = cbuf.data();
      for (std::int64_t j = 0; j < m; ++j) gather.column(j, c + j * m + j);
      if (small)
        small_symm(m, w, c, t2, z2);
      else
        blas.dsymm('L', 'L', bi(m), bi(w), 1.0, c, bi(m), t2, bi(m), 0.0, z2, bi(m));
    } else {
      const std::int64_t bs = c_block_edge(m, opt.blksz), nbc = sx2_blocks(m, bs);
      std::fill(z2, z2 + m * w, 0.0);
      if (opt.spdopt >= 1) {
        // The whole C in panel form: column j of block column J starts at colpos(j) + J bs.
        double* c = cbuf.data();
        for (std::int64_t j = 0; j < m; ++j) {
          const std::int64_t jj = j / bs;
          colpos[static_cast<std::size_t>(j)] =
              jj * (2 * nbc - jj + 1) / 2 * bs * bs + (nbc - jj) * bs * (j - jj * bs) - jj * bs;
          gather.column(j, c + colpos[static_cast<std::size_t>(j)] + j);
        }
        for (std::int64_t jj = 0; jj < nbc; ++jj) {
          const std::int64_t j0 = jj * bs, jb = std::min(bs, m - j0);
          apply_block_column(m, w, j0, jb, c + colpos[static_cast<std::size_t>(j0)] + j0, (nbc - jj) * bs, t2, z2,
                             blas);
        }
      } else {
        // One block column of C at a time, height m - j0.
        for (std::int64_t jj = 0; jj < nbc; ++jj) {
          const std::int64_t j0 = jj * bs, jb = std::min(bs, m - j0), ld = m - j0;
          double* c = cbuf.data();
          for (std::int64_t j = j0; j < j0 + jb; ++j) gather.column(j, c + (j - j0) * ld + (j - j0));
          apply_block_column(m, w, j0, jb, c, ld, t2, z2, blas);
        }
      }
    }
    clock.lap(tm.tstep1);

    // tstep1a: keep L11 (the unit lower triangle, its diagonal unused) and the pivots.
    std::copy(dblk, dblk + w * w, l11);
    for (std::int64_t c = 1; c <= w; ++c) piv[static_cast<std::size_t>(c - 1)] = dblk[(c - 1) * w + (c - 1)];
    clock.lap(tm.tstep1a);

    // tstep3: Z1 = Z2' T2 = L21' Z(R,R) L21, symmetric, taken before Z2 is adjusted.
    if (small) {
      for (std::int64_t q = 0; q < w; ++q)
        for (std::int64_t p = 0; p < w; ++p) {
          double acc = 0.0;
          for (std::int64_t i = 0; i < m; ++i) acc += z2[i + p * m] * t2[i + q * m];
          dblk[p + q * w] = acc;
        }
    } else {
      blas.dgemm('T', 'N', bi(w), bi(w), bi(m), 1.0, z2, bi(m), t2, bi(m), 0.0, dblk, bi(w));
    }
    clock.lap(tm.tstep3);

    // tstep2: Z2 := Z2 L11^-1 (one triangular solve from the right; the column-by-column
    // recursion from the last column computes the same), so Z2 = Z(R,J).
    if (small)
      small_right_solve(m, w, l11, z2, m);
    else
      blas.dtrsm('R', 'L', 'N', 'U', bi(m), bi(w), 1.0, l11, bi(w), z2, bi(m));
    clock.lap(tm.tstep2);

    // tstep4: Z1 += D^-1, except where the pivot is 0 or the column flagged.
    for (std::int64_t c = 1; c <= w; ++c) {
      const double d = piv[static_cast<std::size_t>(c - 1)];
      if (d != 0.0 && !flagged(cflag, b.f + c - 1)) dblk[(c - 1) * w + (c - 1)] += 1.0 / d;
    }
    clock.lap(tm.tstep4);

    // tstep5: Z1 := L11^-T Z1 L11^-1 on the whole symmetric block, so Z1 = Z(J,J).
    if (small) {
      small_right_solve(w, w, l11, dblk, w);
      small_left_solve_t(w, l11, dblk);
    } else {
      blas.dtrsm('R', 'L', 'N', 'U', bi(w), bi(w), 1.0, l11, bi(w), dblk, bi(w));
      blas.dtrsm('L', 'L', 'T', 'U', bi(w), bi(w), 1.0, l11, bi(w), dblk, bi(w));
    }
    clock.lap(tm.tstep5);
  }

  // A flagged column reads as zero in the generalised inverse.
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const Node b = node_of(l, lnz, s);
    for (std::int64_t c = 1; c <= b.w; ++c)
      if (flagged(cflag, b.f + c - 1)) *b.diag(c) = 0.0;
  }
  return 0;
}

// Block (I, J) (from 0) of a panel-form root with nb block columns of edge p, and its leading
// dimension.
double* panel_block(double* base, std::int64_t i, std::int64_t j, std::int64_t nb, std::int64_t p) {
  return base + j * (2 * nb - j + 1) / 2 * p * p + (i - j) * p;
}

}  // namespace

std::int32_t root_panel_trtri(std::int64_t w, std::int64_t p, double* base, const SkeldaInvBlas& blas) {
  const std::int64_t nb = sx2_blocks(w, p);
  auto sz = [&](std::int64_t k) { return std::min(p, w - k * p); };
  auto ld = [&](std::int64_t k) { return bi((nb - k) * p); };
  auto blk = [&](std::int64_t i, std::int64_t j) { return panel_block(base, i, j, nb, p); };
  // From the last block column back: the rows below block J become -Linv(trail) X L(J,J)^-1,
  // with the trailing triangle already inverted, then the diagonal block is inverted.
  for (std::int64_t j = nb - 1; j >= 0; --j) {
    const std::int64_t nj = sz(j), rb = w - (j + 1) * p;
    if (rb > 0) {
      for (std::int64_t i = nb - 1; i > j; --i) {
        blas.dtrmm('L', 'L', 'N', 'N', bi(sz(i)), bi(nj), 1.0, blk(i, i), ld(i), blk(i, j), ld(j));
        for (std::int64_t k = j + 1; k < i; ++k)
          blas.dgemm('N', 'N', bi(sz(i)), bi(nj), bi(p), 1.0, blk(i, k), ld(k), blk(k, j), ld(j), 1.0, blk(i, j), ld(j));
      }
      blas.dtrsm('R', 'L', 'N', 'N', bi(rb), bi(nj), -1.0, blk(j, j), ld(j), blk(j + 1, j), ld(j));
    }
    const blas_int info = blas.dtrtri('L', 'N', bi(nj), blk(j, j), ld(j));
    if (info != 0) {
      out() << "ERROR: TRTRI\n";
      return info > 0 ? static_cast<std::int32_t>(info + j * p) : info;
    }
  }
  return 0;
}

std::int32_t root_panel_lauum(std::int64_t w, std::int64_t p, double* base, const SkeldaInvBlas& blas) {
  const std::int64_t nb = sx2_blocks(w, p);
  auto sz = [&](std::int64_t k) { return std::min(p, w - k * p); };
  auto ld = [&](std::int64_t k) { return bi((nb - k) * p); };
  auto blk = [&](std::int64_t i, std::int64_t j) { return panel_block(base, i, j, nb, p); };
  // Block row I of L'L from the blocks at and below it, from the first block row on.
  for (std::int64_t i = 0; i < nb; ++i) {
    const std::int64_t ni = sz(i), rb = w - (i + 1) * p;
    for (std::int64_t k = 0; k < i; ++k)
      blas.dtrmm('L', 'L', 'T', 'N', bi(ni), bi(p), 1.0, blk(i, i), ld(i), blk(i, k), ld(k));
    const blas_int info = blas.dlauum('L', bi(ni), blk(i, i), ld(i));
    if (info != 0) return info > 0 ? static_cast<std::int32_t>(info + i * p) : info;
    if (rb > 0) {
      for (std::int64_t k = 0; k < i; ++k)
        blas.dgemm('T', 'N', bi(ni), bi(p), bi(rb), 1.0, blk(i + 1, i), ld(i), blk(i + 1, k), ld(k), 1.0, blk(i, k),
                   ld(k));
      blas.dsyrk('L', 'T', bi(ni), bi(rb), 1.0, blk(i + 1, i), ld(i), 1.0, blk(i, i), ld(i));
    }
  }
  return 0;
}

std::int32_t invmf_simulate(const Sx2Layout& l, const InvmfOptions& opt, InvmfSizes& z) {
  z = InvmfSizes{};
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const std::int64_t w = l.width(s), m = l.rows_below(s);
    z.maxnd = std::max(z.maxnd, w);
    z.maxnc = std::max(z.maxnc, m);
    if (m == 0) continue;
    std::int64_t work = 0, cw = 0;
    if (__builtin_add_overflow(w, m, &work) || __builtin_mul_overflow(work, w, &work)) return kSkeldaOverflow;
    z.work = std::max(z.work, work);
    if (m < opt.limC) {
      cw = m * m;  // m and n are 4-byte counts: no overflow
      z.size_full = std::max(z.size_full, cw);
    } else {
      const std::int64_t bs = c_block_edge(m, opt.blksz), nbc = sx2_blocks(m, bs);
      std::int64_t spd = 0;
      if (__builtin_mul_overflow(nbc, nbc + 1, &spd) || __builtin_mul_overflow(spd / 2, bs * bs, &spd))
        return kSkeldaOverflow;
      z.size_panel_spd = std::max(z.size_panel_spd, spd);
      z.size_panel_mem = std::max(z.size_panel_mem, m * bs);
      cw = opt.spdopt >= 1 ? spd : m * bs;
    }
    z.c_words = std::max(z.c_words, cw);
  }
  if (__builtin_add_overflow(z.c_words, z.work, &z.maxtmp) || __builtin_add_overflow(z.maxtmp, z.maxnd, &z.maxtmp))
    return kSkeldaOverflow;
  return kSkeldaOk;
}

std::int32_t supernodal_sx2_invmf(const Sx2Layout& l, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                                  const InvmfOptions& opt, const InvmfSizes& sizes, const SkeldaInvBlas& blas) {
  return invmf_kernel(l, lnz, cflag, opt, sizes, blas, nullptr);
}

std::int32_t supernodal_sx2_invmf_omp(const Sx2Layout& l, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                                      const InvmfOptions& opt, const InvmfSizes& sizes, const SkeldaInvBlas& blas,
                                      InvmfTimers* timers) {
  out() << "start supernodal_sx2_invmf_omp()\n";
  out() << (sizes.maxnc >= opt.limC ? "PanelC" : "FullC") << '\n';
  InvmfTimers t;
  const std::int32_t info = invmf_kernel(l, lnz, cflag, opt, sizes, blas, &t);
  const Format f("(a,f12.4)");
  out() << f.write(FormatList("tpanel  (root panel potri)", t.tpanel));
  out() << f.write(FormatList("troot   (root normal potri)", t.troot));
  out() << f.write(FormatList("tstep0  (preparations)", t.tstep0));
  out() << f.write(FormatList("tstep1  (Z2 <- C * T2)", t.tstep1));
  out() << f.write(FormatList("tstep1a (extract diag)", t.tstep1a));
  out() << f.write(FormatList("tstep2  (adjust Z2)", t.tstep2));
  out() << f.write(FormatList("tstep3  (Z1 <- (Z2)**T * T2)", t.tstep3));
  out() << f.write(FormatList("tstep4  (Z1 <- Z1 + inv(D))", t.tstep4));
  out() << f.write(FormatList("tstep5  (adjust Z1 )", t.tstep5));
  if (timers) *timers = t;
  return info;
}

std::int32_t extract_inverse(const Sx2Layout& l, const Array1<double>& lnz, const Array1<std::int32_t>& iperm,
                             const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, Array1<double>& a) {
  const std::int64_t n = l.n;
  for (std::int64_t i = 1; i <= n; ++i) {
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      if (j < 1 || j > n) continue;
      const std::int64_t pi = iperm(i), pj = iperm(j);
      const std::int64_t r = std::max(pi, pj), c = std::min(pi, pj);
      if (c < 1 || r > n) continue;
      const std::int32_t t = (*l.snode)(c);
      const std::int64_t f = l.first(t), last = f + l.width(t) - 1;
      std::int64_t pos = 0;
      if (r <= last) {
        pos = l.diag_position(t, r - f + 1, c - f + 1);
      } else {
        const std::int32_t* list = l.lindx->data() + ((*l.xlindx)(t) - 1);
        const std::int32_t* end = list + l.rows_below(t);
        const std::int32_t* hit = std::lower_bound(list, end, static_cast<std::int32_t>(r));
        if (hit == end || *hit != r) return 5;
        pos = l.below_position(t, hit - list, c - f + 1);
      }
      a(k) = lnz(pos);
    }
  }
  return kSkeldaOk;
}

std::int32_t skelda_spinv(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                          Array1<double>& a, std::int32_t verbose, const SkeldaInvBlas& blas) {
  SkeldaState& s = skelda_state;
  const std::int32_t v = std::abs(verbose);
  if (s.stage() != 30) return kSkeldaInvalidStep;
  if (ia.size() < 2 || neq != s.iparm(kN) || neq + 1 > ia.size() ||
      static_cast<std::int64_t>(ia(neq + 1)) - 1 != s.iparm(kNnz))
    return kSkeldaAbnormalArgs;
  if (s.iparm(kFactorType) != 2) return 11;
  if (!s.xsuper || !s.snode || !s.xlindx || !s.lindx || !s.xlnz || !s.lnz || !s.cflag || !s.iperm)
    return kSkeldaNoTempMemory;
  Stopwatch clock;
  const Sx2Layout layout = skelda_layout();
  InvmfOptions opt;
  opt.limC = s.iparm(kLimC);
  opt.blksz = s.iparm(kBlksz);
  opt.spdopt = s.iparm(kSpdopt);
  InvmfSizes sizes;
  if (const std::int32_t st = invmf_simulate(layout, opt, sizes); st != kSkeldaOk) return st;
  if (v > 2) {
    const double mb = 8.0 / 1048576.0;
    const double lx = static_cast<double>(std::max<std::int64_t>(1, s.iparm(kLnzAllocated)));
    out() << fformat("(a,i12)", "   maxnd    =", sizes.maxnd);
    out() << fformat("(a,i12)", "   maxnc    =", sizes.maxnc);
    out() << fformat("(a,i12)", "   maxTMP   =", sizes.maxtmp);
    out() << fformat("(a,f12.3)", "       MB   =", static_cast<double>(sizes.maxtmp) * mb);
    out() << fformat("(a,f12.5)", "maxTMP/|Lx|=", static_cast<double>(sizes.maxtmp) / lx);
    out() << fformat("(a,3i14)", "size: full, panel-spd, panel-mem", sizes.size_full, sizes.size_panel_spd,
                     sizes.size_panel_mem);
    out() << fformat("(a,3f14.3)", "MB  : full, panel-spd, panel-mem", static_cast<double>(sizes.size_full) * mb,
                     static_cast<double>(sizes.size_panel_spd) * mb, static_cast<double>(sizes.size_panel_mem) * mb);
    out() << fformat("(a,i12)", "   limC     =", opt.limC);
    out() << fformat("(a,i12)", "   blksz    =", opt.blksz);
    out() << fformat("(a,i12)", "   spdopt   =", opt.spdopt);
    out() << fformat("(a,i12)", "nthreads  =", s.iparm(kNthreads));
  }
  std::int32_t info = 0;
  try {
    info = supernodal_sx2_invmf(layout, *s.lnz, *s.cflag, opt, sizes, blas);
  } catch (const std::bad_alloc&) {
    return kSkeldaNoTempMemory;  // the work is allocated before the factor is touched
  }
  // From here on lnz is no factor any more, even when the kernel failed half way.
  s.stage() = 40;
  // A failed DPOTRI or DTRTRI is a LAPACK error of the task: its info (a column number) would
  // read as an unrelated line of the status table, so the task reports status 8.
  if (info != 0) return 8;
  if (extract_inverse(layout, *s.lnz, *s.iperm, ia, ja, a) != kSkeldaOk) return 5;
  s.iparm(kTempInv) = sizes.maxtmp;
  s.rparm(59) = clock.cpu();
  s.rparm(60) = clock.wall();
  return kSkeldaOk;
}

std::int32_t skelda_spinv_step(std::int32_t, const SkeldaArgs& args, std::int32_t verbose) {
  if (!args.neq || !args.ia || !args.ja || !args.a) return kSkeldaLackOfArguments;
  return skelda_spinv(*args.neq, *args.ia, *args.ja, *args.a, verbose);
}

}  // namespace mmekit
