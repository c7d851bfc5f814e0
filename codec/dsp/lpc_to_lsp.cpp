// Chebyshev root search of the sum and difference polynomials (clause 3.2.3).
#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr int kHalfOrder = kOrder / 2;
constexpr int kGridIntervals = 60;
constexpr int kBisections = 4;

// cos(pi i / 60) rounded to 7 decimals, the ends just inside +-1.
// clang-format off
constexpr double kLspGrid[kGridIntervals + 1] = {
    0.9997559, 0.9986295, 0.9945219, 0.9876883, 0.9781476, 0.9659258, 0.9510565, 0.9335804,
    0.9135455, 0.8910065, 0.8660254, 0.8386706, 0.8090170, 0.7771460, 0.7431448, 0.7071068,
    0.6691306, 0.6293204, 0.5877853, 0.5446390, 0.5000000, 0.4539905, 0.4067366, 0.3583679,
    0.3090170, 0.2588190, 0.2079117, 0.1564345, 0.1045285, 0.0523360, 0.0000000, -0.0523360,
    -0.1045285, -0.1564345, -0.2079117, -0.2588190, -0.3090170, -0.3583679, -0.4067366, -0.4539905,
    -0.5000000, -0.5446390, -0.5877853, -0.6293204, -0.6691306, -0.7071068, -0.7431448, -0.7771460,
    -0.8090170, -0.8386706, -0.8660254, -0.8910065, -0.9135455, -0.9335804, -0.9510565, -0.9659258,
    -0.9781476, -0.9876883, -0.9945219, -0.9986295, -0.9997559,
};
// clang-format on

// Value at x of the Chebyshev series with the coefficients f[0..5], f[0] = 1.
double chebyshev(const double* f, double x) {
  double b2 = 1.0, b1 = 2.0 * x + f[1];
  for (int i = 2; i < kHalfOrder; ++i) {
    const double b0 = 2.0 * x * b1 - b2 + f[i];
    b2 = b1;
    b1 = b0;
  }
  return x * b1 - b2 + 0.5 * f[kHalfOrder];
}

void sum_and_difference(const double* a, double* f1, double* f2) {
  f1[0] = f2[0] = 1.0;
  for (int i = 0; i < kHalfOrder; ++i) {
    f1[i + 1] = a[i + 1] + a[kOrder - i] - f1[i];
    f2[i + 1] = a[i + 1] - a[kOrder - i] + f2[i];
  }
}

// Root of f between the two points, at which f differs in sign: bisections, then a secant.
double refine_root(const double* f, double xlow, double ylow, double xhigh, double yhigh) {
  for (int i = 0; i < kBisections; ++i) {
    const double xmid = 0.5 * (xlow + xhigh);
    const double ymid = chebyshev(f, xmid);
    if (ymid * yhigh <= 0.0) {
      xlow = xmid;
      ylow = ymid;
    } else {
      xhigh = xmid;
      yhigh = ymid;
    }
  }
  return xhigh - yhigh * (xlow - xhigh) / (ylow - yhigh);
}

}  // namespace

void lpc_to_lsp(const double* a, double* lsp, const double* old_lsp) {
  double f1[kHalfOrder + 1], f2[kHalfOrder + 1];
  sum_and_difference(a, f1, f2);
  const double* f = f1;
  int found = 0;
  double xlow = kLspGrid[0], ylow = chebyshev(f, xlow);
  for (int j = 1; j <= kGridIntervals && found < kOrder;) {
    const double xhigh = kLspGrid[j], yhigh = chebyshev(f, xhigh);
    if (ylow * yhigh > 0.0) {
      xlow = xhigh;
      ylow = yhigh;
      ++j;
      continue;
    }
    // The other polynomial's next root may lie in the rest of the same interval.
    xlow = lsp[found++] = refine_root(f, xlow, ylow, xhigh, yhigh);
    f = f == f1 ? f2 : f1;
    ylow = chebyshev(f, xlow);
  }
  if (found < kOrder) copy_vector(old_lsp, lsp, kOrder);
}

}  // namespace g729::inline KELG729F_TARGET
