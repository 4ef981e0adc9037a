// The genomic options: the table of keys, the reader with its combination checks, and the
// printout of the record.

#include "mmekit/genomic/options.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "mmekit/model/model.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

// An integer option given as a real: the whole part, NaN as 0, and values beyond the range of
// an i4 held at its ends.
std::int32_t to_i4(double v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  if (v <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(v);
}

// One key as the parameter file gave it: the number of values (-1 when absent) and the values,
// as numbers (0 where an item is not one) and as texts.
struct Given {
  std::int32_t n = -1;
  std::vector<double> x;
  std::vector<std::string> xc;

  double num(std::size_t i) const { return i <= x.size() ? x[i - 1] : 0.0; }
  std::int32_t i4(std::size_t i) const { return to_i4(num(i)); }
  const std::string& text(std::size_t i) const {
    static const std::string none;
    return i <= xc.size() ? xc[i - 1] : none;
  }
  // Switches: no value or 1 turns them on, any other value off.
  bool on() const { return n == 0 || num(1) == 1.0; }
};

// What the checks after the last key need from the keys as given: the number of values of the
// keys that need a fixed number of them (-1: not given).
struct Counts {
  std::int32_t AlphaBeta = -1, TauOmega = -1, GammaDelta = -1;
  std::int32_t windows_variance = -1, SNP_moving_average = -1;
};

// A key's own treatment; returns the echo line when it is not the usual one.
using Apply = std::string (*)(GenomicOptions&, const Given&, Counts&);

enum class MatrixKey { none, create, read, save, check };

// One key of the table. Exactly one of the ways to take the value is set: a real, an integer,
// a flag turned on by the key's presence, a switch (no value or 1 on, else off), a text, an
// action on a matrix of the record, or a function of its own.
struct Key {
  const char* name;
  const char* help;
  double GenomicOptions::*real = nullptr;
  std::int32_t GenomicOptions::*integer = nullptr;
  bool GenomicOptions::*flag = nullptr;
  bool GenomicOptions::*onoff = nullptr;
  std::string GenomicOptions::*text = nullptr;
  MatrixKey action = MatrixKey::none;
  GenomicMatrix mat = gm_G;
  Apply apply = nullptr;
  bool two_spellings = false;  // also accepted with the case of its first letter changed
};

using O = GenomicOptions;

void set_list(std::vector<std::int32_t>& list, const Given& g) {
  list.clear();
  for (std::int32_t i = 1; i <= g.n; ++i) list.push_back(g.i4(static_cast<std::size_t>(i)));
}

// The constant frequency of method 4 is the second number, and it must be given and not 0.
void set_freq_method(std::int32_t& method, double& constant, const Given& g) {
  if (g.n < 1) return;
  method = g.i4(1);
  if (method == 4) {
    if (g.n < 2 || g.num(2) == 0.0) stop(free_format("wrong input, two parameter are needed"));
    constant = g.num(2);
  }
}

const Key keys[] = {
    {.name = "tol_ginv", .help = "- tolerance in generalised inversion (default=1e-10)", .real = &O::tol_ginv},
    {.name = "SNP_file", .help = "- genotype file; its cross-reference is the name plus _XrefID",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) {
         o.SNP_file = g.text(1);
         o.xref_file = o.SNP_file + "_XrefID";
       }
       return std::string();
     }},
    {.name = "H_method", .help = "- H matrix method, WhichH (default=3)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.H_method_given = true;
       if (g.n >= 1) o.H_method = g.i4(1);
       return std::string();
     }},
    {.name = "wld", .help = "- weight of the matrix-free products of H (default=0.6)", .real = &O::wld},
    {.name = "chrinfo", .help = "- map file; a second word: SNP names in its 4th column",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.chrinfo = g.text(1);
       o.chrinfo_names = g.n >= 2;
       return std::string();
     }},
    {.name = "check_same_position", .help = "- SNPs at one position (default=.false.)", .flag = &O::check_same_position},
    {.name = "maxsnp", .help = "- longest genotype line (default=400000)", .integer = &O::maxsnp},
    {.name = "whichG", .help = "- G method, 1 to 5 (default=1)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.mat(gm_G).which = g.i4(1);
       return std::string();
     }},
    {.name = "whichfreq",
     .help = "- frequencies to center: 0 file, 1 0.5, 2 current, 3 mean, 4 constant (default=2)",
     .apply = [](O& o, const Given& g, Counts&) {
       set_freq_method(o.whichfreq, o.whichfreq_value, g);
       o.whichfreqScale = o.whichfreq;
       o.whichfreqScale_value = o.whichfreq_value;
       return std::string();
     }},
    {.name = "whichfreqScale", .help = "- frequencies to scale, as for whichfreq (default=2)",
     .apply = [](O& o, const Given& g, Counts&) {
       set_freq_method(o.whichfreqScale, o.whichfreqScale_value, g);
       return std::string();
     }},
    {.name = "whichScale", .help = "- scale: 1 sum 2pq, 2 trace, 3 Gianola (default=1)", .integer = &O::whichScale},
    {.name = "FreqFile", .help = "- frequency file (default=freqdata)", .text = &O::FreqFile},
    {.name = "weightedG", .help = "- G weighted by SNP weights read from this file",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) {
         o.weightedG = true;
         o.weight_file = g.text(1);
       }
       return std::string();
     }},
    {.name = "minfreq", .help = "- minimum allele frequency (default=0.05)", .real = &O::minfreq},
    {.name = "callrate", .help = "- minimum call rate of a SNP (default=0.90)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.callrate = g.num(1);
       o.callrate_remove = true;
       return std::string();
     }},
    {.name = "callrateAnim", .help = "- minimum call rate of an animal (default=0.90)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.callrateAnim = g.num(1);
       o.callrateAnim_remove = true;
       return std::string();
     }},
    {.name = "outcallrate", .help = "- print the call rates (default=.false.)", .onoff = &O::outcallrate},
    {.name = "outparent_progeny", .help = "- print the parent-progeny conflicts (default=.false.)",
     .onoff = &O::outparent_progeny},
    {.name = "whichsnpdiv", .help = "- parent-progeny divisor: 1 effective, 2 total SNPs (default=2)",
     .integer = &O::whichsnpdiv},
    {.name = "monomorphic", .help = "- remove monomorphic SNPs (default=.true.)", .onoff = &O::monomorphic},
    {.name = "no_quality_control", .help = "- no quality control (default=.false.)", .onoff = &O::no_quality_control},
    {.name = "saveCleanSNPs", .help = "- save the SNPs kept (default=.false.)", .flag = &O::saveCleanSNPs},
    {.name = "excludeCHR", .help = "- chromosomes left out",
     .apply = [](O& o, const Given& g, Counts&) {
       set_list(o.excludeCHR, g);
       return std::string();
     }},
    {.name = "includeCHR", .help = "- the only chromosomes used",
     .apply = [](O& o, const Given& g, Counts&) {
       set_list(o.includeCHR, g);
       return std::string();
     }},
    {.name = "excludeSample", .help = "- genotypes left out",
     .apply = [](O& o, const Given& g, Counts&) {
       set_list(o.excludeSample, g);
       return std::string();
     }},
    {.name = "verify_parentage", .help = "- parent-progeny checks: 0 none, 1, 2 or 3 (default=3)",
     .integer = &O::verify_parentage},
    {.name = "trio", .help = "- checks of sire, dam and progeny together (default=.false.)", .flag = &O::trio},
    {.name = "missingAIPL", .help = "- genotype codes 3 and 4 taken as missing (default=.false.)", .flag = &O::missingAIPL},
    {.name = "sex_chr", .help = "- number of the sex chromosome (default=0)", .integer = &O::sex_chr},
    {.name = "high_correlation",
     .help = "- highly correlated SNPs: allele frequency limit and share of animals (default=0.025 0.995)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.high_correlation = true;
       if (g.n >= 1) o.high_correlation_freq = g.num(1);
       if (g.n >= 2) o.high_correlation_share = g.num(2);
       return std::string();
     }},
    {.name = "output_high_correlation", .help = "- print the correlated SNPs (default=.false.)",
     .flag = &O::output_high_correlation},
    {.name = "calculate_LD", .help = "- linkage disequilibrium (default=.false.)", .flag = &O::calculate_LD},
    {.name = "LD_by_chr", .help = "- linkage disequilibrium within chromosomes (default=.false.)", .flag = &O::LD_by_chr},
    {.name = "LD_by_pos", .help = "- linkage disequilibrium within a window of bases (default=200000)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.LD_by_pos = true;
       o.LD_by_chr = false;
       if (g.n >= 1) o.LD_window = g.i4(1);
       return std::string();
     }},
    {.name = "filter_by_LD", .help = "- remove SNPs in linkage disequilibrium above (default=0.8)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.filter_by_LD = true;
       if (g.n >= 1) o.filter_LD_limit = g.num(1);
       return std::string();
     }},
    {.name = "thr_output_LD", .help = "- linkage disequilibrium printed above (default=0.1)", .real = &O::thr_output_LD},
    {.name = "SNP_moving_average", .help = "- moving average of adjacent SNPs (default=30)",
     .apply = [](O& o, const Given& g, Counts& c) {
       o.SNP_moving_average = true;
       c.SNP_moving_average = g.n;
       if (g.n == 1) o.SNP_moving_average_n = g.i4(1);
       return std::string();
     }},
    {.name = "which_weight", .help = "- kind of SNP weights (default=1)", .integer = &O::which_weight},
    {.name = "windows_variance", .help = "- variance of windows of adjacent SNPs (default=30)",
     .apply = [](O& o, const Given& g, Counts& c) {
       o.windows_variance = true;
       c.windows_variance = g.n;
       if (g.n == 1) o.windows_variance_n = g.i4(1);
       return std::string();
     }},
    {.name = "windows_variance_mbp", .help = "- variance of windows in Mb (default=1)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.windows_variance_mbp = true;
       if (g.n >= 1) o.windows_variance_bases = to_i4(g.num(1) * 1.0e6);
       return std::string();
     }},
    {.name = "windows_variance_type", .help = "- kind of window variance (default=1)", .integer = &O::windows_variance_type},
    {.name = "bracken_trt_eff", .help = "- trait and effect of the solutions (default=all)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.bracken_trait = g.i4(1);
       if (g.n >= 2) o.bracken_effect = g.i4(2);
       return std::string();
     }},
    {.name = "whichqtldiv", .help = "- divisor of the QTL variance (default=4)", .integer = &O::whichqtldiv},
    {.name = "testvarqtl", .help = "- test of the QTL variance (default=.false.)", .flag = &O::testvarqtl},
    {.name = "hwe", .help = "- Hardy-Weinberg equilibrium, largest departure (default=0.15)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.hwe = true;
       if (g.n >= 1) o.hwe_limit = g.num(1);
       return std::string();
     }},
    {.name = "check_diagonal_GimA22i", .help = "- diagonal of Gi - A22i checked (default=.false.)",
     .flag = &O::check_diagonal_GimA22i},
    {.name = "threshold_diagonal_g", .help = "- largest diagonal of G (default=1.6)", .real = &O::threshold_diagonal_g},
    {.name = "high_threshold_diagonal_g", .help = "- largest diagonal of G (default=1.6)", .real = &O::threshold_diagonal_g},
    {.name = "low_threshold_diagonal_g", .help = "- smallest diagonal of G (default=0.7)", .real = &O::low_threshold_diagonal_g},
    {.name = "exclusion_threshold_nb", .help = "- parent-progeny exclusion count (default=1)", .integer = &O::exclusion_threshold_nb},
    {.name = "exclusion_threshold", .help = "- parent-progeny exclusion rate (default=0.02)", .real = &O::exclusion_threshold},
    {.name = "exclusion_threshold_snp", .help = "- parent-progeny exclusion rate of a SNP (default=0.1)",
     .real = &O::exclusion_threshold_snp},
    {.name = "number_parent_progeny_evaluations", .help = "- parent-progeny pairs before SNP checks (default=100)",
     .integer = &O::number_parent_progeny_evaluations},
    {.name = "thrWarnCorAG", .help = "- warning below this correlation of A22 and G (default=0.5)", .real = &O::thrWarnCorAG},
    {.name = "thrStopCorAG", .help = "- stop below this correlation of A22 and G (default=0.3)", .real = &O::thrStopCorAG},
    {.name = "threshold_duplicate_samples", .help = "- duplicate samples above (default=0.9)",
     .real = &O::threshold_duplicate_samples},
    {.name = "thrCorAG", .help = "- A22 elements in the correlation above (default=0.02)", .real = &O::thrCorAG},
    {.name = "plotpca", .help = "- principal components of G (default=.false.)", .flag = &O::plotpca},
    {.name = "plotpca_all", .help = "- all principal components (default=.false.)", .flag = &O::plotpca_all},
    {.name = "extra_info_pca", .help = "- more on the principal components (default=.false.)", .flag = &O::extra_info_pca},
    {.name = "hete", .help = "- heterozygosity (default=.false.)", .flag = &O::hete},
    {.name = "savePLINK", .help = "- genotypes saved for PLINK (default=.false.)", .flag = &O::savePLINK},
    {.name = "saveCERVUS", .help = "- genotypes saved for CERVUS (default=.false.)", .flag = &O::saveCERVUS},
    {.name = "saveGENSEL", .help = "- genotypes saved for GENSEL (default=.false.)", .flag = &O::saveGENSEL},
    {.name = "save_genotype_space", .help = "- genotypes saved delimited by spaces (default=.false.)",
     .flag = &O::save_genotype_space},
    {.name = "tunedG", .help = "- tuning of G on A22 (default=2)", .integer = &O::tunedG},
    {.name = "whichMatVecMult", .help = "- loop form of the matrix-vector product (whichMatVec = 1)",
     .integer = &O::whichMatVecMult},
    {.name = "wGimA22i", .help = "- weight of Gi - A22i (default=1)", .real = &O::wGimA22i},
    {.name = "lambda", .help = "- weight of the update (default=1)", .real = &O::lambda},
    {.name = "wGi", .help = "- weight of Gi (default=1)", .real = &O::wGi},
    {.name = "wA22i", .help = "- weight of A22i (default=1)", .real = &O::wA22i},
    {.name = "sameWeights", .help = "- one weight for Gi and A22i (default=.true.)", .onoff = &O::sameWeights},
    {.name = "alpha", .help = "- alpha*G + beta*A22, alpha (default=1.0)", .real = &O::alpha},
    {.name = "beta", .help = "- alpha*G + beta*A22, beta (default=0.05)", .real = &O::beta},
    {.name = "AlphaBeta", .help = "- alpha*G + beta*A22, alpha and beta (default=0.95 0.05)",
     .apply = [](O& o, const Given& g, Counts& c) {
       c.AlphaBeta = g.n;
       if (g.n >= 2) o.alpha = g.num(1), o.beta = g.num(2);
       return std::string();
     }},
    {.name = "bandwidth", .help = "- kernel bandwidth theta (default=0.5)", .real = &O::bandwidth},
    {.name = "TauOmega", .help = "- tau*Gi - omega*A22i, tau and omega (default=1 1)",
     .apply = [](O& o, const Given& g, Counts& c) {
       c.TauOmega = g.n;
       if (g.n >= 2) o.tau = g.num(1), o.omega = g.num(2);
       return std::string();
     }},
    {.name = "GammaDelta", .help = "- G + gamma*I + delta, gamma and delta (default=0 0)",
     .apply = [](O& o, const Given& g, Counts& c) {
       c.GammaDelta = g.n;
       if (g.n >= 2) o.gamma = g.num(1), o.delta = g.num(2);
       return std::string();
     }},
    {.name = "whichA22", .help = "- A22: 1 recursive, 2 Colleau, 3 and 4 subset (whichA22=2)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.mat(gm_A22).which = g.i4(1);
       return std::string();
     }},
    {.name = "whichA22i", .help = "- inversion of A22, 1 to 9 (whichA22i=3)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.mat(gm_A22i).which = g.i4(1);
       return std::string();
     }},
    {.name = "whichGi", .help = "- inversion of G, 1 to 9 (whichGi=3)",
     .apply = [](O& o, const Given& g, Counts&) {
       if (g.n >= 1) o.mat(gm_Gi).which = g.i4(1);
       return std::string();
     }},
    {.name = "graphics", .help = "- plots, seconds to pause (default=600)",
     .apply = [](O& o, const Given& g, Counts&) {
       o.graphics = true;
       if (g.n >= 1) o.graphics_pause = g.i4(1);
       return std::string();
     }},
    {.name = "Manhattan_plot", .help = "- Manhattan plot (default=.false.)", .flag = &O::Manhattan_plot},
    {.name = "Manhattan_plot_R", .help = "- Manhattan plot by R (default=.false.)", .flag = &O::Manhattan_plot_R},
    {.name = "plotsnp", .help = "- kind of SNP plot (default=2)", .integer = &O::plotsnp},
    {.name = "nthreads", .help = "- threads", .integer = &O::nthreads},
    {.name = "nthreadsiod", .help = "- threads of the inversions (default=-1)", .integer = &O::nthreadsiod},
    {.name = "msg", .help = "- message level (default=0)", .integer = &O::msg},
    {.name = "binaries_files", .help = "- binary matrix files (default=.true.)", .onoff = &O::binaries_files},
    {.name = "saveAscii", .help = "- text matrix files (default=.false.)",
     .apply = [](O& o, const Given&, Counts&) {
       o.saveAscii = true;
       o.binaries_files = false;
       return std::string();
     }},
    {.name = "new_format", .help = "- matrix files with the pedigree numbers (default=.false.)",
     .apply = [](O& o, const Given&, Counts&) {
       o.new_format = true;
       return std::string();
     }},
    {.name = "old_format", .help = "- matrix files of i j val (default=.true.)",
     .apply = [](O& o, const Given&, Counts&) {
       o.new_format = false;
       return std::string();
     }},
    // The matrix record.
    {.name = "CreateG", .help = "(default=.true.)", .action = MatrixKey::create, .mat = gm_G, .two_spellings = true},
    {.name = "CreateGInverse", .help = "(default=.true.)", .action = MatrixKey::create, .mat = gm_Gi, .two_spellings = true},
    {.name = "ReadG", .help = "- file (default=G)", .action = MatrixKey::read, .mat = gm_G, .two_spellings = true},
    {.name = "CreateA22", .help = "(default=.true.)", .action = MatrixKey::create, .mat = gm_A22, .two_spellings = true},
    {.name = "CreateA22Inverse", .help = "(default=.true.)", .action = MatrixKey::create, .mat = gm_A22i,
     .two_spellings = true},
    {.name = "ReadA22", .help = "- file (default=A22)", .action = MatrixKey::read, .mat = gm_A22, .two_spellings = true},
    {.name = "ReadA22Inverse", .help = "- file (default=A22i)", .action = MatrixKey::read, .mat = gm_A22i,
     .two_spellings = true},
    {.name = "ReadGInverse", .help = "- file (default=Gi)", .action = MatrixKey::read, .mat = gm_Gi, .two_spellings = true},
    {.name = "CreateGmA22", .help = "(default=.false.)", .action = MatrixKey::create, .mat = gm_GmA22, .two_spellings = true},
    {.name = "CreateGimA22i", .help = "(default=.true.)", .action = MatrixKey::create, .mat = gm_GimA22i,
     .two_spellings = true},
    {.name = "ReadGmA22", .help = "- file (default=GmA22)", .action = MatrixKey::read, .mat = gm_GmA22, .two_spellings = true},
    {.name = "ReadGimA22i", .help = "- file (default=GimA22i)", .action = MatrixKey::read, .mat = gm_GimA22i,
     .two_spellings = true},
    {.name = "SaveA22", .help = "(default=.false.)", .action = MatrixKey::save, .mat = gm_A22, .two_spellings = true},
    {.name = "SaveA22Inverse", .help = "(default=.false.)", .action = MatrixKey::save, .mat = gm_A22i, .two_spellings = true},
    {.name = "SaveG", .help = "- all: also the intermediate matrices (default=.false.)", .action = MatrixKey::save,
     .mat = gm_G, .two_spellings = true},
    {.name = "SaveGInverse", .help = "(default=.false.)", .action = MatrixKey::save, .mat = gm_Gi, .two_spellings = true},
    {.name = "SaveGmA22Inverse", .help = "(default=.false.)", .action = MatrixKey::save, .mat = gm_GimA22i,
     .two_spellings = true},
    {.name = "SaveGmA22", .help = "(default=.false.)", .action = MatrixKey::save, .mat = gm_GmA22, .two_spellings = true},
    {.name = "CheckA22Inverse", .help = "(default=.false.)", .action = MatrixKey::check, .mat = gm_A22i, .two_spellings = true},
    {.name = "CheckGInverse", .help = "(default=.false.)", .action = MatrixKey::check, .mat = gm_Gi, .two_spellings = true},
    {.name = "saveHinv", .help = "(default=.false.)", .flag = &O::saveHinv, .two_spellings = true},
    {.name = "saveHinvOrig", .help = "(default=.false.)", .flag = &O::saveHinvOrig, .two_spellings = true},
    {.name = "saveGimA22iOrig", .help = "(default=.false.)", .flag = &O::saveGimA22iOrig, .two_spellings = true},
    {.name = "saveGimA22iRen", .help = "(default=.false.)", .flag = &O::saveGimA22iRen, .two_spellings = true},
    {.name = "saveAinv", .help = "(default=.false.)", .flag = &O::saveAinv, .two_spellings = true},
    {.name = "saveAinvOrig", .help = "(default=.false.)", .flag = &O::saveAinvOrig, .two_spellings = true},
    {.name = "saveGOrig", .help = "(default=.false.)", .flag = &O::saveGOrig, .two_spellings = true},
    {.name = "saveA22Orig", .help = "(default=.false.)", .flag = &O::saveA22Orig, .two_spellings = true},
    {.name = "saveDiagGOrig", .help = "(default=.false.)", .flag = &O::saveDiagGOrig, .two_spellings = true},
    {.name = "saveDiagA22Orig", .help = "(default=.false.)", .flag = &O::saveDiagA22Orig, .two_spellings = true},
    {.name = "readOrigId", .help = "(default=.false.)", .flag = &O::readOrigId, .two_spellings = true},
    {.name = "RegGonA", .help = "- G adjusted on A22 by regression (default=.false.)", .flag = &O::RegGonA,
     .two_spellings = true},
    {.name = "adjGmean", .help = "- G adjusted to the mean of A22 (default=.false.)", .flag = &O::adjGmean},
    {.name = "adjGscale", .help = "- G adjusted to the scale of A22 (default=.false.)", .flag = &O::adjGscale},
};

// The key with the case of its first letter changed.
std::string other_spelling(std::string_view name) {
  std::string s(name);
  const unsigned char c = static_cast<unsigned char>(s[0]);
  s[0] = static_cast<char>(std::isupper(c) ? std::tolower(c) : std::toupper(c));
  return s;
}

// The values of `name` (and of its other spelling, when it has one); stops when both are given.
Given query(const Key& k) {
  Given g;
  std::string found = k.name;
  get_option_r8(k.name, g.n, {});
  if (k.two_spellings) {
    const std::string alt = other_spelling(k.name);
    std::int32_t n_alt = -1;
    get_option_r8(alt, n_alt, {});
    if (g.n >= 0 && n_alt >= 0) stop(free_format("Both options were set ", k.name, " and ", alt));
    if (n_alt >= 0) g.n = n_alt, found = alt;
  }
  if (g.n > 0) {
    g.x.assign(static_cast<std::size_t>(g.n), 0.0);
    g.xc.assign(static_cast<std::size_t>(g.n), std::string());
    std::int32_t n = -1;
    get_option_r8(found, n, g.x, g.xc);
  }
  return g;
}

std::string apply_matrix_key(GenomicOptions& o, const Key& k, const Given& g) {
  MatrixOption& m = o.mat(k.mat);
  switch (k.action) {
    case MatrixKey::create:
      if (g.n > 0 && g.num(1) == 0.0) {
        m.create = false;
        return std::string("* NOT ") + k.name + " (default=.false.)";
      }
      m.create = true;
      o.create_given[k.mat] = true;
      break;
    case MatrixKey::read:
      m.read = true;
      m.create = false;
      if (g.n >= 1) m.file = g.text(1);
      // A matrix read makes needless what it would have been made from.
      if (k.mat == gm_G || k.mat == gm_Gi || k.mat == gm_GmA22 || k.mat == gm_GimA22i) o.need_snp_file = false;
      if (k.mat == gm_Gi) o.mat(gm_G).create = false;
      if (k.mat == gm_A22i) o.mat(gm_A22).create = false;
      if (k.mat == gm_GmA22 || k.mat == gm_GimA22i) {
        for (MatrixOption& each : o.mats) each.create = false;
      }
      break;
    case MatrixKey::save:
      m.save = true;
      if (k.mat == gm_G && g.text(1) == "all") o.SaveG_all = true;
      break;
    case MatrixKey::check:
      m.test = true;
      break;
    case MatrixKey::none:
      break;
  }
  return {};
}

// The usual echo: the key, the values as given, the help.
std::string echo_line(const Key& k, const Given& g) {
  std::string line = std::string("* ") + k.name;
  for (const std::string& v : g.xc) line += " " + v;
  return line + " " + k.help;
}

void check_combinations(GenomicOptions& o, const Counts& c) {
  const MatrixOption& G = o.mat(gm_G);
  const MatrixOption& Gi = o.mat(gm_Gi);
  const MatrixOption& A22 = o.mat(gm_A22);
  const MatrixOption& A22i = o.mat(gm_A22i);
  const MatrixOption& GmA22 = o.mat(gm_GmA22);
  const MatrixOption& GimA22i = o.mat(gm_GimA22i);
  const auto made = [](const MatrixOption& m) { return m.create || m.read; };

  if (GimA22i.create && !made(Gi) && !made(A22i)) stop(free_format("GimA22i create but not Gi or A22i are created"));
  if ((o.wGi != 1.0 || o.wA22i != -1.0) && o.sameWeights) {
    print_free("Different weights are used but sameWeight is TRUE. wGi:", o.wGi, "wA22i:", o.wA22i);
    print_free(" sameWeights set to false");
    o.sameWeights = false;
  }
  if (o.whichfreq == 1 && o.whichScale == 3) stop(free_format(" Checks options 0.5 AF and Scale as in Gianola is not valid"));
  if ((o.adjGmean || o.adjGscale) && o.RegGonA) stop(free_format("adjGmean or adjGscale options not valid with RegGonA "));
  if (o.sex_chr != 0 && o.chrinfo.empty())
    stop(free_format(" Sex chromosome was set but not map information was provided !! "));
  if (o.windows_variance && o.windows_variance_mbp)
    stop(free_format("Error Windows Variance and Mb Windows variance") + "\n" + free_format("can not be used at the same time"));

  struct Clash {
    bool wrong;
    const char* message;
  };
  const Clash clashes[] = {
      {o.create_given[gm_G] && G.read, "Wrong option CreateG - ReadG was also selected"},
      {o.create_given[gm_Gi] && Gi.read, "Wrong option CreateGInverse ReadGInverse was also selected"},
      {o.create_given[gm_A22] && A22.read, "Wrong option CreateA22 ReadA22 was also selected"},
      {o.create_given[gm_A22i] && A22i.read, "Wrong option CreateA22Inverse ReadA22Inverse was also selected"},
      {GmA22.create && !made(G), "Wrong option Create GmA22 either createG or readG"},
      {GmA22.create && !made(A22), "Wrong option Create GmA22 either createA22 or readA22"},
      {GimA22i.create && !made(Gi), "Wrong option Create GimA22i either createGi or readGi"},
      {GimA22i.create && !made(A22i), "Wrong option Create GimA22i either createA22i or readA22i"},
      {c.AlphaBeta >= 0 && c.AlphaBeta < 2, "OPTION AlphaBeta: Two paremeters are need"},
      {c.TauOmega >= 0 && c.TauOmega < 2, "OPTION TauOmega: Two paremeters are need"},
      {c.GammaDelta >= 0 && c.GammaDelta < 2, "OPTION GammaDelta: Two paremeters are need"},
      {c.windows_variance >= 0 && c.windows_variance != 1, " Error windows_variance needs 1 parameter!!"},
      {c.SNP_moving_average >= 0 && c.SNP_moving_average != 1, " Error SNP_moving_average needs 1 parameter!!"},
  };
  for (const Clash& each : clashes) {
    if (each.wrong) stop(free_format(each.message));
  }
}

}  // namespace

std::vector<std::string> register_genomic_options() {
  std::vector<std::string> names;
  for (const Key& k : keys) {
    names.emplace_back(k.name);
    if (k.two_spellings) names.push_back(other_spelling(k.name));
  }
  return names;
}

void read_genomic_options(GenomicOptions& o) {
  o = GenomicOptions();
  Counts counts;
  print_free("Options read from parameter file:");
  for (const Key& k : keys) {
    const Given g = query(k);
    if (g.n < 0) continue;
    std::string echo;
    if (k.real != nullptr) {
      if (g.n >= 1) o.*k.real = g.num(1);
    } else if (k.integer != nullptr) {
      if (g.n >= 1) o.*k.integer = g.i4(1);
    } else if (k.flag != nullptr) {
      o.*k.flag = true;
    } else if (k.onoff != nullptr) {
      o.*k.onoff = g.on();
    } else if (k.text != nullptr) {
      if (g.n >= 1) o.*k.text = g.text(1);
    } else if (k.action != MatrixKey::none) {
      echo = apply_matrix_key(o, k, g);
    } else {
      echo = k.apply(o, g, counts);
    }
    print_free(echo.empty() ? echo_line(k, g) : echo);
  }
  check_combinations(o, counts);
  // Without quality control nothing is removed, whatever limits were given.
  if (o.no_quality_control) {
    o.monomorphic = false;
    o.callrate_remove = false;
    o.callrateAnim_remove = false;
    o.verify_parentage = 0;
    o.minfreq = 0.0;
  }
}

void read_genomic_options() { read_genomic_options(genomic.opt); }

void print_genomic_options(const GenomicOptions& o) {
  if (o.msg <= 0) return;
  std::ostream& os = out();
  print_free("Current OPTIONS ");
  print_free("  Make/Read   Which  Save Test File       StorageType");
  // The columns stand under the words of the heading; the description closes the row.
  const Format row("(l7,l5,i8,l6,l5,1x,a,1x,a,2x,a)");
  for (const MatrixOption& m : o.mats) {
    std::string file = m.file, storage = m.storage;
    file.resize(std::max<std::size_t>(file.size(), 10), ' ');
    storage.resize(std::max<std::size_t>(storage.size(), 12), ' ');
    os << row.write(FormatList(m.create, m.read, m.which, m.save, m.test, file, storage, m.description));
    if (m.storage != "densem" && m.storage != "dense_symm" && m.storage != "sparse_hashm") print_free("Wrong Type: ", m.storage);
  }
  print_free(" Other options");
  print_free("    Allele Frequency file:    ", o.FreqFile);
  print_free("    Center Allele Frequency:  ", o.whichfreq);
  print_free("    Scale  Allele Frequency:  ", o.whichfreqScale);
  print_free("    Scale  Method:            ", o.whichScale);
  print_free("    Regression G on A:        ", o.RegGonA);
  print_free("    Tuned G Method:          ", o.tunedG);
  print_free("    Creation of GimA22i ");
  print_free("tau inv(alpha G + beta A22 + gamma I + delta) - omega inv(A22)");
  print_free("alpha,beta", o.alpha, o.beta);
  print_free("gamma,delta", o.gamma, o.delta);
  print_free("tau,omega", o.tau, o.omega);
}

void print_genomic_options() { print_genomic_options(genomic.opt); }

}  // namespace mmekit
