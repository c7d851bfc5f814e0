// Linear-prediction algebra: Levinson-Durbin, LSP to LP, interpolation of quantized LSPs.
// An LP vector is a[0..m] with a[0] = 1.0; LSPs are cosines, decreasing, in (-1, 1).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// What levinson_durbin falls back to: the last stable filter and its first two reflection
// coefficients. levinson_durbin refreshes it after every stable recursion.
struct LevinsonMemory {
  double levinson_old_a[kBackwardCoeffs] = {1.0};
  double levinson_old_rc[2] = {};
};

// Levinson-Durbin recursion of order m <= 30 on r[0..m] (clause 3.2.2). Writes a[0..m] and the
// reflection coefficients rc[0..m-1] and returns the final prediction error. When a reflection
// coefficient exceeds 0.999451 in magnitude, a and rc[0..1] are taken from mem and 0.001 is
// returned.
double levinson_durbin(int m, const double* r, double* a, double* rc, LevinsonMemory* mem);

// The same for order 10 and r[0] > 0 in half the time; rounds differently. Where the filter is
// unstable, rc is 0 behind the coefficient that exceeds the limit, but for rc[0..1] from mem.
double levinson_durbin_10(const double* r, double* a, double* rc, LevinsonMemory* mem);

// LSPs of an order-10 LP vector by the Chebyshev root search (clause 3.2.3), decreasing from near
// +1. With fewer than ten roots found, lsp becomes old_lsp. lsp must not be old_lsp.
void lpc_to_lsp(const double* a, double* lsp, const double* old_lsp);
// The same root by root, what the search falls back to where roots stand too close together.
void lpc_to_lsp_plain(const double* a, double* lsp, const double* old_lsp);

// lsf[i] = arc cosine of lsp[i], radians; n values.
void lsp_to_lsf(const double* lsp, double* lsf, int n);

// LP vector of order 10 from ten LSPs (clause 3.2.6), and two at once for the time of one: a[0..10]
// from lsp[0..9], a[11..21] from lsp[10..19].
void lsp_to_lpc(const double* lsp, double* a);
void lsp_to_lpc_pair(const double* lsp, double* a);

// LSPs of both subframes: lsp[0..9] the mean of old and new, lsp[10..19] the new (clause 3.2.5).
void interpolate_lsp(const double* lsp_old, const double* lsp_new, double* lsp);

// LP vectors of both subframes, aq[0..10] and aq[11..21]: the first from the mean of old and new
// LSPs, the second from the new (clause 3.2.5).
void interpolate_quantized_lpc(const double* lsp_old_q, const double* lsp_new_q, double* aq);

}  // namespace KELG729F_TARGET
}  // namespace g729
