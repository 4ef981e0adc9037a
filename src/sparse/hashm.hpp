// The hash matrix `sparse_hashm` and the parameters of the sparse package.
//
// `sparse_hashm` is an open-addressed table of (row, column, value) triplets keyed by the pair
// (row, column). The mixed-model equations are accumulated into it element by element with
// `addm_sparse_hashm`; the table grows by itself. Before iteration it is packed and sorted in
// place (`sort_sparse_hashm`, run by the hash solver on its first call), after which it no
// longer accepts additions.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "mmekit/support/array.hpp"
#include "mmekit/support/hash.hpp"

namespace mmekit {

// Parameters of the sparse package. One process-wide instance, `sparse_param`, is read by the
// hash matrix and by every iterative solver; a calling program sets its fields directly.
struct SparseParameters {
  std::int32_t hash_type = 2;            // 2: mixing hash; anything else: prime-weighted hash
  std::int64_t hash_default_size = 5000; // slots when init_sparse_hashm gets no size
  float hash_grow = 1.5f;                // growth factor of the table
  float hash_fill = 0.9f;                // occupancy above which the table grows
  bool hash_pow2 = false;                // slot counts rounded up to a power of two
  float solve_conv = 1e-10f;             // convergence limit of the iterative solvers
  float solve_relax = 1.0f;              // relaxation factor of the stationary solvers
  std::int32_t solve_rounds = 1000;      // upper limit on rounds of the iterative solvers
  bool solve_zerosol = true;             // solvers clear the solution vector before starting
  std::int32_t solve_verbose = 2;        // above 1 the solvers print their closing lines
};

extern SparseParameters sparse_param;

// Puts every parameter back to its default.
void reset_sparse_parameters();

// The slot array of a hash matrix: `rows` reals per slot, slots contiguous (first index
// fastest), 1-based access x(r, k). Large arrays are placed on huge pages where the system
// allows it, since every add touches a random slot.
class SlotArray {
 public:
  SlotArray() = default;
  SlotArray(const SlotArray& o);
  SlotArray& operator=(const SlotArray& o);
  SlotArray(SlotArray&& o) noexcept { swap(o); }
  SlotArray& operator=(SlotArray&& o) noexcept {
    SlotArray t(std::move(o));
    swap(t);
    return *this;
  }
  ~SlotArray() { release(); }

  // Allocates rows x cols reals, all `init` (the old contents are dropped).
  void resize(std::int64_t rows, std::int64_t cols, double init = 0.0);
  void fill(double value);
  // Frees the array.
  void clear() { release(); }

  double& operator()(std::int64_t r, std::int64_t k) {
    MMEKIT_CHECK_INDEX(r, 1, rows_);
    MMEKIT_CHECK_INDEX(k, 1, cols_);
    return p_[(k - 1) * rows_ + (r - 1)];
  }
  double operator()(std::int64_t r, std::int64_t k) const {
    MMEKIT_CHECK_INDEX(r, 1, rows_);
    MMEKIT_CHECK_INDEX(k, 1, cols_);
    return p_[(k - 1) * rows_ + (r - 1)];
  }
  std::int64_t rows() const { return rows_; }
  std::int64_t cols() const { return cols_; }
  std::int64_t size() const { return rows_ * cols_; }
  bool empty() const { return p_ == nullptr; }
  double* data() { return p_; }
  const double* data() const { return p_; }
  void swap(SlotArray& o) noexcept {
    std::swap(p_, o.p_);
    std::swap(rows_, o.rows_);
    std::swap(cols_, o.cols_);
  }

 private:
  void release();
  double* p_ = nullptr;
  std::int64_t rows_ = 0, cols_ = 0;
};

// Sparse symmetric (or general) matrix in a hash table.
//   status 0: no table; 1: accumulating in hash order; 2: packed and sorted by (row, column)
//   storage 'u': only i <= j is kept (the default); 'f': both triangles
//   x(1,k), x(2,k): row and column of slot k as reals (both 0 for an empty slot); x(3,k) value
struct sparse_hashm {
  std::int32_t n = 0;
  std::int64_t hash_size = 0;
  std::int64_t nel = 0;
  std::int32_t status = 0;
  char storage = 'u';
  SlotArray x;  // 3 x hash_size, empty while not allocated

  bool allocated() const { return !x.empty(); }
};

// Prepares `a` for accumulation (status 1, storage 'u' unless `storage` is 'f'). With the
// mixing hash (hash_type 2) the call first sets hash_pow2, hash_grow 2.0 and hash_fill 0.8.
void init_sparse_hashm(sparse_hashm& a, std::int32_t n, std::optional<std::int64_t> size = std::nullopt,
                       std::optional<char> storage = std::nullopt);
// Back to a new structure; frees the table.
void reset_sparse_hashm(sparse_hashm& a);
// Element (i, j) += value; grows the table when needed. Lower-triangle pairs of a 'u' matrix
// are dropped.
void addm_sparse_hashm(double value, std::int32_t i, std::int32_t j, sparse_hashm& a);
// Element (i, j) = value; never grows.
void setm_sparse_hashm(double value, std::int32_t i, std::int32_t j, sparse_hashm& a);
// Value of (i, j), 0.0 where absent (and for j < i in 'u' storage).
double getm_sparse_hashm(std::int32_t i, std::int32_t j, const sparse_hashm& a);
void getm_sparse_hashm(std::int32_t i, std::int32_t j, const sparse_hashm& a, double& result);
// target becomes a copy of source; a sorted source gives a fresh table in hash order.
void copy_sparse_hashm(sparse_hashm& target, const sparse_hashm& source);
// Prints the matrix: option "int..." lists occupied slots, otherwise the dense expansion.
void printm_sparse_hashm(const sparse_hashm& a, std::optional<std::string_view> option = std::nullopt);
// Packs and sorts a matrix in status 1 in place and sets status 2 (no effect in status 2).
void sort_sparse_hashm(sparse_hashm& a);

}  // namespace mmekit
