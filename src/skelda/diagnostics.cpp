// Diagnostics of the supernodal solver.
#include "mmekit/skelda/diagnostics.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/support/units.hpp"

namespace mmekit {

namespace {

// A text file on the first free unit from 10 to 1000; null when none is free or the file
// cannot be made. The unit is closed by the guard.
struct TextUnit {
  std::int32_t unit = -1;
  std::fstream* stream = nullptr;
  explicit TextUnit(const std::string& file) {
    unit = units.first_free(10, 1000);
    if (unit < 0 || !units.open(unit, file, true, "replace")) {
      unit = -1;
      return;
    }
    stream = units.text(unit);
  }
  ~TextUnit() {
    if (unit >= 0) units.close(unit);
  }
  TextUnit(const TextUnit&) = delete;
  TextUnit& operator=(const TextUnit&) = delete;
};

// ---------------------------------------------------------------------------------------------
// Pictures.

// Entries per pixel square of a symmetric matrix given by its upper triangle.
struct Picture {
  std::int64_t k = 1, side = 0;
  std::vector<std::int64_t> count;  // side*side, row-major
  std::int64_t cells(std::int64_t pr, std::int64_t pc, std::int64_t n) const {
    auto extent = [&](std::int64_t p) { return std::min(k, n - p * k); };
    return extent(pr) * extent(pc);
  }
};

Picture shrink(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, std::int32_t pixels) {
  Picture pic;
  pic.k = std::max<std::int64_t>(1, n / pixels);
  pic.side = (n + pic.k - 1) / pic.k;
  pic.count.assign(static_cast<std::size_t>(pic.side * pic.side), 0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t e = ia(i); e < ia(i + 1); ++e) {
      const std::int64_t j = ja(e);
      if (j < 1 || j > n) continue;
      const std::int64_t pi = (i - 1) / pic.k, pj = (j - 1) / pic.k;
      ++pic.count[static_cast<std::size_t>(pi * pic.side + pj)];
      if (j != i) ++pic.count[static_cast<std::size_t>(pj * pic.side + pi)];
    }
  return pic;
}

constexpr std::array<std::array<const char*, 13>, 4> kPalettes = {{
    {"#ffffff", "#ffffff", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000",
     "#000000", "#000000", "#000000", "#000000"},
    {"#ffffff", "#ffffff", "#777777", "#777777", "#777777", "#777777", "#777777", "#777777", "#333333",
     "#333333", "#333333", "#333333", "#000000"},
    {"#ffffff", "#ffffff", "#eeeeee", "#bbbbbb", "#999999", "#777777", "#666666", "#555555", "#444444",
     "#333333", "#222222", "#111111", "#000000"},
    {"#ffffff", "#ffffff", "#eaeff9", "#d3def1", "#a3bce2", "#88abda", "#6c9bd2", "#187fc4", "#0068b7",
     "#0062ac", "#004077", "#003567", "#000000"},
}};
constexpr char kSymbols[] = " -0123456789*";

// Symbol number of a pixel with `entries` entries in `cells` cells.
int density_symbol(std::int64_t entries, std::int64_t cells) {
  if (entries <= 0) return 0;
  if (entries >= cells) return 12;
  if (entries * 10 < cells) return 1;
  return 2 + static_cast<int>(entries * 10 / cells);
}

// ---------------------------------------------------------------------------------------------
// The positions of the entries of a matrix in the factor.

struct EntryPlace {
  std::int32_t r = 0, c = 0;
  std::int64_t position = 0;
};

EntryPlace place_of(const Sx2Layout& layout, const Array1<std::int32_t>& iperm, std::int32_t i, std::int32_t j) {
  EntryPlace p;
  if (i < 1 || j < 1 || i > iperm.size() || j > iperm.size()) return p;
  const std::int32_t a = iperm(i), b = iperm(j);
  p.r = std::max(a, b), p.c = std::min(a, b);
  if (p.c >= 1 && p.c <= layout.n && layout.snode) p.position = sx2_element_position(layout, (*layout.snode)(p.c), p.r, p.c);
  return p;
}

double value_at(const Array1<double>& lnz, std::int64_t position) {
  return position >= 1 && position <= lnz.size() ? lnz(position) : 0.0;
}

// Prints one block of lnz: header fields, then rows of F6.2 (the lower triangle of a square
// diagonal block when `lower`).
void print_block(const Array1<double>& lnz, std::int64_t position, std::int64_t rows, std::int64_t cols,
                 std::int64_t ld, bool lower) {
  for (std::int64_t r = 1; r <= rows; ++r) {
    const std::int64_t m = lower ? std::min(r, cols) : cols;
    FormatList items;
    for (std::int64_t c = 1; c <= m; ++c) items.add(value_at(lnz, position + (c - 1) * ld + (r - 1)));
    out() << Format("(" + std::to_string(std::max<std::int64_t>(m, 1)) + "F6.2)").write(items);
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------

void write_tree_dot(std::string_view file, std::int32_t n, const Array1<std::int32_t>& parent, std::int32_t filelen) {
  std::string name(file.substr(0, static_cast<std::size_t>(std::clamp<std::int64_t>(filelen, 0, file.size()))));
  while (!name.empty() && name.back() == ' ') name.pop_back();
  TextUnit f(name);
  if (!f.stream) return;
  std::ostream& o = *f.stream;
  o << "digraph tree {\n  graph [rankdir = BT]\n";
  for (std::int32_t i = 1; i <= n; ++i)
    if (parent(i) > 0) o << "  " << i << " -> " << parent(i) << ";\n";
  o << "}\n";
}

void tree_statistics(std::int32_t nsn, const Array1<std::int32_t>& parent, const Array1<std::int32_t>& xsuper) {
  const auto size = static_cast<std::size_t>(std::max(nsn, 0)) + 1;
  std::vector<std::int32_t> first_child(size, 0), next_sibling(size, 0), level(size, 0), children(size, 0);
  for (std::int32_t s = 1; s <= nsn; ++s)
    if (const std::int32_t p = parent(s); p >= 1 && p <= s) stop("ERROR: The tree is not postordered.");
  for (std::int32_t s = nsn; s >= 1; --s)
    if (const std::int32_t p = parent(s); p > s && p <= nsn) {
      next_sibling[s] = first_child[p];
      first_child[p] = s;
      ++children[p];
    }
  // Levels by a depth-first walk from each root; a parent is always reached before its child.
  std::vector<std::int32_t> roots, stack;
  std::int32_t reached = 0, levels = 0;
  for (std::int32_t s = 1; s <= nsn; ++s)
    if (parent(s) == 0) roots.push_back(s);
  for (std::int32_t r : roots) {
    level[r] = 1;
    stack.push_back(r);
    while (!stack.empty()) {
      const std::int32_t t = stack.back();
      stack.pop_back();
      ++reached;
      levels = std::max(levels, level[t]);
      for (std::int32_t c = first_child[t]; c != 0; c = next_sibling[c]) {
        level[c] = level[t] + 1;
        stack.push_back(c);
      }
    }
  }
  if (reached != nsn) stop("ERROR: Unprocessed nodes are found.");

  std::vector<std::int64_t> nodes(static_cast<std::size_t>(levels) + 1, 0), widths(nodes.size(), 0);
  std::int64_t total_width = 0;
  std::int32_t example = 0;
  for (std::int32_t s = 1; s <= nsn; ++s) {
    const std::int64_t w = static_cast<std::int64_t>(xsuper(s + 1)) - xsuper(s);
    ++nodes[level[s]];
    widths[level[s]] += w;
    total_width += w;
    if (level[s] == levels && example == 0) example = s;
  }
  std::ostream& o = out();
  o << "Tree Statistics:\n";
  o << "Levels:" << free_format(levels) << '\n';
  for (std::int32_t l = 1; l <= levels; ++l)
    o << "  level " << free_format(l, nodes[l], widths[l]) << '\n';
  o << "  Total:" << free_format(nsn, total_width) << '\n';
  o << "Example node=" << free_format(example) << '\n';

  // Chains of single children, root by root in depth-first order (first child, next sibling).
  std::int32_t group = 0;
  for (std::int32_t r : roots) {
    o << "dfs group" << free_format(++group, r) << '\n';
    stack.assign(1, r);
    while (!stack.empty()) {
      const std::int32_t t = stack.back();
      stack.pop_back();
      for (std::int32_t c = first_child[t]; c != 0; c = next_sibling[c]) stack.push_back(c);
      const bool chain_top = children[t] == 1 && !(parent(t) > 0 && children[parent(t)] == 1);
      if (!chain_top) continue;
      std::int32_t bottom = t, length = 1;
      while (children[bottom] == 1) bottom = first_child[bottom], ++length;
      // In a postorder the chain is t, t-1, ..., its first node t-length+1.
      std::int32_t first = t;
      for (std::int32_t k = 1; k < length && first > 1 && parent(first - 1) == first; ++k) --first;
      if (first != bottom || t - first + 1 != length) stop("ERROR: The first node of a group is not found.");
      o << " one child:" << free_format(first, t, length) << '\n';
    }
  }
}

void print_supernodes(std::int32_t nsn, const Array1<std::int32_t>& xsuper) {
  FormatList items;
  for (std::int64_t s = 1; s <= static_cast<std::int64_t>(nsn) + 1; ++s) items.add(xsuper(s));
  out() << "SuperNodes:\n" << Format("(30I3)").write(items);
}

std::string_view pixmap_colour(PixmapPalette palette, int k) {
  const int p = std::clamp(static_cast<int>(palette), 1, 4) - 1;
  return kPalettes[static_cast<std::size_t>(p)][static_cast<std::size_t>(std::clamp(k, 0, 12))];
}

void write_sparse_xbm(std::string_view file, std::int32_t n, const Array1<std::int32_t>& ia,
                      const Array1<std::int32_t>& ja, std::int32_t pixels) {
  if (n < 1 || pixels < 1) return;
  const Picture pic = shrink(n, ia, ja, pixels);
  TextUnit f{std::string(file)};
  if (!f.stream) return;
  std::ostream& o = *f.stream;
  o << "#define sparse_width " << pic.side << "\n#define sparse_height " << pic.side << '\n';
  o << "static unsigned sparse_bits[] = {\n";
  const std::int64_t bytes_per_row = (pic.side + 7) / 8;
  std::vector<std::string> bytes;
  for (std::int64_t pr = 0; pr < pic.side; ++pr)
    for (std::int64_t b = 0; b < bytes_per_row; ++b) {
      std::string digits = "00000000";  // digit t is pixel 8b+t, the least significant bit first
      for (std::int64_t t = 0; t < 8 && 8 * b + t < pic.side; ++t)
        if (pic.count[static_cast<std::size_t>(pr * pic.side + 8 * b + t)] > 0) digits[static_cast<std::size_t>(t)] = '1';
      unsigned value = 0;
      for (int t = 7; t >= 0; --t) value = value * 2 + (digits[static_cast<std::size_t>(t)] == '1' ? 1u : 0u);
      char hex[8];
      std::snprintf(hex, sizeof hex, "0x%02x", value);
      bytes.emplace_back(hex);
    }
  for (std::size_t k = 0; k < bytes.size(); ++k) {
    o << (k % 12 == 0 ? "   " : " ") << bytes[k];
    if (k + 1 < bytes.size()) o << ',';
    if (k % 12 == 11 || k + 1 == bytes.size()) o << '\n';
  }
  o << "};\n";
}

void write_sparse_xpm(std::string_view file, std::int32_t n, const Array1<std::int32_t>& ia,
                      const Array1<std::int32_t>& ja, std::int32_t pixels, PixmapPalette palette) {
  if (n < 1 || pixels < 1) return;
  const Picture pic = shrink(n, ia, ja, pixels);
  TextUnit f{std::string(file)};
  if (!f.stream) return;
  std::ostream& o = *f.stream;
  o << "/* XPM */\nstatic char sparse_density[] = {\n";
  o << '"' << pic.side << ' ' << pic.side << " 13 1\",\n";
  for (int k = 0; k < 13; ++k) o << '"' << kSymbols[k] << " c " << pixmap_colour(palette, k) << "\",\n";
  std::string row;
  for (std::int64_t pr = 0; pr < pic.side; ++pr) {
    row.clear();
    for (std::int64_t pc = 0; pc < pic.side; ++pc)
      row += kSymbols[density_symbol(pic.count[static_cast<std::size_t>(pr * pic.side + pc)], pic.cells(pr, pc, n))];
    o << '"' << row << '"' << (pr + 1 < pic.side ? ",\n" : "\n");
  }
  o << "};\n";
}

void dump_spinv(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                const Array1<double>& a, const Sx2Layout& layout, const Array1<std::int32_t>& iperm,
                const Array1<double>& lnz) {
  static constexpr const char* kFiles[5] = {"spinv.out3", "spinv.out4", "spinv.out5", "spinv.out6", "spinv.pos"};
  bool opened = true;
  for (int k = 0; k < 5; ++k) opened = units.open(123 + k, kFiles[k], false, "replace") && opened;
  if (opened) {
    const std::int64_t nnz = static_cast<std::int64_t>(ia(n + 1)) - 1;
    std::vector<double> values, elements;
    std::vector<std::int32_t> pairs;
    std::vector<std::int64_t> positions, row_positions;
    values.reserve(static_cast<std::size_t>(nnz)), elements.reserve(values.capacity());
    positions.reserve(values.capacity()), pairs.reserve(2 * values.capacity());
    for (std::int32_t i = 1; i <= n; ++i) {
      row_positions.clear();
      for (std::int64_t e = ia(i); e < ia(i + 1); ++e) {
        const EntryPlace p = place_of(layout, iperm, i, ja(e));
        values.push_back(a(e));
        elements.push_back(value_at(lnz, p.position));
        pairs.push_back(p.r), pairs.push_back(p.c);
        positions.push_back(p.position);
        row_positions.push_back(p.position);
      }
      units.write_record(127, row_positions);
    }
    const auto count = static_cast<std::int32_t>(std::min<std::int64_t>(nnz, 2147483647));
    const auto lnz_length = static_cast<std::int32_t>(std::min<std::int64_t>(lnz.size(), 2147483647));
    units.write_record(123, values);
    units.write_record(124, elements);
    units.write_record(125, n, count, std::int32_t{-1});
    units.write_record(125, pairs);
    units.write_record(126, lnz_length, count, std::int32_t{-1});
    units.write_record(126, positions);
  }
  for (int k = 0; k < 5; ++k)
    if (units.name(123 + k) == kFiles[k]) units.close(123 + k);
}

void check_factor_against_matrix(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                                 const Array1<double>& a, const Sx2Layout& layout,
                                 const Array1<std::int32_t>& iperm, const Array1<double>& lnz) {
  std::ostream& o = out();
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t e = ia(i); e < ia(i + 1); ++e) {
      const EntryPlace p = place_of(layout, iperm, i, ja(e));
      const double l = value_at(lnz, p.position);
      if (p.position >= 1 && l == a(e)) continue;
      o << "different values between L and A:" << free_format(l, a(e)) << "; ii,jj(IJA)=" << free_format(i, ja(e))
        << ";  i,j(FACT)=" << free_format(p.r, p.c) << '\n';
    }
  o << "check: done.\n";
}

namespace {
// The heading of a block of the diagonal part ("D") or of a panel below it ("T"): its sizes, the
// supernode, the columns it covers, the block indices and its position in lnz.
void block_heading(char kind, std::int64_t nt, std::int64_t nb, std::int32_t s, std::int64_t jfirst,
                   std::int64_t jlast, std::int64_t bi, std::int64_t bj, std::int64_t pos) {
  out() << kind << " nt,nb=" << free_format(nt, nb) << ";  SN=" << free_format(s) << ";  jfst-jlst"
        << free_format(jfirst, jlast) << ";  BI,BJ=" << free_format(bi, bj) << ";  posT=" << free_format(pos) << '\n';
}
}  // namespace

void print_diagonal_blocks(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s) {
  const std::int64_t w = layout.width(s), first = layout.first(s), p = layout.panel;
  if (!layout.panel_form(s)) {
    block_heading('D', w, w, s, first, first + w - 1, 1, 1, (*layout.xlnz)(s));
    print_block(lnz, (*layout.xlnz)(s), w, w, w, true);
    return;
  }
  const std::int64_t nb = sx2_blocks(w, p);
  for (std::int64_t j = 1; j <= nb; ++j) {
    const std::int64_t pos = layout.diag_position(s, (j - 1) * p + 1, (j - 1) * p + 1);
    block_heading('D', p, p, s, first + (j - 1) * p, std::min(first + j * p, first + w) - 1, j, j, pos);
    print_block(lnz, pos, p, p, (nb - j + 1) * p, true);
  }
}

void print_panel_blocks(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s) {
  if (!layout.panel_form(s)) return;
  const std::int64_t w = layout.width(s), first = layout.first(s), p = layout.panel, nb = sx2_blocks(w, p);
  for (std::int64_t j = 1; j <= nb; ++j)
    for (std::int64_t i = j + 1; i <= nb; ++i) {
      const std::int64_t pos = layout.diag_position(s, (i - 1) * p + 1, (j - 1) * p + 1);
      block_heading('T', p, p, s, first + (j - 1) * p, std::min(first + j * p, first + w) - 1, i, j, pos);
      print_block(lnz, pos, p, p, (nb - j + 1) * p, false);
    }
}

void print_row_block(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s) {
  if (layout.panel_form(s)) return;
  const std::int64_t w = layout.width(s), m = layout.rows_below(s), first = layout.first(s);
  const std::int64_t pos = (*layout.xlnz)(s) + w * w;
  out() << "B nt,nb=" << free_format(m, w) << ";  SN=" << free_format(s) << ";  jfst-jlst"
        << free_format(first, first + w - 1) << ";  posB=" << free_format(pos) << '\n';
  print_block(lnz, pos, m, w, std::max<std::int64_t>(m, 1), false);
}

void print_dense_block(const double* a, std::int64_t rows, std::int64_t cols, std::int64_t ld) {
  if (rows < 1 || cols < 1) return;
  const Format row_format("(" + std::to_string(std::min<std::int64_t>(cols, 100)) + "F10.5)");
  FormatList items;
  for (std::int64_t r = 0; r < rows; ++r) {
    items.clear();
    for (std::int64_t c = 0; c < cols; ++c) items.add(a[r + c * ld]);
    out() << row_format.write(items);
  }
}

}  // namespace mmekit
