// Numbered file units.

#include "mmekit/support/units.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit {

UnitTable units;

namespace {

bool file_exists(const std::string& file) {
  struct stat st;
  return ::stat(file.c_str(), &st) == 0;
}

// Runs `f`, which may stop on a failed write; true when it did not. What the framed writer
// prints on its way out is not shown: a unit's caller reports the failure in its own way.
template <class F>
bool quietly(F&& f) {
  CaptureOutput quiet;
  try {
    f();
  } catch (const Stop&) {
    return false;
  }
  return true;
}

bool close_writer(UnitTable::Unit& u) {
  if (!u.writer.is_open()) return true;
  return quietly([&] { u.writer.close(); });
}

}  // namespace

UnitTable::Unit* UnitTable::find(std::int32_t unit) const {
  auto it = open_units.find(unit);
  return it == open_units.end() ? nullptr : it->second.get();
}

bool UnitTable::open(std::int32_t unit, const std::string& file, bool formatted, std::string_view status) {
  if (unit < 0 || find(unit) || file.empty()) return false;
  const bool exists = file_exists(file);
  bool truncate = false;
  if (status == "old") {
    if (!exists) return false;
  } else if (status == "new") {
    if (exists) return false;
    truncate = true;
  } else if (status == "replace") {
    truncate = true;
  } else if (status == "unknown" || status.empty()) {
    truncate = !exists;
  } else {
    return false;
  }
  auto u = std::make_unique<Unit>();
  u->name = file;
  u->formatted = formatted;
  if (truncate) {
    std::ofstream create(file, std::ios::binary | std::ios::trunc);
    if (!create) return false;
  }
  if (formatted) {
    u->text.open(file, std::ios::in | std::ios::out);
    if (!u->text.is_open()) return false;
  } else if (::access(file.c_str(), R_OK) != 0) {
    return false;
  }
  open_units.emplace(unit, std::move(u));
  return true;
}

bool UnitTable::is_open(std::int32_t unit) const { return find(unit) != nullptr; }

bool UnitTable::is_formatted(std::int32_t unit) const {
  const Unit* u = find(unit);
  return u && u->formatted;
}

std::string UnitTable::name(std::int32_t unit) const {
  const Unit* u = find(unit);
  return u ? u->name : std::string();
}

bool UnitTable::rewind(std::int32_t unit) {
  Unit* u = find(unit);
  if (!u) return true;
  if (u->formatted) {
    u->text.clear();
    u->text.flush();
    const bool ok = !u->text.fail();
    u->text.seekg(0);
    u->text.seekp(0);
    return ok;
  }
  const bool ok = close_writer(*u);
  u->reader.close();
  u->at_start = true;
  return ok;
}

bool UnitTable::close(std::int32_t unit) {
  auto it = open_units.find(unit);
  if (it == open_units.end()) return true;
  Unit& u = *it->second;
  bool ok = true;
  if (u.formatted) {
    u.text.flush();
    ok = !u.text.fail();
    u.text.close();
  } else {
    ok = close_writer(u);
    u.reader.close();
  }
  open_units.erase(it);
  return ok;
}

std::int32_t UnitTable::first_free(std::int32_t from, std::int32_t to) const {
  for (std::int64_t k = std::max<std::int32_t>(from, 0); k <= to; ++k)
    if (!find(static_cast<std::int32_t>(k))) return static_cast<std::int32_t>(k);
  return -1;
}

std::fstream* UnitTable::text(std::int32_t unit) {
  Unit* u = find(unit);
  return u && u->formatted ? &u->text : nullptr;
}

bool UnitTable::write_parts(std::int32_t unit, const detail::ByteSpan* parts, std::size_t n) {
  Unit* u = find(unit);
  if (!u || u->formatted) return false;
  u->reader.close();
  if (!u->writer.is_open()) {
    if (!u->writer.open(u->name, !u->at_start)) return false;
    u->at_start = false;
  }
  return quietly([&] { u->writer.write_parts(parts, n); });
}

bool UnitTable::flush(std::int32_t unit) {
  Unit* u = find(unit);
  if (!u) return false;
  if (u->formatted) {
    u->text.flush();
    return !u->text.fail();
  }
  return close_writer(*u);
}

FramedReader* UnitTable::reader(std::int32_t unit) {
  Unit* u = find(unit);
  if (!u || u->formatted) return nullptr;
  if (u->writer.is_open() && !close_writer(*u)) return nullptr;
  if (!u->reader.is_open()) {
    if (!u->reader.open(u->name)) return nullptr;
    u->at_start = false;
  }
  return &u->reader;
}

FramedStatus UnitTable::read_record(std::int32_t unit, std::vector<unsigned char>& record) {
  record.clear();
  FramedReader* r = reader(unit);
  return r ? r->read_bytes(record) : FramedStatus::end_of_file;
}

FramedStatus UnitTable::read_parts(std::int32_t unit, const detail::ByteSpan* parts, std::size_t n) {
  FramedReader* r = reader(unit);
  return r ? r->read_parts(parts, n) : FramedStatus::end_of_file;
}

}  // namespace mmekit
