// What a stop prints, for tests that compare the output of a failure whole.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace mmekit::testing_support::printed {

// Runs `f`, expects it to stop, and returns what it printed.
template <class F>
std::string stop_text(F f) {
  CaptureOutput cap;
  EXPECT_THROW(f(), Stop);
  return cap.text();
}

}  // namespace mmekit::testing_support::printed
