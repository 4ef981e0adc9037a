// The run's log stream: standard output unless a test has put another stream in its place.
#pragma once

#include <ostream>
#include <sstream>
#include <string>

namespace mmekit {

// Every log line and every message of the library goes here.
std::ostream& out();

// Replaces the log stream until the object is destroyed; what was written is in `text()`.
// Used by tests to read the exact output of a routine.
class CaptureOutput {
 public:
  CaptureOutput();
  ~CaptureOutput();
  CaptureOutput(const CaptureOutput&) = delete;
  CaptureOutput& operator=(const CaptureOutput&) = delete;
  std::string text() const { return buffer_.str(); }
  void clear() { buffer_.str(""); }

 private:
  std::ostringstream buffer_;
  std::ostream* previous_;
};

}  // namespace mmekit
