// A path: the subframes of a frame coded in one way, and what the next subframe finds then.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/encoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct Path {
  // Excitation and synthesis, the past first, with the subframes coded so far behind it.
  alignas(kAlign) double exc_lead[lead(kExcitationPast)];
  double exc[kExcitationPast + kFrame];
  alignas(kAlign) double synthesis_lead[lead(kBackwardOrder)];
  double synthesis[kBackwardOrder + kFrame];
  double undispersed[kBackwardOrder];  // see EncoderCoreState
  bool has_dispersed;
  ErrorMemory error_mem;
  double sharp;
  GainHistory past_energy;
  TamingState exc_err;
  DispersionState dispersion;
  int spectrum;  // which of the frame's quantized spectra it uses
  double error;  // weighted error so far
  PitchLag lag[kSubframes];
  double gain_pitch[kSubframes];
  SubframeParameters coded[kSubframes];
};

// The path of no subframe yet.
void start_path(const EncoderCoreState& state, Path* path);

// Makes the path of a whole frame what the encoder did.
void follow_path(const Path& path, EncoderCoreState* state);

}  // namespace KELG729F_TARGET
}  // namespace g729
