// The genomic options: reading, the checks of their combinations, and the printout.
#include "mmekit/genomic/options.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/model/model.hpp"
#include "mmekit/support/output.hpp"

namespace mmekit {
namespace {

// Opens a parameter file of a one-trait model followed by `lines`.
void open_parameters(const std::string& lines) {
  test::write_file("gopt.par",
                   "DATAFILE\ndata\nNUMBER_OF_TRAITS\n1\nNUMBER_OF_EFFECTS\n1\nOBSERVATION(S)\n1\nWEIGHT(S)\n\n"
                   "EFFECTS:\n1 1 cross\nRANDOM_RESIDUAL\n1\n" + lines);
  std::istringstream dialogue("gopt.par\n");
  CaptureOutput quiet;
  read_parameter_file(dialogue);
}

// Reads the options of `lines` into `o`; what was printed.
std::string read_options(GenomicOptions& o, const std::string& lines) {
  open_parameters(lines);
  CaptureOutput cap;
  read_genomic_options(o);
  return cap.text();
}

void expect_options_stop(const std::string& lines, const std::string& message) {
  open_parameters(lines);
  SCOPED_TRACE(lines);
  GenomicOptions o;
  test::expect_stop([&] { read_genomic_options(o); }, message);
}

TEST(GenomicOptions, KeysValuesAndEcho) {
  const auto keys = register_genomic_options();
  EXPECT_EQ(keys.front(), "tol_ginv");
  EXPECT_EQ(keys.back(), "adjGscale");
  const auto at = std::find(keys.begin(), keys.end(), "CreateG");
  ASSERT_NE(at, keys.end());
  EXPECT_EQ(*(at + 1), "createG");
  EXPECT_EQ(std::count(keys.begin(), keys.end(), "saveHinv") + std::count(keys.begin(), keys.end(), "SaveHinv"), 2);
  EXPECT_EQ(std::count(keys.begin(), keys.end(), "Minfreq"), 0);

  GenomicOptions o;
  o.minfreq = 0.3;  // the reader starts from the defaults
  EXPECT_EQ(read_options(o, "OPTION unknown 1\n"), " Options read from parameter file:\n");
  EXPECT_EQ(o.minfreq, 0.05);

  const std::string printed = read_options(
      o, "OPTION SNP_file geno.txt\nOPTION whichfreq 4 0.25\nOPTION chrinfo map.txt names\nOPTION whichG 3\n"
         "OPTION whichA22 2\nOPTION whichA22i 4\nOPTION whichGi 5\nOPTION H_method 1.9\nOPTION AlphaBeta 0.8 0.2\n"
         "OPTION windows_variance_mbp 2.5\nOPTION excludeCHR 1 3 29\nOPTION LD_by_chr\nOPTION LD_by_pos 5000\n"
         "OPTION saveAscii\nOPTION outcallrate 2\nOPTION monomorphic 0\nOPTION graphics\nOPTION SaveG all\n"
         "OPTION new_format\nOPTION old_format\nOPTION maxsnp 1e12\nOPTION sex_chr -1e12\nOPTION high_correlation 0.1\n");
  EXPECT_EQ(o.SNP_file, "geno.txt");
  EXPECT_EQ(o.xref_file, "geno.txt_XrefID");
  EXPECT_TRUE(o.need_snp_file);
  EXPECT_EQ(o.whichfreq, 4);
  EXPECT_EQ(o.whichfreqScale, 4);
  EXPECT_EQ(o.whichfreqScale_value, 0.25);
  EXPECT_EQ(o.chrinfo, "map.txt");
  EXPECT_TRUE(o.chrinfo_names);
  EXPECT_EQ(o.mat(gm_G).which * 1000 + o.mat(gm_A22).which * 100 + o.mat(gm_A22i).which * 10 + o.mat(gm_Gi).which, 3245);
  EXPECT_TRUE(o.H_method_given);
  EXPECT_EQ(o.H_method, 1);
  EXPECT_EQ(o.alpha, 0.800000011920929);  // single precision, widened
  EXPECT_EQ(o.windows_variance_bases, 2500000);
  EXPECT_EQ(o.excludeCHR, (std::vector<std::int32_t>{1, 3, 29}));
  EXPECT_TRUE(o.LD_by_pos && !o.LD_by_chr && o.LD_window == 5000);
  EXPECT_TRUE(o.saveAscii && !o.binaries_files);
  EXPECT_FALSE(o.outcallrate || o.monomorphic || o.new_format);
  EXPECT_TRUE(o.graphics && o.graphics_pause == 600);
  EXPECT_TRUE(o.SaveG_all && o.mat(gm_G).save);
  EXPECT_EQ(o.maxsnp, std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(o.sex_chr, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(o.high_correlation_freq, 0.10000000149011612);
  EXPECT_EQ(o.high_correlation_share, 0.995);
  EXPECT_NE(printed.find("\n * SNP_file geno.txt - genotype file; its cross-reference is the name plus _XrefID\n"),
            std::string::npos) << printed;
  EXPECT_NE(printed.find("\n * whichA22 2 - A22: 1 recursive, 2 Colleau, 3 and 4 subset (whichA22=2)\n"), std::string::npos);
  EXPECT_NE(printed.find("\n * LD_by_pos 5000 - linkage disequilibrium within a window of bases (default=200000)\n"),
            std::string::npos);

  // Key values given the other way round; whichfreqScale given as well keeps its own value.
  read_options(o, "OPTION whichfreqScale 1\nOPTION whichfreq 3\nOPTION windows_variance_mbp 5000\n");
  EXPECT_EQ(o.whichfreq * 10 + o.whichfreqScale, 31);
  EXPECT_EQ(o.windows_variance_bases, std::numeric_limits<std::int32_t>::max());
}

TEST(GenomicOptions, MatrixRecordKeys) {
  GenomicOptions o;
  std::string printed = read_options(o, "OPTION createG 0\nOPTION readA22 ped_A22.txt\nOPTION CheckGInverse\n");
  EXPECT_NE(printed.find("\n * NOT CreateG (default=.false.)\n"), std::string::npos) << printed;
  EXPECT_FALSE(o.mat(gm_G).create || o.mat(gm_A22).create);
  EXPECT_TRUE(o.mat(gm_A22).read && o.mat(gm_Gi).test);
  EXPECT_EQ(o.mat(gm_A22).file, "ped_A22.txt");
  EXPECT_TRUE(o.need_snp_file);

  // A read inverse makes its matrix needless, and with it the genotypes.
  read_options(o, "OPTION ReadGInverse\nOPTION ReadA22Inverse Ai.bin\n");
  EXPECT_FALSE(o.mat(gm_G).create || o.mat(gm_Gi).create || o.mat(gm_A22).create || o.mat(gm_A22i).create);
  EXPECT_TRUE(o.mat(gm_Gi).read && o.mat(gm_A22i).read && o.mat(gm_GimA22i).create);
  EXPECT_EQ(o.mat(gm_Gi).file, "Gi");
  EXPECT_EQ(o.mat(gm_A22i).file, "Ai.bin");
  EXPECT_FALSE(o.need_snp_file);

  read_options(o, "OPTION ReadGimA22i\n");
  for (const MatrixOption& m : o.mats) EXPECT_FALSE(m.create) << m.file;
  EXPECT_FALSE(o.need_snp_file);

  expect_options_stop("OPTION CreateG\nOPTION createG\n", " Both options were set  CreateG  and  createG");
  expect_options_stop("OPTION SaveHinv\nOPTION saveHinv 1\n", " Both options were set  saveHinv  and  SaveHinv");
}

TEST(GenomicOptions, CombinationStopsInOrder) {
  const struct {
    const char* lines;
    const char* message;
  } cases[] = {
      {"OPTION CreateGInverse 0\nOPTION CreateA22Inverse 0\n", " GimA22i create but not Gi or A22i are created"},
      {"OPTION whichfreq 1\nOPTION whichScale 3\n", "  Checks options 0.5 AF and Scale as in Gianola is not valid"},
      {"OPTION RegGonA\nOPTION adjGscale\n", " adjGmean or adjGscale options not valid with RegGonA "},
      {"OPTION sex_chr 30\nOPTION AlphaBeta 1\n", "  Sex chromosome was set but not map information was provided !! "},
      {"OPTION windows_variance 20\nOPTION windows_variance_mbp\n",
       " Error Windows Variance and Mb Windows variance\n can not be used at the same time"},
      {"OPTION CreateG\nOPTION ReadG\n", " Wrong option CreateG - ReadG was also selected"},
      {"OPTION CreateGInverse\nOPTION ReadGInverse\n", " Wrong option CreateGInverse ReadGInverse was also selected"},
      {"OPTION CreateA22 1\nOPTION ReadA22\n", " Wrong option CreateA22 ReadA22 was also selected"},
      {"OPTION createA22Inverse\nOPTION ReadA22Inverse\n", " Wrong option CreateA22Inverse ReadA22Inverse was also selected"},
      {"OPTION CreateGmA22\nOPTION CreateG 0\n", " Wrong option Create GmA22 either createG or readG"},
      {"OPTION CreateGmA22\nOPTION CreateA22 0\n", " Wrong option Create GmA22 either createA22 or readA22"},
      {"OPTION CreateGInverse 0\n", " Wrong option Create GimA22i either createGi or readGi"},
      {"OPTION CreateA22Inverse 0\nOPTION TauOmega 1\n", " Wrong option Create GimA22i either createA22i or readA22i"},
      {"OPTION AlphaBeta 0.9\nOPTION TauOmega\n", " OPTION AlphaBeta: Two paremeters are need"},
      {"OPTION TauOmega 1\n", " OPTION TauOmega: Two paremeters are need"},
      {"OPTION GammaDelta\nOPTION windows_variance\n", " OPTION GammaDelta: Two paremeters are need"},
      {"OPTION windows_variance 1 2\nOPTION SNP_moving_average\n", "  Error windows_variance needs 1 parameter!!"},
      {"OPTION SNP_moving_average\n", "  Error SNP_moving_average needs 1 parameter!!"},
      {"OPTION whichfreq 4\n", " wrong input, two parameter are needed"},
      {"OPTION whichfreqScale 4 0\n", " wrong input, two parameter are needed"},
  };
  for (const auto& c : cases) expect_options_stop(c.lines, c.message);

  GenomicOptions o;
  EXPECT_NO_THROW(read_options(o, "OPTION CreateGmA22\nOPTION ReadG\nOPTION windows_variance 10\n"));
  EXPECT_EQ(o.windows_variance_n, 10);
  const std::string printed = read_options(o, "OPTION wGi 2\n");
  EXPECT_NE(printed.find("\n Different weights are used but sameWeight is TRUE. wGi: 2.0 wA22i: -1.0\n"
                         "  sameWeights set to false\n"),
            std::string::npos) << printed;
  EXPECT_FALSE(o.sameWeights);
  read_options(o, "OPTION wA22i -1\nOPTION wGi 1\n");
  EXPECT_TRUE(o.sameWeights);
}

TEST(GenomicOptions, NoQualityControlWinsLast) {
  for (const char* lines : {"OPTION no_quality_control\nOPTION callrate 0.8\nOPTION minfreq 0.1\nOPTION monomorphic\n",
                            "OPTION callrateAnim 0.7\nOPTION verify_parentage 2\nOPTION no_quality_control 1\n"}) {
    GenomicOptions o;
    read_options(o, lines);
    EXPECT_FALSE(o.monomorphic || o.callrate_remove || o.callrateAnim_remove) << lines;
    EXPECT_EQ(o.verify_parentage, 0);
    EXPECT_EQ(o.minfreq, 0.0);
  }
  GenomicOptions o;
  read_options(o, "OPTION no_quality_control 0\nOPTION callrate 0.8\n");
  EXPECT_TRUE(o.callrate_remove && o.monomorphic && o.verify_parentage == 3);
  EXPECT_EQ(o.callrate, 0.800000011920929);
}

TEST(GenomicOptions, Printout) {
  GenomicOptions o;
  {
    CaptureOutput cap;
    print_genomic_options(o);
    EXPECT_EQ(cap.text(), "");
  }
  o.msg = 1;
  const std::string defaults =
      " Current OPTIONS \n"
      "   Make/Read   Which  Save Test File       StorageType\n"
      "      T    F       1     F    F G          densem        Genomic Matrix\n"
      "      T    F       9     F    F Gi         densem        Inv. Genomic Matrix\n"
      "      T    F       3     F    F A22        densem        Rel. Matrix A22\n"
      "      T    F       9     F    F A22i       densem        Inv. Rel. Matrix A22\n"
      "      F    F       0     F    F GmA22      densem        Genomic - A22 Matrix\n"
      "      T    F       0     F    F GimA22i    densem        Inv. Genomic- A22 Matrix\n"
      "  Other options\n"
      "     Allele Frequency file:     freqdata\n"
      "     Center Allele Frequency:   2\n"
      "     Scale  Allele Frequency:   2\n"
      "     Scale  Method:             1\n"
      "     Regression G on A:         F\n"
      "     Tuned G Method:           2\n"
      "     Creation of GimA22i \n"
      " tau inv(alpha G + beta A22 + gamma I + delta) - omega inv(A22)\n"
      " alpha,beta 0.95 0.05\n"
      " gamma,delta 0.0 0.0\n"
      " tau,omega 1.0 1.0\n";
  CaptureOutput cap;
  print_genomic_options(o);
  EXPECT_EQ(cap.text(), defaults);

  cap.clear();
  o.mat(gm_A22i).storage = "packed";
  o.mat(gm_A22i).file = "A22_inverse.bin";
  o.mat(gm_Gi).storage = "sparse_hashm";
  print_genomic_options(o);
  const std::string text = cap.text();
  EXPECT_NE(text.find("\n      T    F       9     F    F Gi         sparse_hashm  Inv. Genomic Matrix\n"), std::string::npos);
  EXPECT_NE(text.find("\n      T    F       9     F    F A22_inverse.bin packed        Inv. Rel. Matrix A22\n"
                      " Wrong Type:  packed\n      F"),
            std::string::npos) << text;
}

}  // namespace
}  // namespace mmekit
