// The hash matrix and its locators: slot order, growth, element access, packing and sorting,
// failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/stop.hpp"
#include "mmekit/sparse/hashm.hpp"
#include "mmekit/support/output.hpp"
#include "sparse/test_helpers.hpp"

using namespace mmekit;
using mmekit::test::expect_stop;
using mmekit::test::run_to_stop;

namespace {

using Params = sparse_test::FreshParameters;

// The first three slots of the probe walk of the pair locator in a table of 8192 slots,
// computed outside this code base (arbitrary-precision arithmetic masked to 64 bits).
const std::map<std::pair<std::int64_t, std::int64_t>, std::array<std::int64_t, 3>> kPairSlots = {
    {{1, 1}, {978, 7232, 4836}},           {{1, 2}, {6435, 2073, 4030}},        {{2, 1}, {7751, 4780, 2857}},
    {{7, 123456}, {7438, 2996, 7943}},     {{100000, 2000000}, {7236, 130, 4346}},
    {{2147483647, 2147483647}, {707, 5776, 954}}};

}  // namespace

using HashSlots = Params;
using HashMatrix = Params;

TEST_F(HashSlots, PairLocatorFollowsTheMixingWalk) {
  for (const auto& [key, slots] : kPairSlots) {
    const double k[2] = {double(key.first), double(key.second)};
    EXPECT_EQ(hash_pair_first_slot(k, 8192), slots[0]);
    // An empty table: mode 1 stores the key in the first slot.
    Array2<double> t(3, 8192, 0.0);
    std::int64_t count = 0;
    EXPECT_EQ(hash_pair(k, t.data(), 8192, 3, 1, count), slots[0]);
    EXPECT_EQ(std::make_tuple(count, t(1, slots[0]), t(2, slots[0])), std::make_tuple(std::int64_t{1}, k[0], k[1]));
    // The first two slots of the walk taken by other keys: the key goes to the third, and is
    // found there again in modes 0 and 2 without being counted twice.
    Array2<double> u(3, 8192, 0.0);
    for (int s = 0; s < 2; ++s) {
      u(1, slots[s]) = 99999 - s;
      u(2, slots[s]) = 1;
    }
    EXPECT_EQ(hash_pair(k, u.data(), 8192, 3, 1, count), slots[2]);
    EXPECT_EQ(hash_pair(k, u.data(), 8192, 3, 0, count), slots[2]);
    EXPECT_EQ(hash_pair(k, u.data(), 8192, 3, 2, count), slots[2]);
    EXPECT_EQ(count, 2);
  }
  // A larger table uses more bits of the same state (also computed outside).
  const double big[2] = {2147483647, 2147483647};
  EXPECT_EQ(hash_pair_first_slot(big, 1 << 20), 393923);
}

TEST_F(HashSlots, ModesAndProbeLimitOfThePairLocator) {
  // In 16 slots the first slot is the one of 8192 slots modulo 16: (6435 - 1) mod 16 + 1 = 3.
  Array2<double> t(3, 16, 0.0);
  std::int64_t count = 0;
  const double k[2] = {1, 2};
  EXPECT_EQ(hash_pair(k, t.data(), 16, 3, 0, count), 0);  // search: absent
  EXPECT_EQ(hash_pair(k, t.data(), 16, 3, 7, count), 3);  // other mode: the empty slot
  EXPECT_EQ(std::make_tuple(t(1, 3), count), std::make_tuple(0.0, std::int64_t{0}));  // nothing written
  // A stored index is read by truncation: 1.75 reads as 1, 2.2 as 2.
  t(1, 3) = 1.75;
  t(2, 3) = 2.2;
  EXPECT_EQ(hash_pair(k, t.data(), 16, 3, 0, count), 3);
  // A full table without the key: 5000 probes, the message, and -1.
  Array2<double> full(3, 4, 0.0);
  for (int s = 1; s <= 4; ++s) {
    full(1, s) = 100 + s;
    full(2, s) = 1;
  }
  CaptureOutput cap;
  EXPECT_EQ(hash_pair(k, full.data(), 4, 3, 1, count), -1);
  EXPECT_EQ(std::make_tuple(cap.text(), count), std::make_tuple("Pb 5000 collisions\n", std::int64_t{0}));
}

TEST_F(HashSlots, VectorLocators) {
  // First slots computed outside this code base, tables of 8192 and of 65536 slots.
  struct Case {
    std::vector<double> key;
    std::int64_t s8192, s65536;
  };
  const Case cases[] = {{{5}, 739, 49891},          {{5, 9}, 3774, 28350},          {{1, 2, 3}, 6706, 64050},
                        {{1, 2, 3, 4}, 5718, 38486}, {{1, 2, 3, 4, 5}, 5742, 63086}, {{9, 9, 9, 1, 2, 3, 4}, 5718, 38486},
                        {{4, 5, 6, 7, 8, 9}, 5034, 62378}};
  for (const Case& c : cases) {
    const auto nk = static_cast<std::int64_t>(c.key.size());
    for (auto [size, want] : {std::pair<std::int64_t, std::int64_t>{8192, c.s8192}, {65536, c.s65536}}) {
      Array2<double> t(nk, size, 0.0);
      std::int64_t count = 0;
      EXPECT_EQ(hash_vector(c.key.data(), nk, t.data(), size, nk, 1, count), want);
      EXPECT_EQ(hash_vector(c.key.data(), nk, t.data(), size, nk, 0, count), want);
      EXPECT_EQ(count, 1);
    }
  }
  // Only the last full group and the rest count: keys differing in the first group of six
  // positions meet in one slot, and the second to come walks on.
  const double k1[6] = {1, 1, 1, 7, 8, 9}, k2[6] = {2, 3, 4, 7, 8, 9};
  Array2<double> t(6, 1024, 0.0);
  std::int64_t count = 0;
  const auto s1 = hash_vector(k1, 6, t.data(), 1024, 6, 2, count);
  EXPECT_EQ(hash_vector(k2, 6, t.data(), 1024, 6, 2, count), s1);
  EXPECT_EQ(hash_vector(k1, 6, t.data(), 1024, 6, 1, count), s1);
  const auto s2 = hash_vector(k2, 6, t.data(), 1024, 6, 1, count);
  EXPECT_TRUE(s2 > 0 && s2 != s1 && count == 2) << s2 << " " << count;
  // Extra rows of the table (data behind the key) are not part of the key.
  const double k[2] = {4, 4};
  Array2<double> d(5, 64, 0.0);
  const auto s = hash_vector(k, 2, d.data(), 64, 5, 1, count);
  d(3, s) = 42;
  EXPECT_EQ(hash_vector(k, 2, d.data(), 64, 5, 0, count), s);
  // The probe limit: -1 without a message.
  const double k3[3] = {1, 2, 3};
  Array2<double> full(3, 2, 1.0);
  CaptureOutput cap;
  EXPECT_EQ(hash_vector(k3, 3, full.data(), 2, 3, 1, count), -1);
  EXPECT_EQ(cap.text(), "");
}

TEST_F(HashSlots, PrimeWeightedLocators) {
  // 5813*3 + 1039*7 = 24712; 24712 mod 5000 = 4712: slot 4713.
  Array2<double> t(2, 5000, 0.0);
  std::int32_t count = 0;
  const double k1[2] = {3, 7};
  EXPECT_EQ(hash_prime_real(k1, 2, t.data(), 5000, 2, 1, count), 4713);
  // (3, 5007) has the same first slot (1039 * 5000 = 0 mod 5000), taken: a stride of 16 on.
  const double k2[2] = {3, 5007};
  EXPECT_EQ(hash_prime_real(k2, 2, t.data(), 5000, 2, 1, count), (4713 + 16) % 5000 + 1);
  EXPECT_EQ(count, 2);
  // A negative sum keeps its sign in the remainder; the slot is |r| + 1.
  const double k3[2] = {-3, 1};  // -17439 + 1039 = -16400 -> -1400
  EXPECT_EQ(hash_prime_real(k3, 2, t.data(), 5000, 2, 0, count), 0);
  EXPECT_EQ(hash_prime_real(k3, 2, t.data(), 5000, 2, 2, count), 1401);
  // The truncation after every term: 5813 * 0.5 = 2906.5 -> 2906; + 1039 * 1 = 3945.
  const double k4[2] = {0.5, 1};
  EXPECT_EQ(hash_prime_real(k4, 2, t.data(), 5000, 2, 2, count), 3946);
  Array2<double> f(2, 3, 9.0);
  EXPECT_EQ(hash_prime_real(k1, 2, f.data(), 3, 2, 1, count), -1);

  // Integer weights 5813, 1039, 6679: 5813 + 2078 + 20037 = 27928 -> slot 929 of 1000.
  Array2<std::int32_t> ti(3, 1000, 0);
  const std::int32_t ki[3] = {1, 2, 3};
  std::int32_t ci = 0;
  EXPECT_EQ(hash_prime_int(ki, 3, ti.data(), 1000, 3, 1, ci), 929);
  EXPECT_EQ(std::make_tuple(ci, ti(3, 929)), std::make_tuple(1, 3));
  // 32-bit wrap-around: 5813 * 2^30 mod 2^32 = 2^30 (5813 mod 4 = 1), and 2^30 mod 1000 = 824.
  const std::int32_t kw[1] = {1 << 30};
  EXPECT_EQ(hash_prime_int(kw, 1, ti.data(), 1000, 3, 2, ci), 825);
  // A full table: more than 10000 probes stop the run.
  Array2<std::int32_t> fi(1, 4, 7);
  expect_stop([&] { hash_prime_int(ki, 1, fi.data(), 4, 1, 1, ci); }, "hash table search too slow");
}

TEST_F(HashMatrix, InitialisationAndParameterCoupling) {
  // The mixing hash sets its own growth pair and rounds the size up to a power of two.
  for (auto [asked, got] : {std::pair<std::int64_t, std::int64_t>{0, 8192}, {8192, 8192}, {8193, 16384}, {100, 128}}) {
    sparse_hashm b;
    if (asked) init_sparse_hashm(b, 11, asked);
    else init_sparse_hashm(b, 11);
    EXPECT_EQ(std::make_tuple(b.hash_size, b.x.cols(), b.status, b.storage), std::make_tuple(got, got, 1, 'u'));
  }
  // Another hash type finds that pair until the parameters are reset. The prime-weighted hash
  // keeps the size asked for, or the default size, and its own growth pair.
  sparse_param.hash_type = 1;
  sparse_hashm q, c, d;
  init_sparse_hashm(q, 10, 100);
  EXPECT_EQ(q.hash_size, 128);
  reset_sparse_parameters();
  sparse_param.hash_type = 1;
  init_sparse_hashm(c, 4, 5001, 'f');
  init_sparse_hashm(d, 4);
  EXPECT_EQ(std::make_tuple(c.hash_size, c.storage, d.hash_size), std::make_tuple(5001, 'f', 5000));

  // A second init with the same order clears the elements and keeps the array; another
  // order allocates anew; a larger size than the kept array enlarges it.
  reset_sparse_parameters();
  sparse_hashm e;
  init_sparse_hashm(e, 5);
  addm_sparse_hashm(2.0, 1, 2, e);
  const double* before = e.x.data();
  init_sparse_hashm(e, 5, std::nullopt, 'f');
  EXPECT_EQ(e.x.data(), before);
  EXPECT_EQ(std::make_tuple(e.nel, e.storage, getm_sparse_hashm(1, 2, e)), std::make_tuple(std::int64_t{0}, 'f', 0.0));
  addm_sparse_hashm(2.0, 1, 2, e);
  init_sparse_hashm(e, 6);
  EXPECT_EQ(std::make_tuple(e.nel, e.storage, getm_sparse_hashm(1, 2, e)), std::make_tuple(std::int64_t{0}, 'u', 0.0));
  init_sparse_hashm(e, 6, 20000);
  EXPECT_TRUE(e.hash_size == 32768 && e.x.cols() >= 32768) << e.hash_size;
  reset_sparse_hashm(e);
  EXPECT_TRUE(e.n == 0 && e.hash_size == 0 && e.status == 0 && !e.allocated());

  // A large table (on a mapping of its own) starts empty, copies and clears like a small one.
  sparse_hashm big, big2;
  init_sparse_hashm(big, 7, std::int64_t{1} << 18);
  EXPECT_TRUE(std::all_of(big.x.data(), big.x.data() + big.x.size(), [](double v) { return v == 0.0; }));
  addm_sparse_hashm(4.0, 3, 7, big);
  copy_sparse_hashm(big2, big);
  EXPECT_EQ(getm_sparse_hashm(3, 7, big2), 4.0);
  init_sparse_hashm(big, 7);
  EXPECT_EQ(getm_sparse_hashm(3, 7, big), 0.0);
}

TEST_F(HashMatrix, GrowthAtTheFillLimitKeepsEverySum) {
  sparse_hashm a = sparse_test::hash_with(100000, {});
  std::map<std::pair<int, int>, double> ref;
  std::mt19937 gen(7);
  std::uniform_int_distribution<int> idx(1, 100000);
  auto add = [&](double v, int i, int j) {
    if (j < i) std::swap(i, j);
    addm_sparse_hashm(v, i, j, a);
    ref[{i, j}] += v;
  };
  add(0.0, 1, 1);  // a zero is an element, and survives the growths
  CaptureOutput cap;
  while (a.nel < 6553) {
    const int i = idx(gen), j = idx(gen);
    add((i % 13) + 0.25, i, j);
    add(1.0, i, j);
  }
  EXPECT_EQ(std::make_tuple(a.hash_size, cap.text()), std::make_tuple(8192, ""));
  // The add that makes nel 6554, above 0.8 * 8192, grows the table.
  int j = 2;
  while (ref.count({1, j})) ++j;
  add(5.5, 1, j);
  EXPECT_EQ(cap.text(), "hash matrix increased from            8192 to           16384 % filled:     0.8000\n");
  EXPECT_EQ(std::make_tuple(a.hash_size, a.nel), std::make_tuple(16384, 6554));
  while (a.nel < 20000) add(1.0, idx(gen), idx(gen));
  EXPECT_EQ(std::make_tuple(a.hash_size, a.nel), std::make_tuple(32768, static_cast<std::int64_t>(ref.size())));
  for (const auto& [key, v] : ref) ASSERT_EQ(getm_sparse_hashm(key.first, key.second, a), v);
  const double k11[2] = {1, 1};
  std::int64_t cnt = 0;
  EXPECT_GT(hash_pair(k11, a.x.data(), a.hash_size, 3, 0, cnt), 0);
}

TEST_F(HashMatrix, TrianglesAndThePrimeWeightedHash) {
  sparse_hashm u = sparse_test::hash_with(5, {{4, 2, 3.0}});  // lower triangle of an upper matrix: dropped
  EXPECT_EQ(u.nel, 0);
  addm_sparse_hashm(3.0, 2, 4, u);
  double r = -1;
  getm_sparse_hashm(5, 5, u, r);
  EXPECT_EQ(std::make_tuple(getm_sparse_hashm(2, 4, u), getm_sparse_hashm(4, 2, u), r), std::make_tuple(3.0, 0.0, 0.0));
  setm_sparse_hashm(7.0, 2, 4, u);
  setm_sparse_hashm(9.0, 4, 2, u);  // dropped
  setm_sparse_hashm(1.0, 1, 5, u);
  EXPECT_EQ(std::make_tuple(getm_sparse_hashm(2, 4, u), u.nel), std::make_tuple(7.0, std::int64_t{2}));

  const sparse_hashm f = sparse_test::hash_with(5, {{4, 2, 3.0}}, 'f');
  EXPECT_EQ(std::make_tuple(f.nel, getm_sparse_hashm(4, 2, f), getm_sparse_hashm(2, 4, f)),
            std::make_tuple(std::int64_t{1}, 3.0, 0.0));

  // The prime-weighted hash behind the same operations, with its 1.5 growth at 0.9.
  reset_sparse_parameters();
  sparse_param.hash_type = 1;
  sparse_hashm p;
  init_sparse_hashm(p, 1000, 100);
  CaptureOutput cap;
  for (int i = 1; i <= 60; ++i)
    for (int j = i; j <= i + 2; ++j) addm_sparse_hashm(i * 0.5 + j, i, j, p);
  // 100 slots grow at the 90th element to 150 (90/100 exceeds the r4 limit 0.89999998), and
  // at the 135th to 225.
  EXPECT_EQ(cap.text(),
            "hash matrix increased from             100 to             150 % filled:     0.9000\n"
            "hash matrix increased from             150 to             225 % filled:     0.9000\n");
  EXPECT_EQ(std::make_tuple(p.hash_size, p.nel), std::make_tuple(225, 180));
  for (int i = 1; i <= 60; ++i)
    for (int j = i; j <= i + 2; ++j) ASSERT_EQ(getm_sparse_hashm(i, j, p), i * 0.5 + j) << i << " " << j;
}

TEST_F(HashMatrix, SortedMatrixCopyAndFailures) {
  sparse_hashm a = sparse_test::hash_with(4, {{4, 4, 4.0}, {2, 4, 0.0}, {1, 3, 2.0}, {1, 1, 1.0}});
  // Sorted: columns 1..nel, (row, column, value) each, in row-major key order; then empty ones.
  sort_sparse_hashm(a);
  EXPECT_EQ(a.status, 2);
  EXPECT_EQ(std::vector<double>(a.x.data(), a.x.data() + 13), (std::vector<double>{1, 1, 1, 1, 3, 2, 2, 4, 0, 4, 4, 4, 0}));
  // The copy of a sorted matrix is a fresh table that takes additions; it has the diagonal of
  // every row, as the row form it passes through does.
  sparse_hashm c2;
  copy_sparse_hashm(c2, a);
  EXPECT_EQ(std::make_tuple(c2.status, c2.nel), std::make_tuple(1, 6));
  addm_sparse_hashm(1.0, 1, 3, c2);
  EXPECT_EQ(std::make_tuple(getm_sparse_hashm(1, 3, c2), getm_sparse_hashm(4, 4, c2)), std::make_tuple(3.0, 4.0));

  sparse_hashm empty, f = sparse_test::hash_with(2, {{2, 1, 1.0}}, 'f'), z = sparse_test::hash_with(3, {});
  sort_sparse_hashm(f);
  Array2<double> x(3, 4, 1.0);
  const std::int32_t bad_key[2] = {1, 4};
  const std::pair<std::function<void()>, std::string> stops[] = {
      {[&] { addm_sparse_hashm(1.0, 1, 1, a); }, "Structure sparse_hashm not ready; probably destroyed by solving"},
      {[&] { setm_sparse_hashm(1.0, 1, 1, a); }, "Structure sparse_hashm not ready; probably sorted"},
      {[&] { getm_sparse_hashm(1, 1, a); }, "Structure sparse_hashm not ready; probably sorted"},
      {[&] { copy_sparse_hashm(c2, empty); }, "sparse_hashm matrix empty"},
      {[&] { copy_sparse_hashm(c2, f); }, "CONVERT_HASH_IJA: not yet implemented for full-stored hash matrix"},
      {[&] { addm_sparse_hashm(1.0, 0, 2, z); }, "sparse_hashm: index below 1: 0 2"},
      {[&] { sort_hashm(x.data(), 4, 3, bad_key, 4); }, "sort_hashm: key row outside the table: 4"}};
  for (const auto& [call, message] : stops) expect_stop(call, message);

  // setm finds no place in a full table: the locator's message, then the stop; a get answers
  // 0.0 after the message, and an add grows the table.
  sparse_hashm s;
  init_sparse_hashm(s, 10, 4);
  for (int j = 1; j <= 4; ++j) setm_sparse_hashm(1.0, 1, j, s);
  EXPECT_EQ(run_to_stop([&] { setm_sparse_hashm(1.0, 2, 2, s); }).printed,
            "Pb 5000 collisions\nhash matrix too small\n");
  CaptureOutput cap;
  EXPECT_EQ(getm_sparse_hashm(2, 2, s), 0.0);
  addm_sparse_hashm(1.0, 2, 2, s);
  EXPECT_EQ(cap.text(),
            "Pb 5000 collisions\nPb 5000 collisions\n"
            "hash matrix increased from               4 to               8 % filled:     1.0000\n");
  EXPECT_EQ(std::make_tuple(getm_sparse_hashm(2, 2, s), s.nel), std::make_tuple(1.0, 5));

  // A growth factor that does not enlarge the table is refused.
  reset_sparse_parameters();
  sparse_param.hash_type = 1;
  sparse_param.hash_grow = 0.5f;
  sparse_hashm g;
  init_sparse_hashm(g, 10, 5);
  for (int j = 1; j <= 4; ++j) addm_sparse_hashm(1.0, 1, j, g);
  expect_stop([&] { addm_sparse_hashm(1.0, 1, 5, g); }, "hash matrix: indices overflow 2");
  sparse_param.hash_grow = 1.0f;
  expect_stop([&] { addm_sparse_hashm(1.0, 1, 5, g); }, "hash matrix: indices overflow 5");
}

TEST(HashSort, PackAndSortKeepEveryElement) {
  std::mt19937 gen(11);
  for (int trial : {0, 1}) {
    // Trial 1 has many equal keys and a sorted run.
    const std::int64_t size = 4096;
    Array2<double> x(3, size, 0.0);
    std::vector<std::array<double, 3>> elems;
    std::uniform_int_distribution<int> idx(1, trial == 0 ? 50 : 3);
    for (std::int64_t k = 1; k <= size; ++k) {
      if (gen() % 3 != 0) continue;
      const double i = trial == 1 && k < 2000 ? 1 + k / 100 : idx(gen);
      const double j = idx(gen) + 0.5;  // a stored column reads truncated
      elems.push_back({x(1, k) = i, x(2, k) = j, x(3, k) = static_cast<double>(k)});
    }
    const auto nel = static_cast<std::int64_t>(elems.size());
    pack_hashm(x.data(), size, 3, nel);
    for (std::int64_t k = nel + 1; k <= size; ++k) ASSERT_EQ(x(1, k), 0.0);
    const std::int32_t keys[2] = {1, 2};
    sort_hashm(x.data(), size, 3, keys, nel);
    std::vector<std::array<double, 3>> got;
    for (std::int64_t k = 1; k <= nel; ++k) got.push_back({x(1, k), x(2, k), x(3, k)});
    const auto key = [](const std::array<double, 3>& e) { return std::pair{std::int64_t(e[0]), std::int64_t(e[1])}; };
    EXPECT_TRUE(std::is_sorted(got.begin(), got.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); }));
    std::sort(got.begin(), got.end());
    std::sort(elems.begin(), elems.end());
    EXPECT_EQ(got, elems);
  }
}
