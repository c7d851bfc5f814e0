// The codec's linear congruential generator.
#pragma once

#include <cstdint>

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int16_t kErasureSeed = 21845;  // codebook words of erased frames
inline constexpr int16_t kNoiseSeed = 11111;    // comfort noise

// seed <- seed * 31821 + 13849 modulo 2^16; the new seed is the result.
inline int16_t random16(int16_t* seed) {
  *seed = static_cast<int16_t>(static_cast<uint16_t>(*seed * 31821 + 13849));
  return *seed;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
