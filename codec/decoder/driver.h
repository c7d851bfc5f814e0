// The decoder's frame driver (clauses 4.1 and 4.4, Annexes B, D and E): one frame's parameters to
// 80 samples of synthesis.
#pragma once

#include <cstdint>

#include "codec/decoder/state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Entries of a parameter set: the erasure flag, the frame type, then the fields.
enum ParameterEntry : int { kErased = 0, kType = 1, kFields = 2 };

// The synthesis buffer: past synthesis, then the current frame.
inline constexpr int kSynthesisBuffer = kSynthesisPast + kFrame;

// What synthesis and post-filter need to know of the decoded frame.
struct DecodedFrame {
  int type = kNoTransmission;        // after concealment of an erased frame's type
  int order = kOrder;                // LP order in force, 10 or 30
  int pitch_delay[kSubframes] = {};  // integer lags; 0 in frames without speech
  // LP vectors of the subframes, order + 1 coefficients each, one behind the other.
  double a[kSubframes * kBackwardCoeffs] = {};
  bool erased = false;
  int lp_mode = kForward;

  const double* filter(int subframe) const { return a + subframe * (order + 1); }
};

// What 1/A(z) is to filter, in the core's state or, dispersed at 6.4 kbit/s, here.
struct HeardExcitation {
  const double* subframe[kSubframes];
  double dispersed[kFrame];
};

// Decodes one frame. parameters is the set of the frame; when the frame is erased its type is
// replaced by the one that is concealed. voicing is the post-filter's word on the previous frame,
// kept through erasures. synthesis is the buffer as the previous frame left it: it moves on by 80
// samples, and the new frame's stand at its end. Prints " ! Wrong Pitch 1st subfr. !   " when a
// good frame's parity is wrong and conceals its first lag.
void decode_frame_core(DecoderCoreState* state, int32_t* parameters, int voicing, double* synthesis,
                       DecodedFrame* decoded);

// The same in three steps, for a caller that has something to do in between: all but the new
// samples; then 1/A(z) on each subframe's excitation in turn, behind the past synthesis; then what
// depends on the samples. The last returns true when it has dropped a signal that was growing
// without end: the buffer is zero then.
void decode_excitation(DecoderCoreState* state, int32_t* parameters, int voicing, double* synthesis,
                       DecodedFrame* decoded, HeardExcitation* heard);
void synthesize_subframe(const DecodedFrame& decoded, const HeardExcitation& heard, int subframe,
                         double* synthesis);
bool finish_frame(DecoderCoreState* state, const DecodedFrame& decoded, double* synthesis);

}  // namespace KELG729F_TARGET
}  // namespace g729
