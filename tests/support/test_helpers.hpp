// Shared pieces of the support-layer tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace support_test {

// Runs `body`, which must stop with `message`: the Stop carries it and the output shows it as
// one line.
inline void expect_stop(const std::function<void()>& body, const std::string& message) {
  mmekit::CaptureOutput cap;
  try {
    body();
    ADD_FAILURE() << "no stop; expected " << message;
  } catch (const mmekit::Stop& e) {
    EXPECT_EQ(std::string(e.what()), message);
    EXPECT_EQ(cap.text(), message + "\n");
  }
}

}  // namespace support_test
