#include "mmekit/support/array.hpp"

#include <cstdio>
#include <cstdlib>

namespace mmekit {

void bounds_failure(std::int64_t index, std::int64_t lower, std::int64_t upper) {
  std::fprintf(stderr, "index %lld outside %lld..%lld\n", static_cast<long long>(index),
               static_cast<long long>(lower), static_cast<long long>(upper));
  std::abort();
}

}  // namespace mmekit
