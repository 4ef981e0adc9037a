// Framed binary records: buffered writing and reading of 4-byte-count framed records.

#include "mmekit/support/framed.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <sys/stat.h>

#include "mmekit/support/stop.hpp"

namespace mmekit {

namespace {

std::uint64_t piece_limit = framed_piece_max;
constexpr std::size_t io_buffer_bytes = std::size_t{1} << 20;

void encode_count(unsigned char* b, std::int32_t count) {
  auto u = static_cast<std::uint32_t>(count);
  b[0] = static_cast<unsigned char>(u);
  b[1] = static_cast<unsigned char>(u >> 8);
  b[2] = static_cast<unsigned char>(u >> 16);
  b[3] = static_cast<unsigned char>(u >> 24);
}

std::int32_t decode_count(const unsigned char* b) {
  std::uint32_t u = std::uint32_t(b[0]) | std::uint32_t(b[1]) << 8 | std::uint32_t(b[2]) << 16 |
                    std::uint32_t(b[3]) << 24;
  return static_cast<std::int32_t>(u);
}

}  // namespace

void set_framed_piece_limit(std::uint64_t bytes) {
  piece_limit = std::clamp<std::uint64_t>(bytes, 1, framed_piece_max);
}

// ---------------------------------------------------------------------------------------------

FramedWriter::~FramedWriter() {
  if (file_) std::fclose(file_);
}

bool FramedWriter::open(const std::string& path, bool append) {
  close();
  file_ = std::fopen(path.c_str(), append ? "ab" : "wb");
  if (!file_) return false;
  path_ = path;
  iobuf_.resize(io_buffer_bytes);
  std::setvbuf(file_, iobuf_.data(), _IOFBF, iobuf_.size());
  return true;
}

void FramedWriter::close() {
  if (!file_) return;
  bool failed = std::fclose(file_) != 0;
  file_ = nullptr;
  if (failed) stop(" cannot write file " + path_);
}

void FramedWriter::write_bytes(const void* data, std::uint64_t bytes) {
  detail::ByteSpan one{const_cast<void*>(data), bytes};
  write_parts(&one, 1);
}

void FramedWriter::write_parts(const detail::ByteSpan* parts, std::size_t n) {
  if (!file_) stop(" cannot write a record: no file is open");
  auto put = [&](const void* p, std::uint64_t bytes) {
    if (bytes == 0) return;
    if (std::fwrite(p, 1, bytes, file_) != bytes) {
      std::fclose(file_);
      file_ = nullptr;
      stop(" cannot write file " + path_);
    }
  };
  auto put_count = [&](std::int32_t c) {
    unsigned char b[4];
    encode_count(b, c);
    put(b, 4);
  };
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < n; ++i) total += parts[i].bytes;
  const std::uint64_t limit = piece_limit;
  if (total <= limit) {
    put_count(static_cast<std::int32_t>(total));
    for (std::size_t i = 0; i < n; ++i) put(parts[i].data, parts[i].bytes);
    put_count(static_cast<std::int32_t>(total));
    return;
  }
  // Pieces of `limit` bytes, the last one shorter; the parts are walked with a cursor.
  std::size_t part = 0;
  std::uint64_t offset = 0;
  std::uint64_t remaining = total;
  bool first = true;
  while (remaining > 0) {
    std::uint64_t size = std::min(limit, remaining);
    bool last = size == remaining;
    auto count = static_cast<std::int32_t>(size);
    put_count(last ? count : -count);
    for (std::uint64_t left = size; left > 0;) {
      while (parts[part].bytes == offset) {
        ++part;
        offset = 0;
      }
      std::uint64_t take = std::min(left, parts[part].bytes - offset);
      put(static_cast<const unsigned char*>(parts[part].data) + offset, take);
      offset += take;
      left -= take;
    }
    put_count(first ? count : -count);
    remaining -= size;
    first = false;
  }
}

// ---------------------------------------------------------------------------------------------

FramedReader::~FramedReader() {
  if (file_) std::fclose(file_);
}

bool FramedReader::open(const std::string& path) {
  close();
  file_ = std::fopen(path.c_str(), "rb");
  if (!file_) return false;
  iobuf_.resize(io_buffer_bytes);
  std::setvbuf(file_, iobuf_.data(), _IOFBF, iobuf_.size());
  struct stat st;
  file_size_ = fstat(fileno(file_), &st) == 0 ? static_cast<std::uint64_t>(st.st_size)
                                               : std::numeric_limits<std::uint64_t>::max();
  position_ = 0;
  return true;
}

void FramedReader::close() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
}

void FramedReader::rewind() {
  if (file_) std::rewind(file_);
  position_ = 0;
}

bool FramedReader::get(void* p, std::uint64_t bytes) {
  std::size_t got = std::fread(p, 1, bytes, file_);
  position_ += got;
  return got == bytes;
}

// 0: four bytes read; 1: clean end of the file; 2: the file ends inside the count.
int FramedReader::read_count(std::int32_t& count) {
  unsigned char b[4];
  std::size_t got = std::fread(b, 1, 4, file_);
  position_ += got;
  if (got == 0) return 1;
  if (got < 4) return 2;
  count = decode_count(b);
  return 0;
}

// The leading count of the next piece: its size, and whether another piece follows. The
// size is checked against what the file still holds, so a damaged count never allocates.
FramedStatus FramedReader::next_piece(std::uint64_t& size, bool& more, bool first) {
  std::int32_t lead = 0;
  int r = read_count(lead);
  if (r == 1) return first ? FramedStatus::end_of_file : FramedStatus::bad_frame;
  if (r == 2 || lead == std::numeric_limits<std::int32_t>::min()) return FramedStatus::bad_frame;
  more = lead < 0;
  size = static_cast<std::uint64_t>(lead < 0 ? -std::int64_t{lead} : std::int64_t{lead});
  if (position_ > file_size_ || size + 4 > file_size_ - position_) return FramedStatus::bad_frame;
  return FramedStatus::ok;
}

bool FramedReader::check_trailer(std::uint64_t size, bool first) {
  std::int32_t trail = 0;
  if (read_count(trail) != 0) return false;
  auto expected = static_cast<std::int64_t>(size);
  return trail == (first ? expected : -expected);
}

FramedStatus FramedReader::read_bytes(std::vector<unsigned char>& record) {
  record.clear();
  if (!file_) return FramedStatus::end_of_file;
  bool first = true;
  while (true) {
    std::uint64_t size = 0;
    bool more = false;
    FramedStatus s = next_piece(size, more, first);
    if (s != FramedStatus::ok) return s;
    std::size_t at = record.size();
    record.resize(at + size);
    if (size > 0 && !get(record.data() + at, size)) return FramedStatus::bad_frame;
    if (!check_trailer(size, first)) return FramedStatus::bad_frame;
    first = false;
    if (!more) return FramedStatus::ok;
  }
}

FramedStatus FramedReader::read_parts(const detail::ByteSpan* parts, std::size_t n) {
  if (!file_) return FramedStatus::end_of_file;
  std::size_t part = 0;
  std::uint64_t offset = 0;
  bool first = true;
  while (true) {
    std::uint64_t size = 0;
    bool more = false;
    FramedStatus s = next_piece(size, more, first);
    if (s != FramedStatus::ok) return s;
    std::uint64_t left = size;
    while (left > 0) {
      while (part < n && parts[part].bytes == offset) {
        ++part;
        offset = 0;
      }
      if (part == n) {  // the parts are full: skip the rest of the piece
        if (fseeko(file_, static_cast<off_t>(left), SEEK_CUR) != 0) return FramedStatus::bad_frame;
        position_ += left;
        break;
      }
      std::uint64_t take = std::min(left, parts[part].bytes - offset);
      if (!get(static_cast<unsigned char*>(parts[part].data) + offset, take)) return FramedStatus::bad_frame;
      offset += take;
      left -= take;
    }
    if (!check_trailer(size, first)) return FramedStatus::bad_frame;
    first = false;
    if (!more) break;
  }
  while (part < n && parts[part].bytes == offset) {
    ++part;
    offset = 0;
  }
  return part < n ? FramedStatus::short_record : FramedStatus::ok;
}

}  // namespace mmekit
