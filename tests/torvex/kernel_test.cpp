// The kernel on plain arrays, against dense LAPACK results.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/kernel.hpp"
#include "helpers.hpp"

using namespace mmekit;
using namespace torvex_test;

namespace {

// One matrix with its own work array, run through the kernel option by option.
struct Kernel {
  sparse_ija m;
  TorvexWork work{200000};
  TorvexStatistics stats;
  std::vector<std::int32_t> perm;

  explicit Kernel(sparse_ija mat) : m(std::move(mat)), perm(static_cast<std::size_t>(std::max(m.n, 1))) {}

  std::int32_t run(std::int32_t option, double* rhs = nullptr, TorvexKernelArgs* extra = nullptr) {
    TorvexKernelArgs local;
    TorvexKernelArgs& k = extra ? *extra : local;
    k.is = work.cells();
    k.size = work.size();
    k.stats = &stats;
    std::int32_t flag = 0;
    torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), perm.data(), rhs, flag, k);
    return flag;
  }
  void factorise() {
    ASSERT_EQ(run(10), 0);
    ASSERT_EQ(run(20), 0);
    ASSERT_EQ(run(40), 0);
  }
  std::vector<double> solve(std::vector<double> b) {
    EXPECT_EQ(run(50, b.data()), 0);
    return b;
  }
  double value(std::int32_t option) {
    double d = -12345;
    TorvexKernelArgs k;
    k.det = &d;
    EXPECT_EQ(run(option, nullptr, &k), 0);
    return d;
  }
};

// The element (i, j) of an upper-form matrix (0-based i, j), either triangle asked.
double element(const sparse_ija& m, int i, int j) {
  if (j < i) std::swap(i, j);
  for (int e = m.ia(i + 1); e < m.ia(i + 2); ++e)
    if (m.ja(e) == j + 1) return m.a(e);
  return 0.0;
}

std::vector<double> random_vector(int n, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> v(static_cast<std::size_t>(n));
  for (auto& x : v) x = u(g);
  return v;
}

}  // namespace

TEST(TorvexKernel, PositiveDefiniteAgainstLapack) {
  for (unsigned seed : {1u, 2u, 3u}) {
    const int n = 60;
    Dense d = random_spd(n, 0.06, seed);
    Kernel k(to_ija(d, n, seed));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), n);
    // The ordering is a permutation.
    std::vector<int> seen(static_cast<std::size_t>(n), 0);
    for (int p : k.perm) ++seen[static_cast<std::size_t>(p - 1)];
    for (int c : seen) EXPECT_EQ(c, 1);

    double logdet = 0;
    Dense inv = spd_inverse(d, n, &logdet);
    std::vector<double> b = random_vector(n, seed + 10);
    std::vector<double> ref = multiply(inv, n, b);
    expect_all_near(k.solve(b), ref, 1e-10);

    EXPECT_NEAR(k.value(55), logdet, 1e-9);
    EXPECT_NEAR(std::log(k.value(54)), logdet, 1e-9);

    // Products with the factor: m_fact undoes m_inv_fact ...
    std::vector<double> y = b;
    ASSERT_EQ(k.run(90, y.data()), 0);
    ASSERT_EQ(k.run(100, y.data()), 0);
    expect_all_near(y, b, 1e-10);
    // ... and the factor times unit vectors gives F with F F' = A.
    Dense f(static_cast<std::size_t>(n) * n);
    for (int j = 0; j < n; ++j) {
      std::vector<double> e(static_cast<std::size_t>(n), 0.0);
      e[static_cast<std::size_t>(j)] = 1.0;
      ASSERT_EQ(k.run(100, e.data()), 0);
      for (int i = 0; i < n; ++i) at(f, n, i, j) = e[static_cast<std::size_t>(i)];
    }
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) {
        double s = 0;
        for (int t = 0; t < n; ++t) s += at(f, n, i, t) * at(f, n, j, t);
        EXPECT_NEAR(s, at(d, n, i, j), 1e-10);
      }

    // Sparse solves: the listed entries of the solution of a sparse right-hand side.
    std::vector<double> bs(static_cast<std::size_t>(n), 0.0);
    std::int32_t rl[2] = {5, 40};
    std::int32_t sl[3] = {1, 17, 40};
    bs[4] = 1.5;
    bs[39] = -2.0;
    std::vector<double> full = multiply(inv, n, bs), s51 = bs, s52 = bs;
    TorvexKernelArgs ka{.rhs_list = rl, .rhs_count = 2, .sol_list = sl, .sol_count = 3};
    ASSERT_EQ(k.run(51, s51.data(), &ka), 0);
    for (int p : sl) EXPECT_NEAR(s51[static_cast<std::size_t>(p - 1)], full[static_cast<std::size_t>(p - 1)], 1e-10);
    TorvexKernelArgs kb{.rhs_list = rl, .rhs_count = 2};
    ASSERT_EQ(k.run(52, s52.data(), &kb), 0);
    for (int p : rl) EXPECT_NEAR(s52[static_cast<std::size_t>(p - 1)], full[static_cast<std::size_t>(p - 1)], 1e-10);
    EXPECT_EQ(k.stats.calls_sparse_solve, 2);
    EXPECT_GT(k.stats.max_nodes, 0);
    // A full solve after the sparse ones still works (the work vector was left clean).
    expect_all_near(k.solve(b), ref, 1e-10);

    // The sparse inverse on the positions of ia/ja, both variants alike.
    sparse_ija orig = k.m;
    ASSERT_EQ(k.run(61), 0);
    expect_pattern_near(k.m, inv, 1e-10);
    sparse_ija inv61 = k.m;
    k.m = orig;
    ASSERT_EQ(k.run(40), 0);  // the inverse replaced the factor: factorise again
    ASSERT_EQ(k.run(60), 0);
    for (int e = 1; e <= k.m.nel; ++e) EXPECT_DOUBLE_EQ(k.m.a(e), inv61.a(e));
    EXPECT_EQ(k.stats.calls_inverse, 2);
    EXPECT_EQ(k.stats.calls_numeric, 2);
  }
}

TEST(TorvexKernel, SingularMixedModelEquations) {
  const int f1 = 4, f2 = 5, r = 30, n = 1 + f1 + f2 + r;
  Dense d = mme_like(f1, f2, r, 120, 7);
  Kernel k(to_ija(d, n, 3));
  k.factorise();
  const int rank = torvex_rank(k.work.cells());
  EXPECT_EQ(rank, dense_rank(d, n));
  EXPECT_EQ(rank, n - 2);

  // The dependent equations are those with a zero solution for every right-hand side that
  // lies in the column space: find them from a solve of A y.
  std::vector<double> y = random_vector(n, 5);
  std::vector<double> b = multiply(d, n, y);
  std::vector<double> x = k.solve(b);
  std::vector<int> keep;
  for (int i = 0; i < n; ++i)
    if (x[static_cast<std::size_t>(i)] != 0.0) keep.push_back(i);
  ASSERT_EQ(static_cast<int>(keep.size()), n - 2);
  // The kept part is non-singular; the solution solves it and A x = b as a whole.
  double logdet = 0;
  const Dense ginv = kept_inverse(d, n, keep, &logdet);
  expect_all_near(multiply(d, n, x), b, 1e-8);
  // Determinant of the non-singular part.
  EXPECT_NEAR(k.value(55), logdet, 1e-8);
  EXPECT_NEAR(std::log(k.value(54)), logdet, 1e-8);

  // Option 56 is quiet on this solution.
  {
    CaptureOutput cap;
    TorvexKernelArgs kc;
    kc.x = x.data();
    ASSERT_EQ(k.run(56, b.data(), &kc), 0);
    EXPECT_EQ(cap.text(), "");
    x[3] += 0.5;
    ASSERT_EQ(k.run(56, b.data(), &kc), 0);
    const std::string t = cap.text();
    EXPECT_EQ(t.find(" ERROR in CHECKB: not accurate solution\n observed deviation =  "), 0u) << t;
    EXPECT_NE(t.find("\n maximum allowed    =  "), std::string::npos) << t;
  }

  // The generalised inverse in the pattern: the inverse of the kept part, zero in the rows and
  // columns of the dependent equations.
  ASSERT_EQ(k.run(61), 0);
  expect_pattern_near(k.m, ginv, 1e-9);
}

TEST(TorvexKernel, ZeroPivotRules) {
  // A zero diagonal gives a zero pivot: the rank falls by one, the solution of that equation is
  // zero and the determinant is that of the rest.
  {
    const int n = 3;
    Dense d(9, 0.0);
    at(d, n, 0, 0) = 4;
    at(d, n, 2, 2) = 9;
    at(d, n, 0, 2) = at(d, n, 2, 0) = 1;
    Kernel k(to_ija(d, n));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), 2);
    std::vector<double> x = k.solve({1.0, 7.0, 2.0});
    EXPECT_EQ(x[1], 0.0);
    EXPECT_NEAR(x[0], (9 * 1.0 - 1 * 2.0) / 35.0, 1e-14);
    EXPECT_NEAR(x[2], (4 * 2.0 - 1 * 1.0) / 35.0, 1e-14);
    EXPECT_NEAR(k.value(54), 35.0, 1e-12);
    ASSERT_EQ(k.run(61), 0);
    EXPECT_NEAR(element(k.m, 0, 0), 9.0 / 35, 1e-14);
    EXPECT_NEAR(element(k.m, 0, 2), -1.0 / 35, 1e-14);
    EXPECT_EQ(element(k.m, 1, 1), 0.0);
  }
  // A pivot that keeps less than tol of its diagonal counts as zero, just above that does not.
  for (double eps : {0.5e-8, 2e-8}) {
    const int n = 2;
    Dense d = {1.0, 1.0, 1.0, 1.0 + eps};
    Kernel k(to_ija(d, n));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), eps < 1e-8 ? 1 : 2) << eps;
  }
  // A diagonal below the single-precision 1.0E-8 is zero outright, whatever the rest.
  {
    Dense d = {9.9e-9, 0.0, 0.0, 1.0};
    Kernel k(to_ija(d, 2));
    k.factorise();
    EXPECT_EQ(torvex_rank(k.work.cells()), 1);
    EXPECT_EQ(k.value(55), 0.0);
  }
}

TEST(TorvexKernel, EmptyRowsAndMessages) {
  const int n = 4;
  Dense d(16, 0.0);
  at(d, n, 0, 0) = 2;
  at(d, n, 3, 3) = 5;
  Kernel k(to_ija(d, n));
  CaptureOutput cap;
  k.factorise();
  EXPECT_EQ(cap.text(), "  WARNING!  2  empty rows\n");
  cap.clear();
  EXPECT_EQ(k.run(33), -99);
  EXPECT_EQ(cap.text(), " option no.  33  not implemented\n");
}

TEST(TorvexKernel, StagesAndWorkArray) {
  const int n = 30;
  Dense d = random_spd(n, 0.1, 11);
  // Out of order: numeric before symbolic, a solve before the numeric stage.
  {
    Kernel k(to_ija(d, n));
    EXPECT_EQ(k.run(20), -3);
    ASSERT_EQ(k.run(10), 0);
    EXPECT_EQ(k.run(40), 40000000 - 3);
    std::vector<double> b(n, 1.0);
    EXPECT_EQ(k.run(50, b.data()), -3);
  }
  // A short array reports the need; the same stage then runs in that much.
  {
    Kernel k(to_ija(d, n));
    k.work = TorvexWork(100);
    EXPECT_EQ(k.run(10), 0);  // 32 + 2 (n + 1) cells
    // The symbolic stage asks twice: for its graph, then for the factor it has counted.
    int growths = 0;
    for (;;) {
      TorvexKernelArgs a;
      const std::int32_t flag = k.run(20, nullptr, &a);
      if (flag == 0) break;
      EXPECT_GT(flag, 100);
      EXPECT_EQ(flag, a.need);
      EXPECT_GT(a.need, k.work.size());
      k.work.grow(a.need);
      ASSERT_LT(++growths, 3);
    }
    EXPECT_EQ(growths, 2);
    EXPECT_EQ(k.run(40), 0);  // the symbolic need covers the numeric stage
    TorvexKernelArgs b;
    const std::int32_t f61 = k.run(61, nullptr, &b);
    EXPECT_EQ(f61, b.need);
    k.work.grow(b.need);
    EXPECT_EQ(k.run(61), 0);
    Dense inv = spd_inverse(d, n);
    EXPECT_NEAR(element(k.m, 3, 3), at(inv, n, 3, 3), 1e-12);
  }
  // A need that the flag cannot carry comes as option x 100 + 1.
  {
    const int big = 2000000;
    sparse_ija m;
    m.n = big;
    m.nel = big;
    m.ia.assign(big + 1, 0);
    m.ja.assign(big, 0);
    m.a.assign(big, 1.0);
    for (int i = 1; i <= big + 1; ++i) m.ia(i) = i;
    for (int i = 1; i <= big; ++i) m.ja(i) = i;
    Kernel k(std::move(m));
    k.work = TorvexWork(100);
    TorvexKernelArgs a;
    EXPECT_EQ(k.run(10, nullptr, &a), 1001);
    EXPECT_EQ(a.need, 32 + 2 * (big + 1));
  }
  // Indices out of range are refused.
  {
    sparse_ija m = to_ija(d, n);
    m.ja(2) = n + 1;
    Kernel k(std::move(m));
    EXPECT_EQ(k.run(10), -4);
  }
}

TEST(TorvexKernel, OrderUnit) {
  const int n = 25;
  Dense d = random_spd(n, 0.12, 21);
  Dense inv = spd_inverse(d, n);
  std::vector<double> b = random_vector(n, 3);
  std::vector<double> ref = multiply(inv, n, b);
  std::vector<std::int32_t> perm;
  {
    Kernel k(to_ija(d, n));
    FramedWriter w("kernel.ord");
    TorvexKernelArgs a{.order_out = &w};
    ASSERT_EQ(k.run(10, nullptr, &a), 0);
    perm = k.perm;
  }
  // The file holds n and the subscript count, the permutation and its inverse.
  {
    FramedReader r("kernel.ord");
    std::int32_t nn = 0, nsub = -1;
    ASSERT_EQ(r.read(nn, nsub), FramedStatus::ok);
    EXPECT_EQ(nn, n);
    EXPECT_GE(nsub, 0);
    std::vector<std::int32_t> p(n), q(n);
    ASSERT_EQ(r.read(p), FramedStatus::ok);
    ASSERT_EQ(r.read(q), FramedStatus::ok);
    EXPECT_EQ(p, perm);
    for (int k = 0; k < n; ++k) EXPECT_EQ(q[static_cast<std::size_t>(p[static_cast<std::size_t>(k)] - 1)], k + 1);
  }
  // Option 70 reads it back instead of ordering, with the same result; a size of zero in the
  // file is the natural order.
  {
    FramedWriter w("zero.ord");
    w.write(std::int32_t{0}, std::int32_t{0});
  }
  std::vector<std::int32_t> natural(n);
  for (int i = 0; i < n; ++i) natural[static_cast<std::size_t>(i)] = i + 1;
  for (auto [file, expect] : {std::pair{"kernel.ord", perm}, std::pair{"zero.ord", natural}}) {
    Kernel k(to_ija(d, n));
    FramedReader r(file);
    TorvexKernelArgs a{.order_in = &r};
    ASSERT_EQ(k.run(70, nullptr, &a), 0);
    EXPECT_EQ(k.perm, expect) << file;
    ASSERT_EQ(k.run(20), 0);
    ASSERT_EQ(k.run(40), 0);
    expect_all_near(k.solve(b), ref, 1e-11);
  }
  // A wrong size, and a unit that cannot be read.
  {
    {
      FramedWriter w("wrong.ord");
      w.write(std::int32_t{n + 1}, std::int32_t{0});
    }
    Kernel k(to_ija(d, n));
    FramedReader r("wrong.ord");
    TorvexKernelArgs a{.order_in = &r};
    CaptureOutput cap;
    EXPECT_EQ(k.run(70, nullptr, &a), -1);
    EXPECT_EQ(cap.text(),
              " incorrect size of permutation vector\n size  26  found; size  25  required\n"
              " error in unit IOOR \n option no.  70  not implemented\n");
    cap.clear();
    FramedReader none("no-such-file.ord");
    a.order_in = &none;
    EXPECT_EQ(k.run(70, nullptr, &a), -2);
    EXPECT_EQ(cap.text(), " error in unit IOOR \n");
  }
}

TEST(TorvexKernel, CopiesOfTheFactor) {
  const int n = 40;
  Dense d = random_spd(n, 0.08, 31);
  Dense inv = spd_inverse(d, n);
  std::vector<double> b = random_vector(n, 4);
  std::vector<double> ref = multiply(inv, n, b);
  Kernel k(to_ija(d, n));
  k.factorise();
  const std::int64_t used = torvex_factor_cells(k.work.cells());
  ASSERT_GT(used, 0);
  // To a second array and back.
  TorvexWork second(used);
  TorvexKernelArgs a{.is2 = second.cells(), .size2 = used - 1};
  EXPECT_EQ(k.run(72, nullptr, &a), 7201);
  a.size2 = used;
  ASSERT_EQ(k.run(72, nullptr, &a), 0);
  // To a file.
  {
    FramedWriter w("factor.bin");
    TorvexKernelArgs f{.save_unit = &w};
    ASSERT_EQ(k.run(74, nullptr, &f), 0);
  }
  Kernel k2(to_ija(d, n));
  ASSERT_EQ(k2.run(73, nullptr, &a), 0);
  expect_all_near(k2.solve(b), ref, 1e-11);
  // From the file into a short array: the need first, then the load.
  Kernel k3(to_ija(d, n));
  k3.work = TorvexWork(64);
  FramedReader r("factor.bin"), r2("factor.bin");
  TorvexKernelArgs f{.load_unit = &r};
  EXPECT_EQ(k3.run(75, nullptr, &f), used);
  EXPECT_EQ(f.need, used);
  k3.work.grow(used);
  f.load_unit = &r2;
  ASSERT_EQ(k3.run(75, nullptr, &f), 0);
  expect_all_near(k3.solve(b), ref, 1e-11);
}

TEST(TorvexKernel, StatisticsBlock) {
  const int n = 20;
  Kernel k(to_ija(random_spd(n, 0.1, 41), n));
  k.factorise();
  std::vector<double> b(n, 1.0);
  k.solve(b);
  CaptureOutput cap;
  ASSERT_EQ(k.run(80), 0);
  const std::string t = cap.text();
  const char* lines[] = {"               **** TORVEX ***\n", "              SPARSE STATISTICS\n",
                         "      DIMENSION OF MATRIX     =          20\n",
                         "      RANK                    =          20\n",
                         "      STORAGE AVAILABLE       =      200000\n", "      MAXIMUM NEEDED          =",
                         "      NZE IN UPPER TRIANGULAR =", "      NZE IN FACTOR           =",
                         "      NO. OF CALLS NUM FACT   =           1\n",
                         "      NO. OF CALLS SOLVE      =           1\n", "      NO. OF CALLS SPARS SOLV =",
                         "      NO. OF CALLS DET / LDET =", "      NO. OF CALLS SPARS INV  =",
                         "      MAX NO. NODES           =", "      MAX PATH LENGTH         =",
                         "      AVG NO. NODES FPATH     =", "      AVG NO. NODES BPATH     =",
                         "      AVG FPATH LENGTH        =", "      AVG BPATH LENGTH        =",
                         "      TOTAL CPU TIME IN TORVEX =", "      TIME FOR FINDING ORDER  =",
                         "      TIME FOR SYMBOLIC FAC   =", "      TIME FOR NUMERICAL FAC  =",
                         "      TIME FOR SOLVE          =", "      TIME FOR SPARSE SOLVE   =",
                         "      TIME FOR SPARSE INVERSE ="};
  std::size_t at_pos = 0;
  for (const char* l : lines) {
    std::size_t p = t.find(l, at_pos);
    ASSERT_NE(p, std::string::npos) << l;
    at_pos = p;
  }
  // The upper triangle of the matrix in the block is its number of elements.
  EXPECT_NE(t.find("      NZE IN UPPER TRIANGULAR =" + std::string(12 - std::to_string(k.m.nel).size(), ' ') +
                   std::to_string(k.m.nel) + "\n"),
            std::string::npos);
}

TEST(TorvexKernel, ShapesOfTheFactor) {
  // A full matrix (every column shares the subscripts of the one before), an arrow with the
  // dense row first, and a forest of independent blocks with isolated equations.
  std::vector<std::pair<const char*, Dense>> cases;
  const int n = 24;
  cases.emplace_back("full", random_spd(n, 1.0, 51));
  Dense arrow(static_cast<std::size_t>(n) * n, 0.0);
  for (int i = 0; i < n; ++i) {
    at(arrow, n, i, i) = n + 1.0;
    if (i > 0) at(arrow, n, 0, i) = at(arrow, n, i, 0) = 1.0;
  }
  cases.emplace_back("arrow", arrow);
  Dense forest(static_cast<std::size_t>(n) * n, 0.0);
  for (int i = 0; i < n; ++i) at(forest, n, i, i) = 3.0;
  for (int i = 0; i + 1 < n; i += 3) at(forest, n, i, i + 1) = at(forest, n, i + 1, i) = -1.0;
  for (int i = 0; i + 2 < n; i += 6) at(forest, n, i, i + 2) = at(forest, n, i + 2, i) = 0.5;
  cases.emplace_back("forest", forest);
  for (auto& [name, d] : cases) {
    Kernel k(to_ija(d, n, 9));
    k.factorise();
    SCOPED_TRACE(name);
    const Dense inv = spd_inverse(d, n);
    const std::vector<double> b = random_vector(n, 2);
    expect_all_near(k.solve(b), multiply(inv, n, b), 1e-11);
    if (std::string(name) == "full") {
      EXPECT_EQ(torvex_factor_nonzeros(k.work.cells()), n * (n - 1) / 2);
    }
    ASSERT_EQ(k.run(61), 0);
    expect_pattern_near(k.m, inv, 1e-11);
  }
}
