// The encoder's long-lived record.
#pragma once

#include <cstdint>

#include "codec/dsp/backward_lp.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dtx/dtx_encode.h"
#include "codec/dtx/noise_level.h"
#include "codec/dtx/vad.h"
#include "codec/encoder/mode_decision.h"
#include "codec/encoder/music_detector.h"
#include "codec/encoder/taming.h"
#include "codec/encoder/target.h"
#include "codec/encoder/weighting.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Where the frame being coded stands in the signal buffers.
inline constexpr int kSpeechPast = kWindow - kFrame - kLookAhead;  // 120 samples before the frame
inline constexpr int kNewSpeech = kWindow - kFrame;                // newest input, look-ahead last

struct EncoderCoreState {
  bool dtx_enabled = false;  // silence may go untransmitted
  Remarks remarks = 0;       // on the last frame
  int complexity = 0;        // how far to search, 0..kHighestComplexity
  int frame_counter = 0;     // see encode_frame
  BiquadMemory preproc_state = {};

  // Signals, oldest sample first.
  alignas(kAlign) double old_speech[kWindow] = {};  // past, frame, look-ahead
  alignas(kAlign) double wsp_lead[lead(kPitchMax)] = {};
  double old_wsp[kPitchMax + kFrame] = {};  // weighted speech: past, frame
  alignas(kAlign) double exc_lead[lead(kExcitationPast)] = {};
  double old_exc[kExcitationPast + kFrame] = {};  // excitation: past, frame
  alignas(kAlign) double synthesis_lead[lead(kSynthesisPast)] = {};
  double synthesis[kSynthesisPast + kFrame] = {};  // local synthesis as it is heard: past, frame
  // The past of the same without phase dispersion, which the targets do not know. Kept from the
  // first dispersed subframe on; before it, synthesis serves as both.
  double undispersed[kBackwardOrder] = {};
  bool has_dispersed = false;
  ErrorMemory error_mem;

  // Spectrum.
  double lsp_old[kOrder];       // unquantized LSPs of the previous frame
  double lsp_old_q[kOrder];     // quantized LSPs of the previous frame
  LspHistory freq_prev;         // LSF predictor memory
  LevinsonMemory levinson;      // fall-back of the forward analysis
  BackwardLpState backward_lp;  // backward analysis of the 11.8 kbit/s mode
  WeightingState weighting;

  // Excitation parameters.
  double sharp = kSharpMin;
  GainHistory past_energy;
  TamingState exc_err;
  DispersionState dispersion;  // the decoder's, at 6.4 kbit/s part of the local synthesis
  int fcb_extra = 0;           // iterations that the 8 kbit/s codebook search left over

  // Silence.
  bool past_vad = true;
  bool past_past_vad = true;
  VadState vad;
  DtxState dtx;
  NoiseLevel noise_level;  // above level 0

  // 11.8 kbit/s.
  LpMode prev_lp_mode = kForward;
  ModeState mode;
  MusicDetectorState music;
  int lag_buf[kMusicHistory] = {20, 20, 20, 20, 20};            // smoothed lags, oldest first
  double pgain_buf[kMusicHistory] = {0.7, 0.7, 0.7, 0.7, 0.7};  // pitch gains, oldest first
};

}  // namespace KELG729F_TARGET
}  // namespace g729
