#include "codec/decoder/long_term_postfilter.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/simd/sample_run.h"

// The candidates are the 15 delays L - 7/8 .. L + 7/8 around the best whole lag L. The short filter
// makes a delayed signal from four neighbouring whole lags, so with
//   c[l]      = sum_n r[n] r[n - l]            l = L - 2 .. L + 2
//   phi[i][j] = sum_n r[n - i] r[n - j]        i, j = L - 2 .. L + 2
// every candidate's correlation is h^T c and its energy h^T phi h over four of the five lags: the
// delayed signals need not be formed, and eight phases are one vector.
namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kMinEnergy = 0.1;     // weaker residuals and candidates are left alone
constexpr double kVoicing = 0.5;       // least corr^2 / (energy * energy) of a periodic residual
constexpr int kLags = kShortTaps + 1;  // whole lags L - 2 .. L + 2
constexpr int kSearchReach = 4;        // whole lags T0 - 3 .. T0 + 4 fill a vector

// A delay of lag + phase/8 samples with the delayed signal's correlation and energy.
struct DelayCandidate {
  int lag;
  int phase;
  double corr;
  double energy;
};

double score(double corr, double energy) {
  return corr * corr / energy;
}

// Lane j: sum of x[n] y[n + j], n = 0..39, in four partial sums.
Vec8 correlate(const double* x, const double* y) {
  constexpr int kSums = 4;
  Vec8 s[kSums] = {};
  for (int n = 0; n < kSubframe; n += kSums) {
    const SampleRun<2> run(y + n);
    for_places<kSums>([&](auto i) __attribute__((always_inline)) {
      s[i] = s[i] + splat(x[n + i]) * run.from(i);
    });
  }
  return (s[0] + s[1]) + (s[2] + s[3]);
}

// The lag of t0 - 1 .. t0 + 1 with the greatest correlation, 0 when that is not positive.
// corr[j] is the correlation of lag t0 + kSearchReach - j.
int best_whole_lag(const double* corr, int t0) {
  int best = t0 - 1;
  for (int lag = t0; lag <= t0 + 1; ++lag)
    if (corr[t0 + kSearchReach - lag] > corr[t0 + kSearchReach - best]) best = lag;
  return corr[t0 + kSearchReach - best] > 0.0 ? best : 0;
}

// The upper triangle of phi for the lags first .. first + 4.
void residual_covariance(const double* r, int first, double phi[kLags][kLags]) {
  const double* u = r - first;
  double row[kLanes];
  store(row, correlate(u, u - (kLanes - 1)));
  for (int j = 0; j < kLags; ++j) phi[0][j] = row[kLanes - 1 - j];
  for (int i = 1; i < kLags; ++i)
    for (int j = i; j < kLags; ++j)
      phi[i][j] = phi[i - 1][j - 1] + u[-i] * u[-j] - u[kSubframe - i] * u[kSubframe - j];
}

// The delays lag - 1 .. lag + 7/8 in eighths.
struct DelayFractions {
  double corr[2 * kDelayPhases];
  double energy[2 * kDelayPhases];
  double score[2 * kDelayPhases];  // 0 for a delay that is no candidate
};

// Fills the eight phases from `first` on, whose four whole lags c and phi hold from `at` on.
void evaluate_phases(const double* c, const double phi[kLags][kLags], int at, int first,
                     DelayFractions* f) {
  Vec8 corr = {}, energy = {};
  for (int k = 0; k < kShortTaps; ++k) {
    const Vec8 tap = load(kShortDelay[k]);
    Vec8 others = {};
    for (int l = k + 1; l < kShortTaps; ++l)
      others = others + splat(phi[at + k][at + l]) * load(kShortDelay[l]);
    corr = corr + splat(c[at + k]) * tap;
    energy = energy + tap * (splat(phi[at + k][at + k]) * tap + others + others);
  }
  const Vec8 zero = splat(0.0);
  const Vec8 positive = select(corr > zero, corr * corr / energy, zero);
  store(f->corr + first, corr);
  store(f->energy + first, energy);
  store(f->score + first, select(splat(kMinEnergy) <= energy, positive, zero));
}

// The candidate around `lag` with the greatest score; its corr is 0 when none counts. c holds the
// correlations of lags lag - 2 .. lag + 2.
DelayCandidate best_fraction(const double* r, int lag, const double* c) {
  double phi[kLags][kLags];
  residual_covariance(r, lag - 2, phi);
  DelayFractions f;
  evaluate_phases(c, phi, 0, 0, &f);
  evaluate_phases(c, phi, 1, kDelayPhases, &f);
  // Entry 0, a whole sample off, is no candidate: it stands for none.
  f.corr[0] = f.score[0] = 0.0;
  f.energy[0] = 1.0;
  int best = 0;
  for (int i = 1; i < 2 * kDelayPhases; ++i) best = f.score[i] > f.score[best] ? i : best;
  return {lag - 1 + best / kDelayPhases, best % kDelayPhases, f.corr[best], f.energy[best]};
}

// out[n] = sum_t taps[t * stride] x[n - t], n = 0..39.
template <int Taps>
void delay_signal(const double* x, const double* taps, int stride, double* out) {
  constexpr int kBlocks = kSubframe / kLanes;
  constexpr Constant<Taps - 1> kX;  // place of x in the run
  Vec8 s[kBlocks] = {};
  for_places<Taps>([&](auto t) __attribute__((always_inline)) {
    const Vec8 tap = splat(taps[t * stride]);
    for (int b = 0; b < kBlocks; ++b)
      s[b] = s[b] + tap * SampleRun<3>(x + b * kLanes - kX).from(kX - t);
  });
  for (int b = 0; b < kBlocks; ++b) store(out + b * kLanes, s[b]);
}

// The signal of a fractional winner, by the long filter where that fits better; the candidate's
// correlation and energy follow.
void form_delayed(const double* r, DelayCandidate* winner, double* delayed) {
  const double* x = r - winner->lag;
  delay_signal<kLongTaps>(x + kLongTaps / 2 - 1, kLongDelay[winner->phase], 1, delayed);
  const double corr = dot(r, delayed, kSubframe), energy = dot(delayed, delayed, kSubframe);
  if (corr > 0.0 && energy >= kMinEnergy &&
      score(corr, energy) > score(winner->corr, winner->energy)) {
    winner->corr = corr;
    winner->energy = energy;
    return;
  }
  delay_signal<kShortTaps>(x + 1, &kShortDelay[0][winner->phase], kDelayPhases, delayed);
}

// out = (r + weight * delayed) / (1 + weight).
void add_harmonics(const double* r, const double* delayed, double weight, double* out) {
  const double scale = 1.0 / (1.0 + weight);
  for (int n = 0; n < kSubframe; n += kLanes)
    store(out + n, (load(r + n) + splat(weight) * load(delayed + n)) * splat(scale));
}

int pass_unchanged(const double* residual, double* out) {
  copy_vector(residual, out, kSubframe);
  return 0;
}

}  // namespace

int long_term_postfilter(const double* residual, int t0, double gamma_h, double* out) {
  const double energy = dot(residual, residual, kSubframe);
  if (energy < kMinEnergy) return pass_unchanged(residual, out);
  if (t0 > kPitchMax) t0 = kPitchMax;
  double backwards[kLanes];
  store(backwards, correlate(residual, residual - (t0 + kSearchReach)));
  const int lag = best_whole_lag(backwards, t0);
  if (lag == 0) return pass_unchanged(residual, out);
  double c[kLags];
  for (int i = 0; i < kLags; ++i) c[i] = backwards[t0 + kSearchReach - (lag - 2 + i)];

  DelayCandidate winner = best_fraction(residual, lag, c);
  if (winner.corr * winner.corr < kVoicing * energy * winner.energy)
    return pass_unchanged(residual, out);
  double formed[kSubframe];
  const double* delayed = formed;
  if (winner.phase == 0)
    delayed = residual - winner.lag;
  else
    form_delayed(residual, &winner, formed);
  const double gain = winner.corr < winner.energy ? winner.corr / winner.energy : 1.0;
  add_harmonics(residual, delayed, gamma_h * gain, out);
  return winner.phase == 0 ? winner.lag : winner.lag + 1;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
