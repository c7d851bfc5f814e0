// Random signals and stable filters, from a fixed seed.
#pragma once

#include <random>
#include <vector>

#include "codec/dsp/constants.h"

namespace g729::test {

struct Noise {
  std::mt19937 random{7};
  double operator()(double scale) {
    return std::uniform_real_distribution<double>(-scale, scale)(random);
  }
  std::vector<double> vector(int n, double scale) {
    std::vector<double> v(static_cast<size_t>(n));
    for (double& x : v) x = (*this)(scale);
    return v;
  }
};

// A stable filter of order m with reflection coefficients below 0.9.
inline std::vector<double> stable_filter(int m, Noise& noise) {
  std::vector<double> a(static_cast<size_t>(m) + 1, 0.0), old;
  a[0] = 1.0;
  for (int i = 1; i <= m; ++i) {
    old = a;
    const double k = noise(m == kOrder ? 0.9 : 0.4);
    for (int j = 1; j < i; ++j) a[j] = old[j] + k * old[i - j];
    a[i] = k;
  }
  return a;
}

}  // namespace g729::test
