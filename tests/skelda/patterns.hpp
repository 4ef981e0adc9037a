// Test patterns for the orderings and a plain symbolic-elimination fill counter.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "mmekit/support/array.hpp"

namespace skelda_test {

// Upper triangle (diagonal first) of a symmetric pattern in 1-based row-compressed form.
struct Pattern {
  std::int32_t n = 0;
  mmekit::Array1<std::int32_t> ia, ja;
  mmekit::Array1<double> a;
};

// From a list of undirected edges (0-based, any order, duplicates removed).
inline Pattern from_edges(std::int32_t n, std::vector<std::pair<std::int32_t, std::int32_t>> edges) {
  for (auto& e : edges)
    if (e.first > e.second) std::swap(e.first, e.second);
  std::sort(edges.begin(), edges.end());
  edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
  std::vector<std::vector<std::int32_t>> rows(n);
  for (std::int32_t i = 0; i < n; ++i) rows[i].push_back(i);
  for (auto& e : edges)
    if (e.first != e.second) rows[e.first].push_back(e.second);
  Pattern p;
  p.n = n;
  p.ia = mmekit::Array1<std::int32_t>(n + 1);
  std::int32_t nnz = 0;
  for (auto& r : rows) nnz += static_cast<std::int32_t>(r.size());
  p.ja = mmekit::Array1<std::int32_t>(nnz);
  p.a = mmekit::Array1<double>(nnz);
  std::int32_t k = 1;
  for (std::int32_t i = 0; i < n; ++i) {
    p.ia(i + 1) = k;
    for (std::int32_t j : rows[i]) {
      p.ja(k) = j + 1;
      p.a(k) = (j == i) ? static_cast<double>(rows[i].size() + 10) : -1.0;
      ++k;
    }
  }
  p.ia(n + 1) = k;
  return p;
}

inline std::vector<std::pair<std::int32_t, std::int32_t>> grid_edges(std::int32_t nx, std::int32_t ny) {
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t y = 0; y < ny; ++y)
    for (std::int32_t x = 0; x < nx; ++x) {
      std::int32_t v = y * nx + x;
      if (x + 1 < nx) e.push_back({v, v + 1});
      if (y + 1 < ny) e.push_back({v, v + nx});
    }
  return e;
}

inline Pattern grid2d(std::int32_t nx, std::int32_t ny) { return from_edges(nx * ny, grid_edges(nx, ny)); }

inline Pattern grid3d(std::int32_t m) {
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

inline Pattern random_graph(std::int32_t n, std::int32_t edges, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<std::int32_t> u(0, n - 1);
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t k = 0; k < edges; ++k) e.push_back({u(rng), u(rng)});
  return from_edges(n, e);
}

inline Pattern dense(std::int32_t n) {
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = i + 1; j < n; ++j) e.push_back({i, j});
  return from_edges(n, e);
}

// Several components: a grid, a path, isolated nodes and a small clique, interleaved by a
// scrambling of the numbers.
inline Pattern disconnected() {
  std::vector<std::pair<std::int32_t, std::int32_t>> e = grid_edges(5, 5);
  for (std::int32_t v = 25; v < 34; ++v) e.push_back({v, v + 1});
  for (std::int32_t i = 40; i < 45; ++i)
    for (std::int32_t j = i + 1; j < 45; ++j) e.push_back({i, j});
  const std::int32_t n = 48;  // 35..39 and 45..47 are isolated
  std::vector<std::int32_t> scramble(n);
  for (std::int32_t i = 0; i < n; ++i) scramble[i] = (i * 29) % n;  // 29 is prime to 48
  for (auto& p : e) p = {scramble[p.first], scramble[p.second]};
  return from_edges(n, e);
}

// Mixed-model pattern of an animal model: a herd-year effect, then animals with sire and
// dam (unknown parents allowed); each record joins the herd-year of the animal and the animal;
// the inverse relationship matrix joins each animal to its parents and the parents together.
inline Pattern animal_mme(std::int32_t animals, std::int32_t herds, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::pair<std::int32_t, std::int32_t>> e;
  const std::int32_t n = herds + animals;
  for (std::int32_t a = 0; a < animals; ++a) {
    std::int32_t v = herds + a;
    if (a > animals / 10) {
      std::int32_t s = herds + static_cast<std::int32_t>(rng() % static_cast<unsigned>(a));
      std::int32_t d = herds + static_cast<std::int32_t>(rng() % static_cast<unsigned>(a));
      bool known_s = rng() % 10 != 0, known_d = rng() % 5 != 0;
      if (known_s) e.push_back({v, s});
      if (known_d) e.push_back({v, d});
      if (known_s && known_d) e.push_back({s, d});
    }
    e.push_back({static_cast<std::int32_t>(rng() % static_cast<unsigned>(herds)), v});
  }
  return from_edges(n, e);
}

// Nonzeros of L (diagonal included) when the pattern is eliminated in the order perm
// (perm(k) = original node of pivot k), counted on the explicit elimination graph.
inline std::int64_t fill_count(const Pattern& p, const mmekit::Array1<std::int32_t>& perm) {
  std::vector<std::set<std::int32_t>> g(p.n);
  for (std::int32_t i = 1; i <= p.n; ++i)
    for (std::int32_t k = p.ia(i); k < p.ia(i + 1); ++k) {
      std::int32_t j = p.ja(k);
      if (j != i) {
        g[i - 1].insert(j - 1);
        g[j - 1].insert(i - 1);
      }
    }
  std::int64_t total = 0;
  for (std::int32_t k = 1; k <= p.n; ++k) {
    std::int32_t v = perm(k) - 1;
    std::vector<std::int32_t> nb(g[v].begin(), g[v].end());
    total += 1 + static_cast<std::int64_t>(nb.size());
    for (std::int32_t a : nb) {
      g[a].erase(v);
      for (std::int32_t b : nb)
        if (a != b) g[a].insert(b);
    }
    g[v].clear();
  }
  return total;
}

inline bool is_permutation_pair(const mmekit::Array1<std::int32_t>& perm,
                                const mmekit::Array1<std::int32_t>& iperm, std::int32_t n) {
  if (perm.size() < n || iperm.size() < n) return false;
  std::vector<char> seen(n, 0);
  for (std::int32_t k = 1; k <= n; ++k) {
    std::int32_t v = perm(k);
    if (v < 1 || v > n || seen[v - 1]) return false;
    seen[v - 1] = 1;
    if (iperm(v) != k) return false;
  }
  return true;
}

inline mmekit::Array1<std::int32_t> identity(std::int32_t n) {
  mmekit::Array1<std::int32_t> p(n);
  for (std::int32_t i = 1; i <= n; ++i) p(i) = i;
  return p;
}

// Full adjacency (both triangles, no diagonal), 1-based.
inline void full_graph(const Pattern& p, mmekit::Array1<std::int32_t>& xadj, mmekit::Array1<std::int32_t>& adj) {
  std::vector<std::vector<std::int32_t>> g(p.n);
  for (std::int32_t i = 1; i <= p.n; ++i)
    for (std::int32_t k = p.ia(i); k < p.ia(i + 1); ++k) {
      std::int32_t j = p.ja(k);
      if (j != i) {
        g[i - 1].push_back(j);
        g[j - 1].push_back(i);
      }
    }
  xadj = mmekit::Array1<std::int32_t>(p.n + 1);
  std::int32_t total = 0;
  for (auto& r : g) total += static_cast<std::int32_t>(r.size());
  adj = mmekit::Array1<std::int32_t>(std::max(total, 1));
  std::int32_t k = 1;
  for (std::int32_t i = 0; i < p.n; ++i) {
    xadj(i + 1) = k;
    for (std::int32_t j : g[i]) adj(k++) = j;
  }
  xadj(p.n + 1) = k;
}

}  // namespace skelda_test
