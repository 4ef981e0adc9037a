// Hash locators and the packing and sorting of triplet tables, shared by the hash matrix and
// the keyed record table.
//
// The locators find or create the slot of a key in a 2-D table whose columns are slots and
// whose first rows hold the key. They all share one `mode` contract:
//   mode 0 (search): the slot of the key, or 0 when an empty slot is reached;
//   mode 1 (create): the slot of the key; when absent the key is written into the empty slot
//                    reached and `count` grows by 1;
//   any other mode : the slot of the key, or the empty slot reached, with nothing written.
// A locator returns -1 when its probe limit is exhausted (5000 probes; the integer one stops
// the run after 10000 instead). Tables are column-major: slot k (1-based) occupies
// table[(k-1)*rows .. (k-1)*rows + rows-1] of the 0-based data pointer.
#pragma once

#include <cstdint>
#include <span>

namespace mmekit {

// ---- locators ------------------------------------------------------------------------------

// The mixing steps on unsigned 64-bit state (exposed for tests and for other tables).
void hash_mix3(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c);
void hash_final3(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c);

// Key of two reals in a table of `rows` x `hash_size` reals; hash_size a power of two.
// Prints "Pb 5000 collisions" when it gives up.
std::int64_t hash_pair(const double* key, double* table, std::int64_t hash_size, std::int64_t rows,
                       std::int64_t mode, std::int64_t& count);
// The slot that `hash_pair` probes first for a key in a table of `hash_size` slots (a power of
// two), for fetching it ahead of the call.
std::int64_t hash_pair_first_slot(const double* key, std::int64_t hash_size);
// Key of nk reals, mixing hash; hash_size a power of two.
std::int64_t hash_vector(const double* key, std::int64_t nk, double* table, std::int64_t hash_size,
                         std::int64_t rows, std::int64_t mode, std::int64_t& count);
std::int32_t hash_vector_i4(const double* key, std::int32_t nk, double* table, std::int32_t hash_size,
                            std::int32_t rows, std::int32_t mode, std::int32_t& count);
// Prime-weighted locators (keys of at most 10 positions); any hash_size.
std::int32_t hash_prime_real(const double* key, std::int32_t nk, double* table, std::int32_t hash_size,
                             std::int32_t rows, std::int32_t mode, std::int32_t& count);
std::int32_t hash_prime_int(const std::int32_t* key, std::int32_t nk, std::int32_t* table,
                            std::int32_t hash_size, std::int32_t rows, std::int32_t mode,
                            std::int32_t& count);

// ---- packing and sorting of triplet tables -------------------------------------------------

// Moves the `nel` occupied columns (row index nonzero) of x (rows x hash_size) to columns 1..nel.
void pack_hashm(double* x, std::int64_t hash_size, std::int64_t rows, std::int64_t nel);
// Sorts columns 1..nel of x by the key rows (1-based row numbers, most significant first),
// comparing the keys truncated to integers. Non-recursive quicksort, columns swapped whole.
void sort_hashm(double* x, std::int64_t hash_size, std::int64_t rows, std::span<const std::int32_t> key_rows,
                std::int64_t nel);
void sort_hashm_i4(double* x, std::int32_t hash_size, std::int32_t rows, std::span<const std::int32_t> key_rows,
                   std::int32_t nel);

// Truncation of a stored real to an integer index, toward zero; values outside the int64 range
// and non-numbers give 0 (treated as "no index").
inline std::int64_t trunc_index(double v) {
  if (!(v > -9.2e18 && v < 9.2e18)) return 0;
  return static_cast<std::int64_t>(v);
}

}  // namespace mmekit
