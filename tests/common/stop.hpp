// The one way the tests look at a stop: what the Stop carries and what was printed.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit::test {

struct StopSeen {
  bool stopped = false;
  std::string message;  // the text of the Stop
  std::string printed;  // everything written to the library's output meanwhile
};

// Runs `f` with the library's output captured.
inline StopSeen run_to_stop(const std::function<void()>& f) {
  StopSeen s;
  CaptureOutput cap;
  try {
    f();
  } catch (const Stop& e) {
    s.stopped = true;
    s.message = e.what();
  }
  s.printed = cap.text();
  return s;
}

// The text of the Stop that `f` throws, or "(no stop)" when it returns.
inline std::string stop_text(const std::function<void()>& f) {
  StopSeen s = run_to_stop(f);
  return s.stopped ? s.message : "(no stop)";
}

// Everything `f` printed; a failure when it does not stop.
inline std::string stop_output(const std::function<void()>& f) {
  StopSeen s = run_to_stop(f);
  EXPECT_TRUE(s.stopped) << "no stop; printed: " << s.printed;
  return s.printed;
}

// `f` must stop with `message`, printed as the last line of its output.
inline void expect_stop(const std::function<void()>& f, const std::string& message) {
  StopSeen s = run_to_stop(f);
  ASSERT_TRUE(s.stopped) << "no stop; expected " << message;
  EXPECT_EQ(s.message, message);
  const std::string line = message + "\n";
  EXPECT_TRUE(s.printed.size() >= line.size() && s.printed.compare(s.printed.size() - line.size(), line.size(), line) == 0)
      << "printed: " << s.printed;
}

}  // namespace mmekit::test
