// Random vectors and stable filters, from a fixed seed.
#pragma once

#include <cmath>
#include <random>
#include <vector>

#include "codec/dsp/constants.h"

namespace g729::test {

struct Random {
  std::mt19937 generator{7};
  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(generator);
  }
  int integer(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(generator);
  }
  std::vector<double> vector(int n, double scale) {
    std::vector<double> v(static_cast<size_t>(n));
    for (double& x : v) x = uniform(-scale, scale);
    return v;
  }
};

// A filter of order m, stable when its reflection coefficients are below 1.
inline std::vector<double> filter_of_reflections(int m, double most, Random& random) {
  std::vector<double> a(static_cast<size_t>(m) + 1, 0.0), old;
  a[0] = 1.0;
  for (int i = 1; i <= m; ++i) {
    old = a;
    a[i] = random.uniform(-most, most);
    for (int j = 1; j < i; ++j) a[j] = old[j] + a[i] * old[i - j];
  }
  return a;
}

}  // namespace g729::test
