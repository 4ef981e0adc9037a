// Formatted output by Fortran-style format texts, such as "(1x,f0.5)", "(' Parameter file:',t30,a)"
// or "(10g12.4/)".
//
// Edit descriptors: Iw[.m], Fw.d, Ew.d[Ee], ESw.d[Ee], Gw.d[Ee], A[w], Lw, nX, Tn, TLn, TRn, "/",
// quoted literals ('..' or ".."), repeat counts on descriptors and on parenthesised groups,
// nested groups. Blanks inside the format text are ignored (but not inside literals). When
// items remain after the last descriptor, the format reverts to the last top-level group (or
// the whole format) and starts a new line. A value that does not fit its width is written as
// asterisks; w = 0 means the least width. Decimal digits are those of the exact binary value,
// rounded to nearest with ties to even, so float 123456.7 in f0.5 is 123456.70312.
//
// A malformed format text is a programming error and stops the run with a message naming it.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "support/array.hpp"

namespace mmekit {

// One output item. Integers of any width travel as int64; r4 and r8 keep their precision,
// which decides the digits written. Text items are views: the list lives for one write only.
using FormatItem = std::variant<std::int64_t, float, double, std::string_view, bool>;

// The output list of one write statement. Arrays and spans add each element in order.
class FormatList {
 public:
  FormatList() = default;
  template <class... Args>
  explicit FormatList(const Args&... args) { (add(args), ...); }

  void add(bool v) { items_.emplace_back(v); }
  void add(float v) { items_.emplace_back(v); }
  void add(double v) { items_.emplace_back(v); }
  void add(std::string_view v) { items_.emplace_back(v); }
  void add(const char* v) { items_.emplace_back(std::string_view(v)); }
  void add(const std::string& v) { items_.emplace_back(std::string_view(v)); }
  template <class T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool>)
  void add(T v) { items_.emplace_back(static_cast<std::int64_t>(v)); }
  template <class T>
  void add(std::span<const T> s) { for (const T& v : s) add(v); }
  template <class T>
  void add(std::span<T> s) { for (const T& v : s) add(v); }
  template <class T>
  void add(const std::vector<T>& v) { for (const T& e : v) add(e); }
  template <class T>
  void add(const Array1<T>& v) { for (const T& e : v) add(e); }

  const std::vector<FormatItem>& items() const { return items_; }
  void clear() { items_.clear(); }

 private:
  std::vector<FormatItem> items_;
};

// A format text parsed once, to be used for many writes.
class Format {
 public:
  explicit Format(std::string_view text);
  ~Format();
  Format(const Format&);
  Format& operator=(const Format&);
  Format(Format&&) noexcept;
  Format& operator=(Format&&) noexcept;

  // The lines of one write statement, each ending in '\n'.
  std::string write(const FormatList& items) const;
  // The same without the newline after the last line (a non-advancing write): the next write
  // continues that line.
  std::string write_partial(const FormatList& items) const;

  struct Program;  // the parsed descriptors

 private:
  Program* program_;
};

// The lines of one write of `args` by the format text `fmt`, each line ending in '\n'.
template <class... Args>
std::string fformat(std::string_view fmt, const Args&... args) {
  return Format(fmt).write(FormatList(args...));
}

// Writes one formatted write statement to `os`.
template <class... Args>
void fwrite(std::ostream& os, std::string_view fmt, const Args&... args) {
  os << Format(fmt).write(FormatList(args...));
}

}  // namespace mmekit
