#pragma once

#include <array>
#include <cstdint>

namespace quorl::sim {

/// A bijection that spreads neighbouring numbers over all 64 bits.
constexpr uint64_t Mix(uint64_t value) {
  value += 0x9E3779B97F4A7C15;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

/// All chance in a simulated world comes from one of these: xoshiro256**, so that a seed gives the same run on every
/// platform and with every standard library.
class Random {
 public:
  explicit Random(uint64_t seed) {
    for (uint64_t& word : state) word = seed = Mix(seed);
  }

  uint64_t Next() {
    const uint64_t result = RotateLeft(state[1] * 5, 7) * 9;
    const uint64_t shifted = state[1] << 17;
    state[2] ^= state[0];
    state[3] ^= state[1];
    state[1] ^= state[2];
    state[0] ^= state[3];
    state[2] ^= shifted;
    state[3] = RotateLeft(state[3], 45);
    return result;
  }

  /// 0 to bound - 1; bound is at least 1. The bias of the remainder is far below what a scenario could notice.
  uint64_t Below(uint64_t bound) { return Next() % bound; }

  /// 0 <= result < 1.
  double Fraction() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

 private:
  static constexpr uint64_t RotateLeft(uint64_t value, int bits) { return (value << bits) | (value >> (64 - bits)); }

  std::array<uint64_t, 4> state{};
};

}  // namespace quorl::sim
