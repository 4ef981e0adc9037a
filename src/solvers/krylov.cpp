// Krylov solvers: one generic body per method over the two storage kinds, which differ only in
// the product A v and in the element read that builds the preconditioner.
#include "mmekit/solvers/krylov.hpp"

#include <cmath>
#include <string>
#include <vector>

#include "mmekit/dense/blas.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/torvex/torvex.hpp"

namespace mmekit {

namespace {

using Vec = std::vector<double>;

// ---- the two storage kinds -----------------------------------------------------------------

struct DenseOperator {
  const densem& a;
  std::int32_t order() const { return static_cast<std::int32_t>(a.order()); }
  void multiply(const double* v, double* y) const {
    const blas_int n = order();
    if (n == 0) return;
    blas::gemv('N', n, n, 1.0, a.data(), static_cast<blas_int>(a.ld()), v, 1, 0.0, y, 1);
  }
  double element(std::int32_t i, std::int32_t j) const { return getm_densem(i, j, a); }
};

struct HashOperator {
  const sparse_hashm& a;
  std::int32_t order() const { return a.n; }
  // Every occupied slot once; an upper-stored element also stands for its mirror.
  void multiply(const double* v, double* y) const {
    const std::int32_t n = a.n;
    std::fill(y, y + n, 0.0);
    if (!a.allocated()) return;
    const bool upper = a.storage != 'f';
    const double* x = a.x.data();
    for (std::int64_t k = 0; k < a.hash_size; ++k, x += 3) {
      const std::int64_t i = trunc_index(x[0]);
      if (i == 0) continue;
      const std::int64_t j = trunc_index(x[1]);
      if (i < 1 || i > n || j < 1 || j > n) continue;
      y[i - 1] += x[2] * v[j - 1];
      if (upper && i != j) y[j - 1] += x[2] * v[i - 1];
    }
  }
  double element(std::int32_t i, std::int32_t j) const { return getm_sparse_hashm(i, j, a); }
};

double dot(const Vec& x, const Vec& y) {
  double s = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) s += x[i] * y[i];
  return s;
}

// ---- preconditioner ---------------------------------------------------------------------------

class Preconditioner {
 public:
  template <class Op>
  Preconditioner(const Op& op, std::optional<std::int32_t> block_size) : n_(op.order()) {
    const std::int32_t b = block_size.value_or(1);
    if (b <= 1) {
      dinv_.assign(static_cast<std::size_t>(n_), 0.0);
      for (std::int32_t i = 1; i <= n_; ++i) {
        const double d = op.element(i, i);
        if (d != 0.0) dinv_[static_cast<std::size_t>(i - 1)] = 1.0 / d;
      }
      return;
    }
    // The upper triangles of the diagonal blocks, zeros included, so that the inverse in the
    // pattern of the matrix is the whole inverse of each block.
    blocked_ = true;
    sparse_hashm h;
    init_sparse_hashm(h, n_);
    const std::int64_t nb = (std::int64_t{n_} + b - 1) / b;
    for (std::int64_t g = 1; g <= nb; ++g) {
      const std::int64_t f = 1 + (g - 1) * b;
      for (std::int64_t p = 0; p < b; ++p) {
        const std::int64_t i = f + p;
        if (i > n_) break;
        for (std::int64_t q = p; q < b; ++q) {
          const std::int64_t j = f + q;
          if (j > n_) break;
          const auto ii = static_cast<std::int32_t>(i), jj = static_cast<std::int32_t>(j);
          addm_sparse_hashm(op.element(ii, jj), ii, jj, h);
        }
      }
    }
    CONVERT_HASH_IJA(m_, h);
    reset_sparse_hashm(h);
    TORVEX("invert", m_);
    TORVEX("reset", m_);
    tmp_.assign(static_cast<std::size_t>(m_.n), 0.0);
  }

  // z = M^-1 r
  void apply(const Vec& r, Vec& z) {
    if (!blocked_) {
      for (std::size_t i = 0; i < z.size(); ++i) z[i] = dinv_[i] * r[i];
      return;
    }
    std::fill(tmp_.begin(), tmp_.end(), 0.0);
    for (std::int32_t i = 1; i <= m_.n; ++i)
      for (std::int32_t e = m_.ia(i); e < m_.ia(i + 1); ++e) {
        const std::int32_t j = m_.ja(e);
        const double v = m_.a(e);
        tmp_[static_cast<std::size_t>(i - 1)] += v * r[static_cast<std::size_t>(j - 1)];
        if (j != i) tmp_[static_cast<std::size_t>(j - 1)] += v * r[static_cast<std::size_t>(i - 1)];
      }
    for (std::size_t i = 0; i < z.size(); ++i) z[i] = tmp_[i];
  }

 private:
  std::int32_t n_;
  bool blocked_ = false;
  Vec dinv_;
  sparse_ija m_;
  Vec tmp_;
};

// ---- set-up common to the three methods -----------------------------------------------------

struct Problem {
  std::int32_t n;
  Vec b, x, r;
  double bb;
};

template <class Op>
Problem start(const Op& op, const char* who, ConstSolverVector b, SolverVector x) {
  Problem p;
  p.n = op.order();
  if (b.n < p.n || x.n < p.n)
    stop(free_format(std::string(who) + ": vectors shorter than the order of the matrix", p.n));
  const auto n = static_cast<std::size_t>(p.n);
  p.b.resize(n);
  p.x.resize(n);
  p.r.resize(n);
  for (std::size_t i = 0; i < n; ++i) p.b[i] = b.p[static_cast<std::int64_t>(i) * b.stride];
  if (sparse_param.solve_zerosol) {
    std::fill(p.x.begin(), p.x.end(), 0.0);
    p.r = p.b;
  } else {
    for (std::size_t i = 0; i < n; ++i) p.x[i] = x.p[static_cast<std::int64_t>(i) * x.stride];
    op.multiply(p.x.data(), p.r.data());
    for (std::size_t i = 0; i < n; ++i) p.r[i] = p.b[i] - p.r[i];
  }
  p.bb = dot(p.b, p.b);
  return p;
}

void finish(const Problem& p, SolverVector x) {
  for (std::size_t i = 0; i < p.x.size(); ++i) x.p[static_cast<std::int64_t>(i) * x.stride] = p.x[i];
}

float per_round(double seconds, std::int32_t rounds) {
  return rounds > 0 ? static_cast<float>(seconds / rounds) : 0.0f;
}

// Parts shared by CGS and BiCGSTAB.

// A breakdown: the message, and the solution set to zero.
void give_up(Problem& p, const char* text) {
  print_free(text);
  std::fill(p.x.begin(), p.x.end(), 0.0);
}

// The convergence after round k from the residual, printed; true when the iteration stops.
bool end_of_round(const Problem& p, std::int32_t k, double& conv) {
  conv = dot(p.r, p.r) / p.bb;
  print_free("round ", k, "   convergence=", conv);
  return conv < static_cast<double>(sparse_param.solve_conv) || k >= sparse_param.solve_rounds;
}

// The solution written back and the closing line.
void close_run(const Problem& p, SolverVector x, std::int32_t rounds, double conv, double t0) {
  finish(p, x);
  print_free(rounds, " iterations,   convergence criterion=", conv, " sec/round=",
             per_round(cpu_seconds() - t0, rounds));
}

// ---- PCG --------------------------------------------------------------------------------------

template <class Op>
void pcg(const Op& op, ConstSolverVector bv, SolverVector xv, std::optional<std::int32_t> block,
         std::optional<std::int32_t> verbose, const char* who) {
  const double t0 = cpu_seconds();
  const std::int32_t verb = verbose.value_or(sparse_param.solve_verbose);
  Problem P = start(op, who, bv, xv);
  Preconditioner M(op, block);
  const auto n = static_cast<std::size_t>(P.n);
  Vec z(n), p(n), w(n);
  const double limit = static_cast<double>(sparse_param.solve_conv);
  double conv = 0.0, tau_old = 0.0;
  std::int32_t rounds = 0;
  for (std::int32_t k = 1; k <= sparse_param.solve_rounds; ++k) {
    rounds = k;
    M.apply(P.r, z);
    const double tau = dot(z, P.r);
    if (k == 1) {
      p = z;
    } else {
      const double beta = tau / tau_old;
      for (std::size_t i = 0; i < n; ++i) p[i] = z[i] + beta * p[i];
    }
    op.multiply(p.data(), w.data());
    const double alpha = tau / dot(p, w);
    for (std::size_t i = 0; i < n; ++i) P.x[i] += alpha * p[i];
    if (k % 100 == 0) {
      // The residual from its definition, so that its recurrence does not drift.
      op.multiply(P.x.data(), P.r.data());
      for (std::size_t i = 0; i < n; ++i) P.r[i] = P.b[i] - P.r[i];
    } else {
      for (std::size_t i = 0; i < n; ++i) P.r[i] -= alpha * w[i];
    }
    conv = dot(P.r, P.r) / P.bb;
    if (verb > 1) print_free("round = ", k, "  convergence = ", conv);
    if (conv < limit) break;
    tau_old = tau;
  }
  finish(P, xv);
  if (verb > 0)
    print_free(rounds, " iterations,   convergence criterion=", conv, " sec per round=",
               per_round(cpu_seconds() - t0, rounds));
}

// ---- CGS --------------------------------------------------------------------------------------

template <class Op>
void cgs(const Op& op, ConstSolverVector bv, SolverVector xv, std::optional<std::int32_t> block, const char* who) {
  const double t0 = cpu_seconds();
  print_free(std::string("Solving by ") + who);
  Problem P = start(op, who, bv, xv);
  Preconditioner M(op, block);
  const auto n = static_cast<std::size_t>(P.n);
  const Vec rt = P.r;  // the shadow residual
  Vec u(n), p(n), q(n), ph(n), vh(n), uh(n), qh(n), t(n);
  double conv = 0.0, rho_old = 0.0;
  std::int32_t rounds = 0;
  for (std::int32_t k = 1; k <= sparse_param.solve_rounds; ++k) {
    rounds = k;
    const double rho = dot(rt, P.r);
    if (rho == 0.0) {
      give_up(P, "CGS Fail ");
      break;
    }
    if (k == 1) {
      u = P.r;
      p = u;
    } else {
      const double beta = rho / rho_old;
      for (std::size_t i = 0; i < n; ++i) {
        u[i] = P.r[i] + beta * q[i];
        p[i] = u[i] + beta * (q[i] + beta * p[i]);
      }
    }
    M.apply(p, ph);
    op.multiply(ph.data(), vh.data());
    const double alpha = rho / dot(rt, vh);
    for (std::size_t i = 0; i < n; ++i) q[i] = u[i] - alpha * vh[i];
    for (std::size_t i = 0; i < n; ++i) t[i] = u[i] + q[i];
    M.apply(t, uh);
    for (std::size_t i = 0; i < n; ++i) P.x[i] += alpha * uh[i];
    op.multiply(uh.data(), qh.data());
    for (std::size_t i = 0; i < n; ++i) P.r[i] -= alpha * qh[i];
    if (end_of_round(P, k, conv)) break;
    rho_old = rho;
  }
  close_run(P, xv, rounds, conv, t0);
}

// ---- BiCGSTAB ---------------------------------------------------------------------------------

template <class Op>
void bicgstab(const Op& op, ConstSolverVector bv, SolverVector xv, std::optional<std::int32_t> block,
              const char* who) {
  const double t0 = cpu_seconds();
  print_free(std::string("Solving by ") + who);
  Problem P = start(op, who, bv, xv);
  Preconditioner M(op, block);
  const auto n = static_cast<std::size_t>(P.n);
  const Vec rt = P.r;
  Vec p(n), v(n), s(n), t(n), ph(n), sh(n);
  const double limit = static_cast<double>(sparse_param.solve_conv);
  double conv = 0.0, rho_old = 0.0, alpha = 0.0, omega = 0.0;
  std::int32_t rounds = 0;
  for (std::int32_t k = 1; k <= sparse_param.solve_rounds; ++k) {
    rounds = k;
    const double rho = dot(rt, P.r);
    if (rho == 0.0) {
      give_up(P, "BiCGSAB Fail ");
      break;
    }
    if (k == 1) {
      p = P.r;
    } else {
      const double beta = (rho / rho_old) * (alpha / omega);
      for (std::size_t i = 0; i < n; ++i) p[i] = P.r[i] + beta * (p[i] - omega * v[i]);
    }
    M.apply(p, ph);
    op.multiply(ph.data(), v.data());
    alpha = rho / dot(rt, v);
    for (std::size_t i = 0; i < n; ++i) s[i] = P.r[i] - alpha * v[i];
    const double convs = dot(s, s) / P.bb;
    if (convs < limit) {
      // The closing line keeps the convergence of the previous round (0 in the first).
      print_free("round ", k, "   convergence by norms=", convs);
      for (std::size_t i = 0; i < n; ++i) P.x[i] += alpha * ph[i];
      break;
    }
    M.apply(s, sh);
    op.multiply(sh.data(), t.data());
    omega = dot(t, s) / dot(t, t);
    if (omega == 0.0) {
      give_up(P, "BiCGSAB Fail ");
      break;
    }
    for (std::size_t i = 0; i < n; ++i) {
      P.x[i] += alpha * ph[i] + omega * sh[i];
      P.r[i] = s[i] - omega * t[i];
    }
    if (end_of_round(P, k, conv)) break;
    rho_old = rho;
  }
  close_run(P, xv, rounds, conv, t0);
}

}  // namespace

void SOLVE_DENSEM_PCG(const densem& a, ConstSolverVector b, SolverVector x, std::optional<std::int32_t> block_size,
                      std::optional<std::int32_t> verbose) {
  pcg(DenseOperator{a}, b, x, block_size, verbose, "SOLVE_DENSEM_PCG");
}

void SOLVE_SPARSE_HASHM_PCG(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                            std::optional<std::int32_t> block_size, std::optional<std::int32_t> verbose) {
  if (a.storage == 'f') print_free("SOLVE_SPARSE_HASHM_PCG: not work Non-Symetric full-stored matrix");
  pcg(HashOperator{a}, b, x, block_size, verbose, "SOLVE_SPARSE_HASHM_PCG");
}

void SOLVE_DENSEM_CGS(const densem& a, ConstSolverVector b, SolverVector x, std::optional<std::int32_t> block_size,
                      std::optional<std::int32_t>) {
  cgs(DenseOperator{a}, b, x, block_size, "SOLVE_DENSEM_CGS");
}

void SOLVE_SPARSE_HASHM_CGS(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                            std::optional<std::int32_t> block_size, std::optional<std::int32_t>) {
  cgs(HashOperator{a}, b, x, block_size, "SOLVE_SPARSE_HASHM_CGS");
}

void SOLVE_DENSEM_BiCGSTAB(const densem& a, ConstSolverVector b, SolverVector x,
                           std::optional<std::int32_t> block_size, std::optional<std::int32_t>) {
  bicgstab(DenseOperator{a}, b, x, block_size, "SOLVE_DENSEM_BiCGSTAB");
}

void SOLVE_SPARSE_HASHM_BiCGSTAB(const sparse_hashm& a, ConstSolverVector b, SolverVector x,
                                 std::optional<std::int32_t> block_size, std::optional<std::int32_t>) {
  bicgstab(HashOperator{a}, b, x, block_size, "SOLVE_SPARSE_HASHM_BiCGSTAB");
}

}  // namespace mmekit
