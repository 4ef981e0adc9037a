// invert_matrix: the route table over the dense kernels and the sparse Cholesky package.
#include "mmekit/solvers/inverse_routes.hpp"

#include <limits>

#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/array.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/torvex/torvex.hpp"

namespace mmekit {

void densem_to_ija_upper(const densem& a, sparse_ija& m) {
  const std::int64_t n = a.order();
  if (n > std::numeric_limits<std::int32_t>::max()) stop(free_format("densem_to_ija_upper: order too large:", n));
  std::int64_t nel = 0;
  for (std::int64_t j = 1; j <= n; ++j)
    for (std::int64_t i = 1; i < j; ++i)
      if (a(i, j) != 0.0) ++nel;
  nel += n;
  if (nel > std::numeric_limits<std::int32_t>::max()) stop(free_format("densem_to_ija_upper: too many elements:", nel));
  m.n = static_cast<std::int32_t>(n);
  m.nel = static_cast<std::int32_t>(nel);
  m.m = m.nel;
  m.ia = Array1<std::int32_t>(n + 1);
  m.ja = Array1<std::int32_t>(nel);
  m.a = Array1<double>(nel);
  std::int32_t k = 0;
  for (std::int64_t i = 1; i <= n; ++i) {
    m.ia(i) = k + 1;
    ++k;
    m.ja(k) = static_cast<std::int32_t>(i);
    m.a(k) = a(i, i);
    for (std::int64_t j = i + 1; j <= n; ++j)
      if (a(i, j) != 0.0) {
        ++k;
        m.ja(k) = static_cast<std::int32_t>(j);
        m.a(k) = a(i, j);
      }
  }
  m.ia(n + 1) = k + 1;
}

namespace {

// Inverse column by column through the sparse Cholesky package.
void torvex_inverse(densem& a) {
  print_free("TORVEX inverse");
  const std::int64_t n = a.order();
  sparse_ija m;
  densem_to_ija_upper(a, m);
  Array1<double> e(n, 0.0), x(n, 0.0);
  TorvexArgs args;
  args.rhs = &e;
  args.sol = &x;
  for (std::int64_t k = 1; k <= n; ++k) {
    e(k) = 1.0;
    TORVEX("solve", m, args);
    e(k) = 0.0;
    for (std::int64_t i = 1; i <= n; ++i) a(i, k) = x(i);
  }
  TORVEX("reset", m);
}

// Rows of the result that are not entirely zero: the rank of a generalised inverse whose
// dependent rows are zero.
std::int32_t nonzero_rows(const densem& a) {
  const std::int64_t n = a.order();
  std::int32_t r = 0;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j)
      if (a(i, j) != 0.0) {
        ++r;
        break;
      }
  return r;
}

}  // namespace

void invert_matrix(densem& a, std::int32_t route, std::int32_t msg) {
  Stopwatch watch;
  std::int32_t rank = 0;
  switch (route) {
    case 1:
      ginverse(a, rank);
      break;
    case 2: {
      dense_symm packed;
      pack_symm(a, packed);
      ginverse(packed, rank);
      unpack_symm(packed, a);
      break;
    }
    case 3:
      ginv2(a, rank, inversion_state.tol_ginv);
      print_free("   rank: ", rank);
      break;
    case 4:
      rank = dkmxhf(a, inversion_state.tol_ginv).rank;
      break;
    case 5:
      invrt(a);
      rank = static_cast<std::int32_t>(a.order());
      break;
    case 6:
    case 7:
      stop(free_format("MKL inverse specified but Not linked with library compile with _MYMKL = .TRUE. "));
    case 8:
      torvex_inverse(a);
      rank = nonzero_rows(a);
      break;
    case 9:
      ginv2(a, rank, inversion_state.tol_ginv);
      break;
    default:
      stop(free_format("Wrong option Create Inverse"));
  }
  inversion_state.rank = rank;
  if (msg > 0) print_free("   Wall time: ", watch.wall());
}

}  // namespace mmekit
