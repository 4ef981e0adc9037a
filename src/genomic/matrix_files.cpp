// Writing and reading the matrix files of the genomic library.

#include "mmekit/genomic/matrix_files.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <vector>

#include "mmekit/genomic/state.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/support/units.hpp"

namespace mmekit {

using namespace matrix_files_detail;

void matrix_files_detail::outside(std::int32_t i, std::int32_t j, std::int32_t n) {
  stop(free_format(" sparse_hashm: element", i, j, "outside the matrix of order", n));
}

void matrix_files_detail::set_sym(sparse_hashm& a, std::int32_t i, std::int32_t j, double v) {
  if (a.storage == 'f') {
    addm_sparse_hashm(v - getm_sparse_hashm(i, j, a), i, j, a);
    if (i != j) addm_sparse_hashm(v - getm_sparse_hashm(j, i, a), j, i, a);
    return;
  }
  if (j < i) std::swap(i, j);
  addm_sparse_hashm(v - getm_sparse_hashm(i, j, a), i, j, a);
}

template <>
std::string_view storage_kind_name<densem>() { return "densem"; }
template <>
std::string_view storage_kind_name<dense_symm>() { return "dense_symm"; }
template <>
std::string_view storage_kind_name<sparse_hashm>() { return "sparse_hashm"; }

namespace {

constexpr std::size_t text_chunk = std::size_t{1} << 20;

std::string checked_name(const std::string& name) {
  std::string s = name;
  while (!s.empty() && s.back() == ' ') s.pop_back();
  if (s.empty()) stop("Error in open: no file name given");
  if (s.size() > matrix_file_name_max)
    stop(free_format("Error in open: file name longer than", static_cast<std::int64_t>(matrix_file_name_max),
                     "characters:", s));
  return s;
}

// One matrix file for the length of a routine; closed on every way out, a stop included.
// Text goes through unit 456. A binary file is written and read by the framed-record writer
// and reader themselves, each with its own large buffer: the unit table's record path costs
// several times more than the 16 to 24 bytes of an element.
class MatrixUnit {
 public:
  MatrixUnit(const std::string& name, bool binary, bool reading) : name_(name), binary_(binary) {
    bool ok = false;
    if (binary) {
      ok = reading ? reader_.open(name_) : writer_.open(name_);
    } else {
      units.close(matrix_file_unit);
      ok = units.open(matrix_file_unit, name_, true, reading ? "old" : "replace");
      if (ok) text_ = units.text(matrix_file_unit);
    }
    if (!ok) {
      if (reading) stop("Error in open \"" + name_ + "\" file not exist");
      stop("Error in open \"" + name_ + "\" file can not be created");
    }
  }
  ~MatrixUnit() {
    if (!binary_) units.close(matrix_file_unit);
  }
  MatrixUnit(const MatrixUnit&) = delete;
  MatrixUnit& operator=(const MatrixUnit&) = delete;

  // Writing text: lines are gathered in a large buffer.
  std::string& buffer() { return buf_; }
  void maybe_flush() {
    if (buf_.size() >= text_chunk) flush_text();
  }
  // Writing binary: one record (a failed write stops in the writer).
  template <std::size_t N>
  void record(const std::array<unsigned char, N>& r) {
    writer_.write_bytes(r.data(), N);
  }
  // Ends the writing; a failure to write stops the run.
  void finish() {
    if (binary_) {
      writer_.close();
      return;
    }
    flush_text();
    if (!units.close(matrix_file_unit)) fail();
  }

  // Reading text: the next line (without its end), false at the end of the file.
  bool line(std::string_view& l) {
    for (;;) {
      const std::size_t nl = buf_.find('\n', pos_);
      if (nl != std::string::npos) {
        l = std::string_view(buf_).substr(pos_, nl - pos_);
        pos_ = nl + 1;
        return true;
      }
      if (eof_) {
        if (pos_ >= buf_.size()) return false;
        l = std::string_view(buf_).substr(pos_);
        pos_ = buf_.size();
        return true;
      }
      buf_.erase(0, pos_);
      pos_ = 0;
      const std::size_t had = buf_.size();
      buf_.resize(had + text_chunk);
      text_->read(buf_.data() + had, static_cast<std::streamsize>(text_chunk));
      buf_.resize(had + static_cast<std::size_t>(text_->gcount()));
      if (!*text_) eof_ = true;
    }
  }
  // Reading binary: the next record; false at its end or at a record that is not framed.
  bool record(std::vector<unsigned char>& r, bool& bad) {
    const FramedStatus s = reader_.read_bytes(r);
    bad = s != FramedStatus::ok && s != FramedStatus::end_of_file;
    return s == FramedStatus::ok;
  }
  void rewind() {
    if (binary_) {
      reader_.rewind();
      return;
    }
    units.rewind(matrix_file_unit);
    text_->clear();
    buf_.clear();
    pos_ = 0;
    eof_ = false;
  }

 private:
  void flush_text() {
    text_->write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
    buf_.clear();
    if (!*text_) fail();
  }
  [[noreturn]] void fail() { stop(" cannot write file " + name_); }

  std::string name_;
  bool binary_;
  FramedWriter writer_;
  FramedReader reader_;
  std::fstream* text_ = nullptr;
  std::string buf_;
  std::size_t pos_ = 0;
  bool eof_ = false;
};

// ---- Number editing, the same digits as the format writer gives, without its generality.

// An Fw.d field (w = 0: the least width).
void put_fixed(std::string& out, double v, int w, int d) {
  if (!std::isfinite(v)) {
    const std::string f = "(f" + std::to_string(w) + "." + std::to_string(d) + ")";
    std::string s = fformat(f, v);
    s.pop_back();
    out += s;
    return;
  }
  char buf[400];
  const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, d);
  std::string_view s(buf, static_cast<std::size_t>(r.ptr - buf));
  const bool neg = s.front() == '-';
  const std::string_view digits = neg ? s.substr(1) : s;
  const bool lead_zero = digits.size() > 1 && digits[0] == '0' && digits[1] == '.';
  std::size_t len = s.size();
  bool drop_zero = false;
  if (lead_zero && (w == 0 || len > static_cast<std::size_t>(w))) {
    drop_zero = true;
    --len;
  }
  if (w > 0 && len > static_cast<std::size_t>(w)) {
    out.append(static_cast<std::size_t>(w), '*');
    return;
  }
  if (w > 0) out.append(static_cast<std::size_t>(w) - len, ' ');
  if (neg) out += '-';
  out += drop_zero ? digits.substr(1) : digits;
}

void put_int(std::string& out, std::int64_t v, int w) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  const auto len = static_cast<std::size_t>(r.ptr - buf);
  if (w > 0 && len > static_cast<std::size_t>(w)) {
    out.append(static_cast<std::size_t>(w), '*');
    return;
  }
  if (w > 0) out.append(static_cast<std::size_t>(w) - len, ' ');
  out.append(buf, len);
}

// "(2(i0,x),f0.12)"
void put_i_j_val(std::string& out, std::int64_t i, std::int64_t j, double v) {
  put_int(out, i, 0);
  out += ' ';
  put_int(out, j, 0);
  out += ' ';
  put_fixed(out, v, 0, 12);
  out += '\n';
}

template <std::size_t N>
void put_bytes(std::array<unsigned char, N>& r, std::size_t at, const void* p, std::size_t bytes) {
  std::memcpy(r.data() + at, p, bytes);
}

// ---- Elements of a kind as a position form holds them.

template <class F>
void for_each_position(const densem& X, F&& f) {
  const std::int64_t n = X.order();
  for (std::int64_t j = 1; j <= n; ++j) {
    const double* c = &X(1, j);
    for (std::int64_t i = j; i <= n; ++i) f(i, j, c[i - 1]);
  }
}
template <class F>
void for_each_position(const dense_symm& X, F&& f) {
  const std::int64_t n = X.order();
  const double* p = X.data();
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j) f(i, j, *p++);
}
template <class F>
void for_each_position(const sparse_hashm& X, F&& f) {
  for_each_slot(X, [&](std::int32_t i, std::int32_t j, double v) {
    if (i <= j && v != 0.0) f(i, j, v);
  });
}

// Every element (i, j) of the symmetric matrix, both triangles (a full matrix by columns, a
// packed one by rows); the hash kind only the non-zero ones, in both orientations.
template <class F>
void for_each_pair(const densem& X, F&& f) {
  const std::int64_t n = X.order();
  for (std::int64_t j = 1; j <= n; ++j) {
    const double* c = &X(1, j);
    for (std::int64_t i = 1; i <= n; ++i) f(i, j, c[i - 1]);
  }
}
template <class F>
void for_each_pair(const dense_symm& X, F&& f) {
  const std::int64_t n = X.order();
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) f(i, j, X(i, j));
}
template <class F>
void for_each_pair(const sparse_hashm& X, F&& f) {
  for_each_slot(X, [&](std::int32_t i, std::int32_t j, double v) {
    if (v == 0.0) return;
    if (X.storage == 'f') {
      f(i, j, v);
    } else {
      f(i, j, v);
      if (i != j) f(j, i, v);
    }
  });
}

void check_genid(const Array1<std::int32_t>& genId, std::int64_t n, std::string_view who) {
  if (genId.size() != n)
    stop(free_format(std::string(who) + ": genId and matrix of different order", genId.size(), n));
}

// Row i of the symmetric matrix, into r (size n).
void row_of(const densem& X, std::int64_t i, std::vector<double>& r) {
  for (std::int64_t j = 1; j <= X.order(); ++j) r[static_cast<std::size_t>(j - 1)] = X(i, j);
}
void row_of(const dense_symm& X, std::int64_t i, std::vector<double>& r) {
  for (std::int64_t j = 1; j <= X.order(); ++j) r[static_cast<std::size_t>(j - 1)] = X(i, j);
}

// ---- Reading

struct Element {
  std::int64_t i = 0, j = 0, li = 0, lj = 0;
  double v = 0;
};

bool parse_int(std::string_view& s, std::int64_t& v) {
  std::size_t k = s.find_first_not_of(" \t\r,");
  if (k == std::string_view::npos) return false;
  s.remove_prefix(k);
  if (s.front() == '+') s.remove_prefix(1);
  const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
  if (r.ec != std::errc() || (r.ptr != s.data() + s.size() && std::string_view(" \t\r,").find(*r.ptr) == std::string_view::npos))
    return false;
  s.remove_prefix(static_cast<std::size_t>(r.ptr - s.data()));
  return true;
}

bool parse_real(std::string_view& s, double& v) {
  std::size_t k = s.find_first_not_of(" \t\r,");
  if (k == std::string_view::npos) return false;
  s.remove_prefix(k);
  if (s.front() == '+') s.remove_prefix(1);
  std::size_t end = s.find_first_of(" \t\r,");
  if (end == std::string_view::npos) end = s.size();
  std::string_view item = s.substr(0, end);
  const auto r = std::from_chars(item.data(), item.data() + item.size(), v);
  if (r.ec == std::errc() && r.ptr == item.data() + item.size()) {
    s.remove_prefix(end);
    return true;
  }
  // An exponent with D, or a value out of range: the general reader decides.
  if (!read_fixed(item, v, static_cast<int>(item.size()))) return false;
  s.remove_prefix(end);
  return true;
}

// Calls f(element) for every element of the file; returns the count. A line or record that
// does not hold an element ends the reading: with none read the caller gets 0, later it stops.
template <class F>
std::int64_t scan_file(MatrixUnit& u, const std::string& name, bool binary, bool new_form, F&& f) {
  std::int64_t count = 0;
  auto broken = [&] {
    if (count == 0) return;
    stop(free_format(" Error reading element", count + 1, "of file:", name));
  };
  Element e;
  if (binary) {
    std::vector<unsigned char> r;
    const std::size_t want = new_form ? 24 : 16;
    bool bad = false;
    while (u.record(r, bad)) {
      if (r.size() != want) {
        bad = true;
        break;
      }
      std::int32_t k[4] = {0, 0, 0, 0};
      const std::size_t nint = new_form ? 4 : 2;
      std::memcpy(k, r.data(), 4 * nint);
      std::memcpy(&e.v, r.data() + 4 * nint, 8);
      e.i = k[0];
      e.j = k[1];
      e.li = k[2];
      e.lj = k[3];
      f(e);
      ++count;
    }
    if (bad) broken();
    return count;
  }
  std::string_view l;
  while (u.line(l)) {
    if (l.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    bool ok = parse_int(l, e.i) && parse_int(l, e.j);
    if (ok && new_form) ok = parse_int(l, e.li) && parse_int(l, e.lj);
    if (ok) ok = parse_real(l, e.v);
    if (!ok) {
      broken();
      return count;
    }
    f(e);
    ++count;
  }
  return count;
}

void prepare(densem& X, std::int64_t n, std::int64_t) { X.resize(n, 0.0); }
void prepare(dense_symm& X, std::int64_t n, std::int64_t) { X.resize(n, 0.0); }
// A table sized for about `elements` elements, so that reading does not rehash it again and
// again.
void prepare(sparse_hashm& X, std::int64_t n, std::int64_t elements) {
  const char storage = X.status != 0 ? X.storage : 'u';
  const std::int64_t slots = std::max<std::int64_t>(elements + elements / 4 + 16, 64);
  init_sparse_hashm(X, static_cast<std::int32_t>(n), slots, storage);
}

// The elements a file of this size holds at most (binary) or typically (text).
std::int64_t elements_in(const std::string& name, bool binary, bool new_form) {
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(name, ec);
  if (ec) return 0;
  const std::uint64_t per = binary ? (new_form ? 32 : 24) : (new_form ? 61 : 20);
  return static_cast<std::int64_t>(std::min<std::uint64_t>(bytes / per, std::uint64_t{1} << 40));
}

void put(densem& X, std::int64_t i, std::int64_t j, double v) {
  X(i, j) = v;
  X(j, i) = v;
}
void put(dense_symm& X, std::int64_t i, std::int64_t j, double v) { X(i, j) = v; }
void put(sparse_hashm& X, std::int64_t i, std::int64_t j, double v) {
  set_sym(X, static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), v);
}

}  // namespace

// ---- Writing ------------------------------------------------------------------------------------

template <class M>
void save_positions(const M& X, const std::string& name, bool binary, const Array1<std::int32_t>* genId) {
  const std::string file = checked_name(name);
  const std::int64_t n = order(X);
  if (genId) check_genid(*genId, n, "printGmA22");
  MatrixUnit u(file, binary, false);
  if (binary) {
    if (genId) {
      std::array<unsigned char, 24> r;
      for_each_position(X, [&](std::int64_t i, std::int64_t j, double v) {
        const std::int32_t k[4] = {static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), (*genId)(i), (*genId)(j)};
        put_bytes(r, 0, k, 16);
        put_bytes(r, 16, &v, 8);
        u.record(r);
      });
    } else {
      std::array<unsigned char, 16> r;
      for_each_position(X, [&](std::int64_t i, std::int64_t j, double v) {
        const std::int32_t k[2] = {static_cast<std::int32_t>(i), static_cast<std::int32_t>(j)};
        put_bytes(r, 0, k, 8);
        put_bytes(r, 8, &v, 8);
        u.record(r);
      });
    }
  } else {
    std::string& b = u.buffer();
    for_each_position(X, [&](std::int64_t i, std::int64_t j, double v) {
      if (genId) {
        put_int(b, i, 10);
        put_int(b, j, 10);
        put_int(b, (*genId)(i), 10);
        put_int(b, (*genId)(j), 10);
        put_fixed(b, v, 20, 12);
        b += '\n';
      } else {
        put_i_j_val(b, i, j, v);
      }
      u.maybe_flush();
    });
  }
  u.finish();
}

template <class M>
void save_origid(const M& X, const std::string& name, bool binary, const Array1<std::int32_t>& genId,
                 const Array1<std::string>& origId) {
  if (binary) stop("wrong option lbin and OrigID not allowed");
  const std::string file = checked_name(name);
  check_genid(genId, order(X), "printGmA22");
  auto id = [&](std::int64_t i) -> std::string_view {
    const std::int32_t p = genId(i);
    if (p < origId.lower() || p > origId.upper())
      stop(free_format(" printGmA22: no original ID for animal", p));
    return origId(p);
  };
  auto put_id = [](std::string& b, std::string_view s) {
    s = s.substr(0, std::min<std::size_t>(s.size(), 25));
    b += s;
    b.append(25 - s.size(), ' ');
  };
  MatrixUnit u(file, false, false);
  std::string& b = u.buffer();
  for_each_pair(X, [&](std::int64_t i, std::int64_t j, double v) {
    put_id(b, id(i));
    b += ' ';
    put_id(b, id(j));
    b += ' ';
    put_fixed(b, v, 0, 12);
    b += '\n';
    u.maybe_flush();
  });
  u.finish();
}

template <class M>
void save_renumbered(const M& X, const std::string& name, const Array1<std::int32_t>& genId) {
  const std::string file = checked_name(name);
  check_genid(genId, order(X), "printGmA22");
  MatrixUnit u(file, false, false);
  std::string& b = u.buffer();
  for_each_pair(X, [&](std::int64_t i, std::int64_t j, double v) {
    if (genId(j) > genId(i)) return;
    put_i_j_val(b, genId(j), genId(i), v);
    u.maybe_flush();
  });
  u.finish();
}

template <class M>
void save_whole(const M& X, const std::string& name, bool binary) {
  if (binary) stop("wrong option lbin and matrix not allowed");
  const std::string file = checked_name(name);
  const std::int64_t n = order(X);
  constexpr bool spaced = !std::is_same_v<M, densem>;
  std::vector<double> row(static_cast<std::size_t>(n));
  MatrixUnit u(file, false, false);
  std::string& b = u.buffer();
  auto put_row = [&] {
    for (std::int64_t j = 1; j <= n; ++j) {
      put_fixed(b, row[static_cast<std::size_t>(j - 1)], 12, 4);
      const bool line_end = j % 10000 == 0 || j == n;
      if (line_end) b += '\n';
      else if (spaced) b += ' ';
    }
    u.maybe_flush();
  };
  if constexpr (std::is_same_v<M, sparse_hashm>) {
    // The elements by rows (both orientations of an upper-stored one): memory linear in them.
    std::vector<std::int64_t> start(static_cast<std::size_t>(n) + 2, 0);
    auto each = [&](auto&& f) {
      for_each_slot(X, [&](std::int32_t i, std::int32_t j, double v) {
        f(i, j, v);
        if (X.storage != 'f' && i != j) f(j, i, v);
      });
    };
    each([&](std::int32_t i, std::int32_t, double) { ++start[static_cast<std::size_t>(i) + 1]; });
    for (std::size_t k = 1; k < start.size(); ++k) start[k] += start[k - 1];
    std::vector<std::int64_t> fill(start.begin(), start.end() - 1);
    std::vector<std::int32_t> col(static_cast<std::size_t>(start.back()));
    std::vector<double> val(col.size());
    each([&](std::int32_t i, std::int32_t j, double v) {
      const auto k = static_cast<std::size_t>(fill[static_cast<std::size_t>(i)]++);
      col[k] = j;
      val[k] = v;
    });
    for (std::int64_t i = 1; i <= n; ++i) {
      std::fill(row.begin(), row.end(), 0.0);
      for (auto k = static_cast<std::size_t>(start[static_cast<std::size_t>(i)]);
           k < static_cast<std::size_t>(start[static_cast<std::size_t>(i) + 1]); ++k)
        row[static_cast<std::size_t>(col[k] - 1)] = val[k];
      put_row();
    }
  } else {
    for (std::int64_t i = 1; i <= n; ++i) {
      row_of(X, i, row);
      put_row();
    }
  }
  u.finish();
}

template <class M>
void save_genomic_matrix(const M& X, const std::string& name, std::string_view word, bool binary, bool new_format,
                         const Array1<std::int32_t>& genId, const Array1<std::string>& origId) {
  std::string w(word);
  while (!w.empty() && w.back() == ' ') w.pop_back();
  for (char& c : w) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (w == "internal") {
    save_positions(X, name, binary, new_format ? &genId : nullptr);
  } else if (w == "origid") {
    save_origid(X, name, binary, genId, origId);
  } else if (w == "renumbered") {
    save_renumbered(X, name, genId);
  } else if (w == "matrix") {
    save_whole(X, name, binary);
  } else {
    stop("error in printGmA22_" + std::string(storage_kind_name<M>()));
  }
}

// ---- Reading ------------------------------------------------------------------------------------

template <class M>
std::int64_t read_positions(M& X, const std::string& name, bool binary, std::int64_t n,
                            const Array1<std::int32_t>* genId) {
  const std::string file = checked_name(name);
  const bool new_form = genId != nullptr;
  MatrixUnit u(file, binary, true);
  auto none = [&] {
    out() << " No elements read from matrix !!!! \n";
    if (new_form)
      stop(binary ? " Check file to be in BINARY format with columns: i j li lj  val"
                  : " Check file to be in ASCII format delimited with blank with columns: i j li lj val");
    stop(binary ? " Check file to be in BINARY format with columns: i j val"
                : " Check file to be in ASCII format delimited with blank with columns: i j val");
  };
  if (new_form) {
    n = genId->size();
  } else if (n <= 0) {
    std::int64_t top = 0;
    const std::int64_t count = scan_file(u, file, binary, false, [&](const Element& e) {
      top = std::max({top, e.i, e.j});
    });
    if (count == 0) none();
    n = top;
    u.rewind();
  }
  if (n > std::numeric_limits<std::int32_t>::max()) stop(free_format(" matrix order too large:", n));
  prepare(X, n, elements_in(file, binary, new_form));
  std::string who = " READGmA22_";
  for (char c : storage_kind_name<M>()) who += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  int triangle = 0;  // 1 lower, 2 upper, by the first element off the diagonal
  const std::int64_t count = scan_file(u, file, binary, new_form, [&](const Element& e) {
    if (new_form) {
      const bool in = e.i >= 1 && e.i <= n && e.j >= 1 && e.j <= n;
      if (!in || (*genId)(e.i) != e.li || (*genId)(e.j) != e.lj) {
        print_free(who + ": vector genId not match data file: ", e.i, e.j, e.li, e.lj);
        stop("or other format");
      }
    } else {
      if (e.i < 1 || e.i > n || e.j < 1 || e.j > n)
        stop(free_format(" read_i_j_val: element outside the matrix of order", n, ":", e.i, e.j));
      if (e.i != e.j) {
        const int t = e.i > e.j ? 1 : 2;
        if (triangle == 0) triangle = t;
        else if (t != triangle) stop("Mixed upper and lower diagonals or full storage in old format");
      }
    }
    put(X, e.i, e.j, e.v);
  });
  if (count == 0) none();
  print_free(count, "elements read from: ", file);
  return count;
}

#define MMEKIT_MATRIX_FILES(M)                                                                                  \
  template void save_positions<M>(const M&, const std::string&, bool, const Array1<std::int32_t>*);            \
  template void save_origid<M>(const M&, const std::string&, bool, const Array1<std::int32_t>&,                \
                               const Array1<std::string>&);                                                   \
  template void save_renumbered<M>(const M&, const std::string&, const Array1<std::int32_t>&);                 \
  template void save_whole<M>(const M&, const std::string&, bool);                                            \
  template void save_genomic_matrix<M>(const M&, const std::string&, std::string_view, bool, bool,             \
                                       const Array1<std::int32_t>&, const Array1<std::string>&);              \
  template std::int64_t read_positions<M>(M&, const std::string&, bool, std::int64_t, const Array1<std::int32_t>*);
MMEKIT_MATRIX_FILES(densem)
MMEKIT_MATRIX_FILES(dense_symm)
MMEKIT_MATRIX_FILES(sparse_hashm)
#undef MMEKIT_MATRIX_FILES

// ---- Entries on `genomic` ----------------------------------------------------------------------

void print_i_j_val_densem(const densem& X, const std::string& name) {
  save_positions(X, name, genomic.opt.binaries_files, nullptr);
}
void print_i_j_val_dense_symm(const dense_symm& X, const std::string& name) {
  save_positions(X, name, genomic.opt.binaries_files, nullptr);
}
void print_i_j_val_sparse_hashm(const sparse_hashm& X, const std::string& name) {
  save_positions(X, name, genomic.opt.binaries_files, nullptr);
}
void printGmA22_densem(const densem& X, const std::string& name, std::string_view word) {
  save_genomic_matrix(X, name, word, genomic.opt.binaries_files, genomic.opt.new_format, genomic.genId, genomic.origId);
}
void printGmA22_dense_symm(const dense_symm& X, const std::string& name, std::string_view word) {
  save_genomic_matrix(X, name, word, genomic.opt.binaries_files, genomic.opt.new_format, genomic.genId, genomic.origId);
}
void printGmA22_sparse_hashm(const sparse_hashm& X, const std::string& name, std::string_view word) {
  save_genomic_matrix(X, name, word, genomic.opt.binaries_files, genomic.opt.new_format, genomic.genId, genomic.origId);
}
void read_i_j_val_densem(densem& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, genomic.ngen, nullptr);
}
void read_i_j_val_dense_symm(dense_symm& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, genomic.ngen, nullptr);
}
void read_i_j_val_sparse_hashm(sparse_hashm& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, genomic.ngen, nullptr);
}
void READGmA22_DENSEM(densem& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, 0, &genomic.genId);
}
void READGmA22_DENSE_SYMM(dense_symm& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, 0, &genomic.genId);
}
void READGmA22_SPARSE_HASHM(sparse_hashm& X, const std::string& name) {
  read_positions(X, name, genomic.opt.binaries_files, 0, &genomic.genId);
}

}  // namespace mmekit
