// Process CPU time and wall-clock time, for the elapsed-time lines of long steps.
#pragma once

namespace mmekit {

double cpu_seconds();   // CPU time of the process so far
double wall_seconds();  // a monotonic wall clock

// Measures from construction or the last reset.
class Stopwatch {
 public:
  Stopwatch() { reset(); }
  void reset();
  double cpu() const;
  double wall() const;

 private:
  double cpu0_ = 0, wall0_ = 0;
};

}  // namespace mmekit
