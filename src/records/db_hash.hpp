// A keyed table of records with named fields.
//
// A table is declared field by field (`add_fields`, `set_index`), fixed (`align_db` or
// `init_db_hash`), filled (`insert_el`, `add_key`), and at the end optionally sorted and
// numbered (`sort_db`). Every record is a column of 4-byte words; the index field, the key,
// always comes first in the record. A record is found by hashing its key with prime weights
// and probing with a stride of 16 slots. When more than 70 percent of the slots are in use,
// the table doubles its size by saving itself to two scratch files in the current directory
// ("db_hash_expansion_setup" and "db_hash_expansion_data") and loading them again, so two
// tables must not expand at the same time.
//
// Field types: 1 text (4 characters a word), 2 integer (i4), 3 real (r4 stored by its bits).
// A slot is empty when all the words of its key are 0, so an integer key of 0 cannot be stored.
//
// status: 0 uninitialized, 1 accepting field definitions, 2 accepting entries, 3 sorted.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "mmekit/support/array.hpp"

namespace mmekit {

inline constexpr std::int32_t db_hash_max_fields = 30;
inline constexpr std::int32_t db_hash_name_length = 8;
inline constexpr std::int32_t db_hash_max_key_words = 10;

struct db_hash {
  std::int32_t size = 0;     // number of slots
  std::int32_t filled = 0;   // slots in use
  std::int32_t words = 0;    // 4-byte words per record
  std::int32_t status = 0;
  std::int32_t nfields = 0;  // fields declared so far
  std::array<std::string, db_hash_max_fields> field_name{};  // 8 characters, blank padded
  // field_info(1..4, f): type, length (characters for text, 4 otherwise), first and last word.
  Array2<std::int32_t> field_info{4, db_hash_max_fields};
  std::int32_t index_field = 0;  // 0 while not set
  std::int32_t current = 0;      // slot of the current record; 0 for none
  Array2<std::int32_t> data;     // words x size; slot s is column s
};

// ---- declaration ---------------------------------------------------------------------------
// `type` is a word whose first three letters are "cha", "int" or "rea"; a text field needs
// its length in characters.
void add_fields(db_hash& db, std::string_view name, std::string_view type,
                std::optional<std::int32_t> length = std::nullopt);
void set_index(db_hash& db, std::string_view name);
// Computes first and last word of each field and the words per record; status 1 -> 2.
void align_db(db_hash& db);
// Fixes the layout if needed and creates (or clears) `slots` empty records.
void init_db_hash(db_hash& db, std::int32_t slots);
// Releases the records and puts every field back to its initial value.
void close_db_hash(db_hash& db);

// ---- records -------------------------------------------------------------------------------
// Stores a value in the current record. A value for the index field looks for that key and
// adds it when absent, making its record current.
void insert_el(db_hash& db, std::string_view name, std::string_view value);
void insert_el(db_hash& db, std::string_view name, const char* value);
void insert_el(db_hash& db, std::string_view name, std::int32_t value);
void insert_el(db_hash& db, std::string_view name, float value);
// Reads a field of the current record. Text comes back with its declared length.
void get_el_char(db_hash& db, std::string_view name, std::string& value);
void get_el_int(db_hash& db, std::string_view name, std::int32_t& value);
void get_el_real(db_hash& db, std::string_view name, float& value);

// Looks for a key (the words of the index field) without adding it. Found: its slot becomes
// current and the result is true; otherwise current is 0 and the result false.
bool find_key(db_hash& db, std::span<const std::int32_t> key);
bool find_key_int(db_hash& db, std::int32_t key);
// Finds or adds a key and makes its record current; expands the table when it is too full.
void add_key(db_hash& db, std::span<const std::int32_t> key);
// Slot of a key: 0 when absent (mode 0), or the slot where it is or was put (mode 1).
std::int32_t db_hash_locate(db_hash& db, std::span<const std::int32_t> key, std::int32_t mode);
// The key words of a text key of the given length (blank padded, 4 characters a word).
Array1<std::int32_t> text_key(std::string_view text, std::int32_t length);

// "first", "next" or "prev" (only the first letter counts): moves `current` to a record.
// False at the end of the table.
bool move_rec(db_hash& db, std::string_view direction);
// Numbers the records 1, 2, ... in `number_field` (an integer field), in slot order, or in
// ascending order of the first declared field when `mode` starts with "so".
void sort_db(db_hash& db, std::string_view number_field, std::optional<std::string_view> mode = std::nullopt);
// Moves the table to `new_size` slots (twice its size when absent) through the two scratch
// files; `current` is not kept.
void expand_db_hash(db_hash& db, std::optional<std::int32_t> new_size = std::nullopt);

// ---- files ---------------------------------------------------------------------------------
void write_setup(db_hash& db, const std::string& file);
void read_setup(db_hash& db, const std::string& file);
// `form` starting with "b": framed binary records; otherwise text. `slots` is the table size
// to read into; when absent it is filled / 0.8 + 2.
void write_data(db_hash& db, const std::string& file, std::optional<std::string_view> form = std::nullopt);
void read_data(db_hash& db, const std::string& file, std::optional<std::string_view> form = std::nullopt,
               std::optional<std::int32_t> slots = std::nullopt);

// ---- printing ------------------------------------------------------------------------------
void print_db_status(const db_hash& db);
void print_entry(const db_hash& db);

}  // namespace mmekit
