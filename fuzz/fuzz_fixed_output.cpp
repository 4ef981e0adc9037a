// Fuzzes the fast (1x,f0.5) and (1x,i0) writers against the shared format interpreter.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mmekit/support/format.hpp"
#include "mmekit/tool/fixed_output.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  static const Format f05("(1x,f0.5)");
  static const Format i0("(1x,i0)");
  if (size < 8) return 0;
  double d;
  float f;
  std::int32_t k;
  std::memcpy(&d, data, 8);
  std::memcpy(&f, data, 4);
  std::memcpy(&k, data + 4, 4);
  std::string a, b, c;
  append_f05(a, d);
  append_f05(b, f);
  append_i0(c, k);
  if (a + "\n" != f05.write(FormatList(d)) || b + "\n" != f05.write(FormatList(f)) ||
      c + "\n" != i0.write(FormatList(k))) {
    std::fprintf(stderr, "fast writer differs: %s | %s | %s\n", a.c_str(), b.c_str(), c.c_str());
    std::abort();
  }
  return 0;
}
