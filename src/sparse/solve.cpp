// Relaxed Gauss-Seidel iteration for the four storage kinds.
#include "mmekit/sparse/solve.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "mmekit/sparse/fields.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

// A contiguous copy of the n elements of a strided vector; empty for a contiguous one.
std::vector<double> gathered(const double* p, std::int64_t stride, std::int64_t n) {
  std::vector<double> tmp;
  if (stride != 1) {
    tmp.resize(static_cast<std::size_t>(n));
    for (std::int64_t i = 0; i < n; ++i) tmp[static_cast<std::size_t>(i)] = p[i * stride];
  }
  return tmp;
}

// Copies a strided vector into contiguous storage when needed, and back at the end.
class Contiguous {
 public:
  Contiguous(SolverVector v, std::int64_t n) : v_(v), n_(n), tmp_(gathered(v.p, v.stride, n)) {}
  ~Contiguous() {
    if (v_.stride != 1)
      for (std::int64_t i = 0; i < n_; ++i) v_.p[i * v_.stride] = tmp_[static_cast<std::size_t>(i)];
  }
  double* data() { return v_.stride == 1 ? v_.p : tmp_.data(); }

 private:
  SolverVector v_;
  std::int64_t n_;
  std::vector<double> tmp_;
};

class ContiguousIn {
 public:
  ContiguousIn(ConstSolverVector v, std::int64_t n) : v_(v), tmp_(gathered(v.p, v.stride, n)) {}
  const double* data() const { return v_.stride == 1 ? v_.p : tmp_.data(); }

 private:
  ConstSolverVector v_;
  std::vector<double> tmp_;
};

void check_lengths(const char* who, std::int64_t n, const ConstSolverVector& rhs, const SolverVector& sol) {
  if (rhs.n < n || sol.n < n)
    stop(sparse_detail::message(std::string(who) + ": vectors shorter than the order of the matrix", n));
}

void closing_lines(std::int32_t rounds, double conv) {
  if (sparse_param.solve_verbose > 1) {
    out() << sparse_detail::message(" solutions computed in ", rounds) << " rounds of iteration\n";
    out() << sparse_detail::message(" reached convergence criterion ", conv) << '\n';
  }
}

void round_line(std::int32_t round, double conv) {
  static const Format line("(' round ',i6,'  convergence=',f12.4)");
  out() << line.write(FormatList(round, conv));
}

// The rounds of the sparse kinds. `rows` gives the 0-based element range of each 0-based row
// (begin, end) and each element's 0-based column and value; sol, rhs and diag are 0-based.
template <class Rows>
void sparse_rounds(std::int32_t n, const double* rhs, double* sol, const double* diag, const Rows& rows,
                   bool round_lines) {
  const double relax = static_cast<double>(sparse_param.solve_relax);
  const double limit = static_cast<double>(sparse_param.solve_conv);
  std::vector<double> work(static_cast<std::size_t>(n));
  double* w = work.data();
  double conv = 0.0;
  std::int32_t round = 1;
  for (;; ++round) {
    std::copy(rhs, rhs + n, w);
    double num = 0.0, den = 0.0;
    for (std::int32_t i = 0; i < n; ++i) {
      const double d = diag[i];
      if (d == 0.0) continue;
      const std::int64_t b = rows.begin(i), e = rows.end(i);
      double s = 0.0;
      for (std::int64_t k = b; k < e; ++k) s += rows.val(k) * sol[rows.col(k)];
      const double nv = ((w[i] - s) * relax) / d + sol[i];
      const double change = sol[i] - nv;
      den += nv * nv;
      num += change * change;
      sol[i] = nv;
      // The new value goes into the right-hand sides of the later equations (the lower
      // triangle, which is not stored).
      for (std::int64_t k = b; k < e; ++k) w[rows.col(k)] -= rows.val(k) * nv;
    }
    conv = num / den;
    if (conv < limit || round >= sparse_param.solve_rounds) break;
    if (round_lines) round_line(round, conv);
  }
  closing_lines(round, conv);
}

// Rows of the sorted triplets of a hash matrix.
struct HashRows {
  const double* x;
  const std::int64_t* rp;  // rp[i]: 1-based first element of 0-based row i
  std::int64_t begin(std::int32_t i) const { return rp[i] - 1; }
  std::int64_t end(std::int32_t i) const { return rp[i + 1] - 1; }
  std::int64_t col(std::int64_t k) const { return static_cast<std::int64_t>(x[3 * k + 1]) - 1; }
  double val(std::int64_t k) const { return x[3 * k + 2]; }
};

// Rows of the row-compressed form.
struct IjaRows {
  const std::int32_t* ia;  // ia[i]: 1-based start of 0-based row i
  const std::int32_t* ja;
  const double* a;
  std::int64_t begin(std::int32_t i) const { return std::int64_t{ia[i]} - 1; }
  std::int64_t end(std::int32_t i) const { return std::int64_t{ia[i + 1]} - 1; }
  std::int64_t col(std::int64_t k) const { return std::int64_t{ja[k]} - 1; }
  double val(std::int64_t k) const { return a[k]; }
};

void hash_solve(std::int32_t n, sparse_hashm& a, const double* rhs, double* sol, const char* who) {
  if (a.storage == 'f') stop("SOLVE_SPARSE_HASHM: not yet implemented for full-stored matrix");
  if (sparse_param.solve_zerosol)
    for (std::int32_t i = 0; i < n; ++i) sol[i] = 0.0;
  if (a.status == 1) {
    sort_sparse_hashm(a);
  } else if (a.status != 2) {
    out() << "Unknown status of hash matrix\n";
  }
  Array1<std::int64_t> row;
  Array1<double> diag;
  hashm_rows(a, n, row, diag, who);
  sparse_rounds(n, rhs, sol, diag.data(), HashRows{a.x.data(), row.data()}, true);
}

void ija_solve(std::int32_t n, const sparse_ija& a, const double* rhs, double* sol, const char* who) {
  if (sparse_param.solve_zerosol)
    for (std::int32_t i = 0; i < n; ++i) sol[i] = 0.0;
  if (n > 0 && (!a.allocated() || a.n < n)) stop(std::string(who) + ": matrix smaller than the number of equations");
  // Check the structure and the columns once, so that the rounds need no test: the first n
  // equations may not reach beyond n.
  if (n > 0) require_sparse_ija(who, a);
  std::vector<double> diag(static_cast<std::size_t>(n), 0.0);
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::int32_t b = a.ia(i), e = a.ia(i + 1);
    for (std::int32_t k = b; k < e; ++k) {
      const std::int32_t j = a.ja(k);
      if (j < 1 || j > n) stop(std::string(who) + ": index out of range of the matrix");
      if (j == i) diag[static_cast<std::size_t>(i - 1)] = a.a(k);
    }
  }
  sparse_rounds(n, rhs, sol, diag.data(), IjaRows{a.ia.data(), a.ja.data(), a.a.data()}, false);
}

// The dense kinds: `elem(i, j)` (0-based) reads the matrix.
template <class Elem>
void dense_rounds(std::int32_t n, const double* rhs, double* sol, Elem&& elem) {
  const double relax = static_cast<double>(sparse_param.solve_relax);
  const double limit = static_cast<double>(sparse_param.solve_conv);
  if (sparse_param.solve_zerosol)
    for (std::int32_t i = 0; i < n; ++i) sol[i] = 0.0;
  double conv = 0.0;
  std::int32_t round = 1;
  for (;; ++round) {
    double num = 0.0, den = 0.0;
    for (std::int32_t i = 0; i < n; ++i) {
      const double d = elem(i, i);
      if (d == 0.0) continue;
      double s = 0.0;
      for (std::int32_t j = 0; j < n; ++j) s += elem(i, j) * sol[j];
      const double nv = ((rhs[i] - s) * relax) / d + sol[i];
      const double change = sol[i] - nv;
      den += nv * nv;
      num += change * change;
      sol[i] = nv;
    }
    conv = num / den;
    if (conv < limit || round >= sparse_param.solve_rounds) break;
  }
  closing_lines(round, conv);
}

void densem_solve(std::int32_t n, const densem& a, const double* rhs, double* sol, const char* who) {
  if (n > a.order()) stop(std::string(who) + ": matrix smaller than the number of equations");
  const double* p = a.data();
  const std::int64_t ld = a.rows();
  dense_rounds(n, rhs, sol, [&](std::int32_t i, std::int32_t j) { return p[i + j * ld]; });
}

void symm_solve(std::int32_t n, const dense_symm& a, const double* rhs, double* sol, const char* who) {
  if (n > a.order()) stop(std::string(who) + ": matrix smaller than the number of equations");
  const double* p = a.data();
  const std::int64_t order = a.order();
  dense_rounds(n, rhs, sol, [&](std::int32_t i, std::int32_t j) {
    return p[symm_pos(std::int64_t{i} + 1, std::int64_t{j} + 1, order) - 1];
  });
}

}  // namespace

void hashm_rows(const sparse_hashm& a, std::int32_t n, Array1<std::int64_t>& row, Array1<double>& diag,
                const char* who) {
  const std::int32_t order = n > 0 ? n : 0;
  row.assign(order + 1, 0);
  diag.assign(order, 0.0);
  if (order == 0) return;
  row(1) = 1;
  const std::int64_t nel = a.allocated() ? std::min(a.nel, a.hash_size) : 0;
  const double* x = a.x.data();
  std::int64_t current = 0;
  for (std::int64_t k = 1; k <= nel; ++k) {
    const double* s = x + 3 * (k - 1);
    const std::int64_t i = trunc_index(s[0]), j = trunc_index(s[1]);
    if (i < 1 || j < 1 || i > order || j > order) stop(std::string(who) + ": index out of range of the matrix");
    if (s[0] == s[1]) diag(i) = s[2];
    if (i != current) {
      row(i) = k;
      current = i;
    }
  }
  if (current > 0) {
    row(current + 1) = nel + 1;
    for (std::int64_t i = current; i >= 1; --i)
      if (row(i) == 0) row(i) = row(i + 1);
  }
  // Rows after the last row with elements keep the pointer 0; their diagonal is 0, so the
  // sweep skips them. Give them an empty range all the same.
  for (std::int64_t i = current + 1; i <= order; ++i)
    if (row(i + 1) == 0) row(i + 1) = row(i);
}

namespace {

// The vector forms: lengths checked, then solve(n, a, rhs, sol, who) on contiguous copies of
// strided vectors, the solution copied back at the end.
template <class Matrix, class Solve>
void solve_vectors(const char* who, std::int32_t n, Matrix& a, ConstSolverVector rhs, SolverVector sol,
                   Solve solve) {
  check_lengths(who, n, rhs, sol);
  ContiguousIn r(rhs, n);
  Contiguous s(sol, n);
  solve(n, a, r.data(), s.data(), who);
}

}  // namespace

void SOLVE_DENSEM(const densem& a, ConstSolverVector rhs, SolverVector sol) {
  solve_vectors("SOLVE_DENSEM", static_cast<std::int32_t>(a.order()), a, rhs, sol, densem_solve);
}

void SOLVE_DENSE_SYMM(const dense_symm& a, ConstSolverVector rhs, SolverVector sol) {
  solve_vectors("SOLVE_DENSE_SYMM", static_cast<std::int32_t>(a.order()), a, rhs, sol, symm_solve);
}

void SOLVE_SPARSE_HASHM(sparse_hashm& a, ConstSolverVector rhs, SolverVector sol) {
  if (a.storage == 'f') stop("SOLVE_SPARSE_HASHM: not yet implemented for full-stored matrix");
  solve_vectors("SOLVE_SPARSE_HASHM", a.n > 0 ? a.n : 0, a, rhs, sol, hash_solve);
}

void SOLVE_IJA(const sparse_ija& a, ConstSolverVector rhs, SolverVector sol) {
  solve_vectors("SOLVE_IJA", a.n > 0 ? a.n : 0, a, rhs, sol, ija_solve);
}

void SOLVE_DENSEM_N(std::int32_t n, const densem& a, const double* rhs, double* sol) {
  densem_solve(n > 0 ? n : 0, a, rhs, sol, "SOLVE_DENSEM_N");
}

void SOLVE_DENSE_SYMM_N(std::int32_t n, const dense_symm& a, const double* rhs, double* sol) {
  symm_solve(n > 0 ? n : 0, a, rhs, sol, "SOLVE_DENSE_SYMM_N");
}

void SOLVE_SPARSE_HASHM_N(std::int32_t n, sparse_hashm& a, const double* rhs, double* sol) {
  hash_solve(n > 0 ? n : 0, a, rhs, sol, "SOLVE_SPARSE_HASHM_N");
}

void SOLVE_IJA_N(std::int32_t n, const sparse_ija& a, const double* rhs, double* sol) {
  ija_solve(n > 0 ? n : 0, a, rhs, sol, "SOLVE_IJA_N");
}

}  // namespace mmekit
