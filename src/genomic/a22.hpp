// A22, the numerator relationships among the genotyped animals, and the tabular A of a whole
// pedigree.
//
// A22 comes four ways (whichA22): 1 the recursive function on every pair; 2 products with A by
// Colleau's method over the whole pedigree; 3 the same products on the subset of ancestors of
// the genotyped animals (the default); 4 that subset renumbered parents first, for a pedigree
// that is not in chronological order. The products are made many columns per pass (see
// colleau_columns), so methods 2 to 4 cost one sweep of the (sub)pedigree per group of columns.
//
// Each routine exists on explicit data (a pedigree array and the pedigree numbers of the
// genotyped animals, in the order of the genotype file) and as the library's entry on
// `genomic` (ped, genId, opt.msg, opt.mats(gm_A22).which), which after every A22 method leaves
// genomic.f reallocated and zeroed.
#pragma once

#include <cstdint>
#include <span>

#include "mmekit/dense/dense.hpp"
#include "mmekit/genomic/state.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// ---- On explicit data -----------------------------------------------------------------------

// Method 1: A22(i, j) = CFFA(genId[i], genId[j]) with a private f.
void A22_recursive(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, densem& A22);

// Method 2: inbreeding by Meuwissen and Luo into f (resized to 0..n), then the columns of A for
// the genotyped animals, `nk` per pass. Prints the message-level lines with the level `msg`.
void NRM_Colleau(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, Array1<double>& f,
                 densem& A22, std::int32_t msg, std::int32_t nk);

// The subset of ancestors of the genotyped animals (and themselves), numbered in the order of
// their old numbers; the pedigree must be chronological ("error parent not renumber" otherwise).
void get_ancestors(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, ReducedPedigree& redped,
                   std::int32_t msg);
// The same subset numbered parents first, for a pedigree in any order; a loop in the pedigree
// stops the run.
void get_ancestors_parents_first(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId,
                                 ReducedPedigree& redped, std::int32_t msg);

// Numbers the animals with marked(a) != 0 so that parents come before their progeny: walking
// the old numbers upwards, an animal gets the next number once its sire and then its dam have
// theirs (parents are numbered with it, marked or not). newId(a) is the new number, -1 for an
// animal left without one (it descends from a loop of the pedigree), 0 for animals not reached.
// newId and marked must have one entry per row of ped. Returns the count of numbered animals.
// The walk keeps its own stack: deep pedigrees are fine and a loop never hangs.
std::int32_t RenumParenFirst(Array1<std::int32_t>& newId, const Array2<std::int32_t>& ped,
                             const Array1<std::int8_t>& marked);

// Methods 3 (`method` 3) and 4 (any other): the subset, its inbreeding, and A22 from it.
void A22_subset(const Array2<std::int32_t>& ped, std::span<const std::int32_t> genId, std::int32_t method,
                densem& A22, std::int32_t msg, std::int32_t nk);

// Tabular A of the whole pedigree, row by row from the parents' rows.
void NRM_densem(const Array2<std::int32_t>& ped, densem& A, std::int32_t msg);
void NRM_dense_symm(const Array2<std::int32_t>& ped, dense_symm& A, std::int32_t msg);
// `A` must have been prepared with full storage ('f'); it is initialised again at the order of
// the pedigree with room for every element.
void NRM_sparse_hashm(const Array2<std::int32_t>& ped, sparse_hashm& A, std::int32_t msg);
// The same A by products (the pedigree must be chronological); f is resized to 0..n and holds
// the inbreeding afterwards.
void NRM_colleau_densem(const Array2<std::int32_t>& ped, Array1<double>& f, densem& A, std::int32_t nk);

// ---- Entries on the library's state ---------------------------------------------------------

void A22_recursive(densem& A22);
void NRM_Colleau(densem& A22);
// Method 4 when genomic.opt.mats(gm_A22).which is 4, else method 3.
void A22_subset(densem& A22);
void get_ancestors(ReducedPedigree& redped);
void get_ancestors_parents_first(ReducedPedigree& redped);
void NRM_densem(densem& A);
void NRM_dense_symm(dense_symm& A);
void NRM_sparse_hashm(sparse_hashm& A);
void NRM_colleau_densem(densem& A);

}  // namespace mmekit
