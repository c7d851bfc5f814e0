#include "codec/encoder/target.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "tests/codec/random_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// The quick way with filters of order 10 against the plain one, relative to the largest value.
TEST(Target, CascadeEqualsTheFiltersOneByOne) {
  test::Random noise;
  for (int round = 0; round < 200; ++round) {
    const std::vector<double> quantized = test::stable_filter(kOrder, noise),
                              forward = test::stable_filter(kOrder, noise),
                              residual = noise.vector(kSubframe, 1000);
    ErrorMemory mem;
    for (double* memory : {mem.error, mem.weighted_error})
      std::ranges::copy(noise.vector(kBackwardOrder, 300), memory);
    FrameWork w;
    for (int k = 0; k < kSubframes; ++k) {
      w.quantized[k] = {quantized.data(), kOrder};
      w.weighting[k].filter = {forward.data(), kOrder};
      w.factors.gamma1[k] = 0.94;
      w.factors.gamma2[k] = 0.6;
    }
    expand_bandwidth(&w);
    double xn[kSubframe], h[kSubframe], plain_xn[kSubframe], plain_h[kSubframe];
    find_target(residual.data(), mem, w, 1, xn, h);
    find_target_plain(residual.data(), mem, w, 1, plain_xn, plain_h);
    double largest_xn = 0, largest_h = 0;
    for (int n = 0; n < kSubframe; ++n) {
      largest_xn = std::max(largest_xn, std::abs(plain_xn[n]));
      largest_h = std::max(largest_h, std::abs(plain_h[n]));
    }
    for (int n = 0; n < kSubframe; ++n) {
      ASSERT_NEAR(xn[n], plain_xn[n], 1e-9 * largest_xn) << round << " " << n;
      ASSERT_NEAR(h[n], plain_h[n], 1e-9 * largest_h) << round << " " << n;
    }
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
