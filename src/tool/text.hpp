// Text input routines under everything that reads a line: the two line splitters, the line
// readers built on them, the layout check of a text file and the command-line helpers.
//
// Conventions of this header:
// - Numbers go into caller-supplied spans, item i in element [i - 1]; the splitters never
//   allocate them. The capacity of a span is its size.
// - Texts go into a `FixedTexts`: an array of fixed-length, blank-padded text elements, indexed
//   from 1. An element reads back without its trailing blanks (a blank element reads as "").
// - Lines are taken as the characters given; conceptually a line buffer is blank padded on the
//   right, so a line that ends in blanks and one that does not are the same line.
// - A report by these routines prints its message on `out()` and stops the run
//   (`mmekit::Stop`). Reading problems do not stop: an item that does not decode is 0, and the
//   line readers give m = -1 at the end of the file.
// - The line readers and the command-line routines keep static buffers; they are not
//   re-entrant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mmekit {

// Process-wide settings of the text routines.
struct TextSettings {
  // Length of the line buffer of the line readers; they copy it at entry. A longer line is cut.
  std::int32_t line_length = 800;
};
extern TextSettings text_settings;

// An array of `count` texts of `width` characters each, blank padded, indexed 1..count.
class FixedTexts {
 public:
  FixedTexts() = default;
  FixedTexts(std::int32_t count, std::int32_t width);

  std::int32_t size() const { return count_; }
  std::int32_t width() const { return width_; }
  // Element i without its trailing blanks (1-based).
  std::string_view operator()(std::int32_t i) const;
  // Element i with its padding, exactly `width` characters.
  std::string_view padded(std::int32_t i) const;
  // Element i becomes `text`, cut or blank padded to the width.
  void set(std::int32_t i, std::string_view text);
  void blank(std::int32_t i);
  void blank_all();
  // All elements without trailing blanks, for tests and printing.
  std::vector<std::string> to_vector() const;

 private:
  std::vector<char> chars_;
  std::int32_t count_ = 0;
  std::int32_t width_ = 0;
};

// ---- Splitters ------------------------------------------------------------------------------

// Splits `a` at blanks (only blanks separate items: a tab, a comma or a quote belongs to the
// item). `m` is the number of items. When given, `x` is cleared and x[i-1] is item i decoded as
// a real by the fixed-point input rule of a 12-character field (only the first 12 characters of
// the item take part, a comma ends the field, no decimal point means a whole number, an exponent
// is allowed; 0 when it does not decode); `xc` is blanked and xc(i) is item i. More items than
// `xc` (or, without `xc`, than `x`) holds: the report
//   " Error in nums2 splitting string starting: " / the first 80 characters of `a` /
//   " into m: <capacity> items"
// is printed and the run stops.
void nums2(std::string_view a, std::int32_t& m);
void nums2(std::string_view a, std::int32_t& m, std::span<float> x);
void nums2(std::string_view a, std::int32_t& m, FixedTexts& xc);
void nums2(std::string_view a, std::int32_t& m, std::span<float> x, FixedTexts& xc);

// The integer splitter of the parameter file. Differs from `nums2` on purpose:
// - only xc(n) is blanked at entry; the other elements of `xc` and all of `x` keep what they
//   held, so a shorter line leaves the older items behind;
// - an item ends only at a blank after it: an item that runs up to the very end of `a` is not
//   counted (the line readers pass blank-padded buffers, so this shows only on a full line);
// - the capacity is `n` (x and xc must hold at least n elements); beyond it the report is as
//   for nums2 with "Error in nums splitting string starting: ";
// - xc(i) is the item without its trailing blank;
// - x[i-1] is decoded by `field_to_int` only when the item has 1 to 10 characters, otherwise
//   it keeps its old value.
void nums(std::string_view a, std::span<std::int32_t> x, FixedTexts& xc, std::int32_t n,
          std::int32_t& m);

// Decodes `a` by hand: a leading "-" is remembered, then decimal digits are accumulated in
// 32-bit arithmetic (wrapping around, as ten digits can) up to the first non-digit; the sign
// is applied at the end. "12abc" is 12, "3.7" is 3, "cro" is 0, "--5" is 0.
std::int32_t field_to_int(std::string_view a);

// x in decimal, a leading "-" on negative numbers, one blank between numbers. The length of
// the result is the number of characters produced.
std::string ints_to_string(std::span<const std::int32_t> x);

// ---- Line readers ---------------------------------------------------------------------------
// Each reads whole lines of `unit`, cut at `text_settings.line_length` characters; a carriage
// return at the end of a line (a "\r\n" line end) is removed. The line is shifted left (leading
// blanks removed) before it is split. At the end of the file m = -1.

// The reader of the parameter file: a line whose first non-blank character is "#" is a comment
// and skipped (unless `no_comments`); a "#" further right cuts the line before it. The rest is
// split by `nums` with capacity min(x.size(), xc.size()). A blank line gives m = 0.
void read_items(std::istream& unit, std::span<std::int32_t> x, FixedTexts& xc, std::int32_t& m,
                bool no_comments = false);
// One line, no comment handling, split by `nums`.
void read_items_plain(std::istream& unit, std::span<std::int32_t> x, FixedTexts& xc,
                      std::int32_t& m);
// One line, no comment handling, split by `nums2` into reals and texts.
void read_items_real(std::istream& unit, std::int32_t& m, std::span<float> x, FixedTexts& xc);

// ---- File check -----------------------------------------------------------------------------

// Checks that the text file open on `unit`, opened under the name `file_name`, can be read by
// the splitters: its first line (up to 50,000 characters, after removing a "\r\n" line end)
// must hold neither a carriage return (old Mac line ends) nor a tab. On failure prints an empty
// line and two message lines naming the file without its directory part, and stops. Otherwise
// the unit is rewound (cleared and positioned at its start). Only the first line is examined.
void check_text_file(std::istream& unit, std::string_view file_name);

// ---- Command line ---------------------------------------------------------------------------
// The command-line arguments (without the program name) are stored once by `set_command_line`,
// normally from main; each is kept to its first 250 characters.

void set_command_line(int argc, const char* const* argv);
void set_command_line(std::span<const std::string> arguments);
const std::vector<std::string>& command_line();

// Finds `key` among the arguments (both compared without leading and trailing blanks). m = -1
// when it is absent; otherwise m is the number of values that follow it, up to the end of the
// arguments or an argument that starts with "--", and at most the capacity of `xc` (or, without
// `xc`, of a non-empty `x`). The values go into `xc` and, decoded as free-format reals (0 when
// that fails), into `x`. Both are cleared first.
void get_command_option(std::string_view key, std::int32_t& m, std::span<double> x,
                        FixedTexts* xc);
void get_command_option(std::string_view key, std::int32_t& m);
void get_command_option(std::string_view key, std::int32_t& m, FixedTexts& xc);
void get_command_option(std::string_view key, std::int32_t& m, std::span<double> x,
                        FixedTexts& xc);

// Every argument that starts with "-" must be one of `valid`; otherwise
// " Command argument NOT valid:  <argument>" is printed and the run stops.
void check_command_options(std::span<const std::string> valid);

// Prints "    <title> <item> <item> ..." (texts without trailing blanks) as one line on out().
void print_option_list(std::string_view title, std::span<const std::string> list);

// Appends `s` (cut to 250 characters) to `list`.
void append_string(std::string_view s, std::vector<std::string>& list);

}  // namespace mmekit
