#include "codec/encoder/preprocess.h"

#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr BiquadCoefficients kHighPass140 = {
    .b0 = 0.92727435, .b1 = -1.8544941, .b2 = 0.92727435, .a1 = 1.9059465, .a2 = -0.9114024};

// The recursion eight samples at a time: what every input of a block adds to the block's outputs,
// and what the last and the second to last output before the block do.
struct BlockRecursion {
  double input[kLanes][kLanes], last[kLanes], second[kLanes];
};
consteval BlockRecursion block_recursion(const BiquadCoefficients& c) {
  double response[kLanes + 1] = {1.0, c.a1};
  for (int n = 2; n <= kLanes; ++n) response[n] = c.a1 * response[n - 1] + c.a2 * response[n - 2];
  BlockRecursion block = {};
  for (int n = 0; n < kLanes; ++n) {
    for (int j = 0; j <= n; ++j) block.input[j][n] = response[n - j];
    block.last[n] = response[n + 1];
    block.second[n] = c.a2 * response[n];
  }
  return block;
}
constexpr BlockRecursion kBlock = block_recursion(kHighPass140);

// The zeros' outputs f through the poles, from rest.
KELG729F_VEC Vec8 from_rest(const double* f) {
  const auto term = [&](int j) { return splat(f[j]) * load(kBlock.input[j]); };
  return ((term(0) + term(1)) + (term(2) + term(3))) + ((term(4) + term(5)) + (term(6) + term(7)));
}

}  // namespace

void preprocess_highpass(BiquadMemory* state, double* x, int n) {
  constexpr const BiquadCoefficients& c = kHighPass140;
  BiquadMemory m = *state;
  Vec8 before = splat(m.x1), before1 = splat(m.x2);  // inputs, and those one sample earlier
  int k = 0;
  for (; k + kLanes <= n; k += kLanes) {
    const Vec8 x0 = load(x + k), x1 = slide(before, x0), x2 = slide(before1, x1);
    double f[kLanes];
    store(f, splat(c.b0) * x0 + (splat(c.b1) * x1 + splat(c.b2) * x2));
    m = {x[k + kLanes - 1], x[k + kLanes - 2], m.y1, m.y2};
    const Vec8 past = splat(m.y1) * load(kBlock.last) + splat(m.y2) * load(kBlock.second);
    store(x + k, from_rest(f) + past);
    m.y1 = x[k + kLanes - 1];
    m.y2 = x[k + kLanes - 2];
    before = x0;
    before1 = x1;
  }
  biquad_filter(c, &m, x + k, n - k);
  *state = m;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
