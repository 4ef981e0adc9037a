#include "mmekit/support/clock.hpp"

#include <chrono>
#include <ctime>

namespace mmekit {

double cpu_seconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double wall_seconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void Stopwatch::reset() {
  cpu0_ = cpu_seconds();
  wall0_ = wall_seconds();
}
double Stopwatch::cpu() const { return cpu_seconds() - cpu0_; }
double Stopwatch::wall() const { return wall_seconds() - wall0_; }

}  // namespace mmekit
