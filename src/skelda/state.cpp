// Saved states of the solver: objects in memory and state files.
#include "mmekit/skelda/state.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "mmekit/skelda/layout.hpp"
#include "mmekit/support/units.hpp"

namespace mmekit {

static_assert(std::endian::native == std::endian::little, "state files are written in memory order");

namespace {

constexpr std::int64_t kI4Max = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kTailBytes = 128 * 8 + 128 * 8 + 4;  // iparm, rparm, flag

// The ten arrays of a state, by reference, in file order; `f` is called with each slot.
template <class S, class F>
void for_each_slot(S& s, F&& f) {
  f(s.perm), f(s.iperm), f(s.xsuper), f(s.snode), f(s.snparent);
  f(s.xlnz), f(s.xlindx), f(s.lindx), f(s.lnz), f(s.cflag);
}

template <class T>
std::int64_t length(const std::optional<Array1<T>>& a) {
  return a ? a->size() : 0;
}

// ---------------------------------------------------------------------------------------------
// The checks of a state before it is loaded.

bool is_permutation_pair(const Array1<std::int32_t>& perm, const Array1<std::int32_t>& iperm, std::int64_t n) {
  for (std::int64_t i = 1; i <= n; ++i) {
    const std::int64_t p = perm(i);
    if (p < 1 || p > n || iperm(p) != i) return false;
  }
  return true;
}

// The supernode partition, the parents, the row lists and the storage of the factor.
bool structure_fits(const SkeldaSavedState& c, std::int64_t n) {
  if (!c.xsuper) return !(c.snode || c.snparent || c.xlindx || c.lindx || c.xlnz);
  const Array1<std::int32_t>& xsuper = *c.xsuper;
  const std::int64_t nsn = xsuper.size() - 1;
  if (nsn < 0 || xsuper(1) != 1 || xsuper(nsn + 1) != n + 1) return false;
  for (std::int64_t s = 1; s <= nsn; ++s)
    if (xsuper(s + 1) <= xsuper(s)) return false;
  if (c.snode)
    for (std::int64_t s = 1; s <= nsn; ++s)
      for (std::int64_t col = xsuper(s); col < xsuper(s + 1); ++col)
        if ((*c.snode)(col) != s) return false;
  if (c.snparent) {
    if (c.snparent->size() != nsn) return false;
    for (std::int64_t s = 1; s <= nsn; ++s) {
      const std::int64_t p = (*c.snparent)(s);
      if (p != 0 && (p <= s || p > nsn)) return false;
    }
  }
  if (c.xlindx) {
    const Array1<std::int64_t>& xl = *c.xlindx;
    if (xl.size() != nsn + 1 || xl(1) != 1 || xl(nsn + 1) - 1 != length(c.lindx)) return false;
    for (std::int64_t s = 1; s <= nsn; ++s) {
      if (xl(s + 1) < xl(s)) return false;
      std::int64_t previous = xsuper(s + 1) - 1;  // rows lie below the diagonal block, ascending
      for (std::int64_t k = xl(s); k < xl(s + 1); ++k) {
        const std::int64_t r = (*c.lindx)(k);
        if (r <= previous || r > n) return false;
        previous = r;
      }
    }
  } else if (c.lindx) {
    return false;
  }
  if (c.xlnz) {
    const Array1<std::int64_t>& xz = *c.xlnz;
    const std::int64_t panel = c.iparm(kPanelSize);
    if (!c.xlindx || xz.size() != nsn + 1 || xz(1) != 1 || panel < 1) return false;
    for (std::int64_t s = 1; s <= nsn; ++s) {
      const std::int64_t size = sx2_size(xsuper(s + 1) - xsuper(s), (*c.xlindx)(s + 1) - (*c.xlindx)(s), panel);
      std::int64_t next = 0;
      if (size < 0 || __builtin_add_overflow(xz(s), size, &next) || xz(s + 1) != next) return false;
    }
    if (xz(nsn + 1) - 1 != length(c.lnz)) return false;
  } else if (c.lnz) {
    return false;
  }
  return true;
}

// Everything the solver would trust, checked before anything is replaced.
bool state_fits(const SkeldaSavedState& c) {
  if (c.iparm.size() != 128 || c.rparm.size() != 128) return false;
  const Array1<std::int64_t>& ip = c.iparm;
  const std::int64_t stage = ip(kStage), n = ip(kN);
  if (stage != 1 && stage != 10 && stage != 20 && stage != 30 && stage != 40) return false;
  if (n < 0 || n > kI4Max - 1) return false;
  // Parameter words that size work or select a path.
  for (int k : {kPanelSize, kPanelSizeAlt, kSplitThreshold, kLimC, kBlksz})
    if (ip(k) < 1) return false;
  if (ip(kFactorType) != 1 && ip(kFactorType) != 2) return false;
  if (ip(kOrdering) < 0 || ip(kOrdering) > 9 || ((799 >> ip(kOrdering)) & 1) == 0) return false;
  for (int k : {10, 11})
    if (!(c.rparm(k) >= 0.0)) return false;
  // The arrays the stage needs, and the lengths of the arrays of n.
  if (stage >= 10 && (n < 1 || !c.perm || !c.iperm)) return false;
  if (stage >= 20 && !(c.xsuper && c.snode && c.snparent && c.xlnz && c.xlindx && c.lindx && c.lnz && c.cflag))
    return false;
  for (const auto* a : {&c.perm, &c.iperm, &c.snode, &c.cflag})
    if (*a && (*a)->size() != n) return false;
  if (c.perm.has_value() != c.iperm.has_value()) return false;
  if (c.perm && !is_permutation_pair(*c.perm, *c.iperm, n)) return false;
  if (c.snode && !c.xsuper) return false;
  if (!structure_fits(c, n)) return false;
  if (stage >= 20 && (ip(kNsn) != c.xsuper->size() - 1 || ip(kLnzAllocated) != c.lnz->size() ||
                      ip(kLindxSize) != c.lindx->size()))
    return false;
  return true;
}

// Replaces the state by a checked candidate (moves its arrays).
void commit(SkeldaSavedState&& c) {
  SkeldaState& s = skelda_state;
  s.perm = std::move(c.perm), s.iperm = std::move(c.iperm), s.xsuper = std::move(c.xsuper);
  s.snode = std::move(c.snode), s.snparent = std::move(c.snparent), s.xlnz = std::move(c.xlnz);
  s.xlindx = std::move(c.xlindx), s.lindx = std::move(c.lindx), s.lnz = std::move(c.lnz);
  s.cflag = std::move(c.cflag);
  s.iparm = std::move(c.iparm), s.rparm = std::move(c.rparm);
}

// ---------------------------------------------------------------------------------------------
// The record of a state file.

// Reads from a record with every length checked against what is left.
struct RecordCursor {
  const std::vector<unsigned char>& bytes;
  std::size_t at = 0;

  std::size_t left() const { return bytes.size() - at; }
  bool take(void* to, std::size_t n) {
    if (n > left()) return false;
    if (n > 0) std::memcpy(to, bytes.data() + at, n);
    at += n;
    return true;
  }
  template <class T>
  bool array(std::optional<Array1<T>>& slot) {
    std::int32_t len = 0;
    if (!take(&len, 4) || len < 0) return false;
    slot.reset();
    if (len == 0) return true;
    if (static_cast<std::uint64_t>(len) > left() / sizeof(T)) return false;  // before allocating
    slot.emplace(len);
    return take(slot->data(), sizeof(T) * static_cast<std::size_t>(len));
  }
};

bool parse_record(const std::vector<unsigned char>& record, SkeldaSavedState& c, bool& first_use) {
  RecordCursor in{record};
  char version[16];
  if (!in.take(version, 16) || std::string_view(version, 16) != kSkeldaStateVersion) return false;
  bool ok = true;
  for_each_slot(c, [&](auto& slot) { ok = ok && in.array(slot); });
  std::int32_t flag = 0;
  if (!ok || in.left() != kTailBytes || !in.take(c.iparm.data(), 128 * 8) || !in.take(c.rparm.data(), 128 * 8) ||
      !in.take(&flag, 4))
    return false;
  first_use = flag != 0;
  // An array that the stage needs and that was saved empty (the row lists of a diagonal
  // matrix) exists, with no elements.
  if (c.iparm(kStage) >= 20)
    for_each_slot(c, [](auto& slot) {
      if (!slot) slot.emplace(0);
    });
  return true;
}

bool write_state(std::int32_t unit) {
  const SkeldaState& s = skelda_state;
  std::vector<detail::ByteSpan> parts;
  std::int32_t lengths[10];
  int k = 0;
  bool fits = true;
  parts.push_back({const_cast<char*>(kSkeldaStateVersion.data()), 16});
  for_each_slot(s, [&](const auto& slot) {
    const std::int64_t len = length(slot);
    if (len > kI4Max) fits = false;
    lengths[k] = static_cast<std::int32_t>(std::min(len, kI4Max));
    parts.push_back({&lengths[k], 4});
    if (len > 0) parts.push_back(detail::part_bytes(*slot));
    ++k;
  });
  if (!fits) return false;
  const std::int32_t flag = s.first_use ? 1 : 0;
  parts.push_back(detail::part_bytes(s.iparm));
  parts.push_back(detail::part_bytes(s.rparm));
  parts.push_back({const_cast<std::int32_t*>(&flag), 4});
  const std::size_t n = parts.size();
  parts.push_back({nullptr, 0});
  return units.write_parts(unit, parts.data(), n);
}

bool longest_fits() {
  bool fits = true;
  for_each_slot(skelda_state, [&](const auto& slot) { fits = fits && length(slot) <= kI4Max; });
  return fits;
}

}  // namespace

std::string skelda_state_file_name(std::int32_t unit) { return "fort." + std::to_string(unit); }

void skelda_state_init(SkeldaSavedState& state) {
  for_each_slot(state, [](auto& slot) { slot.reset(); });
  // The defaults are those of a full reset, taken from the reset itself on a state set aside.
  SkeldaState kept = std::move(skelda_state);
  skelda_state = SkeldaState{};
  skelda_init();
  state.iparm = skelda_state.iparm;
  state.rparm = skelda_state.rparm;
  skelda_state = std::move(kept);
  state.status = -1;
}

void skelda_save(SkeldaSavedState& state, std::int32_t& status) {
  const SkeldaState& s = skelda_state;
  SkeldaSavedState copy;
  copy.perm = s.perm, copy.iperm = s.iperm, copy.xsuper = s.xsuper, copy.snode = s.snode;
  copy.snparent = s.snparent, copy.xlnz = s.xlnz, copy.xlindx = s.xlindx, copy.lindx = s.lindx;
  copy.lnz = s.lnz, copy.cflag = s.cflag;
  copy.iparm = s.iparm, copy.rparm = s.rparm;
  copy.status = kSkeldaOk;
  state = std::move(copy);
  status = kSkeldaOk;
}

void skelda_load(const SkeldaSavedState& state, std::int32_t& status) {
  status = kSkeldaLoadTrouble;
  if (state.status != kSkeldaOk || !state_fits(state)) return;
  SkeldaSavedState copy = state;
  commit(std::move(copy));
  status = kSkeldaOk;
}

void skelda_save_file(std::int32_t unit, std::int32_t& status) {
  status = kSkeldaSaveTrouble;
  if (unit <= 0 || !longest_fits()) return;
  bool opened_here = false;
  if (!units.is_open(unit)) {
    if (!units.open(unit, skelda_state_file_name(unit), false, "replace")) return;
    opened_here = true;
  } else if (units.is_formatted(unit)) {
    return;
  }
  bool ok = units.rewind(unit) && write_state(unit);
  ok = (opened_here ? units.close(unit) : units.flush(unit)) && ok;
  if (ok) status = kSkeldaOk;
}

void skelda_load_file(std::int32_t unit, std::int32_t& status) {
  status = kSkeldaLoadTrouble;
  if (unit <= 0) return;
  bool opened_here = false;
  if (!units.is_open(unit)) {
    if (!units.open(unit, skelda_state_file_name(unit), false, "old")) return;
    opened_here = true;
  } else if (units.is_formatted(unit)) {
    return;
  }
  std::vector<unsigned char> record;
  SkeldaSavedState candidate;
  bool first_use = false;
  const bool ok = units.rewind(unit) && units.read_record(unit, record) == FramedStatus::ok &&
                  parse_record(record, candidate, first_use) && state_fits(candidate);
  if (opened_here) units.close(unit);
  if (!ok) return;
  commit(std::move(candidate));
  skelda_state.first_use = first_use;
  status = kSkeldaOk;
}

std::int32_t skelda_state_step(std::int32_t task, const SkeldaArgs& args, std::int32_t /*verbose*/) {
  std::int32_t status = kSkeldaLackOfArguments;
  switch (task) {
    case 71:
      if (args.state) skelda_state_init(*args.state), status = kSkeldaOk;
      break;
    case 72:
      if (args.state) skelda_save(*args.state, status);
      break;
    case 73:
      if (args.state) skelda_load(*args.state, status);
      break;
    case 74:
      if (args.ival) skelda_save_file(*args.ival, status);
      break;
    case 75:
      if (args.ival) skelda_load_file(*args.ival, status);
      break;
    default:
      status = kSkeldaStepMissing;
  }
  return status;
}

}  // namespace mmekit
