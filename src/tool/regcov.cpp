#include "mmekit/tool/regcov.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/fixed_output.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {

namespace {

constexpr std::size_t record_length = 255;    // a data line is cut here
constexpr std::size_t name_length = 80;       // a file name is cut here
constexpr std::size_t split_capacity = 1000;  // numbers the splitter can hold
constexpr std::size_t max_record_items = 128;  // the most items a line of 255 characters holds
constexpr std::int32_t max_positions = 100;   // items of the position line
constexpr std::size_t max_terms = std::size_t{1} << 24;

// Truncation toward zero into 32 bits, saturating beyond the range; not-a-number gives 0.
std::int32_t truncate_i4(float v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483648.0f) return INT32_MAX;
  if (v < -2147483648.0f) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

bool fits_i4(float v) { return v >= -2147483648.0f && v < 2147483648.0f; }

// Lines of a stream, read in large blocks. A line is returned without its "\n"; a line longer
// than `keep` characters is returned cut to `keep` (the rest is read and dropped), so memory
// stays bounded whatever the file holds. A read error counts as the end of the file.
class LineReader {
 public:
  LineReader(std::istream& in, std::size_t keep) : in_(in), keep_(keep), block_(1 << 16) {}

  bool next(std::string_view& line) {
    carry_.clear();
    bool carrying = false;
    for (;;) {
      if (begin_ < end_) {
        const char* start = block_.data() + begin_;
        const void* nl = std::memchr(start, '\n', end_ - begin_);
        if (nl) {
          std::size_t len = static_cast<std::size_t>(static_cast<const char*>(nl) - start);
          begin_ += len + 1;
          if (!carrying) {
            line = std::string_view(start, len);
          } else {
            keep_part(start, len);
            line = carry_;
          }
          return true;
        }
        keep_part(start, end_ - begin_);
        carrying = true;
        begin_ = end_ = 0;
      }
      if (eof_) {
        if (!carrying) return false;
        line = carry_;
        return true;
      }
      std::streamsize n = 0;
      try {
        n = in_.rdbuf() ? in_.rdbuf()->sgetn(block_.data(), static_cast<std::streamsize>(block_.size())) : 0;
      } catch (...) {
        n = 0;
      }
      if (n <= 0) {
        eof_ = true;
      } else {
        begin_ = 0;
        end_ = static_cast<std::size_t>(n);
      }
    }
  }

 private:
  void keep_part(const char* p, std::size_t len) {
    if (carry_.size() < keep_) carry_.append(p, std::min(len, keep_ - carry_.size()));
  }
  std::istream& in_;
  std::size_t keep_;
  std::vector<char> block_;
  std::size_t begin_ = 0, end_ = 0;
  bool eof_ = false;
  std::string carry_;
};

}  // namespace

// ---- Pure functions -------------------------------------------------------------------------

double factorial(std::int32_t n) {
  double f = 1.0;
  for (std::int32_t i = 2; i <= n; ++i) f *= static_cast<double>(i);
  return f;
}

double binomial(std::int32_t n, std::int32_t k) {
  if (k == 0 || k == n) return 1.0;
  return factorial(n) / (factorial(n - k) * factorial(k));
}

double to_unit_range(std::int32_t t, std::int32_t t_max, std::int32_t t_min) {
  const double num = static_cast<double>(static_cast<std::int64_t>(t) - t_min);
  const double den = static_cast<double>(static_cast<std::int64_t>(t_max) - t_min);
  return 2.0 * num / den - 1.0;
}

double power_extended(double x, std::int32_t p) {
  if (p <= 0) return 1.0;
  long double result = 1.0L;
  long double base = x;
  std::uint32_t u = static_cast<std::uint32_t>(p);
  for (;;) {
    if (u & 1u) result *= base;
    u >>= 1;
    if (u == 0) break;
    base *= base;
  }
  return static_cast<double>(result);
}

double power_of_two_i4(std::int32_t j) {
  if (j < 0) return 0.0;
  if (j < 31) return static_cast<double>(std::int32_t{1} << j);
  if (j == 31) return -2147483648.0;
  return 0.0;
}

// ---- Coefficient table ----------------------------------------------------------------------

namespace {
// Terms of orders 0..j-1 together: sum of (j'/2 + 1).
std::size_t terms_before(std::int64_t j) {
  if (j <= 0) return 0;
  return static_cast<std::size_t>(j + (j - 1) * (j - 1) / 4);
}
}  // namespace

LegendreTable::LegendreTable(std::span<const RegcovRange> ranges) {
  std::size_t total = 0;
  std::int32_t maxnp = 0;
  for (const RegcovRange& r : ranges) {
    std::int32_t np = std::max(r.npoly, -1);
    npoly_.push_back(std::max(np, 0));
    range_start_.push_back(total);
    total += terms_before(static_cast<std::int64_t>(np) + 1);
    if (total > max_terms) stop(free_format("*** error : too many polynomials"));
    maxnp = std::max(maxnp, np);
  }
  terms_.resize(total);
  powers_.resize(static_cast<std::size_t>(maxnp) + 1);
  partial_.resize(static_cast<std::size_t>(maxnp) + 1);
  squares_.resize(32);

  // Factorials 0..2 maxnp, each the same running product as factorial(n).
  std::vector<double> fact(2 * static_cast<std::size_t>(maxnp) + 1);
  double f = 1.0;
  for (std::size_t n = 0; n < fact.size(); ++n) {
    if (n >= 2) f *= static_cast<double>(n);
    fact[n] = f;
  }
  auto binom = [&](std::int32_t n, std::int32_t k) {
    if (k == 0 || k == n) return 1.0;
    return fact[static_cast<std::size_t>(n)] /
           (fact[static_cast<std::size_t>(n - k)] * fact[static_cast<std::size_t>(k)]);
  };

  for (std::size_t i = 0; i < ranges.size(); ++i) {
    const std::int32_t np = ranges[i].npoly;  // negative: the range has no orders at all
    for (std::int32_t j = 0; j <= np; ++j) {
      const double r = std::sqrt(static_cast<double>(2 * j + 1) * 0.5);
      const double d = power_of_two_i4(j);
      Term* t = &terms_[range_start_[i] + terms_before(j)];
      for (std::int32_t k = 0; k <= j / 2; ++k) {
        const double s = static_cast<double>((k % 2 == 0) ? 1 : -1);
        const double term = s * r * binom(j, k) * binom(2 * j - 2 * k, j) / d;
        double c = 0.0;
        c += term;
        t[k] = Term{j - 2 * k, c * regcov_root2};
      }
    }
  }
}

std::size_t LegendreTable::first_term(std::int32_t j, std::int32_t i) const {
  return range_start_[static_cast<std::size_t>(i - 1)] + terms_before(j);
}

double LegendreTable::coef(std::int32_t j, std::int32_t p, std::int32_t i) const {
  if (i < 1 || i > ranges() || j < 0 || j > npoly(i) || p < 0 || p > j || (j - p) % 2 != 0) return 0.0;
  return terms_[first_term(j, i) + static_cast<std::size_t>((j - p) / 2)].coef;
}

std::int32_t LegendreTable::pwr(std::int32_t j, std::int32_t k, std::int32_t i) const {
  return terms_[first_term(j, i) + static_cast<std::size_t>(k)].power;
}

void LegendreTable::evaluate(std::int32_t i, std::int32_t t, std::int32_t t_max, std::int32_t t_min,
                             std::span<double> cov) const {
  const std::int32_t np = npoly(i);
  if (np <= 0) return;
  const double x = to_unit_range(t, t_max, t_min);
  // x^p for p = 0..np, each exactly as power_extended computes it: binary exponentiation
  // multiplies the squares x^(2^k) into the result in rising k, so the unrounded result for p
  // is that for p without its highest bit, times the square of that bit.
  long double* partial = partial_.data();
  long double* square = squares_.data();
  partial[0] = 1.0L;
  powers_[0] = 1.0;
  square[0] = x;
  std::int32_t high = 0;  // the highest bit of p
  for (std::int32_t p = 1; p <= np; ++p) {
    if (p == (std::int32_t{1} << (high + 1))) {
      ++high;
      square[high] = square[high - 1] * square[high - 1];
    }
    partial[p] = partial[p - (std::int32_t{1} << high)] * square[high];
    powers_[static_cast<std::size_t>(p)] = static_cast<double>(partial[p]);
  }
  const Term* term = &terms_[first_term(1, i)];
  for (std::int32_t order = 1; order <= np; ++order) {
    double sum = 0.0;
    for (std::int32_t k = 0; k <= order / 2; ++k, ++term) {
      sum += powers_[static_cast<std::size_t>(term->power)] * term->coef;
      if (sum == 0.0) sum = 1.0e-12;
    }
    cov[static_cast<std::size_t>(order - 1)] = sum;
  }
}

// ---- Record loop ----------------------------------------------------------------------------

RegcovRecords::RegcovRecords(std::vector<RegcovRange> ranges, bool memo)
    : ranges_(std::move(ranges)), table_(ranges_), x_(max_record_items) {
  std::size_t ncov = 0;
  // Columns one record can write: the rise of each position over the one before it, and the
  // columns after the last position. A record holds at most max_record_items items and one with
  // fewer items than a position writes nothing, so positions count up to that many only.
  std::size_t columns = max_record_items;
  std::int32_t previous = 0;
  for (const RegcovRange& r : ranges_) {
    cov_start_.push_back(ncov);
    ncov += static_cast<std::size_t>(std::max(r.npoly, 0));
    max_pos_ = std::max(max_pos_, r.pos);
    const std::int32_t p = std::min<std::int32_t>(r.pos, static_cast<std::int32_t>(max_record_items));
    if (p > previous) columns += static_cast<std::size_t>(p - previous);
    previous = p;
  }
  cov_.assign(ncov, 0.0);
  last_pos_ = ranges_.empty() ? 0 : ranges_.back().pos;
  rec_int_.assign(max_record_items + 1, 0);
  is_int_.assign(max_record_items + 1, 0);
  // A column is at most " -" and 39 digits and 6 more; a covariate at most f05_max_chars; one
  // line end per range and per 100 covariates, and one more.
  bound_ = columns * 48 + ncov * f05_max_chars + ncov / 100 + ranges_.size() + 8;

  cov_text_.resize(ranges_.size());
  text_.resize(ncov * f05_max_chars + ncov / 100 + 1);
  memo_.resize(ranges_.size());
  for (std::size_t i = 0; i < ranges_.size(); ++i) {
    const RegcovRange& r = ranges_[i];
    const std::int64_t width = static_cast<std::int64_t>(r.range_max) - r.range_min + 1;
    Memo& mm = memo_[i];
    mm.enabled = memo && r.npoly > 0 && width >= 1 && width <= (std::int64_t{1} << 16);
    if (mm.enabled) {
      mm.min = r.range_min;
      mm.offset.assign(static_cast<std::size_t>(width), UINT32_MAX);
      mm.length.assign(static_cast<std::size_t>(width), 0);
    }
  }
}

char* RegcovRecords::format_covariates(std::int32_t i, char* p) const {
  const double* cov = cov_.data() + cov_start_[static_cast<std::size_t>(i - 1)];
  const std::int32_t np = std::max(ranges_[static_cast<std::size_t>(i - 1)].npoly, 0);
  for (std::int32_t j = 1; j <= np; ++j) {
    if (j > 1 && (j - 1) % 100 == 0) *p++ = '\n';  // the format holds 100 values a line
    p = put_f05(p, cov[j - 1]);
  }
  return p;
}

char* RegcovRecords::write_column(std::int32_t c, char* p) const {
  const std::size_t k = static_cast<std::size_t>(c);
  return is_int_[k] ? put_i0(p, rec_int_[k]) : put_f05(p, static_cast<double>(x_[k - 1]));
}

char* RegcovRecords::write_covariates(std::int32_t i, bool end_line, char* p) const {
  const CovText& ct = cov_text_[static_cast<std::size_t>(i - 1)];
  const char* src = ct.in_memo ? memo_[static_cast<std::size_t>(i - 1)].text.data() : text_.data();
  std::memcpy(p, src + ct.offset, ct.length);
  p += ct.length;
  if (end_line) *p++ = '\n';
  return p;
}

void RegcovRecords::record(std::string_view line, std::string& text) {
  scratch_.resize(bound_);
  char* end = record_into(line, scratch_.data());
  text.append(scratch_.data(), end);
}

char* RegcovRecords::record_into(std::string_view line, char* p) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.size() > record_length) line = line.substr(0, record_length);

  std::int32_t m = 0;
  nums2(line, m, std::span<float>(x_));
  if (m < last_pos_) stop(free_format("*** error : nn < last position"));
  if (m < max_pos_) stop(free_format("*** error : nn < position"));

  for (std::int32_t c = 1; c <= m; ++c) {
    const float y = x_[static_cast<std::size_t>(c - 1)];
    const std::int32_t v = truncate_i4(y);
    rec_int_[static_cast<std::size_t>(c)] = v;
    is_int_[static_cast<std::size_t>(c)] = fits_i4(y) && (y - static_cast<float>(v)) == 0.0f;
  }
  ++records_;

  // The covariates of each range, as written text.
  constexpr std::size_t memo_limit = std::size_t{64} << 20;  // kept text of all ranges together
  const std::int32_t n = static_cast<std::int32_t>(ranges_.size());
  std::size_t text_used = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::size_t ii = static_cast<std::size_t>(i - 1);
    const RegcovRange& r = ranges_[ii];
    const std::int32_t v = rec_int_[static_cast<std::size_t>(r.pos)];
    const std::int32_t t = v > r.range_max ? r.range_max : std::max(v, r.range_min);
    CovText& ct = cov_text_[ii];
    Memo& mm = memo_[ii];
    const std::size_t slot = mm.enabled ? static_cast<std::size_t>(t - mm.min) : 0;
    if (mm.enabled && mm.offset[slot] != UINT32_MAX) {
      ct = CovText{true, mm.offset[slot], mm.length[slot]};
      continue;
    }
    double* cov = cov_.data() + cov_start_[ii];
    std::fill(cov, cov + std::max(r.npoly, 0), 0.0);
    table_.evaluate(i, t, r.range_max, r.range_min, std::span<double>(cov_).subspan(cov_start_[ii]));
    char* start = text_.data() + text_used;
    const std::size_t length = static_cast<std::size_t>(format_covariates(i, start) - start);
    if (mm.enabled && memo_used_ + length <= memo_limit) {
      const std::size_t offset = mm.text.size();
      mm.text.insert(mm.text.end(), start, start + length);
      memo_used_ += length;
      mm.offset[slot] = static_cast<std::uint32_t>(offset);
      mm.length[slot] = static_cast<std::uint32_t>(length);
      ct = CovText{true, offset, length};
    } else {
      ct = CovText{false, text_used, length};
      text_used += length;
    }
  }

  std::int32_t written = 0;
  std::int32_t previous = 0;
  for (std::int32_t i = 1; i <= n; ++i) {
    const std::int32_t pos = ranges_[static_cast<std::size_t>(i - 1)].pos;
    for (std::int32_t c = previous + 1; c <= pos; ++c) {
      p = write_column(c, p);
      ++written;
    }
    previous = pos;
    if (m <= 1) {
      p = write_covariates(i, true, p);
    } else if (written >= m) {
      return write_covariates(i, true, p);
    } else {
      p = write_covariates(i, false, p);
    }
  }
  if (m > 1 && written < m) {
    for (std::int32_t c = last_pos_ + 1; c <= m - 1; ++c) p = write_column(c, p);
    p = write_column(m, p);
    *p++ = '\n';
  }
  return p;
}

std::int64_t RegcovRecords::run(std::istream& in, std::ostream& out) {
  LineReader reader(in, record_length + 1);
  constexpr std::size_t flush_at = std::size_t{1} << 16;
  std::vector<char> block(flush_at + bound_);
  char* const start = block.data();
  char* p = start;
  auto flush = [&] {
    out.write(start, static_cast<std::streamsize>(p - start));
    p = start;
  };
  std::string_view line;
  try {
    while (reader.next(line)) {
      p = record_into(line, p);
      if (static_cast<std::size_t>(p - start) >= flush_at) flush();
    }
  } catch (...) {
    flush();
    out.flush();
    throw;
  }
  flush();
  out.flush();
  return records_;
}

// ---- Dialogue and program -------------------------------------------------------------------

std::vector<std::int32_t> regcov_positions(std::string_view line) {
  std::vector<float> x(split_capacity);
  FixedTexts xc(max_positions, 1);
  std::int32_t m = 0;
  nums2(line, m, std::span<float>(x), xc);
  std::vector<std::int32_t> pos(static_cast<std::size_t>(m));
  for (std::int32_t i = 0; i < m; ++i) pos[static_cast<std::size_t>(i)] = truncate_i4(x[static_cast<std::size_t>(i)]);
  return pos;
}

namespace {

// One whole answer line, cut at `length` characters.
std::string answer_line(std::istream& answers, std::size_t length) {
  std::string s;
  if (!std::getline(answers, s)) stop(free_format("*** error : end of input while reading the answers"));
  if (!s.empty() && s.back() == '\r') s.pop_back();
  if (s.size() > length) s.resize(length);
  return s;
}

std::string file_name(std::string s) {
  std::size_t end = s.find_last_not_of(' ');
  s.resize(end == std::string::npos ? 0 : end + 1);
  return s;
}

}  // namespace

void regcov(std::istream& answers) {
  print_free("Regcov ver. 2.6");
  print_free("Name of input file");
  const std::string input_name = file_name(answer_line(answers, name_length));
  print_free("Name of output file");
  const std::string output_name = file_name(answer_line(answers, name_length));
  print_free("Position for regression");
  const std::string line = answer_line(answers, record_length);
  std::vector<std::int32_t> pos = regcov_positions(line);
  for (std::int32_t p : pos)
    if (p < 1) stop(free_format("*** error : position below 1 in the position line"));

  // The input file is used as it is, or created empty; the output file is written anew.
  namespace fs = std::filesystem;
  std::error_code ec;
  if (!fs::exists(input_name, ec)) std::ofstream{input_name};
  std::ifstream in(input_name, std::ios::binary);
  if (!in) stop(free_format("*** error : cannot open file " + input_name));
  if (fs::exists(output_name, ec) && fs::equivalent(input_name, output_name, ec))
    stop(free_format("*** error : input and output are the same file: " + output_name));
  std::ofstream out(output_name, std::ios::binary | std::ios::trunc);
  if (!out) stop(free_format("*** error : cannot open file " + output_name));

  std::vector<RegcovRange> ranges(pos.size());
  for (std::size_t i = 0; i < pos.size(); ++i) {
    const std::int32_t number = static_cast<std::int32_t>(i + 1);
    print_free(number, " th range: min & max;  # polynomials");
    RegcovRange& r = ranges[i];
    r.pos = pos[i];
    ReadStatus status = read_free(answers, r.range_min, r.range_max, r.npoly);
    if (status == ReadStatus::end_of_file)
      stop(free_format("*** error : end of input while reading the answers"));
    if (status != ReadStatus::ok)
      stop(free_format("*** error : the answer for range", number,
                       "must be three integers: min, max, # polynomials"));
  }

  RegcovRecords loop(std::move(ranges));
  const std::int64_t records = loop.run(in, out);
  out.close();
  print_free("# records =", records);
}

}  // namespace mmekit
