#include "tools/gilbert_model.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace test {
namespace {

struct Statistics {
  double loss;
  double mean_burst;
};

Statistics observe(tool::GilbertModel model, int frames = 2000000) {
  int lost = 0;
  int bursts = 0;
  bool before = false;
  for (int i = 0; i < frames; ++i) {
    const bool now = model.next();
    lost += now;
    bursts += now && !before;
    before = now;
  }
  return {static_cast<double>(lost) / frames, static_cast<double>(lost) / std::max(bursts, 1)};
}

TEST(GilbertModel, LossAndBurstsAreAsAsked) {
  for (const double burst : {1.0, 2.0, 6.0}) {
    for (const double loss : {0.05, 0.2, 0.45, tool::GilbertModel::greatest_loss(burst)}) {
      const Statistics found = observe({loss, burst, 7});
      EXPECT_NEAR(found.loss, loss, 0.006 * loss) << burst;
      EXPECT_NEAR(found.mean_burst, burst, 0.006 * burst) << loss;
    }
  }
  const Statistics found = observe({0.3, 7});
  EXPECT_NEAR(found.loss, 0.3, 0.001);
  EXPECT_NEAR(found.mean_burst, 1 / 0.7, 0.003);
  EXPECT_DOUBLE_EQ(tool::GilbertModel::greatest_loss(3), 0.75);
}

TEST(GilbertModel, NothingAndEverythingCanBeLost) {
  EXPECT_EQ(observe({0.0, 3}).loss, 0.0);
  EXPECT_EQ(observe({1.0, 3}).loss, 1.0);
  EXPECT_EQ(observe({0.0, 4.0, 3}).loss, 0.0);
}

}  // namespace
}  // namespace test
