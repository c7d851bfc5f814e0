#include "codec/encoder/open_loop_pitch.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "tests/codec/random_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// A repeated pattern, exactly (whole numbers: many equal correlations) or under noise.
TEST(OpenLoopPitch, ScreeningChangesNothing) {
  test::Random random;
  int by_section[3] = {};
  for (int trial = 0; trial < 2000; ++trial) {
    const int period = random.integer(15, 150);
    const double noise = trial % 2 == 0 ? 0.0 : random.uniform(0.0, 500.0);
    std::vector<double> pattern(period), x(kPitchMax + kFrame);
    for (double& v : pattern) v = random.integer(0, 3) == 0 ? random.integer(-900, 900) : 0;
    // Far beyond what single precision can screen, too.
    const int scale = std::array{0, 0, 0, -80, 80}[trial % 5];
    for (size_t n = 0; n < x.size(); ++n)
      x[n] = std::ldexp(pattern[n % period] + noise * random.uniform(-1, 1), scale);
    const double* wsp = x.data() + kPitchMax;
    const int lag = open_loop_pitch(wsp);
    ASSERT_EQ(lag, open_loop_pitch_plain(wsp)) << trial;
    ++by_section[lag >= 80 ? 0 : lag >= 40 ? 1 : 2];
  }
  for (int n : by_section) EXPECT_GT(n, 50);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
