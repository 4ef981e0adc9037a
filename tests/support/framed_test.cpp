#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "mmekit/support/array.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

#include "support/test_helpers.hpp"

using namespace mmekit;
using support_test::expect_stop;

namespace {

std::vector<unsigned char> file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void put_file(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<unsigned char> bytes_of(std::initializer_list<int> v) {
  std::vector<unsigned char> b;
  for (int x : v) b.push_back(static_cast<unsigned char>(x));
  return b;
}

void append(std::vector<unsigned char>& a, const std::vector<unsigned char>& b) { a.insert(a.end(), b.begin(), b.end()); }

struct LimitGuard {
  explicit LimitGuard(std::uint64_t n) { set_framed_piece_limit(n); }
  ~LimitGuard() { set_framed_piece_limit(); }
};

}  // namespace

TEST(Framed, MixedRecordsRoundTrip) {
  {
    FramedWriter w("mixed.bin");
    ASSERT_TRUE(w.is_open());
    std::vector<float> f{1.5f, -2.25f, 3.0f};
    w.write(std::int32_t{5}, 2.5, f);
    w.write_bytes(nullptr, 0);
    Array1<std::int64_t> a(0, 2, 0);
    a(0) = -1;
    a(2) = std::int64_t{1} << 40;
    w.write(a);
    w.close();
  }
  // The first record by hand: 4 + 8 + 12 = 24 bytes.
  std::vector<unsigned char> bytes = file_bytes("mixed.bin");
  ASSERT_EQ(bytes.size(), (4 + 24 + 4) + (4 + 0 + 4) + (4 + 24 + 4));
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 8), bytes_of({24, 0, 0, 0, 5, 0, 0, 0}));
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 28, bytes.begin() + 40), bytes_of({24, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));

  FramedReader r("mixed.bin");
  ASSERT_TRUE(r.is_open());
  for (int pass = 0; pass < 2; ++pass) {
    std::int32_t i = 0;
    double d = 0;
    std::vector<float> f(3);
    ASSERT_EQ(r.read(i, d, f), FramedStatus::ok);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(f, (std::vector<float>{1.5f, -2.25f, 3.0f}));
    std::vector<unsigned char> rec{9};
    ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
    EXPECT_TRUE(rec.empty());
    Array1<std::int64_t> a(3);
    ASSERT_EQ(r.read(a), FramedStatus::ok);
    EXPECT_EQ(a(1), -1);
    EXPECT_EQ(a(2), 0);
    EXPECT_EQ(a(3), std::int64_t{1} << 40);
    EXPECT_EQ(r.read_bytes(rec), FramedStatus::end_of_file);
    r.rewind();
  }
  // Fewer bytes than the parts ask for, and extra bytes skipped.
  std::int32_t i = 0;
  std::array<double, 4> four{};
  EXPECT_EQ(r.read(four), FramedStatus::short_record);
  std::vector<unsigned char> empty;
  ASSERT_EQ(r.read_bytes(empty), FramedStatus::ok);  // the empty record
  EXPECT_EQ(r.read(i), FramedStatus::ok);
  EXPECT_EQ(i, -1);  // low half of the first int64
  EXPECT_EQ(r.read(i), FramedStatus::end_of_file);
}

TEST(Framed, AppendAddsRecords) {
  {
    FramedWriter w("append.bin");
    w.write(std::int32_t{1});
  }
  {
    FramedWriter w("append.bin", true);
    w.write(std::int32_t{2});
  }
  FramedReader r("append.bin");
  std::int32_t a = 0, b = 0;
  EXPECT_EQ(r.read(a), FramedStatus::ok);
  EXPECT_EQ(r.read(b), FramedStatus::ok);
  EXPECT_EQ(a + 10 * b, 21);
  EXPECT_FALSE(FramedReader("no/such/file.bin").is_open());
  EXPECT_FALSE(FramedWriter("no/such/dir/file.bin").is_open());
}

TEST(Framed, LongRecordsAreSplitIntoMarkedPieces) {
  {
    LimitGuard limit(3);
    FramedWriter w("split.bin");
    const char text[] = "ABCDEFG";
    w.write_bytes(text, 7);
    w.write_bytes("XYZ", 3);  // exactly the limit: one piece
    // Parts that straddle the pieces.
    std::vector<char> p1{'a', 'b'};
    std::vector<char> p2{'c', 'd', 'e', 'f'};
    w.write(p1, p2);
  }
  std::vector<unsigned char> expect;
  append(expect, bytes_of({0xFD, 0xFF, 0xFF, 0xFF, 'A', 'B', 'C', 3, 0, 0, 0}));
  append(expect, bytes_of({0xFD, 0xFF, 0xFF, 0xFF, 'D', 'E', 'F', 0xFD, 0xFF, 0xFF, 0xFF}));
  append(expect, bytes_of({1, 0, 0, 0, 'G', 0xFF, 0xFF, 0xFF, 0xFF}));
  append(expect, bytes_of({3, 0, 0, 0, 'X', 'Y', 'Z', 3, 0, 0, 0}));
  append(expect, bytes_of({0xFD, 0xFF, 0xFF, 0xFF, 'a', 'b', 'c', 3, 0, 0, 0}));
  append(expect, bytes_of({3, 0, 0, 0, 'd', 'e', 'f', 0xFD, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(file_bytes("split.bin"), expect);

  FramedReader r("split.bin");
  std::vector<unsigned char> rec;
  ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
  EXPECT_EQ(std::string(rec.begin(), rec.end()), "ABCDEFG");
  ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
  EXPECT_EQ(std::string(rec.begin(), rec.end()), "XYZ");
  std::array<char, 5> a{};
  std::array<char, 1> b{};
  ASSERT_EQ(r.read(a, b), FramedStatus::ok);
  EXPECT_EQ(std::string(a.begin(), a.end()) + b[0], "abcdef");
  EXPECT_EQ(r.read_bytes(rec), FramedStatus::end_of_file);
  r.rewind();
  std::array<char, 2> head{};
  ASSERT_EQ(r.read(head), FramedStatus::ok);  // the other pieces are skipped
  ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
  EXPECT_EQ(std::string(rec.begin(), rec.end()), "XYZ");
}

TEST(Framed, DamagedFilesAreBadFrames) {
  {
    LimitGuard limit(4);
    FramedWriter w("good.bin");
    w.write(std::int32_t{7}, std::int32_t{8});  // two pieces of 4 bytes
    w.write(std::int16_t{9});                  // one piece of 2 bytes
  }
  const std::vector<unsigned char> good = file_bytes("good.bin");
  ASSERT_EQ(good.size(), 24u + 10u);
  // Every cut of the file: whole records read, then end of file exactly at a record boundary,
  // else a bad frame.
  for (std::size_t cut = 0; cut <= good.size(); ++cut) {
    put_file("cut.bin", std::vector<unsigned char>(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut)));
    FramedReader r("cut.bin");
    std::vector<unsigned char> rec;
    FramedStatus s1 = r.read_bytes(rec);
    if (cut == 0) {
      EXPECT_EQ(s1, FramedStatus::end_of_file);
      continue;
    }
    if (cut < 24) {
      EXPECT_EQ(s1, FramedStatus::bad_frame) << cut;
      continue;
    }
    EXPECT_EQ(s1, FramedStatus::ok);
    EXPECT_EQ(rec.size(), 8u);
    FramedStatus s2 = r.read_bytes(rec);
    EXPECT_EQ(s2, cut == 24 ? FramedStatus::end_of_file
                  : cut == good.size() ? FramedStatus::ok : FramedStatus::bad_frame) << cut;
    // The same through read() into parts.
    FramedReader r2("cut.bin");
    std::int32_t a = 0, b = 0;
    std::int16_t c = 0;
    EXPECT_EQ(r2.read(a, b), FramedStatus::ok);
    EXPECT_EQ(r2.read(c), cut == 24 ? FramedStatus::end_of_file
                          : cut == good.size() ? FramedStatus::ok : FramedStatus::bad_frame) << cut;
  }
  // Counts that do not match, the count with only the sign bit, and a count beyond the file.
  auto status_of = [](const std::vector<unsigned char>& bytes) {
    put_file("bad.bin", bytes);
    FramedReader r("bad.bin");
    std::vector<unsigned char> rec;
    return r.read_bytes(rec);
  };
  EXPECT_EQ(status_of(bytes_of({2, 0, 0, 0, 1, 2, 3, 0, 0, 0})), FramedStatus::bad_frame);
  EXPECT_EQ(status_of(bytes_of({2, 0, 0, 0, 1, 2, 0xFE, 0xFF, 0xFF, 0xFF})), FramedStatus::bad_frame);
  EXPECT_EQ(status_of(bytes_of({0, 0, 0, 0x80, 0, 0, 0, 0x80})), FramedStatus::bad_frame);
  EXPECT_EQ(status_of(bytes_of({0xF0, 0xFF, 0xFF, 0x7F, 1, 2, 3, 4})), FramedStatus::bad_frame);
  // A continued record that ends with the file, and a continuation whose trailer is unsigned.
  EXPECT_EQ(status_of(bytes_of({0xFF, 0xFF, 0xFF, 0xFF, 'a', 1, 0, 0, 0})), FramedStatus::bad_frame);
  EXPECT_EQ(status_of(bytes_of({0xFF, 0xFF, 0xFF, 0xFF, 'a', 1, 0, 0, 0, 1, 0, 0, 0, 'b', 1, 0, 0, 0})),
            FramedStatus::bad_frame);
  EXPECT_EQ(status_of(bytes_of({0xFF, 0xFF, 0xFF, 0xFF, 'a', 1, 0, 0, 0, 1, 0, 0, 0, 'b', 0xFF, 0xFF, 0xFF, 0xFF})),
            FramedStatus::ok);
  FramedReader closed;
  std::vector<unsigned char> rec;
  EXPECT_EQ(closed.read_bytes(rec), FramedStatus::end_of_file);
}

TEST(Framed, WriteFailuresStop) {
  expect_stop([] {
    FramedWriter w;
    w.write(1.0);
  }, " cannot write a record: no file is open");
  expect_stop([] {
    FramedWriter w("/dev/full");
    ASSERT_TRUE(w.is_open());
    w.write(1.0);
    w.close();  // the buffered bytes meet the full device
  }, " cannot write file /dev/full");
  expect_stop([] {
    FramedWriter w("/dev/full");
    std::vector<unsigned char> big(std::size_t{4} << 20);
    w.write(big);  // larger than the buffer: written at once
  }, " cannot write file /dev/full");
}

TEST(Framed, RecordOverTwoGigabytes) {
  const char* big = std::getenv("MMEKIT_BIG_TESTS");
  if (!big || std::string(big) != "1") GTEST_SKIP() << "set MMEKIT_BIG_TESTS=1 to write a 2 GiB record";
  const std::uint64_t n = framed_piece_max + 1001;  // two pieces: the largest one and 1001 bytes
  auto pattern = [](std::uint64_t i) { return static_cast<unsigned char>((i * 2654435761u) >> 13); };
  std::vector<unsigned char> data(n);
  for (std::uint64_t i = 0; i < n; ++i) data[i] = pattern(i);
  {
    FramedWriter w("big.bin");
    w.write(std::int32_t{42}, data);
    w.write(std::int32_t{43});
  }
  std::uint64_t total = n + 4;
  std::ifstream in("big.bin", std::ios::binary | std::ios::ate);
  EXPECT_EQ(static_cast<std::uint64_t>(in.tellg()), total + 16 + 12);
  auto count_at = [&](std::uint64_t pos) {
    unsigned char b[4];
    in.seekg(static_cast<std::streamoff>(pos));
    in.read(reinterpret_cast<char*>(b), 4);
    return static_cast<std::int32_t>(std::uint32_t(b[0]) | std::uint32_t(b[1]) << 8 |
                                     std::uint32_t(b[2]) << 16 | std::uint32_t(b[3]) << 24);
  };
  const auto max = static_cast<std::int32_t>(framed_piece_max);
  const auto rest = static_cast<std::int32_t>(total - framed_piece_max);
  EXPECT_EQ(count_at(0), -max);
  EXPECT_EQ(count_at(4 + framed_piece_max), max);
  EXPECT_EQ(count_at(8 + framed_piece_max), rest);
  EXPECT_EQ(count_at(12 + framed_piece_max + static_cast<std::uint64_t>(rest)), -rest);

  std::fill(data.begin(), data.end(), 0);
  FramedReader r("big.bin");
  std::int32_t tag = 0;
  ASSERT_EQ(r.read(tag, data), FramedStatus::ok);
  EXPECT_EQ(tag, 42);
  std::uint64_t wrong = 0;
  for (std::uint64_t i = 0; i < n; ++i) wrong += data[i] != pattern(i);
  EXPECT_EQ(wrong, 0u);
  ASSERT_EQ(r.read(tag), FramedStatus::ok);
  EXPECT_EQ(tag, 43);
  r.close();
  std::remove("big.bin");
}
