#include "codec/encoder/lp_analysis.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// The stored digits are the coder's constants: some differ from the formulas by a few units of the
// last decimal, and must not be computed anew.

// w[n] = 0.54 - 0.46 cos(2 pi n / 399), n = 0..199; cos(2 pi (n - 200) / 159), n = 200..239.
constexpr double lp_window[kWindow] = {
    0.08,       0.08005703, 0.08022812, 0.08051322, 0.08091226, 0.08142514, 0.08205173, 0.08279189,
    0.08364542, 0.08461211, 0.08569173, 0.086884,   0.08818864, 0.08960531, 0.09113366, 0.09277333,
    0.09452389, 0.09638492, 0.09835596, 0.10043651, 0.10262606, 0.10492407, 0.10732996, 0.10984315,
    0.112463,   0.11518888, 0.11802009, 0.12095594, 0.12399571, 0.12713863, 0.13038393, 0.13373081,
    0.13717842, 0.14072593, 0.14437245, 0.14811707, 0.15195887, 0.15589689, 0.15993016, 0.16405768,
    0.16827842, 0.17259134, 0.17699537, 0.18148941, 0.18607235, 0.19074306, 0.19550037, 0.20034311,
    0.20527007, 0.21028004, 0.21537178, 0.22054401, 0.22579545, 0.23112481, 0.23653077, 0.24201198,
    0.24756708, 0.25319469, 0.25889343, 0.26466187, 0.27049859, 0.27640214, 0.28237105, 0.28840385,
    0.29449903, 0.3006551,  0.30687052, 0.31314374, 0.31947322, 0.32585739, 0.33229466, 0.33878343,
    0.3453221,  0.35190904, 0.35854262, 0.36522121, 0.37194313, 0.37870672, 0.38551032, 0.39235222,
    0.39923073, 0.40614415, 0.41309077, 0.42006885, 0.42707668, 0.4341125,  0.44117458, 0.44826117,
    0.45537051, 0.46250084, 0.46965038, 0.47681736, 0.48400002, 0.49119656, 0.4984052,  0.50562416,
    0.51285164, 0.52008585, 0.527325,   0.5345673,  0.54181094, 0.54905413, 0.55629508, 0.56353198,
    0.57076306, 0.5779865,  0.58520052, 0.59240334, 0.59959316, 0.6067682,  0.61392669, 0.62106684,
    0.62818689, 0.63528507, 0.64235963, 0.6494088,  0.65643085, 0.66342402, 0.67038658, 0.67731681,
    0.68421299, 0.69107342, 0.69789637, 0.70468018, 0.71142315, 0.71812361, 0.7247799,  0.73139036,
    0.73795337, 0.7444673,  0.75093052, 0.75734143, 0.76369845, 0.77,       0.77624451, 0.78243045,
    0.78855626, 0.79462044, 0.80062149, 0.8065579,  0.81242822, 0.81823098, 0.82396474, 0.82962809,
    0.83521963, 0.84073795, 0.8461817,  0.85154952, 0.85684009, 0.86205209, 0.86718423, 0.87223524,
    0.87720386, 0.88208887, 0.88688904, 0.8916032,  0.89623016, 0.9007688,  0.90521797, 0.90957657,
    0.91384354, 0.9180178,  0.92209832, 0.92608409, 0.92997412, 0.93376744, 0.93746313, 0.94106025,
    0.94455793, 0.94795528, 0.95125147, 0.95444568, 0.95753712, 0.96052502, 0.96340864, 0.96618727,
    0.96886022, 0.97142682, 0.97388643, 0.97623846, 0.97848231, 0.98061742, 0.98264328, 0.98455937,
    0.98636523, 0.98806039, 0.98964445, 0.99111701, 0.99247771, 0.9937262,  0.99486218, 0.99588537,
    0.99679551, 0.99759237, 0.99827577, 0.99884552, 0.9993015,  0.99964358, 0.99987168, 0.99998569,
    1.0,        0.9992193,  0.99687846, 0.9929811,  0.98753331, 0.98054362, 0.97202291, 0.96198451,
    0.95044409, 0.93741966, 0.92293156, 0.90700241, 0.88965709, 0.87092267, 0.85082841, 0.82940569,
    0.80668794, 0.78271065, 0.75751124, 0.73112907, 0.70360534, 0.674983,   0.64530676, 0.61462295,
    0.58297948, 0.55042575, 0.51701261, 0.4827922,  0.44781798, 0.41214454, 0.37582758, 0.33892382,
    0.30149086, 0.26358717, 0.22527191, 0.18660492, 0.14764656, 0.10845768, 0.06909945, 0.02963307,
};

// exp(-(2 pi 60 i / 8000)^2 / 2) / 1.0001, i = 1..12.
const double lag_window[kAutocorrelations] = {
    0.99879038, 0.99546894, 0.98995779, 0.98229335, 0.9725262, 0.96072035,
    0.94695264, 0.9313118,  0.91389754, 0.89481964, 0.8741966, 0.85215437,
};

namespace {

constexpr int kOlder = 200;  // samples of the window's first part

struct SearchWindow {
  alignas(kAlign) double w[kWindow];

  constexpr SearchWindow() : w{} {
    for (int n = 0; n < kWindow; ++n)
      w[n] = n < kOlder ? lp_window[n] * lp_window[n] : lp_window[n];
  }
};
constexpr SearchWindow kSearchWindow;
constexpr double kSearchNoiseFloor = 1.00002;  // white-noise correction, -47 dB

// Lags in tiles of as many running sums as the registers hold; the last tile may run past the
// highest lag, over zeros kept before the signal.
constexpr int kTileMost = kNativeLanes == 8 ? 13 : kNativeLanes == 4 ? 5 : 3;
constexpr int kLead = 16;

// r[k] of lags first..first+kTile-1, as far as wanted, for y[-kLead..239].
template <int kTile>
void correlate_tile(const double* y, int first, int lags, double* r) {
  Vec8 acc[kTile];
  for (Vec8& a : acc) a = splat(0.0);
  for (int n = 0; n < kWindow; n += kLanes) {
    const Vec8 newest = load(y + n);
    for (int k = 0; k < kTile; ++k) acc[k] = acc[k] + newest * load(y + n - first - k);
  }
  for (int k = 0; k < kTile && first + k < lags; ++k) r[first + k] = sum(acc[k]);
}

template <int kLags>
void correlate(const double* y, double* r) {
  constexpr int kTiles = (kLags + kTileMost - 1) / kTileMost;
  constexpr int kTile = (kLags + kTiles - 1) / kTiles;
  static_assert(kTiles * kTile <= kLead + 1);
  for (int first = 0; first < kLags; first += kTile) correlate_tile<kTile>(y, first, kLags, r);
}

void autocorrelation_of(const double* x, const double* window, int highest, double* r) {
  alignas(64) double buffer[kLead + kWindow];
  double* const y = buffer + kLead;
  zero_vector(buffer, kLead);
  for (int n = 0; n < kWindow; n += kLanes) store(y + n, load(x + n) * load(window + n));
  if (highest == kOrder)
    correlate<kOrder + 1>(y, r);
  else
    correlate<kAutocorrelations + 1>(y, r);
  r[0] = std::max(r[0], 1.0);
}

}  // namespace

void autocorrelation(const double* x, int highest, double* r) {
  autocorrelation_of(x, lp_window, highest, r);
}

void search_autocorrelation(const double* x, double* r) {
  autocorrelation_of(x, kSearchWindow.w, kOrder, r);
  r[0] *= kSearchNoiseFloor;
}

void apply_lag_window(int highest, double* r) {
  for (int i = 1; i <= highest; ++i) r[i] *= lag_window[i - 1];
}

void interpolate_lpc(const double* lsp_old, const double* lsp_new, double* lsf, double* a) {
  double lsp[kSubframes * kOrder];
  interpolate_lsp(lsp_old, lsp_new, lsp);
  lsp_to_lpc_pair(lsp, a);
  lsp_to_lsf(lsp, lsf, kSubframes * kOrder);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
