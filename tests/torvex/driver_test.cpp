// The driver: stages, state, growth of the work space, the order file, the messages, and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "common/mme.hpp"
#include "common/spd.hpp"
#include "common/stop.hpp"
#include "helpers.hpp"
#include "mmekit/skelda/graph.hpp"
#include "mmekit/skelda/ordering.hpp"
#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/torvex/torvex.hpp"

// The designated initialisers below leave every other argument absent on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace mmekit;
using namespace torvex_test;
using mmekit::test::expect_stop;
using Vec = Array1<double>;
using test::stop_output;

TEST(TorvexDriver, StagesStateAndResults) {
  fresh_driver();
  const int n = 50;
  const densem d = test::random_spd(n, 0.07, 5);
  double logdet = 0;
  const densem inv = test::lapack_spd_inverse(d, &logdet);
  sparse_ija m = to_ija(d);

  // The first call grows the work space from 100 units, saying so at print level 1.
  CaptureOutput cap;
  const TorvexArgs pa{.print_level = 1};
  TORVEX("factorize", m, pa);
  const std::string t = cap.text();
  EXPECT_EQ(t.find(" memory increased from:  100  to:  "), 0u) << t;
  for (const char* line : {" ordering time = ", " symbolic factorization time= ", " numerical factorization time= "})
    EXPECT_NE(t.find(line), std::string::npos) << line;
  EXPECT_TRUE(torvex_state.memory_size > 100 && torvex_state.work.size() == torvex_state.memory_size);
  EXPECT_EQ(std::make_tuple(torvex_state.TORVEX_state, torvex_state.stats.calls_numeric), std::make_tuple(2, 1));

  // A solve after "fac" does not factorise again.
  cap.clear();
  Vec b = sines(n), sol;
  const Vec ref = matvec(inv, b);
  TORVEX("solve", m, {.rhs = &b, .sol = &sol});
  EXPECT_EQ(std::make_tuple(cap.text(), torvex_state.stats.calls_numeric), std::make_tuple("", 1));
  expect_all_near(sol, ref, 1e-10);
  // The statistics block after one solve, its lines in this order.
  TORVEX("statistics", m);
  const std::string nel = std::to_string(m.nel);
  std::size_t at = 0;
  for (const std::string& l : {std::string("              SPARSE STATISTICS\n"), std::string("      RANK                    =          50\n"),
                               "      NZE IN UPPER TRIANGULAR =" + std::string(12 - nel.size(), ' ') + nel + "\n",
                               std::string("      NO. OF CALLS SOLVE      =           1\n")}) {
    at = cap.text().find(l, at);
    ASSERT_NE(at, std::string::npos) << l << cap.text();
  }
  double det = 0;
  const TorvexArgs da{.det = &det};
  TORVEX("lde", m, da);
  EXPECT_NEAR(det, logdet, 1e-9);
  TORVEX("det", m, da);
  EXPECT_NEAR(std::log(det), logdet, 1e-9);

  // Products with the inverse factor and the factor (F F' = A): |F^-1 b|^2 = b' A^-1 b, and
  // the factor undoes it.
  Vec y, z;
  TORVEX("m_inv_fact", m, {.rhs = &b, .sol = &y});
  EXPECT_NEAR(dot(y, y), dot(b, ref), 1e-10);
  TORVEX("m_fact", m, {.rhs = &y, .sol = &z});
  expect_all_near(z, b, 1e-10);

  // The inverse goes into the matrix and the state falls back to 1; "res" clears it.
  cap.clear();
  TORVEX("invert", m, pa);
  EXPECT_NE(cap.text().find(" inversion time= "), std::string::npos) << cap.text();
  EXPECT_EQ(torvex_state.TORVEX_state, 1);
  expect_pattern_near(m, inv, 1e-10);
  TORVEX("reset", m);
  EXPECT_EQ(std::make_tuple(torvex_state.TORVEX_state, torvex_state.memory_size, torvex_state.work.allocated()),
            std::make_tuple(-1, 100, false));
  cap.clear();
  TORVEX("statistics", m);  // without a work space too
  EXPECT_NE(cap.text().find("              SPARSE STATISTICS\n"), std::string::npos);
}

TEST(TorvexDriver, NewOrderAndRefactorisation) {
  fresh_driver();
  const int n = 30;
  const densem d1 = test::random_spd(n, 0.1, 8);
  sparse_ija m1 = to_ija(d1);
  Array1<std::int32_t> p1, q1;
  TORVEX("fac", m1, {.perm_out = &p1, .invp_out = &q1});
  ASSERT_EQ(p1.size(), n);
  for (int k = 1; k <= n; ++k) EXPECT_EQ(q1(p1(k)), k);
  // The order file holds the same ordering.
  {
    FramedReader r("torvex.ord");
    std::int32_t nn = 0, nsub = 0;
    std::vector<std::int32_t> p(n), q(n);
    ASSERT_TRUE(r.read(nn, nsub) == FramedStatus::ok && r.read(p) == FramedStatus::ok && r.read(q) == FramedStatus::ok);
    EXPECT_EQ(std::make_tuple(nn, p, q), std::make_tuple(n, p1.vec(), q1.vec()));
  }
  // "fac" on the same matrix forces the numeric stage only.
  CaptureOutput cap;
  TORVEX("fac", m1, {.print_level = 1});
  EXPECT_EQ(cap.text().find(" ordering time ="), std::string::npos);
  EXPECT_NE(cap.text().find(" numerical factorization time="), std::string::npos);
  EXPECT_EQ(torvex_state.stats.calls_numeric, 2);

  // Another order: ordering again, and the solution is that of the new matrix.
  cap.clear();
  const int n2 = 45;
  const densem d2 = test::random_spd(n2, 0.08, 9);
  sparse_ija m2 = to_ija(d2);
  const Vec ones2(n2, 1.0);
  Vec sol;
  TORVEX("sol", m2, {.rhs = &ones2, .sol = &sol, .print_level = 3});
  const std::string t = cap.text();
  EXPECT_NE(t.find(" TORVEX: size= 45   #nonzeroes= " + std::to_string(m2.nel) + "\n"), std::string::npos) << t;
  EXPECT_NE(t.find(" ordering time ="), std::string::npos);
  expect_all_near(sol, solved(d2, ones2), 1e-10);

  // Back to the first matrix: same order, other elements: ordered and factorised anew; then a
  // caller's ordering, used as given.
  const Vec ones(n, 1.0), ref1 = solved(d1, ones);
  TORVEX("sol", m1, {.rhs = &ones, .sol = &sol});
  expect_all_near(sol, ref1, 1e-10);
  Array1<std::int32_t> rev(n), got;
  for (int k = 1; k <= n; ++k) rev(k) = n + 1 - k;
  TORVEX("fac", m1, {.perm = &rev, .perm_out = &got});
  EXPECT_EQ(got, rev);
  TORVEX("sol", m1, {.rhs = &ones, .sol = &sol});
  expect_all_near(sol, ref1, 1e-10);
}

TEST(TorvexDriver, SingularInverse) {
  fresh_driver();
  const test::SmallMme mme = test::small_mme(60, 12);
  densem d;
  assign(d, mme.ija);
  sparse_ija m = mme.ija, orig = mme.ija;
  TORVEX("inverse", m);
  // The rows of the dependent equations are zero, the rest is the inverse of the kept part.
  std::vector<std::int64_t> keep;
  for (std::int32_t i = 1; i <= m.n; ++i)
    if (m.a(m.ia(i)) != 0.0) keep.push_back(i);
  ASSERT_EQ(static_cast<std::int64_t>(keep.size()), test::lapack_rank(d));
  double logdet = 0;
  expect_pattern_near(m, kept_inverse(d, keep, &logdet), 1e-9);
  // The next operation refactorises from the matrix handed in.
  double det = 0;
  TORVEX("ldet", orig, {.det = &det});
  EXPECT_NEAR(det, logdet, 1e-8);
}

TEST(TorvexDriver, Messages) {
  fresh_driver();
  const int n = 10;
  sparse_ija m = to_ija(test::random_spd(n, 0.3, 2));
  CaptureOutput cap;
  // Missing optional arguments: message, nothing done, no stop.
  TORVEX("det", m);
  TORVEX("ldet", m);
  TORVEX("solve", m);
  const Vec rhs(n, 1.0);
  TORVEX("m_fact", m, {.rhs = &rhs});
  TORVEX("m_inv", m, {.rhs = &rhs});
  EXPECT_EQ(cap.text(),
            " TORVEX: optional parameter DET missing\n TORVEX: optional parameter DET misiing\n"
            " TORVEX: optional parameter SOL or RS missing\n TORVEX: optional parameter SOL or RS missing\n"
            " TORVEX: optional parameter SOL or RS missing\n");
  EXPECT_EQ(torvex_state.TORVEX_state, -1);

  // A caller's permutation of the wrong size: the kernel's lines, then the stop.
  Array1<std::int32_t> p(n + 2);
  for (int k = 1; k <= n + 2; ++k) p(k) = k;
  EXPECT_EQ(test::run_to_stop([&] { TORVEX("fac", m, {.perm = &p}); }).printed,
            " incorrect size of permutation vector\n size  12  found; size  10  required\n"
            " error in unit IOOR \n option no.  70  not implemented\n torvex: unknown error flag:  -1\n");
  TORVEX("res", m);
  // The limit on memory.
  const test::StopSeen seen = test::run_to_stop([&] { TORVEX("fac", m, {.max_memory = 150}); });
  EXPECT_EQ(seen.message.find(" TORVEX: memory needed:  "), 0u) << seen.message;
  EXPECT_NE(seen.printed.find("\n          maxmimum memory allowed:  150\n"), std::string::npos) << seen.printed;
  TORVEX("res", m);

  // An unknown operation, and the flags of a pivot failure and of an unknown error.
  TorvexWork w(10);
  std::int32_t size = 10;
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { TORVEX("xyz", m); }, " TORVEX operation  xyz  unknown"},
      {[&] { torvex_handle_flag(40000007, 0, w, size, 1000, 0); },
       " TORVEX: Zero or negative pivot for row ROW  during numerical factorization in row: 36000007"},
      {[&] { torvex_handle_flag(100, 0, w, size, 1000, 0); }, " torvex: unknown error flag:  100"}};
  for (const auto& [call, message] : stops) expect_stop(call, message);
  EXPECT_TRUE(torvex_handle_flag(101, 0, w, size, 1000, 0) && size == 101);
  EXPECT_FALSE(torvex_handle_flag(0, 0, w, size, 1000, 0));
}

TEST(TorvexDriver, EmptyMatrix) {
  fresh_driver();
  sparse_ija m;
  m.ia.assign(1, 1);
  Vec rhs, sol(3, 5.0);
  TORVEX("sol", m, {.rhs = &rhs, .sol = &sol});
  EXPECT_EQ(sol.size(), 0);
  double det = 7.0;
  TORVEX("det", m, {.det = &det});
  EXPECT_EQ(det, 7.0);  // nothing is stored for an empty matrix
  TORVEX("inv", m);
}

TEST(TorvexDriver, DenseRowsLastSwitch) {
  // The solver's dense-row switch also governs this package's ordering: the rows above the
  // threshold come last, in ascending order, and the factor solves the same system. A unit
  // added to the diagonal makes the generated equations positive definite.
  test::SmallMme mme = test::small_mme(400, 5);
  sparse_ija m = mme.ija;
  for (std::int32_t i = 1; i <= m.n; ++i) m.a(m.ia(i)) += 1.0;
  Array1<std::int32_t> xadj, adj;
  full_graph(m.n, m.ia, m.ja, xadj, adj);
  std::vector<std::int32_t> dense;
  for (std::int32_t i = 1; i <= m.n; ++i)
    if (xadj(i + 1) - xadj(i) > dense_row_threshold(m.n, 0.7)) dense.push_back(i);  // MMD's rule
  ASSERT_FALSE(dense.empty());
  const Vec rhs = sines(m.n);
  Vec x[2];
  Array1<std::int32_t> p[2];
  double ld[2] = {0, 0};
  for (int on : {0, 1}) {
    skelda_state.switches.dense_rows_last = on == 1;
    fresh_driver();
    sparse_ija a = m;
    TORVEX("fac", a, {.perm_out = &p[on]});
    TORVEX("sol", a, {.rhs = &rhs, .sol = &x[on]});
    TORVEX("lde", a, {.det = &ld[on]});
  }
  skelda_state.switches.dense_rows_last = false;
  EXPECT_NE(p[1], p[0]);
  const std::vector<std::int32_t> tail(p[1].end() - static_cast<std::ptrdiff_t>(dense.size()), p[1].end());
  EXPECT_EQ(tail, dense);
  expect_all_near(x[1], x[0], 1e-9);
  EXPECT_NEAR(ld[1], ld[0], 1e-8);
}

// Bad input to the sparse Cholesky package: damaged matrices, short right-hand sides, a pattern
// that changed under the factor, damaged copies of the factor. Each gets its message and leaves
// the state as it was.
TEST(TorvexBadInput, DamagedMatrixAndRightHandSide) {
  fresh_driver();
  const int n = 10;
  const densem d = test::random_spd(n, 0.3, 4);
  const sparse_ija good = to_ija(d);
  const std::string nel = std::to_string(good.nel), less = std::to_string(good.nel - 1);
  sparse_ija short_ia = good, short_ja = good, short_a = good, column = good;
  short_ia.ia.resize(n);
  short_ja.ja.resize(good.nel - 1);
  short_a.a.resize(good.nel - 1);
  column.ja(good.ia(2)) = 11;
  Array1<double> rhs(n, 1.0), sol;
  double det = 0;
  const std::vector<std::tuple<const char*, sparse_ija*, std::string>> cases = {
      {"fac", &short_ia, "n = 10 needs 11 entries in ia but ia holds 10"},
      {"sol", &short_ja, "ia(11)-1 = " + nel + " but ja holds " + less + " entries"},
      {"inv", &short_a, "ia(11)-1 = " + nel + " but a holds " + less + " entries"},
      {"det", &column, "ja(" + std::to_string(good.ia(2)) + ") = 11 in row 2 is outside 1..10"},
  };
  for (const auto& [op, m, what] : cases) {
    EXPECT_EQ(stop_output([&] { TORVEX(op, *m, {.rhs = &rhs, .sol = &sol, .det = &det}); }), "TORVEX: " + what + "\n");
    EXPECT_EQ(torvex_state.TORVEX_state, -1) << op;
  }
  // With the factor in place a solve does not read the matrix; the inverse, written into it, does.
  TORVEX("fac", *const_cast<sparse_ija*>(&good));
  TORVEX("sol", short_ja, {.rhs = &rhs, .sol = &sol});
  EXPECT_EQ(stop_output([&] { TORVEX("inv", short_ja); }), "TORVEX: " + std::get<2>(cases[1]) + "\n");
  EXPECT_EQ(torvex_state.TORVEX_state, 2);
  // A right-hand side shorter than n stops; a missing one only says so; a longer one is used
  // for its first n values.
  sparse_ija m = good;
  Array1<double> short_rhs(n - 1, 1.0), long_rhs(n + 3, 1.0);
  EXPECT_EQ(stop_output([&] { TORVEX("sol", m, {.rhs = &short_rhs, .sol = &sol}); }),
            "TORVEX: the right-hand side holds 9 values but the matrix has order 10\n");
  CaptureOutput cap;
  TORVEX("m_f", m, {.sol = &sol});
  EXPECT_EQ(cap.text(), " TORVEX: optional parameter SOL or RS missing\n");
  TORVEX("sol", m, {.rhs = &long_rhs, .sol = &sol});
  expect_all_near(sol, solved(d, rhs), 1e-12);
  TORVEX("res", m);
}

TEST(TorvexBadInput, RightHandSideAsTheSolution) {
  // The same array, longer than n, as right-hand side and solution: cut to n, solved in place.
  fresh_driver();
  const int n = 40;
  const densem d = test::random_spd(n, 0.1, 6);
  sparse_ija m = to_ija(d);
  for (const char* op : {"sol", "m_i", "m_f"}) {
    Array1<double> rhs = sines(n), x, same = sines(n + 2);
    TORVEX(op, m, {.rhs = &rhs, .sol = &x});
    TORVEX(op, m, {.rhs = &same, .sol = &same});
    EXPECT_EQ(same.vec(), x.vec()) << op;
    if (op[0] == 's') expect_all_near(x, solved(d, rhs), 1e-12);
  }
  TORVEX("res", m);
}

TEST(TorvexBadInput, PatternThatChangedUnderTheFactor) {
  // A path with a heavy diagonal has no fill: the element (5, 6) moved to (1, 12) has no place
  // in its factor, though the order and the element count are the same.
  fresh_driver();
  const int n = 12;
  densem d(n, 0.0);
  for (int i = 1; i <= n; ++i) d(i, i) = 3.0 + i;
  for (int i = 1; i < n; ++i) d(i, i + 1) = d(i + 1, i) = -1.0;
  sparse_ija m = to_ija(d);
  TORVEX("fac", m);
  densem dm = d;
  dm(5, 6) = dm(6, 5) = 0.0;
  dm(1, 12) = dm(12, 1) = -1.0;
  sparse_ija moved = to_ija(dm);
  EXPECT_EQ(stop_output([&] { TORVEX("fac", moved); }),
            "TORVEX: the pattern of the matrix changed since the ordering; call \"res\" and start again\n");
  Array1<double> rhs = sines(n), x;
  TORVEX("sol", m, {.rhs = &rhs, .sol = &x});
  expect_all_near(x, solved(d, rhs), 1e-12);
  // The kernel's inverse refuses it too, before it overwrites anything.
  Kernel k(m);
  k.factorise();
  k.m = moved;
  EXPECT_EQ(k.run(61), torvex_flag_pattern_changed);
  EXPECT_EQ(k.m.a.vec(), moved.a.vec());
  TORVEX("res", m);
}

TEST(TorvexBadInput, KernelNamesADamagedStructure) {
  const int n = 10;
  Kernel k(to_ija(test::random_spd(n, 0.3, 8)));
  k.factorise();
  CaptureOutput cap;
  // Through spans the sizes are known: a short value array is named at the numeric stage.
  std::int32_t flag = 0;
  TorvexKernelArgs a{.is = k.work.cells(), .size = k.work.size(), .stats = &k.stats};
  torvex_kernel(40, n, std::span<const std::int32_t>(k.m.ia.data(), n + 1),
                std::span<const std::int32_t>(k.m.ja.data(), static_cast<std::size_t>(k.m.nel)),
                std::span<double>(k.m.a.data(), 3), nullptr, nullptr, flag, a);
  EXPECT_EQ(flag, torvex_numeric_offset + torvex_flag_bad_structure);
  const std::string ends = " but a holds 3 entries\n", t = cap.text();
  EXPECT_TRUE(t.starts_with(" torvex_kernel: option 40: ia(") && t.ends_with(ends)) << t;
  cap.clear();
  k.m.ja(2) = 0;
  EXPECT_EQ(k.run(10), torvex_flag_bad_structure);
  EXPECT_EQ(cap.text(), " torvex_kernel: option 10: ja(2) = 0 in row 1 is outside 1..10\n");
}

TEST(TorvexBadInput, DamagedCopiesOfTheFactorAreRefusedWhole) {
  const int n = 30;
  const densem d = test::random_spd(n, 0.12, 10), other = test::random_spd(n, 0.2, 11);
  Kernel src(to_ija(d)), dst(to_ija(other));
  src.factorise();
  dst.factorise();
  {
    FramedWriter w("factor.bin");
    ASSERT_EQ(src.run(74, nullptr, {.save_unit = &w}), 0);
  }
  const std::string good = test::read_file("factor.bin");
  const std::int64_t used = torvex_factor_cells(src.work.cells());
  const std::vector<std::int32_t> kept = dst.cells();
  auto load = [&](const std::string& bytes) {
    test::write_file("damaged.bin", bytes);
    FramedReader r("damaged.bin");
    CaptureOutput cap;
    const std::int32_t flag = dst.run(75, nullptr, {.load_unit = &r});
    return std::to_string(flag) + cap.text();
  };
  auto solves = [&](const densem& a) {
    Array1<double> x = sines(n);
    ASSERT_EQ(dst.run(50, x.data()), 0);
    expect_all_near(x, solved(a, sines(n)), 1e-11);
  };
  // Cut short, a flipped byte (the cell count, its high byte, the check sum, a cell), 40 bytes
  // overwritten anywhere: each refused whole, the target left as it was.
  std::vector<std::pair<std::string, std::string>> damaged;
  for (std::size_t cut : {std::size_t{0}, std::size_t{3}, std::size_t{40}, good.size() / 2, good.size() - 1})
    damaged.push_back({good.substr(0, cut), ""});
  const std::string count = std::to_string(used), bytes = std::to_string(4 * used);
  const std::vector<std::pair<std::size_t, std::string>> flips = {
      {6, "the record of the work array holds " + bytes + " bytes for " + std::to_string(used + (std::int64_t{0x40} << 16)) + " cells\n"},
      {11, "it announces a work array of " + std::to_string(used + (std::int64_t{0x40} << 56)) + " cells\n"},
      {0, "its first record is not the size and check sum of a work array\n"},
      {32, "its check sum does not match its contents\n"},
      {32 + 4 * 11, "its check sum does not match its contents\n"}};
  for (const auto& [at, why] : flips) {
    damaged.push_back({good, why});
    damaged.back().first[at] ^= 0x40;
  }
  for (std::size_t at = 0; at + 40 <= good.size(); at += 52) {
    damaged.push_back({good, ""});
    for (std::size_t k = 0; k < 40; ++k) damaged.back().first[at + k] = static_cast<char>(0xA5 ^ k);
  }
  const std::string refused = "7501 torvex_kernel: the factor file is damaged: ";
  for (const auto& [file, why] : damaged) {
    const std::string t = load(file);
    EXPECT_TRUE(why.empty() ? t.starts_with(refused) : t == refused + why) << file.size() << ": " << t;
    EXPECT_EQ(dst.cells(), kept);
  }
  solves(other);
  EXPECT_EQ(load(good), "0");
  solves(d);
}

TEST(TorvexBadInput, DamagedWorkArrayCopyNamesItsFault) {
  // Option 73 has no check sum: each size and offset is held against the layout.
  const int n = 20;
  Kernel src(to_ija(test::random_spd(n, 0.15, 12)));
  src.factorise();
  const std::int64_t used = torvex_factor_cells(src.work.cells());
  const std::vector<std::int32_t> image(src.work.cells(), src.work.cells() + used);
  Kernel dst(src.m);
  dst.run(10);
  const std::vector<std::int32_t> kept = dst.cells();
  const std::int32_t xlnz = 32 + 2 * (n + 1), xnzsub = xlnz + n + 1;
  const std::int32_t nzsub = xnzsub + n + 1 + ((xnzsub + n + 1) & 1);
  std::int32_t col = 0;  // the first column of the factor with subscripts (0-based)
  while (image[xlnz + col + 1] == image[xlnz + col]) ++col;
  const auto first_sub = static_cast<std::size_t>(nzsub + image[xnzsub + col]);
  const std::string rise = "the subscripts of column " + std::to_string(col + 1) + " do not rise below the diagonal\n";
  const std::vector<std::pair<std::function<void(std::vector<std::int32_t>&)>, std::string>> cases = {
      {[](auto& c) { c[19] = 0; }, "it is not a work array of this package\n"},
      {[](auto& c) { c[0] = -2; }, "the order -2 is negative\n"},
      {[](auto& c) { c[2] = 9; }, "the stage 9 is unknown\n"},
      {[](auto& c) { c[5] = 21; }, "the rank 21 is outside 0..20\n"},
      {[](auto& c) { c[0] = 21; }, "header cell 7 holds 53 where its sizes give 54\n"},
      {[](auto& c) { c[4] += 1; },
       "header cell 12 holds " + std::to_string(image[12]) + " where its sizes give " + std::to_string(image[12] + 2) + "\n"},
      {[](auto& c) { c.pop_back(); }, "it holds " + std::to_string(used - 1) + " cells where its sizes give " + std::to_string(used) + "\n"},
      {[](auto& c) { std::swap(c[32], c[33]); }, "the permutation and its inverse do not match\n"},
      {[&](auto& c) { c[xlnz] = 1; }, "the columns of the factor do not fill it from its start\n"},
      {[&](auto& c) { c[xnzsub + 1] = image[3]; }, "the subscripts of column 2 lie outside the stored ones\n"},
      {[&](auto& c) { c[first_sub] = col; }, rise},
      {[&](auto& c) { c[first_sub] = n; }, rise},
      {[](auto&) {}, ""},
  };
  for (const auto& [damage, why] : cases) {
    std::vector<std::int32_t> c = image;
    damage(c);
    CaptureOutput cap;
    const std::int32_t flag = dst.run(73, nullptr, {.is2 = c.data(), .size2 = static_cast<std::int64_t>(c.size())});
    if (why.empty()) break;
    EXPECT_EQ(std::to_string(flag) + cap.text(), "7301 torvex_kernel: the copy of the factor is damaged: " + why);
    EXPECT_EQ(dst.cells(), kept);
  }
  EXPECT_TRUE(std::equal(image.begin(), image.end(), dst.work.cells()));
}
