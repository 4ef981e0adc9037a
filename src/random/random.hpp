// Uniform random numbers: 32 independent streams of a combined multiplicative congruential
// generator (two multiplicative generators modulo m1 and m2, combined by subtraction), each
// stream split into blocks of 2^30 draws so that a stream can be reset or jumped ahead.
//
// The package state is process-wide (`random_state`) and set up on first use with the default
// seeds 1234567890 and 123456789, so a run that never sets seeds draws the same numbers every
// time. Everything is done in 32-bit integers; no intermediate result overflows. Only one
// thread may draw.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace mmekit {

inline constexpr std::int32_t random_streams = 32;  // numg

struct RandomState {
  static constexpr std::int32_t m1 = 2147483563, m2 = 2147483399;
  static constexpr std::int32_t a1 = 40014, a2 = 40692;
  // The multipliers raised to 2^30 (jump to the next block) and to 2^50 (distance between the
  // starting seeds of consecutive streams), modulo m1 and m2.
  static constexpr std::int32_t a1w = 1033780774, a2w = 1494757890;
  static constexpr std::int32_t a1vw = 2082007225, a2vw = 784306273;

  // Stream g is element g (1-based); element 0 is unused.
  std::array<std::int32_t, random_streams + 1> ig1{}, ig2{};  // initial seed
  std::array<std::int32_t, random_streams + 1> lg1{}, lg2{};  // seed of the current block
  std::array<std::int32_t, random_streams + 1> cg1{}, cg2{};  // current seed
  std::array<bool, random_streams + 1> anti{};                // antithetic values
  std::int32_t current = 1;
  bool initialized = false;
};

extern RandomState random_state;

// Puts the package back to its state before first use (not initialised, stream 1 current,
// no antithetic stream).
void reset_random_package();

// Next value of the current stream, 1..2147483562. Initialises the package on first use.
std::int32_t next_int();
// next_int() times 2^-31, in single precision: in (0, 1).
float next_uniform();

// Initial seed of stream 1; the other streams start 2^50 draws apart from it. Every stream is
// put back to its initial seed. Marks the package initialised.
void set_all_seeds(std::int32_t s1, std::int32_t s2);
// Initial seed of the current stream, which is put back to it.
void SETSD(std::int32_t s1, std::int32_t s2);
// Current seed of the current stream.
void GETSD(std::int32_t& s1, std::int32_t& s2);
// Makes stream g (1..32) current.
void SETCGN(std::int32_t g);
void get_current_stream(std::int32_t& g);
// Current stream: -1 back to its initial seed, 0 back to the start of the current block,
// 1 on to the next block.
void INITGN(std::int32_t kind);
// The current stream gives m1 - z in place of z.
void set_antithetic(bool flag);

// a * s mod m for 0 < a < m and 0 < s < m, in 32-bit arithmetic.
std::int32_t MLTMOD(std::int32_t a, std::int32_t s, std::int32_t m);
// Uniform in [low, high], single precision.
float GENUNF(float low, float high);
// Uniform integer in low..high.
std::int32_t IGNUIN(std::int32_t low, std::int32_t high);
// Seeds from a phrase: the same phrase gives the same seeds. Trailing blanks do not count.
void phrase_to_seeds(std::string_view phrase, std::int32_t& s1, std::int32_t& s2);

}  // namespace mmekit
