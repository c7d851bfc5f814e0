#include "codec/encoder/joint_stages.h"

#include <algorithm>
#include <span>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/acelp_11k8.h"
#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/gain_quantizer.h"
#include "codec/encoder/taming.h"
#include "codec/encoder/target.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTamedGain = 0.95;  // highest pitch gain of a tamed subframe
constexpr double kMaxPitchGain = 1.2;

}  // namespace

void start_branch(const JointFrame& f, Path* path, int spectrum, LagRange range, int k, Branch* b) {
  b->path = path;
  b->spectrum = spectrum;
  b->range = range;
  b->filter = {f.spectra.filter[spectrum] + k * kCoeffs, kOrder};
  f.w->quantized[k] = b->filter;
  residual_filter(b->filter, f.speech + k * kSubframe, b->residual, kSubframe);
  find_target(b->residual, path->error_mem, *f.w, k, b->xn, b->h);
  b->error = path->error + dot(b->xn, b->xn, kSubframe);
}

void find_lags(const JointFrame& f, const Branch& b, int k, std::span<LagCandidate> lags) {
  double* const exc = excitation_of(b.path, k);
  copy_vector(b.residual, exc, kSubframe);
  lag_candidates({exc, b.xn, b.h, b.range, k * kSubframe, f.rate}, lags);
}

double start_pair(const Branch& b, PitchLag lag, int k, LagPair* pair) {
  pair->branch = &b;
  pair->lag = lag;
  double* const exc = excitation_of(b.path, k);
  pitch_excitation_interpolate(exc, lag.t0, lag.frac, kSubframe);
  copy_vector(exc, pair->v, kSubframe);
  convolve(pair->v, b.h, pair->y1);
  pair->xy = dot(b.xn, pair->y1, kSubframe);
  pair->yy = dot(pair->y1, pair->y1, kSubframe) + 0.01;
  pair->tame = taming_test(b.path->exc_err, lag.t0, lag.frac);
  pair->gain = std::clamp(pair->xy / pair->yy, 0.0, pair->tame ? kTamedGain : kMaxPitchGain);
  return b.error + pair->gain * (pair->gain * pair->yy - 2.0 * pair->xy);
}

namespace {

// The one that stage by stage finds, for the codebooks of 6.4 and 11.8 kbit/s.
void find_innovation(const JointFrame& f, const LagPair& pair, Candidate* c) {
  const Branch& b = *pair.branch;
  double xn2[kSubframe], h[kSubframe];
  copy_vector(b.h, h, kSubframe);
  for (int n = 0; n < kSubframe; ++n) xn2[n] = b.xn[n] - pair.gain * pair.y1[n];
  const InnovationInput in = {xn2, h, pair.lag.t0, b.path->sharp};
  if (f.rate == kRate6k4) {
    const PulseWords words = acelp_search_11bit(in, &c->innovation);
    c->code[0] = words.position_index;
    c->code[1] = words.sign_index;
  } else {
    acelp_search_118(kForward, in, &c->innovation, c->code);
  }
  // What is beside y1 in the filtered innovation matches what is beside y1 in the target.
  const double* const y = c->innovation.y;
  const double along = dot(y, pair.y1, kSubframe) / pair.yy;
  const double match = dot(b.xn, y, kSubframe) - pair.xy * along;
  const double energy = dot(y, y, kSubframe) - pair.yy * along * along;
  c->merit = match > 0.0 ? match * match / std::max(energy, 0.01) : 0.0;
}

}  // namespace

int find_innovations(const JointFrame& f, const LagPair& pair, Candidate* candidate) {
  const Branch& b = *pair.branch;
  if (f.rate != kRate8k) {
    find_innovation(f, pair, candidate);
    return 1;
  }
  double wanted[kSubframe];
  for (int n = 0; n < kSubframe; ++n) wanted[n] = b.residual[n] - pair.gain * pair.v[n];
  const JointTarget in = {b.xn, pair.y1, wanted, b.h, pair.xy, pair.yy, pair.lag.t0, b.path->sharp};
  return innovations_8k(in, f.effort, candidate);
}

Choice choose_gains(const Triple& t, Rate rate) {
  const LagPair& pair = *t.pair;
  const Branch& b = *pair.branch;
  double c[kGainTerms] = {pair.yy, -2.0 * pair.xy};
  gain_correlations(b.xn, pair.y1, t.candidate->innovation.y, c);
  const double g0 = gain_predict(b.path->past_energy, t.candidate->innovation.code, kSubframe);
  const auto search = rate == kRate6k4 ? search_gains_6k4 : search_gains;
  return {t, search(c, g0, pair.tame)};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
