// Printing of the sparse kinds.
#include <cstdint>
#include <string>

#include "mmekit/sparse/fields.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {

namespace sparse_detail {

// Rows of a dense matrix, 20 values of 12 columns with 4 decimals to a line.
void print_dense_rows(const Array2<double>& d) {
  static const Format row("(20f12.4)");
  std::ostream& os = out();
  const std::int64_t n = d.rows();
  FormatList items;
  for (std::int64_t i = 1; i <= n; ++i) {
    items.clear();
    for (std::int64_t j = 1; j <= n; ++j) items.add(d(i, j));
    os << row.write(items);
  }
}

}  // namespace sparse_detail

void printm_sparse_hashm(const sparse_hashm& a, std::optional<std::string_view> option) {
  const double* x = a.x.data();
  const std::int64_t slots = a.allocated() ? a.hash_size : 0;
  if (option && option->substr(0, 3) == "int") {
    for (std::int64_t k = 0; k < slots; ++k) {
      const double* s = x + 3 * k;
      if (s[0] != 0.0) out() << free_format(trunc_index(s[0]), trunc_index(s[1]), s[2]) << '\n';
    }
    return;
  }
  const std::int64_t n = a.n > 0 ? a.n : 0;
  Array2<double> d(n, n, 0.0);
  for (std::int64_t k = 0; k < slots; ++k) {
    const double* s = x + 3 * k;
    if (s[0] == 0.0) continue;
    const std::int64_t i = trunc_index(s[0]), j = trunc_index(s[1]);
    if (i < 1 || j < 1 || i > n || j > n) continue;
    d(i, j) += s[2];
    if (a.storage == 'u' && i != j) d(j, i) += s[2];
  }
  sparse_detail::print_dense_rows(d);
}

void printm_sparse_ija(const sparse_ija& a, std::optional<std::string_view> option) {
  if (option && option->substr(0, 3) == "int") {
    require_sparse_ija("printm_sparse_ija", a);
    static const Format element("(2i8,f12.4)");
    for (std::int32_t i = 1; i <= a.n; ++i)
      for (std::int32_t k = a.ia(i); k < a.ia(i + 1); ++k)
        out() << element.write(FormatList(i, a.ja(k), a.a(k)));
    return;
  }
  sparse_detail::print_dense_rows(sparse_detail::dense_of_ija(a, "printm_sparse_ija"));
}

}  // namespace mmekit
