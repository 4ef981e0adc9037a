#include "mmekit/genomic/pedigree.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/support/units.hpp"

namespace mmekit {
namespace {

// Rows (animal, sire, dam) to a pedigree array with column 4 zero.
Array2<std::int32_t> make_ped(std::initializer_list<std::array<std::int32_t, 3>> rows) {
  Array2<std::int32_t> p(static_cast<std::int64_t>(rows.size()), 4, 0);
  for (const auto& r : rows)
    for (int c = 0; c < 3; ++c) p(r[0], c + 1) = r[c];
  return p;
}

// 1, 2 base; 3 = 1 x 2; 4 = 1 x 2 (full sib of 3); 5 = 1 x 0; 6 = 3 x 4 (full-sib mating);
// 7 = 5 x 6.
Array2<std::int32_t> family() {
  return make_ped({{1, 0, 0}, {2, 0, 0}, {3, 1, 2}, {4, 1, 2}, {5, 1, 0}, {6, 3, 4}, {7, 5, 6}});
}

TEST(Pedigree, RelationshipsByHandAndInbreedingBothWays) {
  const Array2<std::int32_t> ped = family();
  Array1<double> f(0, 7, -1.0);
  f(0) = 0;
  // By hand: full sibs 1/2, half sibs (3, 5) 1/4, f(6) = a(3,4)/2 = 1/4, a(6,6) = 5/4,
  // a(5,6) = (a(1,5) + ... ) : a(5,6) = (a(5,3) + a(5,4))/2 = 1/4; f(7) = a(5,6)/2 = 1/8.
  EXPECT_DOUBLE_EQ(CFFA(3, 4, ped, f), 0.5);
  EXPECT_DOUBLE_EQ(CFFA(5, 3, ped, f), 0.25);
  EXPECT_DOUBLE_EQ(CFFA(6, 6, ped, f), 1.25);
  EXPECT_DOUBLE_EQ(CFFA(1, 6, ped, f), 0.5);
  EXPECT_DOUBLE_EQ(CFFA(7, 7, ped, f), 1.125);
  EXPECT_DOUBLE_EQ(CFFA(0, 7, ped, f), 0.0);
  EXPECT_EQ(f(4), -1.0);  // not needed, not computed

  Array1<double> fr;
  CaptureOutput cap;
  inbreeding_recursive(ped, fr, 1);
  const double expected[] = {0, 0, 0, 0, 0, 0, 0.25, 0.125};
  for (int a = 0; a <= 7; ++a) EXPECT_DOUBLE_EQ(fr(a), expected[a]) << a;
  EXPECT_NE(cap.text().find("   Mean inbreeding:  0.05357142857142857"), std::string::npos) << cap.text();

  // M&L: same f, parents swapped so that the larger is the sire, f(0) back to 0.
  Array1<std::int32_t> sire(7), dam(7);
  for (int a = 1; a <= 7; ++a) sire(a) = ped(a, 2), dam(a) = ped(a, 3);
  Array1<double> fm(0, 7, 9.0);
  inbreeding_ML(sire, dam, fm, 0);
  for (int a = 0; a <= 7; ++a) EXPECT_DOUBLE_EQ(fm(a), expected[a]) << a;
  EXPECT_EQ(sire(7), 6);
  EXPECT_EQ(dam(7), 5);
  EXPECT_EQ(sire(5), 1);
  EXPECT_EQ(dam(5), 0);
}

TEST(Pedigree, InbreedingOnLargerPedigreeAgrees) {
  // A pedigree with repeated close matings and unknown parents: M&L against the recursion.
  const std::int32_t n = 150;
  Array2<std::int32_t> ped(n, 4, 0);
  std::uint32_t r = 12345;
  auto draw = [&](std::int32_t below) {
    r = r * 1103515245u + 12345u;
    return static_cast<std::int32_t>((r >> 8) % static_cast<std::uint32_t>(below));
  };
  for (std::int32_t a = 1; a <= n; ++a) {
    ped(a, 1) = a;
    if (a > 10) {
      const std::int32_t lo = std::max(1, a - 30);
      ped(a, 2) = draw(8) == 0 ? 0 : lo + draw(a - lo);
      ped(a, 3) = draw(8) == 0 ? 0 : lo + draw(a - lo);
      if (ped(a, 2) == ped(a, 3)) ped(a, 3) = 0;
    }
  }
  Array1<double> fr;
  {
    CaptureOutput cap;
    inbreeding_recursive(ped, fr, 1);
    // n/10 = 15: ten progress lines, the last at 100%.
    EXPECT_NE(cap.text().find(" about 10 % -  15  animals\n"), std::string::npos) << cap.text();
    EXPECT_NE(cap.text().find(" about 100 % -  150  animals\n"), std::string::npos);
  }
  Array1<std::int32_t> sire(n), dam(n);
  for (std::int32_t a = 1; a <= n; ++a) sire(a) = ped(a, 2), dam(a) = ped(a, 3);
  Array1<double> fm(0, n, 0.0);
  CaptureOutput cap;
  inbreeding_ML(sire, dam, fm, 1);
  double most = 0;
  for (std::int32_t a = 0; a <= n; ++a) {
    EXPECT_NEAR(fm(a), fr(a), 1e-12) << a;
    most = std::max(most, fm(a));
  }
  EXPECT_GT(most, 0.2);
  EXPECT_NE(cap.text().find(" at 50 % -  75  animals\n"), std::string::npos) << cap.text();
  EXPECT_NE(cap.text().find("   Calculating Inbreeding by M&L, elapsed time "), std::string::npos);

  // Fewer than ten animals: no progress lines and no failure.
  Array1<std::int32_t> s3(3), d3(3);
  s3(3) = 1, d3(3) = 2;
  Array1<double> f3(0, 3, 0.0);
  cap.clear();
  inbreeding_ML(s3, d3, f3, 1);
  EXPECT_EQ(cap.text().find(" at"), std::string::npos);
  test::expect_stop([&] { Array1<double> g(0, 2, 0.0); inbreeding_ML(s3, d3, g, 0); },
                    "vectors for pedigree and inbreeding not match");
}

TEST(Pedigree, ColleauProductEqualsDenseA) {
  const Array2<std::int32_t> ped = family();
  Array1<double> f(0, 7, -1.0);
  f(0) = 0;
  double A[8][8];
  for (int i = 1; i <= 7; ++i)
    for (int j = 1; j <= 7; ++j) A[i][j] = CFFA(i, j, ped, f);
  // Two blocks of three interleaved columns, the second block two animals further on.
  const std::int32_t nk = 3;
  const std::vector<std::int64_t> blocks = {0, 9};
  const std::int64_t nx = (9 + 7) * nk + 2;
  std::vector<double> x(nx), y(nx, -7.0);
  for (std::int64_t k = 0; k < nx; ++k) x[k] = 0.1 * static_cast<double>((k * 7) % 11) - 0.4;
  NRM_times_w8(ped, f, y, x, 2, blocks, nx, nk);
  for (int b = 0; b < 2; ++b)
    for (int c = 1; c <= nk; ++c)
      for (int i = 1; i <= 7; ++i) {
        double want = 0;
        for (int j = 1; j <= 7; ++j) want += A[i][j] * x[(blocks[b] + j - 1) * nk + c - 1];
        EXPECT_NEAR(y[(blocks[b] + i - 1) * nk + c - 1], want, 1e-13) << b << c << i;
      }
  EXPECT_EQ(y[7 * nk], -7.0);  // between the blocks: untouched
  EXPECT_EQ(y[nx - 1], -7.0);

  // The genomic entry with a reduced pedigree, and the checks.
  ReducedPedigree red;
  red.n = 7;
  red.ped = ped;
  red.f = f;
  std::vector<double> y1(7), x1(7, 0.0);
  x1[5] = 1;
  const std::vector<std::int64_t> one = {0};
  NRM_times_w8(y1, x1, 1, one, 7, 1, 0, &red);
  for (int i = 1; i <= 7; ++i) EXPECT_NEAR(y1[i - 1], A[i][6], 1e-14);
  genomic.reset();
  genomic.ped = ped;
  test::expect_stop([&] { NRM_times_w8(y1, x1, 1, one, 7, 1); }, "NRM_times_w8: not allocated f");
  genomic.f = Array1<double>(0, 6, 0.0);
  test::expect_stop([&] { NRM_times_w8(y1, x1, 1, one, 7, 1); }, " NRM_times_w8: size of F not match pedigree 7 7");
  genomic.reset();
}

TEST(Pedigree, CffaLoopsAndMissingF) {
  // 2 and 3 are each other's sire: the evaluation stops instead of running forever.
  const Array2<std::int32_t> ped = make_ped({{1, 0, 0}, {2, 3, 1}, {3, 2, 1}});
  Array1<double> f(0, 3, -1.0);
  f(0) = 0;
  test::expect_stop([&] { CFFA(1, 2, ped, f); }, "CFFA: loop in pedigree, check pedigree!!");
  genomic.reset();
  test::expect_stop([] { CFFA(1, 1); }, "CFFA: not allocated f");
  // A line 100000 generations deep: no recursion of the machine stack.
  const std::int32_t n = 100000;
  Array2<std::int32_t> deep(n, 4, 0);
  for (std::int32_t a = 1; a <= n; ++a) deep(a, 1) = a, deep(a, 2) = a - 1;
  Array1<double> fd(0, n, -1.0);
  fd(0) = 0;
  EXPECT_DOUBLE_EQ(CFFA(n, n, deep, fd), 1.0);
  EXPECT_EQ(CFFA(n - 40, n, deep, fd), std::ldexp(1.0, -40));
  EXPECT_EQ(CFFA(1, n, deep, fd), 0.0);  // 2^-99999 underflows
}

TEST(Pedigree, GetPedMessagesAndRules) {
  genomic.reset();
  test::expect_stop([] { GET_PED(); }, "GET_PED: either filename or unit has to be present");
  test::write_file("empty.ped", "\n");
  {
    const std::string out = test::stop_output([] { GET_PED("empty.ped"); });
    EXPECT_EQ(out, "  Read  0  animals from pedigree file: \"empty.ped\"\nGET_PED: no animals in pedigree file\n");
  }
  // Animal 3 is its own dam; animal 2 has a parent group (9) and comes after its progeny 1;
  // animal 5 is given twice (the second line wins, n counts both).
  test::write_file("ped.txt", "1 2 0 x\n2 9 0\n3 1 3\n5 1 2\n4 3 9\n5 3 4\n");
  genomic.opt.msg = 1;
  CaptureOutput cap;
  GET_PED("  ped.txt  ");
  EXPECT_EQ(cap.text(),
            "  Read  6  animals from pedigree file: \"ped.txt\"\n"
            "  Pedigree was in not chronological order (parent first), reodering will be performed!!!\n"
            "  Animal Id equal to Sire/Dam Id - relationships removed !! 3\n"
            "  Pedigree with UPG - setting to zero to create A22\n");
  EXPECT_EQ(genomic.n, 6);
  const std::int32_t want[6][3] = {{1, 2, 0}, {2, 0, 0}, {3, 0, 0}, {4, 3, 0}, {5, 3, 4}, {0, 0, 0}};
  for (int a = 1; a <= 6; ++a)
    for (int c = 1; c <= 3; ++c) EXPECT_EQ(genomic.ped(a, c), want[a - 1][c - 1]) << a << c;
  EXPECT_EQ(genomic.opt.mats(gm_A22).which, 4);
  EXPECT_FALSE(genomic.ped_chronological);
  EXPECT_EQ(genomic.f.lower(), 0);
  EXPECT_EQ(genomic.f.size(), 7);
  EXPECT_FALSE(units.is_open(1));

  // A chronological file on an open unit, at message level 0: the user's whichA22 stays; a UPG
  // at or above the animal is no order problem.
  genomic.reset();
  genomic.opt.mats(gm_A22).which = 1;
  test::write_file("ok.ped", "1 0 0\n2 0 7\n3 1 2\n");
  ASSERT_TRUE(units.open(12, "ok.ped", true, "old"));
  cap.clear();
  GET_PED(std::nullopt, 12);
  EXPECT_EQ(cap.text(), "  Read  3  animals from pedigree file: \"ok.ped\"\n  Pedigree with UPG - setting to zero to create A22\n");
  EXPECT_EQ(genomic.opt.mats(gm_A22).which, 1);
  EXPECT_TRUE(genomic.ped_chronological);
  units.close(12);
}

TEST(Pedigree, GetPedOriginalIds) {
  genomic.reset();
  genomic.opt.saveGOrig = true;
  genomic.opt.msg = 101;
  // animal sire dam 0 known records 0 as-sire as-dam id
  test::write_file("orig.ped",
                   "1 0 0 0 0 0 0 3 0 BULL_WITH_A_VERY_LONG_NAME_1234\n"
                   "2 0 0 0 -2 0 0 0 2 COW2\n"
                   "3 1 2 0 3 1 0 1 1 X3\n"
                   "4 1 2 0 3 1 0 0 0 X4\n");
  CaptureOutput cap;
  GET_PED("orig.ped", 7);
  EXPECT_TRUE(genomic.opt.readOrigId);
  EXPECT_EQ(genomic.origId(0), "0");
  EXPECT_EQ(genomic.origId(1), "BULL_WITH_A_VERY_LONG_NAM");
  const std::int32_t known[] = {0, 2, 3, 3}, sex[] = {1, 2, 3, 0};
  for (int a = 1; a <= 4; ++a) {
    EXPECT_EQ(genomic.animalKnownParents(a), known[a - 1]) << a;
    EXPECT_EQ(genomic.animalSex(a), sex[a - 1]) << a;
  }
  EXPECT_NE(cap.text().find("  Reading Original IDs from pedigree file \n"), std::string::npos) << cap.text();
  EXPECT_NE(cap.text().find("\n 3 1 2 0 3 3 X3\n"), std::string::npos) << cap.text();

  genomic.reset();
  genomic.opt.readOrigId = true;
  test::write_file("short.ped", "1 0 0 0 0 0 0 3 0 B1\n2 0 0 0 0 0 0 0 2\n");
  test::expect_stop([] { GET_PED("short.ped"); },
                    " Wrong pedigree file, should be from LINTARO with original IDs in the 10th column");
  genomic.reset();
}

}  // namespace
}  // namespace mmekit
