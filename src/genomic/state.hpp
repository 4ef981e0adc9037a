// The genomic library's process-wide state: the option record, the genotypes with their map,
// the pedigree with its inbreeding, and the flags of quality control.
//
// `genomic` is the one instance. The routines named as the library's entries (GET_PED,
// NRM_Colleau, the readers of the genotype files, ...) work on it; the algorithms beneath them
// take their data explicitly and are what the tests and other programs reuse.
//
// Numbering is as users see it: animals 1..n, genotypes 1..ngen (lines of the genotype file),
// SNPs 1..nsnp; every array is an Array1/Array2 from 1 unless its comment says otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mmekit/support/array.hpp"

namespace mmekit {

inline constexpr std::string_view genomic_version = "1.160";

// The code of a missing genotype.
inline constexpr int genotype_missing = 5;

// ---- Options --------------------------------------------------------------------------------

// The six matrices of the option record, in the order of the record.
enum GenomicMatrix : std::int32_t {
  gm_G = 1,
  gm_Gi = 2,
  gm_A22 = 3,
  gm_A22i = 4,
  gm_GmA22 = 5,
  gm_GimA22i = 6,
};
inline constexpr std::int32_t genomic_matrix_count = 6;

// One row of the matrix record.
struct MatrixOption {
  std::int32_t which = 0;   // method (G: whichG, A22: whichA22, Gi: whichGi, A22i: whichA22i)
  bool create = false;
  bool read = false;
  bool save = false;
  bool test = false;
  std::string file;         // at most 100 characters
  std::string storage;      // "densem", "dense_symm" or "sparse_hashm"
  std::string description;
};

// Every option of the genomic library with its working default. Fields carry the names of their
// keys; a key with an optional value has a flag and the value beside it.
struct GenomicOptions {
  Array1<MatrixOption> mats;  // (6), by GenomicMatrix
  MatrixOption& mat(GenomicMatrix m) { return mats(m); }
  const MatrixOption& mat(GenomicMatrix m) const { return mats(m); }

  double tol_ginv = 1e-10;
  std::string SNP_file;         // empty: none
  std::string xref_file;        // SNP_file + "_XrefID"
  bool need_snp_file = true;    // cleared by reading G, Gi, GmA22 or GimA22i
  bool H_method_given = false;  // the key H_method was in the parameter file
  std::int32_t H_method = 3;
  double wld = 0.6;
  std::string chrinfo;          // map file; empty: none
  bool chrinfo_names = false;   // SNP names in the 4th column of the map file
  bool check_same_position = false;
  std::int32_t maxsnp = 400000;
  std::int32_t whichfreq = 2;
  std::int32_t whichfreqScale = 2;
  std::int32_t whichScale = 1;
  std::string FreqFile = "freqdata";
  bool weightedG = false;
  std::string weight_file;
  double minfreq = 0.05;
  double callrate = 0.9;
  bool callrate_remove = true;
  double callrateAnim = 0.9;
  bool callrateAnim_remove = true;
  bool outcallrate = false;
  bool outparent_progeny = false;
  std::int32_t whichsnpdiv = 2;
  bool monomorphic = true;
  bool no_quality_control = false;
  bool saveCleanSNPs = false;
  std::vector<std::int32_t> excludeCHR, includeCHR, excludeSample;
  std::int32_t verify_parentage = 3;
  bool trio = false;
  bool missingAIPL = false;
  std::int32_t sex_chr = 0;
  bool high_correlation = false;
  double high_correlation_freq = 0.025;
  double high_correlation_share = 0.995;
  bool output_high_correlation = false;
  bool calculate_LD = false;
  bool LD_by_chr = false;
  bool LD_by_pos = false;
  std::int32_t LD_window = 200000;
  bool filter_by_LD = false;
  double filter_LD_limit = 0.8;
  double thr_output_LD = 0.1;
  bool SNP_moving_average = false;
  std::int32_t SNP_moving_average_n = 30;
  std::int32_t which_weight = 1;
  bool windows_variance = false;
  std::int32_t windows_variance_n = 30;
  bool windows_variance_mbp = false;
  std::int32_t windows_variance_bases = 1000000;
  std::int32_t windows_variance_type = 1;
  std::int32_t bracken_trait = 0;   // 0: all
  std::int32_t bracken_effect = 0;  // 0: all
  std::int32_t whichqtldiv = 4;
  bool testvarqtl = false;
  bool hwe = false;
  double hwe_limit = 0.15;
  bool check_diagonal_GimA22i = false;
  double threshold_diagonal_g = 1.6;  // also high_threshold_diagonal_g
  double low_threshold_diagonal_g = 0.7;
  std::int32_t exclusion_threshold_nb = 1;
  double exclusion_threshold = 0.02;
  double exclusion_threshold_snp = 0.1;
  std::int32_t number_parent_progeny_evaluations = 100;
  double thrWarnCorAG = 0.5;
  double thrStopCorAG = 0.3;
  double threshold_duplicate_samples = 0.9;
  double thrCorAG = 0.02;
  bool plotpca = false, plotpca_all = false, extra_info_pca = false;
  bool hete = false;
  bool savePLINK = false, saveCERVUS = false, saveGENSEL = false, save_genotype_space = false;
  std::int32_t tunedG = 2;
  std::int32_t whichMatVecMult = 2;
  double wGimA22i = 1, lambda = 1, wGi = 1, wA22i = -1;
  bool sameWeights = true;
  double alpha = 0.95, beta = 0.05;
  double bandwidth = 0.5;
  double tau = 1, omega = 1;
  double gamma = 0, delta = 0;
  bool graphics = false;
  std::int32_t graphics_pause = 600;
  bool Manhattan_plot = false, Manhattan_plot_R = false;
  std::int32_t plotsnp = 2;
  std::int32_t nthreads = 0;  // 0: not given
  std::int32_t nthreadsiod = -1;
  std::int32_t msg = 0;
  bool binaries_files = true;
  bool saveAscii = false;
  bool new_format = false;  // false: the old format is in force
  bool SaveG_all = false;   // SaveG all: the intermediate matrices too
  bool saveHinv = false, saveHinvOrig = false, saveGimA22iOrig = false, saveGimA22iRen = false;
  bool saveAinv = false, saveAinvOrig = false, saveGOrig = false, saveA22Orig = false;
  bool saveDiagGOrig = false, saveDiagA22Orig = false, readOrigId = false, RegGonA = false;

  // Read by read_genomic_options beside the fields above.
  double whichfreq_value = 0.5;       // the constant frequency of whichfreq 4 (its second number)
  double whichfreqScale_value = 0.5;  // the same for whichfreqScale 4
  bool adjGmean = false, adjGscale = false;  // adjust G to the mean or scale of A22
  // create_given(m): the key Create... of matrix m was given with a value other than 0; a
  // later Read... clears `create`, and this is what still shows that both were asked for.
  std::array<bool, genomic_matrix_count + 1> create_given{};  // by GenomicMatrix; 0 unused

  // The record with its defaults.
  GenomicOptions();
};

// ---- Genotypes --------------------------------------------------------------------------------

// The genotype matrix M, ngen rows by nsnp columns, held compactly: the integer form keeps one
// byte per genotype (the codes 0..5), the real form one double. Each animal's genotypes lie
// together (row i is contiguous), the layout the product M M' wants. Reads give the value as
// an r8, as the library has always seen it.
class GenotypeMatrix {
 public:
  // ngen x nsnp, every genotype `fill`; `real_form` chooses the storage.
  void resize(std::int64_t ngen, std::int64_t nsnp, bool real_form, double fill = 0.0);
  // ngen x nsnp in the integer form with the codes not set, for a reader that writes every one
  // of them before the matrix is used (it spares a pass over the whole matrix).
  void resize_codes_for_overwrite(std::int64_t ngen, std::int64_t nsnp);
  void clear();

  std::int64_t rows() const { return rows_; }
  std::int64_t cols() const { return cols_; }
  bool real_form() const { return real_; }
  bool empty() const { return rows_ == 0 || cols_ == 0; }

  double operator()(std::int64_t i, std::int64_t j) const {
    MMEKIT_CHECK_INDEX(i, 1, rows_);
    MMEKIT_CHECK_INDEX(j, 1, cols_);
    const std::size_t k = static_cast<std::size_t>((i - 1) * cols_ + (j - 1));
    return real_ ? reals_[k] : static_cast<double>(codes_[k]);
  }
  // Sets genotype (i, j). In the integer form the value must be a whole number in 0..127.
  void set(std::int64_t i, std::int64_t j, double value);

  // Row i of the integer form (cols() codes); null in the real form.
  std::int8_t* codes_row(std::int64_t i) { return real_ ? nullptr : codes_.data() + (i - 1) * cols_; }
  const std::int8_t* codes_row(std::int64_t i) const { return real_ ? nullptr : codes_.data() + (i - 1) * cols_; }
  // Row i of the real form; null in the integer form.
  double* reals_row(std::int64_t i) { return real_ ? reals_.data() + (i - 1) * cols_ : nullptr; }
  const double* reals_row(std::int64_t i) const { return real_ ? reals_.data() + (i - 1) * cols_ : nullptr; }

 private:
  // Elements are default-initialised: resize_codes_for_overwrite leaves them unset.
  template <class T>
  struct NoInitAllocator : std::allocator<T> {
    template <class U>
    struct rebind { using other = NoInitAllocator<U>; };
    NoInitAllocator() = default;
    template <class U>
    NoInitAllocator(const NoInitAllocator<U>&) noexcept {}
    template <class U>
    void construct(U* p) noexcept { ::new (static_cast<void*>(p)) U; }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) { ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...); }
  };
  std::vector<std::int8_t, NoInitAllocator<std::int8_t>> codes_;
  std::vector<double> reals_;
  std::int64_t rows_ = 0, cols_ = 0;
  bool real_ = false;
};

// ---- Pedigree ---------------------------------------------------------------------------------

// The subset of a pedigree made by the ancestor routines (A22 methods 3 and 4); owned by the
// caller for the length of one A22 computation.
struct ReducedPedigree {
  std::int32_t n = 0;
  Array2<std::int32_t> ped;    // (n, 4): new number, sire, dam (new numbering), 0
  Array1<std::int32_t> oldId;  // (n): new number -> old number
  Array1<std::int32_t> genid;  // (ngen): new number of each genotyped animal
  Array1<double> f;            // (0:n)
};

// ---- The state --------------------------------------------------------------------------------

struct GenomicState {
  GenomicOptions opt;

  // ---- genotype, cross-reference, map and weight files
  GenotypeMatrix M;
  std::int32_t ngen = 0;
  std::int32_t nsnp = 0;
  Array2<std::int32_t> map;          // (nsnp, 3): SNP index, chromosome, position
  std::vector<std::string> snp_names; // 50 characters each, when the map file has them
  Array1<double> D;                   // (nsnp): SNP weights
  Array1<double> freq;                // (nsnp): allele frequencies, read or counted

  // ---- quality control
  Array1<std::int32_t> snpFlag;     // (nsnp): reason code, 0 kept
  Array1<std::int32_t> animalFlag;  // (ngen): reason code, 0 kept

  // ---- pedigree
  std::int32_t n = 0;                      // records in the pedigree file
  Array2<std::int32_t> ped;                // (n, 4): animal, sire, dam, genotype position
  Array1<double> f;                        // (0:n); empty while not allocated
  Array1<std::int32_t> genId;              // (ngen): pedigree number of each genotype
  Array1<std::string> origId;              // (0:n): 25 characters, when read
  Array1<std::int32_t> animalKnownParents; // (n)
  Array1<std::int32_t> animalSex;          // (n): 0 no progeny, 1 sire, 2 dam, 3 both
  bool ped_chronological = true;
  std::int32_t a22_columns = 64;           // columns of A22 made in one pass of the products

  // Back to the state of a fresh process (default options, nothing read).
  void reset();
};

extern GenomicState genomic;

}  // namespace mmekit
