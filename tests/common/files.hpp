// Whole files as text, for tests of readers and writers. Tests run in a scratch directory of
// their own program, so plain names are safe.
#pragma once

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace mmekit::test {

inline std::string read_file(const std::string& name) {
  std::ifstream f(name, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

inline void write_file(const std::string& name, const std::string& text) {
  std::ofstream f(name, std::ios::binary);
  f << text;
}

inline bool file_exists(const std::string& name) { return std::ifstream(name).good(); }

}  // namespace mmekit::test
