// Saved states: objects and files round trip to a state that solves alike; the file's bytes;
// damaged files and objects are refused without touching the state.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/files.hpp"
#include "common/spd.hpp"
#include "common/supernodal.hpp"
#include "mmekit/skelda/numeric.hpp"
#include "mmekit/skelda/solve.hpp"
#include "mmekit/skelda/state.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/units.hpp"

using namespace mmekit;
using namespace mmekit::test;

namespace {

class SkeldaStateFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    skelda_state = SkeldaState{};
    skelda_steps().symfac = skelda_symfac_step;
    skelda_steps().numfac = skelda_numfac_step;
    install_solve_steps(skelda_steps());
    skelda_steps().state_file = skelda_state_step;
  }
  void TearDown() override { units.close(19); }
  // Solves with the factor held in the state (no matrix given: it must not be needed).
  Array2<double> solve(Array2<double> b) {
    Array2<double> sol(b.rows(), b.cols());
    std::int32_t st = -1;
    skeldatask(50, {.rhs = &b, .sol = &sol, .status = &st});
    EXPECT_EQ(st, 0);
    return sol;
  }
  void factorise(sparse_ija m) {
    skeldatask(0);
    skeldatask(40, {.neq = &m.n, .ia = &m.ia, .ja = &m.ja, .a = &m.a});
    ASSERT_EQ(skelda_state.stage(), 30);
  }
  std::int32_t task(std::int32_t t, std::int32_t unit) {
    std::int32_t st = -1;
    skeldatask(t, {.ival = &unit, .status = &st});
    return st;
  }
  std::int32_t task(std::int32_t t, SkeldaSavedState* obj) {
    std::int32_t st = -1;
    skeldatask(t, {.state = obj, .status = &st});
    return st;
  }
};

bool same_state(const SkeldaState& a, const SkeldaState& b) {
  return a.perm == b.perm && a.iperm == b.iperm && a.xsuper == b.xsuper && a.snode == b.snode &&
         a.snparent == b.snparent && a.xlnz == b.xlnz && a.xlindx == b.xlindx && a.lindx == b.lindx &&
         a.lnz == b.lnz && a.cflag == b.cflag && a.iparm == b.iparm && a.rparm == b.rparm && a.first_use == b.first_use;
}

template <class T>
std::string raw(const T& v) { return std::string(reinterpret_cast<const char*>(&v), sizeof v); }

std::string frame(const std::string& body) { return raw(static_cast<std::int32_t>(body.size())) + body + raw(static_cast<std::int32_t>(body.size())); }

}  // namespace

TEST_F(SkeldaStateFiles, FileAndObjectRoundTripsSolveBitwiseAlike) {
  factorise(upper_ija(random_spd(60, 0.08, 7)));
  const Array2<double> b = random_columns(60, 2, 3), x = solve(b);
  ASSERT_EQ(task(74, 15), 0);  // not open: written to fort.15 and closed
  EXPECT_FALSE(units.is_open(15));
  SkeldaSavedState saved;
  ASSERT_EQ(task(72, &saved), 0);
  const SkeldaState before = skelda_state;

  for (int route : {75, 73}) {
    factorise(upper_ija(random_spd(25, 0.2, 11)));  // another matrix takes the state
    ASSERT_EQ(route == 75 ? task(75, 15) : task(73, &saved), 0) << route;
    EXPECT_TRUE(same_state(skelda_state, before)) << route;
    EXPECT_EQ(skelda_state.stage(), 30);
    const Array2<double> y = solve(b);
    EXPECT_EQ(std::memcmp(y.vec().data(), x.vec().data(), sizeof(double) * x.vec().size()), 0) << route;
  }
  // An open unformatted unit is written and read in place and left open (the solves above
  // have put their times into rparm since the first save).
  const SkeldaState now = skelda_state;
  ASSERT_TRUE(units.open(19, "mine.state", false, "replace"));
  ASSERT_EQ(task(74, 19), 0);
  ASSERT_EQ(task(74, 15), 0);
  EXPECT_EQ(read_file("mine.state"), read_file("fort.15"));
  skeldatask(0);
  ASSERT_EQ(task(75, 19), 0);
  EXPECT_TRUE(units.is_open(19));
  EXPECT_TRUE(same_state(skelda_state, now));
}

TEST_F(SkeldaStateFiles, StageOneFileHoldsTenEmptyArraysAndTheParameters) {
  skeldatask(0);
  ASSERT_EQ(task(74, 15), 0);
  std::string body = "0.9.70          " + std::string(40, '\0');
  std::int64_t ip[129] = {};
  const std::int64_t defaults10[13] = {256, 256, 2147483647, 1, 0, 1, 8192, 256, 0, 2, 2, 3, 0};
  ip[1] = 1, ip[48] = -1;
  for (int k = 0; k < 13; ++k) ip[10 + k] = defaults10[k];
  double rp[129] = {};
  rp[10] = rp[11] = static_cast<double>(1e-10f);
  body += std::string(reinterpret_cast<const char*>(ip + 1), 128 * 8) + std::string(reinterpret_cast<const char*>(rp + 1), 128 * 8);
  body += raw(std::int32_t{0});  // first use is over
  EXPECT_EQ(read_file("fort.15"), frame(body));

  // The saved-state object after task 71: nothing held, the defaults, status -1; it cannot be loaded.
  SkeldaSavedState obj;
  obj.lnz = Array1<double>(3);
  ASSERT_EQ(task(71, &obj), 0);
  EXPECT_FALSE(obj.lnz.has_value());
  EXPECT_EQ(obj.status, -1);
  EXPECT_EQ(obj.iparm, skelda_state.iparm);
  EXPECT_EQ(obj.rparm, skelda_state.rparm);
  EXPECT_EQ(task(73, &obj), 15);
}

TEST_F(SkeldaStateFiles, DamagedFilesAndObjectsAreRefusedAndTheStateKept) {
  factorise(upper_ija(random_spd(7, 0.4, 5)));
  ASSERT_EQ(task(74, 15), 0);
  SkeldaSavedState obj;
  ASSERT_EQ(task(72, &obj), 0);
  const std::string good = read_file("fort.15");
  const std::string body = good.substr(4, good.size() - 8);
  // Where the ten lengths lie: after the frame and the version; element widths by the layout.
  const SkeldaState& s = skelda_state;
  const std::int64_t lens[10] = {s.perm->size(), s.iperm->size(), s.xsuper->size(), s.snode->size(), s.snparent->size(),
                                 s.xlnz->size(), s.xlindx->size(), s.lindx->size(), s.lnz->size(), s.cflag->size()};
  const int width[10] = {4, 4, 4, 4, 4, 8, 8, 4, 8, 4};
  std::vector<std::size_t> length_at;
  std::size_t at = 4 + 16;
  for (int k = 0; k < 10; ++k) length_at.push_back(at), at += 4 + static_cast<std::size_t>(lens[k] * width[k]);
  ASSERT_EQ(at + 128 * 16 + 4 + 4, good.size());

  factorise(upper_ija(random_spd(9, 0.3, 6)));
  const SkeldaState kept = skelda_state;
  auto refused = [&](const std::string& file, const std::string& what) {
    write_file("fort.15", file);
    EXPECT_EQ(task(75, 15), 15) << what;
    EXPECT_TRUE(same_state(skelda_state, kept)) << what;
  };
  std::string other = good;
  other[4 + 5] = '1';  // "0.9.71"
  refused(other, "version");
  for (std::size_t cut = 0; cut < good.size(); ++cut) refused(good.substr(0, cut), "file cut at " + std::to_string(cut));
  for (std::size_t cut = 0; cut < body.size(); ++cut) refused(frame(body.substr(0, cut)), "record cut at " + std::to_string(cut));
  for (std::size_t k = 0; k < length_at.size(); ++k)
    for (std::size_t b = 0; b < 4; ++b) {
      std::string bad = good;
      bad[length_at[k] + b] = static_cast<char>(bad[length_at[k] + b] ^ 0x5a);
      refused(bad, "length " + std::to_string(k) + " byte " + std::to_string(b));
    }
  std::string bad_n = good;
  bad_n[at + 40 * 8] ^= 0x01;  // iparm(41), n
  refused(bad_n, "n");
  std::remove("fort.21");
  EXPECT_EQ(task(75, 21), 15);  // no such file

  // Objects: a changed length or index is refused as well.
  SkeldaSavedState o1 = obj, o2 = obj, o3 = obj;
  o1.lnz->resize(o1.lnz->size() - 1);
  std::swap((*o2.perm)(1), (*o2.perm)(2));
  (*o3.lindx)(1) = 100;
  for (const SkeldaSavedState* o : {&o1, &o2, &o3}) {
    EXPECT_EQ(task(73, const_cast<SkeldaSavedState*>(o)), 15);
    EXPECT_TRUE(same_state(skelda_state, kept));
  }
  write_file("fort.15", good);
  EXPECT_EQ(task(75, 15), 0);  // the undamaged file still loads
}

TEST_F(SkeldaStateFiles, UnitsThatCannotTakeTheStateAndMissingArguments) {
  factorise(upper_ija(random_spd(5, 0.5, 1)));
  ASSERT_TRUE(units.open(19, "formatted.txt", true, "replace"));
  *units.text(19) << "text";
  CaptureOutput cap;
  std::int32_t unit = 19, st = -1, verbose = 1;
  skeldatask(74, {.ival = &unit, .verbose = &verbose, .status = &st});
  EXPECT_EQ(st, 14);
  EXPECT_EQ(cap.text(), " SKELDATASK: [savef ] A trouble in saving the current state to file.\n");
  units.close(19);
  EXPECT_EQ(read_file("formatted.txt"), "text");
  EXPECT_FALSE(file_exists("fort.19"));
  for (std::int32_t bad : {0, -3}) {
    EXPECT_EQ(task(74, bad), 14);
    EXPECT_EQ(task(75, bad), 15);
    EXPECT_FALSE(file_exists("fort." + std::to_string(bad)));
  }
  for (int t : {71, 72, 73}) EXPECT_EQ(task(t, nullptr), 20) << t;
}
