// Saved states of the supernodal solver: the whole of skelda_state copied into an object in
// memory or written to a file and read back, so that a factor outlives the run or several
// matrices take turns in the one state (tasks 71 to 75).
//
// The state file is one framed record (framed.hpp) on an unformatted unit (units.hpp), in this
// order, little-endian, without padding:
//   16 bytes    the version text "0.9.70" and ten blanks;
//   ten arrays  perm, iperm, xsuper, snode, snparent, xlnz, xlindx, lindx, lnz, cflag, each as
//               its length (i4, 0 for an absent or empty array) followed, when the length is
//               above 0, by its elements (i4; i8 for xlnz and xlindx; r8 for lnz);
//   iparm       128 i8;   rparm   128 r8;
//   first-use flag, i4 (1 set, 0 clear).
//
// Nothing loaded is trusted before it is checked: the version, every length against what the
// record still holds, the lengths against each other and against iparm (n = iparm(41) for
// perm, iperm, snode and cflag; nsn+1 for xsuper, xlnz and xlindx; xlindx(nsn+1)-1 for lindx;
// xlnz(nsn+1)-1 for lnz), the arrays the stage needs, perm and iperm as inverse permutations,
// the supernode partition, parents after their children, row lists ascending below their
// diagonal blocks, the storage of each supernode by the panel size, and the parameter words
// that size work arrays. The state is read into temporaries and replaces skelda_state only
// when all is well; otherwise the status is 15 and skelda_state is as it was. Loading from an
// object is checked in the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "mmekit/skelda/skelda.hpp"
#include "mmekit/support/array.hpp"

namespace mmekit {

inline constexpr std::string_view kSkeldaStateVersion = "0.9.70          ";
inline constexpr std::int32_t kSkeldaSaveTrouble = 14;
inline constexpr std::int32_t kSkeldaLoadTrouble = 15;

// A saved copy of the solver state: the ten arrays in their order, the parameter words and a
// status word (-1 after task 71: holds nothing; 0 after a successful save).
struct SkeldaSavedState {
  std::optional<Array1<std::int32_t>> perm, iperm, xsuper, snode, snparent;
  std::optional<Array1<std::int64_t>> xlnz, xlindx;
  std::optional<Array1<std::int32_t>> lindx;
  std::optional<Array1<double>> lnz;
  std::optional<Array1<std::int32_t>> cflag;
  Array1<std::int64_t> iparm = Array1<std::int64_t>(128);
  Array1<double> rparm = Array1<double>(128);
  std::int32_t status = -1;
};

// Task 71: frees the ten slots, puts the parameter words to the defaults of a full reset
// (stage 1, ordering used -1, the panel and work sizes, both Kachman tolerances) and the
// status word to -1.
void skelda_state_init(SkeldaSavedState& state);

// Task 72: copies the state into `state` (the arrays that exist, empty ones included; the
// others become absent) and sets its status word to 0. Status 0.
void skelda_save(SkeldaSavedState& state, std::int32_t& status);

// Task 73: replaces the state by a copy of `state`. Status 15, the state unchanged, when the
// object holds no saved state (status word not 0) or does not pass the checks above.
void skelda_load(const SkeldaSavedState& state, std::int32_t& status);

// Task 74: writes the state to `unit`. Status 14 when the unit is not above 0, is open
// formatted, cannot be opened or written, or an array is longer than an i4 length can say.
// A unit that is not open is opened on "fort.<unit>" with status "replace" and closed again;
// an open unit is rewound, written and left open.
void skelda_save_file(std::int32_t unit, std::int32_t& status);

// Task 75: reads the state from `unit` (opened on "fort.<unit>", status "old", when not open).
// Status 15, the state unchanged, for a unit not above 0 or open formatted, a missing or
// short file, another version text, or contents that do not pass the checks.
void skelda_load_file(std::int32_t unit, std::int32_t& status);

// Tasks 71 to 75 as a step of the task front end: `state` for 71 to 73 and `ival` (the unit)
// for 74 and 75 must be given, else status 20. Installed as skelda_steps().state_file.
std::int32_t skelda_state_step(std::int32_t task, const SkeldaArgs& args, std::int32_t verbose);

// The name of the file of a unit that is not open: "fort." and the unit number.
std::string skelda_state_file_name(std::int32_t unit);

}  // namespace mmekit
