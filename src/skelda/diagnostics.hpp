// Diagnostics of the supernodal solver: the elimination tree as a Graphviz dot file, tree
// statistics, the supernode listing, sparsity pictures (X bitmap and X pixmap), raw dumps of
// the inverse, a check of the loaded factor against the matrix, and printouts of the stored
// blocks of a supernode.
//
// All take their data explicitly (arrays 1-based; a factor through an Sx2Layout view and its
// lnz), so they work on skelda_state (skelda_layout() in symbolic.hpp) as well as on a copy.
// Matrices are the upper triangle in row-compressed form, as skeldatask takes them. Files are
// opened through the unit table (units.hpp); a file that cannot be opened is silently skipped.
// Printouts go to the run's output. Errors of the tree walker stop the run.
#pragma once

#include <cstdint>
#include <string_view>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The tree given by `parent` (parent(i) of node i, 0 or less for none) in the dot language:
// "digraph tree {", "  graph [rankdir = BT]", a line "  i -> parent(i);" for each node with a
// parent, "}". The file name is the first `filelen` characters of `file` without trailing
// blanks; it is written on the first free unit from 10 to 1000, created or replaced.
void write_tree_dot(std::string_view file, std::int32_t n, const Array1<std::int32_t>& parent,
                    std::int32_t filelen);

// Statistics of a supernodal tree (`parent` of nsn nodes, 0 for a root; the width of node s is
// xsuper(s+1)-xsuper(s)), printed:
//   "Tree Statistics:", "Levels:" and the number of levels (a root is on level 1), a line
//   "  level " per level with the level, its number of nodes and the sum of their widths,
//   "  Total:" with both totals, "Example node=" with the lowest-numbered node of the deepest
//   level; then per root, ascending, "dfs group" with the group's number and its root, and for
//   each chain of nodes with a single child each " one child:" with the chain's first (lowest)
//   and last node and its length.
// The walk demands a postordered tree and stops the run with
//   "ERROR: The tree is not postordered."     when a parent does not come after its child;
//   "ERROR: Unprocessed nodes are found."     when a node cannot be reached from a root (a
//                                             parent beyond nsn or negative);
//   "ERROR: The first node of a group is not found."  when a chain does not occupy consecutive
//                                             numbers, as it does in a postorder.
void tree_statistics(std::int32_t nsn, const Array1<std::int32_t>& parent, const Array1<std::int32_t>& xsuper);

// "SuperNodes:" and xsuper(1..nsn+1) in format (30I3).
void print_supernodes(std::int32_t nsn, const Array1<std::int32_t>& xsuper);

// Sparsity pictures of a symmetric matrix of order n given by its upper triangle (both
// triangles are drawn). Each pixel covers a square of k by k cells, k = max(1, n / pixels)
// (integer division), so the picture is ceil(n / k) pixels wide and high; squares at the right
// and bottom edges are cut by the matrix. Nothing is written for n or pixels below 1.
//
// X bitmap: "#define sparse_width <w>", "#define sparse_height <h>",
// "static unsigned sparse_bits[] = {", the rows of pixels, each padded to whole bytes,
// one byte (0xhh, least significant bit the leftmost pixel) per 8 pixels, 12 bytes a line, a
// pixel set when its square holds an entry; "};". The declaration line is the solver's own
// (the array's element type left out); readers that insist on "unsigned char" need that word
// put back.
void write_sparse_xbm(std::string_view file, std::int32_t n, const Array1<std::int32_t>& ia,
                      const Array1<std::int32_t>& ja, std::int32_t pixels);

// Colour codes of the X pixmap for the symbols blank, "-", "0" to "9", "*" in that order.
enum class PixmapPalette { mono = 1, coarse = 2, grey = 3, blue = 4 };

// X pixmap: "/* XPM */", "static char sparse_density[] = {", the header "<w> <h> 13 1", the
// thirteen colour lines, the rows of symbols, "};". A pixel's symbol comes from the density d,
// entries over cells of its square: blank for none, "-" for d below 1/10, the digit of
// floor(10 d) from 1/10 up, "*" for a full square.
void write_sparse_xpm(std::string_view file, std::int32_t n, const Array1<std::int32_t>& ia,
                      const Array1<std::int32_t>& ja, std::int32_t pixels, PixmapPalette palette);
// The colour code of symbol number k (0 blank, 1 "-", 2..11 "0".."9", 12 "*") in a palette.
std::string_view pixmap_colour(PixmapPalette palette, int k);

// Raw dumps of the elements of the stored factor (or inverse) at the entries of a matrix, for
// comparing runs. For each entry (i, j) of the matrix in row order the permuted indices
// r = max(iperm(i), iperm(j)), c = min(...) and the position of (r, c) in lnz are formed (0
// when the structure has no room for it). Files, all framed records on units 123 to 127:
//   "spinv.out3": one record, the matrix values (r8);
//   "spinv.out4": one record, lnz at each position (r8; 0 where there is none);
//   "spinv.out5": record (n, entries, -1) of i4, then one record of the pairs (r, c), i4;
//   "spinv.out6": record (length of lnz, entries, -1) of i4, then one record of the
//                 positions (i8);
//   "spinv.pos":  per matrix row one record with the positions of its entries (i8).
// A unit of the five that cannot be opened leaves the dump undone.
void dump_spinv(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                const Array1<double>& a, const Sx2Layout& layout, const Array1<std::int32_t>& iperm,
                const Array1<double>& lnz);

// Compares, exactly, each matrix entry with the element of lnz at its permuted place (as
// dump_spinv finds it), as loading the matrix leaves them, and prints for each difference
//   "different values between L and A:" L A "; ii,jj(IJA)=" i j ";  i,j(FACT)=" r c
// (numbers free-format; L is 0 where the structure has no room), then "check: done.".
void check_factor_against_matrix(std::int32_t n, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                                 const Array1<double>& a, const Sx2Layout& layout,
                                 const Array1<std::int32_t>& iperm, const Array1<double>& lnz);

// Printouts of the stored blocks of supernode s, each with a header and the block's values,
// row by row in F6.2:
//   print_diagonal_blocks: the diagonal block (in panel form each diagonal panel block), lower
//     triangle; "D nt,nb=" rows columns ";  SN=" s ";  jfst-jlst" first last column
//     ";  BI,BJ=" block row and column ";  posT=" position of its first element;
//   print_panel_blocks: the blocks below the diagonal of a panel-form supernode, each under
//     "T nt,nb=" and the same fields (nothing in normal form);
//   print_row_block: the rows below the diagonal block (normal form), "B nt,nb=" rows columns
//     ";  SN=" s ";  jfst-jlst" first last ";  posB=" position.
void print_diagonal_blocks(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s);
void print_panel_blocks(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s);
void print_row_block(const Sx2Layout& layout, const Array1<double>& lnz, std::int32_t s);

// A dense column-major block of rows x cols (leading dimension ld), one line per row in the
// format "(<cols>F10.5)".
void print_dense_block(const double* a, std::int64_t rows, std::int64_t cols, std::int64_t ld);

}  // namespace mmekit
