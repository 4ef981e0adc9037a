// The one way a run ends on an error: print the message on standard output and stop.
//
// Library code never exits the process. `stop` prints its message (which may hold several
// lines) on the output stream of the run and throws `Stop`; a program catches it in `main`
// (see `run_program`) and exits with status 1.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mmekit {

// Thrown by `stop` and by nothing else. `what()` is the text that was printed.
class Stop : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Prints `message` and a newline on the run's output (an empty message prints nothing),
// flushes it, and throws Stop.
[[noreturn]] void stop(std::string_view message);

// Runs `body`; returns 0 when it ends normally and 1 when it stopped. Output is flushed
// either way. Meant as the whole of a program's `main`.
int run_program(const std::function<void()>& body);

}  // namespace mmekit
