#include "codec/encoder/acelp_8k_screen.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Correlations come scaled so that four add up to 1 at most. Every energy is a sum of terms whose
// magnitudes add up to 16 times that of the response, so the margin, some 1000 units of its last
// place, is well above all rounding.
struct Screen {
  static constexpr double kMargin = 0x1p-14;  // of the response's energy
  double scale;
  float margin;
  // A first pulse ([0]) with every third one, and what a second one ([1]) adds to that: lanes 0..7
  // the correlation, lanes 8..15 the energy.
  alignas(kVectorAlign) float third[2][kTrackPositions][kFloatLanes];
  // What the fourth pulses add to the energy with a first pulse [0], with a second one [1], and
  // alone and with a third one [2], there less the margin.
  alignas(kVectorAlign) float fourth[3][kTrackPositions][kFloatLanes];
  alignas(kVectorAlign) float pair[kTrackPositions][kTrackPositions];  // energy of p0 with p1
  alignas(kVectorAlign) float d[kFloatLanes];  // correlations of the fourth pulses
};

void set_screen(const TripleSearch& s, Screen* screen) {
  const auto& diagonal = s.rr.diagonal;
  double largest = 0.0;
  for (const auto& track : s.d) largest = std::max(largest, largest_of(track));
  screen->scale = largest > 0.0 ? 0.25 / largest : 0.0;
  const double least = Screen::kMargin * diagonal[0][0];
  screen->margin = static_cast<float>(least);
  const Vec8 scale = splat(screen->scale), margin = splat(least);
  store(screen->d, narrow(load(s.d[3]) * scale, load(s.d[4]) * scale));

  const Vec8 energy3 = load(diagonal[3]) - margin, energy4 = load(diagonal[4]) - margin;
  for (int p = 0; p < kTrackPositions; ++p) {
    const auto &row0 = s.rr.row[0][p], &row1 = s.rr.row[1][p], &row2 = s.rr.row[2][p];
    store(screen->third[0][p], narrow((splat(s.d[0][p]) + load(s.d[2])) * scale,
                                      (splat(diagonal[0][p]) + load(diagonal[2])) + load(row0[2])));
    store(screen->third[1][p],
          narrow(splat(s.d[1][p]) * scale, splat(diagonal[1][p]) + load(row1[2])));
    store(screen->fourth[0][p], narrow(load(row0[3]), load(row0[4])));
    store(screen->fourth[1][p], narrow(load(row1[3]), load(row1[4])));
    store(screen->fourth[2][p], narrow(energy3 + load(row2[3]), energy4 + load(row2[4])));
  }
  for (int p = 0; p < kTrackPositions; p += 2)
    store(screen->pair[p], narrow(load(s.rr.row[0][p][1]), load(s.rr.row[0][p + 1][1])));
}

// The pairs of first and second pulses that some third pulse lifts over the threshold: bit
// 8 p0 + p1. Rounding is monotone, so the track's largest correlation tells for all of it.
KELG729F_VEC uint64_t promising_pairs(const TripleSearch& s) {
  const Vec8 d1 = load(s.d[1]), largest2 = splat(largest_of(s.d[2])),
             threshold = splat(s.threshold);
  uint64_t pairs = 0;
#pragma GCC unroll 8
  for (int p0 = 0; p0 < kTrackPositions; ++p0) {
    const Vec8 ps = (splat(s.d[0][p0]) + d1) + largest2;
    pairs |= static_cast<uint64_t>(lanes_greater(ps, threshold)) << (kLanes * p0);
  }
  return pairs;
}

// The triples that get their fourth pulse searched, in order: 64 p0 + 8 p1 + p2.
constexpr int kPairs = kTrackPositions * kTrackPositions;
struct Tried {
  int count = 0;
  uint16_t triple[kMostTriples + kTrackPositions];  // room for the last pair's that are over budget
};

// What the screen adds up for a pair 8 p0 + p1 of first and second pulses.
struct PairSums {
  alignas(kVectorAlign) float third[kPairs][kFloatLanes];   // correlation and energy, by p2
  alignas(kVectorAlign) float fourth[kPairs][kFloatLanes];  // energy with the fourth pulse
};

KELG729F_VEC void add_up(const Screen& screen, int pair, PairSums* sums) {
  const int p0 = pair / kLanes, p1 = pair % kLanes;
  store(sums->third[pair], load(screen.third[0][p0]) + load(screen.third[1][p1]));
  store(sums->fourth[pair],
        (load(screen.fourth[0][p0]) + load(screen.fourth[1][p1])) + splat(screen.pair[p0][p1]));
}

// The places of the bits that are set, the lowest first, and how many they are.
struct SetBits {
  uint8_t count[1 << kTrackPositions];
  uint16_t place[1 << kTrackPositions][kTrackPositions];
};
consteval SetBits set_bits() {
  SetBits bits = {};
  for (unsigned set = 0; set < 1U << kTrackPositions; ++set)
    for (int i = 0; i < kTrackPositions; ++i)
      if (set >> i & 1) bits.place[set][bits.count[set]++] = static_cast<uint16_t>(i);
  return bits;
}
alignas(kVectorAlign) constexpr SetBits kSetBits = set_bits();

// Writes the pair's triples over the threshold and returns their number.
KELG729F_VEC int list_triples(const TripleSearch& s, int pair, uint16_t* triple) {
  const Vec8 ps = splat(s.d[0][pair / kLanes] + s.d[1][pair % kLanes]) + load(s.d[2]);
  const unsigned passing = lanes_greater(ps, splat(s.threshold));
  using Places = Lanes<uint16_t, kTrackPositions>;
  const auto first = static_cast<uint16_t>(pair * kTrackPositions);
  store(triple, load_as<Places>(kSetBits.place[passing]) + splat_as<Places>(first));
  return kSetBits.count[passing];
}

// The first triples over the threshold, `budget` at most.
void collect(const TripleSearch& s, const Screen& screen, int budget, Tried* tried,
             PairSums* sums) {
  int count = 0;
  for (uint64_t pairs = promising_pairs(s); pairs != 0 && count < budget; pairs &= pairs - 1) {
    const int pair = std::countr_zero(pairs);
    add_up(screen, pair, sums);
    count += list_triples(s, pair, tried->triple + count);
  }
  tried->count = std::min(count, budget);
}

// The two best criteria of each lane so far. A criterion is correlation^2 / energy, at least as
// large as it is in truth but for the slack; its last bits hold the number of the triple. The
// energy is 1 at least, the first pulse's own sample, so that it stays above 0 with a margin of
// 1/2.
constexpr float kMostMargin = 0.5F;
constexpr unsigned kNumberBits = 8;
static_assert(kMostTriples <= 1 << kNumberBits);
constexpr double kCriterionSlack = 0x1p-10;  // of the reciprocal, 2^-11.4, and of the number
struct Contest {
  Float16 best = splat(0.0F), second = splat(0.0F);
};

Contest hold_contest(const Screen& screen, const Tried& tried, const PairSums& sums) {
  const Float16 d = load(screen.d);
  Contest contest;
  Whole16 number = splat(0);
  for (int n = 0; n < tried.count; ++n) {
    const int pair = tried.triple[n] / kLanes, p2 = tried.triple[n] % kLanes;
    const float* const third = sums.third[pair] + p2;
    const Float16 ps = splat(third[0]) + d;
    const Float16 energy =
        (splat(third[kTrackPositions]) + load(sums.fourth[pair])) + load(screen.fourth[2][p2]);
    const Float16 criterion = with_low_bits(ps * ps * reciprocal(energy), kNumberBits, number);
    number = number + splat(1);
    contest.second = larger(smaller(criterion, contest.best), contest.second);
    contest.best = larger(criterion, contest.best);
  }
  return contest;
}

// Takes the best of the contest for the winner; false when some other may be better.
bool is_decided(const TripleSearch& s, const Screen& screen, const Tried& tried,
                const Contest& contest, Winner* winner) {
  const float top = largest_lane(contest.best);
  const Float16 bar = splat(top);
  const float rival = largest_lane(select(contest.best < bar, contest.best, contest.second));
  const unsigned lanes = lanes_at_most(bar, contest.best);
  if (tried.count == 0 || (lanes & (lanes - 1)) != 0) return false;
  const int lane = first_lane(lanes);
  try_fourth(s, tried.triple[low_bits(top, kNumberBits)], lane, lane, winner);
  const double square = winner->best.square * (screen.scale * screen.scale);
  return square > rival * (1.0 + kCriterionSlack) * winner->best.energy;
}

}  // namespace

bool screen_triples(const TripleSearch& s, int budget, int* tried, Winner* winner) {
  Screen screen;
  Tried triples;
  PairSums sums;
  set_screen(s, &screen);
  collect(s, screen, budget, &triples, &sums);
  *tried = triples.count;
  const Contest contest = hold_contest(screen, triples, sums);
  return screen.margin < kMostMargin && is_decided(s, screen, triples, contest, winner);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
