#include "codec/encoder/acelp_8k.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/acelp_8k_screen.h"

namespace g729 {
inline namespace KELG729F_TARGET {

double largest_of(const double* x) {
  const double a = std::max(std::max(x[0], x[1]), std::max(x[2], x[3]));
  const double b = std::max(std::max(x[4], x[5]), std::max(x[6], x[7]));
  return std::max(a, b);
}

double pulse_threshold(const TrackVector d, double share) {
  const double mean = 0.125 * sum((load(d[0]) + load(d[1])) + load(d[2]));
  const double max = largest_of(d[0]) + largest_of(d[1]) + largest_of(d[2]);
  return mean + share * (max - mean);
}

namespace {

constexpr double kThresholdShare = 0.4;

// The standard's nested loops: the fourth pulse is searched for the first `budget` triples over the
// threshold. Returns their number.
int search_triples(const TripleSearch& s, int budget, Winner* winner) {
  constexpr int kFourth = 2 * kTrackPositions, kPairs = kTrackPositions * kTrackPositions;
  const double largest2 = largest_of(s.d[2]);
  int tried = 0;
  for (int pair = 0; pair < kPairs; ++pair) {
    const double ps2 = s.d[0][pair / kTrackPositions] + s.d[1][pair % kTrackPositions];
    if (!(ps2 + largest2 > s.threshold)) continue;
    for (int p2 = 0; p2 < kTrackPositions; ++p2) {
      if (!(ps2 + s.d[2][p2] > s.threshold)) continue;
      if (tried++ == budget) return budget;
      try_fourth(s, pair * kTrackPositions + p2, 0, kFourth - 1, winner);
    }
  }
  return tried;
}

// Returns what is left of the budget.
int search_pulses(const TripleSearch& s, int budget, Winner* winner) {
  int tried;
  if (screen_triples(s, budget, &tried, winner)) return budget - tried;
  *winner = {};
  return budget - search_triples(s, budget, winner);
}

PulseWords write_codeword(const TripleSearch& s, const Winner& winner, const PaddedImpulse& impulse,
                          Innovation* innovation) {
  const int* place = winner.place;
  int position[kPulses17], sign_index = 0;
  double sign[kPulses17];
  zero_vector(innovation->code, kSubframe);
  for (int k = 0; k < kPulses17; ++k) {
    const int track = k == 3 ? winner.fourth_track : k;
    position[k] = kTracks * place[k] + track;
    sign[k] = s.sign[track][place[k]];
    innovation->code[position[k]] = sign[k];
    sign_index |= (sign[k] > 0.0) << k;
  }
  filter_pulses(impulse, position, sign, kPulses17, innovation->y);
  return {
      place[0] | place[1] << 3 | place[2] << 6 | (winner.fourth_track - 3) << 9 | place[3] << 10,
      sign_index};
}

}  // namespace

PulseWords acelp_search_17bit(const InnovationInput& in, int subframe_start, int* fcb_extra,
                              Innovation* innovation) {
  TripleSearch s;
  alignas(kAlign) double backward_target[kSubframe];
  double* const impulse = in.impulse.data();
  pitch_sharpen(impulse, in.t0, in.pitch_sharp);
  const PaddedImpulse padded = pad_impulse(impulse);
  impulse_energies(impulse, &s.rr);
  correlate_target_impulse(impulse, in.target.data(), backward_target);
  split_signs(backward_target, s.d, s.sign);
  s.threshold = pulse_threshold(s.d, kThresholdShare);
  correlate_impulse(impulse, s.sign, &s.rr, kFourPulses);

  Winner winner;
  const int budget = kBudget + (subframe_start == 0 ? kFirstExtra : *fcb_extra);
  *fcb_extra = search_pulses(s, budget, &winner);
  const PulseWords words = write_codeword(s, winner, padded, innovation);
  pitch_sharpen(innovation->code, in.t0, in.pitch_sharp);
  return words;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
