// The generator x <- A x + C modulo 2^16 can be entered anywhere: k draws on, x is A^k x + C_k.
// So every sample starts its own generator 12 draws after its neighbour's, and all of them step
// together, eight samples a vector of 16-bit lanes.
//
// The sum S of twelve draws needs 20 bits. It is kept as two 16-bit sums, h = sum of (x >> 8) and
// s = S modulo 2^16. The low bytes sum up to at most 12 * 255, so s - 256 h modulo 2^16 is that sum
// exactly, and S >> 7 = 2 h + (s - 256 h) >> 7.
#include "codec/dtx/gaussian_noise.h"

#include "codec/dsp/random.h"
#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr uint32_t kMultiplier = 31821;
constexpr uint32_t kIncrement = 13849;
constexpr double kScale = 1.0 / 512;

}  // namespace

void gaussian_noise_plain(int16_t* seed, double* out) {
  for (int i = 0; i < kSubframe; ++i) {
    int32_t sum = 0;
    for (int k = 0; k < kGaussianDraws; ++k) sum += random16(seed);
    out[i] = (sum >> 7) * kScale;
  }
}

namespace {

constexpr int kBlock = 8;  // samples of a vector
constexpr int kBlocks = kSubframe / kBlock;
using Unsigned = Lanes<uint16_t, kBlock>;
using Signed = Lanes<int16_t, kBlock>;
static_assert(kSubframe % kBlock == 0);

// What takes the seed to the state before each sample's first draw.
struct Jump {
  alignas(Unsigned) uint16_t multiplier[kSubframe];
  alignas(Unsigned) uint16_t increment[kSubframe];
};

consteval Jump make_jump() {
  Jump jump = {};
  uint32_t multiplier = 1;
  uint32_t increment = 0;
  for (int i = 0; i < kSubframe; ++i) {
    jump.multiplier[i] = static_cast<uint16_t>(multiplier);
    jump.increment[i] = static_cast<uint16_t>(increment);
    for (int k = 0; k < kGaussianDraws; ++k) {
      multiplier = multiplier * kMultiplier & 0xFFFF;
      increment = (increment * kMultiplier + kIncrement) & 0xFFFF;
    }
  }
  return jump;
}

constexpr Jump kJump = make_jump();

}  // namespace

void gaussian_noise(int16_t* seed, double* out) {
  const auto start = splat_as<Unsigned>(static_cast<uint16_t>(*seed));
  const auto multiplier = splat_as<Unsigned>(static_cast<uint16_t>(kMultiplier));
  const auto increment = splat_as<Unsigned>(static_cast<uint16_t>(kIncrement));
  for (int b = 0; b < kBlocks; ++b) {
    Unsigned x = start * load_as<Unsigned>(kJump.multiplier + b * kBlock) +
                 load_as<Unsigned>(kJump.increment + b * kBlock);
    Unsigned s = {};
    Signed h = {};
    for (int k = 0; k < kGaussianDraws; ++k) {
      x = x * multiplier + increment;
      s = s + x;
      h = h + (bits_as<int16_t>(x) >> 8);
    }
    const Unsigned low = s - (bits_as<uint16_t>(h) << 8);
    const Signed value = h + h + bits_as<int16_t>(low >> 7);
    for (int i = 0; i < kBlock; ++i) out[b * kBlock + i] = lane(value, i) * kScale;
    *seed = static_cast<int16_t>(lane(x, kBlock - 1));
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
