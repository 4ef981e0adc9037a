// model_print: reads a parameter file, whose name it asks for on standard input, and prints
// the model it describes, with the checks of the (co)variance matrices.
//
//   echo params.txt | model_print ["title"]

#include <string>

#include "mmekit/model/model.hpp"
#include "mmekit/support/stop.hpp"

int main(int argc, char** argv) {
  const std::string title = argc > 1 ? argv[1] : "MODEL DESCRIPTION";
  return mmekit::run_program([&] {
    mmekit::read_parameter_file();
    mmekit::print_parameter_file(title);
  });
}
