// Each level codes a signal with no greater weighted error than the level below it; level 0, which
// weighs by other factors, by its own.
#include <gtest/gtest.h>

#include <utility>

#include "codec/encoder/complexity.h"
#include "codec/frame_coder.h"
#include "tests/support/signals.h"

namespace {

using namespace g729;

// Mean square of what is left of the target where every frame ends.
double weighted_error(const signals::Samples& signal, Rate rate, int level) {
  EncoderCoreState encoder;
  encoder_core_init(&encoder, false);
  encoder.complexity = level;
  double sum = 0;
  for (size_t n = 0; n < signal.size(); n += kFrame) {
    SerialFrame frame;
    encode_serial_frame(&encoder, signal.data() + n, rate, &frame);
    for (const double e : encoder.error_mem.weighted_error) sum += e * e;
  }
  return sum / static_cast<double>(signal.size());
}

TEST(Levels, EachIsAsGoodAsTheOneBelow) {
  const std::pair<const char*, signals::Samples> cases[] = {
      {"speech", signals::loud_speech(400, 3)},
      {"another voice", signals::loud_speech(400, 8)},
      {"noisy speech", signals::noisy_speech(400, 10, 5)},
      {"noise", signals::noise(200, 1000)},
      {"chord", signals::chord(200)}};
  for (const auto& [name, samples] : cases)
    for (const Rate rate : {kRate6k4, kRate8k, kRate11k8}) {
      double below = weighted_error(samples, rate, 0);
      for (int level = 1; level <= kHighestComplexity; ++level) {
        const double error = weighted_error(samples, rate, level);
        EXPECT_LE(error, below) << name << ", rate " << rate << ", level " << level;
        below = error;
      }
    }
}

}  // namespace
