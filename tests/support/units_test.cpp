#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "mmekit/support/units.hpp"

using namespace mmekit;
using mmekit::test::file_exists;
using mmekit::test::read_file;
using mmekit::test::write_file;

namespace {

struct CloseUnits {
  ~CloseUnits() {
    for (std::int32_t u = 0; u <= 40; ++u) units.close(u);
  }
};

// The framed form of one record, written out by hand: count, bytes, count.
std::string framed(const std::string& body) {
  const auto n = static_cast<std::uint32_t>(body.size());
  std::string c{static_cast<char>(n), static_cast<char>(n >> 8), static_cast<char>(n >> 16), static_cast<char>(n >> 24)};
  return c + body + c;
}

}  // namespace

TEST(Units, FileStatusesNumbersAndTheFreeUnit) {
  CloseUnits guard;
  std::remove("u_new.txt");
  EXPECT_FALSE(units.open(20, "u_new.txt", true, "old"));  // missing
  EXPECT_FALSE(units.is_open(20));
  EXPECT_TRUE(units.open(20, "u_new.txt", true, "new"));
  EXPECT_TRUE(units.is_open(20) && units.is_formatted(20));
  EXPECT_EQ(units.name(20), "u_new.txt");
  EXPECT_FALSE(units.open(20, "other.txt", false, "replace"));  // in use
  EXPECT_FALSE(units.open(-1, "neg.txt", false, "replace"));
  EXPECT_FALSE(units.open(21, "u_new.txt", true, "new"));      // exists now
  EXPECT_FALSE(units.open(21, "u_x.txt", true, "scratchy"));   // no such status
  EXPECT_EQ(units.text(21), nullptr);

  EXPECT_TRUE(units.open(10, "u10.bin", false, "replace"));
  EXPECT_TRUE(units.open(12, "u12.bin", false, "replace"));
  EXPECT_EQ(units.first_free(10, 1000), 11);
  EXPECT_EQ(units.first_free(12, 12), -1);
  EXPECT_EQ(units.first_free(20, 22), 21);
  EXPECT_FALSE(units.is_formatted(10));
  EXPECT_EQ(units.text(10), nullptr);

  // Formatted: written, rewound, read back.
  *units.text(20) << "line one\n42\n";
  ASSERT_TRUE(units.rewind(20));
  std::string word;
  int number = 0;
  *units.text(20) >> word >> word >> number;
  EXPECT_EQ(word, "one");
  EXPECT_EQ(number, 42);
  EXPECT_TRUE(units.close(20));
  EXPECT_FALSE(units.is_open(20));
  EXPECT_EQ(read_file("u_new.txt"), "line one\n42\n");

  // "old" keeps the contents; "replace" empties the file at once.
  write_file("u_keep.txt", "kept\n");
  ASSERT_TRUE(units.open(22, "u_keep.txt", true, "old"));
  units.close(22);
  EXPECT_EQ(read_file("u_keep.txt"), "kept\n");
  ASSERT_TRUE(units.open(22, "u_keep.txt", true, "replace"));
  units.close(22);
  EXPECT_EQ(read_file("u_keep.txt"), "");
}

TEST(Units, SequentialRecordsRewindAndWriteFailures) {
  CloseUnits guard;
  ASSERT_TRUE(units.open(30, "u30.bin", false, "replace"));
  const std::vector<std::int32_t> v{7, -1};
  ASSERT_TRUE(units.write_record(30, std::int32_t{5}, v));
  ASSERT_TRUE(units.write_record(30, 2.5));
  ASSERT_TRUE(units.flush(30));
  std::string two = std::string("\x05\0\0\0\x07\0\0\0\xff\xff\xff\xff", 12);
  double d = 2.5;
  EXPECT_EQ(read_file("u30.bin"), framed(two) + framed(std::string(reinterpret_cast<char*>(&d), 8)));

  // Reading starts at the first record; a third read meets the end.
  std::vector<unsigned char> rec;
  EXPECT_EQ(units.read_record(30, rec), FramedStatus::ok);
  EXPECT_EQ(rec.size(), 12u);
  double back = 0;
  EXPECT_EQ(units.read_record_parts(30, back), FramedStatus::ok);
  EXPECT_EQ(back, 2.5);
  EXPECT_EQ(units.read_record(30, rec), FramedStatus::end_of_file);

  // After a rewind the next record replaces the file from its start.
  units.rewind(30);
  ASSERT_TRUE(units.write_record(30, std::int32_t{9}));
  units.close(30);
  EXPECT_EQ(read_file("u30.bin"), framed(std::string("\x09\0\0\0", 4)));

  // A unit that is not open, or formatted, takes no record; a full device fails quietly.
  EXPECT_FALSE(units.write_record(31, std::int32_t{1}));
  ASSERT_TRUE(units.open(31, "u31.txt", true, "replace"));
  EXPECT_FALSE(units.write_record(31, std::int32_t{1}));
  EXPECT_EQ(units.read_record(31, rec), FramedStatus::end_of_file);
  if (file_exists("/dev/full")) {
    ASSERT_TRUE(units.open(32, "/dev/full", false, "old"));
    const bool wrote = units.write_record(32, std::vector<double>(1000, 1.0));
    EXPECT_FALSE(wrote && units.flush(32));
  }
}
