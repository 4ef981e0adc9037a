// Hash locators: mixing steps, key-pair and key-vector tables, prime-weighted tables, and the
// packing and sorting of triplet tables.
#include "mmekit/support/hash.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

// ---- mixing steps ----------------------------------------------------------------------------

namespace {

// Shift pair with the 32-bit amounts on a 64-bit word. Not a rotation: the bits shifted out
// at the top are lost, which the slot sequences of existing tables depend on.
inline std::uint64_t rot(std::uint64_t v, int k) { return (v << k) | (v >> (32 - k)); }

inline void mix3_inline(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c) {
  a -= c; a ^= rot(c, 4);  c += b;
  b -= a; b ^= rot(a, 6);  a += c;
  c -= b; c ^= rot(b, 8);  b += a;
  a -= c; a ^= rot(c, 16); c += b;
  b -= a; b ^= rot(a, 19); a += c;
  c -= b; c ^= rot(b, 4);  b += a;
}

inline void final3_inline(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c) {
  c = (c ^ b) - rot(b, 14);
  a = (a ^ c) - rot(c, 11);
  b = (b ^ a) - rot(a, 25);
  c = (c ^ b) - rot(b, 16);
  a = (a ^ c) - rot(c, 4);
  b = (b ^ a) - rot(a, 14);
  c = (c ^ b) - rot(b, 24);
}

constexpr std::uint64_t kInitC = 305419896u;                    // 0x12345678
constexpr std::uint64_t kInitB = 0xFFFFFFFF9E3779B9ull;         // -1640531527 as 64 bits
constexpr int kMaxProbes = 5000;

inline std::uint64_t key_bits(double v) { return static_cast<std::uint64_t>(trunc_index(v)); }

// A key position as stored in a table: real tables hold whole numbers.
inline double stored(double v) { return static_cast<double>(trunc_index(v)); }
inline std::int32_t stored(std::int32_t v) { return v; }

// One probe of the key-vector tables at slot k, whose nk key positions start at s. Returns k
// when the slot holds the key or is empty (for mode 1 an empty slot takes the key and is
// counted; for mode 0 an empty slot gives 0), and -1 when it holds another key.
template <class T, class N, class C>
inline std::int64_t probe_slot(T* s, std::int64_t k, const T* key, N nk, std::int64_t mode, C& count) {
  bool empty = true, equal = true;
  for (N p = 0; p < nk; ++p) {
    const T v = stored(s[p]);
    if (v != 0) empty = false;
    if (v != key[p]) equal = false;
  }
  if (empty) {
    if (mode == 0) return 0;
    if (mode == 1) {
      for (N p = 0; p < nk; ++p) s[p] = key[p];
      ++count;
    }
    return k;
  }
  return equal ? k : -1;
}

}  // namespace

void hash_mix3(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c) { mix3_inline(a, b, c); }
void hash_final3(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c) { final3_inline(a, b, c); }

// ---- locators -------------------------------------------------------------------------------

std::int64_t hash_pair_first_slot(const double* key, std::int64_t hash_size) {
  std::uint64_t a = key_bits(key[0]), b = key_bits(key[1]), c = kInitC;
  mix3_inline(a, b, c);
  return static_cast<std::int64_t>(c & static_cast<std::uint64_t>(hash_size - 1)) + 1;
}

std::int64_t hash_pair(const double* key, double* table, std::int64_t hash_size, std::int64_t rows,
                       std::int64_t mode, std::int64_t& count) {
  if (hash_size < 1 || rows < 2) return -1;
  std::uint64_t a = key_bits(key[0]);
  std::uint64_t b = key_bits(key[1]);
  std::uint64_t c = kInitC;
  const std::uint64_t mask = static_cast<std::uint64_t>(hash_size - 1);
  mix3_inline(a, b, c);
  for (int probe = 0;;) {
    const std::int64_t k = static_cast<std::int64_t>(c & mask) + 1;
    double* s = table + (k - 1) * rows;
    // The next slot of the walk is fetched while this one is compared: a collision then costs
    // no second wait for memory.
    std::uint64_t na = a, nb = b, nc = c;
    mix3_inline(na, nb, nc);
    __builtin_prefetch(table + static_cast<std::int64_t>(nc & mask) * rows);
    const std::int64_t si = trunc_index(s[0]);
    const std::int64_t sj = trunc_index(s[1]);
    if (si == 0 && sj == 0) {
      if (mode == 0) return 0;
      if (mode == 1) {
        s[0] = key[0];
        s[1] = key[1];
        ++count;
      }
      return k;
    }
    if (static_cast<double>(si) == key[0] && static_cast<double>(sj) == key[1]) return k;
    if (++probe >= kMaxProbes) {
      out() << "Pb 5000 collisions\n";
      return -1;
    }
    a = na;
    b = nb;
    c = nc;
  }
}

namespace {

template <class I>
I hash_vector_impl(const double* key, std::int64_t nk, double* table, std::int64_t hash_size, std::int64_t rows,
                   std::int64_t mode, I& count) {
  if (hash_size < 1 || nk < 1 || rows < nk) return -1;
  std::uint64_t a = key_bits(key[0]);
  std::uint64_t b = nk > 1 ? key_bits(key[1]) : kInitB;
  std::uint64_t c = nk > 2 ? key_bits(key[2]) : kInitC;
  mix3_inline(a, b, c);
  const std::int64_t q = nk / 3;
  const std::int64_t r = nk % 3;
  if (q > 0) {
    // Each later group replaces the state: only the last full group and the rest count.
    for (std::int64_t g = 2; g <= q; ++g) {
      a = key_bits(key[3 * g - 3]);
      b = key_bits(key[3 * g - 2]);
      c = key_bits(key[3 * g - 1]);
      mix3_inline(a, b, c);
    }
    if (r > 0) {
      a = key_bits(key[3 * q]);
      if (r == 2) b = key_bits(key[3 * q + 1]);
      final3_inline(a, b, c);
    }
  }
  const std::uint64_t mask = static_cast<std::uint64_t>(hash_size - 1);
  std::uint16_t probe = 0;
  for (;;) {
    const std::int64_t k = static_cast<std::int64_t>(c & mask) + 1;
    const std::int64_t got = probe_slot(table + (k - 1) * rows, k, key, nk, mode, count);
    if (got >= 0) return static_cast<I>(got);
    if (++probe >= kMaxProbes) return -1;
    mix3_inline(a, b, c);
  }
}

}  // namespace

std::int64_t hash_vector(const double* key, std::int64_t nk, double* table, std::int64_t hash_size,
                         std::int64_t rows, std::int64_t mode, std::int64_t& count) {
  return hash_vector_impl<std::int64_t>(key, nk, table, hash_size, rows, mode, count);
}

std::int32_t hash_vector_i4(const double* key, std::int32_t nk, double* table, std::int32_t hash_size,
                            std::int32_t rows, std::int32_t mode, std::int32_t& count) {
  return hash_vector_impl<std::int32_t>(key, nk, table, hash_size, rows, mode, count);
}

namespace {
constexpr double kPrimeReal[10] = {5813, 1039, 53, 761, 197, 31, 887, 389, 277, 97};
constexpr std::uint32_t kPrimeInt[10] = {5813, 1039, 6679, 16603, 9803, 2063, 887, 389, 277, 97};
}  // namespace

std::int32_t hash_prime_real(const double* key, std::int32_t nk, double* table, std::int32_t hash_size,
                             std::int32_t rows, std::int32_t mode, std::int32_t& count) {
  if (nk > 10) stop("hash_prime_real: keys longer than 10 positions are not supported");
  if (hash_size < 1 || nk < 1 || rows < nk) return -1;
  std::int64_t h = 0;
  for (std::int32_t p = 0; p < nk; ++p) h = trunc_index(static_cast<double>(h) + kPrimeReal[p] * key[p]);
  const std::int64_t r = h % hash_size;
  std::int64_t slot = (r < 0 ? -r : r) + 1;
  for (int probe = 0;;) {
    const std::int64_t got = probe_slot(table + (slot - 1) * rows, slot, key, nk, mode, count);
    if (got >= 0) return static_cast<std::int32_t>(got);
    if (++probe >= kMaxProbes) return -1;
    slot = ((slot + 16) % hash_size) + 1;
  }
}

std::int32_t hash_prime_int(const std::int32_t* key, std::int32_t nk, std::int32_t* table,
                            std::int32_t hash_size, std::int32_t rows, std::int32_t mode,
                            std::int32_t& count) {
  if (nk > 10) stop("hash_prime_int: keys longer than 10 positions are not supported");
  if (hash_size < 1 || nk < 1 || rows < nk) return -1;
  std::uint32_t hu = 0;  // 32-bit wrap-around sum
  for (std::int32_t p = 0; p < nk; ++p) hu += kPrimeInt[p] * static_cast<std::uint32_t>(key[p]);
  const std::int32_t h = static_cast<std::int32_t>(hu);
  const std::int32_t r = h % hash_size;
  std::int64_t slot = (r < 0 ? -static_cast<std::int64_t>(r) : r) + 1;
  for (int probe = 0;;) {
    const std::int64_t got = probe_slot(table + (slot - 1) * rows, slot, key, nk, mode, count);
    if (got >= 0) return static_cast<std::int32_t>(got);
    if (++probe > 10000) stop("hash table search too slow");
    slot = ((slot + 16) % hash_size) + 1;
  }
}

// ---- packing and sorting --------------------------------------------------------------------

void pack_hashm(double* x, std::int64_t hash_size, std::int64_t rows, std::int64_t nel) {
  // Two cursors (0-based here): `hole` on the next empty slot, `el` on the next element.
  std::int64_t hole = 0, el = 0;
  for (std::int64_t step = 0; step < nel; ++step) {
    while (hole < hash_size && x[hole * rows] != 0.0) ++hole;
    while (el < hash_size && x[el * rows] == 0.0) ++el;
    if (hole >= hash_size || el >= hash_size) return;  // nothing left to move
    if (el > hole) {
      double* from = x + el * rows;
      double* to = x + hole * rows;
      for (std::int64_t r = 0; r < rows; ++r) {
        to[r] = from[r];
        from[r] = 0.0;
      }
    } else {
      ++el;
    }
  }
}

namespace {

// Wirth's non-recursive quicksort on columns 1..nel. Partitions are disjoint, so pushing the
// larger part and going on with the smaller gives the same result as always pushing the right
// part, and keeps the stack within 64 entries.
template <class Key>
void quicksort_columns(double* x, std::int64_t rows, std::span<const std::int32_t> key_rows, std::int64_t nel) {
  for (const std::int32_t r : key_rows)
    if (r < 1 || r > rows) stop("sort_hashm: key row outside the table: " + std::to_string(r));
  if (nel < 2 || key_rows.empty()) return;
  const std::size_t nkey = key_rows.size();
  Key pivot_buf[16];
  std::vector<Key> pivot_heap;
  Key* pivot = pivot_buf;
  if (nkey > 16) {
    pivot_heap.resize(nkey);
    pivot = pivot_heap.data();
  }
  auto key = [&](std::int64_t col, std::size_t p) -> Key {
    return static_cast<Key>(trunc_index(x[(col - 1) * rows + (key_rows[p] - 1)]));
  };
  // -1: column < pivot, 0 equal, 1 greater
  auto cmp = [&](std::int64_t col) -> int {
    for (std::size_t p = 0; p < nkey; ++p) {
      const Key v = key(col, p);
      if (v < pivot[p]) return -1;
      if (v > pivot[p]) return 1;
    }
    return 0;
  };
  auto swap_cols = [&](std::int64_t i, std::int64_t j) {
    double* ci = x + (i - 1) * rows;
    double* cj = x + (j - 1) * rows;
    for (std::int64_t r = 0; r < rows; ++r) std::swap(ci[r], cj[r]);
  };
  std::int64_t lstack[64], rstack[64];
  int s = 0;
  lstack[0] = 1;
  rstack[0] = nel;
  s = 1;
  while (s > 0) {
    --s;
    std::int64_t l = lstack[s], r = rstack[s];
    while (l < r) {
      std::int64_t i = l, j = r;
      const std::int64_t mid = l + (r - l) / 2;
      for (std::size_t p = 0; p < nkey; ++p) pivot[p] = key(mid, p);
      do {
        while (cmp(i) < 0) ++i;
        while (cmp(j) > 0) --j;
        if (i <= j) {
          if (i != j) swap_cols(i, j);
          ++i;
          --j;
        }
      } while (i <= j);
      // Parts [l, j] and [i, r].
      if (j - l > r - i) {
        if (l < j) { lstack[s] = l; rstack[s] = j; ++s; }
        l = i;
      } else {
        if (i < r) { lstack[s] = i; rstack[s] = r; ++s; }
        r = j;
      }
    }
  }
}

}  // namespace

void sort_hashm(double* x, std::int64_t hash_size, std::int64_t rows, std::span<const std::int32_t> key_rows,
                std::int64_t nel) {
  if (nel > hash_size) nel = hash_size;
  quicksort_columns<std::int64_t>(x, rows, key_rows, nel);
}

void sort_hashm_i4(double* x, std::int32_t hash_size, std::int32_t rows, std::span<const std::int32_t> key_rows,
                   std::int32_t nel) {
  if (nel > hash_size) nel = hash_size;
  quicksort_columns<std::int32_t>(x, rows, key_rows, nel);
}

}  // namespace mmekit
