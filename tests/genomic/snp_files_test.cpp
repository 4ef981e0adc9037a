#include "mmekit/genomic/snp_files.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "common/files.hpp"
#include "common/stop.hpp"

namespace mmekit {
namespace {

std::string pad50(std::string s) { return s + std::string(50 - s.size(), ' '); }

// A genotype line: the identifier right-justified in `idw` columns, a blank, the markers.
std::string gline(const std::string& id, std::size_t idw, const std::string& markers) {
  return std::string(idw - id.size(), ' ') + id + " " + markers + "\n";
}

TEST(SnpFiles, IntegerLayoutFormatsAndGenotypes) {
  const std::string m1 = std::string(58, '0') + "12", m2 = std::string(58, '2') + "53";
  const std::string text = "header line\n" + gline("101", 7, m1) + gline("2002", 7, m2);
  CaptureOutput cap;
  SnpLayout l = check_SNP_format(text, 400000, 1);
  EXPECT_EQ(l.first, 9);
  EXPECT_EQ(l.nsnp, 60);
  EXPECT_FALSE(l.real);
  EXPECT_EQ(l.lines, 2);
  const SnpFormats f = make_SNP_formats(l, 400000);
  EXPECT_EQ(f.markers, pad50("(8x,400000i1)"));
  EXPECT_EQ(f.id_markers, pad50("(a8,400000i1)"));
  EXPECT_EQ(f.id, pad50("(a8)"));
  l.width = 6;
  const SnpFormats r = make_SNP_formats(l, 400000);
  EXPECT_EQ(r.real_markers, pad50("(8x,400000f6.2)"));
  EXPECT_EQ(r.real_id_markers, pad50("(a8,400000f6.2)"));
  EXPECT_EQ(r.real_id, pad50("(a8)"));
  l.width = 1;
  report_SNP_layout(l, f, 400000);
  EXPECT_EQ(cap.text(), "     Column position in file for the first marker:  9\n"
                        "     Format to read SNP file:  " + pad50("(8x,400000i1)") + "\n     Number of SNPs:  60\n");

  // 3 is refused unless 3 and 4 stand for missing; a letter is never a genotype.
  GenotypeMatrix M;
  test::expect_stop([&] { read_genotypes(text, l, false, 1, 2, M); }, "  Genotypes should only contain 0, 1, 2 and 5");
  EXPECT_TRUE(M.empty());
  read_genotypes(text, l, true, 1, -1, M);
  ASSERT_EQ(M.rows(), 2);
  EXPECT_EQ(M(1, 1), 0);
  EXPECT_EQ(M(1, 59), 1);
  EXPECT_EQ(M(1, 60), 2);
  EXPECT_EQ(M(2, 58), 2);
  EXPECT_EQ(M(2, 59), 5);
  EXPECT_EQ(M(2, 60), 5);
  const std::string four = gline("1", 7, std::string(59, '1') + "4"), letter = gline("1", 7, std::string(59, '1') + "a");
  test::expect_stop([&] { read_genotypes(four, l, false, 0, 1, M); }, "  Genotypes should only contain 0, 1, 2 and 5");
  test::expect_stop([&] { read_genotypes(letter, l, true, 0, 1, M); }, "  Genotypes should only contain 0, 1, 2 and 5");
  EXPECT_EQ(M(2, 60), 5);  // untouched by the failed reads
  read_genotypes(four, l, true, 0, 1, M);
  EXPECT_EQ(M(1, 60), 5);
  EXPECT_EQ(M(1, 59), 1);
  test::expect_stop([&] { read_genotypes(text, l, true, 1, 3, M); },
                    "  Number of lines in the genotype file differs from the cross-reference file: 2 3");

  // A stream is rewound after the check; an empty file has no SNPs.
  std::istringstream in(text);
  EXPECT_EQ(check_SNP_format(in, 400000, 1).nsnp, 60);
  EXPECT_EQ(in.tellg(), 0);
  EXPECT_EQ(check_SNP_format("", 400000).nsnp, 0);
}

TEST(SnpFiles, OnePassReadAgreesWithCheckThenRead) {
  // Lines of every kind the quick path must hand on: "\r\n" ends, a line with a blank after
  // its markers, a last line without a line end.
  std::string text;
  for (int i = 0; i < 6; ++i) {
    std::string m(70, '0');
    for (std::size_t j = 0; j < m.size(); ++j) m[j] = "0125"[(i * 7 + j * 3 + j / 5) % 4];
    std::string l = gline(std::to_string(100 + i), 9, m);
    if (i == 2) l.insert(l.size() - 1, "\r");
    if (i == 3) l.insert(l.size() - 1, "   x");
    if (i == 5) l.pop_back();
    text += l;
  }
  CaptureOutput cap;
  GenotypeMatrix one, two;
  const SnpLayout l = read_genotype_text(text, 400000, false, 6, one);
  read_genotypes(text, check_SNP_format(text, 400000), false, 0, 6, two);
  ASSERT_EQ(l.nsnp, 70);
  ASSERT_EQ(one.rows(), 6);
  for (std::int64_t i = 1; i <= 6; ++i)
    for (std::int64_t j = 1; j <= 70; ++j) ASSERT_EQ(one(i, j), two(i, j)) << i << " " << j;
  EXPECT_EQ(one(6, 70), text[text.size() - 1] - '0');

  // The layout of every line is checked before any genotype: a wrong code on line 2 is not
  // reported when line 3 has another layout; without it the code is, after the layout lines.
  std::string bad = gline("1", 9, std::string(69, '1') + "7");
  const std::string lines = gline("1", 9, std::string(70, '0')) + bad;
  EXPECT_NE(test::stop_text([&] { read_genotype_text(lines + gline("2", 9, std::string(71, '0')), 400000, false, 3, one); })
                .find("wrong format"),
            std::string::npos);
  cap.clear();
  const auto s = test::run_to_stop([&] { read_genotype_text(lines, 400000, false, 2, one); });
  EXPECT_EQ(s.printed.substr(0, 54), "     Column position in file for the first marker:  11");
  EXPECT_EQ(s.message, "  Genotypes should only contain 0, 1, 2 and 5");
  const std::string good = gline("1", 9, std::string(70, '0'));
  test::expect_stop([&] { read_genotype_text(good + good, 400000, false, 3, one); },
                    "  Number of lines in the genotype file differs from the cross-reference file: 2 3");
  EXPECT_EQ(one(6, 70), two(6, 70));  // left alone by the failed reads
}

TEST(SnpFiles, EntriesOnFiles) {
  genomic.reset();
  test::write_file("g.txt", gline("11", 4, std::string(59, '2') + "0") + gline("12", 4, std::string(60, '1')));
  test::write_file("g.txt_XrefID", "7\n9\n");
  std::string freq, weights, map;
  for (int j = 1; j <= 60; ++j) {
    freq += std::to_string(j) + " 0.5\n";
    weights += "2\n";
    map += std::to_string(j) + " " + std::to_string(1 + j / 31) + " " + std::to_string(100 * j) + "\n";
  }
  test::write_file("g.freq", freq);
  test::write_file("g.w", weights);
  test::write_file("g.map", map);
  genomic.opt.SNP_file = "g.txt";
  genomic.opt.chrinfo = "g.map";
  genomic.opt.FreqFile = "g.freq";
  genomic.opt.weight_file = "g.w";
  CaptureOutput cap;
  read_xref_file();
  read_SNP_file();
  read_map_file();
  read_freq_file();
  read_weight_file();
  EXPECT_EQ(genomic.ngen, 2);
  EXPECT_EQ(genomic.nsnp, 60);
  EXPECT_EQ(genomic.genId(2), 9);
  EXPECT_EQ(genomic.M(1, 60), 0);
  EXPECT_EQ(genomic.M(2, 1), 1);
  EXPECT_EQ(genomic.map(31, 2), 2);
  EXPECT_EQ(genomic.freq(60), 0.5);
  EXPECT_EQ(genomic.D(60), 2.0);
  const std::string t = cap.text();
  EXPECT_NE(t.find("     Number of Genotyped animals:  2\n     Reading SNP file elapsed time: "), std::string::npos) << t;
  genomic.opt.chrinfo = "none.map";
  test::expect_stop([] { read_map_file(); }, " Error in open \" none.map \" file not exist");
  genomic.opt.SNP_file = ".";
  test::expect_stop([] { read_SNP_file(); }, " Error in open \" . \" file not exist");
  genomic.reset();
}

TEST(SnpFiles, IdentifiersNear50ColumnsAndWrongFormat) {
  const std::string m(60, '1');
  // A 49-column identifier ends at column 50: the markers start at 51.
  EXPECT_EQ(check_SNP_format(gline("7", 49, m) + gline("8", 49, m), 400000).first, 51);
  // A 50-column identifier has no blank within 50 columns: the identifier is taken as the
  // markers, and a shorter identifier on the next line shows the file as wrong.
  const std::string id50(50, 'x');
  test::expect_stop([&] { check_SNP_format(id50 + " " + m + "\n" + gline("8", 30, m), 400000); },
                    " Genotype file with wrong format !!!\n"
                    "  First gentoype SNP pos is:  1  numbers of SNP:  50\n"
                    "  SNP pos at genotype:  2  is:  32  numbers of SNP:  60");
  // A line with one marker less is wrong too, also after lines that passed.
  const std::string ok = gline("1", 5, m);
  test::expect_stop([&] { check_SNP_format(ok + ok + ok + gline("2", 5, m.substr(1)), 400000); },
                    " Genotype file with wrong format !!!\n"
                    "  First gentoype SNP pos is:  7  numbers of SNP:  60\n"
                    "  SNP pos at genotype:  4  is:  7  numbers of SNP:  59");
  // A "." behind the markers makes a line real-valued, with another layout.
  const auto s = test::run_to_stop([&] { check_SNP_format(ok + ok + gline("2", 5, m + " 1.00.0"), 400000); });
  EXPECT_NE(s.message.find("  SNP pos at genotype:  3  is:  "), std::string::npos) << s.message;
}

TEST(SnpFiles, LineBufferOfMaxsnp) {
  // "id " and 96 markers is 99 characters: the buffer of 100 still has a blank after them.
  EXPECT_EQ(check_SNP_format("id " + std::string(96, '0') + "\n", 100).nsnp, 96);
  // One more fills the buffer; as many markers as maxsnp do so too.
  for (std::size_t n : {97, 100}) {
    const SnpLayout l = check_SNP_format("id " + std::string(n, '0') + "\n", 100);
    EXPECT_EQ(l.nsnp, -1);
    test::expect_stop([&] { report_SNP_layout(l, make_SNP_formats(l, 100), 100); },
                      " Number of SNPs greater than \"maxsnp\":  100 , or error in reading SNP file");
  }
}

TEST(SnpFiles, RealForm) {
  // Fields of 5 characters, the first "." at column 11: markers begin at 11 - 5 + 3 = 9.
  const std::string text = "    101  1.25 0.50 2.00\n    102  0.00 3.00 1.75\n";
  CaptureOutput cap;
  const SnpLayout l = check_SNP_format(text, 400000);
  EXPECT_TRUE(l.real);
  EXPECT_EQ(l.first, 9);
  EXPECT_EQ(l.width, 5);
  EXPECT_EQ(l.nsnp, 3);
  EXPECT_EQ(cap.text(),
            " *--------------------------------------------------------------------*\n"
            " * CAUTION Real values for SNP content were found - Under Testing !!! *\n"
            " *--------------------------------------------------------------------*\n"
            "  Default assumption len of decimal part: 2  (Fx.2)\n"
            "  First \"dot\" and total len 11 5\n\n");
  GenotypeMatrix M;
  read_genotypes(text, l, true, 0, 2, M);
  ASSERT_TRUE(M.real_form());
  EXPECT_EQ(M(1, 1), 1.25);
  EXPECT_EQ(M(1, 3), 2.0);
  EXPECT_EQ(M(2, 2), 5.0);  // 3 recoded as missing
  EXPECT_EQ(M(2, 3), 1.75);
  read_genotypes(text, l, false, 0, 2, M);
  EXPECT_EQ(M(2, 2), 3.0);  // the real form has no code check
  test::expect_stop([&] { check_SNP_format("  1 0120.1\n", 400000); },
                    " Error reading SNP file. \".\" was found but not real SNPs");
}

TEST(SnpFiles, CrossReferenceFile) {
  std::istringstream good("12 x y\n  3\n\n40\n");
  CaptureOutput cap;
  const Array1<std::int32_t> ids = read_xref(good);
  ASSERT_EQ(ids.size(), 3);
  EXPECT_EQ(ids(1), 12);
  EXPECT_EQ(ids(3), 40);
  EXPECT_EQ(cap.text(), "  Number of Genotyped Animals:  3\n");
  std::istringstream rep("5\n7\n5\n9\n7\n");
  const auto s = test::run_to_stop([&] { read_xref(rep); });
  EXPECT_EQ(s.printed, "  Genotype repeated - level:  5  - # of genotypes:  3 1\n"
                       "  Genotype repeated - level:  7  - # of genotypes:  5 2\n"
                       "  Number of Genotyped Animals:  5\n duplicated genotypes 2\n");
  std::istringstream bad("5\nx7\n");
  test::expect_stop([&] { read_xref(bad); }, "  Error reading cross-reference file at line: 2");
  genomic.reset();
  genomic.opt.SNP_file = "no_such_genotypes";
  test::expect_stop([] { read_xref_file(); }, " Error in open \" no_such_genotypes_XrefID \" file not exist");
  genomic.reset();
}

TEST(SnpFiles, MapFile) {
  const std::string map = "1 1 100 snpA\n2 1 250 snpB\n\n3 2 50\n";
  std::istringstream in(map);
  CaptureOutput cap;
  const SnpMap m = read_map(in, "chr.txt", 3, true, 1);
  EXPECT_EQ(cap.text(), "  Reading MAP file: \" chr.txt \" -  3  SNPs out of  3\n"
                        " 1 1 100 snpA\n 2 1 250 snpB\n 3 2 50 \n"
                        "     Min and max # of chromosome:  1 2\n     Min and max # of SNP:  1 3\n");
  EXPECT_EQ(m.rows(3, 3), 50);
  EXPECT_EQ(m.rows(2, 2), 1);
  EXPECT_EQ(m.names[1], "snpB");
  auto fails = [](const std::string& text, std::int64_t nsnp, const std::string& message) {
    std::istringstream s(text);
    test::expect_stop([&] { read_map(s, "m", nsnp, false, 0); }, message);
  };
  fails("1 1 5\n0 1 6\n", 2, "  SNP index equal 0, and should be > 0");
  fails("1 0 5\n", 1, "  CHR Number equal 0, and should be > 0");
  fails("1 1 5\n2 1 6\n", 3, " Error in reading CHRINFO: different number of SNP ");
  fails("1 1 5\n3 1 6\n", 2, " Error in reading CHRINFO: SNP id > # SNP");
  fails("1 1\n", 1, "  Error reading MAP file at line: 1");
}

TEST(SnpFiles, FrequencyAndWeightFiles) {
  std::istringstream in("1 0.25\n2 0.5\n");
  CaptureOutput cap;
  const Array1<double> p = read_frequencies(in, 2);
  EXPECT_EQ(p(2), 0.5);
  EXPECT_EQ(cap.text(), " 1 0.25\n 2 0.5\n 2  records of allele frequencies read\n");
  std::istringstream order("1 0.25\n3 0.5\n"), count("1 0.25\n2 0.5\n");
  test::expect_stop([&] { read_frequencies(order, 2); }, " frequency file not in order");
  test::expect_stop([&] { read_frequencies(count, 3); }, " Error reading alle frequencies 2 3");

  std::istringstream w("1.5\n\n2\n");
  cap.clear();
  const Array1<double> d = read_weights(w, "wfile", 2);
  EXPECT_EQ(d(1), 1.5);
  EXPECT_EQ(d(2), 2.0);
  EXPECT_EQ(cap.text(), " Read 2 weights (D) from file:  wfile\n");
  auto fails = [](const std::string& text, std::int64_t nsnp, const std::string& message) {
    std::istringstream s(text);
    test::expect_stop([&] { read_weights(s, "wfile", nsnp); }, message);
  };
  fails("1\n2\n3\n", 2, " More rows in weigth file than the number of SNP");
  fails("1 2\n", 2, "  multiple trait analysis with weights not yet implemented");
  fails("1\n", 2, "  Number of rows in the weight file not match the number of SNP:  1 2");
}

TEST(SnpFiles, CountFilesByHand) {
  // SNP 1: 0, 2, missing, 1 -> mean 1, frequency 0.5; SNP 2: 2, 2, 1, 5 -> mean 5/3.
  GenotypeMatrix M;
  M.resize(4, 2, false);
  const int g[4][2] = {{0, 2}, {2, 2}, {5, 1}, {1, 5}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 2; ++j) M.set(i + 1, j + 1, g[i][j]);
  CaptureOutput cap;
  const SnpCounts c = write_freqdata_count(M, "freqdata.count", 500);
  EXPECT_EQ(test::read_file("freqdata.count"), " 1 0.5\n 2 0.8333333333333334\n");
  EXPECT_EQ(cap.text(), "@ snp 1 errors in file (5):      1 mu:     1.0000\n"
                        "@ snp 2 errors in file (5):      1 mu:     1.6667\n");
  EXPECT_EQ(c.missing(2), 1);
  cap.clear();
  write_freqdata_count(M, "freqdata.count", 499);
  EXPECT_EQ(cap.text(), "");

  Array1<std::int32_t> flags(2);
  flags(2) = 4;
  GenomicOptions o;
  EXPECT_TRUE(freq_after_clean_wanted(o));
  o.monomorphic = o.callrate_remove = o.callrateAnim_remove = false;
  o.minfreq = 0;
  o.verify_parentage = 0;
  EXPECT_FALSE(freq_after_clean_wanted(o));
  o.hwe = true;
  EXPECT_TRUE(freq_after_clean_wanted(o));
  write_freqdata_after_clean("freqdata.count.after.clean", c.freq, flags);
  EXPECT_EQ(test::read_file("freqdata.count.after.clean"), " 1 0.5 0\n 2 0.8333333333333334 4\n");

  write_hete_counts(M, "hete.count", "hete.count.anim");
  EXPECT_EQ(test::read_file("hete.count"), " 1 1 1 1 0.3333333333333333\n 2 0 1 2 0.3333333333333333\n");
  EXPECT_EQ(test::read_file("hete.count.anim"), " 1 2 0 0.0\n 2 2 0 0.0\n 3 1 1 1.0\n 4 1 1 1.0\n");
}

}  // namespace
}  // namespace mmekit
