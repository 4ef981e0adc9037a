// Fuzzes read_setup: the input is a setup file. A layout that is taken must serve a table: a
// data file written for it is read, keys are added (the table expands through its scratch files), every field is written and read
// back, and the table goes through its files, text and binary, and comes back whole.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "mmekit/records/db_hash.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "scratch.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::enter_scratch_directory();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  CaptureOutput quiet;
  try {
    fuzz::write_file("setup", data, size);
    db_hash db;
    read_setup(db, "setup");
    // A layout that is taken reads a data file of three records as it stands (wider records
    // than this target writes are left out).
    if (db.words <= 4096) {
      std::string text = "         3\n";
      const std::int32_t nk = db.field_info(4, db.index_field);
      for (std::int32_t k = 1; k <= 3; ++k) {
        for (std::int32_t w = 1; w <= db.words; ++w) text += w <= nk ? " " + std::to_string(k) : " 0";
        text += '\n';
      }
      fuzz::write_file("data", reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
      db_hash three;
      read_setup(three, "setup");
      read_data(three, "data");
      if (three.filled != 3) std::abort();
    }
    init_db_hash(db, 13);
    const std::int32_t nk = db.field_info(4, db.index_field) - db.field_info(3, db.index_field) + 1;
    for (std::int32_t k = 1; k <= 24; ++k) {
      const std::vector<std::int32_t> key(static_cast<std::size_t>(nk), k * 7919);
      add_key(db, key);
      for (std::int32_t f = 1; f <= db.nfields; ++f) {
        if (f == db.index_field) continue;
        const std::string& name = db.field_name[static_cast<std::size_t>(f - 1)];
        switch (db.field_info(1, f)) {
          case 1: insert_el(db, name, std::string_view("abcdefghijklmnopqrstuvwxyz")); break;
          case 2: insert_el(db, name, k); break;
          default: insert_el(db, name, 1.5f * static_cast<float>(k)); break;
        }
        std::string s;
        std::int32_t i = 0;
        float r = 0;
        switch (db.field_info(1, f)) {
          case 1: get_el_char(db, name, s); break;
          case 2: get_el_int(db, name, i); break;
          default: get_el_real(db, name, r); break;
        }
      }
    }
    print_db_status(db);
    print_entry(db);
    write_setup(db, "setup.out");
    for (const char* form : {"text", "binary"}) {
      write_data(db, "data.out", std::string_view(form));
      db_hash back;
      read_setup(back, "setup.out");
      read_data(back, "data.out", std::string_view(form));
      std::int32_t walked = 0;
      for (bool more = move_rec(back, "first"); more; more = move_rec(back, "next")) ++walked;
      if (back.filled != db.filled || walked != db.filled) {
        std::fprintf(stderr, "table of %d records came back with %d (%d walked)\n", db.filled, back.filled, walked);
        std::abort();
      }
    }
  } catch (const Stop&) {
  }
  return 0;
}
