// Whole files read and written as bytes.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace mmekit::testing_support {

inline std::string file_bytes(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_bytes(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

}  // namespace mmekit::testing_support
