// The pedigree of the genomic library: reading the renumbered pedigree file, inbreeding
// coefficients (recursively and by Meuwissen and Luo) and the product of the numerator
// relationship matrix A with vectors (Colleau's method on A = T D T').
//
// A pedigree is an Array2 `ped` of n rows: column 1 the animal, 2 the sire, 3 the dam (0 for
// unknown), 4 the animal's position among the genotyped ones (0 without genotype). Inbreeding
// lives in `f`, indexed 0..n with f(0) = 0. The routines on explicit data take both; the entries
// without them work on `genomic.ped` and `genomic.f`.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "mmekit/genomic/state.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// ---- Reading --------------------------------------------------------------------------------

// Reads the pedigree file into genomic.n, genomic.ped (animal, sire, dam; column 4 zero) and a
// zeroed genomic.f. With a file name the file is opened on `unit` (1 when absent) and closed at
// the end; with only a unit, the text file already open on that unit is read and left open.
// An animal given as its own parent loses both parents; unknown parent groups (numbers above
// n) become unknown parents; a parent numbered at or above its progeny marks the pedigree as
// not chronological and forces A22 by the parents-first subset (whichA22 = 4). When an option
// asks for original identifiers, the 10-column file of the renumbering program is read again
// for them, the number of known parents and the sex.
void GET_PED(std::optional<std::string> filename = std::nullopt, std::optional<std::int32_t> unit = std::nullopt);

// ---- Inbreeding -----------------------------------------------------------------------------

// The additive relationship of animals i and j (0 is the unknown parent). Entries of f equal to
// -1 are computed on the way and kept. The younger animal (by number) is opened, so the result
// is right for a chronological pedigree. Evaluated with an explicit stack: any depth of pedigree
// is fine, and a loop among the ancestors stops the run instead of recursing forever.
double CFFA(std::int32_t i, std::int32_t j, const Array2<std::int32_t>& ped, Array1<double>& f);
// The same on the library's pedigree; stops when genomic.f is not allocated.
double CFFA(std::int32_t i, std::int32_t j);

// f (0..n) by CFFA for every animal, with progress lines, the elapsed time and the mean.
void inbreeding_recursive(const Array2<std::int32_t>& ped, Array1<double>& f, std::int32_t msg);
void inbreeding_recursive();

// Inbreeding by the linked-list algorithm of Meuwissen and Luo into f (0..n, allocated by the
// caller: n + 1 entries). sire(i) and dam(i) are the parents of animal i; each pair is
// rewritten with the larger number as sire. The pedigree must be chronological.
void inbreeding_ML(Array1<std::int32_t>& sire, Array1<std::int32_t>& dam, Array1<double>& f, std::int32_t msg);
// Into genomic.f.
void inbreeding_ML(Array1<std::int32_t>& sire, Array1<std::int32_t>& dam);

// ---- Products with A ------------------------------------------------------------------------

// y = A x by Colleau's method, f final. x and y hold `nblocks` blocks of `nk` interleaved
// columns: element c (1..nk) of animal a in block b is at the 1-based position
// (blocks[b] + a - 1) * nk + c; `nx` is the length of x and y. Positions of y outside the
// blocks are left as they are.
void NRM_times_w8(const Array2<std::int32_t>& ped, const Array1<double>& f, std::span<double> y,
                  std::span<const double> x, std::int32_t nblocks, std::span<const std::int64_t> blocks,
                  std::int64_t nx, std::int32_t nk);
// The same on the library's pedigree and f, or on `redped` when given. `msg` replaces the
// message level for the call.
void NRM_times_w8(std::span<double> y, std::span<const double> x, std::int32_t nblocks,
                  std::span<const std::int64_t> blocks, std::int64_t nx, std::int32_t nk,
                  std::optional<std::int32_t> msg = std::nullopt, const ReducedPedigree* redped = nullptr);

// Columns of A by products, `nk` at a time in one work array: out(k, i) = A(rows[k], cols[i])
// for k, i from 0 (out is resized to rows.size() x cols.size()). The columns are taken in order
// of their animal numbers; each pass runs the upward sweep from the largest animal of its
// columns and the downward sweep up to the largest of `rows`, and only the `rows` are kept.
// `progress(k)`, when given, is called with k = 1, 2, ..., cols.size() as the count of columns
// done grows (after each pass, for the columns of that pass).
void colleau_columns(const Array2<std::int32_t>& ped, const Array1<double>& f, std::span<const std::int32_t> cols,
                     std::span<const std::int32_t> rows, Array2<double>& out, std::int32_t nk,
                     const std::function<void(std::int64_t)>& progress = {});

// Stops with "<who>: parent out of range" and the row unless every parent of `ped` is a number
// from 0 to its number of rows.
void check_parents(const Array2<std::int32_t>& ped, const char* who);

}  // namespace mmekit
