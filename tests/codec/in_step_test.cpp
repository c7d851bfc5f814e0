// The proof of all: the encoder's local synthesis and the synthesis of a decoder that is fed with
// its frames are equal doubles, frame after frame.
#include <gtest/gtest.h>

#include <string>

#include "codec/decoder_handle.h"
#include "codec/encoder_handle.h"
#include "tests/support/signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

struct Case {
  std::string name;
  signals::Samples samples;
};

std::vector<Case> signal_cases() {
  using namespace signals;
  std::vector<Case> cases = {
      {"speech", speech_like(600)},
      {"quiet speech", mix(silence(300), speech_like(300, 5), 0.01)},
      {"noise", noise(300, 3000)},
      {"silence", silence(300)},
      {"square", square(300, 37)},
      {"fast square", square(300, 1)},
      {"slow square", square(300, 400)},
      {"clicks", clicks(300, 611)},
      {"sweep", sweep(400)},
      {"chord", chord(600)},
      {"dc", constant(200, 20000)},
      {"speech, silence, clicks, noise",
       join({speech_like(200, 2), silence(100), clicks(100, 1000), noise(150, 40),
             speech_like(150, 3), square(50, 20), noise(100, 0.7), speech_like(100, 4)})},
  };
  for (int snr : {0, 10, 20, 30})
    cases.push_back({"speech in noise " + std::to_string(snr), noisy_speech(800, snr)});
  return cases;
}

// How the rate goes from frame to frame: a fixed rate, or -1 for a pseudo-random one in runs.
int rate_of_frame(int plan, int frame) {
  if (plan >= 0) return plan;
  const uint32_t hash = static_cast<uint32_t>(frame / 7) * 2654435761u;
  return static_cast<int>((hash >> 16) % 3);
}

void expect_in_step(const Case& c, int plan, bool annexb) {
  static EncoderHandle encoder;
  static DecoderHandle decoder;
  encoder_init(&encoder, annexb);
  decoder_init(&decoder);
  const int frames = static_cast<int>(c.samples.size()) / kFrame;
  for (int f = 0; f < frames; ++f) {
    uint16_t serial[kSerialWords];
    int16_t out[kFrame];
    encode_serial_frame(&encoder, c.samples.data() + f * kFrame, rate_of_frame(plan, f), serial);
    decode_serial_frame(&decoder, serial, out);
    for (int i = 0; i < kFrame; ++i)
      ASSERT_EQ(encoder.core.synthesis[kSynthesisPast + i], decoder.synthesis[kSynthesisPast + i])
          << c.name << ", frame " << f << ", sample " << i << ", type " << encoder.parameters[0];
  }
}

class InStep : public testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(InStep, EverySignal) {
  const auto [plan, annexb] = GetParam();
  for (const Case& c : signal_cases()) expect_in_step(c, plan, annexb);
}

INSTANTIATE_TEST_SUITE_P(Rates, InStep,
                         testing::Combine(testing::Values(kRate6k4, kRate8k, kRate11k8, -1),
                                          testing::Bool()));

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
