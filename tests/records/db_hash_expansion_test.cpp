// An expansion that stops on the way leaves neither of its two scratch files behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/stop.hpp"
#include "mmekit/records/db_hash.hpp"

namespace mmekit {

TEST(DbHashExpansion, AFailedExpansionLeavesNoScratchFile) {
  db_hash db;
  add_fields(db, "number", "integer");
  set_index(db, "number");
  init_db_hash(db, 10);
  for (int i = 1; i <= 5; ++i) insert_el(db, "number", i * 11);
  // Five records cannot go into a table of two slots: the reload stops.
  const test::StopSeen s = test::run_to_stop([&] { expand_db_hash(db, 2); });
  EXPECT_TRUE(s.stopped);
  EXPECT_FALSE(std::filesystem::exists("db_hash_expansion_setup"));
  EXPECT_FALSE(std::filesystem::exists("db_hash_expansion_data"));

  // A directory in the way of the data file stops the expansion; the setup file written
  // before it is removed, the directory is not.
  db_hash other;
  add_fields(other, "number", "integer");
  set_index(other, "number");
  init_db_hash(other, 10);
  insert_el(other, "number", 7);
  std::filesystem::create_directory("db_hash_expansion_data");
  EXPECT_EQ(test::stop_text([&] { expand_db_hash(other); }), " db_hash: cannot open file  db_hash_expansion_data");
  EXPECT_FALSE(std::filesystem::exists("db_hash_expansion_setup"));
  EXPECT_TRUE(std::filesystem::is_directory("db_hash_expansion_data"));
  std::filesystem::remove("db_hash_expansion_data");
}

}  // namespace mmekit
