// The model description: the parameter file, its OPTION lines and the printout of the model.
//
// `read_parameter_file` asks for the name of the parameter file, reads the model part of it
// into the one process-wide record `model`, and leaves the file open; the option queries
// (`get_option` and its variants) then scan that same open file from its start whenever they
// are called. Programs built on the library read the record's fields directly.
//
// Files are kept in a small table of open text files under the unit numbers the rest of the
// library uses to find them: 40 for the parameter file, and `first` + 50 for the file of the
// random group whose first effect is `first`.
#pragma once

#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <istream>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "mmekit/dense/dense.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

// The largest order of the (co)variance block of one random group: ntrait x ncorr <= maxcorr.
inline constexpr std::int32_t maxcorr = 50;

// The unit of the parameter file, and the offset of the unit of a random group's file.
inline constexpr std::int32_t parameter_file_unit = 40;
inline constexpr std::int32_t random_file_unit_offset = 50;

// Codes of `random_type`.
enum RandomType : std::int32_t {
  random_fixed = 1,          // not random: a fixed effect
  random_diagonal = 2,       // "diagonal"
  random_add_animal = 3,     // "add_animal"
  random_add_an_upg = 4,     // "add_an_upg"
  random_add_an_upginb = 5,  // "add_an_upgi" (and "add_an_upginb")
  random_add_sire = 6,       // "add_sire"
  random_par_domin = 7,      // "par_domin"
  random_user_file = 8,      // "user_file"
  random_user_file_inv = 9,  // "user_file_i" (and "user_file_inv")
  random_add_an_usym = 10,   // "add_an_usym"
};

// Codes of `effect_type`.
enum EffectType : std::int32_t {
  effect_cross_classified = 0,
  effect_covariable = 1,
};

// (Co)variances of the random groups: g(e, i, j) for the group that starts at effect e, with
// i, j = 1..maxcorr ordered by effect within the group and trait within effect. Every element
// reads 0 until it is set; storage for an effect is made when one of its elements is first
// written, so a model with many fixed effects costs nothing here.
class GroupCovariances {
 public:
  // neff effects, every element 0.
  void reset(std::int32_t neff);
  std::int32_t neff() const { return static_cast<std::int32_t>(blocks_.size()); }
  double operator()(std::int64_t e, std::int64_t i, std::int64_t j) const;
  double& operator()(std::int64_t e, std::int64_t i, std::int64_t j);
  // The leading n x n block of effect e, n <= maxcorr (zeros when e starts no group).
  densem block(std::int64_t e, std::int64_t n) const;

 private:
  Array1<Array2<double>> blocks_;  // blocks_(e) empty, or maxcorr x maxcorr
};

// The model description, filled once by read_parameter_file.
struct ModelRecord {
  std::string parfile;   // name of the parameter file (at most 250 characters)
  std::string datafile;  // name of the data file
  std::int32_t ntrait = 0;
  std::int32_t neff = 0;
  Array1<std::int32_t> pos_y;        // (ntrait): column of the observation of each trait
  std::int32_t pos_weight = 0;       // column of the weight; 0 means none
  std::int32_t miss = 0;             // value of a missing trait or observation (printed only)
  Array2<std::int32_t> pos_eff;      // (neff, ntrait): column of effect e for trait t; 0 = missing
  Array1<std::int32_t> nlev;         // (neff): number of levels
  Array1<std::int32_t> effect_type;  // (neff): 0 cross-classified, 1 covariable
  Array2<std::int32_t> nest_pos;     // (neff, ntrait): column of the nesting effect of a covariable
  Array1<std::int32_t> random_type;  // (neff): RandomType code, 1 for fixed effects
  Array1<std::int32_t> ncorr;        // (neff): size of the group that starts at e, 0 elsewhere
  Array1<std::string> random_file;   // (neff): pedigree or user file of the group starting at e
  densem r_var;                      // (ntrait, ntrait): residual (co)variances
  densem r_inv;                      // (ntrait, ntrait): room for the inverse; not filled here
  GroupCovariances g_var;            // (neff, maxcorr, maxcorr)

  // Open text files by unit number (parameter file and random groups' files).
  std::map<std::int32_t, std::fstream> files;

  // Closes every file and empties the record.
  void reset();
};

// The model of the run.
extern ModelRecord model;

// The open file of a unit, or nullptr when the unit is not open.
std::fstream* model_unit(std::int32_t unit);

// Writes " name of parameter file?", reads the name as one line of `dialogue` (standard input
// by default), opens the file (creating it empty if it does not exist), checks that it is a
// plain text file and reads the model part of it into `model`. Stops the run with a message on
// any error. The parameter file stays open for the option queries.
void read_parameter_file();
void read_parameter_file(std::istream& dialogue);

// The values of the first line "OPTION key values..." of the parameter file. `n` is -1 when no
// line has the key, otherwise the number of values. `x` and `xc`, when not empty, receive the
// values as numbers (0 where a value is not a number) and as texts (at most 50 characters),
// element by element; elements beyond the values get 0 and blanks (an empty string).
void get_option(std::string_view key, std::int32_t& n);
void get_option(std::string_view key, std::int32_t& n, std::span<float> x);
void get_option(std::string_view key, std::int32_t& n, std::span<std::string> xc);
void get_option(std::string_view key, std::int32_t& n, std::span<float> x, std::span<std::string> xc);

// The same with the numbers widened to r8 (they carry single precision only).
void get_option_r8(std::string_view key, std::int32_t& n, std::span<double> x);
void get_option_r8(std::string_view key, std::int32_t& n, std::span<double> x, std::span<std::string> xc);

// Stops the run when an OPTION line of the parameter file has a key that `valid` does not hold.
void check_options(std::span<const std::string> valid);
void check_options(std::initializer_list<std::string_view> valid);

// Prints the model description under `title`, checking that the residual and every group's
// (co)variance matrix are symmetric and positive definite; stops when one is not.
void print_parameter_file(std::string_view title);

}  // namespace mmekit
