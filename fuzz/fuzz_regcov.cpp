// Fuzzes the record loop of regcov: the first bytes choose up to four ranges (positions, limits,
// polynomials), the rest is the data file. Checks: no crash or sanitizer report, stops only by
// mmekit::Stop, and the output with the per-value covariate text equals the output without it.
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/regcov.hpp"

namespace {

std::int32_t limit(const std::uint8_t* d) {
  std::int16_t v;
  std::memcpy(&v, d, 2);
  switch (d[2] % 16) {
    case 0: return INT32_MIN;
    case 1: return INT32_MAX;
    case 2: return static_cast<std::int32_t>(v) * 65536;
    default: return v;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  if (size < 1) return 0;
  const std::size_t n = data[0] % 5;
  const std::size_t head = 1 + 8 * n;
  if (size < head) return 0;
  std::vector<RegcovRange> ranges;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint8_t* d = data + 1 + 8 * i;
    RegcovRange r;
    r.pos = 1 + d[0] % 12;
    r.range_min = limit(d + 1);
    r.range_max = limit(d + 4);
    r.npoly = static_cast<std::int32_t>(d[7] % 48) - 2;
    if (d[7] >= 250) r.npoly = 100 + d[7] - 250;  // a few over a hundred
    ranges.push_back(r);
  }
  std::string file(reinterpret_cast<const char*>(data + head), size - head);

  CaptureOutput cap;
  std::string out[2];
  bool stopped[2] = {false, false};
  std::int64_t records[2] = {0, 0};
  for (int memo = 0; memo < 2; ++memo) {
    RegcovRecords loop(ranges, memo == 1);
    std::istringstream in(file);
    std::ostringstream o;
    try {
      loop.run(in, o);
    } catch (const Stop&) {
      stopped[memo] = true;
    }
    out[memo] = o.str();
    records[memo] = loop.records();
  }
  if (out[0] != out[1] || stopped[0] != stopped[1] || records[0] != records[1]) {
    std::fprintf(stderr, "memo and direct output differ\n");
    std::abort();
  }
  return 0;
}
