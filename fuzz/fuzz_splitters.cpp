// Fuzzes the line splitters, the line readers and the text file check with arbitrary bytes.
// Checks: no crash or sanitizer report; stops only by mmekit::Stop; the decoded numbers of nums2
// equal the general field reader's; nums items are the blank-separated tokens of the line.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/text.hpp"

namespace {

void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "check failed: %s\n", what);
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  if (size < 4) return 0;
  const std::int32_t cap_x = data[0] % 40;
  const std::int32_t cap_c = data[1] % 40;
  const std::int32_t width = 1 + data[2] % 30;
  const std::int32_t length = data[3];
  std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
  CaptureOutput cap;

  // nums2 in all four forms.
  std::vector<float> x(static_cast<std::size_t>(cap_x));
  FixedTexts xc(cap_c, width);
  std::int32_t m = -1;
  try {
    nums2(text, m, x, xc);
    check(m >= 0 && m <= cap_x && m <= cap_c, "nums2 count within capacity");
    // Each number is the field reader's value of the item (the first 12 characters).
    std::size_t pos = 0;
    for (std::int32_t i = 1; i <= m; ++i) {
      while (text[pos] == ' ') ++pos;
      std::size_t end = text.find(' ', pos);
      std::string item = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos + 1);
      float expect = 0.0f;
      if (!read_fixed(item.substr(0, 12), expect, 12)) expect = 0.0f;
      float got = x[static_cast<std::size_t>(i - 1)];
      check((std::isnan(got) && std::isnan(expect)) || std::memcmp(&got, &expect, sizeof got) == 0,
            "nums2 number equals the field reader's");
      pos = end == std::string::npos ? text.size() : end + 1;
    }
  } catch (const Stop&) {
  }
  try {
    nums2(text, m);
    nums2(text, m, std::span<float>(x));
  } catch (const Stop&) {
  }
  try {
    nums2(text, m, xc);
  } catch (const Stop&) {
  }

  // nums: only tokens that end at a blank count.
  const std::int32_t n = std::min<std::int32_t>(cap_x, cap_c);
  std::vector<std::int32_t> ix(static_cast<std::size_t>(cap_x));
  try {
    nums(text, ix, xc, n, m);
    check(m >= 0 && m <= n, "nums count within capacity");
    // The items are the first m blank-separated tokens, cut to the element width.
    std::size_t pos = 0;
    for (std::int32_t k = 1; k <= m; ++k) {
      while (text[pos] == ' ') ++pos;
      std::size_t end = text.find(' ', pos);
      check(end != std::string::npos, "nums item ends at a blank");
      std::string_view tok = std::string_view(text).substr(pos, std::min<std::size_t>(end - pos, width));
      while (!tok.empty() && tok.back() == ' ') tok.remove_suffix(1);
      check(xc(k) == tok, "nums item is the token");
      pos = end + 1;
    }
  } catch (const Stop&) {
  }
  (void)field_to_int(text);

  // Line readers and the file check on the text as a file.
  const std::int32_t saved = text_settings.line_length;
  text_settings.line_length = length;
  try {
    std::istringstream in(text);
    check_text_file(in, "fuzz/file.txt");
    for (int k = 0; k < 1000; ++k) {
      read_items(in, ix, xc, m, (k & 1) != 0);
      if (m < 0) break;
    }
  } catch (const Stop&) {
  }
  try {
    std::istringstream in(text);
    for (int k = 0; k < 1000; ++k) {
      read_items_real(in, m, x, xc);
      if (m < 0) break;
      read_items_plain(in, ix, xc, m);
      if (m < 0) break;
    }
  } catch (const Stop&) {
  }
  text_settings.line_length = saved;
  return 0;
}
