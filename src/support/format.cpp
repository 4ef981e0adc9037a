// Interpreter of Fortran-style format texts.
//
// A format text is parsed once into a flat program of operations; groups are an "open" and a
// "close" operation that point at each other. Executing a write walks the program with a small
// stack of group repetitions, writing into one output string. The current record is the part of
// that string after the last newline; a column position within it lets T, TL, TR and X move
// back and forth (a later field overwrites what is there, or is padded up to its column).
//
// Numbers are written without streams: std::to_chars with a precision gives the digits of the
// exact binary value rounded to nearest, ties to even.

#include "mmekit/support/format.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>

#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

enum class Kind : std::uint8_t {
  open,    // r: repeat count, a: index of the matching close
  close,   // a: index of the matching open
  literal, // a: offset in the literal pool, b: length
  I, F, E, ES, G, A, L,  // data descriptors; r: repeat count
  X, T, TL, TR,          // r: the count or column
  slash,                 // r: repeat count
  colon,
};

bool is_data(Kind k) { return k >= Kind::I && k <= Kind::L; }

struct Op {
  Kind kind;
  bool has_w = false, has_d = false, has_e = false;
  std::int32_t r = 1;
  std::int32_t w = 0, d = 0, e = 0;
  std::uint32_t a = 0, b = 0;
};

constexpr int max_depth = 32;
constexpr std::int32_t max_number = 100000;  // largest count, width or digit number accepted

}  // namespace

struct Format::Program {
  std::string text;  // the format as given, for messages
  std::vector<Op> ops;
  std::string literals;
  std::uint32_t reversion = 0;  // where the format starts again when items remain
  bool has_data = false;
  bool reversion_has_data = false;
};

namespace {

[[noreturn]] void bad_format(std::string_view text, std::string_view why) {
  stop(std::string(" invalid format ") + std::string(text) + ": " + std::string(why));
}

class Parser {
 public:
  Parser(Format::Program& p) : p_(p) {}

  void run() {
    const std::string& t = p_.text;
    // A compact copy: blanks outside literals removed, letters lowered outside literals.
    char quote = 0;
    for (char c : t) {
      if (quote) {
        s_.push_back(c);
        if (c == quote) quote = 0;  // a doubled quote re-enters at once
      } else if (c == '\'' || c == '"') {
        quote = c;
        s_.push_back(c);
      } else if (c != ' ' && c != '\t') {
        s_.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
      }
    }
    if (quote) fail("a literal is not closed");
    if (s_.empty() || s_.front() != '(') fail("it does not start with '('");
    i_ = 1;
    list(0);
    if (i_ != s_.size()) fail("text after the closing ')'");
    p_.reversion = last_top_group_;
    for (std::size_t k = 0; k < p_.ops.size(); ++k) {
      if (is_data(p_.ops[k].kind)) {
        p_.has_data = true;
        if (k >= p_.reversion) p_.reversion_has_data = true;
      }
    }
  }

 private:
  [[noreturn]] void fail(std::string_view why) { bad_format(p_.text, why); }

  bool more() const { return i_ < s_.size(); }
  char peek() const { return more() ? s_[i_] : '\0'; }
  static bool digit(char c) { return c >= '0' && c <= '9'; }

  std::int32_t number() {
    std::int64_t v = 0;
    while (more() && digit(s_[i_])) {
      v = v * 10 + (s_[i_] - '0');
      if (v > max_number) fail("a number is too large");
      ++i_;
    }
    return static_cast<std::int32_t>(v);
  }

  // Required number after a descriptor letter.
  std::int32_t need_number(const char* what) {
    if (!digit(peek())) fail(std::string("a number is missing after ") + what);
    return number();
  }

  // The list up to and including the closing ')'.
  void list(int depth) {
    if (depth >= max_depth) fail("groups nested too deeply");
    while (true) {
      if (!more()) fail("a ')' is missing");
      char c = s_[i_];
      if (c == ')') {
        ++i_;
        return;
      }
      if (c == ',') {
        ++i_;
        continue;
      }
      bool has_r = digit(c);
      std::int32_t r = has_r ? number() : 1;
      if (has_r && r == 0) fail("a repeat count of zero");
      if (!more()) fail("a ')' is missing");
      c = s_[i_++];
      Op op;
      op.r = r;
      switch (c) {
        case '(': {
          op.kind = Kind::open;
          std::size_t open = p_.ops.size();
          if (depth == 0) last_top_group_ = static_cast<std::uint32_t>(open);
          p_.ops.push_back(op);
          list(depth + 1);
          Op close;
          close.kind = Kind::close;
          close.a = static_cast<std::uint32_t>(open);
          p_.ops[open].a = static_cast<std::uint32_t>(p_.ops.size());
          p_.ops.push_back(close);
          continue;
        }
        case '\'':
        case '"': {
          if (has_r) fail("a repeat count before a literal");
          op.kind = Kind::literal;
          op.a = static_cast<std::uint32_t>(p_.literals.size());
          while (true) {
            if (!more()) fail("a literal is not closed");
            char q = s_[i_++];
            if (q == c) {
              if (peek() == c) {
                p_.literals.push_back(c);
                ++i_;
                continue;
              }
              break;
            }
            p_.literals.push_back(q);
          }
          op.b = static_cast<std::uint32_t>(p_.literals.size() - op.a);
          break;
        }
        case '/':
          op.kind = Kind::slash;
          break;
        case ':':
          if (has_r) fail("a repeat count before ':'");
          op.kind = Kind::colon;
          break;
        case 'x':
          op.kind = Kind::X;
          break;
        case 't':
          if (has_r) fail("a count before T");
          if (peek() == 'l') {
            ++i_;
            op.kind = Kind::TL;
            op.r = need_number("TL");
          } else if (peek() == 'r') {
            ++i_;
            op.kind = Kind::TR;
            op.r = need_number("TR");
          } else {
            op.kind = Kind::T;
            op.r = need_number("T");
            if (op.r < 1) fail("T0 is not a column");
          }
          break;
        case 'i':
          op.kind = Kind::I;
          op.w = need_number("I");
          op.has_w = true;
          if (peek() == '.') {
            ++i_;
            op.d = need_number("I.");
            op.has_d = true;
          }
          break;
        case 'f':
          op.kind = Kind::F;
          op.w = need_number("F");
          op.has_w = true;
          if (peek() != '.') fail("F needs a number of decimals");
          ++i_;
          op.d = need_number("F.");
          op.has_d = true;
          break;
        case 'e':
        case 'g': {
          if (c == 'e') {
            op.kind = Kind::E;
            if (peek() == 's') {
              ++i_;
              op.kind = Kind::ES;
            }
          } else {
            op.kind = Kind::G;
          }
          if (op.kind == Kind::G && !digit(peek())) {
            op.w = 0;  // G alone: least width
          } else {
            op.w = need_number(op.kind == Kind::G ? "G" : op.kind == Kind::E ? "E" : "ES");
            op.has_w = true;
          }
          if (peek() == '.') {
            ++i_;
            op.d = need_number("the point");
            op.has_d = true;
            if (peek() == 'e' && i_ + 1 < s_.size() && digit(s_[i_ + 1])) {
              ++i_;
              op.e = number();
              if (op.e == 0) fail("an exponent width of zero");
              op.has_e = true;
            }
          } else if (op.kind != Kind::G) {
            fail("E and ES need a number of digits");
          }
          if (op.kind == Kind::E && op.d == 0) fail("E needs at least one digit");
          break;
        }
        case 'a':
          op.kind = Kind::A;
          if (digit(peek())) {
            op.w = number();
            op.has_w = true;
            if (op.w == 0) fail("A0 is not a width");
          }
          break;
        case 'l':
          op.kind = Kind::L;
          op.w = 1;
          if (digit(peek())) {
            op.w = number();
            op.has_w = true;
            if (op.w == 0) fail("L0 is not a width");
          }
          break;
        default:
          fail(std::string("unknown edit descriptor '") + c + "'");
      }
      p_.ops.push_back(op);
    }
  }

  Format::Program& p_;
  std::string s_;
  std::size_t i_ = 0;
  std::uint32_t last_top_group_ = 0;
};

// ---------------------------------------------------------------------------------------------
// The output of one write.

class Writer {
 public:
  Writer(const Format::Program& p, std::string& out) : p_(p), out_(out) { rec_start_ = out_.size(); }

  std::size_t record_length() const { return out_.size() - rec_start_; }

  void put(const char* s, std::size_t n) {
    std::size_t len = record_length();
    if (pos_ == len) {
      out_.append(s, n);
    } else if (pos_ > len) {
      out_.append(pos_ - len, ' ');
      out_.append(s, n);
    } else {
      std::size_t over = std::min(n, len - pos_);
      if (over > 0) std::memcpy(&out_[rec_start_ + pos_], s, over);  // s may be null when n is 0
      out_.append(s + over, n - over);
    }
    pos_ += n;
  }
  void put(std::string_view s) { put(s.data(), s.size()); }

  void fill(char c, std::size_t n) {
    if (n == 0) return;
    std::size_t len = record_length();
    if (pos_ >= len) {
      out_.append(pos_ - len + n, ' ');
      if (c != ' ') std::memset(&out_[rec_start_ + pos_], c, n);
    } else {
      std::size_t over = std::min(n, len - pos_);
      std::memset(&out_[rec_start_ + pos_], c, over);
      out_.append(n - over, c);
    }
    pos_ += n;
  }

  // A field of width w (0: the text's own width), text right-justified.
  void field(std::int32_t w, const char* s, std::size_t n) {
    if (w == 0) {
      put(s, n);
    } else if (n > static_cast<std::size_t>(w)) {
      fill('*', static_cast<std::size_t>(w));
    } else {
      fill(' ', static_cast<std::size_t>(w) - n);
      put(s, n);
    }
  }

  void end_record() {
    out_.push_back('\n');
    rec_start_ = out_.size();
    pos_ = 0;
  }

  void tab_to(std::size_t col) { pos_ = col; }
  void tab_left(std::size_t n) { pos_ = n > pos_ ? 0 : pos_ - n; }
  void tab_right(std::size_t n) { pos_ += n; }

  [[noreturn]] void mismatch(std::size_t item, const FormatItem& v, const Op& op) const;

 private:
  const Format::Program& p_;
  std::string& out_;
  std::size_t rec_start_ = 0;
  std::size_t pos_ = 0;
};

const char* item_kind_name(const FormatItem& v) {
  switch (v.index()) {
    case 0: return "an integer";
    case 1:
    case 2: return "a real";
    case 3: return "a text";
    default: return "a logical";
  }
}

const char* descriptor_name(Kind k) {
  switch (k) {
    case Kind::I: return "I";
    case Kind::F: return "F";
    case Kind::E: return "E";
    case Kind::ES: return "ES";
    case Kind::G: return "G";
    case Kind::A: return "A";
    default: return "L";
  }
}

void Writer::mismatch(std::size_t item, const FormatItem& v, const Op& op) const {
  stop(std::string(" format ") + p_.text + ": item " + std::to_string(item + 1) + " is " +
       item_kind_name(v) + ", which " + descriptor_name(op.kind) + " cannot write");
}

// A scratch buffer for digit strings, on the stack unless a huge precision asks for more.
class Scratch {
 public:
  explicit Scratch(std::size_t need) {
    if (need > sizeof(small_)) {
      big_ = std::make_unique<char[]>(need);
      p_ = big_.get();
    } else {
      p_ = small_;
    }
  }
  char* data() { return p_; }

 private:
  char small_[512];
  std::unique_ptr<char[]> big_;
  char* p_;
};

// NaN and the infinities, in width w (0: least width).
void write_nonfinite(Writer& wr, double v, std::int32_t w) {
  if (std::isnan(v)) {
    wr.field(w, "NaN", 3);
    return;
  }
  bool neg = std::signbit(v);
  std::string_view full = neg ? "-Infinity" : "Infinity";
  std::string_view shrt = neg ? "-Inf" : "Inf";
  if (w == 0 || full.size() <= static_cast<std::size_t>(w)) {
    wr.field(w, full.data(), full.size());
  } else {
    wr.field(w, shrt.data(), shrt.size());  // asterisks when even that does not fit
  }
}

// Fw.d. With w = 0 a lone zero before the point is left out unless keep_zero; with w > 0 it
// is written when there is room for it.
void write_f(Writer& wr, double v, std::int32_t w, std::int32_t d, bool keep_zero) {
  if (!std::isfinite(v)) {
    write_nonfinite(wr, v, w);
    return;
  }
  Scratch buf(static_cast<std::size_t>(d) + 330);
  char* b = buf.data();
  char* p = b + 1;
  auto res = std::to_chars(p, b + d + 330, std::fabs(v), std::chars_format::fixed, d);
  char* end = res.ptr;
  if (d == 0) *end++ = '.';
  if (d > 0 && p[0] == '0' && p[1] == '.') {
    std::size_t full = static_cast<std::size_t>(end - p) + (std::signbit(v) ? 1 : 0);
    bool drop = w == 0 ? !keep_zero : full > static_cast<std::size_t>(w);
    if (drop) ++p;
  }
  if (std::signbit(v)) *--p = '-';
  wr.field(w, p, static_cast<std::size_t>(end - p));
}

// Reads the exponent after the 'e' of to_chars' scientific output.
int exponent_of(const char* e, const char* end) {
  int sign = 1;
  ++e;  // 'e'
  if (*e == '-') sign = -1;
  ++e;
  int x = 0;
  while (e < end) x = x * 10 + (*e++ - '0');
  return sign * x;
}

// Ew.d[Ee] (0.ddddE+xx) and ESw.d[Ee] (d.dddE+xx). With w = 0 the field has its least width
// but keeps the zero before the point.
void write_e(Writer& wr, double v, std::int32_t w, std::int32_t d, std::int32_t e, bool has_e,
             bool scientific) {
  if (!std::isfinite(v)) {
    write_nonfinite(wr, v, w);
    return;
  }
  double a = std::fabs(v);
  Scratch tmp(static_cast<std::size_t>(d) + 40);
  char* t = tmp.data();
  int prec = scientific ? d : d - 1;
  auto res = std::to_chars(t, t + d + 40, a, std::chars_format::scientific, prec);
  char* epos = std::find(t, res.ptr, 'e');
  int x = exponent_of(epos, res.ptr);

  Scratch buf(static_cast<std::size_t>(d) + 40);
  char* b = buf.data();
  char* p = b;
  if (std::signbit(v)) *p++ = '-';
  char* zero_at = nullptr;
  int expo;
  if (scientific) {
    std::memcpy(p, t, static_cast<std::size_t>(epos - t));
    p += epos - t;
    if (d == 0) *p++ = '.';
    expo = x;
  } else {
    zero_at = p;
    *p++ = '0';
    *p++ = '.';
    *p++ = t[0];
    if (d > 1) {
      std::memcpy(p, t + 2, static_cast<std::size_t>(d - 1));
      p += d - 1;
    }
    expo = a == 0 ? 0 : x + 1;
  }
  int mag = expo < 0 ? -expo : expo;
  char esign = expo < 0 ? '-' : '+';
  if (has_e) {
    char digits[12];
    auto r = std::to_chars(digits, digits + sizeof digits, mag);
    int nd = static_cast<int>(r.ptr - digits);
    if (nd > e) {
      wr.fill('*', static_cast<std::size_t>(w == 0 ? e + 2 + (p - b) : w));
      return;
    }
    *p++ = 'E';
    *p++ = esign;
    for (int k = nd; k < e; ++k) *p++ = '0';
    std::memcpy(p, digits, static_cast<std::size_t>(nd));
    p += nd;
  } else if (mag <= 99) {
    *p++ = 'E';
    *p++ = esign;
    *p++ = static_cast<char>('0' + mag / 10);
    *p++ = static_cast<char>('0' + mag % 10);
  } else {
    *p++ = esign;
    *p++ = static_cast<char>('0' + mag / 100);
    *p++ = static_cast<char>('0' + mag / 10 % 10);
    *p++ = static_cast<char>('0' + mag % 10);
  }
  std::size_t n = static_cast<std::size_t>(p - b);
  if (w > 0 && zero_at && n > static_cast<std::size_t>(w)) {
    // Leave out the optional zero before the point.
    std::memmove(zero_at, zero_at + 1, static_cast<std::size_t>(p - zero_at - 1));
    --n;
  }
  wr.field(w, b, n);
}

// Gw.d[Ee] for a real: the F form with trailing blanks when the value rounded to d digits
// lies in [0.1, 10**d), or is zero; else the E form. G0.d writes the chosen form in its least
// width, without the trailing blanks.
void write_g(Writer& wr, double v, std::int32_t w, std::int32_t d, std::int32_t e, bool has_e) {
  if (!std::isfinite(v)) {
    write_nonfinite(wr, v, w);
    return;
  }
  if (d == 0) d = 1;
  const double a = std::fabs(v);
  const bool neg = std::signbit(v);
  // The d significant digits, rounded once; the F form writes the same digits, since it
  // rounds at the same decimal place.
  Scratch buf(static_cast<std::size_t>(2 * d) + 48);
  char* t = buf.data();
  char* digits = t + d + 24;  // the F text is built here: sign, digits and point
  int x = 0;                  // decimal exponent of the first digit
  if (a == 0) {
    std::memset(t, '0', static_cast<std::size_t>(d));
  } else {
    auto res = std::to_chars(t, t + d + 24, a, std::chars_format::scientific, d - 1);
    const char* epos = std::find(t, res.ptr, 'e');
    x = exponent_of(epos, res.ptr);
    if (x < -1 || x > d - 1) {
      write_e(wr, v, w, d, e, has_e, false);
      return;
    }
    if (d > 1) std::memmove(t + 1, t + 2, static_cast<std::size_t>(d - 1));  // drop the point
  }
  // F text: x+1 digits before the point (a zero when x = -1), the rest after it.
  char* p = digits + 1;
  char* q = p;
  bool optional_zero = x < 0;
  if (optional_zero) {
    *q++ = '0';
    *q++ = '.';
    std::memcpy(q, t, static_cast<std::size_t>(d));
    q += d;
  } else {
    std::memcpy(q, t, static_cast<std::size_t>(x + 1));
    q += x + 1;
    *q++ = '.';
    std::memcpy(q, t + x + 1, static_cast<std::size_t>(d - 1 - x));
    q += d - 1 - x;
  }
  if (a == 0 && d > 1) {
    optional_zero = true;  // 0.000: d - 1 decimals
    q = p + 2 + (d - 1);
  } else if (a == 0) {
    q = p + 2;  // "0."
  }
  if (w == 0) {
    if (neg) *--p = '-';
    wr.put(p, static_cast<std::size_t>(q - p));
    return;
  }
  std::int32_t n = has_e ? e + 2 : 4;
  if (w <= n) {
    wr.fill('*', static_cast<std::size_t>(w));
    return;
  }
  // The F part, then n blanks; a part that does not fit makes the whole field asterisks.
  std::size_t fw = static_cast<std::size_t>(w - n);
  if (optional_zero && static_cast<std::size_t>(q - p) + (neg ? 1 : 0) > fw) ++p;
  if (neg) *--p = '-';
  std::size_t len = static_cast<std::size_t>(q - p);
  if (len > fw) {
    wr.fill('*', static_cast<std::size_t>(w));
    return;
  }
  wr.fill(' ', fw - len);
  wr.put(p, len);
  wr.fill(' ', static_cast<std::size_t>(n));
}

// Iw.m.
void write_i(Writer& wr, std::int64_t v, std::int32_t w, std::int32_t m) {
  char buf[32];
  char* p = buf;
  std::uint64_t u = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  if (v < 0) *p++ = '-';
  char digits[24];
  char* dend = digits;
  if (!(u == 0 && m == 0)) dend = std::to_chars(digits, digits + sizeof digits, u).ptr;
  std::int64_t nd = dend - digits;
  std::size_t total = static_cast<std::size_t>(p - buf) + static_cast<std::size_t>(std::max<std::int64_t>(nd, m));
  if (w > 0 && total > static_cast<std::size_t>(w)) {
    wr.fill('*', static_cast<std::size_t>(w));
    return;
  }
  if (w == 0 && total == 0) {
    wr.fill(' ', 1);  // I0.0 of zero: one blank
    return;
  }
  if (w > 0) wr.fill(' ', static_cast<std::size_t>(w) - total);
  if (p != buf) wr.put(buf, 1);
  if (m > nd) wr.fill('0', static_cast<std::size_t>(m - nd));
  wr.put(digits, static_cast<std::size_t>(nd));
}

// A[w] on a text: the whole text, or right-justified in w / its first w characters.
void write_a(Writer& wr, std::string_view s, const Op& op) {
  if (!op.has_w) {
    wr.put(s);
  } else if (s.size() >= static_cast<std::size_t>(op.w)) {
    wr.put(s.data(), static_cast<std::size_t>(op.w));
  } else {
    wr.fill(' ', static_cast<std::size_t>(op.w) - s.size());
    wr.put(s);
  }
}

void write_l(Writer& wr, bool v, std::int32_t w) {
  wr.fill(' ', static_cast<std::size_t>(w - 1));
  wr.put(v ? "T" : "F", 1);
}

void write_item(Writer& wr, const Op& op, const FormatItem& item, std::size_t index) {
  const std::size_t type = item.index();
  double real = 0;
  bool is_float = false;
  if (type == 1) {
    real = std::get<1>(item);
    is_float = true;
  } else if (type == 2) {
    real = std::get<2>(item);
  }
  switch (op.kind) {
    case Kind::I:
      if (type != 0) wr.mismatch(index, item, op);
      write_i(wr, std::get<0>(item), op.w, op.has_d ? op.d : 1);
      return;
    case Kind::F:
      if (type != 1 && type != 2) wr.mismatch(index, item, op);
      write_f(wr, real, op.w, op.d, false);
      return;
    case Kind::E:
    case Kind::ES:
      if (type != 1 && type != 2) wr.mismatch(index, item, op);
      write_e(wr, real, op.w, op.d, op.e, op.has_e, op.kind == Kind::ES);
      return;
    case Kind::G:
      switch (type) {
        case 0:
          write_i(wr, std::get<0>(item), op.w, 1);
          return;
        case 3: {
          Op a = op;
          a.has_w = op.w > 0;
          write_a(wr, std::get<3>(item), a);
          return;
        }
        case 4:
          write_l(wr, std::get<4>(item), op.w == 0 ? 1 : op.w);
          return;
        default:
          write_g(wr, real, op.w, op.has_d ? op.d : (is_float ? 9 : 17), op.e, op.has_e);
          return;
      }
    case Kind::A:
      if (type != 3) wr.mismatch(index, item, op);
      write_a(wr, std::get<3>(item), op);
      return;
    case Kind::L:
      if (type != 4) wr.mismatch(index, item, op);
      write_l(wr, std::get<4>(item), op.w);
      return;
    default:
      return;
  }
}

void execute(const Format::Program& p, const FormatList& list, std::string& out, bool advance) {
  const auto& items = list.items();
  const std::size_t nitems = items.size();
  if (nitems > 0 && !p.has_data)
    stop(std::string(" format ") + p.text + ": items to write but no edit descriptor for them");
  Writer wr(p, out);
  struct Level {
    std::uint32_t open;
    std::int32_t left;
  };
  std::array<Level, max_depth + 1> stack;
  int depth = 0;
  std::size_t item = 0;
  std::size_t pc = 0;
  const std::size_t end = p.ops.size();
  while (true) {
    if (pc == end) {
      if (item == nitems) break;
      if (!p.reversion_has_data)
        stop(std::string(" format ") + p.text + ": items remain but the format has no edit descriptor to repeat");
      wr.end_record();
      pc = p.reversion;
      depth = 0;
      continue;
    }
    const Op& op = p.ops[pc];
    switch (op.kind) {
      case Kind::open:
        stack[static_cast<std::size_t>(depth++)] = {static_cast<std::uint32_t>(pc), op.r};
        ++pc;
        break;
      case Kind::close: {
        Level& top = stack[static_cast<std::size_t>(depth - 1)];
        if (--top.left > 0) {
          pc = top.open + 1;
        } else {
          --depth;
          ++pc;
        }
        break;
      }
      case Kind::literal:
        wr.put(p.literals.data() + op.a, op.b);
        ++pc;
        break;
      case Kind::X:
      case Kind::TR:
        wr.tab_right(static_cast<std::size_t>(op.r));
        ++pc;
        break;
      case Kind::TL:
        wr.tab_left(static_cast<std::size_t>(op.r));
        ++pc;
        break;
      case Kind::T:
        wr.tab_to(static_cast<std::size_t>(op.r - 1));
        ++pc;
        break;
      case Kind::slash:
        for (std::int32_t k = 0; k < op.r; ++k) wr.end_record();
        ++pc;
        break;
      case Kind::colon:
        if (item == nitems) goto done;
        ++pc;
        break;
      default:  // a data descriptor
        for (std::int32_t k = 0; k < op.r; ++k) {
          if (item == nitems) goto done;
          write_item(wr, op, items[item], item);
          ++item;
        }
        ++pc;
        break;
    }
  }
done:
  if (advance) wr.end_record();
}

}  // namespace

Format::Format(std::string_view text) : program_(new Program) {
  std::unique_ptr<Program> guard(program_);
  program_->text.assign(text);
  Parser(*program_).run();
  guard.release();
}

Format::~Format() { delete program_; }
Format::Format(const Format& o) : program_(new Program(*o.program_)) {}
Format& Format::operator=(const Format& o) {
  if (this == &o) return *this;
  if (program_) {
    *program_ = *o.program_;
  } else {
    program_ = new Program(*o.program_);
  }
  return *this;
}
Format::Format(Format&& o) noexcept : program_(o.program_) { o.program_ = nullptr; }
Format& Format::operator=(Format&& o) noexcept {
  std::swap(program_, o.program_);
  return *this;
}

std::string Format::write(const FormatList& items) const {
  std::string out;
  out.reserve(64);
  execute(*program_, items, out, true);
  return out;
}

std::string Format::write_partial(const FormatList& items) const {
  std::string out;
  execute(*program_, items, out, false);
  return out;
}

}  // namespace mmekit
