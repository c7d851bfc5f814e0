// The encoder's short-term analysis up to the Levinson-Durbin recursion, and the interpolation of
// the unquantized LSPs (clauses 3.2.1 and 3.2.5).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kAutocorrelations = 12;  // highest lag the analysis computes

// Half a Hamming window over 200 samples, then a quarter cosine over 40; 8 decimals.
extern const double lp_window[kWindow];

// 60 Hz bandwidth expansion, lags 1..12 in elements 0..11, divided by the white-noise correction
// 1.0001 so that r[0] is never scaled; 8 decimals.
extern const double lag_window[kAutocorrelations];

// r[k] = sum over n = k..239 of y[n] y[n-k], k = 0..highest, where y is x[0..239] times the window;
// r[0] is at least 1.0. highest is kOrder or kAutocorrelations.
void autocorrelation(const double* x, int highest, double* r);

// r[i] *= lag window, i = 1..highest; r[0] stays.
void apply_lag_window(int highest, double* r);

// r[0..10] of the spectrum that complexity 1 and above code, a sharper one: the older part of the
// window is squared, so that the frame itself counts more than the past, there is no lag window,
// and the white-noise correction is 1.00002. Whoever judges the signal by thresholds (silence,
// music) sees the one above.
void search_autocorrelation(const double* x, double* r);

// LP vectors of both subframes, a[0..10] from the mean of old and new LSPs and a[11..21] from the
// new, with the LSFs (radians) of the two sets, lsf[0..9] and lsf[10..19].
void interpolate_lpc(const double* lsp_old, const double* lsp_new, double* lsf, double* a);

}  // namespace KELG729F_TARGET
}  // namespace g729
