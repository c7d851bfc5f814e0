#include "codec/encoder/preprocess.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr BiquadCoefficients kHighPass140 = {
    .b0 = 0.92727435, .b1 = -1.8544941, .b2 = 0.92727435, .a1 = 1.9059465, .a2 = -0.9114024};

}  // namespace

void preprocess_highpass(BiquadMemory* state, double* x, int n) {
  biquad_filter(kHighPass140, state, x, n);
}

}  // namespace g729::inline KELG729F_TARGET
