#include <gtest/gtest.h>

#include <cmath>

#include "codec/g729_rating.h"

namespace {

constexpr double kIe = 11;  // of a call without loss

TEST(Rating, IsThatOfTheRecommendations) {
  // G.107, 7.7: with every default value, an Ie of 0 among them, R is 93.2.
  EXPECT_NEAR(g729_rating(0, 1, 0).r + kIe, 93.2, 0.05);
  // G.113, Appendix I: Ie of G.729 Annex A with silence compression under independent losses.
  const struct {
    double loss, ie;
  } rows[] = {{0, 11},   {.005, 13}, {.01, 15}, {.015, 17}, {.02, 19},
              {.03, 23}, {.04, 26},  {.08, 36}, {.16, 49}};
  for (const auto& row : rows)
    EXPECT_NEAR(93.2 - g729_rating(row.loss, 1, 0).r, row.ie, 0.6) << row.loss;
  // G.107, Annex B: MOS of 4.03, 3.60, 3.10, 2.58 at R of 80, 70, 60, 50.
  for (double loss = 0; loss < 0.3; loss += 0.001) {
    const G729Rating rating = g729_rating(loss, 1, 0);
    const struct { double r, mos; } points[] = {{80, 4.03}, {70, 3.60}, {60, 3.10}, {50, 2.58}};
    for (const auto& point : points) {
      if (std::fabs(rating.r - point.r) > 0.1) continue;
      EXPECT_NEAR(rating.mos, point.mos, 0.02) << point.r;
    }
  }
}

TEST(Rating, FallsWithEverything) {
  const G729Rating good = g729_rating(0.05, 1, 100);
  EXPECT_GT(good.r, g729_rating(0.06, 1, 100).r);
  EXPECT_GT(good.r, g729_rating(0.05, 2, 100).r);
  EXPECT_GT(good.r, g729_rating(0.05, 1, 150).r);
  EXPECT_GT(g729_rating(0, 1, 250).r, g729_rating(0, 1, 300).r + 5);
  // Recorded: the echo's and the delay's parts, which the tables do not have.
  EXPECT_NEAR(g729_rating(0.05, 2, 250).r, 48.642217, 1e-6);
  EXPECT_NEAR(g729_rating(0, 1, 400).r, 51.246827, 1e-6);
  for (const double odd : {-1.0, 0.0, 2.0, 1e300, std::nan(""), HUGE_VAL}) {
    const G729Rating rating = g729_rating(odd, odd, odd);
    EXPECT_TRUE(std::isfinite(rating.r)) << odd;
    EXPECT_TRUE(rating.mos >= 1 && rating.mos <= 4.5) << odd;
  }
}

}  // namespace
