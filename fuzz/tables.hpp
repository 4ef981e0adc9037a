// The keyed table of the db_hash fuzz targets and their seeds: a text key, two integers and a
// real, filled with `records` entries.
#pragma once

#include <cstdint>
#include <string>

#include "mmekit/records/db_hash.hpp"

namespace fuzz {

inline void sample_table(mmekit::db_hash& db, std::int32_t records) {
  using namespace mmekit;
  add_fields(db, "count", "int");
  add_fields(db, "id", "character", 10);
  add_fields(db, "weight", "real");
  add_fields(db, "num", "int");
  set_index(db, "id");
  init_db_hash(db, 11);
  for (std::int32_t k = 1; k <= records; ++k) {
    insert_el(db, "id", "animal" + std::to_string(k * 37 % 1000));
    insert_el(db, "count", k);
    insert_el(db, "weight", 0.5f * static_cast<float>(k));
  }
}

}  // namespace fuzz
