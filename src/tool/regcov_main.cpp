// The covariate tool: dialogue on standard input, prompts and the record count on standard
// output. Exit status 0 after a normal end, 1 after an error stop.
#include <exception>
#include <iostream>

#include "mmekit/support/free_format.hpp"
#include "mmekit/support/stop.hpp"
#include "mmekit/tool/regcov.hpp"

int main() {
  return mmekit::run_program([] {
    try {
      mmekit::regcov(std::cin);
    } catch (const mmekit::Stop&) {
      throw;
    } catch (const std::exception& e) {
      mmekit::stop(mmekit::free_format("*** error :", e.what()));
    }
  });
}
