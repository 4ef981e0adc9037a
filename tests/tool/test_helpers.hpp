// Shared pieces of the tool tests: whole files as text, and the output of a stop.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/output.hpp"
#include "support/stop.hpp"

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

// Runs `f`, expects it to stop, and returns what it printed.
template <class F>
std::string stop_text(F f) {
  mmekit::CaptureOutput cap;
  EXPECT_THROW(f(), mmekit::Stop);
  return cap.text();
}

}  // namespace tool_test
