#include "codec/dsp/math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTolerance = 4e-16;

TEST(Math, AgreesWithTheCLibrary) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  for (int i = 0; i < 200000; ++i) {
    const double u = unit(random), angle = M_PI * std::abs(u);
    ASSERT_NEAR(cosine(angle), std::cos(angle), kTolerance);
    ASSERT_NEAR(arc_cosine(u), std::acos(u), 2 * kTolerance) << u;
    const double x = std::pow(10.0, 40 * u);
    ASSERT_NEAR(log10_of(x), std::log10(x), kTolerance * (1 + std::abs(std::log10(x)))) << x;
    const double p = std::pow(10.0, 6 * u);
    ASSERT_NEAR(power_of_10(6 * u), p, 8 * kTolerance * p) << u;
  }
}

TEST(Math, Ends) {
  EXPECT_EQ(arc_cosine(1.0), 0.0);
  EXPECT_EQ(arc_cosine(1.5), 0.0);
  EXPECT_DOUBLE_EQ(arc_cosine(-1.0), M_PI);
  EXPECT_DOUBLE_EQ(arc_cosine(-7.0), M_PI);
  EXPECT_EQ(log10_of(1.0), 0.0);
  EXPECT_EQ(power_of_10(0.0), 1.0);
  EXPECT_DOUBLE_EQ(log10_of(1e-38), -38.0);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
