// The decoder's record: everything that a frame leaves for the next one.
#pragma once

#include <cstdint>

#include "codec/decoder/gain_decode.h"
#include "codec/decoder/lsp_decode.h"
#include "codec/decoder/postfilter.h"
#include "codec/dsp/backward_lp.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dtx/comfort_noise.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct DecoderCoreState {
  ParameterSet parameters;     // of the frame, as received; what it does not have, of those before
  uint32_t frame_counter = 0;  // frames decoded
  Remarks remarks = 0;         // on the last frame

  // Excitation: the past, then the current frame's 80 samples.
  alignas(kAlign) double exc_lead[lead(kExcitationPast)] = {};
  double old_exc[kExcitationPast + kFrame] = {};

  LspDecoderState lsp;
  double lsp_old[kOrder] = {0.9595,  0.8413,  0.6549,  0.4154,  0.1423,
                            -0.1423, -0.4154, -0.6549, -0.8413, -0.9595};  // last decoded LSPs

  GainDecoderState gains;
  double sharp = kSharpMin;  // pitch sharpening of the next subframe
  DispersionState dispersion;
  int old_t0 = 60;  // last integer pitch lag, what concealment repeats
  int old_t0_frac = 0;

  ComfortNoiseState noise;
  int16_t erasure_seed = kErasureSeed;
  double frame_energy = 0;  // excitation energy of the last good speech frame

  // 11.8 kbit/s: the backward filter and how it passes through erasures.
  BackwardLpState backward;
  BackwardSmoothing smoothing;
  BackwardDominance dominance;
  double frozen_a[kBackwardCoeffs] = {1.0};  // backward filter at the first erased frame
  double transition_gamma = 0;               // share of frozen_a in the backward filter
  int bwd35_count = 0;                       // backward subframes in a row, at most 30

  FrameType past_frame_type = kSpeech8k;
  bool prev_bfi = false;  // the last frame was erased
  LpMode prev_lp_mode = kForward;
  int prev_mode_word = 0;  // the voicing word in force in the last frame

  // From the excitation to the output.
  alignas(kAlign) double synthesis_lead[lead(kSynthesisPast)] = {};
  double synthesis[kSynthesisPast + kFrame] = {};  // before the post-filter: past, frame
  alignas(kAlign) double output[kFrame] = {};      // the frame behind all filters
  PostFilterState postfilter;
  BiquadMemory postprocessing = {};
  int voicing = 60;  // long-term post-filter delay in the last frame, 0 without one
  // Post-filter factors that follow the 11.8 kbit/s mode.
  double gamma_d = 0.7;
  double gamma_n = 0.65;
  double gamma_h = 0.25;
};

}  // namespace KELG729F_TARGET
}  // namespace g729
