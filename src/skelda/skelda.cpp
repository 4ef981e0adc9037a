// The task front end: state, parameters, status table, and the chain of steps.
#include "mmekit/skelda/skelda.hpp"

#include <algorithm>
#include <limits>
#include <sstream>
#include <vector>

#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/spinv.hpp"
#include "mmekit/skelda/state.hpp"
#include "mmekit/skelda/symbolic.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/row_structure.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

SkeldaState skelda_state;

namespace {

constexpr std::int64_t kIparmDefaults10to22[13] = {256, 256, 2147483647, 1, 0, 1, 8192,
                                                    256, 0, 2, 2, 3, 0};
constexpr double kKachmanTolerance = static_cast<double>(1e-10f);

void ensure_initialised() {
  if (skelda_state.first_use) skelda_init();
}

std::int32_t abs_verbose(std::int32_t v) { return v < 0 ? (v == std::numeric_limits<std::int32_t>::min() ? std::numeric_limits<std::int32_t>::max() : -v) : v; }

std::int32_t narrow_to_i4(std::int64_t v) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, std::numeric_limits<std::int32_t>::min(),
                                                            std::numeric_limits<std::int32_t>::max()));
}

struct TaskInfo {
  std::int32_t task;
  const char* label;
  const char* name;
};

constexpr TaskInfo kTasks[] = {
    {0, "[init  ]", "initialization"},
    {1, "[clear ]", "clear internal memory"},
    {2, "[setpar]", "set a parameter"},
    {3, "[setpar]", "get a parameter"},
    {4, "[setall]", "set all parameters"},
    {5, "[getall]", "get all parameters"},
    {6, "[setc  ]", "something"},
    {7, "[getc  ]", "something"},
    {10, "[order ]", "ordering"},
    {11, "[order ]", "something"},
    {12, "", "something"},
    {20, "[symfac]", "symbolic factorization"},
    {40, "[numfac]", "numerical factorization"},
    {50, "[solve ]", "solution"},
    {54, "[det   ]", "calculation of the determinant"},
    {55, "[logdet]", "calculation of the log-determinant"},
    {56, "[rank  ]", "calculation of the rank"},
    {61, "[spinv ]", "sparse inversion"},
    {71, "[initst]", "something"},
    {72, "[save  ]", "something"},
    {73, "[load ]", "something"},
    {74, "[savef ]", "something"},
    {75, "[loadf ]", "something"},
    {80, "[stat  ]", "show the statistics"},
    {90, "[mulinv]", "mult-inv"},
    {100, "[mulfac]", "mult-fact"},
};

const TaskInfo* find_task(std::int32_t task) {
  for (const TaskInfo& t : kTasks)
    if (t.task == task) return &t;
  return nullptr;
}

// Store of a constraint vector into cflag (tasks 6 and the chain positions of setc/getc).
std::int32_t store_constraints(const Array1<std::int32_t>& v) {
  SkeldaState& s = skelda_state;
  if (s.stage() < 30 || !s.cflag || !s.iperm) return kSkeldaInvalidStep;
  const std::int64_t n = s.iparm(kN);
  if (v.size() < n) return kSkeldaAbnormalArgs;
  for (std::int64_t i = 1; i <= n; ++i) (*s.cflag)((*s.iperm)(i)) = v(i);
  s.iparm(kConstraintsGiven) = 1;
  return kSkeldaOk;
}

std::int32_t fetch_constraints(Array1<std::int32_t>& v) {
  SkeldaState& s = skelda_state;
  if (s.stage() < 30 || !s.cflag || !s.iperm) return kSkeldaInvalidStep;
  const std::int64_t n = s.iparm(kN);
  if (v.size() < n) v.resize(n);
  for (std::int64_t i = 1; i <= n; ++i) v(i) = (*s.cflag)((*s.iperm)(i));
  return kSkeldaOk;
}

void put_status(const SkeldaArgs& args, std::int32_t st) {
  if (args.status) *args.status = st;
}

// Runs an installed step, or reports that it is not available.
std::int32_t run_step(const SkeldaStep& step, std::int32_t task, const SkeldaArgs& args,
                      std::int32_t verbose) {
  if (!step) return kSkeldaStepMissing;
  return step(task, args, verbose);
}

}  // namespace

SkeldaSteps& skelda_steps() {
  static SkeldaSteps steps = [] {
    SkeldaSteps installed;
    installed.symfac = skelda_symfac_step;
    installed.numfac = skelda_numfac_step;
    install_solve_steps(installed);  // solve, det, logdet, mulinv, mulfac
    installed.spinv = skelda_spinv_step;
    installed.state_file = skelda_state_step;  // saved-state objects and state files
    return installed;
  }();
  return steps;
}

void skelda_init() {
  SkeldaState& s = skelda_state;
  s.perm.reset();
  s.iperm.reset();
  s.xsuper.reset();
  s.snode.reset();
  s.snparent.reset();
  s.xlnz.reset();
  s.xlindx.reset();
  s.lindx.reset();
  s.lnz.reset();
  s.cflag.reset();
  s.parameter_count = 128;
  s.iparm.fill(0);
  s.rparm.fill(0.0);
  for (int k = 0; k < 13; ++k) s.iparm(10 + k) = kIparmDefaults10to22[k];
  for (int k = 29; k <= 37; ++k) s.iparm(k) = 0;
  s.iparm(kOrderingUsed) = -1;
  s.rparm(10) = kKachmanTolerance;
  s.rparm(11) = kKachmanTolerance;
  s.iparm(kStage) = 1;
  s.first_use = false;
}

void skelda_clear() {
  SkeldaState& s = skelda_state;
  if (s.stage() < 20 || s.iparm(kLnzAllocated) <= 0) return;
  if (s.lnz) s.lnz->fill(0.0);
  s.stage() = 20;
}

std::int32_t set_iparm(std::int32_t index, std::int64_t value) {
  ensure_initialised();
  if (index < 1 || index > 128) return kSkeldaBadParameterIndex;
  Array1<std::int64_t>& p = skelda_state.iparm;
  switch (index) {
    case 3:
      if (value != 0) p(3) = 1;
      break;
    case 4:
      p(4) = value < 1 ? 0 : value;
      break;
    case 10:
      if (value < 1) {
        p(10) = 256;
        p(3) = 1;
      } else {
        p(10) = value;
      }
      break;
    case 11: case 12: case 16: case 17:
    case 30: case 31: case 32: case 33: case 34: case 35: case 36: case 37:
      if (value >= 2) p(index) = value;
      break;
    case 13:
      if (value >= 0 && value <= 9 && ((799 >> value) & 1)) p(13) = value;
      break;
    case 14: case 15: case 18: case 20: case 21: case 22:
      if (value >= 0) p(index) = value;
      break;
    case 19:
      if (value == 1 || value == 2) p(19) = value;
      break;
    case 29:
      p(29) = value;
      break;
    default:
      break;
  }
  return kSkeldaOk;
}

std::int32_t set_rparm(std::int32_t index, double value) {
  ensure_initialised();
  if (index < 1 || index > 128) return kSkeldaBadParameterIndex;
  if ((index == 10 || index == 11) && value >= 0.0) skelda_state.rparm(index) = value;
  return kSkeldaOk;
}

std::string skelda_status_text(std::int32_t status) {
  const char* text;
  switch (status) {
    case 0: text = "Completed successfully."; break;
    case 1: text = "No temporary memory available."; break;
    case 2: text = "No enough memory for the factorization."; break;
    case 3: text = "Invalid step of operation: ordering>symfac>numfac>sol>spinv."; break;
    case 4: text = "Abnormal parameters or arguments."; break;
    case 5: text = "Size mismatch."; break;
    case 6: text = "Trouble in ordering."; break;
    case 7: text = "Trouble in symbolic fact."; break;
    case 8: text = "Trouble in numerical fact (maybe BLAS/LAPACK error)."; break;
    case 10: text = "A trouble in computing the log-determinant."; break;
    case 11: text = "Invalid factor type - LDL or Cholesky."; break;
    case 12: text = "Mismatch kind of variables."; break;
    case 13: text = "A trouble in solution (unexpected modification on the factor)."; break;
    case 14: text = "A trouble in saving the current state to file."; break;
    case 15: text = "Trouble in loading the state from a file."; break;
    case 16: text = "Unknown algorithm specified for factorization."; break;
    case 17: text = "Unknown algorithm specified for sparse inversion."; break;
    case 20: text = "A trouble in SKELDATASK: the lack of argument(s)."; break;
    case 21: text = "A trouble in SKELDATASK: setc and getc are exclusive options."; break;
    case 90: text = "OVERFLOW: too many elements / too huge matrix."; break;
    default: text = "Unknown error --- please contact the author."; break;
  }
  // The texts live in 60 characters: longer ones lose their end.
  std::string s(text);
  if (s.size() > 60) s.resize(60);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

void skelda_report(std::int32_t status, std::int32_t verbose, std::string_view label) {
  const std::int32_t v = abs_verbose(verbose);
  if (status == 0) {
    if (v >= 3) out() << " SKELDATASK: " << label << ' ' << skelda_status_text(0) << '\n';
    return;
  }
  if (v >= 1) {
    std::string line = " SKELDATASK: " + std::string(label) + ' ' + skelda_status_text(status);
    if (verbose < 0) stop(line);
    out() << line << '\n';
  }
}

void skelda_print_status(std::string_view text, std::int32_t status) {
  out() << "ERROR: " << text << (text.empty() ? "" : " ") << skelda_status_text(status) << '\n';
}

void skelda_statistics() {
  SkeldaState& s = skelda_state;
  std::ostream& o = out();
  auto line = [&](const char* label, auto... values) { o << label << free_format(values...) << '\n'; };
  auto text = [&](const char* label, const char* value) { o << label << ' ' << value << '\n'; };
  o << " SKELDA: Supernodal MME Solver  Version" << free_format("0.9.70") << '\n';
  o << std::string(62, '-') << '\n';
  if (s.stage() < 2) {
    o << "  No sparse matrix is given.\n";
    return;
  }
  auto pick = [](std::int64_t v, std::initializer_list<std::pair<std::int64_t, const char*>> names) {
    for (const auto& [k, name] : names)
      if (k == v) return name;
    return "Unknown";
  };
  o << " Original MME:\n";
  line("   No. of Equations                =", s.iparm(kN));
  line("   No. of Nonzeros                 =", s.iparm(kNnz));
  text("   Ordering Method                 =",
       pick(s.iparm(kOrderingUsed), {{0, "METIS"}, {1, "AMD"}, {2, "QAMD"}, {3, "AMF"}, {4, "MMD"}, {9, "User"}}));
  text("   Factor Type                     =", pick(s.iparm(kFactorType), {{1, "Cholesky"}, {2, "LDL"}}));
  text("   Algorithm for Factorization     =",
       pick(s.iparm(kFactAlgorithm), {{2, "SN LL"}, {3, "SN MF"}, {4, "SN MF w/OpenMP"}}));
  text("   Algorithm for Inversion         =",
       pick(s.iparm(kInvAlgorithm), {{2, "SELINV"}, {3, "INVMF"}, {4, "INVMF w/OpenMP"}}));
  o << " Supernodes (SNs):\n";
  const std::int64_t nsn = s.iparm(kNsn);
  line("   No. of SNs.                     =", nsn);
  if (s.xsuper && nsn >= 1 && s.xsuper->size() >= nsn + 1) {
    std::vector<std::int64_t> width(static_cast<std::size_t>(nsn));
    for (std::int64_t k = 1; k <= nsn; ++k) width[k - 1] = (*s.xsuper)(k + 1) - (*s.xsuper)(k);
    const std::int64_t last = width.back();
    std::sort(width.begin(), width.end());
    // The most frequent width; the smallest among equally frequent ones (the scan is ascending).
    std::int64_t mode = width[0], best = 0;
    for (std::size_t a = 0; a < width.size();) {
      std::size_t b = a;
      while (b < width.size() && width[b] == width[a]) ++b;
      if (static_cast<std::int64_t>(b - a) > best) {
        best = static_cast<std::int64_t>(b - a);
        mode = width[a];
      }
      a = b;
    }
    line("   No. of Cols. in the Last SN.    =", last);
    line("   Frequent No. of Cols.           =", mode);
    line("   Its Count                       =", best);
    line("   Its Ratio (%)                   =", static_cast<double>(best) * 100.0 / static_cast<double>(nsn));
  }
  line("   Threshold of split              =", s.iparm(kSplitThreshold));
  o << " Factor (L):\n";
  line("   User-defined constraint         =", s.iparm(kConstraintsGiven));
  line("   Rank                            =", s.iparm(kRank));
  line("   No. of Constraints              =", s.iparm(kN) - s.iparm(kRank));
  line("   Panel Size                      =", s.iparm(kPanelSize));
  line("   Tolerances for Kachman mod.     =", s.rparm(10), s.rparm(11));
  line("   Detect the panel size (1:YES)   =", s.iparm(kDetectPanel));
  const double mb = 1.0 / 1048576.0;
  o << " Memory:\n";
  line("   No. of effective entries in L   =", s.iparm(kLnzEffective));
  line("   No. of allocated entries in L   =", s.iparm(kLnzAllocated));
  line("   Storage for L              (MB) =", static_cast<double>(s.iparm(kLnzAllocated)) * 8.0 * mb);
  line("   Storage for integer arrays (MB) =",
       static_cast<double>(3 * s.iparm(kN) + 3 * s.iparm(kNsn) + 3 + s.iparm(kLindxSize)) * 4.0 * mb);
  line("   Temp. Mem. for FACT.       (MB) =", static_cast<double>(s.iparm(kTempFact)) * 8.0 * mb);
  line("   Temp. Mem. for INV.        (MB) =", static_cast<double>(s.iparm(kTempInv)) * 8.0 * mb);
  o << " CPU & System Time for the last Call:\n";
  line("   Ordering                  (sec) =", s.rparm(51), s.rparm(52));
  line("   Symbolic Fact.            (sec) =", s.rparm(53), s.rparm(54));
  line("   Numerical Fact.           (sec) =", s.rparm(55), s.rparm(56));
  line("   Sparse Inversion          (sec) =", s.rparm(59), s.rparm(60));
  line("   Solution                  (sec) =", s.rparm(57), s.rparm(58));
}

void skelda_progress(std::string_view text, std::int32_t verbose) {
  if (abs_verbose(verbose) >= 3) out() << " SKELDATASK: " << text << '\n';
}

namespace {

void run_chain(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose) {
  SkeldaState& s = skelda_state;
  const std::int32_t v = abs_verbose(verbose);
  // 1. New-matrix rule.
  const char* reset_message = nullptr;
  bool full = false;
  const std::int64_t stage = s.stage();
  switch (task) {
    case 10: if (stage > 10) { reset_message = "<order>  new matrix: all previous results are deleted (init)."; full = true; } break;
    case 11: if (stage > 10) { reset_message = "<setord>  new matrix: all previous results are deleted (init)."; full = true; } break;
    case 20: if (stage > 20) { reset_message = "<sumfac> new matrix: all previous results are deleted (init)."; full = true; } break;
    case 40: if (stage >= 30) reset_message = "<numfac> new matrix: previous factor is cleared (zero-filled)."; break;
    case 50: if (stage > 30) reset_message = "<solve>  new matrix: previous factor is cleared (zero-filled)."; break;
    case 55: if (stage > 30) reset_message = "<logdet> new matrix: previous factor is cleared (zero-filled)."; break;
    case 56: if (stage > 30) reset_message = "<rank>   new matrix: previous factor is cleared (zero-filled)."; break;
    case 100: if (stage > 30) reset_message = "<mulfac> new matrix: previous factor is cleared (zero-filled)."; break;
    case 90: if (stage > 30) reset_message = "<mulinv> new matrix: previous factor is cleared (zero-filled)."; break;
    case 61: if (stage > 30) reset_message = "<spinv>  new matrix: previous factor is cleared (zero-filled)."; break;
    default: break;
  }
  if (reset_message) {
    if (v >= 2) out() << reset_message << '\n';
    if (full) {
      skelda_init();
      // The reset also resets the method; a caller's permutation stays the method of task 11.
      if (task == 11) s.iparm(kOrdering) = 9;
      skelda_report(0, verbose, "[init  ]");
    } else {
      skelda_clear();
      skelda_report(0, verbose, "[clear ]");
    }
  }

  // 2. Steps still needed.
  const bool ordering_task = task == 10 || task == 11;
  const bool do_order = ordering_task || s.stage() < 10;
  const bool do_symfac = !ordering_task && (task == 20 || s.stage() < 20);
  const bool do_numfac = !ordering_task && task != 20 && (task == 40 || s.stage() < 30);
  const bool final_step = task >= 50;

  // 3. Arguments.
  std::int32_t st = kSkeldaOk;
  const bool matrix = args.neq && args.ia && args.ja;
  if (do_order && task == 11 && !(args.perm && args.iperm && matrix)) st = kSkeldaLackOfArguments;
  if (do_order && task != 11 && !matrix) st = kSkeldaLackOfArguments;
  if (do_symfac && !matrix) st = kSkeldaLackOfArguments;
  if (do_numfac && !(matrix && args.a)) st = kSkeldaLackOfArguments;
  if ((task == 50 || task == 90 || task == 100) && !(args.rhs && args.sol)) st = kSkeldaLackOfArguments;
  if ((task == 54 || task == 55) && !args.det) st = kSkeldaLackOfArguments;
  if (task == 56 && !args.ival) st = kSkeldaLackOfArguments;
  if (task == 61 && !(matrix && args.a)) st = kSkeldaLackOfArguments;
  // The steps after the ordering read the pattern (and the values) the caller hands in: one
  // that does not fit its arrays is an abnormal argument. The ordering step checks for itself.
  if (st == kSkeldaOk && matrix && !do_order && (do_symfac || do_numfac || task == 61)) {
    RowStructureRules rules;
    if (args.a && (do_numfac || task == 61)) rules.values = args.a->size();
    if (*args.neq < 1 || check_row_structure(*args.neq, span_of(*args.ia), span_of(*args.ja), rules))
      st = kSkeldaAbnormalArgs;
  }
  skelda_report(st, verbose, "[chkarg]");
  if (st != kSkeldaOk) {
    put_status(args, st);
    return;
  }

  SkeldaSteps& steps = skelda_steps();
  // 4. The steps in order.
  if (do_order) {
    skelda_progress("[order ] Computing...", verbose);
    skelda_order(*args.neq, *args.ia, *args.ja, static_cast<std::int32_t>(s.iparm(kOrdering)), st,
                 args.perm, args.iperm, verbose);
    skelda_report(st, verbose, "[order ]");
    put_status(args, st);
    if (st != kSkeldaOk || ordering_task) return;
  }
  if (do_symfac) {
    skelda_progress("[symfac] Computing...", verbose);
    st = run_step(steps.symfac, task, args, verbose);
    skelda_report(st, verbose, "[symfac]");
    put_status(args, st);
    if (st != kSkeldaOk || task == 20) return;
    // 5. Constraints handed in with the chain.
    if (args.setc) {
      if (v >= 2) {
        out() << "Constraints are supplied.\n";
        out() << "Kachman modification will be turned off in the factorization.\n";
      }
      skelda_report(store_constraints(*args.setc), verbose, "[setc  ]");
    }
  }
  if (do_numfac) {
    skelda_progress("[numfac] Computing...", verbose);
    st = run_step(steps.numfac, task, args, verbose);
    skelda_report(st, verbose, "[numfac]");
    put_status(args, st);
    if (st != kSkeldaOk || task == 40) return;
    // 6. getc goes through the same store as setc.
    if (args.getc) skelda_report(store_constraints(*args.getc), verbose, "[getc  ]");
  }
  if (!final_step) return;

  // 7. The task's own step.
  const char* progress = nullptr;
  const SkeldaStep* step = nullptr;
  const char* label = nullptr;
  switch (task) {
    case 50: progress = "[solve ] Computing..."; step = &steps.solve; label = "[solve ]"; break;
    case 55: progress = "[logdet] Computing..."; step = &steps.logdet; label = "[logdet]"; break;
    case 54: progress = "[det   ] Computing..."; step = &steps.det; label = "[det   ]"; break;
    case 100: progress = "[mulfac] Computing..."; step = &steps.mulfac; label = "[mulfac]"; break;
    case 90: progress = "[mulinv] Computing..."; step = &steps.mulinv; label = "[mulinv]"; break;
    case 61: progress = "[spinv ] Computing..."; step = &steps.spinv; label = "[spinv ]"; break;
    case 56:
      *args.ival = narrow_to_i4(s.iparm(kRank));
      skelda_report(kSkeldaOk, verbose, "[rank  ]");
      put_status(args, kSkeldaOk);
      return;
    default: return;
  }
  skelda_progress(progress, verbose);
  st = run_step(*step, task, args, verbose);
  skelda_report(st, verbose, label);
  put_status(args, st);
}

std::int32_t get_parameter(const SkeldaArgs& args) {
  if (!args.parnum || !(args.parval8 || args.parval4 || args.rval_b || args.rval_a))
    return kSkeldaLackOfArguments;
  const std::int32_t k = *args.parnum;
  if (k < 1 || k > 128) return kSkeldaBadParameterIndex;
  SkeldaState& s = skelda_state;
  if (args.parval8) *args.parval8 = s.iparm(k);
  else if (args.parval4) *args.parval4 = narrow_to_i4(s.iparm(k));
  else if (args.rval_b) *args.rval_b = s.rparm(k);
  else *args.rval_a = s.rparm(k);
  return kSkeldaOk;
}

std::int32_t set_parameter(const SkeldaArgs& args) {
  if (!args.parnum) return kSkeldaLackOfArguments;
  const std::int32_t k = *args.parnum;
  if (args.parval8) return set_iparm(k, *args.parval8);
  if (args.parval4) return set_iparm(k, *args.parval4);
  if (args.rval_b) return set_rparm(k, *args.rval_b);
  if (args.rval_a) return set_rparm(k, *args.rval_a);
  return kSkeldaLackOfArguments;
}

}  // namespace

void skeldatask(std::int32_t task, const SkeldaArgs& args) {
  ensure_initialised();
  SkeldaState& s = skelda_state;
  const std::int32_t verbose = args.verbose ? *args.verbose : 0;
  const std::int32_t v = abs_verbose(verbose);
  const TaskInfo* info = find_task(task);
  if (v >= 2) out() << " SKELDATASK: task= " << task << " (" << (info ? info->name : "something") << ")\n";

  if (args.setc && args.getc) {
    skelda_report(kSkeldaSetcGetcExclusive, verbose, "[chkarg]");
    put_status(args, kSkeldaSetcGetcExclusive);
    return;
  }
  if (!info) {
    if (v >= 2) out() << "Invalid command of task.\n";
    return;
  }

  std::int32_t st = kSkeldaOk;
  switch (task) {
    case 0:
      skelda_init();
      break;
    case 1:
      skelda_clear();
      break;
    case 2:
      st = set_parameter(args);
      break;
    case 3:
      st = get_parameter(args);
      break;
    case 4:
      for (int k = 1; k <= 128; ++k) {
        if (args.iparm4 && args.iparm4->size() >= k) set_iparm(k, (*args.iparm4)(k));
        if (args.iparm8 && args.iparm8->size() >= k) set_iparm(k, (*args.iparm8)(k));
        if (args.rparm8 && args.rparm8->size() >= k) set_rparm(k, (*args.rparm8)(k));
        if (args.rparm8b && args.rparm8b->size() >= k) set_rparm(k, (*args.rparm8b)(k));
      }
      break;
    case 5:
      for (Array1<std::int32_t>* a : {args.iparm4})
        if (a) {
          if (a->size() < 128) a->resize(128);
          for (int k = 1; k <= 128; ++k) (*a)(k) = narrow_to_i4(s.iparm(k));
        }
      if (args.iparm8) {
        if (args.iparm8->size() < 128) args.iparm8->resize(128);
        for (int k = 1; k <= 128; ++k) (*args.iparm8)(k) = s.iparm(k);
      }
      for (Array1<double>* a : {args.rparm8, args.rparm8b})
        if (a) {
          if (a->size() < 128) a->resize(128);
          for (int k = 1; k <= 128; ++k) (*a)(k) = s.rparm(k);
        }
      break;
    case 6:
      st = args.setc ? store_constraints(*args.setc) : kSkeldaLackOfArguments;
      break;
    case 7:
      st = args.getc ? fetch_constraints(*args.getc) : kSkeldaLackOfArguments;
      break;
    case 11:
      s.iparm(kOrdering) = 9;
      run_chain(task, args, verbose);
      return;
    case 10: case 20: case 40: case 50: case 54: case 55: case 56: case 61: case 90: case 100:
      run_chain(task, args, verbose);
      return;
    case 12: {
      const std::int64_t n = s.iparm(kN);
      if (args.perm && s.perm) {
        if (args.perm->size() < n) args.perm->resize(n);
        for (std::int64_t i = 1; i <= n; ++i) (*args.perm)(i) = (*s.perm)(i);
      }
      if (args.iperm && s.iperm) {
        if (args.iperm->size() < n) args.iperm->resize(n);
        for (std::int64_t i = 1; i <= n; ++i) (*args.iperm)(i) = (*s.iperm)(i);
      }
      return;
    }
    case 80:
      skelda_statistics();
      break;
    default:  // 71 to 75: saved states and state files
      st = run_step(skelda_steps().state_file, task, args, verbose);
      break;
  }
  skelda_report(st, verbose, info->label);
  put_status(args, st);
}

}  // namespace mmekit
