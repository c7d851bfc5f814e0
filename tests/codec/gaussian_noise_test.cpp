#include "codec/dtx/gaussian_noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "codec/dsp/constants.h"

namespace g729 {
namespace {

TEST(GaussianNoise, EverySeedEqualsDrawByDraw) {
  for (int s = -32768; s < 32768; ++s) {
    int16_t seed = static_cast<int16_t>(s), plain_seed = seed;
    double fast[kSubframe], plain[kSubframe];
    gaussian_noise(&seed, fast);
    gaussian_noise_plain(&plain_seed, plain);
    ASSERT_EQ(seed, plain_seed);
    ASSERT_TRUE(std::equal(fast, fast + kSubframe, plain)) << "seed " << s;
  }
}

}  // namespace
}  // namespace g729
