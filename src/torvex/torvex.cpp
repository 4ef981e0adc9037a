// The driver of the sparse Cholesky package: stages, growth of the work space, messages.
#include "mmekit/torvex/torvex.hpp"

#include <algorithm>
#include <limits>
#include <span>
#include <string>

#include "mmekit/skelda/skelda.hpp"
#include "mmekit/sparse/ija.hpp"
#include "mmekit/support/clock.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

TorvexState torvex_state;

namespace {

constexpr const char* order_file = "torvex.ord";
constexpr const char* pattern_changed =
    "TORVEX: the pattern of the matrix changed since the ordering; call \"res\" and start again";

std::span<double> values_of(Array1<double>& v) { return {v.data(), static_cast<std::size_t>(v.size())}; }

bool is_operation(std::string_view op, std::string_view letters) { return op.substr(0, 3) == letters; }

}  // namespace

bool torvex_handle_flag(std::int32_t flag, std::int64_t need, TorvexWork& work, std::int32_t& memory_size,
                        std::int32_t max_memory, std::int32_t print_level) {
  if (flag == 0) return false;
  // The matrix has elements where the analysed factor has no place for them.
  if (flag == torvex_flag_pattern_changed || flag == torvex_numeric_offset + torvex_flag_pattern_changed)
    stop(pattern_changed);
  if (flag >= 4000000)
    stop(free_format("TORVEX: Zero or negative pivot for row ROW", " during numerical factorization in row:",
                     flag - 4000000));
  if (flag < 101) stop(free_format("torvex: unknown error flag: ", flag));
  // A lack of memory: the kernel's need, which the flag carries as well when it fits.
  const std::int64_t wanted = need > 0 ? need : flag;
  if (wanted > max_memory)
    stop(free_format("TORVEX: memory needed: ", wanted) + "\n" +
         free_format("         maxmimum memory allowed: ", max_memory));
  if (print_level > 0) print_free("memory increased from: ", memory_size, " to: ", wanted);
  work.grow(wanted);
  memory_size = static_cast<std::int32_t>(wanted);
  return true;
}

namespace {

// Runs one kernel stage until it has the memory it needs.
void run_stage(std::int32_t option, sparse_ija& m, double* rhs, TorvexKernelArgs& kargs, std::int32_t max_memory,
               std::int32_t print_level, const char* time_text) {
  TorvexState& s = torvex_state;
  const double t0 = cpu_seconds();
  for (;;) {
    kargs.is = s.work.cells();
    kargs.size = s.work.size();
    std::int32_t flag = 0;
    std::int32_t* perm = nullptr;
    if (option == 10 || option == 70) {
      s.perm.assign(m.n, 0);
      perm = s.perm.data();
    }
    torvex_kernel(option, m.n, span_of(m.ia), span_of(m.ja), values_of(m.a), perm, rhs, flag, kargs);
    if (!torvex_handle_flag(flag, kargs.need, s.work, s.memory_size, max_memory, print_level)) break;
    // The order unit is written afresh when the ordering runs again.
    if (kargs.order_out) kargs.order_out->open(order_file);
    if (kargs.order_in) kargs.order_in->rewind();
  }
  if (time_text && print_level > 0) print_free(time_text, static_cast<float>(cpu_seconds() - t0));
}

void ordering_and_symbolic(sparse_ija& m, const TorvexArgs& args, std::int32_t max_memory, std::int32_t pl) {
  TorvexState& s = torvex_state;
  TorvexKernelArgs kargs;
  if (pl >= 3) print_free("TORVEX: size=", m.n, "  #nonzeroes=", m.nel);
  const bool given = args.perm && args.perm->size() > 0;
  if (given) {
    // The caller's ordering goes through the order unit and is read back from it.
    {
      FramedWriter w(order_file);
      const std::int32_t found = static_cast<std::int32_t>(args.perm->size());
      std::vector<std::int32_t> p(args.perm->begin(), args.perm->end()), q(p.size(), 0);
      for (std::size_t k = 0; k < p.size(); ++k)
        if (p[k] >= 1 && p[k] <= found) q[static_cast<std::size_t>(p[k] - 1)] = static_cast<std::int32_t>(k + 1);
      w.write(found, std::int32_t{0});
      w.write(p);
      w.write(q);
    }
    FramedReader r(order_file);
    kargs.order_in = &r;
    run_stage(70, m, nullptr, kargs, max_memory, pl, "ordering time =");
  } else {
    FramedWriter w(order_file);
    kargs.order_out = &w;
    kargs.dense_rows_last = skelda_state.switches.dense_rows_last;
    run_stage(10, m, nullptr, kargs, max_memory, pl, "ordering time =");
  }
  s.invp.assign(m.n, 0);
  for (std::int32_t k = 1; k <= m.n; ++k) s.invp(s.perm(k)) = k;
  if (args.perm_out) *args.perm_out = s.perm;
  if (args.invp_out) *args.invp_out = s.invp;
  TorvexKernelArgs k2;
  run_stage(20, m, nullptr, k2, max_memory, pl, "symbolic factorization time=");
}

}  // namespace

void TORVEX(std::string_view operation, sparse_ija& matrix, const TorvexArgs& args) {
  TorvexState& s = torvex_state;
  const bool fac = is_operation(operation, "fac"), sol = is_operation(operation, "sol"),
             mi = is_operation(operation, "m_i"), mf = is_operation(operation, "m_f"),
             inv = is_operation(operation, "inv"), res = is_operation(operation, "res"),
             det = is_operation(operation, "det"), lde = is_operation(operation, "lde"),
             sta = is_operation(operation, "sta");
  if (!(fac || sol || mi || mf || inv || res || det || lde || sta))
    stop(free_format("TORVEX operation ", std::string(operation), " unknown"));
  if (res) {
    if (s.TORVEX_state != -1) s.work.release();
    s.TORVEX_state = -1;
    s.memory_size = 100;
    return;
  }
  if (det && !args.det) return print_free("TORVEX: optional parameter DET missing");
  if (lde && !args.det) return print_free("TORVEX: optional parameter DET misiing");
  if ((sol || mi || mf) && (!args.rhs || !args.sol))
    return print_free("TORVEX: optional parameter SOL or RS missing");

  const std::int32_t pl = args.print_level.value_or(0);
  const std::int32_t max_memory = args.max_memory.value_or(std::numeric_limits<std::int32_t>::max());
  if (sta) {
    TorvexKernelArgs k;
    if (s.TORVEX_state != -1) {
      k.is = s.work.cells();
      k.size = s.work.size();
    }
    std::int32_t flag = 0;
    torvex_kernel(80, matrix.n, nullptr, nullptr, nullptr, nullptr, nullptr, flag, k);
    return;
  }
  // Another matrix (another order, another number of elements) or a new ordering: start over.
  const bool another =
      matrix.n != s.order_last || matrix.nel != s.elements_last || (args.perm && args.perm->size() > 0);
  // Before anything changes: the stages about to run walk the matrix, which must be whole (a
  // solve on the factor in place does not read it), and a right-hand side must cover it.
  const std::int32_t from = std::min({s.TORVEX_state, another ? 0 : 2, fac ? 1 : 2});
  if (from < 2 || inv) require_sparse_ija("TORVEX", matrix);
  if ((sol || mi || mf) && args.rhs->size() < matrix.n)
    stop("TORVEX: the right-hand side holds " + std::to_string(args.rhs->size()) + " values but the matrix has order " +
         std::to_string(matrix.n));
  if (s.TORVEX_state == -1) {
    s.work.allocate(s.memory_size);
    s.TORVEX_state = 0;
  }
  if (another) s.TORVEX_state = std::min(s.TORVEX_state, 0);
  s.order_last = matrix.n;
  s.elements_last = matrix.nel;
  if (fac) s.TORVEX_state = std::min(s.TORVEX_state, 1);

  if (s.TORVEX_state < 1) {
    ordering_and_symbolic(matrix, args, max_memory, pl);
    s.TORVEX_state = 1;
  }
  if (s.TORVEX_state < 2) {
    TorvexKernelArgs k;
    run_stage(40, matrix, nullptr, k, max_memory, pl, "numerical factorization time=");
    s.TORVEX_state = 2;
  }
  if (fac) return;
  TorvexKernelArgs k;
  if (sol || mi || mf) {
    // The solution may be the right-hand side itself: it is then solved in place.
    Array1<double>& x = *args.sol;
    if (&x != args.rhs) {
      x.assign(matrix.n, 0.0);
      std::copy_n(args.rhs->begin(), matrix.n, x.begin());
    } else {
      x.resize(matrix.n);
    }
    run_stage(sol ? 50 : mi ? 90 : 100, matrix, x.data(), k, max_memory, pl, nullptr);
  } else if (inv) {
    run_stage(61, matrix, nullptr, k, max_memory, pl, "inversion time=");
    s.TORVEX_state = 1;
  } else if (det || lde) {
    k.det = args.det;
    run_stage(det ? 54 : 55, matrix, nullptr, k, max_memory, pl, nullptr);
  }
}

}  // namespace mmekit
