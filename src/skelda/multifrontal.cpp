// Supernodal multifrontal factorisation: job list, memory simulation and the factorisation.
#include "mmekit/skelda/multifrontal.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

blas_int bi(std::int64_t v) { return static_cast<blas_int>(v); }

// The rows of a supernode below its diagonal block (null when there are none).
const std::int32_t* rows_of(const Sx2Layout& l, std::int32_t s) {
  return l.rows_below(s) > 0 ? &(*l.lindx)((*l.xlindx)(s)) : nullptr;
}

// Positions (from 0, top of the front) of the child's rows in the front of its parent: a row
// that is a column of the parent is its place in the diagonal block, another its place in the
// parent's row list after the w columns. Both lists ascend, so one merge pass suffices.
void front_positions(const Sx2Layout& l, std::int32_t child, std::int32_t parent, std::int32_t* ridx) {
  const std::int64_t mc = l.rows_below(child), f = l.first(parent), w = l.width(parent), m = l.rows_below(parent);
  const std::int32_t* crow = rows_of(l, child);
  const std::int32_t* prow = rows_of(l, parent);
  std::int64_t q = 0;
  for (std::int64_t k = 0; k < mc; ++k) {
    const std::int32_t r = crow[k];
    if (r >= f && r < f + w) {
      ridx[k] = static_cast<std::int32_t>(r - f);
      continue;
    }
    while (q < m && prow[q] < r) ++q;
    if (q == m || prow[q] != r) stop("ERROR: set_relative_indices2() ridx is not determined.");
    ridx[k] = static_cast<std::int32_t>(w + q);
  }
}

std::vector<std::int32_t> children_counts(std::int32_t nsn, const Array1<std::int32_t>& snparent) {
  std::vector<std::int32_t> n(static_cast<std::size_t>(nsn) + 1, 0);
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int32_t p = snparent(s);
    if (p >= 1 && p <= nsn) ++n[static_cast<std::size_t>(p)];
  }
  return n;
}

}  // namespace

std::vector<std::int32_t> mf_job_list(std::int32_t nsn, const Array1<std::int32_t>& snparent) {
  // Child lists, ascending, by scanning from the last supernode down.
  std::vector<std::int32_t> head(static_cast<std::size_t>(nsn) + 1, 0), next(static_cast<std::size_t>(nsn) + 1, 0);
  for (std::int32_t s = nsn; s >= 1; --s) {
    const std::int32_t p = snparent(s);
    if (p >= 1 && p <= nsn && p != s) {
      next[static_cast<std::size_t>(s)] = head[static_cast<std::size_t>(p)];
      head[static_cast<std::size_t>(p)] = s;
    }
  }
  std::vector<std::int32_t> jobs, stack, cursor(head);
  jobs.reserve(static_cast<std::size_t>(nsn));
  std::vector<char> seen(static_cast<std::size_t>(nsn) + 1, 0);
  for (std::int32_t root = 1; root <= nsn; ++root) {
    if (snparent(root) != 0) continue;
    stack.push_back(root);
    while (!stack.empty()) {
      const std::int32_t s = stack.back();
      const std::int32_t c = cursor[static_cast<std::size_t>(s)];
      if (c != 0 && !seen[static_cast<std::size_t>(c)]) {
        cursor[static_cast<std::size_t>(s)] = next[static_cast<std::size_t>(c)];
        stack.push_back(c);
      } else if (c != 0) {
        cursor[static_cast<std::size_t>(s)] = next[static_cast<std::size_t>(c)];
      } else {
        stack.pop_back();
        if (!seen[static_cast<std::size_t>(s)]) {
          seen[static_cast<std::size_t>(s)] = 1;
          jobs.push_back(s);
        }
      }
    }
  }
  if (static_cast<std::int32_t>(jobs.size()) != nsn) stop("ERROR: The joblist does not capture all nodes.");
  return jobs;
}

MfMemory supernodal_sx2_mf_simulate(const Sx2Layout& layout, const Array1<std::int32_t>& snparent,
                                    std::int32_t verbose) {
  MfMemory mem;
  const std::vector<std::int32_t> jobs = mf_job_list(layout.nsn, snparent);
  const std::vector<std::int32_t> nch = children_counts(layout.nsn, snparent);
  std::vector<std::int64_t> sizes;  // rows of the stacked updates
  std::int64_t u = 0, uidx = 0;
  for (const std::int32_t s : jobs) {
    for (std::int32_t c = 0; c < nch[static_cast<std::size_t>(s)] && !sizes.empty(); ++c) {
      u -= sizes.back() * sizes.back();
      uidx -= sizes.back();
      sizes.pop_back();
    }
    const std::int64_t m = layout.rows_below(s);
    mem.mem_c = std::max(mem.mem_c, m * m);
    mem.mem_extd = std::max(mem.mem_extd, m);
    if (m > 0) {
      sizes.push_back(m);
      u += m * m;
      uidx += m;
      mem.mem_u = std::max(mem.mem_u, u);
      mem.mem_uidx = std::max(mem.mem_uidx, uidx);
    }
  }
  mem.max_mem = mem.mem_c + mem.mem_u + (mem.mem_uidx + mem.mem_extd + 1) / 2;
  if (std::abs(verbose) > 2) {
    std::ostream& o = out();
    const double mb8 = 8.0 / 1048576.0, mb4 = 4.0 / 1048576.0;
    o << "simulation: supernodal_sx2_mf_omp_v1()\n";
    o << "nworkers=" << free_format(mem.nworkers) << '\n';
    o << "memC    (size, MB)=" << free_format(mem.mem_c, static_cast<double>(mem.mem_c) * mb8) << '\n';
    o << "memU    (size, MB)=" << free_format(mem.mem_u, static_cast<double>(mem.mem_u) * mb8) << '\n';
    o << "memUIDX (size, MB)=" << free_format(mem.mem_uidx, static_cast<double>(mem.mem_uidx) * mb4) << '\n';
    o << "memEXTD (size, MB)=" << free_format(mem.mem_extd, static_cast<double>(mem.mem_extd) * mb4) << '\n';
  }
  return mem;
}

std::int32_t supernodal_sx2_mf_omp_v1(const Sx2Layout& layout, const Array1<std::int32_t>& snparent,
                                      Array1<double>& lnz, Array1<std::int32_t>& cflag, const MfOptions& options,
                                      const SkeldaBlas& blas, std::int64_t& rank, std::int32_t verbose) {
  const std::int32_t v = std::abs(verbose);
  std::ostream& o = out();
  rank = 0;
  std::int32_t nroots = 0;
  for (std::int32_t s = 1; s <= layout.nsn; ++s)
    if (snparent(s) == 0) ++nroots;
  if (v > 2) {
    o << (options.variant == 2 ? "VARIANT 2 ********************\n" : "VARIANT 1 ********************\n");
    o << "The matrix has" << free_format(nroots) << " roots\n";
  }
  const MfMemory mem = supernodal_sx2_mf_simulate(layout, snparent, verbose);
  const std::vector<std::int32_t> jobs = mf_job_list(layout.nsn, snparent);
  const std::vector<std::int32_t> nch = children_counts(layout.nsn, snparent);
  std::int64_t widest = 1;
  for (std::int32_t s = 1; s <= layout.nsn; ++s) widest = std::max(widest, layout.width(s));

  // The work areas: C the update matrix being built, the stack of pushed update matrices with
  // their supernodes (their row indices are the supernodes' row lists), DIAG the diagonal
  // values for the dependent-column kernel, EXTD the extend-add map.
  std::vector<double> c(static_cast<std::size_t>(std::max<std::int64_t>(mem.mem_c, 1)));
  std::vector<double> ustack(static_cast<std::size_t>(std::max<std::int64_t>(mem.mem_u, 1)));
  struct Pushed {
    std::int32_t s;
    std::int64_t off, m;
  };
  std::vector<Pushed> pushed;
  pushed.reserve(static_cast<std::size_t>(layout.nsn));
  std::vector<double> diag(static_cast<std::size_t>(widest));
  std::vector<std::int32_t> extd(static_cast<std::size_t>(std::max<std::int64_t>(mem.mem_extd, 1)));
  if (v > 2) o << "prep\n";

  SnllOptions so;
  so.kachman = options.kachman;
  so.tol_abs = options.tol_abs;
  so.tol_rel = options.tol_rel;
  so.block_alt = options.block_alt;
  double t_pop = 0, t_alloc = 0, t_mod = 0, t_push = 0, t_panel = 0;
  double* x = lnz.data();
  std::int64_t top = 0, nlost = 0;
  const std::int64_t p = layout.panel;
  // The work areas a supernode holds while it is being processed: the extend-add map from the
  // first pop on, the diagonal values from its factorisation on; both are given back when its
  // update matrix is pushed.
  bool extd_held = false, diag_held = false;
  std::int32_t status = 0;
  for (const std::int32_t s : jobs) {
    const std::int64_t w = layout.width(s), m = layout.rows_below(s), base = (*layout.xlnz)(s) - 1;
    const bool panel = layout.panel_form(s);
    const std::int64_t nb = panel ? sx2_blocks(w, p) : 0;
    double t0 = wall_seconds();
    if (m > 0) std::fill(c.begin(), c.begin() + m * m, 0.0);
    double t1 = wall_seconds();
    t_alloc += t1 - t0;
    if (v > 4) o << (panel ? "pop  panel" : "pop  norm") << free_format(s, nch[static_cast<std::size_t>(s)]) << '\n';
    // Pop the children's update matrices and add them where they belong.
    extd_held = true;
    for (std::int32_t k = 0; k < nch[static_cast<std::size_t>(s)] && !pushed.empty(); ++k) {
      const Pushed e = pushed.back();
      pushed.pop_back();
      front_positions(layout, e.s, s, extd.data());
      const double* u = ustack.data() + e.off;
      if (v > 4) {
        o << " - index" << free_format(e.s, e.m) << '\n';
        o << " - U value" << free_format(e.m * e.m) << '\n';
      }
      for (std::int64_t jj = 0; jj < e.m; ++jj) {
        const std::int64_t pj = extd[static_cast<std::size_t>(jj)];
        const double* col = u + jj * e.m;
        if (pj < w) {
          std::int64_t dbase = 0, bbase = 0;
          if (panel) {
            const std::int64_t jb = pj / p + 1;
            dbase = bbase = base + sx2_block_column_offset(jb, nb, p) + (nb - jb + 1) * p * (pj - (jb - 1) * p) -
                            (jb - 1) * p;
          } else {
            dbase = base + pj * w;
            bbase = base + w * w + pj * m - w;
          }
          for (std::int64_t ii = jj; ii < e.m; ++ii) {
            const std::int64_t pi = extd[static_cast<std::size_t>(ii)];
            x[(pi < w ? dbase : bbase) + pi] += col[ii];
          }
        } else {
          const std::int64_t cbase = (pj - w) * m - w;
          for (std::int64_t ii = jj; ii < e.m; ++ii) c[static_cast<std::size_t>(cbase + extd[static_cast<std::size_t>(ii)])] += col[ii];
        }
      }
      top = e.off;
    }
    double t2 = wall_seconds();
    t_pop += t2 - t1;
    // Factorise the supernode, then subtract the product of its rows below from C.
    if (v > 4) o << (panel ? "mod  panel" : "mod  norm") << free_format(s, w, m) << '\n';
    if (panel && v > 4)
      for (std::int64_t jb = 1; jb <= nb; ++jb) o << "next/full" << free_format(jb, nb) << '\n';
    diag_held = true;
    if (!snll_factor_supernode(layout, s, x, cflag, so, blas, diag.data(), nlost)) {
      status = 8;
      break;
    }
    if (m > 0) {
      const double* b = x + base + w * w;
      if (options.variant == 2) {
        const std::int64_t cw = std::max<std::int64_t>(p, 1);
        for (std::int64_t c0 = 0; c0 < m; c0 += cw) {
          const std::int64_t nc = std::min(cw, m - c0);
          blas.dsyrk('L', 'N', bi(nc), bi(w), -1.0, b + c0, bi(m), 1.0, c.data() + c0 + c0 * m, bi(m));
          if (m - c0 - nc > 0)
            blas.dgemm('N', 'T', bi(m - c0 - nc), bi(nc), bi(w), -1.0, b + c0 + nc, bi(m), b + c0, bi(m), 1.0,
                       c.data() + c0 + nc + c0 * m, bi(m));
        }
      } else {
        blas.dsyrk('L', 'N', bi(m), bi(w), -1.0, b, bi(m), 1.0, c.data(), bi(m));
      }
    }
    double t3 = wall_seconds();
    (panel ? t_panel : t_mod) += t3 - t2;
    // Push C for the parent.
    if (m > 0) {
      if (v > 4) o << "push norm" << free_format(s, m) << '\n';
      std::copy(c.begin(), c.begin() + m * m, ustack.begin() + top);
      pushed.push_back({s, top, m});
      top += m * m;
    }
    extd_held = diag_held = false;
    t_push += wall_seconds() - t3;
  }
  if (status == 0) {
    rank = layout.n - nlost;
    if (options.ldl) ldl_from_cholesky(layout, lnz, blas);
  }

  // Work left behind: the areas of a supernode whose factorisation failed, and an update matrix
  // (with its row indices) left on the stack, which is either a failure before its parent was
  // reached or a supernode with rows below it that no parent took.
  if (diag_held) o << "ERROR: Not deallocated DIAG\n";
  if (!pushed.empty()) {
    o << "ERROR: Not deallocated C\n";
    o << "ERROR: Not deallocated UIDX\n";
  }
  if (extd_held) o << "ERROR: Not deallocated EXTD\n";
  if (status != 0) return status;
  if (v > 2) {
    o << "Total POP(ext-add)" << free_format(t_pop) << '\n';
    o << "Total ALLOCATE" << free_format(t_alloc) << '\n';
    o << "Total POP(ext-add+alloc)" << free_format(t_pop + t_alloc) << '\n';
    o << "Total MOD" << free_format(t_mod) << '\n';
    o << "Total PUSH" << free_format(t_push) << '\n';
    o << "Total MOD panel" << free_format(t_panel) << '\n';
    o << "maxMEM" << free_format(mem.max_mem) << '\n';
  }
  return 0;
}

}  // namespace mmekit
