// Products, forms and traces on a row-compressed upper triangle.
#include "mmekit/skelda/forms.hpp"

#include <string>

#include "mmekit/support/row_structure.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

[[noreturn]] void mismatch(const char* routine) { stop(std::string("ERROR: ") + routine + "() size mismatch"); }

// The order of the matrix (ia's length less one); stops unless the structure and its values can
// be walked and every vector given has that length.
std::int64_t order_of(const char* routine, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                      const Array1<double>& a, std::initializer_list<const Array1<double>*> vectors) {
  const std::int64_t n = ia.empty() ? 0 : ia.size() - 1;
  RowStructureRules rules;
  rules.values = a.size();
  if (check_row_structure(n, span_of(ia), span_of(ja), rules)) mismatch(routine);
  for (const Array1<double>* v : vectors)
    if (v->size() != n) mismatch(routine);
  return n;
}

// A selection first, first+step, ..., last of 1..n.
struct Selection {
  std::int64_t first = 1, last = 0, step = 1;
  bool holds(std::int64_t j) const { return j >= first && j <= last && (j - first) % step == 0; }
  std::int64_t count() const { return last < first ? 0 : (last - first) / step + 1; }
};

// The rows: the step rule, and the rows inside the matrix.
Selection rows_of(const char* routine, std::int64_t n, std::int32_t first, std::int32_t last, std::int32_t step) {
  Selection s{first, last, step < 2 ? 1 : step};
  if ((s.last - s.first + 1) % s.step != 0) mismatch(routine);
  if (s.last >= s.first && (s.first < 1 || s.last > n)) mismatch(routine);
  return s;
}

}  // namespace

void skelda_matmul(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                   const Array1<double>& x, Array1<double>& y, std::int32_t n) {
  RowStructureRules rules;
  rules.values = a.size();
  if (n < 0 || x.size() != n || y.size() != n || check_row_structure(n, span_of(ia), span_of(ja), rules))
    mismatch("skelda_matmul");
  const Array1<double> copy = &x == &y ? x : Array1<double>();
  const double* xv = &x == &y ? copy.data() : x.data();
  double* yv = y.data();
  for (std::int64_t i = 0; i < n; ++i) yv[i] = 0.0;
  for (std::int64_t i = 1; i <= n; ++i) {
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      yv[i - 1] += a(k) * xv[j - 1];
      if (j != i) yv[j - 1] += a(k) * xv[i - 1];
    }
  }
}

double skelda_quadform(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       const Array1<double>& x) {
  const std::int64_t n = order_of("skelda_quadform", ia, ja, a, {&x});
  double sum = 0.0;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      sum += (j == i ? 1.0 : 2.0) * a(k) * x(i) * x(j);
    }
  return sum;
}

double skelda_bilinear(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       const Array1<double>& x, const Array1<double>& y) {
  const std::int64_t n = order_of("skelda_bilinear", ia, ja, a, {&x, &y});
  double sum = 0.0;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      sum += a(k) * x(i) * y(j);
      if (j != i) sum += a(k) * x(j) * y(i);
    }
  return sum;
}

double skelda_quadform_subset(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                              const Array1<double>& a, const Array1<double>& x, std::int32_t first,
                              std::int32_t last, std::int32_t row_first, std::int32_t row_last,
                              std::int32_t step) {
  const char* who = "skelda_quadform_subset";
  const std::int64_t n = order_of(who, ia, ja, a, {&x});
  const Selection rows = rows_of(who, n, first, last, step);
  const Selection cols{row_first, row_last, rows.step};
  double sum = 0.0;
  for (std::int64_t i = rows.first; i <= rows.last; i += rows.step)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      if (cols.holds(j)) sum += (j == i ? 1.0 : 2.0) * a(k) * x(i) * x(j);
    }
  return sum;
}

double skelda_bilinear_subset(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                              const Array1<double>& a, const Array1<double>& x, const Array1<double>& y,
                              std::int32_t first, std::int32_t last, std::int32_t row_first,
                              std::int32_t row_last, std::int32_t step) {
  const char* who = "skelda_bilinear_subset";
  const std::int64_t n = order_of(who, ia, ja, a, {&x, &y});
  const Selection rows = rows_of(who, n, first, last, step);
  const Selection cols{row_first, row_last, rows.step};
  double sum = 0.0;
  for (std::int64_t i = rows.first; i <= rows.last; i += rows.step)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      if (!cols.holds(j)) continue;
      sum += a(k) * x(i) * y(j);
      if (j != i) sum += a(k) * x(j) * y(i);
    }
  return sum;
}

double skelda_trace_ac(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& a,
                       std::int32_t first, std::int32_t last, std::int32_t step) {
  const char* who = "skelda_trace_ac";
  const std::int64_t n = order_of(who, ia, ja, a, {});
  const Selection rows = rows_of(who, n, first, last, step);
  double sum = 0.0;
  for (std::int64_t i = rows.first; i <= rows.last; i += rows.step)
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k)
      if (ja(k) == i) {
        sum += a(k);
        break;
      }
  return sum;
}

double skelda_trace_ac(const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja, const Array1<double>& c,
                       const Array1<std::int32_t>& ib, const Array1<std::int32_t>& jb, const Array1<double>& b,
                       std::int32_t first, std::int32_t last, std::int32_t step) {
  const char* who = "skelda_trace_ac";
  const std::int64_t n = order_of(who, ia, ja, c, {});
  const Selection rows = rows_of(who, n, first, last, step);
  const std::int64_t m = order_of(who, ib, jb, b, {});
  if (m != rows.count()) mismatch(who);
  // Row r of B is scattered into `row` by column, matched against row i of C, and cleared.
  Array1<double> row(m, 0.0);
  double sum = 0.0;
  std::int64_t r = 1;
  for (std::int64_t i = rows.first; i <= rows.last; i += rows.step, ++r) {
    for (std::int64_t k = ib(r); k < ib(r + 1); ++k) row(jb(k)) += b(k);
    for (std::int64_t k = ia(i); k < ia(i + 1); ++k) {
      const std::int64_t j = ja(k);
      if (rows.holds(j)) sum += (j == i ? 1.0 : 2.0) * c(k) * row((j - rows.first) / rows.step + 1);
    }
    for (std::int64_t k = ib(r); k < ib(r + 1); ++k) row(jb(k)) = 0.0;
  }
  return sum;
}

}  // namespace mmekit
