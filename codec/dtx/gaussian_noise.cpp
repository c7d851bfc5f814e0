// The generator x <- A x + C modulo 2^16 can be entered anywhere: k draws on, x is A^k x + C_k.
// So every sample starts its own generator 12 draws after its neighbour's, and all of them step
// together, eight samples a vector of 16-bit lanes.
//
// The sum S of twelve draws needs 20 bits. It is kept as two 16-bit sums, h = sum of (x >> 8) and
// s = S modulo 2^16. The low bytes sum up to at most 12 * 255, so s - 256 h modulo 2^16 is that sum
// exactly, and S >> 7 = 2 h + (s - 256 h) >> 7.
#include "codec/dtx/gaussian_noise.h"

#include "codec/dsp/random.h"

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

#if defined(KELG729F_PLAIN)

void gaussian_noise(int16_t* seed, double* out) {
  gaussian_noise_plain(seed, out);
}

#else

namespace {

constexpr int kBlock = 8;  // samples of a vector
constexpr int kBlocks = kSubframe / kBlock;
typedef uint16_t Unsigned __attribute__((vector_size(2 * kBlock), may_alias));
typedef int16_t Signed __attribute__((vector_size(2 * kBlock)));
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

const Unsigned& lanes(const uint16_t* p) {
  return *reinterpret_cast<const Unsigned*>(p);
}

}  // namespace

void gaussian_noise(int16_t* seed, double* out) {
  const Unsigned start = Unsigned{} + static_cast<uint16_t>(*seed);
  for (int b = 0; b < kBlocks; ++b) {
    Unsigned x = start * lanes(kJump.multiplier + b * kBlock) + lanes(kJump.increment + b * kBlock);
    Unsigned s = {};
    Signed h = {};
    for (int k = 0; k < kGaussianDraws; ++k) {
      x = x * static_cast<uint16_t>(kMultiplier) + static_cast<uint16_t>(kIncrement);
      s += x;
      h += reinterpret_cast<Signed>(x) >> 8;
    }
    const Unsigned low = s - (reinterpret_cast<Unsigned>(h) << 8);
    const Signed value = h + h + reinterpret_cast<Signed>(low >> 7);
    for (int i = 0; i < kBlock; ++i) out[b * kBlock + i] = value[i] * kScale;
    *seed = static_cast<int16_t>(x[kBlock - 1]);
  }
}

#endif

}  // namespace KELG729F_TARGET
}  // namespace g729
