// Dense element operations and the assignments between storage kinds.
#include "mmekit/sparse/convert.hpp"

#include <cstdint>
#include <string>

#include "mmekit/sparse/fields.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

void check_dense_index(const char* who, std::int64_t i, std::int64_t j, std::int64_t n) {
  if (i < 1 || j < 1 || i > n || j > n) stop(sparse_detail::message(std::string(who) + ": index out of range", i, j));
}

void check_upper(std::int32_t i, std::int32_t j) {
  if (j < i) stop("Warning !!! this is an upper-triangular matrix");
}

}  // namespace

void addm_densem(double value, std::int32_t i, std::int32_t j, densem& a) {
  check_dense_index("addm_densem", i, j, a.order());
  a(i, j) += value;
}

double getm_densem(std::int32_t i, std::int32_t j, const densem& a) {
  check_dense_index("getm_densem", i, j, a.order());
  return a(i, j);
}

void getm_densem(std::int32_t i, std::int32_t j, const densem& a, double& result) { result = getm_densem(i, j, a); }

void addm_dense_symm(double value, std::int32_t i, std::int32_t j, dense_symm& a) {
  check_upper(i, j);
  check_dense_index("addm_dense_symm", i, j, a.order());
  a(i, j) += value;
}

void setm_dense_symm(double value, std::int32_t i, std::int32_t j, dense_symm& a) {
  check_upper(i, j);
  check_dense_index("setm_dense_symm", i, j, a.order());
  a(i, j) = value;
}

double getm_dense_symm(std::int32_t i, std::int32_t j, const dense_symm& a) {
  check_upper(i, j);
  check_dense_index("getm_dense_symm", i, j, a.order());
  return a(i, j);
}

void getm_dense_symm(std::int32_t i, std::int32_t j, const dense_symm& a, double& result) {
  result = getm_dense_symm(i, j, a);
}

void assign(densem& target, const densem& source) {
  if (&target != &source) target = source;
}
void assign(dense_symm& target, const dense_symm& source) {
  if (&target != &source) target = source;
}
void assign(sparse_ija& target, const sparse_ija& source) {
  if (&target != &source) target = source;
}
void assign(sparse_hashm& target, const sparse_hashm& source) {
  if (&target != &source) target = source;
}

void assign(sparse_hashm& target, const sparse_ija& source) { hash_from_ija(target, source); }

void assign(sparse_hashm& target, const densem& source) {
  const auto n = static_cast<std::int32_t>(source.order());
  init_sparse_hashm(target, n);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= n; ++j)
      if (source(i, j) != 0.0) addm_sparse_hashm(source(i, j), i, j, target);
}

void assign(sparse_ija& target, const densem& source) {
  const auto n = static_cast<std::int32_t>(source.order());
  std::int64_t nel = n;
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = i + 1; j <= n; ++j)
      if (source(i, j) != 0.0) ++nel;
  if (nel > 2147483647) stop(sparse_detail::message("assign: too many elements for the row form", nel));
  reset_sparse_ija(target);
  target.n = n;
  target.nel = static_cast<std::int32_t>(nel);
  target.ia.assign(n + 1, 0);
  target.ja.assign(nel, 0);
  target.a.assign(nel, 0.0);
  std::int32_t pos = 1;
  for (std::int32_t i = 1; i <= n; ++i) {
    target.ia(i) = pos;
    target.ja(pos) = i;
    target.a(pos) = source(i, i);
    ++pos;
    for (std::int32_t j = i + 1; j <= n; ++j)
      if (source(i, j) != 0.0) {
        target.ja(pos) = j;
        target.a(pos) = source(i, j);
        ++pos;
      }
  }
  target.ia(n + 1) = pos;
}

void assign(sparse_ija& target, const sparse_hashm& source) { CONVERT_HASH_IJA(target, source); }

void assign(densem& target, const sparse_hashm& source) {
  const std::int64_t n = source.n > 0 ? source.n : 0;
  densem d(n, 0.0);
  const std::int64_t slots = source.allocated() ? source.hash_size : 0;
  const double* x = source.x.data();
  for (std::int64_t k = 0; k < slots; ++k) {
    const double* s = x + 3 * k;
    if (s[0] == 0.0) continue;
    const std::int64_t i = trunc_index(s[0]), j = trunc_index(s[1]);
    if (i < 1 || j < 1 || i > n || j > n) continue;  // no place in the matrix
    d(i, j) += s[2];
    if (source.storage == 'u' && i != j) d(j, i) += s[2];
  }
  target = std::move(d);
}

void assign(densem& target, const sparse_ija& source) {
  Array2<double> e = sparse_detail::dense_of_ija(source, "assign(densem, sparse_ija)");
  densem d(e.rows(), 0.0);
  for (std::int64_t k = 0; k < e.size(); ++k) d.data()[k] = e.data()[k];
  target = std::move(d);
}

void assign(dense_symm& target, const densem& source) { pack_symm(source, target); }

// A copy of a hash matrix. A sorted source is no longer hash-addressable, so its elements go
// through the row-compressed form into a fresh table (a source in full storage fails in that
// conversion with its message).
void copy_sparse_hashm(sparse_hashm& target, const sparse_hashm& source) {
  if (&target == &source) return;
  if (source.status == 1) {
    init_sparse_hashm(target, source.n, std::nullopt, source.storage);
    target.x = source.x;
    target.hash_size = source.hash_size;
    target.nel = source.nel;
  } else if (source.status == 2) {
    sparse_ija ija;
    CONVERT_HASH_IJA(ija, source);
    init_sparse_hashm(target, source.n);
    for (std::int32_t i = 1; i <= ija.n; ++i)
      for (std::int32_t k = ija.ia(i); k < ija.ia(i + 1); ++k) addm_sparse_hashm(ija.a(k), i, ija.ja(k), target);
  } else {
    stop("sparse_hashm matrix empty");
  }
}

}  // namespace mmekit
