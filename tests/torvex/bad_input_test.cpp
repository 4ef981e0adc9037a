// Bad input to the sparse Cholesky package: damaged matrices, short right-hand sides, a pattern
// that changed under the factor, damaged copies of the factor. Each gets its message and leaves
// the state as it was; the same array as right-hand side and solution gives the right answer.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "helpers.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/torvex.hpp"

#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace mmekit;
using namespace torvex_test;
using test::read_file;
using test::write_file;
using test::stop_output;

namespace {

void fresh() {
  sparse_ija none;
  TORVEX("res", none);
  torvex_state.order_last = torvex_state.elements_last = 0;
}

// A path 1-2-...-n with a heavy diagonal: its factor has no fill, so an element (1, n) has no
// place in it.
densem path(int n) {
  densem d(n, 0.0);
  for (int i = 1; i <= n; ++i) d(i, i) = 3.0 + i;
  for (int i = 1; i < n; ++i) d(i, i + 1) = d(i + 1, i) = -1.0;
  return d;
}

std::vector<double> vec(const Array1<double>& a) { return {a.begin(), a.end()}; }

// A^-1 b through LAPACK's inverse.
std::vector<double> inverse_times(const densem& a, const std::vector<double>& b) {
  const densem g = test::lapack_spd_inverse(a);
  std::vector<double> x(b.size(), 0.0);
  for (std::int64_t i = 1; i <= g.order(); ++i)
    for (std::int64_t j = 1; j <= g.order(); ++j) x[i - 1] += g(i, j) * b[j - 1];
  return x;
}

void expect_near(const std::vector<double>& x, const std::vector<double>& ref, double tol) {
  ASSERT_EQ(x.size(), ref.size());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(x[i], ref[i], tol) << i;
}

// One work array through the kernel: run(option) with the matrix m.
struct Kern {
  sparse_ija m;
  TorvexWork work{100000};
  TorvexStatistics stats;
  std::int32_t run(std::int32_t option, double* rhs = nullptr, TorvexKernelArgs k = {}) {
    k.is = work.cells();
    k.size = work.size();
    k.stats = &stats;
    std::int32_t flag = 0;
    torvex_kernel(option, m.n, m.ia.data(), m.ja.data(), m.a.data(), nullptr, rhs, flag, k);
    return flag;
  }
  std::vector<std::int32_t> cells() const { return {work.cells(), work.cells() + work.size()}; }
  void factorise() {
    for (std::int32_t option : {10, 20, 40}) ASSERT_EQ(run(option), 0) << option;
  }
};

}  // namespace

TEST(TorvexBadInput, DamagedMatrixAndRightHandSide) {
  fresh();
  const int n = 10;
  const sparse_ija good = to_ija(test::random_spd(n, 0.3, 4));
  const int nel = good.nel;
  struct Case {
    std::function<void(sparse_ija&)> damage;
    std::string what;
  };
  const std::vector<Case> cases = {
      {[](sparse_ija& m) { m.ia.resize(n); }, "n = 10 needs 11 entries in ia but ia holds 10"},
      {[&](sparse_ija& m) { m.ja.resize(nel - 1); },
       "ia(11)-1 = " + std::to_string(nel) + " but ja holds " + std::to_string(nel - 1) + " entries"},
      {[&](sparse_ija& m) { m.a.resize(nel - 1); },
       "ia(11)-1 = " + std::to_string(nel) + " but a holds " + std::to_string(nel - 1) + " entries"},
      {[&](sparse_ija& m) { m.nel = nel + 1; }, "nel = " + std::to_string(nel + 1) + " but ia(n+1)-1 = " + std::to_string(nel)},
      {[](sparse_ija& m) { m.ja(m.ia(2)) = 11; }, "ja(" + std::to_string(good.ia(2)) + ") = 11 in row 2 is outside 1..10"},
      {[](sparse_ija& m) { m.ia(1) = 0; }, "ia(1) = 0 but the first row must start at 1"},
  };
  Array1<double> rhs(n, 1.0), sol;
  for (const Case& c : cases) {
    sparse_ija m = good;
    c.damage(m);
    for (const char* op : {"fac", "sol", "inv", "det"}) {
      double det = 0;
      EXPECT_EQ(stop_output([&] { TORVEX(op, m, {.rhs = &rhs, .sol = &sol, .det = &det}); }), "TORVEX: " + c.what + "\n");
      EXPECT_EQ(torvex_state.TORVEX_state, -1) << op;
    }
  }
  // With the factor in place a solve does not read the matrix; the inverse, written into it,
  // does.
  sparse_ija m = good;
  TORVEX("fac", m);
  m.ja.resize(nel - 1);
  TORVEX("sol", m, {.rhs = &rhs, .sol = &sol});
  EXPECT_EQ(stop_output([&] { TORVEX("inv", m); }), "TORVEX: " + cases[1].what + "\n");
  EXPECT_EQ(torvex_state.TORVEX_state, 2);
  // A right-hand side shorter than n stops; a missing one only says so and returns.
  m = good;
  Array1<double> short_rhs(n - 1, 1.0);
  EXPECT_EQ(stop_output([&] { TORVEX("sol", m, {.rhs = &short_rhs, .sol = &sol}); }),
            "TORVEX: the right-hand side holds 9 values but the matrix has order 10\n");
  CaptureOutput cap;
  TORVEX("m_f", m, {.sol = &sol});
  EXPECT_EQ(cap.text(), " TORVEX: optional parameter SOL or RS missing\n");
  // A longer one is used for its first n values.
  Array1<double> long_rhs(n + 3, 1.0);
  TORVEX("sol", m, {.rhs = &long_rhs, .sol = &sol});
  expect_near(vec(sol), inverse_times(test::random_spd(n, 0.3, 4), std::vector<double>(n, 1.0)), 1e-12);
  TORVEX("res", m);
}

TEST(TorvexBadInput, RightHandSideAsTheSolution) {
  fresh();
  const int n = 40;
  sparse_ija m = to_ija(test::random_spd(n, 0.1, 6));
  const std::vector<double> zeros(n, 0.0), ones(n, 1.0);
  for (const char* op : {"sol", "m_i", "m_f"}) {
    Array1<double> rhs(n), x, same(n);
    for (int i = 1; i <= n; ++i) rhs(i) = same(i) = std::sin(3.0 * i);
    TORVEX(op, m, {.rhs = &rhs, .sol = &x});
    TORVEX(op, m, {.rhs = &same, .sol = &same});
    EXPECT_EQ(vec(same), vec(x)) << op;
    EXPECT_NE(vec(x), zeros) << op;
  }
  // The right-hand side longer than n and the solution itself: cut to n, solved in place.
  Array1<double> same(n + 2, 1.0);
  TORVEX("sol", m, {.rhs = &same, .sol = &same});
  EXPECT_EQ(same.size(), n);
  expect_near(vec(same), inverse_times(test::random_spd(n, 0.1, 6), ones), 1e-12);
  TORVEX("res", m);
}

TEST(TorvexBadInput, PatternThatChangedUnderTheFactor) {
  fresh();
  const int n = 12;
  const densem d = path(n);
  sparse_ija m = to_ija(d);
  TORVEX("fac", m);
  // Same order and element count: the element (5, 6) moved to (1, 12), where the factor of a
  // path has no place.
  densem dm = d;
  dm(5, 6) = dm(6, 5) = 0.0;
  dm(1, 12) = dm(12, 1) = -1.0;
  sparse_ija moved = to_ija(dm);
  ASSERT_EQ(moved.nel, m.nel);
  EXPECT_EQ(stop_output([&] { TORVEX("fac", moved); }),
            "TORVEX: the pattern of the matrix changed since the ordering; call \"res\" and start again\n");
  // The state is that of the old analysis: the old matrix factorises and solves again.
  Array1<double> rhs(n, 1.0), x;
  TORVEX("sol", m, {.rhs = &rhs, .sol = &x});
  expect_near(vec(x), inverse_times(d, std::vector<double>(n, 1.0)), 1e-12);
  // The kernel's inverse refuses it too, before it overwrites anything.
  Kern good{m};
  good.factorise();
  const std::vector<double> before(moved.a.begin(), moved.a.end());
  std::int32_t flag = 0;
  TorvexKernelArgs ka{.is = good.work.cells(), .size = good.work.size(), .stats = &good.stats};
  torvex_kernel(61, n, moved.ia.data(), moved.ja.data(), moved.a.data(), nullptr, nullptr, flag, ka);
  EXPECT_EQ(flag, torvex_flag_pattern_changed);
  EXPECT_EQ(std::vector<double>(moved.a.begin(), moved.a.end()), before);
  // After "res" the new pattern is ordered afresh.
  TORVEX("res", m);
  TORVEX("sol", moved, {.rhs = &rhs, .sol = &x});
  expect_near(vec(x), inverse_times(dm, std::vector<double>(n, 1.0)), 1e-12);
  TORVEX("res", m);
}

TEST(TorvexBadInput, KernelNamesADamagedStructure) {
  const int n = 10;
  Kern k{to_ija(test::random_spd(n, 0.3, 8))};
  k.m.ja(2) = 0;
  CaptureOutput cap;
  EXPECT_EQ(k.run(10), torvex_flag_bad_structure);
  EXPECT_EQ(cap.text(), " torvex_kernel: option 10: ja(2) = 0 in row 1 is outside 1..10\n");
  // Through spans the sizes are known: a short value array is named at the numeric stage.
  k.m = to_ija(test::random_spd(n, 0.3, 8));
  ASSERT_EQ(k.run(10), 0);
  ASSERT_EQ(k.run(20), 0);
  cap.clear();
  std::int32_t flag = 0;
  TorvexKernelArgs a{.is = k.work.cells(), .size = k.work.size(), .stats = &k.stats};
  const std::span<double> few(k.m.a.data(), 3);
  torvex_kernel(40, n, std::span<const std::int32_t>(k.m.ia.data(), n + 1),
                std::span<const std::int32_t>(k.m.ja.data(), static_cast<std::size_t>(k.m.nel)), few, nullptr, nullptr,
                flag, a);
  EXPECT_EQ(flag, torvex_numeric_offset + torvex_flag_bad_structure);
  EXPECT_EQ(cap.text().rfind(" torvex_kernel: option 40: ia(", 0), 0u) << cap.text();
  EXPECT_NE(cap.text().find(" but a holds 3 entries\n"), std::string::npos) << cap.text();
}

TEST(TorvexBadInput, DamagedCopiesOfTheFactorAreRefusedWhole) {
  const int n = 30;
  const densem d = test::random_spd(n, 0.12, 10);
  const std::vector<double> b(n, 1.0), ref = inverse_times(d, b);
  Kern src{to_ija(d)};
  src.factorise();
  {
    FramedWriter w("factor.bin");
    ASSERT_EQ(src.run(74, nullptr, {.save_unit = &w}), 0);
  }
  const std::string good = read_file("factor.bin");
  const std::int64_t used = torvex_factor_cells(src.work.cells());
  ASSERT_EQ(static_cast<std::int64_t>(good.size()), 8 + 16 + 8 + 4 * used);

  // The target holds the factor of another matrix of the same order; every refused load leaves
  // it as it was, and it still solves its own equations.
  const densem other = test::random_spd(n, 0.2, 11);
  Kern dst{to_ija(other)};
  dst.factorise();
  const std::vector<std::int32_t> kept = dst.cells();
  auto load = [&](const std::string& bytes) {
    write_file("damaged.bin", bytes);
    FramedReader r("damaged.bin");
    CaptureOutput cap;
    const std::int32_t flag = dst.run(75, nullptr, {.load_unit = &r});
    return std::to_string(flag) + cap.text();
  };
  const std::string refused = "7501 torvex_kernel: the factor file is damaged: ";
  // Truncated anywhere: in a count, in the first record, in the cells, before the last count.
  for (std::size_t cut : {std::size_t{0}, std::size_t{3}, std::size_t{12}, std::size_t{40}, good.size() / 2, good.size() - 1}) {
    const std::string t = load(good.substr(0, cut));
    EXPECT_EQ(t.rfind(refused, 0), 0u) << cut << ": " << t;
    EXPECT_EQ(dst.cells(), kept) << cut;
  }
  // A flipped byte in the number of cells, in a frame, in the order, in an offset.
  auto flipped = [&](std::size_t at) {
    std::string f = good;
    f[at] = static_cast<char>(f[at] ^ 0x40);
    return load(f);
  };
  EXPECT_EQ(flipped(4 + 2), refused + "the record of the work array holds " + std::to_string(4 * used) + " bytes for " +
                                std::to_string(used + (std::int64_t{0x40} << 16)) + " cells\n");
  EXPECT_EQ(flipped(4 + 7), refused + "it announces a work array of " + std::to_string(used + (std::int64_t{0x40} << 56)) + " cells\n");
  EXPECT_EQ(flipped(0), refused + "its first record is not the size and check sum of a work array\n");
  EXPECT_EQ(flipped(32), refused + "its check sum does not match its contents\n");
  EXPECT_EQ(flipped(32 + 4 * 11), refused + "its check sum does not match its contents\n");
  // 40 bytes overwritten, wherever they fall: the frames, the sizes, the structure, the values.
  for (std::size_t at = 0; at + 40 <= good.size(); at += 52) {
    std::string f = good;
    for (std::size_t k = 0; k < 40; ++k) f[at + k] = static_cast<char>(0xA5 ^ k);
    const std::string t = load(f);
    EXPECT_EQ(t.rfind(refused, 0), 0u) << at << ": " << t;
    EXPECT_EQ(dst.cells(), kept) << at;
  }
  std::vector<double> x = b;
  ASSERT_EQ(dst.run(50, x.data()), 0);
  expect_near(x, inverse_times(other, b), 1e-11);
  // The good file still loads and solves the first matrix.
  EXPECT_EQ(load(good), "0");
  x = b;
  ASSERT_EQ(dst.run(50, x.data()), 0);
  expect_near(x, ref, 1e-11);
}

TEST(TorvexBadInput, DamagedWorkArrayCopyNamesItsFault) {
  // Option 73 has no check sum: each size and offset is held against the layout.
  const int n = 20;
  Kern src{to_ija(test::random_spd(n, 0.15, 12))};
  src.factorise();
  const std::int64_t used = torvex_factor_cells(src.work.cells());
  const std::vector<std::int32_t> image(src.work.cells(), src.work.cells() + used);
  Kern dst{src.m};
  dst.run(10);
  const std::vector<std::int32_t> kept = dst.cells();
  auto copy_with = [&](std::function<void(std::vector<std::int32_t>&)> damage) {
    std::vector<std::int32_t> c = image;
    damage(c);
    CaptureOutput cap;
    const std::int32_t flag = dst.run(73, nullptr, {.is2 = c.data(), .size2 = static_cast<std::int64_t>(c.size())});
    if (flag != 0) {
      EXPECT_EQ(dst.cells(), kept);
    }
    const std::string t = cap.text();
    const std::string head = " torvex_kernel: the copy of the factor is damaged: ";
    return flag == 7301 && t.rfind(head, 0) == 0 ? t.substr(head.size()) : std::to_string(flag) + t;
  };
  const std::int32_t xlnz = 32 + 2 * (n + 1), xnzsub = xlnz + n + 1;
  const std::int32_t nzsub = xnzsub + n + 1 + ((xnzsub + n + 1) & 1);
  std::int32_t col = 0;  // the first column of the factor with subscripts (0-based)
  while (image[static_cast<std::size_t>(xlnz + col + 1)] == image[static_cast<std::size_t>(xlnz + col)]) ++col;
  const auto first_sub = static_cast<std::size_t>(nzsub + image[static_cast<std::size_t>(xnzsub + col)]);
  const std::vector<std::pair<std::function<void(std::vector<std::int32_t>&)>, std::string>> cases = {
      {[](auto& c) { c[19] = 0; }, "it is not a work array of this package\n"},
      {[](auto& c) { c[0] = -2; }, "the order -2 is negative\n"},
      {[](auto& c) { c[2] = 9; }, "the stage 9 is unknown\n"},
      {[](auto& c) { c[5] = 21; }, "the rank 21 is outside 0..20\n"},
      {[](auto& c) { c[0] = 21; }, "header cell 7 holds 53 where its sizes give 54\n"},
      {[](auto& c) { c[4] += 1; }, "header cell 12 holds " + std::to_string(image[12]) + " where its sizes give " + std::to_string(image[12] + 2) + "\n"},
      {[](auto& c) { c.pop_back(); }, "it holds " + std::to_string(used - 1) + " cells where its sizes give " + std::to_string(used) + "\n"},
      {[](auto& c) { std::swap(c[32], c[33]); }, "the permutation and its inverse do not match\n"},
      {[&](auto& c) { c[static_cast<std::size_t>(xlnz)] = 1; }, "the columns of the factor do not fill it from its start\n"},
      {[&](auto& c) { c[static_cast<std::size_t>(xnzsub + 1)] = image[3]; }, "the subscripts of column 2 lie outside the stored ones\n"},
      {[&](auto& c) { c[first_sub] = col; },
       "the subscripts of column " + std::to_string(col + 1) + " do not rise below the diagonal\n"},
      {[&](auto& c) { c[first_sub] = n; },
       "the subscripts of column " + std::to_string(col + 1) + " do not rise below the diagonal\n"},
  };
  for (const auto& [damage, why] : cases) EXPECT_EQ(copy_with(damage), why);
  // The whole image goes in.
  EXPECT_EQ(copy_with([](auto&) {}), "0");
  EXPECT_EQ(dst.cells().size(), kept.size());
  EXPECT_TRUE(std::equal(image.begin(), image.end(), dst.work.cells()));
}

TEST(TorvexBadInput, StatisticsFields) {
  // Whole counts in 12 columns, averages and times with 2 and 3 decimals of the exact binary
  // value, asterisks for what does not fit (the total has 11 columns).
  TorvexStatistics st;
  st.calls_numeric = 3;
  st.calls_solve = 1e13;
  st.calls_sparse_solve = 4;
  st.calls_det = 1;
  st.calls_inverse = 2;
  st.max_nodes = 17;
  st.max_path = 9;
  st.sum_fnodes = 10;
  st.sum_bnodes = 2;
  st.sum_fpath = 1;
  st.sum_bpath = 0.1;  // 0.025000000000000001387... rounds up
  st.time_order = 1.2345;  // 1.2344999999999999307... rounds down
  st.time_symbolic = 0.0005;
  st.time_numeric = 12345678.9;
  st.time_solve = 123456789.0;
  st.time_inverse = 0.25;
  TorvexKernelArgs a{.stats = &st};
  std::int32_t flag = 0;
  CaptureOutput cap;
  torvex_kernel(80, 0, nullptr, nullptr, nullptr, nullptr, nullptr, flag, a);
  const std::string stars(46, '*');
  EXPECT_EQ(cap.text(), " " + stars + "\n               **** TORVEX ***\n " + stars +
                            "\n              SPARSE STATISTICS\n"
                            "      DIMENSION OF MATRIX     =           0\n"
                            "      RANK                    =           0\n"
                            "      STORAGE AVAILABLE       =           0\n"
                            "      MAXIMUM NEEDED          =           0\n"
                            "      NZE IN UPPER TRIANGULAR =           0\n"
                            "      NZE IN FACTOR           =           0\n"
                            "      NO. OF CALLS NUM FACT   =           3\n"
                            "      NO. OF CALLS SOLVE      =************\n"
                            "      NO. OF CALLS SPARS SOLV =           4\n"
                            "      NO. OF CALLS DET / LDET =           1\n"
                            "      NO. OF CALLS SPARS INV  =           2\n"
                            "      MAX NO. NODES           =          17\n"
                            "      MAX PATH LENGTH         =           9\n"
                            "      AVG NO. NODES FPATH     =        2.50\n"
                            "      AVG NO. NODES BPATH     =        0.50\n"
                            "      AVG FPATH LENGTH        =        0.25\n"
                            "      AVG BPATH LENGTH        =        0.03\n"
                            "      TOTAL CPU TIME IN TORVEX =***********\n"
                            "      TIME FOR FINDING ORDER  =       1.234\n"
                            "      TIME FOR SYMBOLIC FAC   =       0.001\n"
                            "      TIME FOR NUMERICAL FAC  =12345678.900\n"
                            "      TIME FOR SOLVE          =************\n"
                            "      TIME FOR SPARSE SOLVE   =       0.000\n"
                            "      TIME FOR SPARSE INVERSE =       0.250\n");
}
