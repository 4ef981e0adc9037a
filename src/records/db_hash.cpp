#include "mmekit/records/db_hash.hpp"

#include <algorithm>
#include <charconv>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <new>
#include <vector>

#include "mmekit/records/sortmat.hpp"
#include "mmekit/support/hash.hpp"
#include "mmekit/support/format.hpp"
#include "mmekit/support/framed.hpp"
#include "mmekit/support/free_format.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

const char* const expansion_setup_file = "db_hash_expansion_setup";
const char* const expansion_data_file = "db_hash_expansion_data";

enum FieldType : std::int32_t { type_char = 1, type_int = 2, type_real = 3 };

// Names are held as 8 characters, blank padded; longer names are cut.
std::string pad_name(std::string_view name) {
  std::string s(name.substr(0, static_cast<std::size_t>(db_hash_name_length)));
  s.resize(static_cast<std::size_t>(db_hash_name_length), ' ');
  return s;
}

// The name without its padding, for messages.
std::string trimmed(const std::string& s) {
  const auto end = s.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

// The field of that name (compared as 8 blank-padded characters), 0 when there is none.
std::int32_t find_field(const db_hash& db, std::string_view name) {
  name = name.substr(0, static_cast<std::size_t>(db_hash_name_length));
  for (std::int32_t f = 1; f <= db.nfields; ++f) {
    const std::string& n = db.field_name[static_cast<std::size_t>(f - 1)];
    if (n.size() < name.size() || n.compare(0, name.size(), name) != 0) continue;
    if (n.find_first_not_of(' ', name.size()) == std::string::npos) return f;
  }
  return 0;
}

std::int32_t field_type(const db_hash& db, std::int32_t f) { return db.field_info(1, f); }
std::int32_t field_length(const db_hash& db, std::int32_t f) { return db.field_info(2, f); }
std::int32_t field_first(const db_hash& db, std::int32_t f) { return db.field_info(3, f); }
std::int32_t field_last(const db_hash& db, std::int32_t f) { return db.field_info(4, f); }

std::int32_t words_of(std::int32_t type, std::int32_t length) {
  return type == type_char ? static_cast<std::int32_t>((std::int64_t{length} + 3) / 4) : 1;
}

std::int32_t key_words(const db_hash& db) {
  return db.index_field == 0 ? 0 : field_last(db, db.index_field) - field_first(db, db.index_field) + 1;
}

[[noreturn]] void incorrect_state(std::string_view routine, std::int32_t status, std::int32_t needed, bool above) {
  stop(free_format("incorrect state for subroutine/function ", routine) + "\n" +
       free_format("the status is ", status, above ? " and should be >" : " and should be ", needed));
}

// Every operation on records needs a fixed layout (status 2 or 3).
void require_entries(const db_hash& db) {
  if (db.status <= 1) incorrect_state("insert_el", db.status, 1, true);
}

bool slot_empty(const db_hash& db, std::int32_t slot, std::int32_t nk) {
  const std::int32_t* c = db.data.data() + static_cast<std::int64_t>(slot - 1) * db.words;
  for (std::int32_t i = 0; i < nk; ++i) {
    if (c[i] != 0) return false;
  }
  return true;
}

bool current_valid(const db_hash& db) { return db.current >= 1 && db.current <= db.size; }

// The key words of a lookup: the given words, cut or filled with zeros to the index length
// (at most 10 words, checked when the layout is fixed).
struct KeyBuffer {
  std::array<std::int32_t, db_hash_max_key_words> w{};
  std::int32_t n = 0;
  std::span<const std::int32_t> span() const { return {w.data(), static_cast<std::size_t>(n)}; }
  bool all_zero() const { return std::all_of(w.begin(), w.begin() + n, [](std::int32_t x) { return x == 0; }); }
};
KeyBuffer key_buffer(const db_hash& db, std::span<const std::int32_t> key) {
  KeyBuffer k;
  k.n = std::min(key_words(db), db_hash_max_key_words);
  std::copy_n(key.begin(), std::min(key.size(), static_cast<std::size_t>(k.n)), k.w.begin());
  return k;
}

void allocate_data(db_hash& db, std::int32_t slots) {
  if (db.data.rows() != db.words || db.data.cols() != slots) {
    try {
      db.data.resize(db.words, slots, 0);
    } catch (const std::bad_alloc&) {
      stop(free_format("db_hash: no memory for a table of", slots, "records of", db.words, "words"));
    }
  } else {
    db.data.fill(0);
  }
  db.size = slots;
}

// A sorted table holds its records packed in key order, away from their hashed slots. Before
// a key is looked up there, the records are put back in their hashed places; the table is
// then no longer sorted (the numbers sort_db stored stay in their field).
void rehash_if_sorted(db_hash& db) {
  if (db.status != 3) return;
  Array2<std::int32_t> old = db.data;
  db.data.fill(0);
  const std::int32_t nk = key_words(db);
  std::int32_t count = 0;
  for (std::int32_t s = 1; s <= db.size; ++s) {
    const std::int32_t* c = old.data() + static_cast<std::int64_t>(s - 1) * db.words;
    bool empty = true;
    for (std::int32_t i = 0; i < nk; ++i) empty = empty && c[i] == 0;
    if (empty) continue;
    const std::int32_t slot = hash_prime_int(c, nk, db.data.data(), db.size, db.words, 1, count);
    std::copy_n(c, db.words, db.data.data() + static_cast<std::int64_t>(slot - 1) * db.words);
  }
  db.filled = count;
  db.current = 0;
  db.status = 2;
}

std::ifstream open_text(const std::string& file) {
  std::ifstream in(file);
  if (!in) stop(free_format("db_hash: cannot open file ", file));
  return in;
}

// Integers in fixed columns of `width` characters; a short line gives fewer values.
bool parse_fixed(const std::string& line, int width, std::vector<std::int64_t>& values) {
  values.clear();
  for (std::size_t at = 0; at < line.size(); at += static_cast<std::size_t>(width)) {
    std::string field = line.substr(at, static_cast<std::size_t>(width));
    const auto b = field.find_first_not_of(" \r");
    if (b == std::string::npos) continue;
    const auto e = field.find_last_not_of(" \r");
    field = field.substr(b, e - b + 1);
    std::size_t used = 0;
    long long v = 0;
    try {
      v = std::stoll(field, &used);
    } catch (...) {
      return false;
    }
    if (used != field.size()) return false;
    values.push_back(v);
  }
  return true;
}

bool fits_i4(std::int64_t v) { return v >= std::numeric_limits<std::int32_t>::min() && v <= std::numeric_limits<std::int32_t>::max(); }

[[noreturn]] void bad_setup(const std::string& file) { stop(free_format("db_hash: bad setup file ", file)); }

bool binary_form(std::optional<std::string_view> form) {
  return form && !form->empty() && ((*form)[0] == 'b' || (*form)[0] == 'B');
}

void store_text(db_hash& db, std::int32_t f, std::string_view value, std::int32_t* to) {
  const std::int32_t len = field_length(db, f);
  const std::int32_t nw = field_last(db, f) - field_first(db, f) + 1;
  std::string s(value.substr(0, static_cast<std::size_t>(len)));
  s.resize(static_cast<std::size_t>(nw) * 4, ' ');
  std::memcpy(to, s.data(), s.size());
}

}  // namespace

Array1<std::int32_t> text_key(std::string_view text, std::int32_t length) {
  const std::int32_t nw = (std::max(length, 0) + 3) / 4;
  std::string s(text.substr(0, static_cast<std::size_t>(std::max(length, 0))));
  s.resize(static_cast<std::size_t>(nw) * 4, ' ');
  Array1<std::int32_t> k(nw);
  if (nw > 0) std::memcpy(k.data(), s.data(), s.size());
  return k;
}

// ---- declaration ----------------------------------------------------------------------------

void add_fields(db_hash& db, std::string_view name, std::string_view type, std::optional<std::int32_t> length) {
  if (db.status > 1) stop(free_format("add_fields: all fields already declared; name=", name));
  if (db.nfields >= db_hash_max_fields) stop(free_format("dbhash:maximum number of fields:", db_hash_max_fields));
  std::string t3(type.substr(0, 3));
  for (char& c : t3) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  std::int32_t code = 0, len = 4;
  if (t3 == "cha") {
    if (!length || *length < 1) stop(free_format("db_hash: length of field missing for field ", name));
    code = type_char;
    len = *length;
  } else if (t3 == "int") {
    code = type_int;
  } else if (t3 == "rea") {
    code = type_real;
  } else {
    stop(free_format("db_hash: unknown field type: ", type));
  }
  const std::int32_t f = ++db.nfields;
  db.field_name[static_cast<std::size_t>(f - 1)] = pad_name(name);
  db.field_info(1, f) = code;
  db.field_info(2, f) = len;
  db.field_info(3, f) = 0;
  db.field_info(4, f) = 0;
  db.status = 1;
}

void set_index(db_hash& db, std::string_view name) {
  if (db.status > 1) stop("set_index: index already set");
  if (db.index_field != 0) {
    stop(free_format("db_hash: index has already been set to: ",
                     trimmed(db.field_name[static_cast<std::size_t>(db.index_field - 1)])));
  }
  const std::int32_t f = find_field(db, name);
  if (f == 0) stop(free_format("db_hash: field ", name, " does not exist"));
  db.index_field = f;
}

void align_db(db_hash& db) {
  if (db.status != 1) incorrect_state("align_db", db.status, 1, false);
  if (db.index_field == 0) stop(" db_hash: index not defined");
  const std::int32_t ix = db.index_field;
  const std::int32_t nk = words_of(field_type(db, ix), field_length(db, ix));
  if (nk > db_hash_max_key_words) {
    stop(free_format("db_hash: index field longer than", db_hash_max_key_words, "words:",
                     trimmed(db.field_name[static_cast<std::size_t>(ix - 1)])));
  }
  std::int64_t next = 1;
  auto place = [&](std::int32_t f) {
    const std::int32_t nw = words_of(field_type(db, f), field_length(db, f));
    db.field_info(3, f) = static_cast<std::int32_t>(next);
    db.field_info(4, f) = static_cast<std::int32_t>(next + nw - 1);
    next += nw;
  };
  place(ix);
  for (std::int32_t f = 1; f <= db.nfields; ++f) {
    if (f != ix) place(f);
  }
  if (next - 1 > std::numeric_limits<std::int32_t>::max())
    stop(free_format("db_hash: a record of", next - 1, "words is too long"));
  db.words = static_cast<std::int32_t>(next - 1);
  db.status = 2;
}

void init_db_hash(db_hash& db, std::int32_t slots) {
  if (db.status == 0) stop(" db_hash: fields not defined");
  if (db.status > 3 || db.status < 0) stop("dbase: status>3 should not happen");
  if (db.status == 1) {
    if (db.index_field == 0) stop(" db_hash: index not defined");
    align_db(db);
  }
  allocate_data(db, std::max(slots, 1));
  db.filled = 0;
  db.current = 0;
  db.status = 2;
}

void close_db_hash(db_hash& db) { db = db_hash{}; }

// ---- lookup ---------------------------------------------------------------------------------

std::int32_t db_hash_locate(db_hash& db, std::span<const std::int32_t> key, std::int32_t mode) {
  require_entries(db);
  rehash_if_sorted(db);
  const KeyBuffer k = key_buffer(db, key);
  return hash_prime_int(k.w.data(), k.n, db.data.data(), db.size, db.words, mode, db.filled);
}

bool find_key(db_hash& db, std::span<const std::int32_t> key) {
  const std::int32_t slot = db_hash_locate(db, key, 0);
  db.current = slot > 0 ? slot : 0;
  return db.current > 0;
}

bool find_key_int(db_hash& db, std::int32_t key) { return find_key(db, std::span<const std::int32_t>(&key, 1)); }

void add_key(db_hash& db, std::span<const std::int32_t> key) {
  require_entries(db);
  const KeyBuffer k = key_buffer(db, key);
  if (k.all_zero()) stop("db_hash: a key whose words are all 0 cannot be stored");
  db.current = db_hash_locate(db, k.span(), 1);
  if (static_cast<float>(db.filled) > static_cast<float>(db.size) * 0.7f) {
    expand_db_hash(db);
    db.current = db_hash_locate(db, k.span(), 0);
  }
}

void expand_db_hash(db_hash& db, std::optional<std::int32_t> new_size) {
  require_entries(db);
  const std::int64_t target = new_size ? *new_size : 2 * static_cast<std::int64_t>(db.size);
  if (target > std::numeric_limits<std::int32_t>::max()) {
    stop(free_format("db_hash: table of", db.size, "records cannot grow further"));
  }
  const std::int32_t old_size = db.size;
  // The two scratch files go when the expansion ends, also when it stops on the way (a full
  // device, a new size that cannot hold the records): a failed run leaves none behind.
  struct ScratchFiles {
    ~ScratchFiles() {
      for (const char* name : {expansion_setup_file, expansion_data_file}) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(name, ec)) std::filesystem::remove(name, ec);
      }
    }
  } scratch;
  write_setup(db, expansion_setup_file);
  write_data(db, expansion_data_file);
  print_free("table expanded from ", old_size, " to ", static_cast<std::int32_t>(target), " records");
  close_db_hash(db);
  read_setup(db, expansion_setup_file);
  read_data(db, expansion_data_file, std::nullopt, static_cast<std::int32_t>(target));
}

// ---- fields of records ------------------------------------------------------------------------

namespace {

std::int32_t insert_target(db_hash& db, std::string_view name, std::int32_t type) {
  require_entries(db);
  const std::int32_t f = find_field(db, name);
  if (f == 0) stop(free_format("db_hash: field ", name, " nonexistent"));
  if (field_type(db, f) != type) {
    const char* what = type == type_char ? " not alphanumeric" : (type == type_int ? " not integer" : " not real");
    stop(free_format("insert_el_char: field ", name, what));
  }
  return f;
}

std::int32_t* record_words(db_hash& db, std::int32_t f) {
  if (!current_valid(db)) stop("db_hash: insertion of non-index field before any index entry");
  return db.data.data() + static_cast<std::int64_t>(db.current - 1) * db.words + (field_first(db, f) - 1);
}

}  // namespace

void insert_el(db_hash& db, std::string_view name, std::string_view value) {
  const std::int32_t f = insert_target(db, name, type_char);
  if (f == db.index_field) {
    const Array1<std::int32_t> k = text_key(value, field_length(db, f));
    add_key(db, k.vec());
  } else {
    store_text(db, f, value, record_words(db, f));
  }
}

void insert_el(db_hash& db, std::string_view name, const char* value) { insert_el(db, name, std::string_view(value)); }

void insert_el(db_hash& db, std::string_view name, std::int32_t value) {
  const std::int32_t f = insert_target(db, name, type_int);
  if (f == db.index_field) {
    add_key(db, std::span<const std::int32_t>(&value, 1));
  } else {
    *record_words(db, f) = value;
  }
}

void insert_el(db_hash& db, std::string_view name, float value) {
  const std::int32_t f = insert_target(db, name, type_real);
  std::int32_t bits;
  std::memcpy(&bits, &value, 4);
  if (f == db.index_field) {
    add_key(db, std::span<const std::int32_t>(&bits, 1));
  } else {
    *record_words(db, f) = bits;
  }
}

namespace {

const std::int32_t* read_target(const db_hash& db, std::string_view name, std::int32_t type, const char* routine,
                                const char* current_message) {
  require_entries(db);
  const std::int32_t f = find_field(db, name);
  if (f == 0) stop(free_format(std::string(routine) + ": field ", name, " nonexistent"));
  if (field_type(db, f) != type) {
    const char* what = type == type_char ? " not alphanumeric" : (type == type_int ? " not integer" : " not real");
    stop(free_format("get_el_char: field ", name, what));
  }
  if (!current_valid(db)) stop(current_message);
  return db.data.data() + static_cast<std::int64_t>(db.current - 1) * db.words + (field_first(db, f) - 1);
}

}  // namespace

void get_el_char(db_hash& db, std::string_view name, std::string& value) {
  const std::int32_t* w = read_target(db, name, type_char, "get_el_char", "get_el_char: current = 0");
  const std::int32_t f = find_field(db, name);
  value.assign(reinterpret_cast<const char*>(w), static_cast<std::size_t>(field_length(db, f)));
}

void get_el_int(db_hash& db, std::string_view name, std::int32_t& value) {
  value = *read_target(db, name, type_int, "get_el_int", "get_el_integer: current = 0");
}

void get_el_real(db_hash& db, std::string_view name, float& value) {
  const std::int32_t* w = read_target(db, name, type_real, "get_el_real", "get_el_real: current = 0");
  std::memcpy(&value, w, 4);
}

// ---- walking, sorting -------------------------------------------------------------------------

bool move_rec(db_hash& db, std::string_view direction) {
  require_entries(db);
  const char d = direction.empty() ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(direction[0])));
  if (d != 'f' && d != 'n' && d != 'p') stop(free_format("move_rec: unknown direction:", direction));
  auto occupied = [&](std::int32_t s) { return !slot_empty(db, s, db.words); };
  std::int32_t cur = d == 'f' ? 0 : db.current;
  if (d == 'p') {
    cur = std::min(cur, db.size + 1) - 1;
    while (cur >= 1 && !occupied(cur)) --cur;
    db.current = std::max(cur, 0);
    return cur >= 1;
  }
  cur = std::max(cur, 0) + 1;
  while (cur <= db.size && !occupied(cur)) ++cur;
  db.current = std::min(cur, db.size + 1);
  return cur <= db.size;
}

void sort_db(db_hash& db, std::string_view number_field, std::optional<std::string_view> mode) {
  if (mode && mode->substr(0, 2) == "so") {
    if (db.status < 2) stop("sort_db: database not set yet");
    const std::int32_t f = 1;  // the first declared field is the sort key
    if (db.nfields < 1) stop(free_format("sort_db: field ", db.field_name[0], " not found"));
    std::string types;
    switch (field_type(db, f)) {
      case type_char: types = "a"; break;
      case type_int: types = "i"; break;
      case type_real: types = "r"; break;
      default: stop("This should not happen QF234TYr");
    }
    std::vector<std::int32_t> keys;
    for (std::int32_t w = field_first(db, f); w <= field_last(db, f); ++w) keys.push_back(w);
    types.resize(keys.size(), types[0]);
    // Records to the front in slot order, then the sort of those columns.
    const std::int32_t nk = key_words(db);
    std::int32_t n = 0;
    for (std::int32_t s = 1; s <= db.size; ++s) {
      if (slot_empty(db, s, nk)) continue;
      ++n;
      if (n != s) {
        std::int32_t* from = db.data.data() + static_cast<std::int64_t>(s - 1) * db.words;
        std::int32_t* to = db.data.data() + static_cast<std::int64_t>(n - 1) * db.words;
        std::copy_n(from, db.words, to);
        std::fill_n(from, db.words, 0);
      }
    }
    sortmat(db.data, keys, n, std::nullopt, types);
    db.status = 3;
    db.current = 0;
    print_free("table with ", db.filled, " elements sorted");
  }
  require_entries(db);
  const std::int32_t nf = find_field(db, number_field);
  if (nf == 0) stop(free_format("sort_db: field ", number_field, " not found"));
  if (field_type(db, nf) != type_int) stop(free_format("sort_db: field ", number_field, " not integer"));
  std::int32_t number = 0;
  for (bool more = move_rec(db, "first"); more; more = move_rec(db, "next")) {
    db.data(field_first(db, nf), db.current) = ++number;
  }
}

// ---- files ------------------------------------------------------------------------------------

void write_setup(db_hash& db, const std::string& file) {
  if (db.status < 2) stop("write_setup: status < 2");
  std::ofstream os(file);
  if (!os) stop(free_format("db_hash: cannot open file ", file));
  os << fformat("(8i10)", db.nfields, db.size, db.words, db.nfields, db.index_field);
  std::string names;
  for (std::int32_t f = 1; f <= db.nfields; ++f) names += db.field_name[static_cast<std::size_t>(f - 1)];
  os << names << '\n';
  std::vector<std::int32_t> info;
  for (std::int32_t f = 1; f <= db.nfields; ++f) {
    for (std::int32_t i = 1; i <= 4; ++i) info.push_back(db.field_info(i, f));
  }
  os << Format("(4i10)").write(FormatList(info));
  os.flush();
  if (!os) stop(free_format("db_hash: cannot write file ", file));
}

void read_setup(db_hash& db, const std::string& file) {
  if (db.status != 0) incorrect_state("read_setup", db.status, 0, false);
  std::ifstream in = open_text(file);
  std::string line;
  std::vector<std::int64_t> v;
  if (!std::getline(in, line) || !parse_fixed(line, 10, v) || v.size() < 5) bad_setup(file);
  const std::int64_t nf = v[0], size = v[1], words = v[2], index = v[4];
  if (nf < 1 || nf > db_hash_max_fields || !fits_i4(size) || words < 1 || words > std::numeric_limits<std::int32_t>::max() ||
      index < 1 || index > nf) {
    bad_setup(file);
  }
  if (!std::getline(in, line)) bad_setup(file);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  line.resize(static_cast<std::size_t>(nf * db_hash_name_length), ' ');
  const std::string names = line;
  db_hash t;
  t.nfields = static_cast<std::int32_t>(nf);
  t.size = static_cast<std::int32_t>(size);
  t.words = static_cast<std::int32_t>(words);
  t.index_field = static_cast<std::int32_t>(index);
  for (std::int32_t f = 1; f <= t.nfields; ++f) {
    t.field_name[static_cast<std::size_t>(f - 1)] =
        names.substr(static_cast<std::size_t>((f - 1) * db_hash_name_length), static_cast<std::size_t>(db_hash_name_length));
    if (!std::getline(in, line) || !parse_fixed(line, 10, v) || v.size() < 4) bad_setup(file);
    const std::int64_t type = v[0], length = v[1], first = v[2], last = v[3];
    if (type < 1 || type > 3 || length < 1 || !fits_i4(length) || first < 1 || last > words ||
        last - first + 1 != words_of(static_cast<std::int32_t>(type), static_cast<std::int32_t>(length))) {
      bad_setup(file);
    }
    t.field_info(1, f) = static_cast<std::int32_t>(type);
    t.field_info(2, f) = static_cast<std::int32_t>(length);
    t.field_info(3, f) = static_cast<std::int32_t>(first);
    t.field_info(4, f) = static_cast<std::int32_t>(last);
  }
  if (t.field_info(3, t.index_field) != 1 || key_words(t) > db_hash_max_key_words) bad_setup(file);
  // The fields tile the record: no two share a word, and together they take all its words.
  std::int64_t taken = 0;
  for (std::int32_t f = 1; f <= t.nfields; ++f) {
    taken += field_last(t, f) - field_first(t, f) + 1;
    for (std::int32_t g = 1; g < f; ++g)
      if (field_first(t, f) <= field_last(t, g) && field_first(t, g) <= field_last(t, f)) bad_setup(file);
  }
  if (taken != t.words) bad_setup(file);
  t.status = 1;
  db = std::move(t);
}

void write_data(db_hash& db, const std::string& file, std::optional<std::string_view> form) {
  require_entries(db);
  const std::int32_t nk = key_words(db);
  if (binary_form(form)) {
    FramedWriter w(file);
    if (!w.is_open()) stop(free_format("db_hash: cannot open file ", file));
    w.write(db.filled);
    for (std::int32_t s = 1; s <= db.size; ++s) {
      if (slot_empty(db, s, nk)) continue;
      w.write_bytes(db.data.data() + static_cast<std::int64_t>(s - 1) * db.words,
                    static_cast<std::uint64_t>(db.words) * 4);
    }
    w.close();
    return;
  }
  std::ofstream os(file);
  if (!os) stop(free_format("db_hash: cannot open file ", file));
  os << fformat("(8i10)", db.filled);
  // Each record by (6i12): six right-aligned values of 12 characters to a line. An i4 takes
  // at most 11 characters, so the field never overflows; written directly, as a table can be
  // large and this is the path of every expansion.
  std::string buf;
  for (std::int32_t s = 1; s <= db.size; ++s) {
    if (slot_empty(db, s, nk)) continue;
    const std::int32_t* c = db.data.data() + static_cast<std::int64_t>(s - 1) * db.words;
    buf.clear();
    for (std::int32_t i = 0; i < db.words; ++i) {
      char num[16];
      const auto r = std::to_chars(num, num + sizeof num, c[i]);
      buf.append(static_cast<std::size_t>(12 - (r.ptr - num)), ' ');
      buf.append(num, r.ptr);
      if (i % 6 == 5 || i == db.words - 1) buf += '\n';
    }
    os << buf;
  }
  os.flush();
  if (!os) stop(free_format("db_hash: cannot write file ", file));
}

void read_data(db_hash& db, const std::string& file, std::optional<std::string_view> form,
               std::optional<std::int32_t> slots) {
  if (db.status != 1) stop("read_setup: setup not read");
  db.status = 2;
  const bool binary = binary_form(form);
  std::ifstream text;
  FramedReader bin;
  std::int64_t expected = 0;
  if (binary) {
    if (!bin.open(file)) stop(free_format("db_hash: cannot open file ", file));
    std::int32_t n = 0;
    if (bin.read(n) != FramedStatus::ok) n = 0;
    expected = n;
  } else {
    text = open_text(file);
    std::string line;
    std::vector<std::int64_t> v;
    if (std::getline(text, line) && parse_fixed(line, 10, v) && !v.empty()) expected = v[0];
  }
  std::int64_t size;
  if (slots) {
    size = *slots;
  } else {
    const float s = static_cast<float>(expected) / 0.8f + 2.0f;
    size = s < 2147483520.0f ? static_cast<std::int64_t>(s) : std::numeric_limits<std::int64_t>::max();
  }
  if (size > std::numeric_limits<std::int32_t>::max()) stop(free_format("db_hash: table of", expected, "records is too large"));
  // A count beyond what the file can hold (a record takes at least two characters a word, less
  // one, in text; its words and two counts in binary) cannot all be read: the table is made
  // for what the file can hold, and the count check below reports the shortfall as for any
  // short file.
  std::error_code ec;
  const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(file, ec));
  if (!ec && !slots) {
    const std::int64_t per_entry = binary ? 8 + 4 * std::int64_t{db.words} : 2 * std::int64_t{db.words} - 1;
    const std::int64_t most = bytes / per_entry + 1;
    if (expected > most)
      size = std::min<std::int64_t>(size, static_cast<std::int64_t>(static_cast<float>(most) / 0.8f + 2.0f));
  }
  allocate_data(db, static_cast<std::int32_t>(std::max<std::int64_t>(size, 1)));
  db.filled = 0;
  db.current = 0;

  const std::int32_t nk = key_words(db);
  std::vector<std::int32_t> rec(static_cast<std::size_t>(db.words));
  std::int64_t read = 0;
  std::string line;
  for (std::int64_t e = 0; e < expected; ++e) {
    if (binary) {
      if (bin.read(rec) != FramedStatus::ok) break;
    } else {
      std::size_t got = 0;
      bool ok = true;
      while (ok && got < rec.size()) {
        if (!std::getline(text, line)) { ok = false; break; }
        // Values separated by blanks; something that is not an i4 ends the reading, and the
        // count check reports it.
        const char* p = line.data();
        const char* end = p + line.size();
        for (;;) {
          while (p < end && (*p == ' ' || *p == '\r' || *p == '\t')) ++p;
          if (p == end || got == rec.size()) break;
          std::int32_t v;
          const auto r = std::from_chars(p, end, v);
          if (r.ec != std::errc() || (r.ptr < end && *r.ptr != ' ' && *r.ptr != '\r' && *r.ptr != '\t')) {
            ok = false;
            break;
          }
          rec[got++] = v;
          p = r.ptr;
        }
      }
      if (!ok) break;
    }
    if (std::all_of(rec.begin(), rec.begin() + nk, [](std::int32_t w) { return w == 0; })) break;
    const std::int32_t slot = hash_prime_int(rec.data(), nk, db.data.data(), db.size, db.words, 1, db.filled);
    std::copy(rec.begin(), rec.end(), db.data.data() + static_cast<std::int64_t>(slot - 1) * db.words);
    ++read;
  }
  if (read != expected) {
    stop(" read_data unsuccessful\n" + free_format("read ", read, " instead of ", expected, " entries"));
  }
}

// ---- printing ---------------------------------------------------------------------------------

void print_db_status(const db_hash& db) {
  std::ostream& o = out();
  switch (db.status) {
    case 0: o << "db_hash:  uninitialized\n"; break;
    case 1: o << "db_hash: status:accepting field definitions\n"; break;
    case 2: o << "db_hash: status:accepting entries\n"; break;
    case 3: o << "db_hash: status:sorted\n"; break;
    default: print_free("db_hash: status:", db.status); break;
  }
  for (std::int32_t f = 1; f <= db.nfields; ++f) {
    const std::int32_t t = field_type(db, f);
    const char* tname = t == type_char ? "char" : (t == type_int ? "int" : "real");
    print_free(db.field_name[static_cast<std::size_t>(f - 1)], tname, field_length(db, f));
  }
  if (db.index_field != 0) {
    print_free(" index variable: ", db.field_name[static_cast<std::size_t>(db.index_field - 1)]);
  } else {
    o << "index not set\n";
  }
  print_free("number of entries:", db.size);
  print_free("number of filled entries:", db.filled);
}

void print_entry(const db_hash& db) {
  std::ostream& o = out();
  if (db.filled == 0) {
    o << "print_entry: empty table\n";
    return;
  }
  if (!current_valid(db) || db.status < 2) {
    o << "print_entry: no current record\n";
    return;
  }
  // Each value by (i0,1x) or (g0.4,1x): the value and one blank.
  static const Format fint("(i0)"), freal("(g0.4)");
  const std::int32_t* c = db.data.data() + static_cast<std::int64_t>(db.current - 1) * db.words;
  std::string line;
  for (std::int32_t f = 1; f <= db.nfields; ++f) {
    const std::int32_t* w = c + (field_first(db, f) - 1);
    switch (field_type(db, f)) {
      case type_int: line += fint.write_partial(FormatList(*w)) + ' '; break;
      case type_real: {
        float v;
        std::memcpy(&v, w, 4);
        line += freal.write_partial(FormatList(v)) + ' ';
        break;
      }
      default: line.append(reinterpret_cast<const char*>(w), static_cast<std::size_t>(field_length(db, f))); break;
    }
  }
  o << line << '\n';
}

}  // namespace mmekit
