// Files of the genomic matrices (G, A22, their inverses and differences) and the operations
// shared by the three storage kinds they are kept in: `densem`, `dense_symm` and
// `sparse_hashm`.
//
// File forms. A text file goes through unit 456 and has one element a line; a binary file is a
// sequence of framed records, written and read by the framed-record writer and reader.
//   old form     text "(2(i0,x),f0.12)": i j val;         binary: one record i (i4) j (i4) val (r8)
//   new form     text "(4i10,f20.12)": i j li lj val;     binary: one record i j li lj (i4) val (r8)
//                li and lj are the pedigree numbers genId(i) and genId(j)
//   OrigID       text "(a25,1x,a25,1x,f0.12)": the two original IDs of every pair (i, j) and the
//                value; binary is refused
//   renumbered   text "(2(i0,x),f0.12)": genId(j) genId(i) val for the pairs with
//                genId(j) <= genId(i)
//   whole matrix text, one row after the other, 10000 values a line: "(10000f12.4)" for
//                `densem`, "(10000(f12.4,x))" for the other kinds; binary is refused
// The position forms (old and new) hold one triangle: `densem` writes the lower triangle with
// the diagonal column by column, `dense_symm` the upper triangle by rows, and `sparse_hashm`
// its non-zero elements with i <= j in slot order.
//
// Reading the position forms fills both triangles from one element. The old form accepts a
// file in either triangle, decided by its first element off the diagonal; a later element in
// the other triangle stops the run. The new form checks each element's pedigree numbers
// against genId.
//
// The routines with the library's names (print_i_j_val_densem, READGmA22_DENSEM, ...) work on
// the process-wide `genomic` (genId, origId, ngen, animalFlag and the options binaries_files,
// new_format, whichMatVecMult, msg); the routines beneath them take everything explicitly.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mmekit/dense/dense.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The unit through which every text matrix file is written and read.
inline constexpr std::int32_t matrix_file_unit = 456;
// The longest file name a matrix routine takes.
inline constexpr std::size_t matrix_file_name_max = 50;

// ---- Writing ------------------------------------------------------------------------------------
// M is densem, dense_symm or sparse_hashm (the members are instantiated for those three).

// The old (`genId` null) or the new position form.
template <class M>
void save_positions(const M& X, const std::string& name, bool binary, const Array1<std::int32_t>* genId);
// Every pair with the original IDs origId(genId(i)) and origId(genId(j)) (origId from 0); stops
// with "wrong option lbin and OrigID not allowed" when binary.
template <class M>
void save_origid(const M& X, const std::string& name, bool binary, const Array1<std::int32_t>& genId,
                 const Array1<std::string>& origId);
// The pairs with genId(j) <= genId(i) as genId(j) genId(i) val.
template <class M>
void save_renumbered(const M& X, const std::string& name, const Array1<std::int32_t>& genId);
// The whole matrix row by row; stops with "wrong option lbin and matrix not allowed" when binary.
template <class M>
void save_whole(const M& X, const std::string& name, bool binary);

// What a caller of printGmA22 gets by its word: "internal" the position form (new with
// `new_format`), "OrigID" the original IDs, "renumbered" the pedigree numbers, "matrix" the
// whole matrix (words compared without regard to case). Any other word prints
// "error in printGmA22_<kind>" and stops.
template <class M>
void save_genomic_matrix(const M& X, const std::string& name, std::string_view word, bool binary, bool new_format,
                         const Array1<std::int32_t>& genId, const Array1<std::string>& origId);

// ---- Reading ------------------------------------------------------------------------------------

// Reads a position form into X, which becomes a matrix of order n (a `sparse_hashm` keeps its
// storage character when it has a table, else it is upper-stored). With `genId` the new form
// is read and n is its size; without, the old form, and n = 0 takes the order from the largest
// index in the file. Prints the count of elements read and returns it.
template <class M>
std::int64_t read_positions(M& X, const std::string& name, bool binary, std::int64_t n,
                            const Array1<std::int32_t>* genId);

// ---- Kind, difference, statistics, inverse check ----------------------------------------------

// The kind's name as the option record writes it: "densem", "dense_symm", "sparse_hashm".
template <class M>
std::string_view storage_kind_name();

// Stops with "Wrong Type: " and the text when `storage` is not the routine's kind.
void check_type_densem(std::string_view storage);
void check_type_dense_symm(std::string_view storage);
void check_type_sparse_hashm(std::string_view storage);

// result = wG G - wA A22 element by element (result may be G or A22). Stops when the orders
// differ. For `sparse_hashm` G and A22 must have the same storage character.
void GmA22_densem(densem& result, const densem& G, const densem& A22, double wG, double wA);
void GmA22_dense_symm(dense_symm& result, const dense_symm& G, const dense_symm& A22, double wG, double wA);
void GmA22_sparse_hashm(sparse_hashm& result, const sparse_hashm& G, const sparse_hashm& A22, double wG, double wA);

// Mean, minimum, maximum and variance (divided by the count) of the diagonal and of the
// elements above it (for a symmetric matrix the same as of all those off it). Elements a
// `sparse_hashm` does not hold count as zeros. An empty set gives zeros.
struct MatrixStatistics {
  struct Set {
    std::int64_t count = 0;
    double mean = 0, min = 0, max = 0, var = 0;
  };
  Set diagonal, off_diagonal;
};
// Prints " Statistic of " and the name, and the table; returns the figures.
MatrixStatistics stat_matrix_densem(const densem& X, std::string_view name);
MatrixStatistics stat_matrix_dense_symm(const dense_symm& X, std::string_view name);
MatrixStatistics stat_matrix_sparse_hashm(const sparse_hashm& X, std::string_view name);

// The figures of P = Xinv X: its largest and smallest element, trace, sum of the elements off
// the diagonal and max |P - I|.
struct InverseCheck {
  double maxval = 0, minval = 0, trace = 0, sum_off_diagonal = 0, max_abs_error = 0;
};
// Prints " Check Inverse as Xinv*X=I of " with the name and the five figures; returns them.
// Stops when the orders differ.
InverseCheck check_inverse_densem(const densem& X, const densem& Xinv, std::string_view name);
InverseCheck check_inverse_dense_symm(const dense_symm& X, const dense_symm& Xinv, std::string_view name);
InverseCheck check_inverse_sparse_hashm(const sparse_hashm& X, const sparse_hashm& Xinv, std::string_view name);

// ---- Removed animals ----------------------------------------------------------------------------

// For every genotype with a non-zero animalFlag: its row and column become 0 and its diagonal 1.
// Stops with "RemoveFromGenotyped: Error matrices not match!!!" and the two sizes when the
// order of X is not the number of flags.
void remove_from_genotyped(densem& X, const Array1<std::int32_t>& animalFlag);
void remove_from_genotyped(dense_symm& X, const Array1<std::int32_t>& animalFlag);
void remove_from_genotyped(sparse_hashm& X, const Array1<std::int32_t>& animalFlag);

// ---- Matrix-vector product over the genotyped equations ----------------------------------------

// y(genidx1(i)) += sum over j of X(i, j) x(genidx2(j)), i, j = 1..n (n the order of X), by the
// loop form `which`: 1 rows, 2 columns straight into y, 3 columns into a gathered y, 4 BLAS on
// gathered vectors, 5 tiles of columns. All give the same y up to rounding. n = 0 prints
// "Ax_g_usr_add_densem_mt: n=0" and leaves y alone; another `which` stops with
// "Matrix- Vector multiplication option not available (1-5)"; index vectors not of length n,
// or pointing outside x or y, stop with "Ay=z size y, z" and the sizes. Above message level 100
// the index vectors, x and the genotyped part of y are printed.
void matvec_genotyped_add(const densem& X, const Array1<std::int32_t>& genidx1, const Array1<std::int32_t>& genidx2,
                          const Array1<double>& x, Array1<double>& y, std::int32_t which, std::int32_t msg);

// ---- Old solutions -------------------------------------------------------------------------------

// The file in which a run keeps the products of its solutions by the old matrices.
inline constexpr std::string_view old_solutions_file = "xAoldxGold";

// The products kept: the solutions x of the genotyped animals, zG = Gold^-1 x and
// zA = Aold^-1 x (A22 of the old run), as solved with the two matrices.
struct OldSolutionProducts {
  Array1<double> x, zG, zA;
};

// Solves G zG = x and A22 zA = x and saves x, zG, zA in the binary file `name` (records: the
// order as i4, then x, zG, zA as r8 vectors). All-zero solutions print
// "all solutions zero, quick return" and write nothing. Without G or A22 (an empty matrix:
// the run kept only GimA22i) stops with "doing update rhs by GimA22i not implemented".
// Returns false when nothing was written.
bool save_old_solutions(const densem& G, const densem& A22, const Array1<double>& x,
                        std::string_view name = old_solutions_file);
// Reads what save_old_solutions wrote. A missing file prints
// "Reading Aold, Gold NOT EXIST quick return" and returns false.
bool read_old_solutions(OldSolutionProducts& p, std::string_view name = old_solutions_file);
// The update of a right-hand side by the old products: rhs(eq(i)) -= w (zG(i) - zA(i)), which
// takes out what the old genotyped block (Gold^-1 - Aold^-1) added for the old solutions.
// Returns false (rhs unchanged) when the file is missing or its order is not the size of eq.
bool update_rhs_old_solutions(Array1<double>& rhs, const Array1<std::int32_t>& eq, double w,
                              std::string_view name = old_solutions_file);

// ---- The library's entries on `genomic` ---------------------------------------------------------

void print_i_j_val_densem(const densem& X, const std::string& name);
void print_i_j_val_dense_symm(const dense_symm& X, const std::string& name);
void print_i_j_val_sparse_hashm(const sparse_hashm& X, const std::string& name);
void printGmA22_densem(const densem& X, const std::string& name, std::string_view word);
void printGmA22_dense_symm(const dense_symm& X, const std::string& name, std::string_view word);
void printGmA22_sparse_hashm(const sparse_hashm& X, const std::string& name, std::string_view word);
void read_i_j_val_densem(densem& X, const std::string& name);
void read_i_j_val_dense_symm(dense_symm& X, const std::string& name);
void read_i_j_val_sparse_hashm(sparse_hashm& X, const std::string& name);
void READGmA22_DENSEM(densem& X, const std::string& name);
void READGmA22_DENSE_SYMM(dense_symm& X, const std::string& name);
void READGmA22_SPARSE_HASHM(sparse_hashm& X, const std::string& name);

void RemoveFromGenotyped(densem& X);
void RemoveFromGenotyped(dense_symm& X);
void RemoveFromGenotyped(sparse_hashm& X);

// y = y + X x over the genotyped levels, by genomic.opt.whichMatVecMult.
void Ax_g_usr_add_densem_mt(const densem& X, const Array1<std::int32_t>& genidx1, const Array1<std::int32_t>& genidx2,
                            const Array1<double>& x, Array1<double>& y);

// Members that do not exist for their kind: each stops with its message (the packed product
// prints "Ax_g_usr_add_mt_dense_symm: n=0" and returns for an empty matrix).
void Ax_g_usr_add_mt_dense_symm(const dense_symm& X, const Array1<std::int32_t>& genidx1,
                                const Array1<std::int32_t>& genidx2, const Array1<double>& x, Array1<double>& y);
void AddGimA22i_ainv_dense_symm(const dense_symm& GimA22i, sparse_hashm& ainv);
void add_g_usr_gs_densem_densem(const densem& X, densem& mme);
void add_g_usr_gs_densem_dense_symm(const densem& X, dense_symm& mme);

// ---- Shared by the two source files ------------------------------------------------------------

namespace matrix_files_detail {
inline std::int64_t order(const densem& a) { return a.order(); }
inline std::int64_t order(const dense_symm& a) { return a.order(); }
inline std::int64_t order(const sparse_hashm& a) { return a.n; }

[[noreturn]] void outside(std::int32_t i, std::int32_t j, std::int32_t n);
// Calls f(i, j, value) for every occupied slot of the table; an element outside the order of
// the matrix stops the run.
template <class F>
void for_each_slot(const sparse_hashm& a, F&& f) {
  if (!a.allocated()) return;
  const double* p = a.x.data();
  const std::int64_t slots = a.x.cols();
  for (std::int64_t k = 0; k < slots; ++k, p += 3) {
    const auto i = static_cast<std::int32_t>(p[0]);
    if (i == 0) continue;
    const auto j = static_cast<std::int32_t>(p[1]);
    if (i < 1 || i > a.n || j < 1 || j > a.n) outside(i, j, a.n);
    f(i, j, p[2]);
  }
}
// Element (i, j) of a symmetric hash matrix, from its upper position in 'u' storage.
inline double get_sym(const sparse_hashm& a, std::int32_t i, std::int32_t j) {
  return (a.storage != 'f' && j < i) ? getm_sparse_hashm(j, i, a) : getm_sparse_hashm(i, j, a);
}
// Sets (i, j) and (j, i) of a symmetric hash matrix (one position in 'u' storage).
void set_sym(sparse_hashm& a, std::int32_t i, std::int32_t j, double v);
}  // namespace matrix_files_detail

}  // namespace mmekit
