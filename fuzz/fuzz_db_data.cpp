// Fuzzes read_data: a fixed layout (written by the library once), the input a data file in the
// text form (first byte even) or the binary form (odd); its second bit asks for a table size
// of the second byte. A table that is read must be whole: every record walked and found by its
// key, sorted and numbered, and written and read back with the same records.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "mmekit/records/db_hash.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "scratch.hpp"
#include "tables.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::enter_scratch_directory();
  mmekit::CaptureOutput quiet;
  mmekit::db_hash db;
  fuzz::sample_table(db, 0);
  mmekit::write_setup(db, "setup");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  if (size < 2) return 0;
  const std::string_view form = data[0] & 1 ? "binary" : "text";
  std::optional<std::int32_t> slots;
  if (data[0] & 2) slots = data[1];
  CaptureOutput quiet;
  try {
    fuzz::write_file("data", data + 2, size - 2);
    db_hash db;
    read_setup(db, "setup");
    read_data(db, "data", form, slots);
    std::int32_t walked = 0;
    std::vector<std::vector<std::int32_t>> keys;
    for (bool more = move_rec(db, "first"); more; more = move_rec(db, "next")) {
      ++walked;
      const std::int32_t* w = db.data.data() + static_cast<std::int64_t>(db.current - 1) * db.words;
      keys.emplace_back(w, w + 3);  // the id field: 10 characters in 3 words
    }
    bool lost = walked != db.filled;
    for (const auto& k : keys) lost = lost || !find_key(db, k);
    if (lost) {
      std::fprintf(stderr, "table read with %d records: %d walked or not found again\n", db.filled, walked);
      std::abort();
    }
    sort_db(db, "num", std::string_view("sort"));
    print_entry(db);
    write_data(db, "data.out", form);
    db_hash back;
    read_setup(back, "setup");
    read_data(back, "data.out", form);
    if (back.filled != db.filled) std::abort();
    insert_el(back, "id", "newcomer");
  } catch (const Stop&) {
  }
  return 0;
}
