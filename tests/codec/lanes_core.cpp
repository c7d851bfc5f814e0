// The vector layer against plain numbers. Compiled once per build of the codec core.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include "codec/dsp/simd/lane_minimum.h"
#include "codec/dsp/simd/sample_run.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

template <typename T, int n, typename F>
bool holds(Lanes<T, n> v, F expected) {
  for (int i = 0; i < n; ++i)
    if (lane(v, i) != expected(i)) return false;
  return true;
}

template <int n, typename F>
bool bits_hold(unsigned bits, F expected) {
  for (int i = 0; i < n; ++i)
    if ((bits >> i & 1) != static_cast<unsigned>(expected(i))) return false;
  return bits >> n == 0;
}

#define KELG729F_NEED(condition) \
  if (!(condition)) return #condition

const char* broken_doubles(const double* x, const double* y) {
  const Vec8 a = load(x), b = load(y);
  KELG729F_NEED(
      holds((a + b) * a - splat(y[3]), [&](int i) { return (x[i] + y[i]) * x[i] - y[3]; }));
  KELG729F_NEED(holds(a / b, [&](int i) { return x[i] / y[i]; }));
  KELG729F_NEED(holds(square_root(a * a), [&](int i) { return std::sqrt(x[i] * x[i]); }));
  KELG729F_NEED(holds(select(a <= b, a, b), [&](int i) { return x[i] <= y[i] ? x[i] : y[i]; }));
  KELG729F_NEED(holds(smaller(a, b), [&](int i) { return x[i] < y[i] ? x[i] : y[i]; }));
  KELG729F_NEED(bits_hold<8>(lanes_greater(a, b), [&](int i) { return x[i] > y[i]; }));
  KELG729F_NEED(bits_hold<8>(lanes_at_most(a, b), [&](int i) { return x[i] <= y[i]; }));
  KELG729F_NEED(holds(slide(a, b), [&](int i) { return i == 0 ? x[7] : y[i - 1]; }));
  KELG729F_NEED(holds(next_lanes(a), [&](int i) { return i == 7 ? 0.0 : x[i + 1]; }));
  KELG729F_NEED(
      holds(from_lanes([&](int i) { return x[7 - i]; }), [&](int i) { return x[7 - i]; }));
  KELG729F_NEED(holds(concat(high(a), low(b)), [&](int i) { return i < 4 ? x[4 + i] : y[i - 4]; }));
  KELG729F_NEED(holds(both<0>(low(a)), [&](int i) { return x[i & ~1]; }));
  KELG729F_NEED(holds(both<1>(low(low(a))), [&](int) { return x[1]; }));
  KELG729F_NEED(sum(a) == ((x[0] + x[4]) + (x[2] + x[6])) + ((x[1] + x[5]) + (x[3] + x[7])));
  KELG729F_NEED(smallest_lane(a) == *std::min_element(x, x + 8));
  LaneMinimum minimum;
  consider(&minimum, b, 0);
  consider(&minimum, a, 8);
  const int lowest = lowest_index(minimum);
  KELG729F_NEED((lowest < 8 ? y[lowest] : x[lowest - 8]) == smallest_lane(smaller(a, b)));
  bool runs = true;
  for_places<9>([&](auto i) {
    runs = runs && holds(SampleRun<2>(x).from(i), [&](int k) { return x[i + k]; });
  });
  KELG729F_NEED(runs);
  return nullptr;
}

const char* broken_screens(const double* x, const double* y) {
  const Float16 a = narrow(load(x), load(x + 8)), b = narrow(load(y), load(y + 8));
  float f[16], g[16];
  store(f, a);
  store(g, b);
  KELG729F_NEED(holds(a, [&](int i) { return static_cast<float>(x[i]); }));
  KELG729F_NEED(holds(smaller(a, b), [&](int i) { return std::min(f[i], g[i]); }));
  KELG729F_NEED(holds(larger(a, b), [&](int i) { return std::max(f[i], g[i]); }));
  KELG729F_NEED(bits_hold<16>(lanes_at_most(a, b), [&](int i) { return f[i] <= g[i]; }));
  KELG729F_NEED(largest_lane(a) == *std::max_element(f, f + 16));
  const Float16 one = reciprocal(a) * a;
  KELG729F_NEED(largest_lane(larger(one, splat(2.0F) - one)) < 1.0F + std::exp2(-11.4F));
  const Whole16 p = convert<int32_t>(a), q = convert<int32_t>(b);
  KELG729F_NEED(holds(convert<float>(p), [&](int i) { return std::trunc(f[i]); }));
  KELG729F_NEED(
      holds(next_lanes(p, q), [&](int i) { return i == 15 ? lane(q, 0) : lane(p, i + 1); }));
  KELG729F_NEED(holds(multiply_halves(join_halves(p, q), join_halves(p, p)),
                      [&](int i) { return lane(p, i) * (lane(p, i) + lane(q, i)); }));
  KELG729F_NEED(low_bits(lane(with_low_bits(a, 5, splat(19)), 15), 5) == 19);
  return nullptr;
}

}  // namespace

const char* broken_lanes() {
  std::mt19937 random(1);
  for (int round = 0; round < 1000; ++round) {
    alignas(64) double x[16], y[16];
    for (double& v : x) v = static_cast<double>(random() % 60000) / 2 - 14999.75;
    for (int i = 0; i < 16; ++i) y[i] = random() % 4 ? x[15 - i] : x[i];
    if (const char* broken = broken_doubles(x, y)) return broken;
    if (const char* broken = broken_screens(x, y)) return broken;
  }
  return nullptr;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
