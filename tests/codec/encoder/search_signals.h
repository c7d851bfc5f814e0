// Random but speech-like inputs for the codebook searches, from a fixed seed.
#pragma once

#include <cmath>
#include <random>
#include <vector>

#include "codec/dsp/constants.h"

namespace g729::test {

class SearchSignals {
 public:
  explicit SearchSignals(unsigned seed) : generator_(seed) {}

  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(generator_);
  }
  int integer(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(generator_);
  }

  std::vector<double> noise(double amplitude) {
    std::normal_distribution<double> normal;
    std::vector<double> x(kSubframe);
    for (double& v : x) v = amplitude * normal(generator_);
    return x;
  }

  // A decaying response of two resonances that starts with 1, as a weighted synthesis filter's.
  std::vector<double> impulse_response() {
    std::vector<double> h(kSubframe);
    double past[4] = {};
    const double r1 = uniform(0.3, 0.95), w1 = uniform(0.1, 1.2);
    const double r2 = uniform(0.1, 0.9), w2 = uniform(1.2, 3.0);
    const double a1 = -2 * r1 * std::cos(w1), a2 = r1 * r1;
    const double b1 = -2 * r2 * std::cos(w2), b2 = r2 * r2;
    const double c[4] = {a1 + b1, a2 + b2 + a1 * b1, a1 * b2 + a2 * b1, a2 * b2};
    for (int n = 0; n < kSubframe; ++n) {
      h[n] = n == 0;
      for (int i = 0; i < 4; ++i) h[n] -= c[i] * past[i];
      for (int i = 3; i > 0; --i) past[i] = past[i - 1];
      past[0] = h[n];
    }
    return h;
  }

 private:
  std::mt19937 generator_;
};

}  // namespace g729::test
