#include "codec/decoder/render.h"

#include "codec/decoder/postfilter.h"
#include "codec/decoder/postprocess.h"
#include "codec/dsp/backward_lp.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/recursions.h"
#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kFullScaleEnergy = kFrame * 32768.0 * 32768.0;  // of a frame
constexpr double kRunawayEnergy = 100.0 * kFullScaleEnergy;

// One frame's step and ceiling of an adapted post-filter factor.
struct FactorRange {
  double step;
  double high;
};
constexpr FactorRange kDenominator = {0.035, 0.7};
constexpr FactorRange kNumerator = {0.0325, 0.65};
constexpr FactorRange kHarmonic = {0.0125, 0.25};
constexpr int kLongResponse = 32;  // impulse response that measures the tilt

// Below 11.8 kbit/s.
constexpr PostFilterSettings kPlainSettings = {
    .gamma_d = 0.7, .gamma_n = 0.55, .gamma_h = 0.5, .response_length = 20};

void adapt(double* factor, const FactorRange& range, bool lower) {
  const double moved = lower ? *factor - range.step : *factor + range.step;
  *factor = moved < 0.0 ? 0.0 : moved > range.high ? range.high : moved;
}

// At 11.8 kbit/s: in a long run of backward frames, music as a rule, the post-filter fades out.
PostFilterSettings adapt_settings(DecoderCoreState* state) {
  const bool lower = state->parameters.first_field == kBackward && state->dominance.bwd_dominant;
  adapt(&state->gamma_d, kDenominator, lower);
  adapt(&state->gamma_n, kNumerator, lower);
  adapt(&state->gamma_h, kHarmonic, lower);
  return {state->gamma_d, state->gamma_n, state->gamma_h, kLongResponse};
}

void note_delay(DecoderCoreState* state, int delay) {
  if (delay != 0) state->voicing = delay;
}

void synthesize_subframe(const DecodedFrame& frame, int k, double* synthesis) {
  double* const speech = synthesis + kSynthesisPast + k * kSubframe;
  synthesis_filter(frame.filter(k), frame.heard[k], speech, kSubframe, speech - frame.order, false);
}

// Bits that no encoder sends can make the excitation grow without end, and good speech would need
// seconds to bring it down again. 20 dB above full scale such a signal is dropped.
// Returns whether it was.
bool stop_runaway(DecoderCoreState* state) {
  const double* const speech = state->synthesis + kSynthesisPast;
  if (dot(speech, speech, kFrame) < kRunawayEnergy) return false;
  zero_vector(state->old_exc, kExcitationPast + kFrame);
  zero_vector(state->synthesis, kSynthesisPast + kFrame);
  state->backward = {};
  return true;
}

// What depends on the frame's samples. Returns true when it has dropped them: the synthesis is zero
// then.
bool follow_samples(DecoderCoreState* state, const DecodedFrame& frame) {
  if (frame.type >= kSpeech6k4)
    backward_dominance_update(&state->dominance, frame.lp_mode, state->synthesis + kSynthesisPast);
  return stop_runaway(state);
}

PostFilterInput subframe_of(const DecoderCoreState& state, const DecodedFrame& frame, int i) {
  return {state.synthesis + kSynthesisPast + i * kSubframe, frame.filter(i), frame.pitch_delay[0],
          frame.type};
}

// The filters one after the other. The post-filter needs to know the mode that the samples decide
// on. Both its subframes search around the first one's lag.
void render_in_turn(DecoderCoreState* state, const DecodedFrame& frame) {
  for (int i = 0; i < kSubframes; ++i) synthesize_subframe(frame, i, state->synthesis);
  follow_samples(state, frame);
  const PostFilterSettings settings = adapt_settings(state);
  for (int i = 0; i < kSubframes; ++i) {
    note_delay(state, postfilter_subframe(&state->postfilter, subframe_of(*state, frame, i),
                                          settings, state->output + i * kSubframe));
  }
  postprocess_highpass(&state->postprocessing, state->output, kFrame);
}

// What runs beside something else, of the frame's subframes.
struct SideBySide {
  DecoderCoreState* state;
  const DecodedFrame& frame;
  PostFilterWork work[kSubframes];
  AllPole synthesis[kSubframes], formant[kSubframes];

  explicit SideBySide(DecoderCoreState* s, const DecodedFrame& f) : state(s), frame(f) {
    for (int i = 0; i < kSubframes; ++i) {
      postfilter_weigh(frame.filter(i), kPlainSettings, &work[i]);
      formant[i] = all_pole(work[i].denominator);
      synthesis[i] = all_pole(frame.filter(i).a);
    }
  }
  double* speech(int i) const { return state->synthesis + kSynthesisPast + i * kSubframe; }
  AllPoleRun response(int i) {
    static constexpr double kRest[kOrder] = {};
    return {formant[i], work[i].numerator, kRest, work[i].response};
  }
  AllPoleRun synthesize(int i) const {
    return {synthesis[i], frame.heard[i], speech(i) - kOrder, speech(i)};
  }
  AllPoleRun formant_filter(int i) {
    return {formant[i], work[i].signal, state->postfilter.formant_mem + kBackwardOrder - kOrder,
            work[i].signal};
  }
  void flatten(int i) {
    postfilter_flatten(&state->postfilter, subframe_of(*state, frame, i), kPlainSettings, &work[i]);
  }
  void finish(int i) {
    note_delay(state, postfilter_finish(&state->postfilter, speech(i), work[i],
                                        state->output + i * kSubframe));
  }
};

// The same below 11.8 kbit/s, where the mode is known beforehand. Each recursion that another does
// not wait for runs beside it:
//
//   subframe 0   synthesis --- flatten --- formant filter --- gain --- high-pass
//                responses                 synthesis                   formant filter
//   subframe 1   responses                           --- flatten ---              --- gain ...
void render_side_by_side(DecoderCoreState* state, const DecodedFrame& frame) {
  constexpr int kBlocks = kSubframe / kLanes;
  SideBySide s(state, frame);
  run_side_by_side(kBlocks, AllPoleRecursion(s.synthesize(0)),
                   AllPoleRecursions(s.response(0), s.response(1)));
  s.flatten(0);
  run_side_by_side(kBlocks, AllPoleRecursions(s.synthesize(1), s.formant_filter(0)));
  if (follow_samples(state, frame)) {  // silence now: once more
    s.flatten(0);
    run_side_by_side(kBlocks, AllPoleRecursion(s.formant_filter(0)));
  }
  s.finish(0);
  s.flatten(1);
  run_side_by_side(kBlocks, AllPoleRecursion(s.formant_filter(1)),
                   BiquadRecursion(kOutputHighpass, &state->postprocessing, state->output));
  s.finish(1);
  postprocess_highpass(&state->postprocessing, state->output + kSubframe, kSubframe);
}

}  // namespace

void render(DecoderCoreState* state, const DecodedFrame& frame) {
  state->voicing = 0;
  if (frame.type == kSpeech11k8) return render_in_turn(state, frame);
  state->gamma_d = kPlainSettings.gamma_d;
  state->gamma_n = kPlainSettings.gamma_n;
  state->gamma_h = kPlainSettings.gamma_h;
  render_side_by_side(state, frame);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
