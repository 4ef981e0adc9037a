// Fuzzes the whole program: the input bytes are the dialogue answers after the two file names
// (position line and range answers) and, after the first NUL byte, the data file. Checks: no
// crash, hang or sanitizer report; every failure is an mmekit::Stop. Runs in the current
// directory and writes fz_in.txt and fz_out.txt there.
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/regcov.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace mmekit;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  std::size_t nul = bytes.find('\0');
  std::string answers = bytes.substr(0, nul);
  std::string file = nul == std::string::npos ? std::string() : bytes.substr(nul + 1);
  {
    std::ofstream f("fz_in.txt", std::ios::binary | std::ios::trunc);
    f << file;
  }
  std::istringstream in("fz_in.txt\nfz_out.txt\n" + answers);
  CaptureOutput cap;
  try {
    regcov(in);
  } catch (const Stop&) {
  }
  return 0;
}
