// Packet loss in bursts: a chain of two states, good and lost, stepped once a frame.
#ifndef KELG729F_TOOLS_GILBERT_MODEL_H
#define KELG729F_TOOLS_GILBERT_MODEL_H

#include <cstdint>
#include <random>

namespace tool {

class GilbertModel {
 public:
  // At this mean burst, the share of lost frames can be no greater.
  static double greatest_loss(double mean_burst) { return mean_burst / (mean_burst + 1.0); }

  // Independent losses. loss: share of lost frames, 0 to 1.
  GilbertModel(double loss, uint32_t seed) : GilbertModel(loss, loss, loss, seed) {}

  // Bursts of mean_burst frames in the mean (at least 1); loss at most greatest_loss(mean_burst).
  GilbertModel(double loss, double mean_burst, uint32_t seed)
      : GilbertModel(loss, loss / (mean_burst * (1.0 - loss)), 1.0 - 1.0 / mean_burst, seed) {}

  // True when the next frame is lost. The same seed gives the same losses on every machine.
  bool next() {
    lost_ = draw() < (first_ ? loss_ : lost_ ? stay_lost_ : become_lost_);
    first_ = false;
    return lost_;
  }

 private:
  GilbertModel(double loss, double become_lost, double stay_lost, uint32_t seed)
      : loss_(loss), become_lost_(become_lost), stay_lost_(stay_lost), random_(seed) {}

  double draw() { return static_cast<double>(random_()) * 0x1p-32; }

  double loss_;
  double become_lost_;
  double stay_lost_;
  std::mt19937 random_;
  bool first_ = true;
  bool lost_ = false;
};

}  // namespace tool

#endif
