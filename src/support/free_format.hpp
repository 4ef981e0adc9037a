// Free-format (list-directed) output and input.
//
// Output rule, used by every "free-format" message of the system: one leading blank, then the
// items separated by one blank, and nothing after the last item. Integers are written in the
// least width. Reals are written in the shortest form that reads back to the same value in
// their own precision (r4 for float, r8 for double), with a decimal point always present:
// fixed notation for magnitudes from 1e-4 up to below 1e15 (1.0, not 1; 0.0001; 16777216.0),
// d.dddE+xx for the others and for no other (1.5E-10, 1.0E+20); zero is 0.0 or -0.0; NaN,
// Infinity and -Infinity spelt so. Logicals are T and F. Text items are written as they are,
// trailing blanks included.
//
// Input rule: values are separated by blanks, commas or line ends, and one read may span as
// many lines as it needs; after the last value the rest of its line is skipped. Two commas
// with only blanks between them give a null value, which leaves its target unchanged; a '/'
// ends the read and leaves the remaining targets unchanged. Numbers may have a leading '+';
// reals may use D as the exponent letter. Texts may be quoted with ' or " (a doubled quote
// inside stands for itself), else they end at a separator. A value that does not decode as
// the type asked for (a real or a text for an integer, an integer beyond its type) is an
// error that the caller sees.
#pragma once

#include <cstdint>
#include <istream>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "mmekit/support/format.hpp"

namespace mmekit {

// " item item ..." without a newline.
std::string free_format_list(const FormatList& items);

template <class... Args>
std::string free_format(const Args&... args) {
  return free_format_list(FormatList(args...));
}

// Writes one free-format line (with its newline) on the run's output.
template <class... Args>
void print_free(const Args&... args);

enum class ReadStatus { ok, end_of_file, bad_value };

// A destination of one list-directed read.
using ReadTarget = std::variant<std::int32_t*, std::int64_t*, float*, double*, std::string*>;

// Reads values into `targets` in order, by the input rule above.
ReadStatus read_free_list(std::istream& in, std::span<const ReadTarget> targets);

// read_free(in, a, b, c): scalars, or std::vector / Array1 of numbers (each element is read,
// the container keeps its size).
template <class... Args>
ReadStatus read_free(std::istream& in, Args&... args);

// The (fw.0) input rule of the splitters, on one item: only the first `width` characters take
// part, a comma ends the field, blanks are ignored, a value without a decimal point is a whole
// number, an exponent with E or D (or a signed exponent without a letter, 1-3 = 0.001) is
// allowed, and so are INF, INFINITY and NAN in any case. A blank field is 0. The value is
// decoded straight to the precision asked for (a float result is the correctly rounded float
// of the decimal text); beyond the range of the type it is an infinity, below it zero.
// Returns false and sets the value to 0 when the field does not decode.
bool read_fixed(std::string_view item, float& value, int width = 12);
bool read_fixed(std::string_view item, double& value, int width = 12);

}  // namespace mmekit

#include "mmekit/support/free_format_impl.hpp"
