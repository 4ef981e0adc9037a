// Row-compressed form `sparse_ija`, the linked-list form `sparse_ll`, and the conversions
// between the hash matrix and them.
//
// `sparse_ija` keeps the diagonal of every row first: ja(ia(i)) = i even when the value is 0.0
// or the element was never added, so an empty row has one element and nel = n + number of
// stored off-diagonal elements. Behind the diagonal the columns are not sorted; they stand in
// the order the conversion met them. Upper form: a row holds only j >= i (a symmetric matrix
// is meant). Full form: both (i, j) and (j, i) are stored.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "mmekit/sparse/hashm.hpp"
#include "mmekit/support/array.hpp"
#include "mmekit/support/row_structure.hpp"

namespace mmekit {

struct sparse_ija {
  std::int32_t n = 0;
  std::int32_t nel = 0;
  std::int32_t m = 0;
  Array1<std::int32_t> ia;  // n + 1 row starts; ia(n+1) = nel + 1
  Array1<std::int32_t> ja;  // nel columns
  Array1<double> a;         // nel values

  bool allocated() const { return !ia.empty(); }
};

// One node of a row list: column, value and the next node.
// A node owns the rest of its list; copying a node copies the list behind it.
struct sparse_ll_node {
  std::int32_t col = 0;
  float val = 0.0f;
  std::unique_ptr<sparse_ll_node> next;

  sparse_ll_node() = default;
  sparse_ll_node(const sparse_ll_node& o)
      : col(o.col), val(o.val), next(o.next ? std::make_unique<sparse_ll_node>(*o.next) : nullptr) {}
  sparse_ll_node& operator=(const sparse_ll_node& o) {
    if (this != &o) {
      col = o.col;
      val = o.val;
      next = o.next ? std::make_unique<sparse_ll_node>(*o.next) : nullptr;
    }
    return *this;
  }
  sparse_ll_node(sparse_ll_node&&) noexcept = default;
  sparse_ll_node& operator=(sparse_ll_node&&) noexcept = default;
  ~sparse_ll_node() {
    // Unlink iteratively so that a long list does not unwind recursively.
    std::unique_ptr<sparse_ll_node> p = std::move(next);
    while (p) p = std::move(p->next);
  }
};

struct sparse_ll {
  std::int32_t n = 0;
  Array1<sparse_ll_node> heads;  // n list heads, empty until init_sparse_ll

  bool allocated() const { return !heads.empty(); }
};

// The structure of `a` as a whole: ia with n + 1 row starts from 1 that never fall, ja and a
// with ia(n+1)-1 entries and nel = ia(n+1)-1, columns in 1..n. The first fault, or none.
RowStructureFault check_sparse_ija(const sparse_ija& a);
// The same, stopping with "<who>: <what is wrong>" on a fault. Every routine that reads a
// `sparse_ija` through its structure calls it first.
void require_sparse_ija(std::string_view who, const sparse_ija& a);

// Upper form from an upper-stored hash matrix, in either status (all slots are walked).
void CONVERT_HASH_IJA(sparse_ija& target, const sparse_hashm& source);
// mode 1: full form (each off-diagonal element also placed mirrored); otherwise as above.
void CONVERT_HASH_IJA_GENERAL(sparse_ija& target, const sparse_hashm& source,
                              std::optional<std::int32_t> mode = std::nullopt);
// Fills the caller's arrays (capacity m elements) with the elements of a 3 x m_hash table in
// any pattern, rows in order, no diagonal convention. Elements with an index over n are
// counted and reported as a warning.
void hashia(const double* table, std::int32_t m_hash, std::int32_t n, Array1<std::int32_t>& ia,
            Array1<std::int32_t>& ja, Array1<double>& a, std::int32_t m);
// Full storage from upper storage, and back (the lower triangle is dropped).
void HASHM_UPPER_FULL(sparse_hashm& target, const sparse_hashm& source);
void HASHM_FULL_UPPER(sparse_hashm& target, const sparse_hashm& source);

// Conversions between the sparse kinds (the assignment rules of the package).
void hash_from_ija(sparse_hashm& target, const sparse_ija& source);
void ija_from_hash(sparse_ija& target, const sparse_hashm& source);

// Value of (i, j) by a search along row i; 0.0 where absent (no index swap). Only the bounds of
// row i are checked: a row that does not fit the arrays stops the run.
double getm_sparse_ija(std::int32_t i, std::int32_t j, const sparse_ija& a);
void getm_sparse_ija(std::int32_t i, std::int32_t j, const sparse_ija& a, double& result);
void reset_sparse_ija(sparse_ija& a);
// Prints the matrix: option "int..." lists the stored elements row by row, otherwise the
// dense expansion.
void printm_sparse_ija(const sparse_ija& a, std::optional<std::string_view> option = std::nullopt);

void init_sparse_ll(sparse_ll& a, std::int32_t n);

}  // namespace mmekit
