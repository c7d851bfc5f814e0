#include "codec/encoder/gain_quantizer.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/gain_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTamedOptimum = 0.94;
constexpr double kTamedPitch = 0.9999;
constexpr double kWorst = 1e38;

// Constants of the pre-selection: the optimum is moved to coordinates in which the entries of each
// stage stand in order, and thresholds between them tell where to start.
struct Preselection {
  double a;  // slope, pitch part to code part
  double b;  // offset
  double c;  // slope
  double e;  // offset
  double k;  // normalizer
  int thresholds_a, thresholds_b;
  double threshold_a[kLanes];
  double threshold_b[kLanes];
  int candidates_a, candidates_b;
};

constexpr Preselection kPreselection8k = {
    31.134575,
    1.612322,
    0.481389,
    0.053056,
    -0.032623,
    4,
    8,
    {0.659681, 0.755274, 1.207205, 1.98774},
    {0.429912, 0.494045, 0.618737, 0.650676, 0.717949, 0.77005, 0.850628, 0.932089},
    4,
    8};
constexpr Preselection kPreselection6k4 = {
    36.632507,           2.514171, 0.399259, 0.073709, -0.027599, 2, 2, {1.210869, 2.401702},
    {0.525915, 0.76732}, 6,        6};

static_assert(kPreselection8k.thresholds_a + kPreselection8k.candidates_a == kGainStageA &&
              kPreselection8k.thresholds_b + kPreselection8k.candidates_b == kGainStageB);
static_assert(kPreselection6k4.thresholds_a + kPreselection6k4.candidates_a == kGainStageA &&
              kPreselection6k4.thresholds_b + kPreselection6k4.candidates_b == kGainStageB6k4);
static_assert(kPreselection8k.thresholds_b <= kLanes && kPreselection8k.candidates_b <= kLanes &&
                  kPreselection6k4.candidates_b <= kLanes,
              "thresholds and candidates are one vector each");

struct Optimum {
  double pitch, code;
};

Optimum unconstrained_optimum(const double* c, bool tame_flag) {
  const double t = -1.0 / (4.0 * c[0] * c[2] - c[4] * c[4]);
  Optimum best = {t * (2.0 * c[2] * c[1] - c[4] * c[3]), t * (2.0 * c[0] * c[3] - c[4] * c[1])};
  if (tame_flag) best.pitch = std::min(best.pitch, kTamedOptimum);
  return best;
}

// Leading ones of n thresholds T that value exceeds as T g0; with g0 <= 0 those it stays below.
KELG729F_VEC int count_thresholds(double value, double g0, const double* threshold, int n) {
  const Vec8 scaled = load(threshold) * splat(g0);
  const unsigned passed =
      g0 > 0.0 ? lanes_greater(splat(value), scaled) : lanes_greater(scaled, splat(value));
  return first_lane(~passed | 1U << n);
}

struct Candidates {
  int a, b;  // first entry searched of each stage
};

template <const Preselection& p>
Candidates preselect(const Optimum& g, double g0) {
  const double x = p.k * (g.code - (p.a * g.pitch + p.e) * g0);
  const double y = p.k * ((p.a * g.pitch - p.b) * p.c * g0 - p.a * g.code);
  return {count_thresholds(y, g0, p.threshold_a, p.thresholds_a),
          count_thresholds(x, g0, p.threshold_b, p.thresholds_b)};
}

struct Choice {
  int a, b;  // indices into the stages
};

// The candidates of stage B side by side; lanes beyond them repeat the last one.
struct StageB {
  Vec8 pitch, code;
};
template <const Preselection& p>
KELG729F_VEC StageB gather(const GainPair* entry) {
  const auto candidate = [&](int i) { return entry[std::min(i, p.candidates_b - 1)]; };
  return {from_lanes([&](int i) { return candidate(i).pitch; }),
          from_lanes([&](int i) { return candidate(i).code; })};
}

// The pair of least error, the first of equals; the first of all when none is allowed.
template <const Preselection& p>
Choice search(const GainPair* stage_a, const GainPair* stage_b, Candidates first, const double* c,
              double g0, bool tame_flag) {
  const StageB b = gather<p>(stage_b + first.b);
  const Vec8 worst = splat(kWorst);
  Vec8 error[p.candidates_a], lowest = worst;
  for (int i = 0; i < p.candidates_a; ++i) {
    const GainPair& a = stage_a[first.a + i];
    const Vec8 pitch = splat(a.pitch) + b.pitch;
    const Vec8 code = splat(g0) * (splat(a.code) + b.code);
    Vec8 e = ((splat(c[0]) * pitch + splat(c[1])) + splat(c[4]) * code) * pitch +
             (splat(c[2]) * code + splat(c[3])) * code;
    if (tame_flag) e = select(splat(kTamedPitch) <= pitch, worst, e);
    error[i] = smaller(e, worst);
    lowest = smaller(error[i], lowest);
  }
  const double least = smallest_lane(lowest);
  if (!(least < kWorst)) return {0, 0};
  uint64_t best = 0;
  for (int i = 0; i < p.candidates_a; ++i)
    best |= uint64_t{lanes_at_most(error[i], splat(least))} << (kLanes * i);
  const int index = std::countr_zero(best);
  return {first.a + index / kLanes, first.b + index % kLanes};
}

// What the two forms share.
struct Quantized {
  Choice choice;
  double factor;  // correction
  Gains gains;
};
template <const Preselection& p>
Quantized quantize(const GainPair* stage_a, const GainPair* stage_b, const GainInput& in,
                   double g0) {
  const Optimum optimum = unconstrained_optimum(in.gain_coeff, in.tame_flag);
  const Candidates first = preselect<p>(optimum, g0);
  const Choice choice = search<p>(stage_a, stage_b, first, in.gain_coeff, g0, in.tame_flag);
  const GainPair& a = stage_a[choice.a];
  const GainPair& b = stage_b[choice.b];
  const double factor = a.code + b.code;
  return {choice, factor, {a.pitch + b.pitch, g0 * factor}};
}

}  // namespace

void gain_correlations(Subframe x, Subframe y1, Subframe z, double* gain_coeff) {
  gain_coeff[2] = dot(z.data(), z.data(), kSubframe) + 0.01;
  gain_coeff[3] = -2.0 * dot(x.data(), z.data(), kSubframe);
  gain_coeff[4] = 2.0 * dot(y1.data(), z.data(), kSubframe);
}

QuantizedGains gain_quantize(const GainInput& in, GainHistory* past_energy) {
  const double g0 = gain_predict(*past_energy, in.code.data(), kSubframe);
  const auto [choice, factor, gains] = quantize<kPreselection8k>(kGainA, kGainB, in, g0);
  gain_history_push(past_energy, factor);
  return {kGainStageB * kGainCodeA[choice.a] + kGainCodeB[choice.b], gains};
}

QuantizedGains gain_quantize_6k4(const GainInput& in, GainHistory* past_energy) {
  const double g0 = gain_predict(*past_energy, in.code.data(), kSubframe);
  const auto [choice, factor, gains] = quantize<kPreselection6k4>(kGainA6k4, kGainB6k4, in, g0);
  gain_history_push(past_energy, std::max(factor, kGainFloor6k4));
  return {kGainStageB6k4 * kGainCodeA6k4[choice.a] + kGainCodeB6k4[choice.b], gains};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
