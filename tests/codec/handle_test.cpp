// The handles through the C interface: sizes, lengths, heap use, and what survives the round trip.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "codec/bitstream.h"
#include "codec/decoder/decoder_driver.h"
#include "codec/decoder/decoder_state.h"
#include "codec/decoder/postprocess.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/encoder/encoder_driver.h"
#include "codec/encoder/encoder_state.h"
#include "codec/encoder/preprocess.h"
#include "codec/frame_coder.h"
#include "codec/g729.h"
#include "tests/support/heap_counter.h"
#include "tests/support/signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

static_assert(sizeof(EncoderCoreState) + sizeof(DecoderCoreState) <= 40 * 1024);

struct Call {
  G729EncoderState* encoder;
  G729DecoderState* decoder;
  explicit Call(bool annexb)
      : encoder(g729_encoder_create(annexb)), decoder(g729_decoder_create()) {}
  ~Call() {
    g729_encoder_destroy(encoder);
    g729_decoder_destroy(decoder);
  }
};

TEST(Handle, FramesUseNoHeap) {
  const auto signal = signals::join({signals::speech_like(60), signals::noise(40, 20)});
  Call call(true);
  const long before = heap_calls();
  for (int level = 0; level <= 3; ++level) {
    g729_encoder_set_complexity(call.encoder, level);
    for (size_t n = 0; n < signal.size(); n += kFrame) {
      uint8_t bytes[G729_SPEECH_BYTES];
      uint32_t size;
      int16_t out[kFrame];
      uint16_t serial[G729_SERIAL_WORDS];
      g729_encoder_encode_frame(call.encoder, &signal[n], bytes, &size);
      g729_decoder_decode_frame(call.decoder, bytes, size, out);
      for (int rate : {G729_RATE_6K4, G729_RATE_11K8}) {
        g729_encoder_encode_serial(call.encoder, &signal[n], rate, serial);
        g729_decoder_decode_serial(call.decoder, serial, out);
      }
      g729_decoder_conceal(call.decoder, out);
    }
  }
  EXPECT_EQ(heap_calls() - before, 0);
}

TEST(Handle, HeapCounterSeesTheWaysToMemory) {
  if (!heap_is_counted()) GTEST_SKIP() << "a sanitizer owns the heap";
  for (const auto allocate :
       {+[] { return std::malloc(1); }, +[] { return std::aligned_alloc(64, 64); },
        +[] { return static_cast<void*>(strdup("text")); }}) {
    const long before = heap_calls();
    std::free(allocate());
    EXPECT_GT(heap_calls(), before);
  }
  const long before = heap_calls();
  Call call(false);
  EXPECT_GE(heap_calls() - before, 2);
}

TEST(Handle, NothingIsWrittenBehindAFrame) {
  Call call(true);
  const auto silence = signals::silence(200);
  int none = 0;
  for (size_t n = 0; n < silence.size(); n += kFrame) {
    uint8_t bytes[G729_SPEECH_BYTES];
    std::memset(bytes, 0xA5, sizeof bytes);
    uint32_t size = 99;
    g729_encoder_encode_frame(call.encoder, &silence[n], bytes, &size);
    ASSERT_LE(size, sizeof bytes);
    for (uint32_t i = size; i < sizeof bytes; ++i) ASSERT_EQ(bytes[i], 0xA5);
    none += size == 0;
  }
  EXPECT_GE(none, 190);
}

TEST(Handle, FrameCounterGoesOnAt256) {
  static EncoderCoreState handle;
  encoder_core_init(&handle, true);
  handle.frame_counter = 32766;
  const int16_t samples[kFrame] = {};
  SerialFrame serial;
  for (int expected : {32767, 256, 257}) {
    encode_serial_frame(&handle, samples, kRate8k, &serial);
    EXPECT_EQ(handle.frame_counter, expected);
  }
}

// Half a second of a voice-like pulse train in every second of noise.
TEST(Handle, VoiceInNoiseIsSentAndPausesAreNot) {
  constexpr int kFrames = 1200, kStart = 300;
  signals::Resonator tract;
  const auto voice = signals::make(kFrames, [&](int n) {
    const bool on = n / kFrame >= kStart && n / kFrame % 100 >= 50;
    return tract(on && n % 67 == 0 ? 4000.0 : 0.0, 600, 280);
  });
  const auto signal = signals::mix(voice, signals::noise(kFrames, 40), 1.0);
  Call call(true);
  int lost = 0, sent = 0;
  for (int f = 0; f < kFrames; ++f) {
    uint8_t bytes[G729_SPEECH_BYTES];
    uint32_t size;
    g729_encoder_encode_frame(call.encoder, &signal[f * kFrame], bytes, &size);
    const int place = f % 100;
    lost += f >= kStart && place > 50 && size != G729_SPEECH_BYTES;
    sent += f >= kStart && place >= 15 && place < 50 && size == G729_SPEECH_BYTES;
  }
  EXPECT_EQ(lost, 0);
  EXPECT_LT(sent, 32);  // a tenth
}

TEST(Handle, ComfortNoiseIsAsLoudAsItsBackground) {
  constexpr int kFrames = 1700, kStart = 200;
  for (const double rms : {30.0, 300.0, 3000.0}) {
    const auto signal = signals::noise(kFrames, rms);
    std::vector<double> background(signal.begin(), signal.end());
    BiquadMemory pre = {}, post = {};
    preprocess_highpass(&pre, background.data(), static_cast<int>(background.size()));
    postprocess_highpass(&post, background.data(), static_cast<int>(background.size()));
    Call call(true);
    ASSERT_EQ(g729_encoder_set_complexity(call.encoder, 1), 0);
    double heard = 0, there = 0;
    for (int n = 0; n < kFrames * kFrame; n += kFrame) {
      uint8_t bytes[G729_SPEECH_BYTES];
      uint32_t size;
      int16_t out[kFrame];
      g729_encoder_encode_frame(call.encoder, &signal[n], bytes, &size);
      g729_decoder_decode_frame(call.decoder, bytes, size, out);
      if (n < kStart * kFrame) continue;
      ASSERT_NE(size, G729_SPEECH_BYTES);
      for (int i = 0; i < kFrame; ++i) {
        heard += out[i] * static_cast<double>(out[i]);
        there += background[n + i] * background[n + i];
      }
    }
    EXPECT_NEAR(10 * std::log10(heard / there), 0.0, 0.5) << "RMS " << rms;
  }
}

TEST(Handle, RoundTripIsCloseToTheFilteredInput) {
  // Against the input through the codec's own two high-pass filters, whose phase the waveform
  // measure would otherwise blame on the coder.
  const double floor_db[] = {6.0, 7.0, 11.0};
  for (const Rate rate : {kRate6k4, kRate8k, kRate11k8}) {
    auto signal = signals::speech_like(500);
    static EncoderCoreState encoder;
    static DecoderCoreState decoder;
    encoder_core_init(&encoder, false);
    decoder_core_init(&decoder);
    std::vector<double> reference(signal.begin(), signal.end()), out;
    BiquadMemory pre = {}, post = {};
    preprocess_highpass(&pre, reference.data(), static_cast<int>(reference.size()));
    postprocess_highpass(&post, reference.data(), static_cast<int>(reference.size()));
    for (size_t n = 0; n < signal.size(); n += kFrame) {
      SerialFrame serial;
      int16_t samples[kFrame];
      encode_serial_frame(&encoder, &signal[n], rate, &serial);
      decode_serial_frame(&decoder, &serial, samples);
      out.insert(out.end(), samples, samples + kFrame);
    }
    double s = 0, e = 0;
    for (size_t n = 0; n + kLookAhead < out.size(); ++n) {
      const double difference = out[n + kLookAhead] - reference[n];
      s += reference[n] * reference[n];
      e += difference * difference;
    }
    EXPECT_GT(10 * std::log10(s / e), floor_db[rate]) << "rate " << rate;
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
