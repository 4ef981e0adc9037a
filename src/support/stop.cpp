#include "mmekit/support/stop.hpp"

#include <iostream>

#include "mmekit/support/output.hpp"

namespace mmekit {

namespace {
std::ostream* current_output = &std::cout;
}

std::ostream& out() { return *current_output; }

OutputTo::OutputTo(std::ostream& stream) : previous_(current_output) { current_output = &stream; }
OutputTo::~OutputTo() {
  current_output->flush();
  current_output = previous_;
}

void stop(std::string_view message) {
  if (!message.empty()) out() << message << '\n';
  out().flush();
  throw Stop(std::string(message));
}

int run_program(const std::function<void()>& body) {
  int status = 0;
  try {
    body();
  } catch (const Stop&) {
    status = 1;
  }
  out().flush();
  std::cout.flush();
  return status;
}

}  // namespace mmekit
