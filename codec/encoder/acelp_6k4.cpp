#include "codec/encoder/acelp_6k4.h"

#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/algebraic_tables.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// In track order, the positions of pulse 0 are tracks 1 and 3 in turn, those of pulse 1 tracks 0,
// 2 and 4 in turn and then all of track 1.
constexpr int kTracksOfPulse0[] = {1, 3};
constexpr int kTracksOfPulse1[] = {0, 2, 4, 1};

struct PlacedPulse {
  int track, place;
};

int table_index_0(PlacedPulse p) {
  return 2 * p.place + p.track / 2;
}
int table_index_1(PlacedPulse p) {
  return p.track == 1 ? 24 + p.place : 3 * p.place + p.track / 2;
}

struct PulsePair {
  PlacedPulse pulse[2] = {{1, 0}, {0, 0}};
};

PulsePair search_pairs(const TrackVector d, const ImpulseCorrelation& rr) {
  constexpr int kOthers = sizeof(kTracksOfPulse1) / sizeof(kTracksOfPulse1[0]);
  BestCandidate best = {0.0, 1e38};
  PulsePair pair;
  for (const int t0 : kTracksOfPulse0)
    for (int p0 = 0; p0 < kTrackPositions; ++p0) {
      Vec8 ps[kOthers], energy[kOthers];
      for (int k = 0; k < kOthers; ++k) {
        const int t1 = kTracksOfPulse1[k];
        ps[k] = splat(d[t0][p0]) + load(d[t1]);
        energy[k] = (splat(rr.diagonal[t0][p0]) + load(rr.diagonal[t1])) + load(rr.row[t0][p0][t1]);
      }
      const int other = improve_best<kOthers>(ps, energy, &best);
      if (other < 0) continue;
      pair = {{{t0, p0}, {kTracksOfPulse1[other / kTrackPositions], other % kTrackPositions}}};
    }
  return pair;
}

}  // namespace

PulseWords acelp_search_11bit(const InnovationInput& in, Innovation* innovation) {
  double backward_target[kSubframe];
  double* const impulse = in.impulse.data();
  TrackVector magnitude, signs;
  ImpulseCorrelation rr;
  pitch_sharpen(impulse, in.t0, in.pitch_sharp);
  const PaddedImpulse padded = pad_impulse(impulse);
  impulse_energies(impulse, &rr);
  correlate_target_impulse(impulse, in.target.data(), backward_target);
  split_signs(backward_target, magnitude, signs);
  correlate_impulse(impulse, signs, &rr, kTwoPulses);
  const PulsePair pair = search_pairs(magnitude, rr);

  int position[2], sign_index = 0;
  double sign[2];
  zero_vector(innovation->code, kSubframe);
  for (int k = 0; k < 2; ++k) {
    const PlacedPulse p = pair.pulse[k];
    position[k] = kTracks * p.place + p.track;
    sign[k] = signs[p.track][p.place];
    innovation->code[position[k]] += sign[k];
    sign_index |= (sign[k] > 0.0) << k;
  }
  filter_pulses(padded, position, sign, 2, innovation->y);
  pitch_sharpen(innovation->code, in.t0, in.pitch_sharp);
  return {kGray[table_index_0(pair.pulse[0])] + 16 * kGray[table_index_1(pair.pulse[1])],
          sign_index};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
