// The predictive two-stage LSF quantizer's shared half: reconstruction (clauses 3.2.4 and 4.1.1).
// Encoder, decoder and silence descriptors all reconstruct through these functions, so they hold
// identical LSPs. LSFs are in radians.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/tables/lsp_predictors.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr double kSpread1 = 0.0012;  // gap of the first spreading pass
inline constexpr double kSpread2 = 0.0006;  // gap of the second spreading pass
inline constexpr double kLsfLow = 0.005;    // lowest LSF
inline constexpr double kLsfGap = 0.0392;   // least distance of neighbours
inline constexpr double kLsfHigh = 3.135;   // highest LSF

// The last four quantized residual vectors, newest first.
struct LspHistory {
  double row[kMaOrder][kOrder];
};

// Fills every row with (j + 1) pi / 11.
void lsp_history_reset(LspHistory* history);

// Moves rows 2->3, 1->2, 0->1 and puts the ten values of residual into row 0.
void lsp_history_push(const double* residual, LspHistory* history);

// Weights of the error of the LSFs (clause 3.2.4), of speech and of silence descriptors: close
// neighbours weigh more, the two in the middle 1.2 times.
void lsf_weights(const double* lsf, double* weight);

// Least distance of neighbours among the ten LSFs. When it is at least `gap`, lsp_spread with that
// gap or a smaller one does nothing.
double lsp_least_gap(const double* lsf);

// Pushes buf[j-1] and buf[j] apart to at least `gap` for j = first..last-1 in order, each by half
// of what is missing.
void lsp_spread(double* buf, int first, int last, double gap);

// lsf[j] = buf[j] sum[j] + sum_k coefficient[k][j] history[k][j]. lsf must not be buf.
void lsp_predict(const LspPredictor& predictor, const LspHistory& history, const double* buf,
                 double* lsf);

// The inverse: buf[j] = (lsf[j] - sum_k coefficient[k][j] history[k][j]) inverse[j].
void lsp_residual(const LspPredictor& predictor, const LspHistory& history, const double* lsf,
                  double* buf);

// Orders the LSFs by one pass of swaps and keeps them within kLsfLow, kLsfGap, kLsfHigh; remarks
// kLspLow or kLspHigh when an end is clamped.
Remarks lsp_stabilize(double* lsf);

// Sum of a first-stage row and the halves of two second-stage rows.
void lsp_codevector(int first, int lower, int upper, double* buf);

// One speech frame's reconstruction: buf = codebook sum spread by both gaps, lsf = prediction,
// stabilized. Word 0 is mode << 7 | first stage, word 1 lower << 5 | upper second-stage index.
// The caller pushes buf into the history.
Remarks lsp_reconstruct(const int index[2], const LspHistory& history, double* buf, double* lsf);

}  // namespace KELG729F_TARGET
}  // namespace g729
