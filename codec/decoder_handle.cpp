#include "codec/decoder_handle.h"

#include "codec/dsp/flush_denormals.h"
#include "codec/dsp/recursions.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kShortResponse = 20;  // impulse response that measures the tilt
constexpr int kLongResponse = 32;   // the same at 11.8 kbit/s

// One frame's step and ceiling of an adapted post-filter factor.
struct FactorRange {
  double step;
  double high;
};
constexpr FactorRange kDenominator = {0.035, 0.7};
constexpr FactorRange kNumerator = {0.0325, 0.65};
constexpr FactorRange kHarmonic = {0.0125, 0.25};

// A frame is erased when a bit word is, and one without bits when its sync word is wrong.
bool is_erased(const uint16_t* serial) {
  const int bits = static_cast<int16_t>(serial[1]);
  if (bits == 0) return serial[0] != kSyncWord;
  int erased = 0;
  for (int i = 0; i < bits; ++i) erased |= serial[2 + i] == kBitErased;
  return erased != 0;
}

// Replaces the parity bit behind a first pitch index by whether it is wrong. At 11.8 kbit/s it is
// sent inverted when bit 1 of the index is set.
void check_parity(int bits, int32_t* parameters) {
  if (bits == kBits8k) {
    int32_t* pitch = parameters + 4;
    pitch[1] = pitch_parity_check(pitch[0], pitch[1]);
  } else if (bits == kBits11k8) {
    int32_t* pitch = parameters + (parameters[kFields] == kBackward ? 3 : 5);
    pitch[1] = pitch_parity_check(pitch[0], pitch[1] ^ ((pitch[0] >> 1) & 1));
  }
}

void adapt(double* factor, const FactorRange& range, bool lower) {
  const double moved = lower ? *factor - range.step : *factor + range.step;
  *factor = moved < 0.0 ? 0.0 : moved > range.high ? range.high : moved;
}

// In a long run of backward frames, music as a rule, the post-filter fades out.
PostFilterSettings choose_settings(DecoderHandle* handle, int bits) {
  if (bits == kBits11k8) {
    const bool lower =
        handle->parameters[kFields] == kBackward && handle->core.dominance.bwd_dominant;
    adapt(&handle->gamma_d, kDenominator, lower);
    adapt(&handle->gamma_n, kNumerator, lower);
    adapt(&handle->gamma_h, kHarmonic, lower);
  } else {
    handle->gamma_d = 0.7;
    handle->gamma_n = 0.55;
    handle->gamma_h = 0.5;
  }
  return {handle->gamma_d, handle->gamma_n, handle->gamma_h,
          bits == kBits11k8 ? kLongResponse : kShortResponse};
}

void note_delay(DecoderHandle* handle, int delay) {
  if (delay != 0) handle->voicing = delay;
}

// From the excitation to the handle's output, filter after filter. The post-filter needs to know
// the mode that the samples decide on. Both its subframes search around the first one's lag.
void render(DecoderHandle* handle, const HeardExcitation& heard, int bits) {
  const DecodedFrame& decoded = handle->decoded;
  double* speech = handle->synthesis + kSynthesisPast;
  for (int i = 0; i < kSubframes; ++i) synthesize_subframe(decoded, heard, i, handle->synthesis);
  finish_frame(&handle->core, decoded, handle->synthesis);
  const PostFilterSettings settings = choose_settings(handle, bits);
  for (int i = 0; i < kSubframes; ++i)
    note_delay(handle, postfilter_subframe(&handle->postfilter, decoded.pitch_delay[0],
                                           speech + i * kSubframe, decoded.filter(i),
                                           handle->output + i * kSubframe, settings, decoded.order,
                                           decoded.type));
  postprocess_highpass(&handle->postprocessing, handle->output, kFrame);
}

// The same below 11.8 kbit/s, where the mode is known beforehand. Each recursion that another does
// not wait for runs beside it:
//
//   subframe 0   synthesis --- flatten --- formant filter --- gain --- high-pass
//                responses                 synthesis                   formant filter
//   subframe 1   responses                           --- flatten ---              --- gain ...
void render_side_by_side(DecoderHandle* handle, const HeardExcitation& heard, int bits) {
  const DecodedFrame& decoded = handle->decoded;
  const PostFilterSettings settings = choose_settings(handle, bits);
  PostFilterState* state = &handle->postfilter;
  constexpr int kBlocks = kSubframe / kLanes;
  static constexpr double kRest[kOrder] = {};
  double* const speech[kSubframes] = {handle->synthesis + kSynthesisPast,
                                      handle->synthesis + kSynthesisPast + kSubframe};
  double* const out[kSubframes] = {handle->output, handle->output + kSubframe};
  PostFilterWork work[kSubframes];
  AllPole formant[kSubframes];
  for (int i = 0; i < kSubframes; ++i) {
    postfilter_weigh(decoded.filter(i), settings, kOrder, &work[i]);
    formant[i] = all_pole(work[i].denominator);
  }
  const AllPole synthesis[kSubframes] = {all_pole(decoded.filter(0)), all_pole(decoded.filter(1))};
  const auto response = [&](int i) {
    return AllPoleRun{formant[i], work[i].numerator, kRest, work[i].response};
  };
  const auto synthesize = [&](int i) {
    return AllPoleRun{synthesis[i], heard.subframe[i], speech[i] - kOrder, speech[i]};
  };
  const auto formant_filter = [&](int i) {
    return AllPoleRun{formant[i], work[i].signal, state->formant_mem + kBackwardOrder - kOrder,
                      work[i].signal};
  };
  const auto flatten = [&](int i) {
    postfilter_flatten(state, decoded.pitch_delay[0], speech[i], settings, kOrder, decoded.type,
                       &work[i]);
  };

  run_side_by_side(kBlocks, AllPoleRecursion(synthesize(0)),
                   AllPoleRecursions(response(0), response(1)));
  flatten(0);
  run_side_by_side(kBlocks, AllPoleRecursions(synthesize(1), formant_filter(0)));
  if (finish_frame(&handle->core, decoded, handle->synthesis)) {  // silence now: once more
    flatten(0);
    run_side_by_side(kBlocks, AllPoleRecursion(formant_filter(0)));
  }
  note_delay(handle, postfilter_finish(state, speech[0], work[0], out[0]));
  flatten(1);
  run_side_by_side(kBlocks, AllPoleRecursion(formant_filter(1)),
                   BiquadRecursion(kOutputHighpass, &handle->postprocessing, out[0]));
  note_delay(handle, postfilter_finish(state, speech[1], work[1], out[1]));
  postprocess_highpass(&handle->postprocessing, out[1], kSubframe);
}

// Decodes the frame of `bits` bits whose fields are in the handle.
void decode(DecoderHandle* handle, int bits, bool erased, int16_t* samples) {
  const FlushDenormals flush;
  ++handle->frame_counter;
  check_parity(bits, handle->parameters);
  handle->parameters[kErased] = erased;
  if (erased) bits = handle->previous_bits >= kBits6k4 ? handle->previous_bits : 0;
  HeardExcitation heard;
  decode_excitation(&handle->core, handle->parameters, handle->voicing, handle->synthesis,
                    &handle->decoded, &heard);
  handle->voicing = 0;
  if (bits == kBits11k8)
    render(handle, heard, bits);
  else
    render_side_by_side(handle, heard, bits);
  handle->previous_bits = bits;
  wrap_to_samples(handle->output, samples);
}

}  // namespace

void decoder_init(DecoderHandle* handle) {
  *handle = {};
  decoder_core_init(&handle->core);
}

void decode_serial_frame(DecoderHandle* handle, const uint16_t* serial, int16_t* samples) {
  const int bits = static_cast<int16_t>(serial[1]);
  uint16_t frame[kSerialWords] = {serial[0], serial[1]};
  for (int i = 0; i < bits && i < kBits11k8; ++i) frame[2 + i] = serial[2 + i];
  serial_to_parameters(frame + 1, handle->parameters);
  decode(handle, bits, is_erased(frame), samples);
}

void decode_packed_frame(DecoderHandle* handle, const uint8_t* bytes, uint32_t size,
                         int16_t* samples) {
  const int bits = static_cast<int>(8 * size % 256);
  bytes_to_parameters(bytes, bits, handle->parameters);
  decode(handle, bits, false, samples);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
