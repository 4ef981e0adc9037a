// Free-format (list-directed) output and input, and the (fw.0) rule for one item.

#include "mmekit/support/free_format.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>

namespace mmekit {

namespace {

// The shortest text that reads back to `v` in its own precision, with a point always present.
// Magnitudes from 1e-4 up to (not including) 1e15 are written in fixed notation, the others as
// d.ddddE+xx.
template <class T>
void append_real(std::string& out, T v) {
  if (std::isnan(v)) {
    out += "NaN";
    return;
  }
  if (std::isinf(v)) {
    out += v < 0 ? "-Infinity" : "Infinity";
    return;
  }
  char buf[64];
  T a = std::fabs(v);
  if (std::signbit(v)) out.push_back('-');
  if (a == 0) {
    out += "0.0";
    return;
  }
  if (a >= T(1e-4) && a < T(1e15)) {
    auto r = std::to_chars(buf, buf + sizeof buf, a, std::chars_format::fixed);
    out.append(buf, r.ptr);
    if (std::find(buf, r.ptr, '.') == r.ptr) out += ".0";
    return;
  }
  auto r = std::to_chars(buf, buf + sizeof buf, a, std::chars_format::scientific);
  char* e = std::find(buf, r.ptr, 'e');
  out.append(buf, e);
  if (std::find(buf, e, '.') == e) out += ".0";
  out.push_back('E');
  out.append(e + 1, r.ptr);  // sign and at least two digits
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Decodes a whole token as a number of type T; Fortran spellings allowed: a leading '+', and
// D as the exponent letter for reals.
template <class T>
bool decode(std::string_view tok, T& value) {
  if (!tok.empty() && tok.front() == '+') {
    tok.remove_prefix(1);
    if (!tok.empty() && tok.front() == '-') return false;
  }
  if (tok.empty()) return false;
  if constexpr (std::is_integral_v<T>) {
    auto r = std::from_chars(tok.data(), tok.data() + tok.size(), value);
    return r.ec == std::errc() && r.ptr == tok.data() + tok.size();
  } else {
    char buf[128];
    if (tok.size() >= sizeof buf) return false;
    for (std::size_t i = 0; i < tok.size(); ++i) buf[i] = (tok[i] == 'd' || tok[i] == 'D') ? 'e' : tok[i];
    T v{};
    auto r = std::from_chars(buf, buf + tok.size(), v, std::chars_format::general);
    if (r.ptr != buf + tok.size()) return false;
    if (r.ec == std::errc::result_out_of_range) return false;
    if (r.ec != std::errc()) return false;
    value = v;
    return true;
  }
}

bool store(const ReadTarget& target, std::string_view tok, bool quoted) {
  return std::visit(
      [&](auto* p) -> bool {
        using T = std::remove_pointer_t<decltype(p)>;
        if constexpr (std::is_same_v<T, std::string>) {
          p->assign(tok);
          return true;
        } else {
          if (quoted) return false;
          T v{};
          if (!decode(tok, v)) return false;
          *p = v;
          return true;
        }
      },
      target);
}

}  // namespace

std::string free_format_list(const FormatList& items) {
  std::string out;
  out.reserve(16 * items.items().size() + 1);
  for (const FormatItem& item : items.items()) {
    out.push_back(' ');
    switch (item.index()) {
      case 0: {
        char buf[24];
        auto r = std::to_chars(buf, buf + sizeof buf, std::get<0>(item));
        out.append(buf, r.ptr);
        break;
      }
      case 1:
        append_real(out, std::get<1>(item));
        break;
      case 2:
        append_real(out, std::get<2>(item));
        break;
      case 3:
        out += std::get<3>(item);
        break;
      default:
        out.push_back(std::get<4>(item) ? 'T' : 'F');
        break;
    }
  }
  return out;
}

// Values are separated by blanks, commas or line ends. Two commas with nothing but blanks
// between them give a null value, which leaves its target as it was; a slash ends the read
// and leaves the remaining targets as they were. Texts may be quoted with ' or " (a doubled
// quote stands for itself); an unquoted text ends at a separator.
ReadStatus read_free_list(std::istream& in, std::span<const ReadTarget> targets) {
  std::size_t next = 0;
  std::string line;
  std::string quoted_text;
  bool value_since_comma = true;  // a comma at the very start separates nothing
  bool first_line = true;
  while (next < targets.size()) {
    if (!std::getline(in, line)) return ReadStatus::end_of_file;
    if (!first_line) value_since_comma = true;  // a line end separates like a blank
    first_line = false;
    std::size_t i = 0;
    const std::size_t n = line.size();
    while (next < targets.size()) {
      while (i < n && is_blank(line[i])) ++i;
      if (i >= n) break;
      char c = line[i];
      if (c == ',') {
        if (!value_since_comma) ++next;  // null value
        value_since_comma = false;
        ++i;
        continue;
      }
      if (c == '/') return ReadStatus::ok;
      bool quoted = false;
      std::string_view tok;
      if (c == '\'' || c == '"') {
        quoted = true;
        quoted_text.clear();
        ++i;
        bool closed = false;
        while (i < n) {
          if (line[i] == c) {
            if (i + 1 < n && line[i + 1] == c) {
              quoted_text.push_back(c);
              i += 2;
              continue;
            }
            ++i;
            closed = true;
            break;
          }
          quoted_text.push_back(line[i++]);
        }
        if (!closed) return ReadStatus::bad_value;
        tok = quoted_text;
      } else {
        std::size_t start = i;
        while (i < n && !is_blank(line[i]) && line[i] != ',' && line[i] != '/') ++i;
        tok = std::string_view(line).substr(start, i - start);
      }
      if (!store(targets[next], tok, quoted)) return ReadStatus::bad_value;
      ++next;
      value_since_comma = true;
    }
  }
  return ReadStatus::ok;
}

namespace {

template <class T>
bool read_fixed_impl(std::string_view item, T& value, int width) {
  value = 0;
  if (width < 0) width = 0;
  item = item.substr(0, std::min(item.size(), static_cast<std::size_t>(width)));
  std::size_t comma = item.find(',');
  if (comma != std::string_view::npos) item = item.substr(0, comma);
  // The field without its blanks.
  char f[256];
  std::size_t len = 0;
  for (char c : item) {
    if (c == ' ' || c == '\t') continue;
    if (len == sizeof f) return false;
    f[len++] = c;
  }
  if (len == 0) return true;  // a blank field reads as zero
  std::size_t i = 0;
  bool neg = false;
  if (f[i] == '+' || f[i] == '-') {
    neg = f[i] == '-';
    ++i;
  }
  auto lower = [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); };
  // Infinity and NaN as words.
  {
    std::string word;
    for (std::size_t k = i; k < len; ++k) word.push_back(lower(f[k]));
    if (word == "inf" || word == "infinity") {
      value = neg ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::infinity();
      return true;
    }
    if (word == "nan") {
      value = std::numeric_limits<T>::quiet_NaN();
      return true;
    }
  }
  // Canonical text for from_chars: digits[.digits][e[-]digits].
  char c[264];
  std::size_t m = 0;
  std::size_t digits = 0;
  bool point = false;
  for (; i < len; ++i) {
    char ch = f[i];
    if (ch >= '0' && ch <= '9') {
      c[m++] = ch;
      ++digits;
    } else if (ch == '.' && !point) {
      point = true;
      c[m++] = ch;
    } else {
      break;
    }
  }
  if (digits == 0) return false;
  if (i < len) {
    // The exponent: E or D with an optional sign, or a sign alone.
    char l = lower(f[i]);
    if (l == 'e' || l == 'd') ++i;
    else if (f[i] != '+' && f[i] != '-') return false;
    c[m++] = 'e';
    if (i < len && (f[i] == '+' || f[i] == '-')) {
      if (f[i] == '-') c[m++] = '-';
      ++i;
    }
    if (i >= len) return false;
    for (; i < len; ++i) {
      if (f[i] < '0' || f[i] > '9') return false;
      c[m++] = f[i];
    }
  }
  T v{};
  auto r = std::from_chars(c, c + m, v, std::chars_format::general);
  if (r.ptr != c + m) return false;
  if (r.ec == std::errc::result_out_of_range) {
    // Beyond the range of T: overflow or underflow, by where the first significant digit
    // stands (its power of ten is lead - 1).
    long int_digits = 0, frac_zeros = 0;
    bool after_point = false, seen = false;
    std::size_t k = 0;
    for (; k < m && c[k] != 'e'; ++k) {
      if (c[k] == '.') {
        after_point = true;
      } else if (!seen && c[k] == '0') {
        if (after_point) ++frac_zeros;
      } else {
        seen = true;
        if (!after_point) ++int_digits;
      }
    }
    long ex = 0;
    bool eneg = false;
    if (k < m) {
      ++k;
      if (k < m && c[k] == '-') {
        eneg = true;
        ++k;
      }
      for (; k < m; ++k) ex = std::min(ex * 10 + (c[k] - '0'), 100000L);
    }
    long lead = (int_digits > 0 ? int_digits : -frac_zeros) + (eneg ? -ex : ex);
    v = lead > 0 ? std::numeric_limits<T>::infinity() : T(0);
  } else if (r.ec != std::errc()) {
    return false;
  }
  value = neg ? -v : v;
  return true;
}

}  // namespace

bool read_fixed(std::string_view item, float& value, int width) { return read_fixed_impl(item, value, width); }
bool read_fixed(std::string_view item, double& value, int width) { return read_fixed_impl(item, value, width); }

}  // namespace mmekit
