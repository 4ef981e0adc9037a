// Shared pieces of the sparse-matrix tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "mmekit/sparse/hashm.hpp"
#include "mmekit/support/output.hpp"
#include "mmekit/support/stop.hpp"

namespace sparse_test {

// Runs `f` with its output captured and returns the text of the Stop it throws, or
// "<no stop>" when it returns; what it printed goes to `printed` when asked for.
inline std::string stop_text(const std::function<void()>& f, std::string* printed = nullptr) {
  mmekit::CaptureOutput cap;
  try {
    f();
  } catch (const mmekit::Stop& e) {
    if (printed) *printed = cap.text();
    return e.what();
  }
  return "<no stop>";
}

// Starts and ends every test with the package parameters at their defaults.
struct FreshParameters : ::testing::Test {
  void SetUp() override { mmekit::reset_sparse_parameters(); }
  void TearDown() override { mmekit::reset_sparse_parameters(); }
};

}  // namespace sparse_test
