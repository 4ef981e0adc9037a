// The covariate tool: copies a blank-separated text data file record by record and inserts,
// after each chosen column, normalised Legendre polynomial covariates of the integer value in
// that column, for random-regression models.
//
// The program is `regcov` (build/bin/regcov); its main is `run_program([] { regcov(std::cin); })`.
// Everything it does is in the functions below, so that tests can drive it with string streams.
//
// Dialogue on standard input (prompts on out()): input file name, output file name, the
// position line (the 1-based column of each range, at most 100 of them), then for each range
// three integers: min, max and the number of polynomials.
//
// Choices where a record or an answer is beyond what the layout provides:
// - A data line is cut at 255 characters, so it holds at most 128 items; every item is kept,
//   also beyond n + 100 items.
// - A "\r\n" line end of a data line is removed before the line is split.
// - A position below 1 stops the run after the position line:
//   " *** error : position below 1 in the position line".
// - Positions need not be sorted, but every one must be within the record: a record with fewer
//   items than the last position stops with " *** error : nn < last position"; one with fewer
//   items than another position stops with " *** error : nn < position".
// - An item beyond the 32-bit integer range (or not a number) is written in fixed notation; for
//   the polynomial it counts as the nearest 32-bit integer (a not-a-number as 0), so it is
//   clamped like any other value.
// - The differences in the scaling to [-1, 1] are taken exactly (64-bit), so that ranges near
//   the 32-bit limits do not overflow.
// - The coefficient table is limited to 2^24 terms in total (about 8000 polynomials for one
//   range); more stops with " *** error : too many polynomials".
// - The input file is created empty when it does not exist (no records then); a file that
//   cannot be opened, or an output file that is the input file, stops the run with a message.
// - An end of standard input during the dialogue, or a range answer that is not three integers,
//   stops with a message.
#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mmekit {

// r8 product 2 x 3 x ... x n; 1.0 for n below 2.
double factorial(std::int32_t n);
// 1.0 if k is 0 or n, otherwise factorial(n) / (factorial(n - k) x factorial(k)).
double binomial(std::int32_t n, std::int32_t k);
// 2.0 x (t - t_min) / (t_max - t_min) - 1.0, the differences exact integers, in this order.
double to_unit_range(std::int32_t t, std::int32_t t_max, std::int32_t t_min);
// x^p by binary exponentiation in extended precision, rounded to double; x^0 is 1.0.
double power_extended(double x, std::int32_t p);
// 2^j as a 32-bit signed integer, converted to double: -2147483648.0 for j = 31, 0.0 above.
double power_of_two_i4(std::int32_t j);

// The square root of 2 rounded to single precision and widened; scales every coefficient.
inline constexpr double regcov_root2 = 1.4142135381698608;

// One range of the dialogue.
struct RegcovRange {
  std::int32_t pos = 0;        // 1-based column that carries the value
  std::int32_t range_min = 0;  // limits of the value
  std::int32_t range_max = 0;
  std::int32_t npoly = 0;  // number of polynomials (orders 1..npoly); negative counts as 0
};

// The coefficient table: for each range, the polynomials of order 0..npoly in powers of x.
class LegendreTable {
 public:
  LegendreTable() = default;
  explicit LegendreTable(std::span<const RegcovRange> ranges);

  std::int32_t ranges() const { return static_cast<std::int32_t>(npoly_.size()); }
  std::int32_t npoly(std::int32_t i) const { return npoly_[static_cast<std::size_t>(i - 1)]; }
  // coef(j, p, i): coefficient of x^p in the polynomial of order j of range i (0 off the table).
  double coef(std::int32_t j, std::int32_t p, std::int32_t i) const;
  // pwr(j, k, i) = j - 2k, the power of term k of order j.
  std::int32_t pwr(std::int32_t j, std::int32_t k, std::int32_t i) const;

  // Covariates of range i for the clamped value t: cov[order - 1] for order 1..npoly(i).
  // A running sum that is exactly 0.0 after any term becomes 1.0E-12.
  void evaluate(std::int32_t i, std::int32_t t, std::int32_t t_max, std::int32_t t_min,
                std::span<double> cov) const;

 private:
  struct Term {
    std::int32_t power;
    double coef;
  };
  std::vector<std::int32_t> npoly_;
  std::vector<std::size_t> range_start_;  // first term of order 0 of each range
  std::vector<Term> terms_;               // per range, per order j: terms k = 0..j/2
  mutable std::vector<double> powers_;    // scratch: x^p for p = 0..maxnp
  mutable std::vector<long double> partial_, squares_;
  std::size_t first_term(std::int32_t j, std::int32_t i) const;
};

// The record loop of one run. Holds the table and the per-record buffers; memory does not grow
// with the number of records.
//
// The covariates of a range depend only on the clamped integer value, so their written text is
// kept per range and value once it has been made (for ranges of at most 2^16 values, and up to
// 64 MB of kept text for all ranges together); records with a value seen before copy it.
// `memo` = false turns that off (the bytes written are the same either way).
class RegcovRecords {
 public:
  explicit RegcovRecords(std::vector<RegcovRange> ranges, bool memo = true);

  // Handles one data line (without its line end): appends the output lines to `text`. A line
  // with fewer items than a position stops the run (mmekit::Stop) and appends nothing.
  void record(std::string_view line, std::string& text);
  // Reads `in` to its end and writes every record on `out`. On a stop, what was done before the
  // failing record is written and flushed first. Returns the number of records.
  std::int64_t run(std::istream& in, std::ostream& out);

  std::int64_t records() const { return records_; }
  const LegendreTable& table() const { return table_; }

 private:
  std::vector<RegcovRange> ranges_;
  LegendreTable table_;
  std::int32_t last_pos_ = 0;  // pos(n), 0 without ranges
  std::int32_t max_pos_ = 0;
  std::vector<float> x_;              // the splitter's numbers (capacity 1000)
  std::vector<std::int32_t> rec_int_; // items truncated toward zero
  std::vector<unsigned char> is_int_; // column written as an integer
  std::vector<double> cov_;           // covariates of all ranges
  std::vector<std::size_t> cov_start_;
  // The written covariates of each range for the current record: in the range's memo or in
  // text_ (offset, length).
  struct CovText {
    bool in_memo = false;
    std::size_t offset = 0, length = 0;
  };
  std::vector<CovText> cov_text_;
  std::vector<char> text_;
  struct Memo {
    bool enabled = false;
    std::int64_t min = 0;
    std::vector<std::uint32_t> offset;  // per value; UINT32_MAX: not made yet
    std::vector<std::uint32_t> length;
    std::vector<char> text;
  };
  std::vector<Memo> memo_;
  std::size_t memo_used_ = 0;
  std::int64_t records_ = 0;
  std::size_t bound_ = 0;  // most characters one record can write
  std::vector<char> scratch_;
  // Handles one line, writing its output at `p`, which has room for bound_ characters.
  char* record_into(std::string_view line, char* p);
  char* write_column(std::int32_t c, char* p) const;
  char* format_covariates(std::int32_t i, char* p) const;
  char* write_covariates(std::int32_t i, bool end_line, char* p) const;
};

// The answers of the dialogue.
struct RegcovSetup {
  std::string input_name;
  std::string output_name;
  std::vector<RegcovRange> ranges;
};

// The positions of the position line: items split at blanks, each truncated toward zero. More
// than 100 items stops the run with the splitter's report.
std::vector<std::int32_t> regcov_positions(std::string_view line);

// The whole program: dialogue on `answers` with the prompts on out(), the files, the record loop
// and the closing " # records = N" line. Stops (mmekit::Stop) on an error.
void regcov(std::istream& answers);

}  // namespace mmekit
