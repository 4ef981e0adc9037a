#include "mmekit/genomic/matrix_files.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "common/arrays.hpp"
#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/genomic/state.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"

namespace mmekit {
namespace {

using test::expect_stop;
using test::read_file;
using test::write_file;

densem sym(std::int64_t n, std::initializer_list<double> upper_by_rows) {
  densem a(n, 0.0);
  auto v = upper_by_rows.begin();
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = i; j <= n; ++j) a(i, j) = a(j, i) = *v++;
  return a;
}

template <class M>
M as_kind(const densem& a) {
  M m;
  if constexpr (std::is_same_v<M, densem>) {
    m = a;
  } else if constexpr (std::is_same_v<M, dense_symm>) {
    pack_symm(a, m);
  } else {
    init_sparse_hashm(m, static_cast<std::int32_t>(a.order()));
    for (std::int64_t j = 1; j <= a.order(); ++j)
      for (std::int64_t i = 1; i <= j; ++i)
        if (a(i, j) != 0.0) addm_sparse_hashm(a(i, j), static_cast<std::int32_t>(i), static_cast<std::int32_t>(j), m);
  }
  return m;
}

densem as_dense(const densem& a) { return a; }
densem as_dense(const dense_symm& a) {
  densem d;
  unpack_symm(a, d);
  return d;
}
densem as_dense(const sparse_hashm& a) {
  densem d(a.n, 0.0);
  for (std::int32_t i = 1; i <= a.n; ++i)
    for (std::int32_t j = i; j <= a.n; ++j) d(i, j) = d(j, i) = getm_sparse_hashm(i, j, a);
  return d;
}

std::string run(const std::function<void()>& f) {
  CaptureOutput cap;
  f();
  return cap.text();
}

// One 16- or 24-byte framed record per element, as the old and new binary forms define it.
std::string record(std::int32_t i, std::int32_t j, double v, const std::int32_t* l = nullptr) {
  const std::int32_t len = l ? 24 : 16;
  std::string r(reinterpret_cast<const char*>(&len), 4);
  r.append(reinterpret_cast<const char*>(&i), 4).append(reinterpret_cast<const char*>(&j), 4);
  if (l) r.append(reinterpret_cast<const char*>(l), 8);
  r.append(reinterpret_cast<const char*>(&v), 8).append(reinterpret_cast<const char*>(&len), 4);
  return r;
}

template <class M>
class MatrixFiles : public ::testing::Test {};
using Kinds = ::testing::Types<densem, dense_symm, sparse_hashm>;
TYPED_TEST_SUITE(MatrixFiles, Kinds);

TYPED_TEST(MatrixFiles, EveryFormRoundTripsAndRemoveNeutralises) {
  using M = TypeParam;
  const densem a = sym(4, {4.0, -1.25, 0.0, 0.5, 3.0, 2.0, 1e-3, 5.5, 0.0, 1.0 / 3.0});
  const M x = as_kind<M>(a);
  const auto genId = test::ints({7, 3, 9, 5});
  for (bool binary : {false, true}) {
    for (bool new_form : {false, true}) {
      SCOPED_TRACE(testing::Message() << "binary " << binary << " new " << new_form);
      save_positions(x, "m.pos", binary, new_form ? &genId : nullptr);
      M back;
      std::int64_t count = 0;
      const std::string log = run([&] { count = read_positions(back, "m.pos", binary, 0, new_form ? &genId : nullptr); });
      const std::int64_t expected = std::is_same_v<M, sparse_hashm> ? 8 : 10;  // the hash kind leaves out zeros
      EXPECT_EQ(count, expected);
      EXPECT_EQ(log, free_format(expected, "elements read from: ", "m.pos") + "\n");
      densem want = a;  // text keeps 12 decimals
      if (!binary) want(4, 4) = 0.333333333333;
      EXPECT_EQ(max_abs_diff(as_dense(back), want), 0.0);
    }
  }
  // An order given beyond the largest index keeps it.
  M wide;
  save_positions(x, "m.pos", true, nullptr);
  run([&] { read_positions(wide, "m.pos", true, 6, nullptr); });
  EXPECT_EQ(matrix_files_detail::order(wide), 6);

  // Animals 2 and 4 flagged: rows and columns 0, diagonal 1; without flags nothing changes.
  M r = x;
  remove_from_genotyped(r, test::ints({0, 0, 0, 0}));
  EXPECT_EQ(max_abs_diff(as_dense(r), a), 0.0);
  remove_from_genotyped(r, test::ints({0, 3, 0, 1}));
  const densem want = sym(4, {4.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 5.5, 0.0, 1.0});
  EXPECT_EQ(max_abs_diff(as_dense(r), want), 0.0);
  expect_stop([&] { remove_from_genotyped(r, test::ints({0, 0, 0})); },
              free_format("RemoveFromGenotyped: Error matrices not match!!!", 4, 3));

  // Statistics: zeros a hash matrix does not hold count as elements.
  CaptureOutput quiet;
  const MatrixStatistics s = stat_matrix_densem(as_dense(x), "X");
  const MatrixStatistics t = [&] {
    if constexpr (std::is_same_v<M, densem>) return stat_matrix_densem(x, "X");
    else if constexpr (std::is_same_v<M, dense_symm>) return stat_matrix_dense_symm(x, "X");
    else return stat_matrix_sparse_hashm(x, "X");
  }();
  EXPECT_EQ(t.off_diagonal.count, 6);
  EXPECT_DOUBLE_EQ(t.off_diagonal.mean, s.off_diagonal.mean);
  EXPECT_DOUBLE_EQ(t.off_diagonal.var, s.off_diagonal.var);
  EXPECT_EQ(t.off_diagonal.min, -1.25);
  EXPECT_EQ(t.diagonal.max, 5.5);
}

TEST(MatrixFiles, ExactTextBinaryAndOtherForms) {
  const densem a = sym(2, {2.0, -0.5, 1.0 / 3.0});
  const auto genId = test::ints({7, 3});
  save_positions(a, "o.txt", false, nullptr);
  EXPECT_EQ(read_file("o.txt"), "1 1 2.000000000000\n2 1 -.500000000000\n2 2 .333333333333\n");
  save_positions(as_kind<dense_symm>(a), "o.txt", false, &genId);
  EXPECT_EQ(read_file("o.txt"),
            "         1         1         7         7      2.000000000000\n"
            "         1         2         7         3     -0.500000000000\n"
            "         2         2         3         3      0.333333333333\n");
  save_positions(a, "o.bin", true, nullptr);
  EXPECT_EQ(read_file("o.bin"), record(1, 1, 2.0) + record(2, 1, -0.5) + record(2, 2, 1.0 / 3.0));
  const std::int32_t l[2] = {7, 3};
  save_positions(as_kind<sparse_hashm>(sym(2, {0.0, -0.5, 0.0})), "o.bin", true, &genId);
  EXPECT_EQ(read_file("o.bin"), record(1, 2, -0.5, l));

  // Original IDs, every pair; pedigree numbers, the pairs with genId(j) <= genId(i).
  Array1<std::string> orig(0, 9, std::string());
  orig(7) = "DEU000123";
  orig(3) = "A";
  save_origid(as_kind<sparse_hashm>(a), "G_Orig.txt", false, genId, orig);
  const std::string pad = std::string(16, ' ');
  std::string text = read_file("G_Orig.txt");
  EXPECT_NE(text.find("DEU000123" + pad + " A" + std::string(24, ' ') + " -.500000000000\n"), std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4);
  expect_stop([&] { save_origid(a, "G_Orig.txt", true, genId, orig); }, "wrong option lbin and OrigID not allowed");
  save_renumbered(a, "GimA22i_ren.txt", genId);
  EXPECT_EQ(read_file("GimA22i_ren.txt"), "7 7 2.000000000000\n3 7 -.500000000000\n3 3 .333333333333\n");

  // The whole matrix; the packed and hash kinds put a blank between the values.
  save_genomic_matrix(a, "w.txt", "MATRIX", false, false, genId, orig);
  EXPECT_EQ(read_file("w.txt"), "      2.0000     -0.5000\n     -0.5000      0.3333\n");
  save_genomic_matrix(as_kind<sparse_hashm>(a), "w.txt", "matrix", false, false, genId, orig);
  EXPECT_EQ(read_file("w.txt"), "      2.0000      -0.5000\n     -0.5000       0.3333\n");
  expect_stop([&] { save_whole(a, "w.txt", true); }, "wrong option lbin and matrix not allowed");
  expect_stop([&] { save_genomic_matrix(a, "w.txt", "intern", false, false, genId, orig); },
              "error in printGmA22_densem");
  save_genomic_matrix(a, "n.txt", "internal", false, true, genId, orig);
  EXPECT_EQ(read_file("n.txt").substr(0, 40), "         1         1         7         7");

  // The fast number editing agrees with the format writer, rounding and widths included.
  const double values[] = {0.0, -0.0, 1e-13, -4e-13, 0.5e-12, 123456789.125, -1.0 / 7.0, 2.5e-5, 99999999.99995, 1e25};
  densem b(10, 0.0);
  for (int k = 0; k < 10; ++k) b(k + 1, 1) = values[k];
  save_positions(b, "f.txt", false, nullptr);
  save_whole(b, "fw.txt", false);
  std::string want, whole;
  for (int k = 1; k <= 10; ++k) {
    want += fformat("(2(i0,x),f0.12)", k, 1, values[k - 1]);
    whole += fformat("(10000f12.4)", values[k - 1], 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0);
  }
  EXPECT_EQ(read_file("f.txt").substr(0, want.size()), want);
  EXPECT_EQ(read_file("fw.txt"), whole);
  const auto ids = test::ints({1, 2, 3, 4, 5, 6, 7, 8, 9, -1000000000});
  save_positions(b, "f.txt", false, &ids);
  EXPECT_EQ(read_file("f.txt").substr(0, 122),
            fformat("(4i10,f20.12)", 1, 1, 1, 1, 0.0) + fformat("(4i10,f20.12)", 2, 1, 2, 1, -0.0));
  EXPECT_NE(read_file("f.txt").find(fformat("(4i10,f20.12)", 10, 1, -1000000000, 1, 1e25)), std::string::npos);
}

TEST(MatrixFiles, ReadingChecksAndMessages) {
  densem x;
  write_file("u.txt", "1 1 1.0\n1 3 0.25\n\n3 3 2\n");
  run([&] { read_positions(x, "u.txt", false, 0, nullptr); });
  EXPECT_EQ(x.order(), 3);
  EXPECT_EQ(x(3, 1), 0.25);
  write_file("mix.txt", "1 1 1.0\n2 1 0.5\n1 3 0.25\n");
  expect_stop([&] { read_positions(x, "mix.txt", false, 3, nullptr); },
              "Mixed upper and lower diagonals or full storage in old format");
  write_file("out.txt", "1 1 1.0\n4 1 0.5\n");
  expect_stop([&] { read_positions(x, "out.txt", false, 3, nullptr); },
              free_format(" read_i_j_val: element outside the matrix of order", 3, ":", 4, 1));

  // Empty files and text read as binary: the hint names the form expected.
  const std::string none = " No elements read from matrix !!!! \n";
  const std::string ascii = " Check file to be in ASCII format delimited with blank with columns: i j val";
  const std::string bin = " Check file to be in BINARY format with columns: i j val";
  write_file("e.txt", "");
  EXPECT_EQ(test::stop_output([&] { read_positions(x, "e.txt", false, 0, nullptr); }), none + ascii + "\n");
  EXPECT_EQ(test::stop_output([&] { read_positions(x, "e.txt", true, 2, nullptr); }), none + bin + "\n");
  EXPECT_EQ(test::stop_output([&] { read_positions(x, "u.txt", true, 3, nullptr); }), none + bin + "\n");
  const auto genId = test::ints({7, 3, 9});
  EXPECT_EQ(test::stop_output([&] { read_positions(x, "e.txt", false, 0, &genId); }),
            none + " Check file to be in ASCII format delimited with blank with columns: i j li lj val\n");
  EXPECT_EQ(test::stop_output([&] { read_positions(x, "u.txt", true, 0, &genId); }),
            none + " Check file to be in BINARY format with columns: i j li lj  val\n");
  expect_stop([&] { read_positions(x, "absent", false, 0, nullptr); }, "Error in open \"absent\" file not exist");
  expect_stop([&] { read_positions(x, "   ", false, 0, nullptr); }, "Error in open: no file name given");
  write_file("bad.txt", "1 1 1.0\n2 x 0.5\n");
  expect_stop([&] { read_positions(x, "bad.txt", false, 2, nullptr); },
              free_format(" Error reading element", 2, "of file:", "bad.txt"));

  // A new-form file of another genotype order stops at its first element that differs.
  const densem a = sym(3, {1.0, 0.5, 0.25, 2.0, 0.125, 3.0});
  save_positions(a, "n.bin", true, &genId);
  sparse_hashm h;
  const auto other = test::ints({7, 9, 3});
  const test::StopSeen s = test::run_to_stop([&] { read_positions(h, "n.bin", true, 0, &other); });
  EXPECT_EQ(s.message, "or other format");
  EXPECT_EQ(s.printed, free_format(" READGmA22_SPARSE_HASHM: vector genId not match data file: ", 2, 1, 3, 7) +
                           "\nor other format\n");
  save_positions(as_kind<dense_symm>(a), "n.txt", false, &genId);  // (1, 3) is the first to differ, in lj
  const auto third = test::ints({7, 3, 5});
  EXPECT_EQ(test::stop_output([&] { read_positions(h, "n.txt", false, 0, &third); }),
            free_format(" READGmA22_SPARSE_HASHM: vector genId not match data file: ", 1, 3, 7, 9) +
                "\nor other format\n");
  genomic.reset();
  genomic.genId = other;
  genomic.opt.binaries_files = true;
  EXPECT_EQ(test::stop_output([&] { READGmA22_DENSEM(x, "n.bin"); }),
            free_format(" READGmA22_DENSEM: vector genId not match data file: ", 2, 1, 3, 7) + "\nor other format\n");
  genomic.genId = genId;
  run([&] { READGmA22_DENSEM(x, "n.bin"); });
  EXPECT_EQ(max_abs_diff(x, a), 0.0);
  genomic.reset();
}

TEST(MatrixFiles, DifferenceKindChecksAndInverseCheck) {
  const densem g = sym(2, {2.0, 0.5, 1.0});
  const densem a = sym(2, {1.0, 0.25, 3.0});
  const densem want = sym(2, {3.0, 0.75, -1.0});  // 2 G - A
  densem r;
  const std::string log = run([&] { GmA22_densem(r, g, a, 2.0, 1.0); });
  EXPECT_EQ(max_abs_diff(r, want), 0.0);
  EXPECT_EQ(log.substr(0, log.find("elapsed time") + 12),
            " Calculating GmA22/GimA22i Matrix Densem storage\n Calculating GmA22/GimA22i Matrix...elapsed time");
  dense_symm rs = as_kind<dense_symm>(g);
  run([&] { GmA22_dense_symm(rs, rs, as_kind<dense_symm>(a), 2.0, 1.0); });
  EXPECT_EQ(max_abs_diff(as_dense(rs), want), 0.0);
  sparse_hashm rh;
  run([&] { GmA22_sparse_hashm(rh, as_kind<sparse_hashm>(g), as_kind<sparse_hashm>(a), 2.0, 1.0); });
  EXPECT_EQ(max_abs_diff(as_dense(rh), want), 0.0);
  EXPECT_EQ(test::stop_output([&] { GmA22_densem(r, g, densem(3), 1.0, 1.0); }),
            " Calculating GmA22/GimA22i Matrix Densem storage\n Dimension of G(i) and A22(i) not match !!!! \n"
            "  G(i)   N= 2\n  A22(i) N= 3\n");
  expect_stop([&] { check_type_densem("dense_symm"); }, free_format("Wrong Type: ", "dense_symm"));
  expect_stop([&] { check_type_sparse_hashm("densem"); }, free_format("Wrong Type: ", "densem"));
  check_type_dense_symm("dense_symm");

  // Statistics of a 3 x 3 matrix by hand: diagonal 4 3 5, above it 1 0 2.
  const densem s3 = sym(3, {4.0, 1.0, 0.0, 3.0, 2.0, 5.0});
  MatrixStatistics st;
  const std::string table = run([&] { st = stat_matrix_sparse_hashm(as_kind<sparse_hashm>(s3), "A22"); });
  EXPECT_EQ(st.diagonal.mean, 4.0);
  EXPECT_DOUBLE_EQ(st.diagonal.var, 2.0 / 3.0);
  EXPECT_EQ(st.diagonal.min, 3.0);
  EXPECT_EQ(st.off_diagonal.mean, 1.0);
  EXPECT_DOUBLE_EQ(st.off_diagonal.var, 2.0 / 3.0);
  EXPECT_EQ(st.off_diagonal.min, 0.0);
  EXPECT_EQ(st.off_diagonal.max, 2.0);
  EXPECT_EQ(table, std::string("  Statistic of  A22\n") + std::string(19, ' ') +
                       "          Mean           Min           Max           Var\n"
                       "     Diagonal            4.000000      3.000000      5.000000      0.666667\n"
                       "      Off-diagonal       1.000000      0.000000      2.000000      0.666667\n");

  // Xinv X with a wrong inverse, 0.5 I: P = [1 .5; .5 1].
  InverseCheck c;
  const std::string chk = run([&] {
    c = check_inverse_sparse_hashm(as_kind<sparse_hashm>(sym(2, {2.0, 1.0, 2.0})),
                                   as_kind<sparse_hashm>(sym(2, {0.5, 0.0, 0.5})), "Gi");
  });
  EXPECT_EQ(c.maxval, 1.0);
  EXPECT_EQ(c.minval, 0.5);
  EXPECT_EQ(c.trace, 2.0);
  EXPECT_EQ(c.sum_off_diagonal, 1.0);
  EXPECT_EQ(c.max_abs_error, 0.5);
  EXPECT_EQ(chk, "  Check Inverse as Xinv*X=I of  Gi\n               maxval:  1.0\n               minval:  0.5\n"
                 "                trace:  2.0\n     sum off-diagonal:  1.0\n   max[abs(Xinv*X-I)]:  0.5\n");
  CaptureOutput quiet;
  c = check_inverse_dense_symm(as_kind<dense_symm>(sym(2, {2.0, 1.0, 2.0})),
                               as_kind<dense_symm>(sym(2, {2.0 / 3, -1.0 / 3, 2.0 / 3})), "Gi");
  EXPECT_NEAR(c.max_abs_error, 0.0, 1e-15);
}

TEST(MatrixFiles, ProductOverGenotypedEquations) {
  densem x(3);
  for (int j = 1; j <= 3; ++j)
    for (int i = 1; i <= 3; ++i) x(i, j) = i * 10 + j;  // not symmetric: rows and columns told apart
  const auto g1 = test::ints({5, 2, 4});
  const auto g2 = test::ints({1, 3, 6});
  const auto v = test::array1<double>({1, -2, 0.5, 7, 9, 3});
  Array1<double> ref(5, 1.0);
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 3; ++j) ref(g1(i)) += x(i, j) * v(g2(j));
  for (std::int32_t which = 1; which <= 5; ++which) {
    Array1<double> y(5, 1.0);
    matvec_genotyped_add(x, g1, g2, v, y, which, 0);
    test::expect_all_near(y, ref, 1e-12);
  }
  Array1<double> y(5, 1.0);
  const std::string log = run([&] { matvec_genotyped_add(x, g1, g2, v, y, 3, 101); });
  EXPECT_EQ(log, "  genidx1:  5 2 4\n  genidx2:  1 3 6\n  x:  1.0 -2.0 0.5 7.0 9.0 3.0\n" +
                     free_format(" ygenid: ", y(5), y(2), y(4)) + "\n");
  expect_stop([&] { matvec_genotyped_add(x, g1, g2, v, y, 6, 0); },
              "Matrix- Vector multiplication option not available (1-5)");
  expect_stop([&] { matvec_genotyped_add(x, g1, test::ints({1, 3, 7}), v, y, 1, 0); },
              free_format("Ay=z size y, z", 5, 6, 3, 3, 3));
  expect_stop([&] { matvec_genotyped_add(x, g1, test::ints({1, 3}), v, y, 1, 0); },
              free_format("Ay=z size y, z", 5, 6, 3, 2, 3));
  EXPECT_EQ(run([&] { matvec_genotyped_add(densem(), g1, g2, v, y, 1, 0); }), " Ax_g_usr_add_densem_mt: n=0\n");
  EXPECT_EQ(run([&] { Ax_g_usr_add_mt_dense_symm(dense_symm(), g1, g2, v, y); }), " Ax_g_usr_add_mt_dense_symm: n=0\n");
  expect_stop([&] { Ax_g_usr_add_mt_dense_symm(dense_symm(3), g1, g2, v, y); },
              "Ax_g_usr_add_mt_dense_symm  NOT implemeted");
  sparse_hashm h;
  expect_stop([&] { AddGimA22i_ainv_dense_symm(dense_symm(3), h); }, "AddGimA22i_ainv_dense_symm: not implemented");
  expect_stop([&] { add_g_usr_gs_densem_densem(x, x); }, "add_g_usr_gs_densem_densem: not implemented");
  dense_symm p;
  expect_stop([&] { add_g_usr_gs_densem_dense_symm(x, p); }, "add_g_usr_gs_densem_dense_symm: not implemented");
}

TEST(MatrixFiles, OldSolutionsFile) {
  const densem g = sym(2, {2.0, 0.0, 4.0});
  const densem a = sym(2, {1.0, 0.0, 0.5});
  std::remove("xAoldxGold");
  Array1<double> rhs(4, 10.0);
  EXPECT_EQ(run([&] { EXPECT_FALSE(update_rhs_old_solutions(rhs, test::ints({2, 4}), 1.0)); }),
            " Reading Aold, Gold NOT EXIST quick return\n");
  EXPECT_EQ(run([&] { EXPECT_FALSE(save_old_solutions(g, a, Array1<double>(2, 0.0))); }),
            " all solutions zero, quick return\n");
  EXPECT_EQ(run([&] { EXPECT_TRUE(save_old_solutions(g, a, test::array1<double>({2.0, 4.0}))); }),
            " Saving Aold, Gold\n solving for G\n solving for G done\n solving for A\n solving for A done\n");
  // zG = (1, 1), zA = (2, 8): rhs(eq) -= 0.5 (zG - zA).
  EXPECT_EQ(run([&] { EXPECT_TRUE(update_rhs_old_solutions(rhs, test::ints({4, 2}), 0.5)); }), " Reading Aold, Gold\n");
  test::expect_all_near(rhs, test::array1<double>({10.0, 13.5, 10.0, 10.5}), 1e-14);
  expect_stop([&] { save_old_solutions(densem(), a, test::array1<double>({1.0, 1.0})); },
              "doing update rhs by GimA22i not implemented");
}

}  // namespace
}  // namespace mmekit
