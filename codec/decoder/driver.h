// The decoder's frame driver (clauses 4.1 and 4.4, Annexes B, D and E): one frame's parameters to
// 80 samples of synthesis.
#pragma once

#include <cstdint>

#include "codec/decoder/state.h"

namespace g729::inline KELG729F_TARGET {

// Entries of a parameter set: the erasure flag, the frame type, then the fields.
enum ParameterEntry : int { kErased = 0, kType = 1, kFields = 2 };

// The synthesis buffer: past synthesis, then the current frame.
inline constexpr int kSynthesisBuffer = kSynthesisPast + kFrame;

// What the post-filter needs to know of the decoded frame.
struct DecodedFrame {
  int type = kNoTransmission;        // after concealment of an erased frame's type
  int order = kOrder;                // LP order in force, 10 or 30
  int pitch_delay[kSubframes] = {};  // integer lags; 0 in frames without speech
  // LP vectors of the subframes, order + 1 coefficients each, one behind the other.
  double a[kSubframes * kBackwardCoeffs] = {};

  const double* filter(int subframe) const { return a + subframe * (order + 1); }
};

// Decodes one frame. parameters is the set of the frame; when the frame is erased its type is
// replaced by the one that is concealed. voicing is the post-filter's word on the previous frame,
// kept through erasures. synthesis is the buffer as the previous frame left it: it moves on by 80
// samples, and the new frame's stand at its end. Prints " ! Wrong Pitch 1st subfr. !   " when a
// good frame's parity is wrong and conceals its first lag.
void decode_frame_core(DecoderCoreState* state, int32_t* parameters, int voicing, double* synthesis,
                       DecodedFrame* decoded);

}  // namespace g729::inline KELG729F_TARGET
