// Dense references and a kernel harness for the tests of the sparse Cholesky package.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "common/arrays.hpp"
#include "common/lapack_ref.hpp"
#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/convert.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/torvex/torvex.hpp"

namespace torvex_test {

using mmekit::test::expect_all_near;
using mmekit::test::sines;
using mmekit::test::solved;

// A driver state as at the start of a run.
inline void fresh_driver() {
  mmekit::sparse_ija none;
  mmekit::TORVEX("res", none);
  mmekit::torvex_state.stats = mmekit::TorvexStatistics{};
  mmekit::torvex_state.order_last = mmekit::torvex_state.elements_last = 0;
}

// The matrix m through the kernel in a work array of its own.
struct Kernel {
  mmekit::sparse_ija m;
  mmekit::TorvexWork work{200000};
  mmekit::TorvexStatistics stats;
  std::vector<std::int32_t> perm;

  explicit Kernel(mmekit::sparse_ija mat) : m(std::move(mat)), perm(static_cast<std::size_t>(std::max(m.n, 1))) {}

  // The flag of one option; `extra` carries the other arguments in and the needs out.
  std::int32_t run(std::int32_t option, double* rhs = nullptr, mmekit::TorvexKernelArgs* extra = nullptr) {
    mmekit::TorvexKernelArgs local;
    mmekit::TorvexKernelArgs& k = extra ? *extra : local;
    k.is = work.cells();
    k.size = work.size();
    k.stats = &stats;
    std::int32_t flag = 0;
    mmekit::torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), perm.data(), rhs, flag, k);
    return flag;
  }
  std::int32_t run(std::int32_t option, double* rhs, mmekit::TorvexKernelArgs k) { return run(option, rhs, &k); }
  void factorise() {
    for (std::int32_t option : {10, 20, 40}) ASSERT_EQ(run(option), 0) << option;
  }
  mmekit::Array1<double> solve(mmekit::Array1<double> b) {
    EXPECT_EQ(run(50, b.data()), 0);
    return b;
  }
  double value(std::int32_t option) {
    double d = -12345;
    EXPECT_EQ(run(option, nullptr, mmekit::TorvexKernelArgs{.det = &d}), 0);
    return d;
  }
  std::vector<std::int32_t> cells() const { return {work.cells(), work.cells() + work.size()}; }
};

// The upper row form of a dense matrix.
inline mmekit::sparse_ija to_ija(const mmekit::densem& d) {
  mmekit::sparse_ija m;
  mmekit::assign(m, d);
  return m;
}

// The inverse of the rows and columns in `keep` (1-based), zero in all others, and the
// log-determinant of that part.
inline mmekit::densem kept_inverse(const mmekit::densem& d, const std::vector<std::int64_t>& keep, double* logdet) {
  const auto m = static_cast<std::int64_t>(keep.size());
  mmekit::densem s(m), g(d.order(), 0.0);
  for (std::int64_t j = 1; j <= m; ++j)
    for (std::int64_t i = 1; i <= m; ++i) s(i, j) = d(keep[i - 1], keep[j - 1]);
  s = mmekit::test::lapack_spd_inverse(s, logdet);
  for (std::int64_t j = 1; j <= m; ++j)
    for (std::int64_t i = 1; i <= m; ++i) g(keep[i - 1], keep[j - 1]) = s(i, j);
  return g;
}

// Every stored element of an upper row form against the dense reference.
inline void expect_pattern_near(const mmekit::sparse_ija& m, const mmekit::densem& ref, double tol) {
  for (std::int32_t i = 1; i <= m.n; ++i)
    for (std::int32_t e = m.ia(i); e < m.ia(i + 1); ++e)
      EXPECT_NEAR(m.a(e), ref(i, m.ja(e)), tol) << i << " " << m.ja(e);
}

}  // namespace torvex_test
