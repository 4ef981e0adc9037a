#include "mmekit/records/db_hash.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "common/files.hpp"
#include "common/stop.hpp"
#include "mmekit/support/output.hpp"

using namespace mmekit;
using mmekit::test::read_file;
using mmekit::test::stop_output;
using mmekit::test::write_file;
using Ints = std::vector<std::int32_t>;

namespace {

struct Field {
  const char* name;
  const char* type;
  std::optional<std::int32_t> length = std::nullopt;
};

void declare(db_hash& db, std::initializer_list<Field> fields, const char* index, std::int32_t slots) {
  for (const Field& f : fields) add_fields(db, f.name, f.type, f.length);
  set_index(db, index);
  init_db_hash(db, slots);
}

void declare_animals(db_hash& db, std::int32_t slots) {
  declare(db, {{"id", "character", 10}, {"number", "integer"}, {"weight", "real"}}, "id", slots);
}

template <class T, void (*get)(db_hash&, std::string_view, T&)>
T field(db_hash& db, const char* name) {
  T v{};
  get(db, name, v);
  return v;
}
const auto get_int = field<std::int32_t, get_el_int>;
const auto get_real = field<float, get_el_real>;
const auto get_char = field<std::string, get_el_char>;

bool find_text(db_hash& db, const std::string& text) { return find_key(db, text_key(text, 10).vec()); }

void insert_record(db_hash& db, const std::string& id, std::int32_t number, float weight) {
  insert_el(db, "id", id);
  insert_el(db, "number", number);
  insert_el(db, "weight", weight);
}
void insert_animal(db_hash& db, int i, std::int32_t number, float weight) {
  insert_record(db, "A" + std::to_string(i * 7919 % 100003), number, weight);
}

bool has_animal(db_hash& db, int i, std::int32_t number, float weight) {
  return find_text(db, "A" + std::to_string(i * 7919 % 100003)) && get_int(db, "number") == number &&
         get_real(db, "weight") == weight;
}

std::string printed(void (*print)(const db_hash&), const db_hash& db) {
  CaptureOutput cap;
  print(db);
  return cap.text();
}

}  // namespace

TEST(DbHash, LayoutPutsTheIndexFirst) {
  db_hash db;
  add_fields(db, "year", "int");
  EXPECT_EQ(db.status, 1);
  add_fields(db, "name5", "char", 5);
  add_fields(db, "name4", "CHAR", 4);
  add_fields(db, "w", "rea");
  add_fields(db, "longer_than_8", "integer");
  set_index(db, "name5");
  align_db(db);
  EXPECT_EQ(db.status, 2);
  // Per field: type, length, first and last word. name5 (2 words) at 1..2, then year, name4,
  // w, longer_t in their order.
  EXPECT_EQ(Ints(db.field_info.vec().begin(), db.field_info.vec().begin() + 20),
            (Ints{2, 4, 3, 3, 1, 5, 1, 2, 1, 4, 4, 4, 3, 4, 5, 5, 2, 4, 6, 6}));
  // Names are cut to 8 characters; the cut name finds the field.
  EXPECT_EQ(std::make_tuple(db.words, db.field_name[4]), std::make_tuple(6, "longer_t"));
  init_db_hash(db, 11);
  insert_el(db, "name5", "abcde");
  insert_el(db, "longer_than_8_too", 42);
  EXPECT_EQ(get_int(db, "longer_t"), 42);
  EXPECT_TRUE(find_key(db, text_key("abcde", 5).vec()));
}

TEST(DbHash, InsertFindAndRead) {
  db_hash db;
  declare_animals(db, 101);
  EXPECT_EQ(std::make_tuple(db.size, db.current), std::make_tuple(101, 0));
  insert_record(db, "bull-1", 17, 612.5f);
  insert_el(db, "id", "cow-22");
  insert_el(db, "number", -3);
  insert_el(db, "id", "bull-1");  // an existing key is made current and not added again
  EXPECT_EQ(db.filled, 2);
  EXPECT_EQ(std::make_tuple(get_int(db, "number"), get_real(db, "weight"), get_char(db, "id")),
            std::make_tuple(17, 612.5f, std::string("bull-1    ")));
  EXPECT_TRUE(find_text(db, "cow-22"));
  EXPECT_EQ(std::make_tuple(get_int(db, "number"), get_real(db, "weight")), std::make_tuple(-3, 0.0f));
  // A missing key: false, no record current, nothing added.
  EXPECT_FALSE(find_text(db, "nobody"));
  EXPECT_EQ(std::make_tuple(db.current, db.filled), std::make_tuple(0, 2));
  // A key given with too few words is filled with zeros and so does not match.
  EXPECT_FALSE(find_key(db, Ints{text_key("cow-22", 10)(1)}));

  // Integer keys, including ones whose weighted sum overflows 32 bits.
  db_hash t;
  declare(t, {{"key", "int"}, {"val", "int"}}, "key", 37);
  const std::int32_t keys[] = {2147483647, -2147483647 - 1, -1, 1, 123456789, 1000003};
  for (std::int32_t k : keys) {
    insert_el(t, "key", k);
    ASSERT_TRUE(t.current >= 1 && t.current <= 37) << t.current;
    insert_el(t, "val", k / 2);
  }
  for (std::int32_t k : keys) EXPECT_TRUE(find_key_int(t, k) && get_int(t, "val") == k / 2) << k;
  EXPECT_FALSE(find_key_int(t, 5));
  close_db_hash(t);
  EXPECT_EQ(std::make_tuple(t.status, t.nfields, t.data.empty()), std::make_tuple(0, 0, true));
}

TEST(DbHash, ExpansionOnThe71stKeyOfATableOf100) {
  db_hash db;
  declare_animals(db, 100);
  CaptureOutput cap;
  for (int i = 1; i <= 70; ++i) insert_animal(db, i, i, static_cast<float>(i) * 0.5f);
  EXPECT_EQ(std::make_tuple(db.size, cap.text()), std::make_tuple(100, ""));
  insert_animal(db, 71, 71, 35.5f);  // the record just added is current: its fields are set at once
  EXPECT_EQ(cap.text(), " table expanded from  100  to  200  records\n");
  EXPECT_EQ(std::make_tuple(db.size, db.filled, db.status), std::make_tuple(200, 71, 2));
  EXPECT_FALSE(test::file_exists("db_hash_expansion_setup") || test::file_exists("db_hash_expansion_data"));
  for (int i = 1; i <= 71; ++i) ASSERT_TRUE(has_animal(db, i, i, static_cast<float>(i) * 0.5f)) << i;
  // A directory in the way of the data file stops the expansion and stays.
  db_hash other;
  declare(other, {{"number", "integer"}}, "number", 10);
  insert_el(other, "number", 7);
  std::filesystem::create_directory("db_hash_expansion_data");
  EXPECT_EQ(stop_output([&] { expand_db_hash(other); }), " db_hash: cannot open file  db_hash_expansion_data\n");
  EXPECT_FALSE(test::file_exists("db_hash_expansion_setup"));
  EXPECT_TRUE(std::filesystem::remove("db_hash_expansion_data"));
}

TEST(DbHash, SetupAndDataFilesRoundTrip) {
  db_hash db;
  declare_animals(db, 13);
  insert_record(db, "x1", 5, 1.0f);
  write_setup(db, "animals.setup");
  // Fixed layout: counts by (8i10), the names one after the other, then type, length, first,
  // last of each field by (4i10).
  EXPECT_EQ(read_file("animals.setup"),
            "         3        13         5         3         1\n"
            "id      number  weight  \n"
            "         1        10         1         3\n"
            "         2         4         4         4\n"
            "         3         4         5         5\n");
  write_data(db, "animals.data");
  // "x1" in a 10-character field: three words, blank padded to the end of the last word.
  std::int32_t w[4];
  const float one = 1.0f;
  std::memcpy(w, "x1          ", 12);
  std::memcpy(&w[3], &one, 4);
  char line[200];
  std::snprintf(line, sizeof line, "%12d%12d%12d%12d%12d\n", w[0], w[1], w[2], 5, w[3]);
  EXPECT_EQ(read_file("animals.data"), std::string("         1\n") + line);

  // A larger table, text and binary, through close and reload.
  db_hash big;
  declare_animals(big, 301);
  for (int i = 1; i <= 200; ++i) insert_animal(big, i, -i, static_cast<float>(i) / 3.0f);
  for (const char* form : {"text", "binary"}) {
    write_setup(big, "big.setup");
    write_data(big, "big.data", form);
    db_hash back;
    read_setup(back, "big.setup");
    EXPECT_EQ(std::make_tuple(back.status, back.nfields, back.words, back.index_field), std::make_tuple(1, 3, 5, 1));
    read_data(back, "big.data", form);
    EXPECT_EQ(std::make_tuple(back.status, back.filled, back.size), std::make_tuple(2, 200, 252));  // 200 / 0.8 + 2
    for (int i = 1; i <= 200; ++i) ASSERT_TRUE(has_animal(back, i, -i, static_cast<float>(i) / 3.0f)) << form << " " << i;
  }
}

TEST(DbHash, SortNumberAndMove) {
  db_hash db;
  declare(db, {{"key", "int"}, {"seq", "int"}}, "key", 53);
  std::mt19937 rng(3);
  std::set<std::int32_t> keys;
  while (keys.size() < 30) keys.insert(static_cast<std::int32_t>(rng() % 2001) - 1000);
  keys.erase(0);
  for (std::int32_t k : keys) insert_el(db, "key", k);
  // Sorted: numbers in ascending order of the key, negative keys first, packed at the front.
  CaptureOutput cap;
  sort_db(db, "seq", "sort");
  EXPECT_EQ(cap.text(), " table with  " + std::to_string(keys.size()) + "  elements sorted\n");
  EXPECT_EQ(db.status, 3);
  std::int32_t expect = 0;
  auto it = keys.begin();
  for (bool m = move_rec(db, "f"); m; m = move_rec(db, "n")) {
    ++expect;
    EXPECT_EQ(std::make_tuple(get_int(db, "key"), get_int(db, "seq"), db.current), std::make_tuple(*it++, expect, expect));
  }
  // Walking back from the end gives the largest key first.
  EXPECT_TRUE(move_rec(db, "prev") && get_int(db, "key") == *keys.rbegin());
  // A lookup in a sorted table still finds every key; the numbers stay.
  std::int32_t rank = 0;
  for (std::int32_t key : keys) EXPECT_TRUE(find_key_int(db, key) && get_int(db, "seq") == ++rank) << key;
  EXPECT_EQ(db.status, 2);

  // Text keys sort in character order.
  db_hash t;
  declare(t, {{"name", "char", 6}, {"n", "int"}}, "name", 19);
  for (const char* s : {"pear", "apple", "fig", "applf", "Zebra", "apple2"}) insert_el(t, "name", s);
  sort_db(t, "n", "sort");
  std::vector<std::string> order;
  for (bool m = move_rec(t, "first"); m; m = move_rec(t, "next")) order.push_back(get_char(t, "name"));
  EXPECT_EQ(order, (std::vector<std::string>{"Zebra ", "apple ", "apple2", "applf ", "fig   ", "pear  "}));

  // The ends of a table of one record: before the first slot is 0, after the last size + 1.
  db_hash one;
  declare(one, {{"k", "int"}}, "k", 7);
  EXPECT_TRUE(!move_rec(one, "first") && one.current == 8);
  insert_el(one, "k", 3);
  const std::int32_t slot = one.current;
  for (const auto& [direction, found, at] : {std::tuple{"first", true, slot}, {"next", false, 8}, {"prev", true, slot},
                                              {"prev", false, 0}}) {
    EXPECT_EQ(move_rec(one, direction), found) << direction;
    EXPECT_EQ(one.current, at) << direction;
  }
}

TEST(DbHash, Printing) {
  db_hash db;
  const std::string fields = " id       char 6\n n        int 4\n w        real 4\n";
  EXPECT_EQ(printed(print_db_status, db),
            "db_hash:  uninitialized\nindex not set\n number of entries: 0\n number of filled entries: 0\n");
  add_fields(db, "id", "char", 6);
  add_fields(db, "n", "int");
  add_fields(db, "w", "real");
  EXPECT_EQ(printed(print_db_status, db), "db_hash: status:accepting field definitions\n" + fields +
                                              "index not set\n number of entries: 0\n number of filled entries: 0\n");
  set_index(db, "id");
  init_db_hash(db, 9);
  EXPECT_EQ(printed(print_entry, db), "print_entry: empty table\n");
  insert_el(db, "id", "abc");
  insert_el(db, "n", -12);
  insert_el(db, "w", 2.5f);
  EXPECT_EQ(printed(print_db_status, db), "db_hash: status:accepting entries\n" + fields +
                                              "  index variable:  id      \n number of entries: 9\n"
                                              " number of filled entries: 1\n");
  EXPECT_EQ(printed(print_entry, db), "abc   -12 2.500 \n");
  CaptureOutput quiet;
  sort_db(db, "n", "sort");
  EXPECT_TRUE(printed(print_db_status, db).starts_with("db_hash: status:sorted\n"));
}

TEST(DbHash, DeclarationFailures) {
  db_hash full;
  for (int f = 1; f <= 30; ++f) add_fields(full, "f" + std::to_string(f), "int");
  EXPECT_EQ(stop_output([&] { add_fields(full, "f31", "int"); }), " dbhash:maximum number of fields: 30\n");
  EXPECT_EQ(full.nfields, 30);
  db_hash db;
  EXPECT_EQ(stop_output([&] { add_fields(db, "txt", "char"); }), " db_hash: length of field missing for field  txt\n");
  EXPECT_EQ(stop_output([&] { add_fields(db, "d", "double"); }), " db_hash: unknown field type:  double\n");
  EXPECT_EQ(stop_output([&] { set_index(db, "k"); }), " db_hash: field  k  does not exist\n");
  EXPECT_EQ(stop_output([&] { init_db_hash(db, 10); }), " db_hash: fields not defined\n");
  add_fields(db, "k", "int");
  add_fields(db, "v", "int");
  EXPECT_EQ(stop_output([&] { init_db_hash(db, 10); }), " db_hash: index not defined\n");
  EXPECT_EQ(stop_output([&] { write_setup(db, "x.setup"); }), "write_setup: status < 2\n");
  EXPECT_EQ(stop_output([&] { insert_el(db, "k", 1); }),
            " incorrect state for subroutine/function  insert_el\n the status is  1  and should be > 1\n");
  EXPECT_EQ(stop_output([&] { sort_db(db, "v", "sort"); }), "sort_db: database not set yet\n");
  set_index(db, "k");
  EXPECT_EQ(stop_output([&] { set_index(db, "v"); }), " db_hash: index has already been set to:  k\n");
  init_db_hash(db, 10);
  EXPECT_EQ(stop_output([&] { set_index(db, "v"); }), "set_index: index already set\n");
  EXPECT_EQ(stop_output([&] { add_fields(db, "late", "int"); }), " add_fields: all fields already declared; name= late\n");
  EXPECT_EQ(stop_output([&] { align_db(db); }),
            " incorrect state for subroutine/function  align_db\n the status is  2  and should be  1\n");
  db.status = 4;
  EXPECT_EQ(stop_output([&] { init_db_hash(db, 10); }), "dbase: status>3 should not happen\n");
  db.status = 2;
  // With status 2 or 3 the table is emptied, and made again when the size differs.
  insert_el(db, "k", 8);
  init_db_hash(db, 10);
  EXPECT_TRUE(db.filled == 0 && !find_key_int(db, 8));
  init_db_hash(db, 20);
  EXPECT_EQ(std::make_tuple(db.size, db.data.cols()), std::make_tuple(20, std::int64_t{20}));
  db_hash empty;
  EXPECT_EQ(stop_output([&] { move_rec(empty, "first"); }),
            " incorrect state for subroutine/function  insert_el\n the status is  0  and should be > 1\n");
  // An index longer than ten words cannot be hashed.
  db_hash wide;
  add_fields(wide, "long", "char", 41);
  set_index(wide, "long");
  EXPECT_EQ(stop_output([&] { init_db_hash(wide, 5); }), " db_hash: index field longer than 10 words: long\n");
}

TEST(DbHash, RecordFailures) {
  db_hash db;
  declare(db, {{"id", "char", 4}, {"n", "int"}, {"w", "real"}}, "id", 11);
  EXPECT_EQ(stop_output([&] { insert_el(db, "n", 1); }), "db_hash: insertion of non-index field before any index entry\n");
  EXPECT_EQ(stop_output([&] { get_char(db, "id"); }), "get_el_char: current = 0\n");
  EXPECT_EQ(stop_output([&] { get_int(db, "n"); }), "get_el_integer: current = 0\n");
  EXPECT_EQ(stop_output([&] { get_real(db, "w"); }), "get_el_real: current = 0\n");
  EXPECT_EQ(stop_output([&] { insert_el(db, "zz", 1); }), " db_hash: field  zz  nonexistent\n");
  EXPECT_EQ(stop_output([&] { insert_el(db, "n", "text"); }), " insert_el_char: field  n  not alphanumeric\n");
  EXPECT_EQ(stop_output([&] { insert_el(db, "id", 5); }), " insert_el_char: field  id  not integer\n");
  EXPECT_EQ(stop_output([&] { insert_el(db, "n", 5.0f); }), " insert_el_char: field  n  not real\n");
  EXPECT_EQ(stop_output([&] { get_int(db, "zz"); }), " get_el_int: field  zz  nonexistent\n");
  EXPECT_EQ(stop_output([&] { get_int(db, "w"); }), " get_el_char: field  w  not integer\n");
  EXPECT_EQ(stop_output([&] { move_rec(db, "back"); }), " move_rec: unknown direction: back\n");
  EXPECT_EQ(stop_output([&] { sort_db(db, "nothing"); }), " sort_db: field  nothing  not found\n");
  EXPECT_EQ(stop_output([&] { sort_db(db, "w"); }), " sort_db: field  w  not integer\n");
  EXPECT_EQ(stop_output([&] { add_key(db, Ints{0}); }), "db_hash: a key whose words are all 0 cannot be stored\n");
  insert_el(db, "id", "ab");
  db.field_info(1, 1) = 7;
  EXPECT_EQ(stop_output([&] { sort_db(db, "n", "sort"); }), "This should not happen QF234TYr\n");
  db.field_info(1, 1) = 1;
  // The probe goes on by 17 slots (a stride of 16 from a 1-based slot), so in a table of 17
  // slots a collision probes the same slot again and again. Keys 1 and 18 collide there.
  db_hash c;
  declare(c, {{"k", "int"}}, "k", 17);
  insert_el(c, "k", 1);
  EXPECT_EQ(stop_output([&] { insert_el(c, "k", 18); }), "hash table search too slow\n");

  // Files. A full device: the write error is seen even though it sits in the stream's buffer.
  db_hash fresh;
  EXPECT_EQ(stop_output([&] { read_data(fresh, "none.data"); }), "read_setup: setup not read\n");
  EXPECT_EQ(stop_output([&] { write_setup(db, "/dev/full"); }), " db_hash: cannot write file  /dev/full\n");
  EXPECT_EQ(stop_output([&] { write_data(db, "/dev/full"); }), " db_hash: cannot write file  /dev/full\n");
  // A data file whose count promises more entries than it holds; a damaged value; a count
  // whose table would not fit 32-bit slot numbers, refused before allocating.
  write_setup(db, "t.setup");
  insert_el(db, "id", "cd");
  write_data(db, "t2.data");
  std::string body = read_file("t2.data");
  write_file("t2.data", body.replace(0, 10, "         5"));
  body.replace(0, 10, "         2");
  write_file("t3.data", body.replace(body.size() - 3, 1, "x"));
  write_file("huge.data", "2000000000\n");
  for (const auto& [file, message] : {std::pair{"t2.data", " read_data unsuccessful\n read  2  instead of  5  entries\n"},
                                      {"t3.data", " read_data unsuccessful\n read  1  instead of  2  entries\n"},
                                      {"huge.data", " db_hash: table of 2000000000 records is too large\n"}}) {
    db_hash back;
    read_setup(back, "t.setup");
    EXPECT_EQ(stop_output([&] { read_data(back, file); }), message);
  }
  db_hash again, bad;
  read_setup(again, "t.setup");
  EXPECT_EQ(stop_output([&] { read_setup(again, "t.setup"); }),
            " incorrect state for subroutine/function  read_setup\n the status is  1  and should be  0\n");
  write_file("bad.setup", "         3        13         5         3         9\n");
  EXPECT_EQ(stop_output([&] { read_setup(bad, "bad.setup"); }), " db_hash: bad setup file  bad.setup\n");
  EXPECT_EQ(stop_output([&] { read_setup(bad, "missing.setup"); }), " db_hash: cannot open file  missing.setup\n");
}

// Data files whose count of entries is far beyond what they hold, and setup files whose records
// are not what their fields take.
TEST(DbHashBadInput, CountBeyondTheFile) {
  // 1,700,000,000 entries would ask for a table of 2,125,000,002 slots of 5 words: the table is
  // made for what the file can hold, and the read reports the shortfall.
  db_hash db;
  declare_animals(db, 11);
  insert_el(db, "id", "first");
  insert_el(db, "id", "second");
  write_setup(db, "count.setup");
  const std::int32_t count = 1700000000;
  for (const char* form : {"text", "binary"}) {
    write_data(db, "count.data", std::string_view(form));
    std::string bytes = read_file("count.data");
    if (form[0] == 'b')
      bytes.replace(4, 4, reinterpret_cast<const char*>(&count), 4);
    else
      bytes.replace(0, 10, "1700000000");
    write_file("count.data", bytes);
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
    write_file("layout.setup", text);
    db_hash db;
    EXPECT_EQ(stop_output([&] { read_setup(db, "layout.setup"); }), " db_hash: bad setup file  layout.setup\n") << text;
  }
  db_hash wide;
  add_fields(wide, "key", "int");
  for (const char* name : {"a", "b", "c", "d", "e"}) add_fields(wide, name, "char", 2147483647);
  set_index(wide, "key");
  EXPECT_EQ(stop_output([&] { align_db(wide); }), " db_hash: a record of 2684354561 words is too long\n");
}
