// Multiple minimum degree on the quotient graph.
//
// The graph is held as in every quotient-graph ordering: each node owns a list in one integer
// pool; a live variable's list holds the elements it belongs to and the variables it is still
// joined to directly, an element's list holds its boundary variables. Eliminating a variable p
// turns it into an element whose boundary is the union of its variable neighbours and the
// boundaries of its adjacent elements, which are absorbed. Variables whose lists become equal
// (up to each other) are merged into one group and numbered together. Nodes are taken in rounds:
// every node of degree up to (minimum + delta) that no element of the round touches is
// eliminated before the touched nodes get their exact external degrees again.
//
// Internally 0-based; the caller's arrays are 1-based.
#include "mmekit/skelda/mmd.hpp"

#include <algorithm>
#include <climits>
#include <vector>

namespace mmekit {

namespace {

enum : std::int8_t { kVariable = 0, kElement = 1, kDead = 2 };

struct MmdGraph {
  std::int32_t n = 0;
  std::vector<std::int32_t> iw;     // list pool
  std::int64_t pfree = 0;           // first free word of the pool
  std::vector<std::int64_t> pe;     // start of each list
  std::vector<std::int32_t> len;    // length of each list
  std::vector<std::int8_t> state;   // kVariable, kElement, kDead
  std::vector<std::int32_t> nv;     // weight of a group (0 once merged away)
  std::int32_t* marker = nullptr;   // caller's work array, 0-based view
  std::int32_t tag = 0;
  std::int32_t maxint = INT32_MAX;

  // A fresh marker value; all marks are cleared when the counter would pass maxint.
  std::int32_t new_tag() {
    if (tag >= maxint - 1 || tag >= INT32_MAX - 1) {
      std::fill(marker, marker + n, 0);
      tag = 0;
    }
    return ++tag;
  }

  bool live_variable(std::int32_t x) const { return state[x] == kVariable && nv[x] > 0; }

  // Moves every live list to the front of the pool, in the order of their starts.
  void compact() {
    std::vector<std::int32_t> owners;
    owners.reserve(n);
    for (std::int32_t x = 0; x < n; ++x)
      if (state[x] != kDead && len[x] > 0) owners.push_back(x);
    std::sort(owners.begin(), owners.end(), [&](std::int32_t a, std::int32_t b) { return pe[a] < pe[b]; });
    std::int64_t dst = 0;
    for (std::int32_t x : owners) {
      std::int64_t src = pe[x];
      if (src != dst) std::copy(iw.begin() + src, iw.begin() + src + len[x], iw.begin() + dst);
      pe[x] = dst;
      dst += len[x];
    }
    pfree = dst;
  }

  // Makes room for `words` more words at pfree.
  void reserve(std::int64_t words) {
    if (pfree + words <= static_cast<std::int64_t>(iw.size())) return;
    compact();
    if (pfree + words > static_cast<std::int64_t>(iw.size()))
      iw.resize(static_cast<std::size_t>(pfree + words + n));
  }
};

}  // namespace

void mmd_genmmd(std::int32_t n, Array1<std::int32_t>& xadj, Array1<std::int32_t>& adjncy,
                Array1<std::int32_t>& invp, Array1<std::int32_t>& perm, std::int32_t delta,
                Array1<std::int32_t>& head, Array1<std::int32_t>& qsize, Array1<std::int32_t>& list,
                Array1<std::int32_t>& marker, std::int32_t maxint, std::int32_t& nofsub) {
  nofsub = 0;
  if (n <= 0) return;
  for (Array1<std::int32_t>* a : {&invp, &perm, &head, &qsize, &list, &marker})
    if (a->size() < n) a->resize(n);

  MmdGraph g;
  g.n = n;
  g.maxint = maxint > 2 ? maxint : 3;
  g.marker = marker.data();
  std::fill(g.marker, g.marker + n, 0);
  const std::int64_t nnz = static_cast<std::int64_t>(xadj(n + 1)) - xadj(1);
  g.iw.assign(static_cast<std::size_t>(nnz + 2 * static_cast<std::int64_t>(n) + 1), 0);
  g.pe.resize(n);
  g.len.resize(n);
  g.state.assign(n, kVariable);
  g.nv.assign(n, 1);
  // Copy the graph into the pool, 0-based, dropping self loops and out-of-range entries.
  {
    std::int64_t p = 0;
    for (std::int32_t i = 0; i < n; ++i) {
      g.pe[i] = p;
      for (std::int64_t k = xadj(i + 1); k < xadj(i + 2); ++k) {
        std::int32_t j = adjncy(k) - 1;
        if (j != i && j >= 0 && j < n) g.iw[p++] = j;
      }
      g.len[i] = static_cast<std::int32_t>(p - g.pe[i]);
    }
    g.pfree = p;
  }
  // The caller's adjacency is consumed: it keeps the compacted 1-based copy of the input.
  for (std::int64_t k = 0; k < g.pfree && k < adjncy.size(); ++k) adjncy(k + 1) = g.iw[k] + 1;

  // Degree buckets: head(d) first node of degree d, doubly linked through fwd/bwd.
  std::int32_t* hd = head.data();
  std::fill(hd, hd + n, -1);
  std::vector<std::int32_t> fwd(n, -1), bwd(n, -1), deg(n, 0);
  std::vector<char> in_bucket(n, 0), in_update(n, 0);
  std::int32_t* member_next = list.data();  // chain of the members of a group
  std::fill(member_next, member_next + n, -1);
  std::vector<std::int32_t> member_tail(n);
  for (std::int32_t i = 0; i < n; ++i) member_tail[i] = i;
  std::int32_t mindeg = n;
  std::fill(qsize.data(), qsize.data() + n, 0);

  auto bucket_insert = [&](std::int32_t i) {
    std::int32_t d = deg[i];
    fwd[i] = hd[d];
    bwd[i] = -1;
    if (hd[d] >= 0) bwd[hd[d]] = i;
    hd[d] = i;
    in_bucket[i] = 1;
    if (d < mindeg) mindeg = d;
  };
  auto bucket_remove = [&](std::int32_t i) {
    if (!in_bucket[i]) return;
    if (bwd[i] >= 0) fwd[bwd[i]] = fwd[i]; else hd[deg[i]] = fwd[i];
    if (fwd[i] >= 0) bwd[fwd[i]] = bwd[i];
    in_bucket[i] = 0;
  };

  // Drops dead entries (and pruned ones when `drop_marked` uses the current tag) from a list.
  auto compact_list = [&](std::int32_t i) {
    std::int64_t p = g.pe[i], q = p;
    for (std::int64_t k = p; k < p + g.len[i]; ++k) {
      std::int32_t x = g.iw[k];
      if (g.state[x] == kElement || g.live_variable(x)) g.iw[q++] = x;
    }
    g.len[i] = static_cast<std::int32_t>(q - p);
  };

  std::vector<std::int32_t> update;
  update.reserve(n);
  std::vector<std::int32_t> hash_head(n, -1), hash_next(n, -1);
  std::vector<std::int64_t> hash_key(n, 0);

  // Brings the nodes of `update` back: merges indistinguishable ones, exact degrees, buckets.
  auto do_update = [&]() {
    for (std::int32_t i : update) compact_list(i);
    // Group detection: two touched variables with equal lists that hold an element are joined
    // through that element, so they are indistinguishable and form one group. Nodes without
    // an element in their list (the start) are left alone.
    for (std::int32_t i : update) {
      std::int64_t key = 0;
      bool has_element = false;
      for (std::int64_t k = g.pe[i]; k < g.pe[i] + g.len[i]; ++k) {
        key += g.iw[k];
        if (g.state[g.iw[k]] == kElement) has_element = true;
      }
      if (!has_element) {
        hash_key[i] = -1;
        continue;
      }
      key %= n;
      hash_key[i] = key;
      hash_next[i] = hash_head[key];
      hash_head[key] = i;
    }
    for (std::int32_t i0 : update) {
      std::int64_t key = hash_key[i0];
      if (key < 0) continue;
      std::int32_t chain = hash_head[key];
      if (chain < 0) continue;
      hash_head[key] = -1;
      for (std::int32_t i = chain; i >= 0; i = hash_next[i]) {
        if (!g.live_variable(i)) continue;
        bool marked = false;
        std::int32_t t = 0;
        for (std::int32_t j = hash_next[i]; j >= 0; j = hash_next[j]) {
          if (!g.live_variable(j) || g.len[j] != g.len[i]) continue;
          if (!marked) {
            t = g.new_tag();
            for (std::int64_t k = g.pe[i]; k < g.pe[i] + g.len[i]; ++k) g.marker[g.iw[k]] = t;
            marked = true;
          }
          bool same = true;
          for (std::int64_t k = g.pe[j]; k < g.pe[j] + g.len[j] && same; ++k)
            same = g.marker[g.iw[k]] == t;
          if (!same) continue;
          // j joins group i.
          g.nv[i] += g.nv[j];
          g.nv[j] = 0;
          g.state[j] = kDead;
          member_next[member_tail[i]] = j;
          member_tail[i] = member_tail[j];
          g.len[j] = 0;
        }
      }
    }
    for (std::int32_t i : update) {
      if (!g.live_variable(i)) continue;
      compact_list(i);
      std::int32_t t = g.new_tag();
      g.marker[i] = t;
      std::int64_t d = 0;
      // An element whose members were all counted already (through elements or variables
      // scanned before it) adds nothing for i: it leaves i's list. Coverage only grows as
      // elements are absorbed into larger ones, so the union of i's list stays exact.
      // The newest elements (the largest) sit at the end of the list and are scanned first.
      const std::int64_t s0 = g.pe[i];
      std::int64_t dropped = 0;
      for (std::int64_t k = s0 + g.len[i] - 1; k >= s0; --k) {
        std::int32_t x = g.iw[k];
        if (g.state[x] == kElement) {
          // Scan the element, dropping members that were merged away.
          std::int64_t p = g.pe[x], q = p, before = d;
          for (std::int64_t m = p; m < p + g.len[x]; ++m) {
            std::int32_t y = g.iw[m];
            if (!g.live_variable(y)) continue;
            g.iw[q++] = y;
            if (g.marker[y] != t) {
              g.marker[y] = t;
              d += g.nv[y];
            }
          }
          g.len[x] = static_cast<std::int32_t>(q - p);
          if (d == before) {
            g.iw[k] = -1;  // redundant for i
            ++dropped;
          }
        } else if (g.marker[x] != t) {
          g.marker[x] = t;
          d += g.nv[x];
        }
      }
      if (dropped > 0) {
        std::int64_t w = s0;
        for (std::int64_t k = s0; k < s0 + g.len[i]; ++k)
          if (g.iw[k] >= 0) g.iw[w++] = g.iw[k];
        g.len[i] = static_cast<std::int32_t>(w - s0);
      }
      deg[i] = static_cast<std::int32_t>(std::min<std::int64_t>(d, n - 1));
      bucket_insert(i);
    }
    for (std::int32_t i : update) in_update[i] = 0;
    update.clear();
  };

  // Start: every node is brought in as if touched.
  for (std::int32_t i = 0; i < n; ++i) {
    update.push_back(i);
    in_update[i] = 1;
  }
  do_update();

  std::int64_t subscripts = 0;
  std::int32_t num = 0;
  std::vector<std::int32_t> lp;
  lp.reserve(n);
  while (num < n) {
    while (mindeg < n && hd[mindeg] < 0) ++mindeg;
    if (mindeg >= n) break;  // cannot happen while nodes remain
    const std::int64_t lim = delta < 0 ? mindeg : static_cast<std::int64_t>(mindeg) + delta;
    bool first = true;
    for (;;) {
      std::int32_t d = mindeg;
      while (d < n && hd[d] < 0) ++d;
      if (d >= n || d > lim || (!first && delta < 0)) break;
      first = false;
      const std::int32_t p = hd[d];
      bucket_remove(p);
      // Form the element of p.
      std::int32_t t = g.new_tag();
      g.marker[p] = t;
      lp.clear();
      std::int64_t ext = 0;
      for (std::int64_t k = g.pe[p]; k < g.pe[p] + g.len[p]; ++k) {
        std::int32_t x = g.iw[k];
        if (g.state[x] == kElement) {
          for (std::int64_t m = g.pe[x]; m < g.pe[x] + g.len[x]; ++m) {
            std::int32_t y = g.iw[m];
            if (g.live_variable(y) && g.marker[y] != t) {
              g.marker[y] = t;
              lp.push_back(y);
              ext += g.nv[y];
            }
          }
          g.state[x] = kDead;  // absorbed into the new element
          g.len[x] = 0;
        } else if (g.live_variable(x) && g.marker[x] != t) {
          g.marker[x] = t;
          lp.push_back(x);
          ext += g.nv[x];
        }
      }
      g.reserve(static_cast<std::int64_t>(lp.size()));
      g.pe[p] = g.pfree;
      std::copy(lp.begin(), lp.end(), g.iw.begin() + g.pfree);
      g.len[p] = static_cast<std::int32_t>(lp.size());
      g.pfree += static_cast<std::int64_t>(lp.size());
      g.state[p] = kElement;
      // Number the group.
      qsize(p + 1) = g.nv[p];
      for (std::int32_t m = p; m >= 0; m = member_next[m]) perm(++num) = m + 1;
      subscripts += g.nv[p] + ext;
      // Touched variables leave the buckets; their lists lose the absorbed elements and the
      // variables now covered by p, and gain p as element.
      for (std::int32_t i : lp) {
        bucket_remove(i);
        if (!in_update[i]) {
          in_update[i] = 1;
          update.push_back(i);
        }
        std::int64_t s = g.pe[i], q = s;
        const std::int64_t len_before = g.len[i];
        for (std::int64_t k = s; k < s + g.len[i]; ++k) {
          std::int32_t x = g.iw[k];
          if (x == p) continue;
          if (g.state[x] == kElement || (g.live_variable(x) && g.marker[x] != t)) g.iw[q++] = x;
        }
        g.len[i] = static_cast<std::int32_t>(q - s);
        if (q == s + len_before) {
          // No entry was dropped (i lost the absorbed element from its list earlier as
          // redundant): the list moves to the end of the pool to take p.
          g.reserve(g.len[i] + 1);
          std::copy(g.iw.begin() + g.pe[i], g.iw.begin() + g.pe[i] + g.len[i], g.iw.begin() + g.pfree);
          g.pe[i] = g.pfree;
          g.pfree += g.len[i] + 1;
          q = g.pe[i] + g.len[i];
          s = g.pe[i];
        }
        g.iw[q++] = p;
        g.len[i] = static_cast<std::int32_t>(q - s);
      }
      if (num >= n) break;
    }
    do_update();
  }
  for (std::int32_t k = 1; k <= n; ++k) invp(perm(k)) = k;
  nofsub = static_cast<std::int32_t>(std::min<std::int64_t>(subscripts, INT32_MAX));
}

}  // namespace mmekit
