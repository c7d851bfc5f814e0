// Several innovations of a subframe (clause 3.8), for the gains to decide between.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"
#include "codec/encoder/complexity.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// What the adaptive codebook leaves to the fixed one.
struct JointTarget {
  const double* xn;        // target of the subframe, [40]
  const double* y1;        // filtered adaptive-codebook vector, [40]
  const double* residual;  // innovation that would meet the target with it exactly, [40]
  const double* h;         // impulse response of the weighted synthesis filter, [40]
  double xy, yy;           // <xn, y1>, <y1, y1>
  int t0;
  double sharp;  // gain of the pitch sharpening
};

struct Candidate {
  Innovation innovation;
  int code[kMaxCodeWords];  // as sent
  double merit;             // what it takes off the energy of the error, both gains at their best
};

// Up to effort.starts different innovations of the 8 kbit/s codebook; returns their count, 1 at
// least.
int innovations_8k(const JointTarget& in, const Effort& effort, Candidate candidate[kMostStarts]);

}  // namespace KELG729F_TARGET
}  // namespace g729
