// Data files whose count of entries is far beyond what they hold, and setup files whose records
// are not what their fields take.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/records/db_hash.hpp"

using namespace mmekit;
using test::stop_output;

TEST(DbHashBadInput, CountBeyondTheFile) {
  // 1,700,000,000 entries would ask for a table of 2,125,000,002 slots of 5 words: the table is
  // made for what the file can hold, and the read reports the shortfall.
  db_hash db;
  add_fields(db, "id", "char", 10);
  add_fields(db, "n", "int");
  add_fields(db, "w", "real");
  set_index(db, "id");
  init_db_hash(db, 11);
  insert_el(db, "id", "first");
  insert_el(db, "id", "second");
  write_setup(db, "count.setup");
  const std::int32_t count = 1700000000;
  for (const char* form : {"text", "binary"}) {
    write_data(db, "count.data", std::string_view(form));
    std::string bytes = test::read_file("count.data");
    if (form[0] == 'b')
      bytes.replace(4, 4, reinterpret_cast<const char*>(&count), 4);
    else
      bytes.replace(0, 10, "1700000000");
    test::write_file("count.data", bytes);
    db_hash back;
    read_setup(back, "count.setup");
    EXPECT_EQ(stop_output([&] { read_data(back, "count.data", std::string_view(form)); }),
              " read_data unsuccessful\n read  2  instead of  1700000000  entries\n")
        << form;
    EXPECT_LT(back.size, 100) << form;
  }
}

TEST(DbHashBadInput, RecordLayouts) {
  // A record far wider than its fields (a table of them would be gigabytes), two fields on one
  // word, and five text fields of 2,147,483,647 characters (536,870,912 words each).
  for (const char* text :
       {"         1        13 500000000         1         1\nkey     \n         2         4         1         1\n",
        "         2        13         2         2         1\nkey     other   \n"
        "         2         4         1         1\n         2         4         1         1\n"}) {
    test::write_file("layout.setup", text);
    db_hash db;
    EXPECT_EQ(stop_output([&] { read_setup(db, "layout.setup"); }), " db_hash: bad setup file  layout.setup\n") << text;
  }
  db_hash wide;
  add_fields(wide, "key", "int");
  for (const char* name : {"a", "b", "c", "d", "e"}) add_fields(wide, name, "char", 2147483647);
  set_index(wide, "key");
  EXPECT_EQ(stop_output([&] { align_db(wide); }), " db_hash: a record of 2684354561 words is too long\n");
}
