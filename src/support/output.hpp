// The run's log stream: standard output unless a caller has put another stream in its place.
//
// Every log line and every message of the library goes to `out()`. A program that wants the
// printout elsewhere (a log file, a GUI panel, a string) redirects it for a scope:
//
//   std::ofstream log("run.log");
//   {
//     mmekit::OutputTo to(log);    // from here on the library writes to `log`
//     mmekit::SOLVE_SPARSE_HASHM(a, rhs, sol);
//   }                              // and here the previous stream is back
//
// Redirections nest; each restores the stream that was in force when it began, also when the
// scope is left by an exception (a stop). The library runs on one thread: a redirection is
// process-wide and not meant to be changed from several threads.
#pragma once

#include <ostream>
#include <sstream>
#include <string>

namespace mmekit {

// The stream the library writes to now.
std::ostream& out();

// Sends the library's output to `stream` until the object is destroyed. The stream must
// outlive the object.
class OutputTo {
 public:
  explicit OutputTo(std::ostream& stream);
  ~OutputTo();
  OutputTo(const OutputTo&) = delete;
  OutputTo& operator=(const OutputTo&) = delete;

 private:
  std::ostream* previous_;
};

// Collects the library's output in a string until the object is destroyed; what was written
// is in `text()`.
class CaptureOutput {
 public:
  CaptureOutput() : to_(buffer_) {}
  std::string text() const { return buffer_.str(); }
  void clear() { buffer_.str(""); }

 private:
  std::ostringstream buffer_;  // declared first: it outlives the redirection
  OutputTo to_;
};

}  // namespace mmekit
