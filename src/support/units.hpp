// Numbered file units: the process-wide table through which routines hand files to each other
// by a unit number, as the solver's state files and the diagnostics do.
//
// A unit is opened on a file name, formatted (text) or unformatted (framed binary records, see
// framed.hpp), with a file status:
//   "old"      the file must exist; its contents stay until the first write;
//   "new"      the file must not exist; it is created empty;
//   "replace"  the file is created, or emptied when it exists;
//   "unknown"  (also an empty status) created when missing, else as "old".
// A unit number is refused when it is negative or already open. `units` is the one table.
//
// A formatted unit is a std::fstream opened for reading and writing. An unformatted unit is
// sequential: after open or rewind the first record written replaces the file from its start,
// further records follow it; reading starts at the beginning after open or rewind and goes on
// record by record. Switching from writing to reading (or back) flushes what was written, and
// reading then starts from the beginning of the file.
//
// Record writes report failures (a full disk, a file that cannot be opened) by returning false
// and print nothing: a routine that writes through a unit decides itself what a failure means.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mmekit/support/framed.hpp"

namespace mmekit {

struct UnitTable {
  struct Unit {
    std::string name;
    bool formatted = false;
    std::fstream text;      // formatted units
    FramedWriter writer;    // unformatted units: open while writing
    FramedReader reader;    // unformatted units: open while reading
    bool at_start = true;   // the next write replaces the file from its start
  };

  std::map<std::int32_t, std::unique_ptr<Unit>> open_units;

  // Opens `unit` on `file`; false (and nothing opened) when the unit number is negative or in
  // use, the status is not one of the four, or the file cannot be opened under that status.
  bool open(std::int32_t unit, const std::string& file, bool formatted, std::string_view status = "unknown");
  bool is_open(std::int32_t unit) const;
  bool is_formatted(std::int32_t unit) const;  // false for a unit that is not open
  std::string name(std::int32_t unit) const;   // empty for a unit that is not open
  // Back to the start of the file (a unit that is not open is left alone). False when what
  // was written before could not be flushed.
  bool rewind(std::int32_t unit);
  // Closes the unit (nothing for a unit that is not open). False when what was written could
  // not be flushed.
  bool close(std::int32_t unit);
  // The lowest unit number from `from` to `to` that is not open; -1 when all are.
  std::int32_t first_free(std::int32_t from, std::int32_t to) const;

  // The text stream of a formatted unit; null for an unformatted or closed unit.
  std::fstream* text(std::int32_t unit);

  // One framed record made of the parts in order (as FramedWriter::write); false when the unit
  // is not open unformatted or the write fails.
  template <class... Parts>
  bool write_record(std::int32_t unit, const Parts&... parts) {
    const detail::ByteSpan spans[] = {detail::part_bytes(parts)..., {nullptr, 0}};
    return write_parts(unit, spans, sizeof...(Parts));
  }
  bool write_parts(std::int32_t unit, const detail::ByteSpan* parts, std::size_t n);
  // Pushes what was written to the file; false when that fails.
  bool flush(std::int32_t unit);
  // The next record, whole; end_of_file also for a unit that is not open unformatted.
  FramedStatus read_record(std::int32_t unit, std::vector<unsigned char>& record);
  // The next record into the parts in order (as FramedReader::read).
  template <class... Parts>
  FramedStatus read_record_parts(std::int32_t unit, Parts&... parts) {
    const detail::ByteSpan spans[] = {detail::part_bytes(parts)..., {nullptr, 0}};
    return read_parts(unit, spans, sizeof...(Parts));
  }
  FramedStatus read_parts(std::int32_t unit, const detail::ByteSpan* parts, std::size_t n);

 private:
  Unit* find(std::int32_t unit) const;
  FramedReader* reader(std::int32_t unit);
};

// The process's unit table.
extern UnitTable units;

}  // namespace mmekit
