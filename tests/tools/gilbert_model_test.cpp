#include "tools/gilbert_model.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace test {
namespace {

struct Statistics {
  double loss;
  double mean_burst;
};

Statistics observe(tool::GilbertModel model, int frames = 400000) {
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
  for (const double loss : {0.01, 0.05, 0.2, 0.45}) {
    for (const double burst : {1.0, 2.0, 6.0}) {
      const Statistics found = observe({loss, burst, 7});
      EXPECT_NEAR(found.loss, loss, 0.1 * loss) << burst;
      EXPECT_NEAR(found.mean_burst, burst, 0.1 * burst) << loss;
    }
    const Statistics found = observe({loss, 7});
    EXPECT_NEAR(found.loss, loss, 0.1 * loss);
    EXPECT_NEAR(found.mean_burst, 1 / (1 - loss), 0.1);
  }
}

TEST(GilbertModel, NothingAndEverythingCanBeLost) {
  EXPECT_EQ(observe({0.0, 3}).loss, 0.0);
  EXPECT_EQ(observe({1.0, 3}).loss, 1.0);
  EXPECT_EQ(observe({0.0, 4.0, 3}).loss, 0.0);
}

}  // namespace
}  // namespace test
