#include "codec/decoder/postprocess.h"

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

int postprocess_highpass(BiquadMemory* memory, double* signal, int n) {
  biquad_filter(kOutputHighpass, memory, signal, n);
  return n;
}

void wrap_to_samples(const double* signal, int16_t* samples) {
  constexpr double kBelow = -2147483649.0, kAbove = 2147483648.0;  // the first that do not fit
  for (int i = 0; i < kFrame; ++i) {
    const double x = signal[i] > kBelow && signal[i] < kAbove ? signal[i] : 0.0;
    samples[i] = static_cast<int16_t>(static_cast<uint32_t>(static_cast<int32_t>(x)));
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
