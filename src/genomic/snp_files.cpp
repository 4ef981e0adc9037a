#include "mmekit/genomic/snp_files.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <unordered_map>

#include "mmekit/support/clock.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/text.hpp"

namespace mmekit {

namespace {

// Columns searched for the end of the identifier.
constexpr std::int64_t id_columns = 50;

// ---- Lines of a text held in memory

// Walks the lines of a text: a line ends at '\n' (not part of it); a '\r' before it is dropped;
// a last line without '\n' is a line; a text ending in '\n' has no empty line after it.
class LineCursor {
 public:
  explicit LineCursor(std::string_view text) : p_(text.data()), end_(text.data() + text.size()) {}
  bool next(std::string_view& line) {
    if (p_ >= end_) return false;
    const char* nl = static_cast<const char*>(std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_)));
    const char* stop = nl ? nl : end_;
    std::size_t len = static_cast<std::size_t>(stop - p_);
    if (len > 0 && p_[len - 1] == '\r') --len;
    line = std::string_view(p_, len);
    p_ = nl ? nl + 1 : end_;
    return true;
  }
  // Whether the next line is exactly `len` characters long (its '\n', or "\r\n", or the end of
  // the text right after them), without a '\n' among its first `head` characters; then `line`
  // is it and `advance` the characters to move on by. The characters from `head` to `len` are
  // not looked at: the caller checks that they hold no '\n'. Lines of a genotype file have one
  // length, so this spares the search for the end of each line.
  bool peek_fixed(std::int64_t len, std::int64_t head, std::string_view& line, std::int64_t& advance) const {
    const std::int64_t left = end_ - p_;
    if (left < len) return false;
    if (left == len) {
      advance = len;
    } else if (p_[len] == '\n') {
      advance = len + 1;
    } else if (p_[len] == '\r' && (left == len + 1 || p_[len + 1] == '\n')) {
      advance = std::min(left, len + 2);
    } else {
      return false;
    }
    if (head > 0 && std::memchr(p_, '\n', static_cast<std::size_t>(std::min(head, len)))) return false;
    line = std::string_view(p_, static_cast<std::size_t>(len));
    return true;
  }
  void advance(std::int64_t n) { p_ += n; }
  void skip(std::int64_t n) {
    std::string_view l;
    for (std::int64_t i = 0; i < n && next(l); ++i) {
    }
  }

 private:
  const char* p_;
  const char* end_;
};

// The whole contents of a file, mapped into memory when it can be (a regular file), else read.
class FileText {
 public:
  explicit FileText(const std::string& name) {
    const int fd = ::open(name.c_str(), O_RDONLY);
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
      if (fd >= 0) ::close(fd);
      stop(free_format("Error in open \"", name, "\" file not exist"));
    }
    if (S_ISREG(st.st_mode)) {
      size_ = static_cast<std::size_t>(st.st_size);
      if (size_ > 0) {
        void* p = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        if (p != MAP_FAILED) {
          map_ = p;
          ::madvise(p, size_, MADV_SEQUENTIAL);
        }
      }
    }
    if (!map_ && size_ > 0) {
      ::close(fd);
      std::ifstream f(name, std::ios::binary);
      copy_.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
      size_ = copy_.size();
      return;
    }
    ::close(fd);
  }
  ~FileText() {
    if (map_) ::munmap(map_, size_);
  }
  FileText(const FileText&) = delete;
  FileText& operator=(const FileText&) = delete;
  std::string_view text() const {
    return map_ ? std::string_view(static_cast<const char*>(map_), size_) : std::string_view(copy_);
  }

 private:
  void* map_ = nullptr;
  std::size_t size_ = 0;
  std::string copy_;
};

// ---- Layout of one line

// Position (1-based) of the first `c` in line[from-1 .. to-1] (1-based, inclusive, clipped to
// the line); 0 when absent.
std::int64_t find_first(std::string_view line, char c, std::int64_t from, std::int64_t to) {
  to = std::min<std::int64_t>(to, static_cast<std::int64_t>(line.size()));
  if (from < 1) from = 1;
  if (from > to) return 0;
  const void* p = std::memchr(line.data() + from - 1, c, static_cast<std::size_t>(to - from + 1));
  return p ? static_cast<const char*>(p) - line.data() + 1 : 0;
}

std::int64_t find_last(std::string_view line, char c, std::int64_t from, std::int64_t to) {
  to = std::min<std::int64_t>(to, static_cast<std::int64_t>(line.size()));
  if (from < 1) from = 1;
  for (std::int64_t k = to; k >= from; --k)
    if (line[static_cast<std::size_t>(k - 1)] == c) return k;
  return 0;
}

struct LineLayout {
  std::int64_t first = 0;
  std::int64_t nsnp = 0;
  bool real = false;
  std::int64_t width = 1;
  std::int64_t dot = 0;  // first "." of the line
};

// The layout of one line seen as a buffer of `maxsnp` characters, blank padded.
LineLayout line_layout(std::string_view line, std::int64_t maxsnp) {
  const std::int64_t buflen = std::max<std::int64_t>(maxsnp, 0);
  if (static_cast<std::int64_t>(line.size()) > buflen) line = line.substr(0, static_cast<std::size_t>(buflen));
  const std::int64_t len = static_cast<std::int64_t>(line.size());
  const std::int64_t lim = std::min(id_columns, buflen);
  LineLayout r;
  r.dot = find_first(line, '.', 1, len);
  if (r.dot == 0) {
    // Identifier up to the last blank within the first columns; padding counts as blanks.
    const std::int64_t b = len < lim ? lim : find_last(line, ' ', 1, lim);
    r.first = b + 1;
    std::int64_t p = find_first(line, ' ', r.first, len);
    if (p == 0) p = std::max(r.first, len + 1);  // the padding after the line
    r.nsnp = p <= buflen ? p - r.first : -1;
    return r;
  }
  const std::int64_t next = find_first(line, '.', r.dot + 1, len);
  if (next == 0) stop(free_format("Error reading SNP file. \".\" was found but not real SNPs"));
  r.real = true;
  r.width = next - r.dot;
  const std::int64_t d = find_first(line, '.', 1, lim);
  r.first = d - r.width + 3;
  if (d == 0 || r.first < 1) {
    r.nsnp = -1;  // no identifier field ends where the markers could begin
    return r;
  }
  const std::int64_t last = find_last(line, '.', r.first, len);
  const std::int64_t e = last == 0 ? 0 : last - r.first + 1;
  r.nsnp = (e + 2) / r.width;
  return r;
}

// True when, around its markers, `line` has the integer layout (first, n) of the file without
// a doubt: at least n markers, the blank before them, a blank or the end after them and no "."
// anywhere else within the buffer. Together with `only_digits` (or `convert_codes`) on the
// markers this is the whole layout check of a line, valid for layouts whose markers reach past
// the identifier columns and end inside the buffer (see `fast_layout_ok`).
bool integer_frame_ok(std::string_view line, std::int64_t first, std::int64_t n, std::int64_t maxsnp) {
  const std::int64_t len = static_cast<std::int64_t>(line.size());
  const std::int64_t end = first - 1 + n;  // last marker column
  if (len < end) return false;
  if (first > 1 && line[static_cast<std::size_t>(first - 2)] != ' ') return false;
  if (len > end && line[static_cast<std::size_t>(end)] != ' ') return false;
  if (first > 1 && std::memchr(line.data(), '.', static_cast<std::size_t>(first - 1))) return false;
  const std::int64_t rest_end = std::min(len, maxsnp);
  return rest_end <= end || !std::memchr(line.data() + end, '.', static_cast<std::size_t>(rest_end - end));
}

bool only_digits(const unsigned char* p, std::int64_t n) {
  unsigned char nondigit = 0;
  for (std::int64_t j = 0; j < n; ++j) nondigit |= static_cast<unsigned char>(static_cast<unsigned char>(p[j] - '0') > 9);
  return !nondigit;
}

// Markers p[0..n) as codes into `row` (3 and 4 as 5 with `aipl`). Returns false when a
// character is not a digit; `bad` is set when a code is not 0, 1, 2 or 5 (a non-digit too).
bool convert_codes(const unsigned char* p, std::int64_t n, std::int8_t* row, bool aipl, bool& bad) {
  unsigned char nondigit = 0, wrong = 0;
  if (aipl) {
    for (std::int64_t j = 0; j < n; ++j) {
      unsigned char v = static_cast<unsigned char>(p[j] - '0');
      nondigit |= static_cast<unsigned char>(v > 9);
      v = (v == 3 || v == 4) ? 5 : v;
      wrong |= static_cast<unsigned char>((v > 2) & (v != 5));
      row[j] = static_cast<std::int8_t>(v);
    }
  } else {
    for (std::int64_t j = 0; j < n; ++j) {
      const unsigned char v = static_cast<unsigned char>(p[j] - '0');
      nondigit |= static_cast<unsigned char>(v > 9);
      wrong |= static_cast<unsigned char>((v > 2) & (v != 5));
      row[j] = static_cast<std::int8_t>(v);
    }
  }
  if (wrong) bad = true;
  return !nondigit;
}

bool fast_layout_ok(const SnpLayout& l, std::int64_t maxsnp) {
  return !l.real && l.nsnp > 0 && l.first - 1 + l.nsnp >= std::min(id_columns, maxsnp) &&
         l.first + l.nsnp <= maxsnp;
}

// The genotypes read while the layout is checked: an integer file of a layout that allows the
// quick line check is converted in the same pass.
struct ReadAlong {
  std::int64_t ngen = 0;
  bool missingAIPL = false;
  GenotypeMatrix M;       // allocated from the first line when the pass converts
  bool converting = false;
  bool bad = false;       // a line held a code other than 0, 1, 2, 5
};

// ---- Small parsers for the numeric text files

bool is_separator(char c) { return c == ' ' || c == '\t' || c == ',' || c == '\r'; }

// Splits a line at blanks, tabs and commas.
void split_fields(std::string_view line, std::vector<std::string_view>& fields) {
  fields.clear();
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && is_separator(line[i])) ++i;
    if (i >= line.size()) break;
    const std::size_t s = i;
    while (i < line.size() && !is_separator(line[i])) ++i;
    fields.push_back(line.substr(s, i - s));
  }
}

bool parse_int(std::string_view s, std::int32_t& v) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  return ec == std::errc() && p == s.data() + s.size();
}

bool parse_real(std::string_view s, double& v) {
  std::string t(s);
  for (char& c : t)
    if (c == 'd' || c == 'D') c = 'e';
  if (!t.empty() && t.front() == '+') t.erase(0, 1);
  auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  return ec == std::errc() && p == t.data() + t.size();
}

[[noreturn]] void bad_line(std::string_view what, std::int64_t line) {
  stop(free_format(std::string(" Error reading ") + std::string(what) + " at line:", line));
}

std::string pad50(std::string s) {
  s.resize(std::max<std::size_t>(s.size(), 50), ' ');
  return s;
}

}  // namespace

// ---- Genotype file -----------------------------------------------------------------------------

namespace {

// The layout check over all lines, converting the genotypes on the way when `along` is given.
SnpLayout scan_genotype_text(std::string_view text, std::int64_t maxsnp, std::int64_t skip, ReadAlong* along) {
  SnpLayout file;
  LineCursor cur(text);
  cur.skip(skip);
  std::string_view line;
  bool fast = false;
  std::int64_t len = 0, step = 0;
  auto markers = [&](std::string_view l) { return reinterpret_cast<const unsigned char*>(l.data()) + file.first - 1; };
  // Converts the markers of line `file.lines` when it is one of M's rows; false when a
  // character among them is not a digit.
  auto convert = [&](std::string_view l) {
    if (static_cast<std::int64_t>(l.size()) < file.first - 1 + file.nsnp) return false;
    if (!along || !along->converting || file.lines > along->ngen) return only_digits(markers(l), file.nsnp);
    return convert_codes(markers(l), file.nsnp, along->M.codes_row(file.lines), along->missingAIPL, along->bad);
  };
  for (;;) {
    if (fast && cur.peek_fixed(len, file.first - 1, line, step) && integer_frame_ok(line, file.first, file.nsnp, maxsnp)) {
      ++file.lines;
      if (convert(line)) {
        cur.advance(step);
        continue;
      }
      --file.lines;
    }
    if (!cur.next(line)) break;
    ++file.lines;
    if (fast && integer_frame_ok(line, file.first, file.nsnp, maxsnp) && convert(line)) continue;
    const LineLayout l = line_layout(line, maxsnp);
    if (file.lines == 1) {
      file.first = l.first;
      file.nsnp = l.nsnp;
      file.real = l.real;
      file.width = l.width;
      if (l.real) {
        print_free("*--------------------------------------------------------------------*");
        print_free("* CAUTION Real values for SNP content were found - Under Testing !!! *");
        print_free("*--------------------------------------------------------------------*");
        print_free(" Default assumption len of decimal part: 2  (Fx.2)");
        print_free(" First \"dot\" and total len", l.dot, l.width);
        out() << '\n';
      }
      fast = fast_layout_ok(file, maxsnp);
      len = file.first - 1 + file.nsnp;
      if (along && fast) {
        along->M.resize_codes_for_overwrite(along->ngen, file.nsnp);
        along->converting = true;
        convert(line);  // non-digits among the markers are wrong codes
      }
      continue;
    }
    if (l.real && !file.real) {
      file.real = true;
      file.width = l.width;
    }
    if (l.first != file.first || l.nsnp != file.nsnp) {
      stop(free_format("Genotype file with wrong format !!!") + "\n" +
           free_format(" First gentoype SNP pos is: ", file.first, " numbers of SNP: ", file.nsnp) + "\n" +
           free_format(" SNP pos at genotype: ", file.lines, " is: ", l.first, " numbers of SNP: ", l.nsnp));
    }
    if (fast && !l.real) convert(line);  // the same layout, other characters among the markers
  }
  if (file.lines == 0) file.nsnp = 0;
  return file;
}

[[noreturn]] void not_genotype_codes() { stop(free_format(" Genotypes should only contain 0, 1, 2 and 5")); }

[[noreturn]] void wrong_line_count(std::int64_t lines, std::int64_t ngen) {
  stop(free_format(" Number of lines in the genotype file differs from the cross-reference file:", lines, ngen));
}

std::int64_t count_lines(std::string_view text, std::int64_t skip) {
  LineCursor cur(text);
  cur.skip(skip);
  std::string_view line;
  std::int64_t n = 0;
  while (cur.next(line)) ++n;
  return n;
}

}  // namespace

SnpLayout check_SNP_format(std::string_view text, std::int64_t maxsnp, std::int64_t skip) {
  return scan_genotype_text(text, maxsnp, skip, nullptr);
}

SnpLayout check_SNP_format(std::istream& unit, std::int64_t maxsnp, std::int64_t skip) {
  const std::string text{std::istreambuf_iterator<char>(unit), std::istreambuf_iterator<char>()};
  const SnpLayout l = check_SNP_format(text, maxsnp, skip);
  unit.clear();
  unit.seekg(0);
  return l;
}

SnpFormats make_SNP_formats(const SnpLayout& layout, std::int64_t maxsnp) {
  const std::string skip = std::to_string(layout.first - 1);
  const std::string rep = std::to_string(maxsnp);
  const std::string w = std::to_string(layout.width);
  SnpFormats f;
  f.markers = pad50("(" + skip + "x," + rep + "i1)");
  f.id_markers = pad50("(a" + skip + "," + rep + "i1)");
  f.id = pad50("(a" + skip + ")");
  f.real_markers = pad50("(" + skip + "x," + rep + "f" + w + ".2)");
  f.real_id_markers = pad50("(a" + skip + "," + rep + "f" + w + ".2)");
  f.real_id = pad50("(a" + skip + ")");
  return f;
}

void report_SNP_layout(const SnpLayout& layout, const SnpFormats& formats, std::int64_t maxsnp) {
  if (layout.nsnp == -1)
    stop(free_format("Number of SNPs greater than \"maxsnp\": ", maxsnp, ", or error in reading SNP file"));
  print_free("    Column position in file for the first marker: ", layout.first);
  print_free("    Format to read SNP file: ", formats.in_force(layout));
  print_free("    Number of SNPs: ", layout.nsnp);
}

namespace {

// Fw.2 input of one field: blanks are ignored, a field without a decimal point has two
// implied decimals, a blank field is 0.
bool read_f2(std::string_view field, double& v) {
  std::string t;
  t.reserve(field.size());
  for (char c : field)
    if (c != ' ') t.push_back(c);
  if (t.empty()) {
    v = 0;
    return true;
  }
  if (!read_fixed(t, v, static_cast<int>(t.size()))) return false;
  if (t.find('.') == std::string::npos) v /= 100;
  return true;
}

}  // namespace

void read_genotypes(std::string_view text, const SnpLayout& layout, bool missingAIPL,
                    std::int64_t skip, std::int64_t ngen, GenotypeMatrix& M) {
  const std::int64_t nsnp = std::max<std::int64_t>(layout.nsnp, 0);
  if (ngen < 0) ngen = count_lines(text, skip);
  GenotypeMatrix G;
  G.resize(ngen, nsnp, layout.real);
  LineCursor cur(text);
  cur.skip(skip);
  std::string_view line;
  std::int64_t i = 0, step = 0;
  const std::int64_t c0 = layout.first - 1;  // characters before the first marker
  const std::int64_t len = layout.real ? 0 : c0 + nsnp;  // the length of a line, mostly
  for (;;) {
    if (len > 0 && cur.peek_fixed(len, c0, line, step)) {
      cur.advance(step);
    } else if (!cur.next(line)) {
      break;
    }
    ++i;
    if (i > ngen) continue;  // counted only, for the message below
    if (layout.real) {
      double* row = G.reals_row(i);
      for (std::int64_t j = 0; j < nsnp; ++j) {
        const std::int64_t s = c0 + j * layout.width;
        std::string_view field;
        if (s < static_cast<std::int64_t>(line.size()))
          field = line.substr(static_cast<std::size_t>(s), static_cast<std::size_t>(layout.width));
        double v = 0;
        if (!read_f2(field, v)) bad_line("real genotypes", i);
        if (missingAIPL && (v == 3 || v == 4)) v = genotype_missing;
        row[j] = v;
      }
      continue;
    }
    // Integer form: one digit a marker (the layout check saw to it that no blank or "." stands
    // among them); characters past the end of the line are blanks, which read as 0.
    std::int8_t* row = G.codes_row(i);
    const std::int64_t avail = std::clamp<std::int64_t>(static_cast<std::int64_t>(line.size()) - c0, 0, nsnp);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(line.data()) + (avail > 0 ? c0 : 0);
    bool bad = false;
    convert_codes(p, avail, row, missingAIPL, bad);
    if (bad) not_genotype_codes();
    for (std::int64_t j = avail; j < nsnp; ++j) row[j] = 0;
  }
  if (i != ngen) wrong_line_count(i, ngen);
  M = std::move(G);
}

SnpLayout read_genotype_text(std::string_view text, std::int64_t maxsnp, bool missingAIPL, std::int64_t ngen,
                             GenotypeMatrix& M) {
  ReadAlong along;
  along.ngen = ngen < 0 ? count_lines(text, 0) : ngen;
  along.missingAIPL = missingAIPL;
  const SnpLayout layout = scan_genotype_text(text, maxsnp, 0, &along);
  report_SNP_layout(layout, make_SNP_formats(layout, maxsnp), maxsnp);
  if (!along.converting || layout.real) {
    read_genotypes(text, layout, missingAIPL, 0, along.ngen, M);
  } else {
    if (along.bad) not_genotype_codes();
    if (layout.lines != along.ngen) wrong_line_count(layout.lines, along.ngen);
    M = std::move(along.M);
  }
  return layout;
}

void read_SNP_file() {
  GenomicOptions& o = genomic.opt;
  Stopwatch watch;
  const FileText file(o.SNP_file);
  const std::int64_t ngen = genomic.genId.size() > 0 ? genomic.ngen : -1;
  const SnpLayout layout = read_genotype_text(file.text(), o.maxsnp, o.missingAIPL, ngen, genomic.M);
  genomic.nsnp = static_cast<std::int32_t>(layout.nsnp);
  genomic.ngen = static_cast<std::int32_t>(genomic.M.rows());
  print_free("    Number of Genotyped animals: ", genomic.ngen);
  print_free("    Reading SNP file elapsed time: ", watch.wall());
}

// ---- Cross-reference file ----------------------------------------------------------------------

Array1<std::int32_t> read_xref(std::istream& unit) {
  std::vector<std::int32_t> ids;
  std::unordered_map<std::int32_t, std::int32_t> seen;
  std::vector<std::string_view> fields;
  std::string line;
  std::int64_t lineno = 0, repeats = 0;
  while (std::getline(unit, line)) {
    ++lineno;
    split_fields(line, fields);
    if (fields.empty()) continue;
    std::int32_t id = 0;
    if (!parse_int(fields[0], id) || ids.size() >= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
      bad_line("cross-reference file", lineno);
    ids.push_back(id);
    const auto count = static_cast<std::int32_t>(ids.size());
    auto [it, fresh] = seen.try_emplace(id, count);
    if (!fresh) {
      ++repeats;
      print_free(" Genotype repeated - level: ", id, " - # of genotypes: ", count, it->second);
    }
  }
  print_free(" Number of Genotyped Animals: ", ids.size());
  if (repeats > 0) stop(free_format("duplicated genotypes", repeats));
  Array1<std::int32_t> r(static_cast<std::int64_t>(ids.size()));
  std::copy(ids.begin(), ids.end(), r.begin());
  return r;
}

void read_xref_file() {
  GenomicOptions& o = genomic.opt;
  const std::string name = o.xref_file.empty() ? o.SNP_file + "_XrefID" : o.xref_file;
  std::ifstream unit;
  open_input(unit, name);
  Array1<std::int32_t> ids = read_xref(unit);
  genomic.ngen = static_cast<std::int32_t>(ids.size());
  genomic.genId = std::move(ids);
}

// ---- Map file ----------------------------------------------------------------------------------

SnpMap read_map(std::istream& unit, std::string_view name, std::int64_t nsnp, bool names, std::int32_t msg) {
  std::vector<std::string_view> fields;
  std::string line;
  std::int32_t v[3];
  auto parse = [&](std::int64_t lineno) {
    if (fields.size() < 3) bad_line("MAP file", lineno);
    for (int k = 0; k < 3; ++k)
      if (!parse_int(fields[static_cast<std::size_t>(k)], v[k])) bad_line("MAP file", lineno);
  };
  // First pass: count the lines and look at indices and chromosomes.
  std::int64_t count = 0, lineno = 0;
  while (std::getline(unit, line)) {
    ++lineno;
    split_fields(line, fields);
    if (fields.empty()) continue;
    parse(lineno);
    if (v[0] <= 0) stop(free_format(" SNP index equal 0, and should be > 0"));
    if (v[1] <= 0) stop(free_format(" CHR Number equal 0, and should be > 0"));
    ++count;
  }
  print_free(" Reading MAP file: \"", name, "\" - ", count, " SNPs out of ", nsnp);
  if (count != nsnp) stop(free_format("Error in reading CHRINFO: different number of SNP "));

  // Second pass: the rows in line order.
  unit.clear();
  unit.seekg(0);
  SnpMap map;
  map.rows.resize(count, 3);
  if (names) map.names.assign(static_cast<std::size_t>(count), std::string());
  std::int64_t i = 0;
  std::int32_t lo[2] = {std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()};
  std::int32_t hi[2] = {0, 0};
  lineno = 0;
  while (i < count && std::getline(unit, line)) {
    ++lineno;
    split_fields(line, fields);
    if (fields.empty()) continue;
    parse(lineno);
    ++i;
    if (v[0] > nsnp) stop(free_format("Error in reading CHRINFO: SNP id > # SNP"));
    for (int k = 0; k < 3; ++k) map.rows(i, k + 1) = v[k];
    if (names && fields.size() >= 4) map.names[static_cast<std::size_t>(i - 1)] = std::string(fields[3].substr(0, 50));
    if (msg > 0 && i <= 20) {
      if (names) print_free(v[0], v[1], v[2], map.names[static_cast<std::size_t>(i - 1)]);
      else print_free(v[0], v[1], v[2]);
    }
    lo[0] = std::min(lo[0], v[1]);
    hi[0] = std::max(hi[0], v[1]);
    lo[1] = std::min(lo[1], v[0]);
    hi[1] = std::max(hi[1], v[0]);
  }
  if (i < count) bad_line("MAP file", lineno + 1);  // the file changed between the passes
  if (count == 0) lo[0] = lo[1] = 0;
  print_free("    Min and max # of chromosome: ", lo[0], hi[0]);
  print_free("    Min and max # of SNP: ", lo[1], hi[1]);
  return map;
}

void read_map_file() {
  const GenomicOptions& o = genomic.opt;
  std::ifstream unit;
  open_input(unit, o.chrinfo);
  if (o.chrinfo_names) print_free(" - Read SNP names in the 4th column");
  SnpMap map = read_map(unit, o.chrinfo, genomic.nsnp, o.chrinfo_names, o.msg);
  genomic.map = std::move(map.rows);
  genomic.snp_names = std::move(map.names);
}

// ---- Frequency file ----------------------------------------------------------------------------

Array1<double> read_frequencies(std::istream& unit, std::int64_t nsnp) {
  std::vector<double> freq;
  std::vector<std::string_view> fields;
  std::string line;
  std::int64_t lineno = 0;
  while (std::getline(unit, line)) {
    ++lineno;
    split_fields(line, fields);
    if (fields.empty()) continue;
    std::int32_t index = 0;
    double p = 0;
    if (fields.size() < 2 || !parse_int(fields[0], index) || !parse_real(fields[1], p))
      bad_line("frequency file", lineno);
    if (static_cast<std::int64_t>(index) != static_cast<std::int64_t>(freq.size()) + 1)
      stop(free_format("frequency file not in order"));
    freq.push_back(p);
    if (freq.size() <= 10) print_free(index, p);
  }
  const auto count = static_cast<std::int64_t>(freq.size());
  if (count != nsnp) stop(free_format("Error reading alle frequencies", count, nsnp));
  print_free(count, " records of allele frequencies read");
  Array1<double> r(count);
  std::copy(freq.begin(), freq.end(), r.begin());
  return r;
}

void read_freq_file() {
  std::ifstream unit;
  open_input(unit, genomic.opt.FreqFile);
  genomic.freq = read_frequencies(unit, genomic.nsnp);
}

// ---- Counts written from the genotypes ---------------------------------------------------------

SnpCounts count_snps(const GenotypeMatrix& M) {
  const std::int64_t n = M.rows(), m = M.cols();
  SnpCounts c;
  c.freq.assign(m, 0.0);
  c.missing.assign(m, 0);
  c.mean.assign(m, 0.0);
  std::vector<double> sum(static_cast<std::size_t>(m), 0.0);
  std::vector<std::int64_t> miss(static_cast<std::size_t>(m), 0);
  for (std::int64_t i = 1; i <= n; ++i) {
    if (const std::int8_t* r = M.codes_row(i)) {
      for (std::int64_t j = 0; j < m; ++j) {
        const bool missing = r[j] == genotype_missing;
        miss[static_cast<std::size_t>(j)] += missing;
        sum[static_cast<std::size_t>(j)] += missing ? 0 : r[j];
      }
    } else {
      const double* x = M.reals_row(i);
      for (std::int64_t j = 0; j < m; ++j) {
        const bool missing = x[j] == genotype_missing;
        miss[static_cast<std::size_t>(j)] += missing;
        sum[static_cast<std::size_t>(j)] += missing ? 0 : x[j];
      }
    }
  }
  for (std::int64_t j = 1; j <= m; ++j) {
    const std::int64_t k = miss[static_cast<std::size_t>(j - 1)];
    c.missing(j) = k;
    c.mean(j) = n - k > 0 ? sum[static_cast<std::size_t>(j - 1)] / static_cast<double>(n - k) : 0.0;
    c.freq(j) = c.mean(j) / 2;
  }
  return c;
}

namespace {
void open_output(std::ofstream& f, const std::string& file) {
  f.open(file, std::ios::trunc);
  if (!f) stop(free_format("Error in open \"", file, "\" for writing"));
}
}  // namespace

SnpCounts write_freqdata_count(const GenotypeMatrix& M, const std::string& file, std::int32_t msg) {
  SnpCounts c = count_snps(M);
  std::ofstream f;
  open_output(f, file);
  std::string buf;
  for (std::int64_t j = 1; j <= c.freq.size(); ++j) {
    buf += free_format(j, c.freq(j));
    buf += '\n';
    if (msg >= 500 && c.missing(j) > 0)
      out() << fformat("(a,i0,a,i6,a,f10.4)", "@ snp ", j, " errors in file (5): ", c.missing(j), " mu: ", c.mean(j));
  }
  f << buf;
  return c;
}

bool freq_after_clean_wanted(const GenomicOptions& o) {
  return o.hwe || o.monomorphic || o.minfreq > 0 || o.callrate_remove || o.callrateAnim_remove ||
         o.verify_parentage > 0;
}

void write_freqdata_after_clean(const std::string& file, const Array1<double>& freq,
                                const Array1<std::int32_t>& flags) {
  std::ofstream f;
  open_output(f, file);
  for (std::int64_t j = 1; j <= freq.size(); ++j)
    f << free_format(j, freq(j), j <= flags.size() ? flags(j) : 0) << '\n';
}

namespace {
// Counts of genotypes 0, 1, 2 per SNP (added to `counts`, three per SNP) and one animal's line.
template <class T>
void hete_row(const T* row, std::int64_t m, std::vector<std::int64_t>& counts, std::int64_t& present, std::int64_t& het) {
  for (std::int64_t j = 0; j < m; ++j) {
    const T g = row[j];
    if (g == 0 || g == 1 || g == 2) ++counts[static_cast<std::size_t>(3 * j + static_cast<std::int64_t>(g))];
    present += g != genotype_missing;
    het += g == 1;
  }
}

double share(std::int64_t part, std::int64_t whole) {
  return whole > 0 ? static_cast<double>(part) / static_cast<double>(whole) : 0.0;
}
}  // namespace

void write_hete_counts(const GenotypeMatrix& M, const std::string& snp_file, const std::string& anim_file) {
  const std::int64_t n = M.rows(), m = M.cols();
  std::vector<std::int64_t> counts(static_cast<std::size_t>(3 * m), 0);  // genotypes 0, 1, 2 per SNP
  std::ofstream fa;
  open_output(fa, anim_file);
  for (std::int64_t i = 1; i <= n; ++i) {
    std::int64_t present = 0, het = 0;
    if (const std::int8_t* r = M.codes_row(i)) hete_row(r, m, counts, present, het);
    else hete_row(M.reals_row(i), m, counts, present, het);
    fa << free_format(i, present, het, share(het, present)) << '\n';
  }
  std::ofstream fs;
  open_output(fs, snp_file);
  for (std::int64_t j = 0; j < m; ++j) {
    const std::int64_t* k = &counts[static_cast<std::size_t>(3 * j)];
    fs << free_format(j + 1, k[0], k[1], k[2], share(k[1], k[0] + k[1] + k[2])) << '\n';
  }
}

void write_freqdata_count() { genomic.freq = write_freqdata_count(genomic.M, "freqdata.count", genomic.opt.msg).freq; }

void write_hete_files() {
  if (genomic.opt.hete) write_hete_counts(genomic.M, "hete.count", "hete.count.anim");
}

// ---- Weight file -------------------------------------------------------------------------------

Array1<double> read_weights(std::istream& unit, std::string_view name, std::int64_t nsnp) {
  std::vector<double> w;
  std::string line;
  float x[1];
  while (std::getline(unit, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::int32_t m = 0;
    nums2(line, m);
    if (m == 0) continue;
    if (static_cast<std::int64_t>(w.size()) >= nsnp) stop(free_format("More rows in weigth file than the number of SNP"));
    if (m > 1) stop(free_format(" multiple trait analysis with weights not yet implemented"));
    nums2(line, m, std::span<float>(x));
    w.push_back(x[0]);
  }
  const auto count = static_cast<std::int64_t>(w.size());
  print_free("Read", count, "weights (D) from file: ", name);
  if (count != nsnp) stop(free_format(" Number of rows in the weight file not match the number of SNP: ", count, nsnp));
  Array1<double> r(count);
  std::copy(w.begin(), w.end(), r.begin());
  return r;
}

void read_weight_file() {
  std::ifstream unit;
  open_input(unit, genomic.opt.weight_file);
  genomic.D = read_weights(unit, genomic.opt.weight_file, genomic.nsnp);
}

// ---- Files ------------------------------------------------------------------------------------

void open_input(std::ifstream& unit, const std::string& name) {
  unit.open(name);
  if (!unit) stop(free_format("Error in open \"", name, "\" file not exist"));
}

}  // namespace mmekit
