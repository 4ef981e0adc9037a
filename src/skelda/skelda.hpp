// The supernodal solver's front end: one process-wide state, one task routine.
//
// `skeldatask(task, args)` runs a task on the solver state `skelda_state`. The arguments are
// all optional: `SkeldaArgs` holds one pointer per argument, and a null pointer means the
// argument is absent (a given argument is never confused with a zero value). Write the call
// with designated initialisers in the order of the fields, e.g.
//
//   std::int32_t st = 0, verbose = 2;
//   skeldatask(10, {.neq = &n, .ia = &ia, .ja = &ja, .verbose = &verbose, .status = &st});
//
// Every task is complete: 0 to 7, 10, 11, 12, 20, 40, 50, 54, 55, 56, 61, 71 to 75, 80, 90
// and 100. The steps beyond ordering are entries of the step table `skelda_steps()`: symbolic
// factorisation (symbolic.hpp), numerical factorisation (numeric.hpp), the solve, determinant
// and multiplication steps (solve.hpp), the sparse inversion (spinv.hpp) and the saved-state
// objects and files (state.hpp) are installed there by default. A caller may replace a step;
// a task whose step has been removed ends with status `kSkeldaStepMissing`, whose text is the
// unknown-error line.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "mmekit/support/array.hpp"

namespace mmekit {

// Names of the iparm words (1-based indices).
enum SkeldaIparm : int {
  kStage = 1, kConstraintsGiven = 2, kDetectPanel = 3, kNthreads = 4, kPanelSize = 10,
  kPanelSizeAlt = 11, kSplitThreshold = 12, kOrdering = 13, kLogdetOnFactor = 14, kKachman = 15,
  kLimC = 16, kBlksz = 17, kSpdopt = 18, kFactorType = 19, kFactAlgorithm = 20, kInvAlgorithm = 21,
  kNoLoad = 22, kMmdDelta = 29, kMetisOptions = 30, kN = 41, kNnz = 42, kNsn = 43,
  kLnzAllocated = 44, kLnzRowsSum = 45, kLindxSize = 46, kMaxcolcnt = 47, kOrderingUsed = 48,
  kTempFact = 49, kTempInv = 50, kRank = 51, kFlaggedColumns = 53, kLnzEffective = 54
};

// Status numbers with a name in the code.
inline constexpr std::int32_t kSkeldaOk = 0;
inline constexpr std::int32_t kSkeldaNoTempMemory = 1;
inline constexpr std::int32_t kSkeldaNoPermMemory = 2;
inline constexpr std::int32_t kSkeldaInvalidStep = 3;
inline constexpr std::int32_t kSkeldaAbnormalArgs = 4;
inline constexpr std::int32_t kSkeldaLackOfArguments = 20;
inline constexpr std::int32_t kSkeldaSetcGetcExclusive = 21;
inline constexpr std::int32_t kSkeldaBadParameterIndex = 22;
inline constexpr std::int32_t kSkeldaOverflow = 90;
// A task needs a step that is not installed in `skelda_steps()`.
inline constexpr std::int32_t kSkeldaStepMissing = 99;

// Switches of the library's own, outside the iparm words: set them in the code,
// e.g. `skelda_state.switches.dense_rows_last = true;`. A full reset (task 0) and set_iparm
// leave them as they are.
struct SkeldaSwitches {
  // Every ordering method (METIS, AMD, QAMD, AMF, MMD, and the minimum-degree ordering of the
  // sparse Cholesky package) orders the graph without its dense rows and numbers those last
  // (see order_dense_rows_last in ordering.hpp). Meant for mixed-model equations with
  // covariates or fixed effects that touch most equations; off by default.
  bool dense_rows_last = false;
  // Symbolic factorisation merges small supernodes into their parents at the price of a few
  // explicit zeros (off: only exactly nested columns share a supernode).
  bool relaxed_amalgamation = false;
};

struct SkeldaState {
  bool first_use = true;           // set at program start; the first entry initialises
  std::int64_t parameter_count = 0;
  std::int64_t graph_n = 0;        // n recorded by the graph-size routine
  Array1<std::int64_t> iparm = Array1<std::int64_t>(128);
  Array1<double> rparm = Array1<double>(128);
  // The ten arrays, each absent until the step that makes it has run.
  std::optional<Array1<std::int32_t>> perm, iperm, xsuper, snode, snparent;
  std::optional<Array1<std::int64_t>> xlnz, xlindx;
  std::optional<Array1<std::int32_t>> lindx;
  std::optional<Array1<double>> lnz;
  std::optional<Array1<std::int32_t>> cflag;
  SkeldaSwitches switches;

  std::int64_t& stage() { return iparm(kStage); }
};

// The one solver state of the process.
extern SkeldaState skelda_state;

struct SkeldaSavedState;  // saved copy of the state (state objects and files)

// The optional arguments of skeldatask, in their traditional order. Null means absent.
// rhs/sol are n-by-k matrices (k = 1 for a vector).
struct SkeldaArgs {
  const std::int32_t* neq = nullptr;
  const Array1<std::int32_t>* ia = nullptr;
  const Array1<std::int32_t>* ja = nullptr;
  Array1<double>* a = nullptr;
  Array1<std::int32_t>* perm = nullptr;
  Array1<std::int32_t>* iperm = nullptr;
  Array2<double>* rhs = nullptr;
  Array2<double>* sol = nullptr;
  Array1<std::int32_t>* setc = nullptr;
  Array1<std::int32_t>* getc = nullptr;
  Array1<std::int32_t>* iparm4 = nullptr;
  Array1<double>* rparm8 = nullptr;
  const std::int32_t* parnum = nullptr;
  std::int32_t* parval4 = nullptr;
  double* rval_a = nullptr;
  Array1<std::int64_t>* iparm8 = nullptr;
  Array1<double>* rparm8b = nullptr;
  std::int64_t* parval8 = nullptr;
  double* rval_b = nullptr;
  std::int32_t* ival = nullptr;
  double* det = nullptr;
  SkeldaSavedState* state = nullptr;
  const std::int32_t* verbose = nullptr;
  std::int32_t* status = nullptr;
};

void skeldatask(std::int32_t task, const SkeldaArgs& args = {});

// A step of a later task: works on skelda_state with the task number and the call's arguments,
// and returns a status.
using SkeldaStep =
    std::function<std::int32_t(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose)>;

// The steps beyond ordering, installed by the code that implements them.
struct SkeldaSteps {
  SkeldaStep symfac;      // task 20, ends at stage 20
  SkeldaStep numfac;      // task 40, ends at stage 30
  SkeldaStep solve;       // task 50
  SkeldaStep det;         // task 54 (det = exp(log-determinant))
  SkeldaStep logdet;      // task 55
  SkeldaStep spinv;       // task 61
  SkeldaStep mulinv;      // task 90
  SkeldaStep mulfac;      // task 100
  SkeldaStep state_file;  // tasks 71 to 75 (saved-state objects and state files)
};
SkeldaSteps& skelda_steps();

// Full reset (task 0) and clear of the factor (task 1).
void skelda_init();
void skelda_clear();

// Parameter entries: status 0, or 22 for an index outside 1..128.
std::int32_t set_iparm(std::int32_t index, std::int64_t value);
std::int32_t set_rparm(std::int32_t index, double value);

// The ordering step (tasks 10 and 11): `ordering` is the method number, perm_in/iperm_in the
// caller's permutation for method 9, and the final permutations go back to them when given.
void skelda_order(std::int32_t neq, const Array1<std::int32_t>& ia, const Array1<std::int32_t>& ja,
                  std::int32_t ordering, std::int32_t& status, Array1<std::int32_t>* perm_in,
                  Array1<std::int32_t>* iperm_in, std::int32_t verbose);

// The text of a status number, held in 60 characters (trailing blanks removed).
std::string skelda_status_text(std::int32_t status);

// Reports a step: " SKELDATASK: <label> <text>"; success only at |verbose| >= 3, failures at
// |verbose| >= 1, and a negative verbose stops the run after a failure.
void skelda_report(std::int32_t status, std::int32_t verbose, std::string_view label);

// "ERROR: " and the text of the status, for programs that want it without the label logic.
void skelda_print_status(std::string_view text, std::int32_t status);

// The statistics of the state (task 80), printed line by line.
void skelda_statistics();

// The progress line before a step, shown at |verbose| >= 3.
void skelda_progress(std::string_view text, std::int32_t verbose);

}  // namespace mmekit
