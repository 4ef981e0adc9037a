// Diagnostics: files read back by the programs they are meant for (Graphviz dot, netpbm), the
// printouts with their exact words, the dumps read back as framed records.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/diagnostics.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using namespace mmekit::test;

namespace {

// The numbers of a plain netpbm picture after its magic number: width, height, [maxval,] pixels.
// A bitmap's pixels are digits that may touch each other.
std::vector<long> read_plain(const std::string& command) {
  int status = 0;
  std::istringstream in(command_output(command, status));
  EXPECT_EQ(status, 0) << command << ": the reader is missing or refused the file";
  std::string magic;
  long w = 0, h = 0;
  in >> magic >> w >> h;
  std::vector<long> v{w, h};
  for (char c; magic == "P1" && in >> c;) v.push_back(c - '0');
  for (long x; in >> x;) v.push_back(x);
  return v;
}

// A symmetric pattern as a dense 0/1 matrix and its upper triangle.
densem pattern(std::int32_t n, const std::vector<std::pair<int, int>>& off) {
  densem d(n, 0.0);
  for (std::int32_t i = 1; i <= n; ++i) d(i, i) = 1;
  for (auto [i, j] : off) d(i, j) = d(j, i) = 1;
  return d;
}

// Entries and cells of the k-by-k square (pr, pc), from 0.
std::pair<int, int> square(const densem& d, int k, int pr, int pc) {
  int e = 0, cells = 0;
  for (std::int64_t i = pr * k + 1; i <= std::min<std::int64_t>((pr + 1) * k, d.order()); ++i)
    for (std::int64_t j = pc * k + 1; j <= std::min<std::int64_t>((pc + 1) * k, d.order()); ++j) ++cells, e += d(i, j) != 0;
  return {e, cells};
}

const std::vector<std::vector<std::string>> kPaletteTable = {
    {"#ffffff", "#ffffff", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000", "#000000"},
    {"#ffffff", "#ffffff", "#777777", "#777777", "#777777", "#777777", "#777777", "#777777", "#333333", "#333333", "#333333", "#333333", "#000000"},
    {"#ffffff", "#ffffff", "#eeeeee", "#bbbbbb", "#999999", "#777777", "#666666", "#555555", "#444444", "#333333", "#222222", "#111111", "#000000"},
    {"#ffffff", "#ffffff", "#eaeff9", "#d3def1", "#a3bce2", "#88abda", "#6c9bd2", "#187fc4", "#0068b7", "#0062ac", "#004077", "#003567", "#000000"}};

Array1<std::int32_t> arr(const std::vector<std::int32_t>& v) {
  Array1<std::int32_t> a(static_cast<std::int64_t>(v.size()));
  std::copy(v.begin(), v.end(), a.begin());
  return a;
}

std::string printed(const std::function<void()>& f) {
  CaptureOutput cap;
  f();
  return cap.text();
}

}  // namespace

TEST(SkeldaDiagnostics, TreeFileIsReadByDot) {
  const Array1<std::int32_t> parent = arr({3, 3, 7, 6, 6, 7, 0});
  write_tree_dot("tree.dot   and more", 7, parent, 11);  // the name is "tree.dot"
  int status = 0;
  std::istringstream plain(command_output("dot -Tplain tree.dot", status));
  ASSERT_EQ(status, 0) << "Graphviz dot is missing or refused the file";
  std::set<std::pair<int, int>> edges;
  std::string kind;
  for (int tail, head; plain >> kind;)
    if (kind == "edge" && plain >> tail >> head) edges.insert({tail, head});
  EXPECT_EQ(edges, (std::set<std::pair<int, int>>{{1, 3}, {2, 3}, {3, 7}, {4, 6}, {5, 6}, {6, 7}}));
  write_tree_dot("empty.dot", 0, parent, 9);
  EXPECT_EQ(read_file("empty.dot"), "digraph tree {\n  graph [rankdir = BT]\n}\n");
  command_output("dot -Tplain empty.dot", status);
  EXPECT_EQ(status, 0);
}

TEST(SkeldaDiagnostics, TreeStatisticsAndTheWalkersStops) {
  // Roots 7, 8, 10; the chains 3-2-1 and 10-9 have single children; widths from xsuper.
  const auto xsuper = arr({1, 2, 4, 5, 6, 8, 9, 12, 13, 14, 16});
  EXPECT_EQ(printed([&] { tree_statistics(10, arr({2, 3, 7, 6, 6, 7, 0, 0, 10, 0}), xsuper); }),
            "Tree Statistics:\nLevels: 4\n  level  1 3 6\n  level  2 3 3\n  level  3 3 5\n  level  4 1 1\n"
            "  Total: 10 15\nExample node= 1\ndfs group 1 7\n one child: 1 3 3\ndfs group 2 8\n"
            "dfs group 3 10\n one child: 9 10 2\n");
  expect_stop([&] { tree_statistics(4, arr({1, 3, 4, 0}), xsuper); }, "ERROR: The tree is not postordered.");
  expect_stop([&] { tree_statistics(4, arr({9, 3, 4, 0}), xsuper); }, "ERROR: Unprocessed nodes are found.");
  expect_stop([&] { tree_statistics(4, arr({3, 4, 4, 0}), xsuper); }, "ERROR: The first node of a group is not found.");

  Array1<std::int32_t> x(31);
  std::iota(x.begin(), x.end(), 1);
  std::string row;
  for (int s = 1; s <= 30; ++s) row += (s < 10 ? "  " : " ") + std::to_string(s);
  EXPECT_EQ(printed([&] { print_supernodes(30, x); }), "SuperNodes:\n" + row + "\n 31\n");
}

TEST(SkeldaDiagnostics, BitmapIsReadByNetpbmWithPaddingOnlyInTheLastByte) {
  const densem d = pattern(9, {{1, 2}, {1, 9}, {2, 5}, {3, 8}, {4, 6}, {6, 9}, {7, 8}});
  const sparse_ija m = upper_ija(d);
  for (int pixels : {8, 4}) {  // squares of one cell (9 pixels wide), of two cells (5 wide)
    const int k = pixels == 8 ? 1 : 2, side = (9 + k - 1) / k;
    write_sparse_xbm("m.xbm", 9, m.ia, m.ja, pixels);
    const std::string text = read_file("m.xbm"), w = std::to_string(side);
    EXPECT_EQ(text.find("#define sparse_width " + w + "\n#define sparse_height " + w + "\nstatic unsigned sparse_bits[] = {\n"), 0u);
    // netpbm insists on "unsigned char" in the declaration; the rest goes to it as written.
    const std::vector<long> pic = read_plain("sed 's/^static unsigned /&char /' m.xbm | xbmtopbm | pamtopnm -plain");
    ASSERT_EQ(pic.size(), 2u + side * side);
    for (int r = 0; r < side; ++r)
      for (int c = 0; c < side; ++c) EXPECT_EQ(pic[2 + r * side + c], square(d, k, r, c).first > 0 ? 1 : 0) << r << "," << c;
    if (pixels != 8) continue;
    std::vector<unsigned> bytes;  // two bytes a row; the second holds pixel 9 alone
    for (std::size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 1))
      bytes.push_back(static_cast<unsigned>(std::stoul(text.substr(at + 2, 2), nullptr, 16)));
    ASSERT_EQ(bytes.size(), 18u);
    for (int r = 0; r < 9; ++r) EXPECT_LE(bytes[2 * r + 1], 1u) << r;
  }
}

TEST(SkeldaDiagnostics, PixmapColoursFollowTheDensity) {
  for (int p = 1; p <= 4; ++p)
    for (int k = 0; k < 13; ++k) EXPECT_EQ(pixmap_colour(static_cast<PixmapPalette>(p), k), kPaletteTable[p - 1][k]) << p << " " << k;
  // 40 by 40 in squares of 10 cells: full (0,0), 5 entries in (3,0), a diagonal (1,1), empty (2,0).
  std::vector<std::pair<int, int>> off;
  for (int i = 1; i <= 10; ++i)
    for (int j = i + 1; j <= 10; ++j) off.push_back({i, j});
  for (int i = 1; i <= 5; ++i) off.push_back({i, 30 + i});
  for (int i = 21; i <= 40; ++i)
    for (int j = i + 1; j <= 40; j += 3) off.push_back({i, j});
  const densem d = pattern(40, off);
  const sparse_ija m = upper_ija(d);
  write_sparse_xpm("m.xpm", 40, m.ia, m.ja, 4, PixmapPalette::blue);
  const std::string text = read_file("m.xpm");
  const std::string head = "/* XPM */\nstatic char sparse_density[] = {\n\"4 4 13 1\",\n\"  c #ffffff\",\n\"- c #ffffff\",\n";
  EXPECT_EQ(text.substr(0, head.size()), head);
  EXPECT_NE(text.find("\"*  -\",\n\" 1  \",\n"), std::string::npos);  // the first two rows
  EXPECT_NE(text.find("\"-"), std::string::npos);
  const std::vector<long> pic = read_plain("xpmtoppm m.xpm | pamtopnm -plain");
  ASSERT_EQ(pic.size(), 3u + 16 * 3);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      const auto [e, cells] = square(d, 10, r, c);
      const double density = static_cast<double>(e) / cells;
      const int symbol = e == 0 ? 0 : e == cells ? 12 : density < 0.1 ? 1 : 2 + static_cast<int>(density * 10 + 1e-9);
      char rgb[8];
      std::snprintf(rgb, sizeof rgb, "#%02lx%02lx%02lx", pic[3 + 3 * (4 * r + c)], pic[4 + 3 * (4 * r + c)], pic[5 + 3 * (4 * r + c)]);
      EXPECT_EQ(rgb, kPaletteTable[3][symbol]) << r << "," << c;
    }
}

// Two supernodes: columns 1-2 with row 4 below, columns 3-5 (positions 1-6 and 7-15).
TEST(SkeldaDiagnostics, InverseDumpAndFactorCheckFindThePermutedPlaces) {
  HandFactor h = hand_factor(5, {1, 3}, {{4}, {}}, 256);
  for (std::int64_t p = 1; p <= h.lnz.size(); ++p) h.lnz(p) = 100 + p;
  const Array1<std::int32_t> iperm = arr({2, 1, 3, 5, 4});
  sparse_ija m = upper_ija(pattern(5, {{1, 2}, {2, 4}, {3, 5}}));
  for (int k = 1; k <= m.nel; ++k) m.a(k) = 1.5 * k;
  dump_spinv(5, m.ia, m.ja, m.a, h.layout(), iperm, h.lnz);
  // Entries (1,1) (1,2) (2,2) (2,4) (3,3) (3,5) (4,4) (5,5) sit at (2,2) (2,1) (1,1) (5,1: none) (3,3) (4,3) (5,5) (4,4).
  const std::vector<std::int64_t> positions{4, 2, 1, 0, 7, 8, 15, 11};
  FramedReader f3("spinv.out3"), f4("spinv.out4"), f5("spinv.out5"), f6("spinv.out6"), fp("spinv.pos");
  auto next = [](FramedReader& f, auto v) { EXPECT_EQ(f.read(v), FramedStatus::ok); return v; };
  using I4 = std::vector<std::int32_t>;
  using I8 = std::vector<std::int64_t>;
  std::vector<double> values(m.a.begin(), m.a.end()), elements;
  for (std::int64_t p : positions) elements.push_back(p ? 100.0 + p : 0.0);
  EXPECT_EQ(next(f3, std::vector<double>(8)), values);
  EXPECT_EQ(next(f4, std::vector<double>(8)), elements);
  EXPECT_EQ(next(f5, I4(3)), (I4{5, 8, -1}));
  EXPECT_EQ(next(f5, I4(16)), (I4{2, 2, 2, 1, 1, 1, 5, 1, 3, 3, 4, 3, 5, 5, 4, 4}));
  EXPECT_EQ(next(f6, I4(3)), (I4{15, 8, -1}));
  EXPECT_EQ(next(f6, I8(8)), positions);
  for (const I8& row : {I8{4, 2}, I8{1, 0}, I8{7, 8}, I8{15}, I8{11}}) EXPECT_EQ(next(fp, I8(row.size())), row);

  // The check after loading: silent but for the end; then a changed element and one without a place.
  sparse_ija fits = upper_ija(pattern(5, {{1, 2}, {3, 5}}));
  for (int k = 1; k <= fits.nel; ++k) fits.a(k) = 0.5 * k;
  Array1<std::int32_t> cflag(5, 0);
  ASSERT_EQ(load_matrix(5, fits.ia, fits.ja, fits.a, iperm, h.layout(), h.lnz, cflag), 0);
  EXPECT_EQ(printed([&] { check_factor_against_matrix(5, fits.ia, fits.ja, fits.a, h.layout(), iperm, h.lnz); }), "check: done.\n");
  h.lnz(8) = 0.25;  // (4,3), the entry (3,5) of value 2.5
  EXPECT_EQ(printed([&] { check_factor_against_matrix(5, fits.ia, fits.ja, fits.a, h.layout(), iperm, h.lnz); }),
            "different values between L and A: 0.25 2.5; ii,jj(IJA)= 3 5;  i,j(FACT)= 4 3\ncheck: done.\n");
  Array1<double> a8(8, 0.0);
  a8(4) = 2.0;  // entry (2,4), at (5,1), which has no place
  EXPECT_NE(printed([&] { check_factor_against_matrix(5, m.ia, m.ja, a8, h.layout(), iperm, h.lnz); })
                .find("different values between L and A: 0.0 2.0; ii,jj(IJA)= 2 4;  i,j(FACT)= 5 1\n"),
            std::string::npos);
}

TEST(SkeldaDiagnostics, BlockPrintoutsShowPlacesAndValues) {
  // One root of width 5 in panels of 2: three block columns at offsets 0, 12, 20, heights 6, 4, 2.
  HandFactor panel = hand_factor(5, {1}, {{}}, 2);
  for (std::int64_t p = 1; p <= panel.lnz.size(); ++p) panel.lnz(p) = p / 10.0;
  const std::string diag = printed([&] { print_diagonal_blocks(panel.layout(), panel.lnz, 1); });
  EXPECT_EQ(diag.substr(0, diag.find("D nt", 1)),
            "D nt,nb= 2 2;  SN= 1;  jfst-jlst 1 2;  BI,BJ= 1 1;  posT= 1\n  0.10\n  0.20  0.80\n");
  EXPECT_NE(diag.find("D nt,nb= 2 2;  SN= 1;  jfst-jlst 5 5;  BI,BJ= 3 3;  posT= 21\n  2.10\n  2.20  2.40\n"), std::string::npos);
  const std::string below = printed([&] { print_panel_blocks(panel.layout(), panel.lnz, 1); });
  EXPECT_EQ(below.substr(0, below.find("T nt", 1)),
            "T nt,nb= 2 2;  SN= 1;  jfst-jlst 1 2;  BI,BJ= 2 1;  posT= 3\n  0.30  0.90\n  0.40  1.00\n");
  EXPECT_NE(below.find("BI,BJ= 3 2;  posT= 15\n  1.50  1.90\n"), std::string::npos);

  HandFactor normal = hand_factor(5, {1, 3}, {{4}, {}}, 256);
  for (std::int64_t p = 1; p <= normal.lnz.size(); ++p) normal.lnz(p) = -p;
  EXPECT_EQ(printed([&] { print_row_block(normal.layout(), normal.lnz, 1); }),
            "B nt,nb= 1 2;  SN= 1;  jfst-jlst 1 2;  posB= 5\n -5.00 -6.00\n");
  EXPECT_EQ(printed([&] { print_panel_blocks(normal.layout(), normal.lnz, 1); }), "");
  const double block[6] = {1.5, -0.25, 2, 3, 10, 0};
  EXPECT_EQ(printed([&] { print_dense_block(block, 2, 3, 2); }), "   1.50000   2.00000  10.00000\n  -0.25000   3.00000   0.00000\n");
}
