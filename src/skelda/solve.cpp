// Solves, products and the log-determinant on the supernodal factor; the entries on the state
// and their steps in the task table.
#include "mmekit/skelda/solve.hpp"

#include <cmath>
#include <new>

#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

// One supernode as the loops see it. Element (r, c) of the diagonal block (local, r >= c) is
// dcol(c)[r - r0] with r0 from the same call; row k (from 0) of column c below the block is
// bcol(c)[k], and its global row rows[k].
struct Snode {
  std::int64_t f = 0, w = 0, m = 0;
  const double* base = nullptr;
  const std::int32_t* rows = nullptr;
  bool panel = false;
  std::int64_t p = 1, nb = 1;

  const double* dcol(std::int64_t c, std::int64_t& r0) const {
    if (!panel) {
      r0 = 1;
      return base + (c - 1) * w;
    }
    const std::int64_t jb = (c - 1) / p + 1, cl = c - (jb - 1) * p, ld = (nb - jb + 1) * p;
    r0 = (jb - 1) * p + 1;
    return base + sx2_block_column_offset(jb, nb, p) + ld * (cl - 1);
  }
  const double* bcol(std::int64_t c) const { return base + w * w + (c - 1) * m; }
  double pivot(std::int64_t c) const {
    std::int64_t r0 = 0;
    const double* col = dcol(c, r0);
    return col[c - r0];
  }
};

Snode snode_of(const Sx2Layout& l, const Array1<double>& lnz, std::int32_t s) {
  Snode b;
  b.f = l.first(s);
  b.w = l.width(s);
  b.m = l.rows_below(s);
  b.base = lnz.data() + ((*l.xlnz)(s) - 1);
  b.rows = l.lindx->data() + ((*l.xlindx)(s) - 1);
  b.panel = l.panel_form(s);
  b.p = l.panel;
  if (b.panel) b.nb = sx2_blocks(b.w, b.p);
  return b;
}

}  // namespace

bool sx2_factor_fits(const Sx2Layout& l, std::int64_t lnz_size) {
  if (l.n < 0 || l.nsn < 0 || l.panel < 1) return false;
  if (l.nsn == 0) return l.n == 0;
  if (!l.xsuper || !l.xlindx || !l.lindx || !l.xlnz) return false;
  const std::int64_t ns = l.nsn;
  if (l.xsuper->size() < ns + 1 || l.xlindx->size() < ns + 1 || l.xlnz->size() < ns + 1) return false;
  if ((*l.xsuper)(1) != 1 || (*l.xsuper)(ns + 1) != static_cast<std::int64_t>(l.n) + 1) return false;
  if ((*l.xlindx)(1) < 1 || (*l.xlnz)(1) < 1) return false;
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const std::int64_t f = (*l.xsuper)(s), next = (*l.xsuper)(s + 1);
    const std::int64_t r1 = (*l.xlindx)(s), r2 = (*l.xlindx)(s + 1);
    const std::int64_t v1 = (*l.xlnz)(s), v2 = (*l.xlnz)(s + 1);
    if (next <= f || r2 < r1 || r2 - 1 > l.lindx->size() || v2 < v1) return false;
    const std::int64_t size = sx2_size(next - f, r2 - r1, l.panel);
    if (size < 0 || v2 - v1 < size) return false;
    for (std::int64_t k = r1; k < r2; ++k) {
      const std::int64_t r = (*l.lindx)(k);
      if (r < next || r > l.n) return false;
    }
  }
  return (*l.xlnz)(ns + 1) - 1 <= lnz_size;
}

void supernodal_forward(const Sx2Layout& l, const Array1<double>& lnz, int factor_type, Array1<double>& x) {
  double* x0 = x.data();
  const bool chol = factor_type == 1;
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = 1; c <= b.w; ++c) {
      std::int64_t r0 = 0;
      const double* col = b.dcol(c, r0);
      double& xj = x0[b.f + c - 2];
      if (chol) xj /= col[c - r0];
      const double t = xj;
      for (std::int64_t r = c + 1; r <= b.w; ++r) x0[b.f + r - 2] -= col[r - r0] * t;
      if (b.m > 0) {
        const double* bc = b.bcol(c);
        for (std::int64_t k = 0; k < b.m; ++k) x0[b.rows[k] - 1] -= bc[k] * t;
      }
    }
  }
}

void supernodal_diagonal(const Sx2Layout& l, const Array1<double>& lnz, const Array1<std::int32_t>& cflag,
                         Array1<double>& x) {
  double* x0 = x.data();
  const std::int32_t* flag = cflag.data();
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = 1; c <= b.w; ++c) {
      const std::int64_t j = b.f + c - 1;
      const double d = b.pivot(c);
      // A constrained or lost column, and a pivot that is not positive, solve to 0.
      if ((flag[j - 1] & 1) != 0 || !(d > 0.0))
        x0[j - 1] = 0.0;
      else
        x0[j - 1] /= d;
    }
  }
}

void supernodal_backward(const Sx2Layout& l, const Array1<double>& lnz, int factor_type, Array1<double>& x) {
  double* x0 = x.data();
  const bool chol = factor_type == 1;
  for (std::int32_t s = l.nsn; s >= 1; --s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = b.w; c >= 1; --c) {
      std::int64_t r0 = 0;
      const double* col = b.dcol(c, r0);
      double t = x0[b.f + c - 2];
      if (b.m > 0) {
        const double* bc = b.bcol(c);
        for (std::int64_t k = 0; k < b.m; ++k) t -= bc[k] * x0[b.rows[k] - 1];
      }
      for (std::int64_t r = c + 1; r <= b.w; ++r) t -= col[r - r0] * x0[b.f + r - 2];
      if (chol) t /= col[c - r0];
      x0[b.f + c - 2] = t;
    }
  }
}

// Column j of F is g L(:, j) below the diagonal and f on it: Cholesky f = d (the stored
// diagonal), g = 1; LDL f = g = sqrt(d). A pivot that is not positive makes the column zero.
void supernodal_mulfac(const Sx2Layout& l, const Array1<double>& lnz, int factor_type, Array1<double>& x) {
  // Descending, so that x(j) is still the input when its column is applied: columns after j
  // only reach rows after them. The product is formed in place.
  double* x0 = x.data();
  const bool chol = factor_type == 1;
  for (std::int32_t s = l.nsn; s >= 1; --s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = b.w; c >= 1; --c) {
      std::int64_t r0 = 0;
      const double* col = b.dcol(c, r0);
      double& xj = x0[b.f + c - 2];
      const double d = col[c - r0];
      if (!(d > 0.0)) {
        xj = 0.0;
        continue;
      }
      const double f = chol ? d : std::sqrt(d), g = chol ? 1.0 : f;
      const double t = xj * g;
      xj *= f;
      for (std::int64_t r = c + 1; r <= b.w; ++r) x0[b.f + r - 2] += col[r - r0] * t;
      if (b.m > 0) {
        const double* bc = b.bcol(c);
        for (std::int64_t k = 0; k < b.m; ++k) x0[b.rows[k] - 1] += bc[k] * t;
      }
    }
  }
}

void supernodal_mulinv(const Sx2Layout& l, const Array1<double>& lnz, int factor_type, Array1<double>& x) {
  double* x0 = x.data();
  const bool chol = factor_type == 1;
  for (std::int32_t s = l.nsn; s >= 1; --s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = b.w; c >= 1; --c) {
      std::int64_t r0 = 0;
      const double* col = b.dcol(c, r0);
      double& xj = x0[b.f + c - 2];
      const double d = col[c - r0];
      if (!(d > 0.0)) {
        xj = 0.0;
        continue;
      }
      const double f = chol ? d : std::sqrt(d), g = chol ? 1.0 : f;
      double sum = 0.0;
      for (std::int64_t r = c + 1; r <= b.w; ++r) sum += col[r - r0] * x0[b.f + r - 2];
      if (b.m > 0) {
        const double* bc = b.bcol(c);
        for (std::int64_t k = 0; k < b.m; ++k) sum += bc[k] * x0[b.rows[k] - 1];
      }
      xj = (xj - g * sum) / f;
    }
  }
}

double supernodal_logdet(const Sx2Layout& l, const Array1<double>& lnz, int factor_type) {
  if (l.nsn == 0) return 0.0;
  if (!sx2_factor_fits(l, lnz.size())) stop("supernodal_logdet: the factor does not fit its storage map");
  const double weight = factor_type == 1 ? 2.0 : 1.0;
  double sum = 0.0;
  for (std::int32_t s = 1; s <= l.nsn; ++s) {
    const Snode b = snode_of(l, lnz, s);
    for (std::int64_t c = 1; c <= b.w; ++c) {
      const double d = b.pivot(c);
      if (d > 0.0) sum += weight * std::log(d);
    }
  }
  return sum;
}

namespace {

constexpr std::int32_t kTroubleInSolution = 13;
constexpr std::int32_t kTroubleInLogdet = 10;

void ensure_initialised() {
  if (skelda_state.first_use) skelda_init();
}

// The layout of the factor in the state, when its arrays are there and agree with the counts
// of iparm and with lnz.
bool state_layout(Sx2Layout& l) {
  const SkeldaState& s = skelda_state;
  l = skelda_layout();
  if (s.iparm(kN) != l.n || s.iparm(kNsn) != l.nsn) return false;
  if (l.nsn == 0) return l.n == 0;
  return s.lnz && sx2_factor_fits(l, s.lnz->size());
}

// What the solve and the products need beyond the layout: the permutation with all values in
// 1..n, cflag of n words for LDL, and no zero Cholesky pivot.
bool state_factor_usable(const Sx2Layout& l, int factor_type) {
  const SkeldaState& s = skelda_state;
  if (!s.perm || s.perm->size() < l.n) return false;
  for (std::int64_t i = 1; i <= l.n; ++i)
    if ((*s.perm)(i) < 1 || (*s.perm)(i) > l.n) return false;
  if (factor_type != 1 && (!s.cflag || s.cflag->size() < l.n)) return false;
  if (factor_type == 1 && l.nsn > 0) {
    for (std::int32_t k = 1; k <= l.nsn; ++k) {
      const Snode b = snode_of(l, *s.lnz, k);
      for (std::int64_t c = 1; c <= b.w; ++c)
        if (b.pivot(c) == 0.0) return false;
    }
  }
  return true;
}

bool vector_ok(std::int64_t n, SkeldaConstVector v) { return v.n == n && v.stride >= 1 && (n == 0 || v.p); }

enum class Work { solve, mulfac, mulinv };

// The frame shared by the solve and the products: checks, the work vector, the permutation
// into it and back.
void run_on_state(Work what, SkeldaConstVector rhs, SkeldaVector sol, std::int32_t& status) {
  ensure_initialised();
  SkeldaState& s = skelda_state;
  if (s.stage() != 30) {
    status = kSkeldaInvalidStep;
    return;
  }
  const std::int64_t n = s.iparm(kN);
  if (!vector_ok(n, rhs) || !vector_ok(n, sol)) {
    status = kSkeldaAbnormalArgs;
    return;
  }
  Stopwatch clock;
  status = kSkeldaNoTempMemory;
  Array1<double> x;
  try {
    x.resize(n);
  } catch (const std::bad_alloc&) {
    return;
  }
  status = kTroubleInSolution;
  Sx2Layout l;
  const int type = static_cast<int>(s.iparm(kFactorType) == 1 ? 1 : 2);
  if (!state_layout(l) || !state_factor_usable(l, type)) return;
  const std::int32_t* perm = s.perm ? s.perm->data() : nullptr;
  for (std::int64_t i = 1; i <= n; ++i) x(i) = rhs.p[(perm[i - 1] - 1) * rhs.stride];
  if (l.nsn > 0) {
    const Array1<double>& lnz = *s.lnz;
    switch (what) {
      case Work::solve:
        supernodal_forward(l, lnz, type, x);
        if (type != 1) supernodal_diagonal(l, lnz, *s.cflag, x);
        supernodal_backward(l, lnz, type, x);
        break;
      case Work::mulfac:
        supernodal_mulfac(l, lnz, type, x);
        break;
      case Work::mulinv:
        supernodal_mulinv(l, lnz, type, x);
        break;
    }
  }
  for (std::int64_t i = 1; i <= n; ++i) sol.p[(perm[i - 1] - 1) * sol.stride] = x(i);
  if (what == Work::solve) {
    s.rparm(57) = clock.cpu();
    s.rparm(58) = clock.wall();
  }
  status = kSkeldaOk;
}

// rhs and sol of a task: sol takes the shape of rhs when it is empty.
std::int32_t check_columns(const SkeldaArgs& args) {
  const std::int64_t n = skelda_state.iparm(kN);
  Array2<double>& rhs = *args.rhs;
  Array2<double>& sol = *args.sol;
  if (rhs.rows() != n || rhs.cols() < 1) return kSkeldaAbnormalArgs;
  if (&sol != &rhs && sol.size() == 0) sol.resize(rhs.rows(), rhs.cols());
  if (sol.rows() != n || sol.cols() != rhs.cols()) return kSkeldaAbnormalArgs;
  return kSkeldaOk;
}

std::int32_t run_columns(Work what, const SkeldaArgs& args) {
  if (!args.rhs || !args.sol) return kSkeldaLackOfArguments;
  if (skelda_state.stage() != 30) return kSkeldaInvalidStep;
  std::int32_t st = check_columns(args);
  if (st != kSkeldaOk) return st;
  Stopwatch clock;
  for (std::int64_t k = 1; k <= args.rhs->cols() && st == kSkeldaOk; ++k) {
    const SkeldaVector out = column_of(*args.sol, k);
    const SkeldaConstVector in(args.rhs->data() + (k - 1) * args.rhs->rows(), args.rhs->rows());
    if (what == Work::solve)
      skelda_solve(in, out, st);
    else
      skelda_multiply(in, out, st, what == Work::mulfac ? 0 : -1);
  }
  if (st == kSkeldaOk && what == Work::solve) {
    skelda_state.rparm(57) = clock.cpu();
    skelda_state.rparm(58) = clock.wall();
  }
  return st;
}

}  // namespace

void skelda_solve(SkeldaConstVector rhs, SkeldaVector sol, std::int32_t& status) {
  run_on_state(Work::solve, rhs, sol, status);
}

void skelda_multiply(SkeldaConstVector rhs, SkeldaVector sol, std::int32_t& status, std::int32_t inverse) {
  if (inverse != 0 && inverse != -1) {
    ensure_initialised();
    status = kSkeldaAbnormalArgs;
    return;
  }
  run_on_state(inverse == 0 ? Work::mulfac : Work::mulinv, rhs, sol, status);
}

void skelda_logdet(double& value, std::int32_t& status) {
  ensure_initialised();
  SkeldaState& s = skelda_state;
  if (s.stage() != 30) {
    status = kSkeldaInvalidStep;
    return;
  }
  status = kTroubleInLogdet;
  Sx2Layout l;
  if (!state_layout(l)) return;
  value = l.nsn == 0 ? 0.0 : supernodal_logdet(l, *s.lnz, static_cast<int>(s.iparm(kFactorType)));
  status = kSkeldaOk;
}

std::int32_t skelda_solve_step(std::int32_t, const SkeldaArgs& args, std::int32_t) {
  return run_columns(Work::solve, args);
}

std::int32_t skelda_multiply_step(std::int32_t task, const SkeldaArgs& args, std::int32_t) {
  return run_columns(task == 90 ? Work::mulinv : Work::mulfac, args);
}

std::int32_t skelda_logdet_step(std::int32_t, const SkeldaArgs& args, std::int32_t) {
  if (!args.det) return kSkeldaLackOfArguments;
  std::int32_t st = kSkeldaOk;
  double value = 0.0;
  skelda_logdet(value, st);
  if (st == kSkeldaOk) *args.det = value;
  return st;
}

std::int32_t skelda_det_step(std::int32_t, const SkeldaArgs& args, std::int32_t) {
  if (!args.det) return kSkeldaLackOfArguments;
  std::int32_t st = kSkeldaOk;
  double value = 0.0;
  skelda_logdet(value, st);
  if (st == kSkeldaOk) *args.det = std::exp(value);
  return st;
}

void install_solve_steps(SkeldaSteps& steps) {
  steps.solve = skelda_solve_step;
  steps.det = skelda_det_step;
  steps.logdet = skelda_logdet_step;
  steps.mulinv = skelda_multiply_step;
  steps.mulfac = skelda_multiply_step;
}

}  // namespace mmekit
