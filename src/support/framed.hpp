// Framed binary records: the form of every "binary" or "unformatted" file of the system.
//
// Each record is framed by a leading and a trailing 4-byte little-endian byte count. A record
// longer than 2,147,483,639 bytes is written in pieces, each framed the same way; every piece
// but the last has the sign bit set in its leading count, and every piece but the first has it
// set in its trailing count, so that a reader knows a record goes on. A count with the sign bit
// set is the negated byte count of its piece (two's complement): -n as a signed 4-byte integer.
//
// Write failures (a full disk, a closed writer) stop the run with the file's name. Reading
// reports through FramedStatus: end_of_file at a clean end between records, bad_frame for a
// truncated file or counts that do not match.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "mmekit/support/array.hpp"

namespace mmekit {

namespace detail {
struct ByteSpan;
}

inline constexpr std::uint64_t framed_piece_max = 2147483639;

// The largest piece a writer makes; tests lower it to check the split on small records.
// Reset to framed_piece_max with no argument.
void set_framed_piece_limit(std::uint64_t bytes = framed_piece_max);

enum class FramedStatus { ok, end_of_file, short_record, bad_frame };

class FramedWriter {
 public:
  FramedWriter() = default;
  explicit FramedWriter(const std::string& path, bool append = false) { open(path, append); }
  ~FramedWriter();
  FramedWriter(const FramedWriter&) = delete;
  FramedWriter& operator=(const FramedWriter&) = delete;

  bool open(const std::string& path, bool append = false);
  bool is_open() const { return file_ != nullptr; }
  void close();

  // One record of `bytes` bytes.
  void write_bytes(const void* data, std::uint64_t bytes);
  // One record made of the parts in order: arithmetic scalars, and vectors, Array1s or spans
  // of arithmetic values.
  template <class... Parts>
  void write(const Parts&... parts);
  // One record made of `n` runs of bytes, written straight from where they are.
  void write_parts(const detail::ByteSpan* parts, std::size_t n);

 private:
  std::FILE* file_ = nullptr;
  std::string path_;
  std::vector<char> iobuf_;
};

class FramedReader {
 public:
  FramedReader() = default;
  explicit FramedReader(const std::string& path) { open(path); }
  ~FramedReader();
  FramedReader(const FramedReader&) = delete;
  FramedReader& operator=(const FramedReader&) = delete;

  bool open(const std::string& path);
  bool is_open() const { return file_ != nullptr; }
  void close();
  void rewind();

  // The next whole record, its pieces joined.
  FramedStatus read_bytes(std::vector<unsigned char>& record);
  // The next record into the parts in order, as FramedWriter::write made it; containers keep
  // their sizes (allocate them first). short_record when the record holds fewer bytes than the
  // parts; extra bytes of the record are skipped.
  template <class... Parts>
  FramedStatus read(Parts&... parts);
  // The next record into `n` runs of bytes in order, read straight into them.
  FramedStatus read_parts(const detail::ByteSpan* parts, std::size_t n);

 private:
  FramedStatus next_piece(std::uint64_t& size, bool& more, bool first);
  bool check_trailer(std::uint64_t size, bool first);
  int read_count(std::int32_t& count);
  bool get(void* p, std::uint64_t bytes);

  std::FILE* file_ = nullptr;
  std::vector<char> iobuf_;
  std::uint64_t file_size_ = 0;  // size of the file when opened
  std::uint64_t position_ = 0;   // bytes read or skipped so far
};

namespace detail {
// A part of a record as a run of bytes.
struct ByteSpan {
  void* data;
  std::uint64_t bytes;
};
template <class T>
ByteSpan part_bytes(const T& v) {
  if constexpr (std::is_arithmetic_v<T>) {
    return {const_cast<T*>(&v), sizeof(T)};
  } else {
    using E = std::remove_cv_t<std::remove_reference_t<decltype(*std::data(v))>>;
    static_assert(std::is_arithmetic_v<E>, "record parts are numbers or containers of numbers");
    return {const_cast<E*>(std::data(v)), sizeof(E) * static_cast<std::uint64_t>(std::size(v))};
  }
}
}  // namespace detail

template <class... Parts>
void FramedWriter::write(const Parts&... parts) {
  const detail::ByteSpan spans[] = {detail::part_bytes(parts)..., {nullptr, 0}};
  write_parts(spans, sizeof...(Parts));
}

template <class... Parts>
FramedStatus FramedReader::read(Parts&... parts) {
  const detail::ByteSpan spans[] = {detail::part_bytes(parts)..., {nullptr, 0}};
  return read_parts(spans, sizeof...(Parts));
}

}  // namespace mmekit
