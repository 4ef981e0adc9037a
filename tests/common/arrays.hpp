// 1-based arrays written out in a test.
#pragma once

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

}  // namespace mmekit::test
