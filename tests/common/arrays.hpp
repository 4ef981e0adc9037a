// 1-based arrays written out in a test, and compared element by element.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "mmekit/support/array.hpp"

namespace mmekit::test {

template <class T>
Array1<T> array1(std::initializer_list<T> values) {
  Array1<T> a(static_cast<std::int64_t>(values.size()));
  std::int64_t k = 1;
  for (const T& v : values) a(k++) = v;
  return a;
}

inline Array1<std::int32_t> ints(std::initializer_list<std::int32_t> values) { return array1(values); }

// A right-hand side: b(i) = sin(3 i).
inline Array1<double> sines(std::int64_t n) {
  Array1<double> b(n);
  for (std::int64_t i = 1; i <= n; ++i) b(i) = std::sin(3.0 * i);
  return b;
}

inline void expect_all_near(const Array1<double>& x, const Array1<double>& ref, double tol) {
  ASSERT_EQ(x.size(), ref.size());
  for (std::int64_t i = 1; i <= x.size(); ++i) EXPECT_NEAR(x(i), ref(i), tol) << i;
}

}  // namespace mmekit::test
