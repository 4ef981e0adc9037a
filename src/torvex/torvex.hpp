// The sparse Cholesky package: one entry, `TORVEX`, that takes an operation and a symmetric
// matrix in row-compressed form and runs whatever stages the operation still needs (ordering,
// symbolic factorisation, numeric factorisation) before doing what was asked.
//
// Progress is kept in the one process-wide `torvex_state`, so a sequence of calls on one matrix
// orders and factorises it once. The package holds one matrix at a time.
//
// Operations are told by their first three letters (what follows is ignored):
//   "fac"  order, analyse and factorise anew (a refactorisation is forced)
//   "sol"  solve A x = b (args.rhs -> args.sol); generalised solution for a singular A
//   "m_i"  args.sol = inverse of the factor times args.rhs (factor order on output)
//   "m_f"  args.sol = factor times args.rhs (args.rhs in factor order)
//   "inv"  sparse inverse in the pattern of the factor, written over matrix.a; the factor is
//          lost, the next operation factorises again
//   "res"  release the work space; an inverse already in the matrix stays there
//   "det"  *args.det = determinant of the non-singular part
//   "lde"  *args.det = log-determinant of the non-singular part
//   "sta"  print the statistics block
//
// The matrix is a `sparse_ija` in upper form (a full form gives the same results). A singular
// (semi-definite) matrix factorises without error: dependent equations get zero pivots and
// are left out of solves, determinants and the inverse.
//
// Bad input stops the run with a message that says what is wrong: a matrix whose structure
// cannot be walked, found before any stage walks it ("TORVEX: ia(11)-1 = 12 but ja holds 10
// entries", and the like for ia too short, row starts that fall or do not start at 1, a column
// outside 1..n, a too short, nel other than ia(n+1)-1; a solve on the factor in place does not
// read the matrix), a right-hand side shorter than n, and a matrix of the same order and
// element count as the one analysed whose elements no longer fit the structure of its factor
// ("TORVEX: the pattern of the matrix changed since the ordering; call "res" and start again").
// A missing right-hand side, solution or determinant argument only prints its message and
// returns.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "mmekit/support/array.hpp"
#include "mmekit/torvex/kernel.hpp"

namespace mmekit {

struct sparse_ija;

// Optional arguments of TORVEX. Every pointer that is null (every optional that is empty) is
// an absent argument, which is not the same as a given one with a default-looking value.
struct TorvexArgs {
  // Right-hand side of "sol", "m_i", "m_f": at least n values (the first n are used; fewer stop
  // the run). The solution is resized to n; it may be the right-hand side itself.
  const Array1<double>* rhs = nullptr;
  Array1<double>* sol = nullptr;
  double* det = nullptr;                // result of "det" and "lde"
  std::optional<std::int32_t> print_level;  // default 0; 1 and up: times and memory growth
  std::optional<std::int32_t> max_memory;   // in 4-byte units; default 2147483647
  // A permutation given here with a nonzero size is used as the ordering instead of the
  // minimum-degree one (perm(k) = original equation placed k-th). When the ordering is made
  // by the package, a non-null `perm_out`/`invp_out` receives it (1-based).
  const Array1<std::int32_t>* perm = nullptr;
  Array1<std::int32_t>* perm_out = nullptr;
  Array1<std::int32_t>* invp_out = nullptr;
};

// The state of the package: one instance for the whole program.
struct TorvexState {
  // -1 nothing set up; 0 work space allocated; 1 ordering and symbolic stage done;
  //  2 numeric stage done.
  std::int32_t TORVEX_state = -1;
  std::int32_t memory_size = 100;  // current size of the work space in 4-byte units
  std::int32_t order_last = 0;     // order of the last matrix
  std::int32_t elements_last = 0;  // its number of stored elements
  TorvexWork work;                 // the work space, kept between calls
  Array1<std::int32_t> perm, invp; // the ordering in use (1-based)
  TorvexStatistics stats;          // counters and times of the kernel
};

extern TorvexState torvex_state;

// The single entry of the package.
void TORVEX(std::string_view operation, sparse_ija& matrix, const TorvexArgs& args = {});

// The driver's reaction to the flag of a kernel stage (exposed for tests): 0 returns false;
// a lack of memory grows `work` (or stops when the need exceeds `max_memory`) and returns true
// to say the stage must be run again; anything else prints its message and stops.
bool torvex_handle_flag(std::int32_t flag, std::int64_t need, TorvexWork& work,
                        std::int32_t& memory_size, std::int32_t max_memory, std::int32_t print_level);

}  // namespace mmekit
