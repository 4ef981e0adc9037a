// Shared pieces of the tool tests: whole files as text.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace tool_test {

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

}  // namespace tool_test
