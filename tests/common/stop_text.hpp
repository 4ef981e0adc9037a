// The text a stop carries, for tests that compare it whole.
#pragma once

#include <functional>
#include <string>

#include "mmekit/support/stop.hpp"

namespace mmekit::testing_support {

// Runs `f` and returns the text of the Stop it throws, or "(no stop)" when it returns.
inline std::string stop_text(const std::function<void()>& f) {
  try {
    f();
  } catch (const Stop& e) {
    return e.what();
  }
  return "(no stop)";
}

}  // namespace mmekit::testing_support
