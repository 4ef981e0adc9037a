// Row-compressed and list forms, and the conversions between them and the hash matrix.
#include "mmekit/sparse/ija.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "mmekit/sparse/fields.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

constexpr std::int64_t kMaxI4 = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void too_many(std::int64_t count) {
  stop("CONVERT_HASH_IJA_GENERAL: too many elements found in a hash matrix\n" +
       sparse_detail::message("The upper limit & actual number of elements", kMaxI4, count));
}

// Both conversions: `full` places every off-diagonal element also at its mirror position.
// Elements with an index outside 1..n have no place in the form and are left out.
void convert_upper(sparse_ija& target, const sparse_hashm& source, bool full) {
  if (source.nel > kMaxI4) too_many(source.nel);
  const std::int32_t n = source.n > 0 ? source.n : 0;
  const std::int64_t slots = source.allocated() ? source.hash_size : 0;
  const double* x = source.x.data();
  std::vector<std::int64_t> c(static_cast<std::size_t>(n) + 1, 0);  // c[i], 1-based
  // Both passes see the elements whose indices lie in 1..n: each(i, j, value).
  auto elements = [n, slots, x](auto each) {
    for (std::int64_t k = 0; k < slots; ++k) {
      const double* s = x + 3 * k;
      const std::int64_t i = trunc_index(s[0]);
      if (i <= 0) continue;
      const std::int64_t j = trunc_index(s[1]);
      if (i <= n && j >= 1 && j <= n) each(i, j, s[2]);
    }
  };
  elements([&](std::int64_t i, std::int64_t j, double) {
    if (full) {
      if (i < j) {
        ++c[static_cast<std::size_t>(i)];
        ++c[static_cast<std::size_t>(j)];
      }
    } else if (i < j) {
      // An element below the diagonal cannot be placed in the upper form, so it is not counted.
      ++c[static_cast<std::size_t>(i)];
    }
  });
  std::int64_t total = n;
  for (std::int32_t i = 1; i <= n; ++i) total += c[static_cast<std::size_t>(i)];
  if (total > kMaxI4) too_many(total);

  reset_sparse_ija(target);
  target.n = n;
  target.nel = static_cast<std::int32_t>(total);
  target.ia.assign(n + 1, 0);
  target.ja.assign(target.nel, 0);
  target.a.assign(target.nel, 0.0);
  target.ia(1) = 1;
  for (std::int32_t i = 1; i <= n; ++i) {
    target.ia(i + 1) = target.ia(i) + 1 + static_cast<std::int32_t>(c[static_cast<std::size_t>(i)]);
    target.ja(target.ia(i)) = i;
  }
  std::fill(c.begin(), c.end(), 1);
  std::int32_t* ia = target.ia.data() - 1;  // 1-based views of the three arrays
  std::int32_t* ja = target.ja.data() - 1;
  double* av = target.a.data() - 1;
  elements([&](std::int64_t i, std::int64_t j, double v) {
    if (i == j) {
      av[ia[i]] = v;
    } else if (i < j) {
      std::int64_t pos = ia[i] + c[static_cast<std::size_t>(i)]++;
      ja[pos] = static_cast<std::int32_t>(j);
      av[pos] = v;
      if (full) {
        pos = ia[j] + c[static_cast<std::size_t>(j)]++;
        ja[pos] = static_cast<std::int32_t>(i);
        av[pos] = v;
      }
    }
  });
}

}  // namespace

void CONVERT_HASH_IJA(sparse_ija& target, const sparse_hashm& source) {
  if (source.storage == 'f') stop("CONVERT_HASH_IJA: not yet implemented for full-stored hash matrix");
  convert_upper(target, source, false);
}

void CONVERT_HASH_IJA_GENERAL(sparse_ija& target, const sparse_hashm& source, std::optional<std::int32_t> mode) {
  if (source.storage == 'f') stop("CONVERT_HASH_IJA_GENERAL: not yet implemented for full-stored matrix");
  convert_upper(target, source, mode && *mode == 1);
}

void hashia(const double* table, std::int32_t m_hash, std::int32_t n, Array1<std::int32_t>& ia,
            Array1<std::int32_t>& ja, Array1<double>& a, std::int32_t m) {
  if (n < 0) n = 0;
  std::vector<std::int64_t> c(static_cast<std::size_t>(n) + 1, 0);
  std::int64_t bad = 0;
  auto legal = [n](std::int64_t i, std::int64_t j) { return i >= 1 && j >= 1 && i <= n && j <= n; };
  for (std::int64_t k = 0; k < m_hash; ++k) {
    const double* s = table + 3 * k;
    if (s[0] == 0.0) continue;
    const std::int64_t i = trunc_index(s[0]), j = trunc_index(s[1]);
    if (legal(i, j))
      ++c[static_cast<std::size_t>(i)];
    else
      ++bad;
  }
  if (ia.size() < n + 1) ia.resize(n + 1);
  ia(1) = 1;
  std::int64_t next = 1;
  for (std::int32_t i = 1; i <= n; ++i) {
    next += c[static_cast<std::size_t>(i)];
    if (next > kMaxI4) too_many(next - 1);
    ia(i + 1) = static_cast<std::int32_t>(next);
  }
  const std::int32_t needed = ia(n + 1) - 1;
  if (m < needed) stop(sparse_detail::message("Too small parameter m in hashia:should be > ", needed));
  if (ja.size() < needed) ja.resize(needed);
  if (a.size() < needed) a.resize(needed);
  std::fill(c.begin(), c.end(), 0);
  for (std::int64_t k = 0; k < m_hash; ++k) {
    const double* s = table + 3 * k;
    if (s[0] == 0.0) continue;
    const std::int64_t i = trunc_index(s[0]), j = trunc_index(s[1]);
    // An element with a column over n has no room in its row: it is only counted as bad.
    if (!legal(i, j)) continue;
    const std::int64_t pos = ia(i) + c[static_cast<std::size_t>(i)]++;
    ja(pos) = static_cast<std::int32_t>(j);
    a(pos) = s[2];
  }
  if (bad > 0)
    out() << sparse_detail::free_item(bad) << sparse_detail::message(" elements in HASH->IJA conversion had index(es) over ", n) << '\n';
}

namespace {

// Makes `target` a fresh hash matrix of storage `to` from the elements of `source`; `place`
// adds one element (value, row, column) to it. A target that is the source works from a copy.
template <class Place>
void restore(sparse_hashm& target, const sparse_hashm& source, char to, Place place) {
  if (&target == &source) {
    const sparse_hashm copy = source;
    restore(target, copy, to, place);
    return;
  }
  init_sparse_hashm(target, source.n, std::nullopt, to);
  const std::int64_t slots = source.allocated() ? source.hash_size : 0;
  const double* x = source.x.data();
  for (std::int64_t k = 0; k < slots; ++k) {
    const double* s = x + 3 * k;
    if (s[0] == 0.0) continue;
    const auto i = static_cast<std::int32_t>(trunc_index(s[0]));
    const auto j = static_cast<std::int32_t>(trunc_index(s[1]));
    place(s[2], i, j);
  }
}

}  // namespace

void HASHM_UPPER_FULL(sparse_hashm& target, const sparse_hashm& source) {
  if (source.storage != 'u') stop("HASHM_UPPER_FULL: original matrix not upper");
  restore(target, source, 'f', [&target](double v, std::int32_t i, std::int32_t j) {
    addm_sparse_hashm(v, i, j, target);
    if (i < j) addm_sparse_hashm(v, j, i, target);
  });
}

void HASHM_FULL_UPPER(sparse_hashm& target, const sparse_hashm& source) {
  if (source.storage != 'f') stop("HASHM_FULL_UPPER: original matrix not full storage");
  restore(target, source, 'u', [&target](double v, std::int32_t i, std::int32_t j) {
    if (i <= j) addm_sparse_hashm(v, i, j, target);
  });
}

namespace {

// What a row form promises beyond its structure: values for every element, and `nel` elements.
RowStructureRules ija_rules(const sparse_ija& a) {
  RowStructureRules rules;
  rules.values = a.a.size();
  rules.elements = a.nel;
  return rules;
}

}  // namespace

RowStructureFault check_sparse_ija(const sparse_ija& a) {
  return check_row_structure(a.n, span_of(a.ia), span_of(a.ja), ija_rules(a));
}

void require_sparse_ija(std::string_view who, const sparse_ija& a) {
  require_row_structure(who, a.n, span_of(a.ia), span_of(a.ja), ija_rules(a));
}

void hash_from_ija(sparse_hashm& target, const sparse_ija& source) {
  require_sparse_ija("hash_from_ija", source);
  init_sparse_hashm(target, source.n);
  for (std::int32_t i = 1; i <= source.n; ++i)
    for (std::int32_t k = source.ia(i); k < source.ia(i + 1); ++k) addm_sparse_hashm(source.a(k), i, source.ja(k), target);
}

void ija_from_hash(sparse_ija& target, const sparse_hashm& source) { CONVERT_HASH_IJA(target, source); }

double getm_sparse_ija(std::int32_t i, std::int32_t j, const sparse_ija& a) {
  if (i < 1 || i > a.n) return 0.0;
  RowStructureRules rules;
  rules.values = a.a.size();
  if (const RowStructureFault f = check_row_bounds<std::int32_t>(i, a.n, span_of(a.ia), span_of(a.ja), rules))
    stop("getm_sparse_ija: " + describe(f));
  for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k)
    if (a.ja(k) == j) return a.a(k);
  return 0.0;
}

void getm_sparse_ija(std::int32_t i, std::int32_t j, const sparse_ija& a, double& result) {
  result = getm_sparse_ija(i, j, a);
}

void reset_sparse_ija(sparse_ija& a) {
  a.n = 0;
  a.nel = 0;
  a.m = 0;
  a.ia = Array1<std::int32_t>();
  a.ja = Array1<std::int32_t>();
  a.a = Array1<double>();
}

namespace sparse_detail {

// The dense expansion of the upper form: (i, j) with j >= i at (i, j) and, for j > i, at
// (j, i); elements below the diagonal are ignored.
Array2<double> dense_of_ija(const sparse_ija& a, std::string_view who) {
  require_sparse_ija(who, a);
  const std::int64_t n = a.n;
  Array2<double> d(n, n, 0.0);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k) {
      const std::int32_t j = a.ja(k);
      if (j < i) continue;
      d(i, j) += a.a(k);
      if (j > i) d(j, i) += a.a(k);
    }
  return d;
}

}  // namespace sparse_detail

void init_sparse_ll(sparse_ll& a, std::int32_t n) {
  if (a.allocated()) {
    if (n != a.n) stop("reset in sparse_ll not yet implemented");
    for (auto& head : a.heads)
      for (sparse_ll_node* node = &head; node != nullptr; node = node->next.get()) node->val = 0.0f;
    return;
  }
  a.n = n;
  a.heads = Array1<sparse_ll_node>(n > 0 ? n : 0);
}

}  // namespace mmekit
