// Formatted output by Fortran-style format texts, such as "(1x,f0.5)", "(' Parameter file:',t30,a)"
// or "(10g12.4/)".
//
// Edit descriptors: Iw[.m], Fw.d, Ew.d[Ee], ESw.d[Ee], Gw.d[Ee], G0[.d], A[w], Lw, nX, Tn, TLn,
// TRn, "/", ":", quoted literals ('..' or "..", a doubled quote inside stands for itself),
// repeat counts on descriptors and on parenthesised groups, nested groups. Letters may be upper
// or lower case; blanks inside the format text are ignored (but not inside literals); commas
// between descriptors are optional.
//
// A write runs through the format, taking one item per data descriptor (I F E ES G A L).
// It ends at the first data descriptor (or ':') met when no items are left, or at the final ')'
// when none are left; literals and positioning met before that are done. When items remain at
// the final ')', the current line ends and the format starts again at its last top-level group
// (with that group's repeat count), or at its beginning when it has no group. '/' ends the
// current line. T moves to an absolute column of the current line, TL left (not before column
// 1), TR and nX right; a later field overwrites what is there or is padded with blanks up to
// its column, and a move that nothing is written after adds nothing.
//
// Numbers: a value that does not fit its width is written as w asterisks; w = 0 means the least
// width. Decimal digits are those of the exact binary value, rounded to nearest with ties to
// even, so float 123456.7 in f0.5 is 123456.70312. A negative value keeps its minus sign even
// when it rounds to zero (-.00000). F: for a magnitude below 1 the zero before the point is
// written only when the width leaves room for it, and never with w = 0 (0.5 in f0.5 is .50000,
// in f7.5 0.50000, in f6.5 .50000). E: 0.ddddE+xx (a three-digit exponent is written +xxx
// without the letter; with Ee the exponent has e digits). ES: d.dddE+xx. G: the F form
// followed by 4 blanks (e+2 with Ee) when the value rounded to d digits lies in [0.1, 10**d)
// or is zero, else the E form; G0.d the same in the least width, without the trailing blanks
// and with the zero before the point; G0 uses 9 digits for a float and 17 for a double. G on
// an integer, a text or a logical writes it as I, A or L would. NaN is written "NaN", infinity
// "Infinity" / "-Infinity", or "Inf" / "-Inf" when the width is too small for that, right-
// justified in the field. Iw.m writes at least m digits (Iw.0 writes zero as blanks). Aw
// right-justifies a shorter text and writes the first w characters of a longer one. Lw writes
// T or F right-justified.
//
// A malformed format text is a programming error and stops the run with a message naming it,
// " invalid format <text>: <reason>"; so does an item that its descriptor cannot write (a real
// for I, an integer for F, ...): " format <text>: item <k> is <kind>, which <D> cannot write".
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "mmekit/support/array.hpp"

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
  // continues that line. Columns of T and TL count from the start of this write's text.
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
