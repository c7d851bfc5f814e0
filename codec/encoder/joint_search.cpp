#include "codec/encoder/joint_search.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/encoder/acelp_11k8.h"
#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/gain_quantizer.h"
#include "codec/encoder/gain_search.h"
#include "codec/encoder/innovations.h"
#include "codec/encoder/lag_candidates.h"
#include "codec/encoder/path.h"
#include "codec/encoder/pool.h"
#include "codec/encoder/target.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTamedGain = 0.95;  // highest pitch gain of a tamed subframe
constexpr double kMaxPitchGain = 1.2;
constexpr int kTail = kSubframe - kBackwardOrder;  // where the memories of the errors begin
// Error that a unit of the spectrum's distortion counts as, of the energy of the weighted speech:
// the excitation makes up for a worse spectrum, but not all that is heard of it.
constexpr double kSpectrumCost = 0.3;
constexpr int kMostBranches = std::max(kMostSpectra, kMostSurvivors);

// Pairs of branch and lag that get their adaptive-codebook vector, for so many of them to be kept.
constexpr int looks(int pairs) {
  return 2 * pairs + 2;
}

// What is fixed for the frame.
struct Frame {
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
struct Pair {
  const Branch* branch;
  PitchLag lag;
  bool tame;
  double xy, yy, gain;
  alignas(kAlign) double v[kSubframe];   // adaptive-codebook vector
  alignas(kAlign) double y1[kSubframe];  // filtered
};

// A pair with an innovation.
struct Triple {
  const Pair* pair;
  const Candidate* candidate;
};

// A triple with gains.
struct Choice {
  Triple triple;
  GainChoice gains;
};

double* excitation_of(Path* path, int k) {
  return path->exc + kExcitationPast + k * kSubframe;
}

void start_branch(const Frame& f, Path* path, int spectrum, int k, Branch* b) {
  b->path = path;
  b->spectrum = spectrum;
  b->filter = {f.spectra.filter[spectrum] + k * kCoeffs, kOrder};
  f.w->quantized[k] = b->filter;
  residual_filter(b->filter, f.speech + k * kSubframe, b->residual, kSubframe);
  find_target(b->residual, path->error_mem, *f.w, k, b->xn, b->h);
  b->error = path->error + dot(b->xn, b->xn, kSubframe);
}

LagRange second_range(PitchLag first) {
  const int lowest = second_lag_min(first.t0);
  return {lowest, lowest + 9};
}

// Offers the branch with its lags, by the error that the correlation at the lag promises.
void offer_lags(const Frame& f, const Branch& b, LagRange range, int k,
                Pool<LaggedBranch, looks(kMostPairs)>* pool) {
  double* const exc = excitation_of(b.path, k);
  copy_vector(b.residual, exc, kSubframe);
  LagCandidate lag[kMostLags];
  const int count =
      lag_candidates(exc, b.xn, b.h, range, k * kSubframe, f.rate, f.effort.lags[k], lag);
  for (int i = 0; i < count; ++i) {
    const double match = std::max(lag[i].correlation, 0.0);
    pool->offer(b.error - match * match, {&b, lag[i].lag});
  }
}

// Fills the pair; returns the error so far with the best pitch gain.
double start_pair(const Branch& b, PitchLag lag, int k, Pair* pair) {
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

// The one that stage by stage finds, for the codebooks of 6.4 and 11.8 kbit/s.
void find_innovation(const Frame& f, const Pair& pair, Candidate* c) {
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

int find_innovations(const Frame& f, const Pair& pair, Candidate* candidate) {
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
  const Pair& pair = *t.pair;
  const Branch& b = *pair.branch;
  double c[kGainTerms] = {pair.yy, -2.0 * pair.xy};
  gain_correlations(b.xn, pair.y1, t.candidate->innovation.y, c);
  const double g0 = gain_predict(b.path->past_energy, t.candidate->innovation.code, kSubframe);
  const auto search = rate == kRate6k4 ? search_gains_6k4 : search_gains;
  return {t, search(c, g0, pair.tame)};
}

// Both forms of the synthesis (EncoderCoreState says why two); error[0..39] is that of the
// undispersed one.
void synthesize(const Frame& f, const LpFilter& filter, const double* heard, int k, Path* path) {
  const double* const exc = excitation_of(path, k);
  const double* const speech = f.speech + k * kSubframe;
  double* const out = path->synthesis + kBackwardOrder + k * kSubframe;
  double work[kBackwardOrder + kSubframe];
  const double* undispersed = out;
  if (heard != exc && !path->has_dispersed) {
    path->has_dispersed = true;
    copy_vector(out - kBackwardOrder, path->undispersed, kBackwardOrder);
  }
  synthesis_filter(filter, heard, out, kSubframe, out - filter.order, false);
  if (path->has_dispersed) {
    double* const own = work + kBackwardOrder;
    copy_vector(path->undispersed, work, kBackwardOrder);
    synthesis_filter(filter, exc, own, kSubframe, own - filter.order, false);
    copy_vector(work + kSubframe, path->undispersed, kBackwardOrder);
    undispersed = own;
  }
  for (int i = kTail; i < kSubframe; ++i)
    path->error_mem.error[i - kTail] = speech[i] - undispersed[i];
}

// The path behind a choice.
void go_on(const Frame& f, const Choice& choice, double error, int k, Path* path) {
  const Pair& pair = *choice.triple.pair;
  const Branch& b = *pair.branch;
  const Innovation& innovation = choice.triple.candidate->innovation;
  const Gains& gains = choice.gains.gains;
  *path = *b.path;
  double* const exc = excitation_of(path, k);
  copy_vector(pair.v, exc, kSubframe);
  double dispersed[kSubframe];
  const double* const heard = total_excitation(&path->dispersion, f.rate == kRate6k4, gains,
                                               innovation.code, exc, dispersed);
  synthesize(f, b.filter, heard, k, path);
  for (int i = kTail; i < kSubframe; ++i)
    path->error_mem.weighted_error[i - kTail] =
        b.xn[i] - gains.gain_pitch * pair.y1[i] - gains.gain_code * innovation.y[i];
  taming_update(&path->exc_err, gains.gain_pitch, pair.lag.t0);
  const double factor = choice.gains.factor;
  gain_history_push(&path->past_energy,
                    f.rate == kRate6k4 ? std::max(factor, kGainFloor6k4) : factor);
  path->sharp = sharpening_gain(gains.gain_pitch);
  path->spectrum = b.spectrum;
  path->error = error;
  path->lag[k] = pair.lag;
  path->gain_pitch[k] = gains.gain_pitch;
  std::copy_n(choice.triple.candidate->code, kMaxCodeWords, path->coded[k].code);
  path->coded[k].gain = choice.gains.index;
}

// Searches subframe k from all branches; the best paths through it go to `next`. Returns their
// count, `keep` at most.
int search_subframe(const Frame& f, const Branch* branch, const LagRange* range, int branches,
                    int k, int keep, Path* next) {
  const Effort& effort = f.effort;
  Pool<LaggedBranch, looks(kMostPairs)> lagged(looks(effort.pairs[k]));
  for (int i = 0; i < branches; ++i) offer_lags(f, branch[i], range[i], k, &lagged);
  Pair pair[looks(kMostPairs)];
  Pool<const Pair*, kMostPairs> pairs(effort.pairs[k]);
  for (int i = 0; i < lagged.size(); ++i) {
    const LaggedBranch& l = lagged[i].value;
    pairs.offer(start_pair(*l.branch, l.lag, k, pair + i), pair + i);
  }
  Candidate candidate[kMostPairs * kMostStarts];
  Pool<Triple, kMostGainSearches> triples(effort.gain_searches[k]);
  int count = 0;
  for (const auto& entry : pairs) {
    const Pair& p = *entry.value;
    const double left = p.branch->error - p.xy * p.xy / p.yy;
    const int found = find_innovations(f, p, candidate + count);
    for (int i = 0; i < found; ++i, ++count)
      triples.offer(left - candidate[count].merit, {&p, candidate + count});
  }
  Pool<Choice, kMostSurvivors> choices(keep);
  for (const auto& entry : triples) {
    const Choice choice = choose_gains(entry.value, f.rate);
    choices.offer(entry.value.pair->branch->error + choice.gains.error, choice);
  }
  for (int i = 0; i < choices.size(); ++i)
    go_on(f, choices[i].value, choices[i].error, k, next + i);
  return choices.size();
}

// The lags' words.
void encode_lags(Rate rate, LagRange range, Path* path) {
  for (int k = 0; k < kSubframes; ++k) {
    SubframeParameters* const coded = path->coded + k;
    coded->lag = encode_lag(path->lag[k], &range, k * kSubframe, rate);
    const int inverted = rate == kRate11k8 ? (coded->lag >> 1) & 1 : 0;
    coded->parity = pitch_parity(coded->lag) ^ inverted;
  }
}

}  // namespace

void find_spectra(const EncoderCoreState& state, std::span<const double, kOrder> lsf,
                  const Effort& effort, Spectra* spectra) {
  spectra->count = lsp_candidates(state.freq_prev, lsf, effort, spectra->candidate);
  for (int i = 0; i < spectra->count; ++i) {
    const double* const lsp_q = spectra->candidate[i].quantized.lsp_q;
    const double* const old = state.prev_lp_mode == kForward ? state.lsp_old_q : lsp_q;
    interpolate_quantized_lpc(old, lsp_q, spectra->filter[i]);
  }
}

int search_jointly(EncoderCoreState* state, FrameWork* w, const Spectra& spectra, Rate rate,
                   LagRange range, SubframeParameters coded[kSubframes]) {
  const Effort& effort = kEffort[state->complexity - 1];
  const Frame f = {state->old_speech + kSpeechPast, w, spectra, effort, rate};
  Path root, survivor[kMostSurvivors], best;
  Branch branch[kMostBranches];
  LagRange ranges[kMostBranches];
  start_path(*state, &root);
  const double* const weighted = state->old_wsp + kPitchMax;
  const double cost = kSpectrumCost * dot(weighted, weighted, kFrame);
  for (int i = 0; i < spectra.count; ++i) {
    start_branch(f, &root, i, 0, branch + i);
    branch[i].error += cost * spectra.candidate[i].distortion;
    ranges[i] = range;
  }
  const int survivors =
      search_subframe(f, branch, ranges, spectra.count, 0, effort.survivors, survivor);
  for (int i = 0; i < survivors; ++i) {
    start_branch(f, survivor + i, survivor[i].spectrum, 1, branch + i);
    ranges[i] = second_range(survivor[i].lag[0]);
  }
  search_subframe(f, branch, ranges, survivors, 1, 1, &best);
  follow_path(best, state);
  encode_lags(rate, range, &best);
  std::copy_n(best.coded, kSubframes, coded);
  return best.spectrum;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
