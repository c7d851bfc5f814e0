// Digital silence and signals at the ends of the scale: every double in both handles stays finite,
// none is left denormal, and speech afterwards is soon what it would have been.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

#include "codec/bitstream.h"
#include "codec/decoder/decoder_driver.h"
#include "codec/decoder/decoder_state.h"
#include "codec/decoder/postprocess.h"
#include "codec/dsp/constants.h"
#include "codec/encoder/encoder_driver.h"
#include "codec/encoder/encoder_state.h"
#include "codec/frame_coder.h"
#include "tests/support/signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using signals::Samples;

// The doubles among a handle's 8-byte words, told by watching a call with speech: a double is zero
// or of ordinary size there; integers side by side look denormal, not finite or out of all scale.
template <typename Handle>
class Doubles {
 public:
  void watch(const Handle& handle) {
    for (size_t i = 0; i < kWords; ++i) {
      const double size = std::fabs(word(handle, i));
      if (size != 0) (size > 1e-100 && size < 1e100 ? seen_ : other_)[i] = true;
    }
  }
  // Share of the handle that is known to be doubles.
  double share() const {
    int known = 0;
    for (size_t i = 0; i < kWords; ++i) known += is_double(i);
    return known / static_cast<double>(kWords);
  }
  bool all(const Handle& handle, bool (*good)(int)) const {
    for (size_t i = 0; i < kWords; ++i)
      if (is_double(i) && !good(std::fpclassify(word(handle, i)))) return false;
    return true;
  }

 private:
  static constexpr size_t kWords = sizeof(Handle) / sizeof(double);
  static double word(const Handle& handle, size_t i) {
    double value;
    std::memcpy(&value, reinterpret_cast<const char*>(&handle) + i * sizeof value, sizeof value);
    return value;
  }
  bool is_double(size_t i) const { return seen_[i] && !other_[i]; }

  bool seen_[kWords] = {}, other_[kWords] = {};
};

constexpr auto finite = +[](int kind) { return kind != FP_NAN && kind != FP_INFINITE; };
constexpr auto normal_or_zero = +[](int kind) { return kind == FP_NORMAL || kind == FP_ZERO; };

struct Call {
  Rate rate;
  EncoderCoreState encoder;
  DecoderCoreState decoder;
  int16_t out[kFrame];

  Call(Rate rate, bool annexb) : rate(rate) {
    encoder_core_init(&encoder, annexb);
    decoder_core_init(&decoder);
  }
  void frame(const int16_t* samples) {
    SerialFrame serial;
    encode_serial_frame(&encoder, samples, rate, &serial);
    decode_serial_frame(&decoder, &serial, out);
  }
};

class Extremes : public testing::TestWithParam<std::tuple<Rate, bool>> {
 protected:
  Extremes() : call_(std::get<0>(GetParam()), std::get<1>(GetParam())) {
    testing::internal::CaptureStdout();
    const Samples speech = signals::join({signals::loud_speech(300, 9), signals::chord(100)});
    for (size_t n = 0; n < speech.size(); n += kFrame) {
      call_.frame(&speech[n]);
      encoder_.watch(call_.encoder);
      decoder_.watch(call_.decoder);
    }
    EXPECT_GT(encoder_.share(), 0.7);
    EXPECT_GT(decoder_.share(), 0.7);
  }
  ~Extremes() override { testing::internal::GetCapturedStdout(); }

  bool all(bool (*good)(int)) const {
    return encoder_.all(call_.encoder, good) && decoder_.all(call_.decoder, good);
  }

  Call call_;
  Doubles<EncoderCoreState> encoder_;
  Doubles<DecoderCoreState> decoder_;
};

TEST_P(Extremes, SilenceAndLossLeaveNothingDenormal) {
  const int16_t zeros[kFrame] = {};
  for (int f = 0; f < 2000; ++f) {
    call_.frame(zeros);
    ASSERT_TRUE(all(normal_or_zero)) << "frame " << f;
  }
  for (int f = 0; f < 5000; ++f) {
    SerialFrame lost = {.size = kFrameBits[kSpeech8k]};
    decode_serial_frame(&call_.decoder, &lost, call_.out);
    ASSERT_TRUE(decoder_.all(call_.decoder, normal_or_zero)) << "lost frame " << f;
  }
}

using Case = std::pair<const char*, Samples>;

std::vector<Case> extremes() {
  using namespace signals;
  const int n = 100;
  return {
      {"silence", silence(n)},
      {"alternating", square(n, 1)},
      {"pairs", square(n, 2)},
      {"square", square(n, 37)},
      {"slow square", square(n, 400)},
      {"high", constant(n, 32767)},
      {"low", constant(n, -32768)},
      {"step",
       join({silence(n / 4), constant(n / 4, 32767), constant(n / 4, -32768), silence(n / 4)})},
      {"impulse", clicks(n, 80 * n)},
      {"impulses", clicks(n, 611)},
      {"impulse in every subframe", clicks(n, 40)},
      {"noise", noise(n, 20000)},
      {"ramp", make(n, [](int k) { return k * 771 % 65536 - 32768.0; })},
  };
}

// Level in dB of what is decoded of the speech, its first 20 frames left out.
double level(Call* call, const Samples& speech) {
  double sum = 0;
  for (size_t n = 0; n < speech.size(); n += kFrame) {
    call->frame(&speech[n]);
    for (int i = 0; i < kFrame && n >= 20 * kFrame; ++i) sum += double(call->out[i]) * call->out[i];
  }
  return 10 * std::log10(sum);
}

// As after a pause. The voice activity detector takes some of the extremes for background; speech
// that is faint beside them is then coded as noise for a while.
TEST_P(Extremes, SpeechAfterwardsIsAsLoudAsEver) {
  const double tolerance = std::get<1>(GetParam()) ? 3.0 : 0.5;  // dB
  const Samples speech = signals::loud_speech(60, 10);
  const Call before = call_;
  const auto level_after = [&](const Case& c) {
    call_ = before;
    for (size_t n = 0; n < c.second.size(); n += kFrame) {
      call_.frame(&c.second[n]);
      EXPECT_TRUE(all(finite)) << c.first;
    }
    return level(&call_, speech);
  };
  const double usual = level_after({"pause", signals::noise(100, 4)});
  for (const Case& c : extremes()) EXPECT_NEAR(level_after(c), usual, tolerance) << c.first;
}

// The caller's own arithmetic is what it was.
TEST(FlushDenormals, EndsWithTheFrame) {
  Call call(kRate8k, false);
  const int16_t zeros[kFrame] = {};
  call.frame(zeros);
  volatile double smallest = DBL_MIN;
  EXPECT_GT(smallest / 2, 0.0);
}

TEST(Samples, WrapAndRoundTowardZero) {
  const struct {
    double in;
    int16_t out;
  } cases[] = {{0.9, 0},           {-0.9, 0},         {-1.0, -1},         {32767.9, 32767},
               {32768.0, -32768},  {65536.0, 0},      {40000.7, -25536},  {-32769.0, 32767},
               {2147483647.5, -1}, {2147483648.0, 0}, {-2147483648.5, 0}, {-2147483649.0, 0},
               {1e300, 0},         {-1e300, 0},       {std::nan(""), 0},  {-65537.5, -1}};
  double x[kFrame] = {};
  int16_t y[kFrame];
  for (size_t n = 0; n < std::size(cases); ++n) x[n] = cases[n].in;
  wrap_to_samples(x, y);
  for (size_t n = 0; n < std::size(cases); ++n) EXPECT_EQ(y[n], cases[n].out) << x[n];
}

INSTANTIATE_TEST_SUITE_P(Rates, Extremes,
                         testing::Combine(testing::Values(kRate6k4, kRate8k, kRate11k8),
                                          testing::Bool()));

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
