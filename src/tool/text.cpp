#include "mmekit/tool/text.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

TextSettings text_settings;

// ---- FixedTexts -----------------------------------------------------------------------------

FixedTexts::FixedTexts(std::int32_t count, std::int32_t width)
    : chars_(static_cast<std::size_t>(std::max(count, 0)) * static_cast<std::size_t>(std::max(width, 0)), ' '),
      count_(std::max(count, 0)),
      width_(std::max(width, 0)) {}

std::string_view FixedTexts::padded(std::int32_t i) const {
  if (i < 1 || i > count_) throw std::out_of_range("FixedTexts: index out of range");
  return std::string_view(chars_.data() + static_cast<std::size_t>(i - 1) * width_, width_);
}

std::string_view FixedTexts::operator()(std::int32_t i) const {
  std::string_view s = padded(i);
  std::size_t end = s.find_last_not_of(' ');
  return end == std::string_view::npos ? std::string_view() : s.substr(0, end + 1);
}

void FixedTexts::set(std::int32_t i, std::string_view text) {
  if (i < 1 || i > count_) throw std::out_of_range("FixedTexts: index out of range");
  char* p = chars_.data() + static_cast<std::size_t>(i - 1) * width_;
  std::size_t n = std::min<std::size_t>(text.size(), width_);
  if (n > 0) std::memcpy(p, text.data(), n);
  std::memset(p + n, ' ', width_ - n);
}

void FixedTexts::blank(std::int32_t i) { set(i, {}); }

void FixedTexts::blank_all() { std::fill(chars_.begin(), chars_.end(), ' '); }

std::vector<std::string> FixedTexts::to_vector() const {
  std::vector<std::string> v;
  for (std::int32_t i = 1; i <= count_; ++i) v.emplace_back((*this)(i));
  return v;
}

// ---- Splitters ------------------------------------------------------------------------------

namespace {

[[noreturn]] void split_report(std::string_view who, std::string_view a, std::int64_t capacity) {
  std::string head(80, ' ');
  std::memcpy(head.data(), a.data(), std::min<std::size_t>(a.size(), 80));
  std::string first = "Error in " + std::string(who) + " splitting string starting: ";
  stop(free_format(first) + "\n" + free_format(head) + "\n" + free_format("into m:", capacity, "items"));
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The 12-character fixed-point field of an item. Plain decimals ([-]digits[.digits]) are
// decoded here, correctly rounded to float: when the digits form an integer below 2^24 and at
// most 10 of them follow the point, both that integer and the power of ten are exact floats and
// one division rounds correctly; other plain decimals go through from_chars. Everything else
// (exponents, commas, "+", odd characters) goes through the general field reader, which gives
// the same value on plain decimals.
float decode_field(std::string_view item) {
  static constexpr float powers_of_ten[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f,
                                            1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
  const std::size_t width = std::min<std::size_t>(item.size(), 12);
  const char* f = item.data();
  std::size_t len = width;
  while (len > 0 && f[len - 1] == ' ') --len;
  std::size_t i = 0;
  const bool negative = len > 0 && f[0] == '-';
  if (negative) i = 1;
  std::uint64_t w = 0;
  int decimals = 0;
  bool digits = false, point = false, plain = len > 0;
  for (std::size_t k = i; k < len; ++k) {
    const char c = f[k];
    if (is_digit(c)) {
      digits = true;
      w = w * 10 + static_cast<std::uint64_t>(c - '0');  // at most 12 digits: no overflow
      if (point) ++decimals;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      plain = false;
      break;
    }
  }
  if (plain && digits) {
    if (w < (std::uint64_t{1} << 24) && decimals <= 10) {
      float v = static_cast<float>(w);
      if (decimals > 0) v /= powers_of_ten[decimals];
      return negative ? -v : v;
    }
    float v = 0.0f;
    auto r = std::from_chars(f, f + len, v, std::chars_format::fixed);
    if (r.ec == std::errc() && r.ptr == f + len) return v;
  }
  float v = 0.0f;
  if (!read_fixed(item.substr(0, width), v, 12)) return 0.0f;
  return v;
}

void nums2_impl(std::string_view a, std::int32_t& m, std::span<float>* x, FixedTexts* xc) {
  m = 0;
  if (xc) xc->blank_all();
  if (x) std::fill(x->begin(), x->end(), 0.0f);
  const std::size_t len = a.size();
  const char* s = a.data();
  std::size_t pos = 0;
  for (;;) {
    while (pos < len && s[pos] == ' ') ++pos;
    if (pos >= len) return;
    const std::size_t first = pos;
    const void* blank = std::memchr(s + first, ' ', len - first);
    // `last` is the position of the blank after the item, or the last character of the text.
    const std::size_t last = blank ? static_cast<std::size_t>(static_cast<const char*>(blank) - s) : len - 1;
    std::string_view item(s + first, last - first + 1);
    if (m == INT32_MAX) split_report("nums2", a, xc ? xc->size() : static_cast<std::int64_t>(x ? x->size() : 0));
    ++m;
    if (xc) {
      if (m > xc->size()) split_report("nums2", a, xc->size());
      xc->set(m, item);
    }
    if (x) {
      if (static_cast<std::size_t>(m) > x->size())
        split_report("nums2", a, xc ? xc->size() : static_cast<std::int64_t>(x->size()));
      (*x)[static_cast<std::size_t>(m - 1)] = decode_field(item);
    }
    pos = last + 1;
  }
}

}  // namespace

void nums2(std::string_view a, std::int32_t& m) { nums2_impl(a, m, nullptr, nullptr); }
void nums2(std::string_view a, std::int32_t& m, std::span<float> x) { nums2_impl(a, m, &x, nullptr); }
void nums2(std::string_view a, std::int32_t& m, FixedTexts& xc) { nums2_impl(a, m, nullptr, &xc); }
void nums2(std::string_view a, std::int32_t& m, std::span<float> x, FixedTexts& xc) {
  nums2_impl(a, m, &x, &xc);
}

std::int32_t field_to_int(std::string_view a) {
  std::size_t i = 0;
  bool negative = false;
  if (!a.empty() && a[0] == '-') {
    negative = true;
    i = 1;
  }
  std::uint32_t value = 0;  // unsigned, so that the wrap-around of long digit strings is defined
  for (; i < a.size() && is_digit(a[i]); ++i) value = value * 10u + static_cast<std::uint32_t>(a[i] - '0');
  if (negative) value = 0u - value;
  return static_cast<std::int32_t>(value);
}

void nums(std::string_view a, std::span<std::int32_t> x, FixedTexts& xc, std::int32_t n, std::int32_t& m) {
  if (n > 0 && (static_cast<std::size_t>(n) > x.size() || n > xc.size()))
    throw std::invalid_argument("nums: capacity n is larger than the arrays given");
  m = 0;
  if (n >= 1) xc.blank(n);
  const std::size_t len = a.size();
  std::size_t pos = 0;
  for (;;) {
    while (pos < len && a[pos] == ' ') ++pos;
    if (pos >= len) return;
    const std::size_t first = pos;
    const std::size_t blank = a.find(' ', first);
    if (blank == std::string_view::npos) return;  // an item must end at a blank
    std::string_view item = a.substr(first, blank - first);
    ++m;
    if (m > n) split_report("nums", a, n);
    xc.set(m, item);
    if (item.size() >= 1 && item.size() <= 10) x[static_cast<std::size_t>(m - 1)] = field_to_int(item);
    pos = blank + 1;
  }
}

std::string ints_to_string(std::span<const std::int32_t> x) {
  std::string s;
  char buf[16];
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (i > 0) s.push_back(' ');
    auto r = std::to_chars(buf, buf + sizeof buf, x[i]);
    s.append(buf, r.ptr);
  }
  return s;
}

// ---- Line readers ---------------------------------------------------------------------------

namespace {

std::string line_buffer;   // the line as read
std::string split_buffer;  // the line as split

// Reads one line, removes a "\r\n" line end, cuts it at the line length and shifts it left.
// Returns false at the end of the file or on a read error.
bool read_line(std::istream& unit, std::int32_t length, std::string_view& line) {
  if (!std::getline(unit, line_buffer)) return false;
  if (!line_buffer.empty() && line_buffer.back() == '\r') line_buffer.pop_back();
  std::string_view s(line_buffer);
  if (s.size() > static_cast<std::size_t>(std::max(length, 0))) s = s.substr(0, static_cast<std::size_t>(std::max(length, 0)));
  std::size_t lead = s.find_first_not_of(' ');
  line = lead == std::string_view::npos ? std::string_view() : s.substr(lead);
  return true;
}

// `nums` on the line as it stands in its blank-padded buffer of `length` characters.
void split_padded(std::string_view line, std::int32_t length, std::span<std::int32_t> x, FixedTexts& xc,
                  std::int32_t& m) {
  split_buffer.assign(line);
  if (split_buffer.size() < static_cast<std::size_t>(std::max(length, 0))) split_buffer.push_back(' ');
  std::int32_t n = static_cast<std::int32_t>(std::min<std::size_t>(x.size(), static_cast<std::size_t>(xc.size())));
  nums(split_buffer, x, xc, n, m);
}

}  // namespace

void read_items(std::istream& unit, std::span<std::int32_t> x, FixedTexts& xc, std::int32_t& m, bool no_comments) {
  const std::int32_t length = text_settings.line_length;
  std::string_view line;
  for (;;) {
    if (!read_line(unit, length, line)) {
      m = -1;
      return;
    }
    if (!no_comments) {
      std::size_t hash = line.find('#');
      if (hash == 0) continue;  // a comment line
      if (hash != std::string_view::npos) line = line.substr(0, hash);
    }
    break;
  }
  split_padded(line, length, x, xc, m);
}

void read_items_plain(std::istream& unit, std::span<std::int32_t> x, FixedTexts& xc, std::int32_t& m) {
  const std::int32_t length = text_settings.line_length;
  std::string_view line;
  if (!read_line(unit, length, line)) {
    m = -1;
    return;
  }
  split_padded(line, length, x, xc, m);
}

void read_items_real(std::istream& unit, std::int32_t& m, std::span<float> x, FixedTexts& xc) {
  const std::int32_t length = text_settings.line_length;
  std::string_view line;
  if (!read_line(unit, length, line)) {
    m = -1;
    return;
  }
  nums2(line, m, x, xc);
}

// ---- File check -----------------------------------------------------------------------------

void check_text_file(std::istream& unit, std::string_view file_name) {
  constexpr std::streamsize buffer_length = 50000;
  std::string buffer(buffer_length + 1, '\0');
  unit.clear();
  unit.get(buffer.data(), buffer_length + 2, '\n');
  std::streamsize count = unit.gcount();
  buffer.resize(static_cast<std::size_t>(std::min(count, buffer_length)));
  // A "\r\n" line end is a line end, not an old Mac file.
  if (count <= buffer_length && !buffer.empty() && buffer.back() == '\r' && unit.peek() == '\n') buffer.pop_back();

  std::size_t slash = file_name.rfind('/');
  std::string name(slash == std::string_view::npos ? file_name : file_name.substr(slash + 1));
  if (buffer.find('\r') != std::string::npos) {
    stop("\n Mac old newline format detected in file: \"" + name + "\"\n" +
         " Convert it to Unix newline format, e.g. \"flip -u <file>\"");
  }
  if (buffer.find('\t') != std::string::npos) {
    stop("\n TAB was found, Use spaces to separeate columns in file: \"" + name + "\"\n" +
         " Convert to TAB to spaces, e.g. \"expand file > newfile\"");
  }
  unit.clear();
  unit.seekg(0, std::ios::beg);
}

// ---- Command line ---------------------------------------------------------------------------

namespace {

struct CommandLineState {
  std::vector<std::string> arguments;
};
CommandLineState command_line_state;

constexpr std::size_t argument_length = 250;

std::string_view trim(std::string_view s) {
  std::size_t a = s.find_first_not_of(' ');
  if (a == std::string_view::npos) return {};
  std::size_t b = s.find_last_not_of(' ');
  return s.substr(a, b - a + 1);
}

std::string_view rtrim(std::string_view s) {
  std::size_t b = s.find_last_not_of(' ');
  return b == std::string_view::npos ? std::string_view() : s.substr(0, b + 1);
}

}  // namespace

void set_command_line(std::span<const std::string> arguments) {
  command_line_state.arguments.clear();
  for (const std::string& a : arguments) command_line_state.arguments.push_back(a.substr(0, argument_length));
}

void set_command_line(int argc, const char* const* argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  set_command_line(args);
}

const std::vector<std::string>& command_line() { return command_line_state.arguments; }

void get_command_option(std::string_view key, std::int32_t& m, std::span<double> x, FixedTexts* xc) {
  if (xc) xc->blank_all();
  std::fill(x.begin(), x.end(), 0.0);
  m = -1;
  const auto& args = command_line_state.arguments;
  const std::string_view k = trim(key);
  std::size_t at = args.size();
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (trim(args[i]) == k) {
      at = i;
      break;
    }
  }
  if (at == args.size()) return;
  m = 0;
  for (std::size_t j = at + 1; j < args.size(); ++j) {
    std::string_view value = trim(args[j]);
    if (value.substr(0, 2) == "--") break;
    if (xc && m >= xc->size()) break;
    if (!xc && !x.empty() && static_cast<std::size_t>(m) >= x.size()) break;
    ++m;
    if (xc) xc->set(m, value);
    if (static_cast<std::size_t>(m) <= x.size()) {
      std::istringstream in{std::string(value)};
      double v = 0.0;
      if (read_free(in, v) != ReadStatus::ok) v = 0.0;
      x[static_cast<std::size_t>(m - 1)] = v;
    }
  }
}

void get_command_option(std::string_view key, std::int32_t& m) { get_command_option(key, m, {}, nullptr); }
void get_command_option(std::string_view key, std::int32_t& m, FixedTexts& xc) {
  get_command_option(key, m, {}, &xc);
}
void get_command_option(std::string_view key, std::int32_t& m, std::span<double> x, FixedTexts& xc) {
  get_command_option(key, m, x, &xc);
}

void check_command_options(std::span<const std::string> valid) {
  for (const std::string& arg : command_line_state.arguments) {
    std::string_view a = trim(arg);
    if (a.empty() || a[0] != '-') continue;
    bool ok = std::any_of(valid.begin(), valid.end(), [&](const std::string& v) { return trim(v) == a; });
    if (!ok) stop(free_format("Command argument NOT valid: ", a));
  }
}

void print_option_list(std::string_view title, std::span<const std::string> list) {
  std::ostream& o = out();
  o << "    " << rtrim(title);
  for (const std::string& s : list) o << ' ' << rtrim(s);
  o << '\n';
}

void append_string(std::string_view s, std::vector<std::string>& list) {
  list.emplace_back(s.substr(0, std::min<std::size_t>(s.size(), 250)));
}

}  // namespace mmekit
