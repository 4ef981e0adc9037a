// The kernel of the sparse Cholesky package: ordering, symbolic factorisation in
// compressed-subscript form, left-looking numeric factorisation with a rule for zero pivots,
// solves, determinants, the sparse (Takahashi) inverse and products with the factor, all on
// one integer work array that the kernel carves into the vectors of each stage.
//
// Conventions of this file: pointers are plain 0-based C arrays, but the numbers stored in
// them follow the library: `ia`, `ja` and the permutations hold 1-based equation numbers.
// Inside the work array the kernel keeps its own 0-based offsets.
//
// Factor form after option 40. With P A P' = C C' (C lower, pivots d_j = C(j,j)), the work
// array holds diag(j) = 1 / d_j^2 and, below the diagonal, C(i,j) / (-d_j). A zero pivot keeps
// diag(j) = 0 and a zero column. Solves then add products and never divide, and a zero pivot
// gives a zero solution for its equation (the generalised solution).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace mmekit {

class FramedWriter;
class FramedReader;

// Flags of the kernel other than a memory need (see torvex_kernel).
inline constexpr std::int32_t torvex_flag_wrong_permutation = -1;
inline constexpr std::int32_t torvex_flag_order_unit = -2;
inline constexpr std::int32_t torvex_flag_out_of_order = -3;
inline constexpr std::int32_t torvex_flag_bad_structure = -4;
inline constexpr std::int32_t torvex_flag_pattern_changed = -5;
// Added by the numeric stage to a nonzero flag.
inline constexpr std::int32_t torvex_numeric_offset = 40000000;

// Relative pivot tolerance: a pivot that keeps less than this share of its diagonal is zero.
inline constexpr double torvex_tol = 1e-08;
// A diagonal below this (the single-precision 1.0E-8 widened) is a zero pivot outright.
inline constexpr double torvex_small = static_cast<double>(1.0e-8f);

// Counters and CPU times of the kernel, accumulated over the run.
struct TorvexStatistics {
  double calls_numeric = 0, calls_solve = 0, calls_sparse_solve = 0, calls_det = 0,
         calls_inverse = 0;
  double time_order = 0, time_symbolic = 0, time_numeric = 0, time_solve = 0,
         time_sparse_solve = 0, time_inverse = 0, time_other = 0;
  double max_nodes = 0, max_path = 0;  // largest node set and path of a sparse solve
  double sum_fnodes = 0, sum_bnodes = 0, sum_fpath = 0, sum_bpath = 0;
  double operations = 0;               // column updates of the numeric factorisation
};

// A work array of 4-byte cells, 8-byte aligned, that can grow keeping its contents. Real
// parts of the kernel start at even 0-based cells so that they are aligned.
class TorvexWork {
 public:
  TorvexWork() = default;
  explicit TorvexWork(std::int64_t cells) { allocate(cells); }
  // Fresh, zeroed storage of `cells` cells.
  void allocate(std::int64_t cells);
  // New storage of `cells` cells holding the old contents (and zeros behind them).
  void grow(std::int64_t cells);
  void release();
  bool allocated() const { return storage_ != nullptr; }
  std::int32_t* cells() { return reinterpret_cast<std::int32_t*>(storage_.get()); }
  const std::int32_t* cells() const { return reinterpret_cast<const std::int32_t*>(storage_.get()); }
  std::int64_t size() const { return size_; }

 private:
  std::unique_ptr<std::byte[]> storage_;
  std::int64_t size_ = 0;
};

// The arguments that some options need besides the matrix.
struct TorvexKernelArgs {
  std::int32_t* is = nullptr;  // the work array
  std::int64_t size = 0;       // its size in cells
  std::int64_t need = 0;       // out: cells needed when the flag reports a lack of memory
  FramedWriter* order_out = nullptr;  // order unit of option 10
  FramedReader* order_in = nullptr;   // order unit of option 70
  double* det = nullptr;              // out: options 54, 55
  // Options 51/52: 1-based equation numbers of the nonzero right-hand side entries and of the
  // wanted solution entries. Option 52 takes rhs_list for both.
  const std::int32_t* rhs_list = nullptr;
  std::int32_t rhs_count = 0;
  const std::int32_t* sol_list = nullptr;
  std::int32_t sol_count = 0;
  const double* x = nullptr;          // option 56: the solution to check (rhs holds b)
  double check_tolerance = 1e-6;      // option 56: allowed |A x - b| relative to max(1, |b|)
  std::int32_t* is2 = nullptr;        // options 72/73: second work array
  std::int64_t size2 = 0;
  FramedWriter* save_unit = nullptr;  // option 74
  FramedReader* load_unit = nullptr;  // option 75
  TorvexStatistics* stats = nullptr;  // null: the package's own statistics
  // Option 10: order the graph without its dense rows and number those last (the driver takes
  // it from skelda_state.switches.dense_rows_last).
  bool dense_rows_last = false;
};

// Option numbers:
//  10 ordering (multiple minimum degree, delta 0) from the graph of ia/ja; writes n and the
//     subscript count, then the permutation and its inverse, to args.order_out when given
//  20 symbolic factorisation      40 numeric factorisation     50 solve (rhs in place)
//  51 sparse solve with rhs_list and sol_list; 52 the same with one list for both
//  54 determinant, 55 log-determinant (args.det)                56 check of a solution
//  60 sparse inverse written over `a` (separate work vectors for the transposition)
//  61 the same sharing the factor's work vectors
//  70 ordering read from args.order_in (instead of option 10)
//  72/73 copy structure, factor and scalars to/from args.is2;  74/75 to/from a file unit
//     (two framed records: the number of cells with a check sum of them, then the cells).
//     Before 73 or 75 takes anything, every size and offset of the copy is checked against its
//     order and the sizes of its factor (and, for a file, against the records and the sum)
//  80 statistics block          90 rhs = inverse factor times rhs      100 rhs = factor times rhs
// `perm` (may be null) receives the 1-based permutation after options 10 and 70.
// flag: 0 done; the needed size (with args.need) when the work array is short, or
// option x 100 + 1 when the need is too large for that code or cannot be met by growing, or
// when a copy of options 73/75 is damaged (it is then refused whole, with a message, and the
// work array keeps what it held); -1 wrong permutation size (option 70); -2 failure of the
// order unit; -3 stage called out of order or for another order; -4 a structure ia/ja (or a
// list of options 51/52) that cannot be walked, with a message naming the fault; -5 a matrix
// whose elements do not all have a place in the analysed structure of the factor (options 40,
// 60, 61): its pattern changed since the symbolic stage. -99 unknown option.
// The numeric stage adds 40,000,000 to a nonzero flag.
//
// The matrix is checked for the options that read it (10, 20, 40, 56, 60, 61, 70): ia must
// hold n + 1 row starts from 1 that never fall, ja (and a, where values are read) at least
// ia(n+1)-1 entries, and every column must lie in 1..n.
void torvex_kernel(std::int32_t option, std::int32_t n, std::span<const std::int32_t> ia,
                   std::span<const std::int32_t> ja, std::span<double> a, std::int32_t* perm, double* rhs,
                   std::int32_t& flag, TorvexKernelArgs& args);
// The same on plain pointers: the caller vouches for the sizes, ia holding n + 1 entries and ja
// and a holding ia(n+1)-1 (ia(n+1) is read to learn that number).
void torvex_kernel(std::int32_t option, std::int32_t n, const std::int32_t* ia, const std::int32_t* ja,
                   double* a, std::int32_t* perm, double* rhs, std::int32_t& flag, TorvexKernelArgs& args);

// Cells the kernel needs for the factor of the matrix analysed in `is` (0 before option 20).
std::int64_t torvex_factor_cells(const std::int32_t* is);
// Nonzeros of the factor below the diagonal (0 before option 20).
std::int64_t torvex_factor_nonzeros(const std::int32_t* is);
// Rank found by the last numeric factorisation held in `is`.
std::int32_t torvex_rank(const std::int32_t* is);

}  // namespace mmekit
