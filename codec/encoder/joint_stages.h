// The stages of a subframe coded by delayed decision: branch, lag, innovation, gains.
#pragma once

#include <span>

#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/complexity.h"
#include "codec/encoder/frame_work.h"
#include "codec/encoder/gain_search.h"
#include "codec/encoder/innovations.h"
#include "codec/encoder/joint_search.h"
#include "codec/encoder/lag_candidates.h"
#include "codec/encoder/path.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// What is fixed for the frame.
struct JointFrame {
  const double* speech;
  FrameWork* w;  // its filters for one branch after the other
  const Spectra& spectra;
  const Effort& effort;
  Rate rate;
};

// A path that goes on into subframe k with one of the spectra.
struct Branch {
  Path* path;
  int spectrum;
  LpFilter filter;
  LagRange range;
  double error;  // so far, with nothing yet that meets the target
  alignas(kAlign) double xn[kSubframe];
  alignas(kAlign) double h[kSubframe];
  alignas(kAlign) double residual[kSubframe];
};

// A branch with a lag.
struct LaggedBranch {
  const Branch* branch;
  PitchLag lag;
};

// The same with its adaptive-codebook vector.
struct LagPair {
  const Branch* branch;
  PitchLag lag;
  bool tame;
  double xy, yy, gain;
  alignas(kAlign) double v[kSubframe];   // adaptive-codebook vector
  alignas(kAlign) double y1[kSubframe];  // filtered
};

// A pair with an innovation.
struct Triple {
  const LagPair* pair;
  const Candidate* candidate;
};

// A triple with gains.
struct Choice {
  Triple triple;
  GainChoice gains;
};

// Excitation of subframe k; the past lies before it.
inline double* excitation_of(Path* path, int k) {
  return path->exc + kExcitationPast + k * kSubframe;
}

// Residual, target and impulse response of the path with the spectrum.
void start_branch(const JointFrame& f, Path* path, int spectrum, LagRange range, int k, Branch* b);

// Fills `lags` with the branch's of greatest correlation.
void find_lags(const JointFrame& f, const Branch& b, int k, std::span<LagCandidate> lags);

// Fills the pair; returns the error so far with the best pitch gain.
double start_pair(const Branch& b, PitchLag lag, int k, LagPair* pair);

// Innovations for the pair; returns their count, kMostStarts at most.
int find_innovations(const JointFrame& f, const LagPair& pair, Candidate* candidate);

Choice choose_gains(const Triple& t, Rate rate);

}  // namespace KELG729F_TARGET
}  // namespace g729
