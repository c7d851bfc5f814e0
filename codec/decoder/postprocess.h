// Output high-pass filter (clause 4.2.5) and the conversion to 16-bit samples.
#pragma once

#include <cstdint>

#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr BiquadCoefficients kOutputHighpass = {0.93980581, -1.8795834, 0.93980581,
                                                       1.9330735, -0.93589199};

// Second-order high-pass at 100 Hz with a gain of 2 on speech decoded at half scale; here in place
// over n samples at full scale. Returns n.
int postprocess_highpass(BiquadMemory* memory, double* signal, int n);

// Truncates toward zero and keeps the low 16 bits; 0 beyond the range of 32 bits and for NaN.
// signal[0..79] to samples[0..79].
void wrap_to_samples(const double* signal, int16_t* samples);

}  // namespace KELG729F_TARGET
}  // namespace g729
