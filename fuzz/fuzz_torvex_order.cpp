// Fuzzes the reading of an order file ("torvex.ord", option 70): the first byte chooses the
// order of a tridiagonal matrix, the rest is the file. An ordering that is taken must be a
// permutation, and the matrix factorised in it must solve its equations.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "scratch.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::enter_scratch_directory();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  if (size < 1) return 0;
  const std::int32_t n = 1 + data[0] % 48;
  CaptureOutput quiet;
  try {
    fuzz::write_file("torvex.ord", data + 1, size - 1);
    sparse_ija m = fuzz::tridiagonal(n);
    TorvexWork work(20000);
    TorvexStatistics stats;
    std::vector<std::int32_t> perm(static_cast<std::size_t>(n), 0);
    auto run = [&](std::int32_t option, double* rhs, TorvexKernelArgs k) {
      k.is = work.cells();
      k.size = work.size();
      k.stats = &stats;
      std::int32_t flag = 0;
      torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), perm.data(), rhs, flag, k);
      return flag;
    };
    FramedReader r("torvex.ord");
    if (run(70, nullptr, {.order_in = &r}) != 0) return 0;
    std::vector<char> seen(static_cast<std::size_t>(n) + 1, 0);
    for (std::int32_t p : perm) {
      if (p < 1 || p > n || seen[static_cast<std::size_t>(p)]) {
        std::fprintf(stderr, "the ordering taken is not a permutation\n");
        std::abort();
      }
      seen[static_cast<std::size_t>(p)] = 1;
    }
    if (run(20, nullptr, {}) != 0 || run(40, nullptr, {}) != 0) {
      std::fprintf(stderr, "a permutation taken does not factorise\n");
      std::abort();
    }
    // A x = b for x = 1..n.
    std::vector<double> b(static_cast<std::size_t>(n));
    for (std::int32_t i = 0; i < n; ++i)
      b[static_cast<std::size_t>(i)] = 4.0 * (i + 1) - (i > 0 ? i : 0) - (i + 1 < n ? i + 2 : 0);
    if (run(50, b.data(), {}) != 0) std::abort();
    for (std::int32_t i = 0; i < n; ++i)
      if (std::fabs(b[static_cast<std::size_t>(i)] - (i + 1)) > 1e-9 * n) {
        std::fprintf(stderr, "wrong solution in equation %d\n", i + 1);
        std::abort();
      }
    run(61, nullptr, {});
  } catch (const Stop&) {
  }
  return 0;
}
