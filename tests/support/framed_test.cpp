#include <gtest/gtest.h>

#include <array>
#include <tuple>
#include <cstdint>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/support/array.hpp"
#include "mmekit/support/framed.hpp"

using namespace mmekit;
using mmekit::test::read_file;
using mmekit::test::write_file;

namespace {

// A run of bytes given by their values.
std::string bytes(std::initializer_list<int> v) {
  std::string b;
  for (int x : v) b += static_cast<char>(x);
  return b;
}

std::string text(const std::vector<unsigned char>& record) { return {record.begin(), record.end()}; }

FramedStatus first_record(const std::string& file) {
  write_file("bad.bin", file);
  FramedReader r("bad.bin");
  std::vector<unsigned char> rec;
  return r.read_bytes(rec);
}

struct LimitGuard {
  explicit LimitGuard(std::uint64_t n) { set_framed_piece_limit(n); }
  ~LimitGuard() { set_framed_piece_limit(); }
};

}  // namespace

TEST(Framed, MixedRecordsRoundTrip) {
  {
    FramedWriter w("mixed.bin");
    ASSERT_TRUE(w.is_open());
    w.write(std::int32_t{5}, 2.5, std::vector<float>{1.5f, -2.25f, 3.0f});
    w.write_bytes(nullptr, 0);
    Array1<std::int64_t> a(0, 2, 0);
    a(0) = -1;
    a(2) = std::int64_t{1} << 40;
    w.write(a);
  }
  {
    FramedWriter w("mixed.bin", true);  // appended
    w.write(std::int32_t{8});
  }
  const std::string file = read_file("mixed.bin");
  ASSERT_EQ(file.size(), (4 + 24 + 4) + (4 + 0 + 4) + (4 + 24 + 4) + (4 + 4 + 4));
  EXPECT_EQ(file.substr(0, 8), bytes({24, 0, 0, 0, 5, 0, 0, 0}));
  EXPECT_EQ(file.substr(28, 12), bytes({24, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));

  FramedReader r("mixed.bin");
  ASSERT_TRUE(r.is_open());
  for (int pass = 0; pass < 2; ++pass) {
    std::int32_t i = 0;
    double d = 0;
    std::vector<float> f(3);
    ASSERT_EQ(r.read(i, d, f), FramedStatus::ok);
    EXPECT_EQ(std::make_tuple(i, d, f), std::make_tuple(5, 2.5, std::vector<float>{1.5f, -2.25f, 3.0f}));
    std::vector<unsigned char> rec{9};
    ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
    EXPECT_TRUE(rec.empty());
    Array1<std::int64_t> a(3);
    ASSERT_EQ(r.read(a), FramedStatus::ok);
    EXPECT_EQ(a.vec(), (std::vector<std::int64_t>{-1, 0, std::int64_t{1} << 40}));
    ASSERT_EQ(r.read(i), FramedStatus::ok);
    EXPECT_EQ(i, 8);
    EXPECT_EQ(r.read_bytes(rec), FramedStatus::end_of_file);
    r.rewind();
  }
  // Fewer bytes than the parts ask for, and extra bytes skipped.
  std::int32_t i = 0;
  std::array<double, 4> four{};
  EXPECT_EQ(r.read(four), FramedStatus::short_record);
  EXPECT_EQ(r.read(four), FramedStatus::short_record);  // the empty record
  EXPECT_EQ(r.read(i), FramedStatus::ok);
  EXPECT_EQ(i, -1);  // low half of the first int64
  EXPECT_FALSE(FramedReader("no/such/file.bin").is_open() || FramedWriter("no/such/dir/file.bin").is_open());
}

TEST(Framed, LongRecordsAreSplitIntoMarkedPieces) {
  {
    LimitGuard limit(3);
    FramedWriter w("split.bin");
    w.write_bytes("ABCDEFG", 7);
    w.write_bytes("XYZ", 3);  // exactly the limit: one piece
    w.write(std::vector<char>{'a', 'b'}, std::vector<char>{'c', 'd', 'e', 'f'});  // parts across pieces
  }
  const int M = 0xFF, m3 = 0xFD;  // FD FF FF FF is -3, FF FF FF FF is -1
  EXPECT_EQ(read_file("split.bin"), bytes({m3, M, M, M, 'A', 'B', 'C', 3, 0, 0, 0, m3, M, M, M, 'D', 'E', 'F', m3, M, M, M,
                                           1, 0, 0, 0, 'G', M, M, M, M, 3, 0, 0, 0, 'X', 'Y', 'Z', 3, 0, 0, 0,
                                           m3, M, M, M, 'a', 'b', 'c', 3, 0, 0, 0, 3, 0, 0, 0, 'd', 'e', 'f', m3, M, M, M}));
  FramedReader r("split.bin");
  std::vector<unsigned char> rec;
  std::array<char, 2> head{};
  std::array<char, 5> a{};
  std::array<char, 1> b{};
  ASSERT_EQ(r.read(head), FramedStatus::ok);  // the other pieces are skipped
  ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
  ASSERT_EQ(r.read(a, b), FramedStatus::ok);
  EXPECT_EQ(std::string(head.begin(), head.end()) + text(rec) + std::string(a.begin(), a.end()) + b[0], "ABXYZabcdef");
  EXPECT_EQ(r.read_bytes(rec), FramedStatus::end_of_file);
  r.rewind();
  ASSERT_EQ(r.read_bytes(rec), FramedStatus::ok);
  EXPECT_EQ(text(rec), "ABCDEFG");
}

TEST(Framed, DamagedFilesAreBadFrames) {
  {
    LimitGuard limit(4);
    FramedWriter w("good.bin");
    w.write(std::int32_t{7}, std::int32_t{8});  // two pieces of 4 bytes
    w.write(std::int16_t{9});                  // one piece of 2 bytes
  }
  const std::string good = read_file("good.bin");
  ASSERT_EQ(good.size(), 24u + 10u);
  // Cuts of the file: end of file exactly at a record boundary, else a bad frame; read by whole
  // records and into parts.
  const FramedStatus ok = FramedStatus::ok, eof = FramedStatus::end_of_file, bad = FramedStatus::bad_frame;
  for (const auto& [cut, first, second] : {std::tuple{0, eof, eof}, {3, bad, bad}, {13, bad, bad}, {23, bad, bad},
                                           {24, ok, eof}, {27, ok, bad}, {33, ok, bad}, {34, ok, ok}}) {
    write_file("cut.bin", good.substr(0, static_cast<std::size_t>(cut)));
    FramedReader r("cut.bin"), r2("cut.bin");
    std::vector<unsigned char> rec;
    std::int32_t a = 0, b = 0;
    std::int16_t c = 0;
    EXPECT_EQ(r.read_bytes(rec), first) << cut;
    EXPECT_EQ(r2.read(a, b), first) << cut;
    if (first != ok) continue;
    EXPECT_EQ(rec.size(), 8u);
    EXPECT_EQ(r.read_bytes(rec), second) << cut;
    EXPECT_EQ(r2.read(c), second) << cut;
  }
  // Counts that do not match, the count with only the sign bit, a count beyond the file, a
  // continued record that ends with the file, and a continuation whose trailer is unsigned.
  const int M = 0xFF;
  for (const std::string& file : {bytes({2, 0, 0, 0, 1, 2, 3, 0, 0, 0}), bytes({2, 0, 0, 0, 1, 2, 0xFE, M, M, M}),
                                  bytes({0, 0, 0, 0x80, 0, 0, 0, 0x80}), bytes({0xF0, M, M, 0x7F, 1, 2, 3, 4}),
                                  bytes({M, M, M, M, 'a', 1, 0, 0, 0}),
                                  bytes({M, M, M, M, 'a', 1, 0, 0, 0, 1, 0, 0, 0, 'b', 1, 0, 0, 0})})
    EXPECT_EQ(first_record(file), FramedStatus::bad_frame);
  EXPECT_EQ(first_record(bytes({M, M, M, M, 'a', 1, 0, 0, 0, 1, 0, 0, 0, 'b', M, M, M, M})), FramedStatus::ok);
  FramedReader closed;
  std::vector<unsigned char> rec;
  EXPECT_EQ(closed.read_bytes(rec), FramedStatus::end_of_file);
}

TEST(Framed, WriteFailuresStop) {
  test::expect_stop([] { FramedWriter().write(1.0); }, " cannot write a record: no file is open");
  test::expect_stop([] {
    FramedWriter w("/dev/full");
    ASSERT_TRUE(w.is_open());
    w.write(1.0);
    w.close();  // the buffered bytes meet the full device
  }, " cannot write file /dev/full");
  test::expect_stop([] { FramedWriter("/dev/full").write(std::vector<unsigned char>(std::size_t{4} << 20)); },
                    " cannot write file /dev/full");  // larger than the buffer: written at once
}
