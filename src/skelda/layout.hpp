// The storage map of the supernodal factor (the "sx2" layout), shared by the symbolic and
// numeric factorisation, the solves and the inversion.
//
// Supernode s holds columns xsuper(s)..xsuper(s+1)-1 (width w) and the m = xlindx(s+1)-xlindx(s)
// rows of lindx below its diagonal block. Its values start at xlnz(s) in lnz, in one of two forms:
//
// Normal form (m > 0, or w <= p with p the panel size): the w-by-w diagonal block D (leading
// dimension w, only the lower triangle meaningful), then the m-by-w block B (leading dimension m).
//
// Panel form (m = 0 and w > p, so only a root): nb = ceil(w/p) block columns of width p, block
// column J holding block rows J..nb as one rectangle of height (nb-J+1) p, column-major with that
// height as leading dimension. The last block is full size; the padding beyond w stays zero.
//
// All positions are 1-based indices into lnz; sizes are 8-byte counts.
#pragma once

#include <cstdint>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Number of block columns of a panel-form supernode of width w with panel size p.
inline std::int64_t sx2_blocks(std::int64_t w, std::int64_t p) { return (w + p - 1) / p; }

// True when a supernode of width w with m rows below its block takes the panel form.
inline bool sx2_panel_form(std::int64_t w, std::int64_t m, std::int64_t p) { return m == 0 && w > p; }

// Storage of a supernode: (w+m) w in normal form, nb(nb+1)/2 p p in panel form. Returns -1 when
// the count does not fit an 8-byte integer.
inline std::int64_t sx2_size(std::int64_t w, std::int64_t m, std::int64_t p) {
  std::int64_t r = 0;
  if (!sx2_panel_form(w, m, p)) {
    if (__builtin_add_overflow(w, m, &r) || __builtin_mul_overflow(r, w, &r)) return -1;
    return r;
  }
  const std::int64_t nb = sx2_blocks(w, p);
  std::int64_t pp = 0;
  if (__builtin_mul_overflow(nb, nb + 1, &r) || __builtin_mul_overflow(p, p, &pp) ||
      __builtin_mul_overflow(r / 2, pp, &r))
    return -1;
  return r;
}

// Offset (from 0) of block column J (1-based) of a panel-form supernode with nb block columns.
inline std::int64_t sx2_block_column_offset(std::int64_t j, std::int64_t nb, std::int64_t p) {
  return (j - 1) * (2 * nb - j + 2) / 2 * p * p;
}

// Offset (from 0) inside a panel-form supernode of element (r, c), both local 1-based, r >= c.
inline std::int64_t sx2_panel_offset(std::int64_t r, std::int64_t c, std::int64_t nb, std::int64_t p) {
  const std::int64_t jb = (c - 1) / p + 1, ib = (r - 1) / p + 1;
  const std::int64_t rl = r - (ib - 1) * p, cl = c - (jb - 1) * p;
  const std::int64_t ld = (nb - jb + 1) * p;
  return sx2_block_column_offset(jb, nb, p) + (ib - jb) * p + (rl - 1) + ld * (cl - 1);
}

// A view of the symbolic structure: the arrays belong to the caller (usually skelda_state).
struct Sx2Layout {
  std::int32_t n = 0;
  std::int32_t nsn = 0;
  std::int64_t panel = 256;                         // p, iparm(10)
  const Array1<std::int32_t>* xsuper = nullptr;     // nsn+1
  const Array1<std::int32_t>* snode = nullptr;      // n
  const Array1<std::int64_t>* xlindx = nullptr;     // nsn+1
  const Array1<std::int32_t>* lindx = nullptr;      // xlindx(nsn+1)-1
  const Array1<std::int64_t>* xlnz = nullptr;       // nsn+1

  std::int64_t first(std::int32_t s) const { return (*xsuper)(s); }
  std::int64_t width(std::int32_t s) const { return (*xsuper)(s + 1) - (*xsuper)(s); }
  std::int64_t rows_below(std::int32_t s) const { return (*xlindx)(s + 1) - (*xlindx)(s); }
  bool panel_form(std::int32_t s) const { return sx2_panel_form(width(s), rows_below(s), panel); }

  // Position of element (r, c) of the diagonal block of s, local 1-based, r >= c.
  std::int64_t diag_position(std::int32_t s, std::int64_t r, std::int64_t c) const {
    const std::int64_t w = width(s);
    if (panel_form(s)) return (*xlnz)(s) + sx2_panel_offset(r, c, sx2_blocks(w, panel), panel);
    return (*xlnz)(s) + (c - 1) * w + (r - 1);
  }
  // Position of the k-th row of the row list (k from 0) in local column c (normal form).
  std::int64_t below_position(std::int32_t s, std::int64_t k, std::int64_t c) const {
    const std::int64_t w = width(s);
    return (*xlnz)(s) + w * w + (c - 1) * rows_below(s) + k;
  }
};

}  // namespace mmekit
