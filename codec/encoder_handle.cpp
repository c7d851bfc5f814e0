#include "codec/encoder_handle.h"

#include "codec/dsp/flush_denormals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kCounterLast = 32767;  // after it the frame counter goes on at kCounterWrap, so that
constexpr int kCounterWrap = 256;    // the detector's start-up frames never come again

int next_count(int count) {
  return count == kCounterLast ? kCounterWrap : count + 1;
}

void encode(EncoderHandle* handle, const int16_t* samples, int rate) {
  const FlushDenormals flush;
  for (int i = 0; i < kFrame; ++i) handle->input[i] = samples[i];
  handle->frame_counter = next_count(handle->frame_counter);
  preprocess_highpass(&handle->preprocessing, handle->input, kFrame);
  encoder_process_frame(&handle->core, handle->input, handle->parameters, handle->frame_counter,
                        handle->dtx_enabled, rate);
}

}  // namespace

void encoder_init(EncoderHandle* handle, bool annexb) {
  *handle = {};
  handle->dtx_enabled = annexb;
  encoder_core_init(&handle->core);
}

void encode_serial_frame(EncoderHandle* handle, const int16_t* samples, int rate,
                         uint16_t* serial) {
  encode(handle, samples, rate);
  parameters_to_serial(handle->parameters, serial);
}

void encode_packed_frame(EncoderHandle* handle, const int16_t* samples, uint8_t* bytes,
                         uint32_t* size) {
  encode(handle, samples, kRate8k);
  *size = static_cast<uint32_t>(parameters_to_bytes(handle->parameters, bytes));
}

}  // namespace KELG729F_TARGET
}  // namespace g729
