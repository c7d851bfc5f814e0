#include "codec/encoder/gain_search.h"

#include "codec/dsp/simd/lane_minimum.h"
#include "codec/dsp/tables/gain_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTamedPitch = 0.9999;

// A stage's entries by part.
template <int n>
struct Stage {
  alignas(8 * kLanes) double pitch[n], code[n];
};
template <int n>
KELG729F_VEC Stage<n> parts_of(const GainPair* entry) {
  Stage<n> s;
  for (int i = 0; i < n; ++i) {
    s.pitch[i] = entry[i].pitch;
    s.code[i] = entry[i].code;
  }
  return s;
}

template <int stage_b>
struct Codebook {
  const GainPair (&a)[kGainStageA], (&b)[stage_b];
  const int (&code_a)[kGainStageA], (&code_b)[stage_b];
};

template <int stage_b>
GainChoice search(const Codebook<stage_b>& codebook, const double* c, double g0, bool tame_flag) {
  const auto& [a, b, code_a, code_b] = codebook;
  const Stage<stage_b> parts = parts_of<stage_b>(b);
  LaneMinimum least;
  for (int i = 0; i < kGainStageA; ++i)
    for (int j = 0; j < stage_b; j += kLanes) {
      const Vec8 pitch = splat(a[i].pitch) + load(parts.pitch + j);
      const Vec8 code = splat(g0) * (splat(a[i].code) + load(parts.code + j));
      Vec8 e = ((splat(c[0]) * pitch + splat(c[1])) + splat(c[4]) * code) * pitch +
               (splat(c[2]) * code + splat(c[3])) * code;
      if (tame_flag) e = select(splat(kTamedPitch) <= pitch, splat(1e38), e);
      consider(&least, e, i * stage_b + j);
    }
  const int best = lowest_index(least), i = best / stage_b, j = best % stage_b;
  const double factor = a[i].code + b[j].code;
  return {smallest_lane(least.value),
          stage_b * code_a[i] + code_b[j],
          {a[i].pitch + b[j].pitch, g0 * factor},
          factor};
}

}  // namespace

GainChoice search_gains(const double* c, double g0, bool tame_flag) {
  constexpr Codebook<kGainStageB> kCodebook = {kGainA, kGainB, kGainCodeA, kGainCodeB};
  return search(kCodebook, c, g0, tame_flag);
}

GainChoice search_gains_6k4(const double* c, double g0, bool tame_flag) {
  constexpr Codebook<kGainStageB6k4> kCodebook = {kGainA6k4, kGainB6k4, kGainCodeA6k4,
                                                  kGainCodeB6k4};
  return search(kCodebook, c, g0, tame_flag);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
