#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "common/files.hpp"
#include "mmekit/support/units.hpp"

using namespace mmekit;
using mmekit::test::read_file;
using mmekit::test::write_file;

namespace {
// The framed form of one record, by hand: count, bytes, count.
std::string framed(const std::string& body) {
  const auto n = static_cast<std::uint32_t>(body.size());
  const std::string c{static_cast<char>(n), static_cast<char>(n >> 8), static_cast<char>(n >> 16), static_cast<char>(n >> 24)};
  return c + body + c;
}
}  // namespace

TEST(Units, StatusesNumbersFreeUnitsAndTextFiles) {
  std::remove("u_new.txt");
  write_file("u_keep.txt", "kept\n");
  EXPECT_FALSE(units.open(20, "u_new.txt", true, "old"));  // missing
  ASSERT_TRUE(units.open(20, "u_new.txt", true, "new"));
  EXPECT_TRUE(units.is_formatted(20) && units.name(20) == "u_new.txt");
  EXPECT_FALSE(units.open(20, "other.txt", false, "replace"));  // in use
  EXPECT_FALSE(units.open(-1, "neg.txt", false, "replace"));
  EXPECT_FALSE(units.open(21, "u_new.txt", true, "new"));  // exists now
  ASSERT_TRUE(units.open(10, "u_keep.txt", false, "old"));
  ASSERT_TRUE(units.open(12, "u12.bin", false, "replace"));
  EXPECT_EQ(units.first_free(10, 1000), 11);
  EXPECT_EQ(units.first_free(12, 12), -1);
  EXPECT_FALSE(units.is_formatted(10));
  EXPECT_EQ(units.text(10), nullptr);
  *units.text(20) << "line one\n42\n";
  ASSERT_TRUE(units.rewind(20));
  std::string word;
  int number = 0;
  *units.text(20) >> word >> word >> number;
  EXPECT_EQ(word + std::to_string(number), "one42");
  for (std::int32_t u : {10, 12, 20}) EXPECT_TRUE(units.close(u));
  EXPECT_FALSE(units.is_open(20));
  EXPECT_EQ(read_file("u_new.txt"), "line one\n42\n");
  EXPECT_EQ(read_file("u_keep.txt"), "kept\n");  // "old" keeps the file
}

TEST(Units, SequentialRecordsRewindAndFailures) {
  ASSERT_TRUE(units.open(30, "u30.bin", false, "replace"));
  ASSERT_TRUE(units.write_record(30, std::int32_t{5}, std::vector<std::int32_t>{7, -1}));
  ASSERT_TRUE(units.write_record(30, 2.5));
  ASSERT_TRUE(units.flush(30));
  const double d = 2.5;
  EXPECT_EQ(read_file("u30.bin"), framed(std::string("\x05\0\0\0\x07\0\0\0\xff\xff\xff\xff", 12)) +
                                      framed(std::string(reinterpret_cast<const char*>(&d), 8)));
  std::vector<unsigned char> rec;
  double back = 0;
  EXPECT_EQ(units.read_record(30, rec), FramedStatus::ok);  // reading starts at the first record
  EXPECT_EQ(units.read_record_parts(30, back), FramedStatus::ok);
  EXPECT_EQ(back, 2.5);
  EXPECT_EQ(units.read_record(30, rec), FramedStatus::end_of_file);
  units.rewind(30);  // the next record replaces the file
  ASSERT_TRUE(units.write_record(30, std::int32_t{9}));
  units.close(30);
  EXPECT_EQ(read_file("u30.bin"), framed(std::string("\x09\0\0\0", 4)));
  // No record on a unit that is not open or is formatted; a full device fails quietly.
  EXPECT_FALSE(units.write_record(31, std::int32_t{1}));
  ASSERT_TRUE(units.open(31, "u31.txt", true, "replace"));
  EXPECT_FALSE(units.write_record(31, std::int32_t{1}));
  ASSERT_TRUE(units.open(32, "/dev/full", false, "old"));
  EXPECT_FALSE(units.write_record(32, std::vector<double>(1000, 1.0)) && units.flush(32));
  units.close(31), units.close(32);
}
