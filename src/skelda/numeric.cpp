// Numeric factorisation: load, memory simulation, left-looking supernodal Cholesky with or
// without the detection of dependent columns, LDL conversion and the log-determinant.
#include "mmekit/skelda/numeric.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "mmekit/skelda/skelda.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

blas_int bi(std::int64_t v) { return static_cast<blas_int>(v); }

}  // namespace

const SkeldaBlas& default_skelda_blas() {
  static const SkeldaBlas table{
      [](blas_int n, const double* x, blas_int incx, const double* y, blas_int incy) {
        return blas::dot(n, x, incx, y, incy);
      },
      [](blas_int n, double alpha, const double* x, blas_int incx, double* y, blas_int incy) {
        blas::axpy(n, alpha, x, incx, y, incy);
      },
      [](blas_int n, double alpha, double* x, blas_int incx) { blas::scal(n, alpha, x, incx); },
      [](char ta, char tb, blas_int m, blas_int n, blas_int k, double alpha, const double* a, blas_int lda,
         const double* b, blas_int ldb, double beta, double* c, blas_int ldc) {
        blas::gemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      },
      [](blas_int m, blas_int n, double alpha, const double* x, blas_int incx, const double* y, blas_int incy,
         double* a, blas_int lda) { blas::ger(m, n, alpha, x, incx, y, incy, a, lda); },
      [](char uplo, blas_int n, double alpha, const double* x, blas_int incx, double* ap) {
        blas::spr(uplo, n, alpha, x, incx, ap);
      },
      [](char trans, blas_int m, blas_int n, double alpha, const double* a, blas_int lda, const double* x,
         blas_int incx, double beta, double* y, blas_int incy) {
        blas::gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
      },
      [](char uplo, char trans, blas_int n, blas_int k, double alpha, const double* a, blas_int lda, double beta,
         double* c, blas_int ldc) { blas::syrk(uplo, trans, n, k, alpha, a, lda, beta, c, ldc); },
      [](char side, char uplo, char transa, char diag, blas_int m, blas_int n, double alpha, const double* a,
         blas_int lda, double* b, blas_int ldb) { blas::trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb); },
      [](char uplo, blas_int n, double* a, blas_int lda) { return blas::potrf(uplo, n, a, lda); },
  };
  return table;
}

std::int64_t snll_update_width(const Sx2Layout& layout) { return std::max<std::int64_t>(1, layout.panel); }

// ---------------------------------------------------------------------------------------------
// The walk shared by the factorisation and its simulation.
//
// Target J receives the updates of every earlier supernode K whose remaining rows start in
// the columns of J. `link(J)` heads the list of those K, each chaining to the next through its
// own `link` word (a supernode is in one list at a time, and only after its own list was used).
// `remain(K)` counts the rows of K's list not yet used as target rows, from the end of the list.
// `relidx` maps a global row to its position in J counted from the bottom: m+w-1-t for the
// column first+t, m-k for the k-th row of the list (k from 1).
namespace {

struct Walk {
  const Sx2Layout& L;
  std::vector<std::int32_t> link, remain, relidx, gather;

  explicit Walk(const Sx2Layout& layout)
      : L(layout),
        link(static_cast<std::size_t>(layout.nsn) + 1, 0),
        remain(static_cast<std::size_t>(layout.nsn) + 1, 0),
        relidx(static_cast<std::size_t>(layout.n) + 1, 0) {
    std::int64_t rows = 0;
    for (std::int32_t s = 1; s <= layout.nsn; ++s) rows = std::max(rows, layout.rows_below(s));
    gather.assign(static_cast<std::size_t>(rows) + 1, 0);
  }

  void set_relidx(std::int32_t j) {
    const std::int64_t f = L.first(j), w = L.width(j), m = L.rows_below(j), x = (*L.xlindx)(j);
    for (std::int64_t t = 0; t < w; ++t) relidx[static_cast<std::size_t>(f + t)] = static_cast<std::int32_t>(m + w - 1 - t);
    for (std::int64_t k = 1; k <= m; ++k)
      relidx[static_cast<std::size_t>((*L.lindx)(x + k - 1))] = static_cast<std::int32_t>(m - k);
  }

  // One pending update of J by K: fills gather(0..r-1) and returns r and nj.
  void prepare(std::int32_t j, std::int32_t k, std::int64_t& r, std::int64_t& nj) {
    const std::int64_t last = L.first(j) + L.width(j) - 1;
    const std::int64_t mk = L.rows_below(k);
    r = remain[static_cast<std::size_t>(k)];
    const std::int64_t start = (*L.xlindx)(k) + mk - r;
    nj = 0;
    for (std::int64_t i = 0; i < r; ++i) {
      const std::int32_t row = (*L.lindx)(start + i);
      if (row <= last) nj = i + 1;
      gather[static_cast<std::size_t>(i)] = relidx[static_cast<std::size_t>(row)];
    }
  }

  // After the update: K moves to the target of its next row.
  void advance(std::int32_t k, std::int64_t r, std::int64_t nj) {
    if (nj < r) {
      const std::int64_t mk = L.rows_below(k);
      const std::int32_t row = (*L.lindx)((*L.xlindx)(k) + mk - r + nj);
      const std::int32_t t = (*L.snode)(row);
      link[static_cast<std::size_t>(k)] = link[static_cast<std::size_t>(t)];
      link[static_cast<std::size_t>(t)] = k;
    }
    remain[static_cast<std::size_t>(k)] = static_cast<std::int32_t>(std::max<std::int64_t>(r - nj, 0));
  }

  // After J is factorised: J joins the list of the supernode of its first row.
  void finish(std::int32_t j) {
    const std::int64_t m = L.rows_below(j);
    link[static_cast<std::size_t>(j)] = 0;
    if (m > 0) {
      const std::int32_t t = (*L.snode)((*L.lindx)((*L.xlindx)(j)));
      link[static_cast<std::size_t>(j)] = link[static_cast<std::size_t>(t)];
      link[static_cast<std::size_t>(t)] = j;
      remain[static_cast<std::size_t>(j)] = static_cast<std::int32_t>(m);
    }
  }

  bool contiguous(std::int64_t r) const { return gather[0] - gather[static_cast<std::size_t>(r - 1)] + 1 == r; }
};

}  // namespace

SnllMemory snll_simulate(const Sx2Layout& layout, std::int64_t lx_size, std::int32_t verbose,
                         std::int64_t small_update) {
  SnllMemory mem;
  Walk walk(layout);
  const std::int64_t cw = snll_update_width(layout);
  std::int64_t widest = 0;
  for (std::int32_t j = 1; j <= layout.nsn; ++j) {
    widest = std::max(widest, layout.width(j));
    mem.lj = std::max(mem.lj, sx2_size(layout.width(j), layout.rows_below(j), layout.panel));
    walk.set_relidx(j);
    for (std::int32_t k = walk.link[static_cast<std::size_t>(j)]; k != 0;) {
      const std::int32_t next = walk.link[static_cast<std::size_t>(k)];
      std::int64_t r = 0, nj = 0;
      walk.prepare(j, k, r, nj);
      if (r > 0 && r * nj * layout.width(k) > small_update && !walk.contiguous(r))
        mem.tmp = std::max(mem.tmp, r * std::min(nj, cw));
      walk.advance(k, r, nj);
      k = next;
    }
    walk.finish(j);
  }
  const std::int64_t index_words = static_cast<std::int64_t>(walk.link.size() + walk.remain.size() +
                                                             walk.relidx.size() + walk.gather.size());
  mem.max_mem = mem.tmp + widest + (index_words + 1) / 2;
  if (std::abs(verbose) > 2) {
    std::ostream& o = out();
    const double mb = 8.0 / 1048576.0;
    o << "SKELDA_FAC_SNLL\n";
    o << "simulation supernodal left-looking\n";
    o << "size: maxMEM, TMP, LJ" << free_format(mem.max_mem, mem.tmp, mem.lj) << '\n';
    o << "MB  : maxMEM, TMP, LJ"
      << free_format(static_cast<double>(mem.max_mem) * mb, static_cast<double>(mem.tmp) * mb,
                     static_cast<double>(mem.lj) * mb)
      << '\n';
    o << "maxMEM/|Lx|=" << free_format(static_cast<double>(mem.max_mem) / static_cast<double>(lx_size)) << '\n';
  }
  return mem;
}

// ---------------------------------------------------------------------------------------------
// Loading.

std::int32_t load_matrix(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                         const Array1<double>& a, const Array1<std::int32_t>& iperm,
                         const Sx2Layout& layout, Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                         Array1<std::int64_t>* position_map) {
  const std::int64_t total = (*layout.xlnz)(layout.nsn + 1) - 1;
  if (total < 0 || total > lnz.size()) return kSkeldaNoTempMemory;
  std::fill(lnz.begin(), lnz.begin() + total, 0.0);
  if (ia.size() < n + 1 || iperm.size() < n || cflag.size() < n) return kSkeldaNoTempMemory;
  const std::int64_t nnz = static_cast<std::int64_t>(ia(n + 1)) - 1;
  if (nnz < 0 || nnz > ja.size() || nnz > a.size()) return kSkeldaNoTempMemory;
  if (position_map && position_map->size() < nnz) position_map->resize(nnz);
  // The entries by permuted column (the smaller permuted index), in the order of the input so
  // that the last of a repeated entry is stored last.
  std::vector<std::int64_t> start(static_cast<std::size_t>(n) + 2, 0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int32_t j = ja(k);
      if (k < 1 || j < 1 || j > n) return kSkeldaNoTempMemory;
      const std::int32_t r = iperm(i), c = iperm(j);
      if (r < 1 || r > n || c < 1 || c > n) return kSkeldaNoTempMemory;
      ++start[static_cast<std::size_t>(std::min(r, c)) + 1];
    }
  for (std::int32_t c = 1; c <= n; ++c) start[static_cast<std::size_t>(c) + 1] += start[static_cast<std::size_t>(c)];
  std::vector<std::int64_t> entry(static_cast<std::size_t>(std::max<std::int64_t>(nnz, 1)));
  std::vector<std::int32_t> row(entry.size());
  std::vector<std::int64_t> fill(start.begin(), start.end());
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int32_t p = iperm(i), q = iperm(ja(k));
      const auto e = static_cast<std::size_t>(fill[static_cast<std::size_t>(std::min(p, q))]++);
      entry[e] = k;
      row[e] = std::max(p, q);
    }
  // Supernode by supernode: each row of the supernode gets its local row (the diagonal block
  // first, then the row list), stamped with the supernode so that a row of another one is
  // recognised as missing.
  std::vector<std::int32_t> local(static_cast<std::size_t>(n) + 1, 0), stamp(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t s = 1; s <= layout.nsn; ++s) {
    const std::int64_t f = layout.first(s), w = layout.width(s), m = layout.rows_below(s);
    const bool panel = layout.panel_form(s);
    for (std::int64_t t = 0; t < w; ++t) {
      local[static_cast<std::size_t>(f + t)] = static_cast<std::int32_t>(t);
      stamp[static_cast<std::size_t>(f + t)] = s;
    }
    for (std::int64_t q = 0; q < m; ++q) {
      const std::int32_t r = (*layout.lindx)((*layout.xlindx)(s) + q);
      local[static_cast<std::size_t>(r)] = static_cast<std::int32_t>(w + q);
      stamp[static_cast<std::size_t>(r)] = s;
    }
    for (std::int64_t c = f; c < f + w; ++c)
      for (std::int64_t e = start[static_cast<std::size_t>(c)]; e < start[static_cast<std::size_t>(c) + 1]; ++e) {
        const std::int64_t k = entry[static_cast<std::size_t>(e)];
        const std::int32_t r = row[static_cast<std::size_t>(e)];
        if (stamp[static_cast<std::size_t>(r)] != s) {
          if (panel) stop("ERROR: set_sx2_factor_element() Element not allocated");
          return kSkeldaNoTempMemory;
        }
        const std::int64_t li = local[static_cast<std::size_t>(r)], cl = c - f + 1;
        const std::int64_t pos = li < w ? layout.diag_position(s, li + 1, cl) : layout.below_position(s, li - w, cl);
        if (pos < 1 || pos > total) return kSkeldaNoTempMemory;
        double value = a(k);
        if ((cflag(r) & 1) || (cflag(static_cast<std::int32_t>(c)) & 1)) value = (r == c) ? 1.0 : 0.0;
        lnz(pos) = value;
        if (position_map) (*position_map)(k) = pos;
      }
  }
  return kSkeldaOk;
}

// ---------------------------------------------------------------------------------------------
// The dense kernel with the detection of dependent columns.

namespace {

void kachman_unblocked(std::int64_t n, double* a, std::int64_t lda, double tol_abs, double tol_rel,
                       std::int64_t& nlost, const double* diag0, std::int32_t* lostflag, const SkeldaBlas& blas) {
  for (std::int64_t j = 0; j < n; ++j) {
    double* ajj = a + j + j * lda;
    const double d = diag0[j];
    const double s = *ajj - (j > 0 ? blas.ddot(bi(j), a + j, bi(lda), a + j, bi(lda)) : 0.0);
    const std::int64_t below = n - j - 1;
    if (d <= tol_abs || s <= d * tol_rel) {
      *ajj = 1.0;
      ++nlost;
      lostflag[j] = -1;
      if (below > 0) blas.dscal(bi(below), 0.0, ajj + 1, 1);
    } else {
      const double root = std::sqrt(s);
      *ajj = root;
      if (below > 0) {
        if (j > 0) blas.dgemv('N', bi(below), bi(j), -1.0, a + j + 1, bi(lda), a + j, bi(lda), 1.0, ajj + 1, 1);
        blas.dscal(bi(below), 1.0 / root, ajj + 1, 1);
      }
    }
  }
}

}  // namespace

void kachman_dense(std::int64_t n, double* a, std::int64_t lda, double tol_abs, double tol_rel,
                   std::int64_t& nlost, const double* diag0, std::int32_t* lostflag,
                   std::int64_t blocksize, const SkeldaBlas& blas) {
  if (n <= 0) return;
  if (blocksize < 2 || blocksize >= n) {
    kachman_unblocked(n, a, lda, tol_abs, tol_rel, nlost, diag0, lostflag, blas);
    return;
  }
  for (std::int64_t j = 0; j < n; j += blocksize) {
    const std::int64_t jb = std::min(blocksize, n - j);
    double* ajj = a + j + j * lda;
    if (j > 0) blas.dsyrk('L', 'N', bi(jb), bi(j), -1.0, a + j, bi(lda), 1.0, ajj, bi(lda));
    kachman_unblocked(jb, ajj, lda, tol_abs, tol_rel, nlost, diag0 + j, lostflag + j, blas);
    const std::int64_t below = n - j - jb;
    if (below > 0) {
      if (j > 0)
        blas.dgemm('N', 'T', bi(below), bi(jb), bi(j), -1.0, a + j + jb, bi(lda), a + j, bi(lda), 1.0, ajj + jb,
                   bi(lda));
      blas.dtrsm('R', 'L', 'T', 'N', bi(below), bi(jb), 1.0, ajj, bi(lda), ajj + jb, bi(lda));
    }
  }
}

namespace {

// Factorises the diagonal block of a normal-form supernode and solves the rows below it.
bool factor_normal(const Sx2Layout& L, std::int32_t j, double* x, Array1<std::int32_t>& cflag,
                   const SnllOptions& opt, const SkeldaBlas& blas, double* diag0, std::int64_t& nlost) {
  const std::int64_t w = L.width(j), m = L.rows_below(j), f = L.first(j);
  double* d = x + (*L.xlnz)(j) - 1;
  if (opt.kachman) {
    for (std::int64_t t = 0; t < w; ++t) diag0[t] = d[t + t * w];
    kachman_dense(w, d, w, opt.tol_abs, opt.tol_rel, nlost, diag0, &cflag(f), opt.block_alt, blas);
  } else if (blas.dpotrf('L', bi(w), d, bi(w)) != 0) {
    return false;
  }
  if (m > 0) blas.dtrsm('R', 'L', 'T', 'N', bi(m), bi(w), 1.0, d, bi(w), d + w * w, bi(m));
  return true;
}

// A panel-form root, block column by block column: the updates from the block columns before
// it (DSYRK on the diagonal block, DGEMM below), the dense factorisation of its diagonal block
// and the triangular solve of the rows below. Padding rows and columns are never touched.
bool factor_panel(const Sx2Layout& L, std::int32_t j, double* x, Array1<std::int32_t>& cflag,
                  const SnllOptions& opt, const SkeldaBlas& blas, double* diag0, std::int64_t& nlost) {
  const std::int64_t w = L.width(j), f = L.first(j), p = L.panel, nb = sx2_blocks(w, p);
  double* base = x + (*L.xlnz)(j) - 1;
  if (opt.kachman)
    for (std::int64_t t = 1; t <= w; ++t) diag0[t - 1] = base[sx2_panel_offset(t, t, nb, p)];
  for (std::int64_t jb = 1; jb <= nb; ++jb) {
    const std::int64_t c0 = (jb - 1) * p, wj = std::min(p, w - c0), below = w - c0 - wj;
    const std::int64_t ldj = (nb - jb + 1) * p;
    double* pj = base + sx2_block_column_offset(jb, nb, p);
    for (std::int64_t kb = 1; kb < jb; ++kb) {
      const std::int64_t ldk = (nb - kb + 1) * p;
      const double* pk = base + sx2_block_column_offset(kb, nb, p) + (jb - kb) * p;
      blas.dsyrk('L', 'N', bi(wj), bi(p), -1.0, pk, bi(ldk), 1.0, pj, bi(ldj));
      if (below > 0)
        blas.dgemm('N', 'T', bi(below), bi(wj), bi(p), -1.0, pk + p, bi(ldk), pk, bi(ldk), 1.0, pj + p, bi(ldj));
    }
    if (opt.kachman) {
      kachman_dense(wj, pj, ldj, opt.tol_abs, opt.tol_rel, nlost, diag0 + c0, &cflag(f + c0), opt.block_alt, blas);
    } else if (blas.dpotrf('L', bi(wj), pj, bi(ldj)) != 0) {
      return false;
    }
    if (below > 0) blas.dtrsm('R', 'L', 'T', 'N', bi(below), bi(wj), 1.0, pj, bi(ldj), pj + p, bi(ldj));
  }
  return true;
}

}  // namespace

bool snll_factor_supernode(const Sx2Layout& layout, std::int32_t s, double* lnz, Array1<std::int32_t>& cflag,
                           const SnllOptions& options, const SkeldaBlas& blas, double* diag0, std::int64_t& nlost) {
  return layout.panel_form(s) ? factor_panel(layout, s, lnz, cflag, options, blas, diag0, nlost)
                              : factor_normal(layout, s, lnz, cflag, options, blas, diag0, nlost);
}

// ---------------------------------------------------------------------------------------------
// The left-looking factorisation.

namespace {

struct Factoriser {
  const Sx2Layout& L;
  double* x;  // lnz, 0-based
  Array1<std::int32_t>& cflag;
  const SnllOptions& opt;
  const SkeldaBlas& blas;
  Walk walk;
  std::vector<double> tmp, diag0;
  std::int64_t nlost = 0;

  Factoriser(const Sx2Layout& layout, Array1<double>& lnz, Array1<std::int32_t>& flags, const SnllOptions& o,
             const SkeldaBlas& b)
      : L(layout), x(lnz.data()), cflag(flags), opt(o), blas(b), walk(layout) {
    std::int64_t widest = 0;
    for (std::int32_t s = 1; s <= layout.nsn; ++s) widest = std::max(widest, layout.width(s));
    tmp.assign(static_cast<std::size_t>(std::max<std::int64_t>(o.tmp_words, 1)), 0.0);
    diag0.assign(static_cast<std::size_t>(std::max<std::int64_t>(widest, 1)), 0.0);
  }

  // The update of target j by the r remaining rows of k, the first nj of which are columns of j.
  void update(std::int32_t j, std::int32_t k, std::int64_t r, std::int64_t nj) {
    if (r <= 0 || nj <= 0) return;
    const std::int64_t w = L.width(j), m = L.rows_below(j), base = (*L.xlnz)(j) - 1;
    const std::int64_t wk = L.width(k), mk = L.rows_below(k);
    const double* src = x + (*L.xlnz)(k) - 1 + wk * wk + (mk - r);  // r-by-wk, leading dimension mk
    const bool panel = L.panel_form(j);
    const auto& g = walk.gather;
    auto local = [&](std::int64_t i) { return w + m - 1 - g[static_cast<std::size_t>(i)]; };

    if (r * nj * wk <= opt.small_update) {
      // A small update costs less written out than as dense calls.
      const std::int64_t nbk = panel ? sx2_blocks(w, L.panel) : 0, p = L.panel;
      for (std::int64_t jj = 0; jj < nj; ++jj) {
        const std::int64_t tc = local(jj);
        std::int64_t dbase = 0, bbase = 0;
        if (panel) {
          const std::int64_t jb = tc / p + 1;
          dbase = bbase = base + sx2_block_column_offset(jb, nbk, p) + (nbk - jb + 1) * p * (tc - (jb - 1) * p) -
                          (jb - 1) * p;
        } else {
          dbase = base + tc * w;
          bbase = base + w * w + tc * m - w;
        }
        for (std::int64_t ii = jj; ii < r; ++ii) {
          double sum = 0;
          for (std::int64_t q = 0; q < wk; ++q) sum += src[ii + q * mk] * src[jj + q * mk];
          const std::int64_t i = local(ii);
          x[(i < w ? dbase : bbase) + i] -= sum;
        }
      }
      return;
    }
    if (!panel && walk.contiguous(r)) {
      // Rows of k are consecutive rows of j: straight into the factor.
      const std::int64_t i0 = local(0);
      blas.dsyrk('L', 'N', bi(nj), bi(wk), -1.0, src, bi(mk), 1.0, x + base + i0 + i0 * w, bi(w));
      if (r > nj)
        blas.dgemm('N', 'T', bi(r - nj), bi(nj), bi(wk), -1.0, src + nj, bi(mk), src, bi(mk), 1.0,
                   x + base + w * w + i0 * m, bi(m));
      return;
    }
    if (panel && walk.contiguous(r)) {
      // Consecutive rows of a panel-form root: straight into each block column reached.
      const std::int64_t i0 = local(0), p = L.panel, nbk = sx2_blocks(w, p);
      for (std::int64_t c = 0; c < nj;) {
        const std::int64_t tc = i0 + c, jb = tc / p + 1, cend = std::min(nj, jb * p - i0), nc = cend - c;
        const std::int64_t ld = (nbk - jb + 1) * p;
        const std::int64_t colbase = base + sx2_block_column_offset(jb, nbk, p) + ld * (tc - (jb - 1) * p) - (jb - 1) * p;
        blas.dsyrk('L', 'N', bi(nc), bi(wk), -1.0, src + c, bi(mk), 1.0, x + colbase + tc, bi(ld));
        if (r > cend)
          blas.dgemm('N', 'T', bi(r - cend), bi(nc), bi(wk), -1.0, src + cend, bi(mk), src + c, bi(mk), 1.0,
                     x + colbase + i0 + cend, bi(ld));
        c = cend;
      }
      return;
    }
    // Otherwise through tmp, a chunk of target columns at a time, and a scatter by gather.
    const std::int64_t cw = snll_update_width(L);
    const std::int64_t nbk = panel ? sx2_blocks(w, L.panel) : 0, p = L.panel;
    for (std::int64_t c0 = 0; c0 < nj; c0 += cw) {
      const std::int64_t nc = std::min(cw, nj - c0), nr = r - c0;
      double* t = tmp.data();
      blas.dsyrk('L', 'N', bi(nc), bi(wk), 1.0, src + c0, bi(mk), 0.0, t, bi(nr));
      if (nr > nc)
        blas.dgemm('N', 'T', bi(nr - nc), bi(nc), bi(wk), 1.0, src + c0 + nc, bi(mk), src + c0, bi(mk), 0.0, t + nc,
                   bi(nr));
      for (std::int64_t jj = 0; jj < nc; ++jj) {
        const std::int64_t tc = local(c0 + jj);
        const double* col = t + jj * nr;
        if (panel) {
          const std::int64_t jb = tc / p + 1;
          const std::int64_t cbase = base + sx2_block_column_offset(jb, nbk, p) + (nbk - jb + 1) * p * (tc - (jb - 1) * p) -
                                     (jb - 1) * p;
          for (std::int64_t ii = jj; ii < nr; ++ii) x[cbase + local(c0 + ii)] -= col[ii];
        } else {
          const std::int64_t dbase = base + tc * w, bbase = base + w * w + tc * m - w;
          for (std::int64_t ii = jj; ii < nr; ++ii) {
            const std::int64_t i = local(c0 + ii);
            x[(i < w ? dbase : bbase) + i] -= col[ii];
          }
        }
      }
    }
  }

  std::int32_t run() {
    for (std::int32_t j = 1; j <= L.nsn; ++j) {
      walk.set_relidx(j);
      for (std::int32_t k = walk.link[static_cast<std::size_t>(j)]; k != 0;) {
        const std::int32_t next = walk.link[static_cast<std::size_t>(k)];
        std::int64_t r = 0, nj = 0;
        walk.prepare(j, k, r, nj);
        update(j, k, r, nj);
        walk.advance(k, r, nj);
        k = next;
      }
      if (!snll_factor_supernode(L, j, x, cflag, opt, blas, diag0.data(), nlost)) return 8;
      walk.finish(j);
    }
    return kSkeldaOk;
  }
};

}  // namespace

std::int32_t snll_factor(const Sx2Layout& layout, Array1<double>& lnz, Array1<std::int32_t>& cflag,
                         const SnllOptions& options, const SkeldaBlas& blas, std::int64_t& rank) {
  rank = 0;
  Factoriser fac(layout, lnz, cflag, options, blas);
  const std::int32_t st = fac.run();
  if (st != kSkeldaOk) return st;
  rank = layout.n - fac.nlost;
  if (options.ldl) ldl_from_cholesky(layout, lnz, blas);
  return kSkeldaOk;
}

void ldl_from_cholesky(const Sx2Layout& layout, Array1<double>& lnz, const SkeldaBlas& blas) {
  double* x = lnz.data();
  for (std::int32_t s = 1; s <= layout.nsn; ++s) {
    const std::int64_t w = layout.width(s), m = layout.rows_below(s);
    const bool panel = layout.panel_form(s);
    for (std::int64_t c = 1; c <= w; ++c) {
      double* d = x + layout.diag_position(s, c, c) - 1;
      const double v = *d;
      if (!(v > 0)) continue;
      *d = v * v;
      // Below the diagonal the column is contiguous inside the diagonal block (and, in the
      // panel form, inside its block column down to the last row).
      if (w - c > 0) blas.dscal(bi(w - c), 1.0 / v, d + 1, 1);
      if (!panel && m > 0) blas.dscal(bi(m), 1.0 / v, x + layout.below_position(s, 0, c) - 1, 1);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The task.

std::int32_t skelda_numfac(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                           const Array1<double>& a, std::int32_t& rank, double* logdet, std::int32_t verbose) {
  SkeldaState& s = skelda_state;
  const std::int32_t v = std::abs(verbose);
  if (s.stage() < 20) return kSkeldaInvalidStep;
  if (ia.size() < 2 || neq != s.iparm(kN) || neq + 1 > ia.size() ||
      static_cast<std::int64_t>(ia(neq + 1)) - 1 != s.iparm(kNnz))
    return kSkeldaAbnormalArgs;
  if (!s.xsuper || !s.snode || !s.xlindx || !s.lindx || !s.xlnz || !s.lnz || !s.cflag || !s.iperm)
    return kSkeldaNoTempMemory;
  const std::int32_t n = neq;
  const bool ldl = s.iparm(kFactorType) == 2;
  const double tol_rel = s.rparm(10), tol_abs = s.rparm(11);
  Stopwatch clock;
  std::int32_t status = 5;
  const Sx2Layout layout = skelda_layout();
  Array1<std::int32_t>& cflag = *s.cflag;
  if (s.iparm(kConstraintsGiven) < 1) cflag.fill(0);
  SnllMemory mem;
  std::int64_t r = 0;
  try {
    if (s.iparm(kNoLoad) < 1) {
      const std::int32_t st = load_matrix(n, ia, ja, a, *s.iperm, layout, *s.lnz, cflag);
      if (st != kSkeldaOk) return status;
    } else if (v >= 2) {
      out() << "NOTE: The sparse matrix is not loaded to the internal storage.\n";
    }
    mem = snll_simulate(layout, s.iparm(kLnzAllocated), verbose, SnllOptions{}.small_update);
    rank = 0;
    status = 8;
    SnllOptions opt;
    opt.kachman = s.iparm(kConstraintsGiven) < 1 && s.iparm(kKachman) > 0;
    opt.ldl = ldl;
    opt.tol_abs = tol_abs;
    opt.tol_rel = tol_rel;
    opt.block_alt = s.iparm(kPanelSizeAlt);
    opt.tmp_words = mem.tmp;
    const std::int32_t st = snll_factor(layout, *s.lnz, cflag, opt, default_skelda_blas(), r);
    if (st != kSkeldaOk) return status;
  } catch (const std::bad_alloc&) {
    return kSkeldaNoTempMemory;
  }
  rank = static_cast<std::int32_t>(r);
  s.stage() = 30;
  if (v > 2) {
    out() << "   rank     =" << free_format(rank) << '\n';
    out() << "   lost     =" << free_format(n - rank) << '\n';
  }
  if (s.iparm(kLogdetOnFactor) > 0) {
    status = 10;
    const double value = supernodal_logdet(layout, *s.lnz, static_cast<int>(s.iparm(kFactorType)));
    if (!std::isfinite(value)) return status;
    s.rparm(41) = value;
    if (logdet) *logdet = value;
  }
  s.iparm(kRank) = rank;
  s.iparm(kTempFact) = mem.max_mem;
  std::int64_t flagged = 0;
  for (std::int32_t i = 1; i <= n; ++i)
    if (cflag(i) & 1) ++flagged;
  s.iparm(kFlaggedColumns) = flagged;
  s.rparm(55) = clock.cpu();
  s.rparm(56) = clock.wall();
  return kSkeldaOk;
}

std::int32_t skelda_numfac_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose) {
  std::int32_t rank = 0;
  const std::int32_t st =
      skelda_numfac(*args.neq, *args.ia, *args.ja, *args.a, rank, task == 40 ? args.det : nullptr, verbose);
  if (task == 40 && args.ival && st == kSkeldaOk) *args.ival = rank;
  return st;
}

}  // namespace mmekit
