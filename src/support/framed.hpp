// Framed binary records: the form of every "binary" or "unformatted" file of the system.
//
// Each record is framed by a leading and a trailing 4-byte little-endian byte count. A record
// longer than 2,147,483,639 bytes is written in pieces, each framed the same way; every piece
// but the last has the sign bit set in its leading count, and every piece but the first has it
// set in its trailing count, so that a reader knows a record goes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "support/array.hpp"

namespace mmekit {

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

 private:
  std::FILE* file_ = nullptr;
  std::vector<unsigned char> buffer_;
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

 private:
  std::FILE* file_ = nullptr;
  std::vector<unsigned char> buffer_;
};

namespace detail {
template <class T>
void append_part(std::vector<unsigned char>& b, const T& v) {
  if constexpr (std::is_arithmetic_v<T>) {
    const auto* p = reinterpret_cast<const unsigned char*>(&v);
    b.insert(b.end(), p, p + sizeof(T));
  } else {
    const auto* p = reinterpret_cast<const unsigned char*>(std::data(v));
    b.insert(b.end(), p, p + sizeof(*std::data(v)) * std::size(v));
  }
}
template <class T>
bool take_part(const std::vector<unsigned char>& b, std::size_t& at, T& v) {
  std::size_t n;
  unsigned char* p;
  if constexpr (std::is_arithmetic_v<T>) {
    n = sizeof(T);
    p = reinterpret_cast<unsigned char*>(&v);
  } else {
    n = sizeof(*std::data(v)) * std::size(v);
    p = reinterpret_cast<unsigned char*>(std::data(v));
  }
  if (b.size() - at < n) return false;
  std::copy(b.begin() + static_cast<std::ptrdiff_t>(at), b.begin() + static_cast<std::ptrdiff_t>(at + n), p);
  at += n;
  return true;
}
}  // namespace detail

template <class... Parts>
void FramedWriter::write(const Parts&... parts) {
  buffer_.clear();
  (detail::append_part(buffer_, parts), ...);
  write_bytes(buffer_.data(), buffer_.size());
}

template <class... Parts>
FramedStatus FramedReader::read(Parts&... parts) {
  FramedStatus s = read_bytes(buffer_);
  if (s != FramedStatus::ok) return s;
  std::size_t at = 0;
  bool ok = (detail::take_part(buffer_, at, parts) && ...);
  return ok ? FramedStatus::ok : FramedStatus::short_record;
}

}  // namespace mmekit
