#include "codec/dsp/math.h"

#include <cstdint>
#include <cstring>

#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kPi = 3.14159265358979311600;
constexpr double kHalfPi = kPi / 2;
constexpr double kHalfPiLow = 6.12323399573676603587e-17;  // pi/2 - kHalfPi

KELG729F_VEC double square_root(double x) {
  return __builtin_sqrt(x);
}

// c[0] + c[1] x + c[2] x^2 + ..., four terms at a time so that few operations wait for each other.
template <typename T, int N>
KELG729F_VEC T polynomial(const double (&c)[N], T x) {
  static_assert(N % 4 == 0, "pad with zeros");
  const T x2 = x * x, x4 = x2 * x2;
  T r = splat_as<T>(0.0);
  for (int k = N - 4; k >= 0; k -= 4) {
    const T low = splat_as<T>(c[k]) + splat_as<T>(c[k + 1]) * x;
    const T high = splat_as<T>(c[k + 2]) + splat_as<T>(c[k + 3]) * x;
    r = k == N - 4 ? low + high * x2 : r * x4 + (low + high * x2);
  }
  return r;
}

struct SineSeries {
  double c[12];  // (-1)^k / (2 k + 1)!
};
consteval SineSeries sine_series() {
  SineSeries s = {};
  double factorial = 1;
  for (int k = 0; k < 12; ++k) {
    s.c[k] = (k % 2 ? -1.0 : 1.0) / factorial;
    factorial *= (2 * k + 2) * (2 * k + 3);
  }
  return s;
}

// cos x = sin(pi/2 - x); on [-pi/2, pi/2] the series' remainder is below 1e-20.
template <typename T>
KELG729F_VEC T cosine_kernel(T x) {
  constexpr SineSeries kSine = sine_series();
  T t = splat_as<T>(kHalfPi) - x + splat_as<T>(kHalfPiLow);
  return t * polynomial(kSine.c, t * t);
}

// asin(s) = s + s R(s^2) on [0, 1/2], R a rational minimax approximation.
template <typename T>
KELG729F_VEC T arc_sine_excess(T z) {
  constexpr double kP[8] = {1.66666666666666657415e-01, -3.25565818622400915405e-01,
                            2.01212532134862925881e-01, -4.00555345006794114027e-02,
                            7.91534994289814532176e-04, 3.47933107596021167570e-05};
  constexpr double kQ[8] = {1.0, -2.40339491173441421878e+00, 2.02094576023350569471e+00,
                            -6.88283971605453293030e-01, 7.70381505559019352791e-02};
  return z * polynomial(kP, z) / polynomial(kQ, z);
}

// |x| <= 1/2: pi/2 - asin x. Beyond: 2 asin sqrt((1 - |x|) / 2), mirrored for negative x.
template <typename T>
KELG729F_VEC T arc_cosine_kernel(T x) {
  const T zero = splat_as<T>(0.0), half = splat_as<T>(0.5), one = splat_as<T>(1.0);
  const auto negative = x < zero;
  T magnitude = select(negative, zero - x, x);
  magnitude = select(one < magnitude, one, magnitude);
  const auto inner = magnitude <= half;
  const T z = select(inner, x * x, half * (one - magnitude));
  const T s = select(inner, x, square_root(z));
  const T asin_s = s + s * arc_sine_excess(z);
  const T outer = asin_s + asin_s;
  return select(inner, splat_as<T>(kHalfPi) - (asin_s - splat_as<T>(kHalfPiLow)),
                select(negative, splat_as<T>(kPi) - outer, outer));
}

// The last block overlaps the one before it; it is read before anything is written, as out may be
// x.
template <Vec8 (*Function)(Vec8)>
KELG729F_VEC void map(const double* x, double* out, int n) {
  if (n < kLanes) {
    double few[kLanes] = {};
    for (int i = 0; i < n; ++i) few[i] = x[i];
    store(few, Function(load(few)));
    for (int i = 0; i < n; ++i) out[i] = few[i];
    return;
  }
  const Vec8 last = Function(load(x + n - kLanes));
  for (int i = 0; i < n - kLanes; i += kLanes) store(out + i, Function(load(x + i)));
  store(out + n - kLanes, last);
}

uint64_t bits_of(double x) {
  uint64_t u;
  std::memcpy(&u, &x, sizeof u);
  return u;
}
double from_bits(uint64_t u) {
  double x;
  std::memcpy(&x, &u, sizeof x);
  return x;
}

struct Reciprocals {
  double c[12];
};
consteval Reciprocals odd_reciprocals() {  // 1 / (2 k + 1)
  Reciprocals r = {};
  for (int k = 0; k < 12; ++k) r.c[k] = 1.0 / (2 * k + 1);
  return r;
}
consteval Reciprocals factorial_reciprocals() {  // 1 / (k + 1)!
  Reciprocals r = {};
  double factorial = 1;
  for (int k = 0; k < 12; ++k) {
    factorial *= k + 1;
    r.c[k] = 1.0 / factorial;
  }
  return r;
}

}  // namespace

double cosine(double x) {
  return cosine_kernel(x);
}
double arc_cosine(double x) {
  return arc_cosine_kernel(x);
}

void cosine(const double* x, double* out, int n) {
  map<cosine_kernel<Vec8>>(x, out, n);
}
void arc_cosine(const double* x, double* out, int n) {
  map<arc_cosine_kernel<Vec8>>(x, out, n);
}

double log10_of(double x) {
  constexpr double kLog10Of2 = 0.30102999566398119521, kLog10OfE = 0.43429448190325182765;
  constexpr uint64_t kSqrtHalf = 0x3FE6A09E667F3BCD;  // bits of sqrt(1/2)
  // x = 2^e m, m in [sqrt(1/2), sqrt(2)); log m = 2 atanh((m - 1) / (m + 1)).
  const uint64_t offset = bits_of(x) - kSqrtHalf;
  const int e = static_cast<int>(static_cast<int64_t>(offset) >> 52);
  const double m = from_bits((offset & 0x000FFFFFFFFFFFFF) + kSqrtHalf);
  constexpr Reciprocals kSeries = odd_reciprocals();
  const double s = (m - 1.0) / (m + 1.0);
  const double log_m = 2.0 * s * polynomial(kSeries.c, s * s);
  return e * kLog10Of2 + log_m * kLog10OfE;
}

double power_of_10(double x) {
  constexpr double kLog2Of10 = 3.32192809488736234787, kLogOf10 = 2.30258509299404568402;
  // log10(2) in two pieces, the first short enough that n * kHigh is exact.
  constexpr double kHigh = 0x1.34413508p-2, kLow = 0.30102999566398119521 - kHigh;
  const double y = x * kLog2Of10;
  const int n = static_cast<int>(y < 0 ? y - 0.5 : y + 0.5);
  const double r = ((x - n * kHigh) - n * kLow) * kLogOf10;  // 10^x = 2^n e^r
  constexpr Reciprocals kSeries = factorial_reciprocals();
  const double e_r = 1.0 + r * polynomial(kSeries.c, r);
  return e_r * from_bits(static_cast<uint64_t>(1023 + n) << 52);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
