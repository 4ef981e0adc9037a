// Test patterns for the orderings and the fill of an elimination order.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "common/mme.hpp"
#include "common/symbolic_ref.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"

namespace skelda_test {

// Upper triangle (diagonal first) of a symmetric pattern in 1-based row-compressed form.
using Pattern = mmekit::sparse_ija;
using Edges = std::vector<std::pair<std::int32_t, std::int32_t>>;

// From a list of undirected edges (0-based, any order, duplicates removed).
inline Pattern from_edges(std::int32_t n, const Edges& edges) {
  std::vector<std::set<std::int32_t>> rows(n);
  for (std::int32_t i = 0; i < n; ++i) rows[i].insert(i);
  for (const auto& [u, v] : edges) rows[std::min(u, v)].insert(std::max(u, v));
  Pattern p;
  p.n = n;
  p.ia = mmekit::Array1<std::int32_t>(n + 1);
  for (std::int32_t i = 0; i < n; ++i) {
    p.ia(i + 1) = static_cast<std::int32_t>(p.ja.size() + 1);
    for (std::int32_t j : rows[i])
      p.ja.vec().push_back(j + 1), p.a.vec().push_back(j == i ? static_cast<double>(rows[i].size() + 10) : -1.0);
  }
  p.nel = static_cast<std::int32_t>(p.ja.size());
  p.ia(n + 1) = p.nel + 1;
  return p;
}

inline Edges grid_edges(std::int32_t nx, std::int32_t ny) {
  Edges e;
  for (std::int32_t y = 0; y < ny; ++y)
    for (std::int32_t x = 0; x < nx; ++x) {
      const std::int32_t v = y * nx + x;
      if (x + 1 < nx) e.push_back({v, v + 1});
      if (y + 1 < ny) e.push_back({v, v + nx});
    }
  return e;
}

inline Pattern grid2d(std::int32_t nx, std::int32_t ny) { return from_edges(nx * ny, grid_edges(nx, ny)); }

inline Pattern random_graph(std::int32_t n, std::int32_t edges, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<std::int32_t> u(0, n - 1);
  Edges e;
  for (std::int32_t k = 0; k < edges; ++k) e.push_back({u(rng), u(rng)});
  return from_edges(n, e);
}

inline Pattern dense(std::int32_t n) {
  Edges e;
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = i + 1; j < n; ++j) e.push_back({i, j});
  return from_edges(n, e);
}

// Several components: a grid, a path, isolated nodes and a small clique, interleaved by a
// scrambling of the numbers.
inline Pattern disconnected() {
  Edges e = grid_edges(5, 5);
  for (std::int32_t v = 25; v < 34; ++v) e.push_back({v, v + 1});
  for (std::int32_t i = 40; i < 45; ++i)
    for (std::int32_t j = i + 1; j < 45; ++j) e.push_back({i, j});
  const std::int32_t n = 48;  // 35..39 and 45..47 are isolated
  for (auto& p : e) p = {(p.first * 29) % n, (p.second * 29) % n};  // 29 is prime to 48
  return from_edges(n, e);
}

// The pattern of small mixed-model equations of an animal model.
inline Pattern mme(std::int64_t records, unsigned seed) { return mmekit::test::small_mme(records, seed).ija; }

// Nonzeros of L (diagonal included) when the pattern is eliminated in the order perm
// (perm(k) = original node of pivot k), by dense symbolic elimination.
inline std::int64_t fill_count(const Pattern& p, const mmekit::Array1<std::int32_t>& perm) {
  mmekit::Array1<std::int32_t> iperm(p.n);
  for (std::int32_t k = 1; k <= p.n; ++k) iperm(perm(k)) = k;
  return mmekit::test::DenseFill(p.n, p.ia, p.ja, iperm).total();
}

inline bool is_permutation_pair(const mmekit::Array1<std::int32_t>& perm,
                                const mmekit::Array1<std::int32_t>& iperm, std::int32_t n) {
  if (perm.size() < n || iperm.size() < n) return false;
  std::vector<char> seen(n, 0);
  for (std::int32_t k = 1; k <= n; ++k) {
    const std::int32_t v = perm(k);
    if (v < 1 || v > n || seen[v - 1] || iperm(v) != k) return false;
    seen[v - 1] = 1;
  }
  return true;
}

inline mmekit::Array1<std::int32_t> identity(std::int32_t n) {
  mmekit::Array1<std::int32_t> p(n);
  for (std::int32_t i = 1; i <= n; ++i) p(i) = i;
  return p;
}

}  // namespace skelda_test
