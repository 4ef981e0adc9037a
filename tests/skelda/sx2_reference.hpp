// A plain symbolic factorisation for the tests of the numeric steps: column structures by
// eliminating sets of rows one column at a time, exactly nested columns merged into supernodes,
// non-root supernodes cut at a width threshold, and the storage map of layout.hpp. It is slow
// (sets of rows) and meant for a few hundred equations.
#pragma once

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/array.hpp"

namespace skelda_test {

struct Sx2Structure {
  std::int32_t n = 0, nsn = 0;
  std::int64_t panel = 256;
  mmekit::Array1<std::int32_t> xsuper, snode, snparent, lindx;
  mmekit::Array1<std::int64_t> xlindx, xlnz;
  std::int64_t lx_size = 0, maxcolcnt = 0, colcnt_sum = 0, rows_sum = 0;

  mmekit::Sx2Layout layout() const {
    mmekit::Sx2Layout l;
    l.n = n;
    l.nsn = nsn;
    l.panel = panel;
    l.xsuper = &xsuper;
    l.snode = &snode;
    l.xlindx = &xlindx;
    l.lindx = &lindx;
    l.xlnz = &xlnz;
    return l;
  }
};

// The structure of the upper triangle (ia, ja) of order n under iperm (new index of each
// original one), with panel size p and split threshold t.
inline Sx2Structure reference_sx2(std::int32_t n, const mmekit::Array1<std::int32_t>& ia,
                                  const mmekit::Array1<std::int32_t>& ja, const mmekit::Array1<std::int32_t>& iperm,
                                  std::int64_t p = 256, std::int64_t t = 2147483647) {
  std::vector<std::set<std::int32_t>> cols(static_cast<std::size_t>(n) + 1);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int32_t a = iperm(i), b = iperm(ja(k));
      if (a != b) cols[static_cast<std::size_t>(std::min(a, b))].insert(std::max(a, b));
    }
  std::vector<std::int32_t> parent(static_cast<std::size_t>(n) + 1, 0);
  std::vector<std::int64_t> colcnt(static_cast<std::size_t>(n) + 1, 0);
  for (std::int32_t c = 1; c <= n; ++c) {
    auto& s = cols[static_cast<std::size_t>(c)];
    colcnt[static_cast<std::size_t>(c)] = static_cast<std::int64_t>(s.size()) + 1;
    if (s.empty()) continue;
    const std::int32_t par = *s.begin();
    parent[static_cast<std::size_t>(c)] = par;
    for (std::int32_t r : s)
      if (r != par) cols[static_cast<std::size_t>(par)].insert(r);
  }
  // Fundamental supernodes, then the cut of the non-roots.
  std::vector<std::int32_t> first;
  for (std::int32_t c = 1; c <= n;) {
    std::int32_t e = c + 1;
    while (e <= n && parent[static_cast<std::size_t>(e - 1)] == e &&
           colcnt[static_cast<std::size_t>(c)] == colcnt[static_cast<std::size_t>(e)] + (e - c))
      ++e;
    const bool root = parent[static_cast<std::size_t>(e - 1)] == 0;
    for (std::int32_t f = c; f < e; f = static_cast<std::int32_t>(root ? e : std::min<std::int64_t>(e, f + t)))
      first.push_back(f);
    c = e;
  }
  Sx2Structure s;
  s.n = n;
  s.panel = p;
  s.nsn = static_cast<std::int32_t>(first.size());
  s.xsuper = mmekit::Array1<std::int32_t>(s.nsn + 1);
  for (std::int32_t k = 1; k <= s.nsn; ++k) s.xsuper(k) = first[static_cast<std::size_t>(k - 1)];
  s.xsuper(s.nsn + 1) = n + 1;
  s.snode = mmekit::Array1<std::int32_t>(n);
  for (std::int32_t k = 1; k <= s.nsn; ++k)
    for (std::int32_t c = s.xsuper(k); c < s.xsuper(k + 1); ++c) s.snode(c) = k;
  s.snparent = mmekit::Array1<std::int32_t>(s.nsn);
  s.xlindx = mmekit::Array1<std::int64_t>(s.nsn + 1);
  s.xlnz = mmekit::Array1<std::int64_t>(s.nsn + 1);
  std::vector<std::int32_t> rows;
  s.xlindx(1) = 1;
  s.xlnz(1) = 1;
  for (std::int32_t k = 1; k <= s.nsn; ++k) {
    const std::int32_t f = s.xsuper(k), last = s.xsuper(k + 1) - 1;
    const std::int32_t par = parent[static_cast<std::size_t>(last)];
    s.snparent(k) = par ? s.snode(par) : 0;
    std::int64_t m = 0;
    for (std::int32_t r : cols[static_cast<std::size_t>(f)])
      if (r > last) {
        rows.push_back(r);
        ++m;
      }
    const std::int64_t w = last - f + 1;
    s.xlindx(k + 1) = s.xlindx(k) + m;
    s.xlnz(k + 1) = s.xlnz(k) + mmekit::sx2_size(w, m, p);
    s.rows_sum += colcnt[static_cast<std::size_t>(f)];
  }
  s.lindx = mmekit::Array1<std::int32_t>(static_cast<std::int64_t>(rows.size()));
  for (std::size_t i = 0; i < rows.size(); ++i) s.lindx(static_cast<std::int64_t>(i) + 1) = rows[i];
  s.lx_size = s.xlnz(s.nsn + 1) - 1;
  for (std::int32_t c = 1; c <= n; ++c) {
    s.maxcolcnt = std::max(s.maxcolcnt, colcnt[static_cast<std::size_t>(c)]);
    s.colcnt_sum += colcnt[static_cast<std::size_t>(c)];
  }
  return s;
}

// A symbolic step for the solver's step table built on reference_sx2, for the tests that run
// the task chain while no symbolic step of the library is installed.
inline std::int32_t reference_symfac(std::int32_t, const mmekit::SkeldaArgs& args, std::int32_t) {
  mmekit::SkeldaState& st = mmekit::skelda_state;
  if (st.stage() < 10) return mmekit::kSkeldaInvalidStep;
  const std::int32_t n = *args.neq;
  Sx2Structure s = reference_sx2(n, *args.ia, *args.ja, *st.iperm, st.iparm(mmekit::kPanelSize),
                                 st.iparm(mmekit::kSplitThreshold));
  st.xsuper = s.xsuper;
  st.snode = s.snode;
  st.snparent = s.snparent;
  st.xlindx = s.xlindx;
  st.lindx = s.lindx;
  st.xlnz = s.xlnz;
  st.lnz = mmekit::Array1<double>(s.lx_size, 0.0);
  st.cflag = mmekit::Array1<std::int32_t>(n, 0);
  st.iparm(mmekit::kN) = n;
  st.iparm(mmekit::kNnz) = (*args.ia)(n + 1) - 1;
  st.iparm(mmekit::kNsn) = s.nsn;
  st.iparm(mmekit::kMaxcolcnt) = s.maxcolcnt;
  st.iparm(mmekit::kLnzAllocated) = s.lx_size;
  st.iparm(mmekit::kLnzRowsSum) = s.rows_sum;
  st.iparm(mmekit::kLindxSize) = s.lindx.size();
  st.iparm(mmekit::kLnzEffective) = s.colcnt_sum;
  st.stage() = 20;
  return mmekit::kSkeldaOk;
}

// A fresh solver state with the numerical step of the library and, for the symbolic step,
// reference_symfac.
inline void fresh_state_with_reference_symfac() {
  mmekit::skelda_state = mmekit::SkeldaState{};
  mmekit::skelda_steps() = mmekit::SkeldaSteps{};
  mmekit::skelda_steps().symfac = reference_symfac;
  mmekit::skelda_steps().numfac = mmekit::skelda_numfac_step;
}

}  // namespace skelda_test
