// Fuzzes the load of a saved factor: the input as a factor file (option 75) and, since a file
// that fails its check sum goes no further, the same bytes as a copy of a work array (option
// 73), which is judged on its sizes and structure alone. What loads is then used by every
// option that reads the factor, with the tridiagonal matrix of its order for the numeric stage
// and the inverse. Checks: no crash or sanitizer report, and a refused copy leaves the work
// array as it was.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "scratch.hpp"

namespace {

constexpr std::int64_t start_cells = 4096;
constexpr std::int64_t most_cells = std::int64_t{1} << 22;  // what a load may ask for here

std::int32_t run(std::int32_t option, mmekit::TorvexWork& work, mmekit::TorvexKernelArgs k, std::int32_t n = 0,
                 mmekit::sparse_ija* m = nullptr, double* rhs = nullptr) {
  mmekit::TorvexStatistics stats;
  k.is = work.cells();
  k.size = work.size();
  k.stats = &stats;
  std::int32_t flag = 0;
  if (m)
    mmekit::torvex_kernel(option, m->n, m->ia.data(), m->ja.data(), m->a.data(), nullptr, rhs, flag, k);
  else
    mmekit::torvex_kernel(option, n, nullptr, nullptr, nullptr, nullptr, rhs, flag, k);
  return flag;
}

// Every option that reads a loaded factor.
void use(mmekit::TorvexWork& work) {
  const std::int32_t n = work.cells()[0];
  if (n > 100000) return;  // a copy this large does not fit the inputs
  std::vector<double> x(static_cast<std::size_t>(n) + 1, 1.0);
  double det = 0;
  run(50, work, {}, n, nullptr, x.data());
  run(90, work, {}, n, nullptr, x.data());
  run(100, work, {}, n, nullptr, x.data());
  run(54, work, {.det = &det}, n);
  run(55, work, {.det = &det}, n);
  const std::int32_t list[2] = {1, std::max(n, 1)};
  if (n > 0) run(51, work, {.rhs_list = list, .rhs_count = 2, .sol_list = list + 1, .sol_count = 1}, n, nullptr, x.data());
  run(80, work, {}, n);
  // The numeric stage and the inverse on a copy with room for their work vectors.
  mmekit::sparse_ija m = fuzz::tridiagonal(n);
  mmekit::TorvexWork w(work.size() + 8 * std::int64_t{n} + 64);
  std::memcpy(w.cells(), work.cells(), static_cast<std::size_t>(work.size()) * 4);
  if (run(40, w, {}, 0, &m) == 0) run(61, w, {}, 0, &m);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::enter_scratch_directory();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  CaptureOutput quiet;
  try {
    fuzz::write_file("factor.bin", data, size);
    TorvexWork work(start_cells);
    for (int attempt = 0; attempt < 2; ++attempt) {
      FramedReader r("factor.bin");
      TorvexKernelArgs k{.load_unit = &r};
      const std::vector<std::int32_t> before(work.cells(), work.cells() + work.size());
      k.is = work.cells();
      k.size = work.size();
      std::int32_t flag = 0;
      torvex_kernel(75, 0, nullptr, nullptr, nullptr, nullptr, nullptr, flag, k);
      if (flag == 0) {
        use(work);
        break;
      }
      if (!std::equal(before.begin() + 32, before.end(), work.cells() + 32)) std::abort();
      if (k.need <= work.size() || k.need > most_cells) break;
      work.grow(k.need);
    }
    // The bytes as a work array in memory.
    std::vector<std::int32_t> image((size + 3) / 4, 0);
    if (!image.empty()) std::memcpy(image.data(), data, size);
    TorvexWork target(std::max<std::int64_t>(start_cells, static_cast<std::int64_t>(image.size())));
    const std::vector<std::int32_t> before(target.cells(), target.cells() + target.size());
    const std::int32_t flag =
        run(73, target, {.is2 = image.data(), .size2 = static_cast<std::int64_t>(image.size())});
    if (flag == 0)
      use(target);
    else if (!std::equal(before.begin() + 32, before.end(), target.cells() + 32))
      std::abort();
  } catch (const Stop&) {
  }
  return 0;
}
