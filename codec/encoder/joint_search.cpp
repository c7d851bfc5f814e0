#include "codec/encoder/joint_search.h"

#include <algorithm>
#include <span>

#include "codec/dsp/filters.h"
#include "codec/encoder/joint_stages.h"
#include "codec/encoder/pool.h"
#include "codec/encoder/target.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kTail = kSubframe - kBackwardOrder;  // where the memories of the errors begin
// Error that a unit of the spectrum's distortion counts as, of the energy of the weighted speech:
// the excitation makes up for a worse spectrum, but not all that is heard of it.
constexpr double kSpectrumCost = 0.3;
constexpr int kMostBranches = std::max(kMostSpectra, kMostSurvivors);

// Pairs of branch and lag that get their adaptive-codebook vector, for so many of them to be kept.
constexpr int looks(int pairs) {
  return 2 * pairs + 2;
}

LagRange second_range(PitchLag first) {
  const int lowest = second_lag_min(first.t0);
  return {lowest, lowest + 9};
}

// Offers the branch with its lags, by the error that the correlation at the lag promises.
void offer_lags(const JointFrame& f, const Branch& b, int k,
                Pool<LaggedBranch, looks(kMostPairs)>* pool) {
  LagCandidate room[kMostLags];
  const std::span lags(room, static_cast<size_t>(f.effort.lags[k]));
  find_lags(f, b, k, lags);
  for (const auto& [lag, correlation] : lags) {
    const double match = std::max(correlation, 0.0);
    pool->offer(b.error - match * match, {&b, lag});
  }
}

// Both forms of the synthesis (EncoderCoreState says why two); error[0..39] is that of the
// undispersed one.
void synthesize(const JointFrame& f, const LpFilter& filter, const double* heard, int k,
                Path* path) {
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
void go_on(const JointFrame& f, const Choice& choice, double error, int k, Path* path) {
  const LagPair& pair = *choice.triple.pair;
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
int search_subframe(const JointFrame& f, std::span<const Branch> branches, int k, int keep,
                    Path* next) {
  const Effort& effort = f.effort;
  Pool<LaggedBranch, looks(kMostPairs)> lagged(looks(effort.pairs[k]));
  for (const Branch& branch : branches) offer_lags(f, branch, k, &lagged);
  LagPair pair[looks(kMostPairs)];
  Pool<const LagPair*, kMostPairs> pairs(effort.pairs[k]);
  for (int i = 0; i < lagged.size(); ++i) {
    const LaggedBranch& l = lagged[i].value;
    pairs.offer(start_pair(*l.branch, l.lag, k, pair + i), pair + i);
  }
  Candidate candidate[kMostPairs * kMostStarts];
  Pool<Triple, kMostGainSearches> triples(effort.gain_searches[k]);
  int count = 0;
  for (const auto& entry : pairs) {
    const LagPair& p = *entry.value;
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

void use_spectrum(const Spectra& spectra, int chosen, FrameWork* w) {
  w->lsp_new_q = spectra.candidate[chosen].quantized;
  copy_vector(spectra.filter[chosen], w->forward_q, kSubframes * kCoeffs);
}

}  // namespace

void find_spectra(const EncoderCoreState& state, std::span<const double, kOrder> lsf, FrameWork* w,
                  Spectra* spectra) {
  const Effort& effort = kEffort[state.complexity - 1];
  spectra->count = lsp_candidates(state.freq_prev, lsf, effort, spectra->candidate);
  for (int i = 0; i < spectra->count; ++i) {
    const double* const lsp_q = spectra->candidate[i].quantized.lsp_q;
    const double* const old = state.prev_lp_mode == kForward ? state.lsp_old_q : lsp_q;
    interpolate_quantized_lpc(old, lsp_q, spectra->filter[i]);
  }
  use_spectrum(*spectra, 0, w);
}

void search_jointly(EncoderCoreState* state, FrameWork* w, const Spectra& spectra, Rate rate,
                    LagRange range, SubframeParameters coded[kSubframes]) {
  const Effort& effort = kEffort[state->complexity - 1];
  const JointFrame f = {state->old_speech + kSpeechPast, w, spectra, effort, rate};
  Path root, survivor[kMostSurvivors], best;
  Branch branch[kMostBranches];
  start_path(*state, &root);
  const double* const weighted = state->old_wsp + kPitchMax;
  const double cost = kSpectrumCost * dot(weighted, weighted, kFrame);
  for (int i = 0; i < spectra.count; ++i) {
    start_branch(f, &root, i, range, 0, branch + i);
    branch[i].error += cost * spectra.candidate[i].distortion;
  }
  const std::span<const Branch> branches = branch;
  const int survivors = search_subframe(f, branches.first(static_cast<size_t>(spectra.count)), 0,
                                        effort.survivors, survivor);
  for (int i = 0; i < survivors; ++i)
    start_branch(f, survivor + i, survivor[i].spectrum, second_range(survivor[i].lag[0]), 1,
                 branch + i);
  search_subframe(f, branches.first(static_cast<size_t>(survivors)), 1, 1, &best);
  follow_path(best, state);
  encode_lags(rate, range, &best);
  std::copy_n(best.coded, kSubframes, coded);
  use_spectrum(spectra, best.spectrum, w);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
