// Benchmark patterns for the orderings (grids, and the graph of a matrix in row form) and a
// fill counter that works in linear memory.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace skelda_bench {

struct Graph {
  std::int32_t n = 0;
  mmekit::Array1<std::int32_t> ia, ja;    // upper triangle with diagonal, 1-based
  mmekit::Array1<std::int32_t> xadj, adj; // full graph without diagonal, 1-based
};

inline Graph from_edges(std::int32_t n, std::vector<std::pair<std::int32_t, std::int32_t>>& e) {
  for (auto& p : e)
    if (p.first > p.second) std::swap(p.first, p.second);
  std::sort(e.begin(), e.end());
  e.erase(std::unique(e.begin(), e.end()), e.end());
  e.erase(std::remove_if(e.begin(), e.end(), [](auto& p) { return p.first == p.second; }), e.end());
  Graph g;
  g.n = n;
  std::vector<std::int64_t> up(n + 1, 1), full(n + 1, 0);
  for (auto& p : e) {
    ++up[p.first];
    ++full[p.first];
    ++full[p.second];
  }
  g.ia = mmekit::Array1<std::int32_t>(n + 1);
  g.xadj = mmekit::Array1<std::int32_t>(n + 1);
  std::int32_t a = 1, b = 1;
  for (std::int32_t i = 0; i < n; ++i) {
    g.ia(i + 1) = a;
    g.xadj(i + 1) = b;
    a += static_cast<std::int32_t>(up[i]);
    b += static_cast<std::int32_t>(full[i]);
  }
  g.ia(n + 1) = a;
  g.xadj(n + 1) = b;
  g.ja = mmekit::Array1<std::int32_t>(a - 1);
  g.adj = mmekit::Array1<std::int32_t>(std::max(b - 1, 1));
  std::vector<std::int32_t> pu(n), pf(n);
  for (std::int32_t i = 0; i < n; ++i) {
    pu[i] = g.ia(i + 1);
    pf[i] = g.xadj(i + 1);
    g.ja(pu[i]++) = i + 1;
  }
  for (auto& p : e) {
    g.ja(pu[p.first]++) = p.second + 1;
    g.adj(pf[p.first]++) = p.second + 1;
    g.adj(pf[p.second]++) = p.first + 1;
  }
  return g;
}

inline Graph grid2d(std::int32_t m) {
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t y = 0; y < m; ++y)
    for (std::int32_t x = 0; x < m; ++x) {
      std::int32_t v = y * m + x;
      if (x + 1 < m) e.push_back({v, v + 1});
      if (y + 1 < m) e.push_back({v, v + m});
    }
  return from_edges(m * m, e);
}

inline Graph grid3d(std::int32_t m) {
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t z = 0; z < m; ++z)
    for (std::int32_t y = 0; y < m; ++y)
      for (std::int32_t x = 0; x < m; ++x) {
        std::int32_t v = (z * m + y) * m + x;
        if (x + 1 < m) e.push_back({v, v + 1});
        if (y + 1 < m) e.push_back({v, v + m});
        if (z + 1 < m) e.push_back({v, v + m * m});
      }
  return from_edges(m * m * m, e);
}

// The graph of a symmetric matrix in row form (upper triangle, 1-based), such as the MME of
// the data generator.
inline Graph from_ija(const mmekit::sparse_ija& m) {
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  e.reserve(static_cast<std::size_t>(m.nel));
  for (std::int32_t i = 1; i <= m.n; ++i)
    for (std::int32_t k = m.ia(i); k < m.ia(i + 1); ++k)
      if (m.ja(k) != i) e.push_back({i - 1, m.ja(k) - 1});
  return from_edges(m.n, e);
}

// Entries of L (diagonal included) for the pivot order perm (perm(k) = original node of pivot
// k): elimination tree of the permuted graph, then for every row the size of its row subtree.
inline std::int64_t fill(const Graph& g, const std::vector<std::int32_t>& perm) {
  const std::int32_t n = g.n;
  std::vector<std::int32_t> inv(n + 1);
  for (std::int32_t k = 1; k <= n; ++k) inv[perm[k - 1]] = k;
  // Permuted full graph, lower part only (neighbours below) suffices for both passes.
  std::vector<std::int64_t> start(n + 2, 0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t k = g.xadj(i); k < g.xadj(i + 1); ++k)
      if (inv[g.adj(k)] < inv[i]) ++start[inv[i] + 1];
  for (std::int32_t i = 1; i <= n + 1; ++i) start[i] += start[i - 1];
  std::vector<std::int32_t> low(static_cast<std::size_t>(start[n + 1]));
  std::vector<std::int64_t> pos(start.begin(), start.end());
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t k = g.xadj(i); k < g.xadj(i + 1); ++k)
      if (inv[g.adj(k)] < inv[i]) low[pos[inv[i]]++] = inv[g.adj(k)];
  std::vector<std::int32_t> parent(n + 1, 0), anc(n + 1, 0), mark(n + 1, 0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int64_t k = start[i]; k < start[i + 1]; ++k) {
      std::int32_t j = low[k];
      while (anc[j] != 0 && anc[j] != i) {
        std::int32_t t = anc[j];
        anc[j] = i;
        j = t;
      }
      if (anc[j] == 0) {
        anc[j] = i;
        parent[j] = i;
      }
    }
  std::int64_t total = n;
  for (std::int32_t i = 1; i <= n; ++i) {
    mark[i] = i;
    for (std::int64_t k = start[i]; k < start[i + 1]; ++k)
      for (std::int32_t j = low[k]; mark[j] != i; j = parent[j]) {
        mark[j] = i;
        ++total;
      }
  }
  return total;
}

}  // namespace skelda_bench
