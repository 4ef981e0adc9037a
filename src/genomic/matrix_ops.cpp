// Operations on the genomic matrices in their storage kinds: kind checks, the difference of two
// matrices, statistics, the check of an inverse, neutralised animals, the product over the
// genotyped equations and the file of old solutions.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/genomic/matrix_files.hpp"
#include "mmekit/genomic/state.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

using namespace matrix_files_detail;

namespace {

void check_type(std::string_view storage, std::string_view kind) {
  std::string_view s = storage;
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  if (s != kind) stop(free_format("Wrong Type: ", storage));
}

// ---- Difference

void difference_header(std::string_view kind, std::int64_t nG, std::int64_t nA) {
  print_free("Calculating GmA22/GimA22i Matrix " + std::string(kind) + " storage");
  if (nG != nA) {
    print_free("Dimension of G(i) and A22(i) not match !!!! ");
    print_free(" G(i)   N=", nG);
    stop(free_format(" A22(i) N=", nA));
  }
}

// result(k) = wG G(k) - wA A(k) over the elements in storage order.
void combine(double* r, const double* g, const double* a, std::int64_t len, double wG, double wA) {
  for (std::int64_t k = 0; k < len; ++k) r[k] = wG * g[k] - wA * a[k];
}

// ---- Statistics

struct Accumulator {
  std::int64_t count = 0;  // elements, held or not
  std::int64_t seen = 0;   // elements visited (the others are zeros)
  double sum = 0, min = std::numeric_limits<double>::infinity(), max = -std::numeric_limits<double>::infinity();
  void add(double v) {
    ++seen;
    sum += v;
    min = std::min(min, v);
    max = std::max(max, v);
  }
};

// Two passes: the sums, then the squares about the mean (zeros not held count as (0 - mean)^2).
template <class Visit>
MatrixStatistics statistics(std::int64_t n, Visit&& visit) {
  Accumulator d, o;
  d.count = n;
  o.count = n > 1 ? n * (n - 1) / 2 : 0;
  visit([&](bool diagonal, double v) { (diagonal ? d : o).add(v); });
  MatrixStatistics s;
  auto finish = [](Accumulator& a, MatrixStatistics::Set& r) {
    r.count = a.count;
    if (a.count == 0) return;
    if (a.seen < a.count) {
      a.min = std::min(a.min, 0.0);
      a.max = std::max(a.max, 0.0);
    }
    r.mean = a.sum / static_cast<double>(a.count);
    r.min = a.min;
    r.max = a.max;
  };
  finish(d, s.diagonal);
  finish(o, s.off_diagonal);
  double vd = 0, vo = 0;
  visit([&](bool diagonal, double v) {
    const double e = v - (diagonal ? s.diagonal.mean : s.off_diagonal.mean);
    (diagonal ? vd : vo) += e * e;
  });
  auto var = [](const Accumulator& a, const MatrixStatistics::Set& r, double ss) {
    if (a.count == 0) return 0.0;
    ss += static_cast<double>(a.count - a.seen) * r.mean * r.mean;
    return ss / static_cast<double>(a.count);
  };
  s.diagonal.var = var(d, s.diagonal, vd);
  s.off_diagonal.var = var(o, s.off_diagonal, vo);
  return s;
}

MatrixStatistics print_statistics(const MatrixStatistics& s, std::string_view name) {
  print_free(" Statistic of ", name);
  fwrite(out(), "(19x,4a14)", "Mean", "Min", "Max", "Var");
  fwrite(out(), "(a19,4f14.6)", "     Diagonal      ", s.diagonal.mean, s.diagonal.min, s.diagonal.max, s.diagonal.var);
  fwrite(out(), "(a19,4f14.6)", "     Off-diagonal ", s.off_diagonal.mean, s.off_diagonal.min, s.off_diagonal.max,
         s.off_diagonal.var);
  return s;
}

// ---- Inverse check

densem to_dense(const densem& a) { return a; }
densem to_dense(const dense_symm& a) {
  densem d;
  unpack_symm(a, d);
  return d;
}
densem to_dense(const sparse_hashm& a) {
  densem d(a.n, 0.0);
  for_each_slot(a, [&](std::int32_t i, std::int32_t j, double v) {
    d(i, j) = v;
    if (a.storage != 'f') d(j, i) = v;
  });
  return d;
}

template <class M>
InverseCheck check_inverse(const M& X, const M& Xinv, std::string_view name) {
  if (order(X) != order(Xinv))
    stop(free_format(" Check Inverse: orders of the matrix and its inverse differ", order(X), order(Xinv)));
  const densem p = matmul(to_dense(Xinv), to_dense(X));
  InverseCheck c;
  const std::int64_t n = p.order();
  if (n > 0) {
    c.maxval = -std::numeric_limits<double>::infinity();
    c.minval = std::numeric_limits<double>::infinity();
  }
  for (std::int64_t j = 1; j <= n; ++j) {
    for (std::int64_t i = 1; i <= n; ++i) {
      const double v = p(i, j);
      c.maxval = std::max(c.maxval, v);
      c.minval = std::min(c.minval, v);
      if (i == j) c.trace += v;
      else c.sum_off_diagonal += v;
      c.max_abs_error = std::max(c.max_abs_error, std::abs(v - (i == j ? 1.0 : 0.0)));
    }
  }
  print_free(" Check Inverse as Xinv*X=I of ", name);
  print_free("              maxval: ", c.maxval);
  print_free("              minval: ", c.minval);
  print_free("               trace: ", c.trace);
  print_free("    sum off-diagonal: ", c.sum_off_diagonal);
  print_free("  max[abs(Xinv*X-I)]: ", c.max_abs_error);
  return c;
}

void check_flags(std::int64_t n, const Array1<std::int32_t>& flags) {
  if (flags.size() != n) stop(free_format("RemoveFromGenotyped: Error matrices not match!!!", n, flags.size()));
}

}  // namespace

void check_type_densem(std::string_view storage) { check_type(storage, "densem"); }
void check_type_dense_symm(std::string_view storage) { check_type(storage, "dense_symm"); }
void check_type_sparse_hashm(std::string_view storage) { check_type(storage, "sparse_hashm"); }

// ---- Difference -----------------------------------------------------------------------------------

void GmA22_densem(densem& result, const densem& G, const densem& A22, double wG, double wA) {
  difference_header("Densem", G.order(), A22.order());
  Stopwatch sw;
  if (&result != &G && &result != &A22) result.resize(G.order());
  combine(result.data(), G.data(), A22.data(), G.size(), wG, wA);
  print_free("Calculating GmA22/GimA22i Matrix...elapsed time", sw.wall());
}

void GmA22_dense_symm(dense_symm& result, const dense_symm& G, const dense_symm& A22, double wG, double wA) {
  difference_header("Dense_symm", G.order(), A22.order());
  Stopwatch sw;
  if (&result != &G && &result != &A22) result.resize(G.order());
  combine(result.data(), G.data(), A22.data(), G.size(), wG, wA);
  print_free("Calculating GmA22/GimA22i Matrix...elapsed time", sw.wall());
}

void GmA22_sparse_hashm(sparse_hashm& result, const sparse_hashm& G, const sparse_hashm& A22, double wG, double wA) {
  difference_header("Sparse_hashm", G.n, A22.n);
  if (G.storage != A22.storage) stop(" GmA22_sparse_hashm: G and A22 with different storage");
  Stopwatch sw;
  sparse_hashm r;
  const std::int64_t both = G.nel + A22.nel;  // room for all without growing
  init_sparse_hashm(r, G.n, both + both / 4 + 16, G.storage);
  for_each_slot(G, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(wG * v, i, j, r); });
  for_each_slot(A22, [&](std::int32_t i, std::int32_t j, double v) { addm_sparse_hashm(-wA * v, i, j, r); });
  result = std::move(r);
  print_free("Calculating GmA22/GimA22i Matrix...elapsed time", sw.wall());
}

// ---- Statistics -----------------------------------------------------------------------------------

MatrixStatistics stat_matrix_densem(const densem& X, std::string_view name) {
  const std::int64_t n = X.order();
  return print_statistics(statistics(n, [&](auto&& f) {
                            for (std::int64_t j = 1; j <= n; ++j) {
                              const double* c = &X(1, j);
                              for (std::int64_t i = 1; i < j; ++i) f(false, c[i - 1]);
                              f(true, c[j - 1]);
                            }
                          }),
                          name);
}

MatrixStatistics stat_matrix_dense_symm(const dense_symm& X, std::string_view name) {
  const std::int64_t n = X.order();
  return print_statistics(statistics(n, [&](auto&& f) {
                            const double* p = X.data();
                            for (std::int64_t i = 1; i <= n; ++i) {
                              f(true, *p++);
                              for (std::int64_t j = i + 1; j <= n; ++j) f(false, *p++);
                            }
                          }),
                          name);
}

MatrixStatistics stat_matrix_sparse_hashm(const sparse_hashm& X, std::string_view name) {
  return print_statistics(statistics(X.n, [&](auto&& f) {
                            for_each_slot(X, [&](std::int32_t i, std::int32_t j, double v) {
                              if (i <= j) f(i == j, v);
                            });
                          }),
                          name);
}

InverseCheck check_inverse_densem(const densem& X, const densem& Xinv, std::string_view name) {
  return check_inverse(X, Xinv, name);
}
InverseCheck check_inverse_dense_symm(const dense_symm& X, const dense_symm& Xinv, std::string_view name) {
  return check_inverse(X, Xinv, name);
}
InverseCheck check_inverse_sparse_hashm(const sparse_hashm& X, const sparse_hashm& Xinv, std::string_view name) {
  return check_inverse(X, Xinv, name);
}

// ---- Removed animals --------------------------------------------------------------------------------

void remove_from_genotyped(densem& X, const Array1<std::int32_t>& animalFlag) {
  const std::int64_t n = X.order();
  check_flags(n, animalFlag);
  for (std::int64_t k = 1; k <= n; ++k) {
    if (animalFlag(k) == 0) continue;
    double* c = &X(1, k);
    std::fill(c, c + n, 0.0);
    for (std::int64_t j = 1; j <= n; ++j) X(k, j) = 0.0;
    X(k, k) = 1.0;
  }
}

void remove_from_genotyped(dense_symm& X, const Array1<std::int32_t>& animalFlag) {
  const std::int64_t n = X.order();
  check_flags(n, animalFlag);
  for (std::int64_t k = 1; k <= n; ++k) {
    if (animalFlag(k) == 0) continue;
    for (std::int64_t j = 1; j <= n; ++j) X(k, j) = 0.0;
    X(k, k) = 1.0;
  }
}

void remove_from_genotyped(sparse_hashm& X, const Array1<std::int32_t>& animalFlag) {
  check_flags(X.n, animalFlag);
  bool any = false;
  for (std::int64_t k = 1; k <= X.n; ++k) any = any || animalFlag(k) != 0;
  if (!any) return;
  if (X.allocated()) {
    double* p = X.x.data();
    for (std::int64_t k = 0; k < X.x.cols(); ++k, p += 3) {
      const auto i = static_cast<std::int32_t>(p[0]);
      if (i == 0) continue;
      const auto j = static_cast<std::int32_t>(p[1]);
      if (i < 1 || i > X.n || j < 1 || j > X.n) outside(i, j, X.n);
      if (animalFlag(i) != 0 || animalFlag(j) != 0) p[2] = 0.0;
    }
  }
  for (std::int32_t k = 1; k <= X.n; ++k)
    if (animalFlag(k) != 0) set_sym(X, k, k, 1.0);
}

void RemoveFromGenotyped(densem& X) { remove_from_genotyped(X, genomic.animalFlag); }
void RemoveFromGenotyped(dense_symm& X) { remove_from_genotyped(X, genomic.animalFlag); }
void RemoveFromGenotyped(sparse_hashm& X) { remove_from_genotyped(X, genomic.animalFlag); }

// ---- Matrix-vector product --------------------------------------------------------------------------

void matvec_genotyped_add(const densem& X, const Array1<std::int32_t>& genidx1, const Array1<std::int32_t>& genidx2,
                          const Array1<double>& x, Array1<double>& y, std::int32_t which, std::int32_t msg) {
  const std::int64_t n = X.order();
  if (n == 0) {
    print_free("Ax_g_usr_add_densem_mt: n=0");
    return;
  }
  if (which < 1 || which > 5) stop("Matrix- Vector multiplication option not available (1-5)");
  bool fits = genidx1.size() == n && genidx2.size() == n;
  for (std::int64_t i = 1; fits && i <= n; ++i)
    fits = genidx1(i) >= y.lower() && genidx1(i) <= y.upper() && genidx2(i) >= x.lower() && genidx2(i) <= x.upper();
  if (!fits) stop(free_format("Ay=z size y, z", y.size(), x.size(), genidx1.size(), genidx2.size(), n));
  if (msg > 100) {
    print_free(" genidx1: ", genidx1);
    print_free(" genidx2: ", genidx2);
    print_free(" x: ", x);
  }
  const auto un = static_cast<std::size_t>(n);
  const double* a = X.data();
  auto col = [&](std::int64_t j) { return a + static_cast<std::size_t>(j - 1) * un; };
  std::vector<double> xg, yg;
  auto gather = [&] {
    xg.resize(un);
    yg.assign(un, 0.0);
    for (std::int64_t j = 1; j <= n; ++j) xg[static_cast<std::size_t>(j - 1)] = x(genidx2(j));
  };
  auto scatter = [&] {
    for (std::int64_t i = 1; i <= n; ++i) y(genidx1(i)) += yg[static_cast<std::size_t>(i - 1)];
  };
  switch (which) {
    case 1:  // by rows: one dot product per row, x read through its index
      for (std::int64_t i = 1; i <= n; ++i) {
        double s = 0;
        for (std::int64_t j = 1; j <= n; ++j) s += col(j)[i - 1] * x(genidx2(j));
        y(genidx1(i)) += s;
      }
      break;
    case 2:  // by columns, straight into y
      for (std::int64_t j = 1; j <= n; ++j) {
        const double xj = x(genidx2(j));
        const double* c = col(j);
        for (std::int64_t i = 1; i <= n; ++i) y(genidx1(i)) += c[i - 1] * xj;
      }
      break;
    case 3:  // by columns into gathered vectors
      gather();
      for (std::int64_t j = 1; j <= n; ++j) {
        const double xj = xg[static_cast<std::size_t>(j - 1)];
        const double* c = col(j);
        for (std::size_t i = 0; i < un; ++i) yg[i] += c[i] * xj;
      }
      scatter();
      break;
    case 4:  // BLAS on gathered vectors
      gather();
      blas::gemv('N', static_cast<blas_int>(n), static_cast<blas_int>(n), 1.0, a, static_cast<blas_int>(n), xg.data(), 1,
                 0.0, yg.data(), 1);
      scatter();
      break;
    default: {  // tiles of columns, each swept row by row over the gathered vectors
      gather();
      constexpr std::int64_t tile = 256;
      for (std::int64_t j0 = 1; j0 <= n; j0 += tile) {
        const std::int64_t j1 = std::min(n, j0 + tile - 1);
        for (std::int64_t i = 1; i <= n; ++i) {
          double s = 0;
          for (std::int64_t j = j0; j <= j1; ++j) s += col(j)[i - 1] * xg[static_cast<std::size_t>(j - 1)];
          yg[static_cast<std::size_t>(i - 1)] += s;
        }
      }
      scatter();
    }
  }
  if (msg > 100) {
    Array1<double> yv(n);
    for (std::int64_t i = 1; i <= n; ++i) yv(i) = y(genidx1(i));
    print_free(" ygenid: ", yv);
  }
}

void Ax_g_usr_add_densem_mt(const densem& X, const Array1<std::int32_t>& genidx1, const Array1<std::int32_t>& genidx2,
                            const Array1<double>& x, Array1<double>& y) {
  matvec_genotyped_add(X, genidx1, genidx2, x, y, genomic.opt.whichMatVecMult, genomic.opt.msg);
}

void Ax_g_usr_add_mt_dense_symm(const dense_symm& X, const Array1<std::int32_t>&, const Array1<std::int32_t>&,
                                const Array1<double>&, Array1<double>&) {
  if (X.order() == 0) {
    print_free("Ax_g_usr_add_mt_dense_symm: n=0");
    return;
  }
  stop("Ax_g_usr_add_mt_dense_symm  NOT implemeted");
}
void AddGimA22i_ainv_dense_symm(const dense_symm&, sparse_hashm&) { stop("AddGimA22i_ainv_dense_symm: not implemented"); }
void add_g_usr_gs_densem_densem(const densem&, densem&) { stop("add_g_usr_gs_densem_densem: not implemented"); }
void add_g_usr_gs_densem_dense_symm(const densem&, dense_symm&) {
  stop("add_g_usr_gs_densem_dense_symm: not implemented");
}

// ---- Old solutions ----------------------------------------------------------------------------------

bool save_old_solutions(const densem& G, const densem& A22, const Array1<double>& x, std::string_view name) {
  if (G.order() == 0 || A22.order() == 0) stop("doing update rhs by GimA22i not implemented");
  if (std::all_of(x.begin(), x.end(), [](double v) { return v == 0.0; })) {
    print_free("all solutions zero, quick return");
    return false;
  }
  if (G.order() != A22.order() || x.size() != G.order())
    stop(free_format(" xAoldxGold: orders of G, A22 and the solutions differ", G.order(), A22.order(), x.size()));
  print_free("Saving Aold, Gold");
  auto solve = [&](const densem& m, const char* what) {
    print_free(std::string("solving for ") + what);
    Array1<double> z(x.size());
    std::copy(x.begin(), x.end(), z.begin());
    if (const std::int32_t info = solve_dense(m, z); info != 0)
      stop(free_format(std::string(" solving for ") + what + ": singular matrix, pivot", info));
    print_free(std::string("solving for ") + what + " done");
    return z;
  };
  const Array1<double> zG = solve(G, "G");
  const Array1<double> zA = solve(A22, "A");
  FramedWriter w;
  if (!w.open(std::string(name))) stop("Error in open \"" + std::string(name) + "\" file can not be created");
  w.write(static_cast<std::int32_t>(x.size()));
  w.write(x);
  w.write(zG);
  w.write(zA);
  w.close();
  return true;
}

bool read_old_solutions(OldSolutionProducts& p, std::string_view name) {
  FramedReader r;
  if (!r.open(std::string(name))) {
    print_free("Reading Aold, Gold NOT EXIST quick return");
    return false;
  }
  print_free("Reading Aold, Gold");
  std::int32_t n = 0;
  bool ok = r.read(n) == FramedStatus::ok && n >= 0;
  if (ok) {
    p.x.assign(n, 0.0);
    p.zG.assign(n, 0.0);
    p.zA.assign(n, 0.0);
    ok = r.read(p.x) == FramedStatus::ok && r.read(p.zG) == FramedStatus::ok && r.read(p.zA) == FramedStatus::ok;
  }
  if (!ok) stop(" Error reading file: " + std::string(name));
  return true;
}

bool update_rhs_old_solutions(Array1<double>& rhs, const Array1<std::int32_t>& eq, double w, std::string_view name) {
  OldSolutionProducts p;
  if (!read_old_solutions(p, name)) return false;
  if (p.x.size() != eq.size()) return false;
  for (std::int64_t i = 1; i <= eq.size(); ++i)
    if (eq(i) < rhs.lower() || eq(i) > rhs.upper())
      stop(free_format(" xAoldxGold: equation outside the right-hand side", eq(i)));
  for (std::int64_t i = 1; i <= eq.size(); ++i) rhs(eq(i)) -= w * (p.zG(i) - p.zA(i));
  return true;
}

}  // namespace mmekit
