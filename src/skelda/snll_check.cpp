// The plain left-looking supernodal Cholesky of the checks (see snll_check.hpp).
#include "mmekit/skelda/snll_check.hpp"

#include <cmath>
#include <vector>

#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {

namespace {

// The rows of supernode s: its diagonal block, then its row list (ascending).
std::vector<std::int32_t> supernode_rows(const Sx2Layout& l, std::int32_t s) {
  std::vector<std::int32_t> rows;
  for (std::int64_t c = l.first(s); c < l.first(s) + l.width(s); ++c) rows.push_back(static_cast<std::int32_t>(c));
  for (std::int64_t k = (*l.xlindx)(s); k < (*l.xlindx)(s + 1); ++k) rows.push_back((*l.lindx)(k));
  return rows;
}

// The values of columns 0..w-1 of `p` (rows by `nrow`) below and on the diagonal, one a line.
void print_values(const std::vector<double>& p, std::size_t nrow, std::size_t w) {
  FormatList items;
  for (std::size_t t = 0; t < w; ++t)
    for (std::size_t i = t; i < nrow; ++i) items.add(p[t * nrow + i]);
  out() << Format("(g13.5)").write(items);
}

}  // namespace

std::int32_t snll_test_driver(const Sx2Layout& layout, Array1<double>& lnz, bool ldl, bool trace) {
  print_free("SNLL LDL=", ldl);
  if (!ldl) out() << "* LDL conversion is not performed.\n";
  if (trace) out() << "OMP_TEST_VERSION\n";
  const std::int32_t n = layout.n;
  // where[r]: index (from 0) of row r among the rows of the current target, -1 elsewhere.
  std::vector<std::int64_t> where(static_cast<std::size_t>(n) + 1, -1);
  for (std::int32_t j = 1; j <= layout.nsn; ++j) {
    const std::vector<std::int32_t> rows = supernode_rows(layout, j);
    const std::size_t nrow = rows.size();
    const auto w = static_cast<std::size_t>(layout.width(j));
    const std::int64_t f = layout.first(j), last = f + layout.width(j) - 1;
    for (std::size_t i = 0; i < nrow; ++i) where[static_cast<std::size_t>(rows[i])] = static_cast<std::int64_t>(i);
    std::vector<double> p(nrow * w, 0.0);
    for (std::size_t t = 0; t < w; ++t)
      for (std::size_t i = t; i < nrow; ++i)
        p[t * nrow + i] = lnz(sx2_element_position(layout, j, rows[i], f + static_cast<std::int64_t>(t)));
    if (trace) {
      print_free("Supernode", j);
      out() << "before\n";
      print_values(p, nrow, w);
    }
    // Every earlier supernode whose row list reaches the columns of j.
    for (std::int32_t k = 1; k < j; ++k) {
      std::vector<std::int32_t> reach;  // rows of k from the first one in j's columns on
      for (std::int64_t q = (*layout.xlindx)(k); q < (*layout.xlindx)(k + 1); ++q)
        if ((*layout.lindx)(q) >= f) reach.push_back((*layout.lindx)(q));
      if (reach.empty() || reach.front() > last) continue;
      if (trace) print_free("gather SJ,SK=", j, k);
      for (std::int64_t c = layout.first(k); c < layout.first(k) + layout.width(k); ++c)
        for (std::int32_t t : reach) {
          if (t > last) break;
          const double ltc = lnz(sx2_element_position(layout, k, t, c));
          for (std::int32_t r : reach) {
            if (r < t) continue;
            const std::int64_t i = where[static_cast<std::size_t>(r)];
            if (i < 0) continue;  // cannot happen on a consistent structure
            p[static_cast<std::size_t>(t - f) * nrow + static_cast<std::size_t>(i)] -=
                lnz(sx2_element_position(layout, k, r, c)) * ltc;
          }
        }
    }
    if (trace) {
      out() << "intermediate\n";
      print_values(p, nrow, w);
    }
    // The columns of j itself, left-looking inside the supernode.
    for (std::size_t t = 0; t < w; ++t) {
      for (std::size_t q = 0; q < t; ++q)
        for (std::size_t i = t; i < nrow; ++i) p[t * nrow + i] -= p[q * nrow + i] * p[q * nrow + t];
      const double d = p[t * nrow + t];
      if (!(d > 0.0)) {
        for (std::int32_t r : rows) where[static_cast<std::size_t>(r)] = -1;
        return 8;
      }
      const double s = std::sqrt(d);
      p[t * nrow + t] = s;
      for (std::size_t i = t + 1; i < nrow; ++i) p[t * nrow + i] /= s;
    }
    if (trace) out() << "end\n";
    for (std::size_t t = 0; t < w; ++t)
      for (std::size_t i = t; i < nrow; ++i)
        lnz(sx2_element_position(layout, j, rows[i], f + static_cast<std::int64_t>(t))) = p[t * nrow + i];
    if (trace) {
      out() << "final_in_SJ\n";
      print_values(p, nrow, w);
    }
    for (std::int32_t r : rows) where[static_cast<std::size_t>(r)] = -1;
  }
  if (ldl) ldl_from_cholesky(layout, lnz, default_skelda_blas());
  return 0;
}

}  // namespace mmekit
