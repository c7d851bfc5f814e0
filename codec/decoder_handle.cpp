#include "codec/decoder_handle.h"

#include "codec/dsp/flush_denormals.h"

namespace g729::inline KELG729F_TARGET {
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

// Both subframes search around the first one's lag.
void postfilter_frame(DecoderHandle* handle, const PostFilterSettings& settings) {
  const DecodedFrame& decoded = handle->decoded;
  handle->voicing = 0;
  for (int subframe = 0; subframe < kSubframes; ++subframe) {
    const int start = subframe * kSubframe;
    const int delay = postfilter_subframe(
        &handle->postfilter, decoded.pitch_delay[0], handle->synthesis + kSynthesisPast + start,
        decoded.filter(subframe), handle->output + start, settings, decoded.order, decoded.type);
    if (delay != 0) handle->voicing = delay;
  }
}

// Decodes the frame of `bits` bits whose fields are in the handle.
void decode(DecoderHandle* handle, int bits, bool erased, int16_t* samples) {
  const FlushDenormals flush;
  ++handle->frame_counter;
  check_parity(bits, handle->parameters);
  handle->parameters[kErased] = erased;
  if (erased) bits = handle->previous_bits >= kBits6k4 ? handle->previous_bits : 0;
  decode_frame_core(&handle->core, handle->parameters, handle->voicing, handle->synthesis,
                    &handle->decoded);
  postfilter_frame(handle, choose_settings(handle, bits));
  postprocess_highpass(&handle->postprocessing, handle->output, kFrame);
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

}  // namespace g729::inline KELG729F_TARGET
