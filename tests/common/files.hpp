// Whole files as text, for tests of readers and writers. Tests run in a scratch directory of
// their own program, so plain names are safe.
#pragma once

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

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

// Runs a shell command line; its standard output, and its exit status in `status` (-1 when it
// could not be started). For tests that let another program read what was written.
inline std::string command_output(const std::string& command, int& status) {
  std::string text;
  status = -1;
  if (std::FILE* p = ::popen(command.c_str(), "r")) {
    char buffer[4096];
    for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, p)) > 0;) text.append(buffer, got);
    const int rc = ::pclose(p);
    status = rc == -1 ? -1 : (WIFEXITED(rc) ? WEXITSTATUS(rc) : -1);
  }
  return text;
}

}  // namespace mmekit::test
