// Vector operations and linear filters on double arrays. Nothing here allocates or fails; a count
// below 1 writes nothing. Samples are on the 16-bit scale.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// dst[i] = src[i], i = 0..n-1; source first. The two must not overlap.
inline void copy_vector(const double* src, double* dst, int n) {
  if (n > 0) __builtin_memcpy(dst, src, sizeof *dst * static_cast<unsigned>(n));
}

// dst[i] = 0.
inline void zero_vector(double* dst, int n) {
  if (n > 0) __builtin_memset(dst, 0, sizeof *dst * static_cast<unsigned>(n));
}

// Sum of x[i] * y[i] in eight partial sums (lane i mod 8, added as Vec8's sum()); a rest of n mod 8
// products is added one by one at the end.
KELG729F_VEC double dot(const double* x, const double* y, int n) {
  Vec8 s = splat(0.0);
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) s = s + load(x + i) * load(y + i);
  double total = sum(s);
  for (; i < n; ++i) total += x[i] * y[i];
  return total;
}

// A filter in use: a[0..order], a[0] = 1.0, order m = 0..kBackwardOrder.
struct LpFilter {
  const double* a;
  int order;
};

// y[k] = x[k] - sum_{i=1..m} a[i] y[k-i], the all-pole filter 1/A(z) (clause 3.2.6 convention
// A(z) = 1 + a[1] z^-1 + ...). a[0] is never read. mem[0..m-1] are the outputs before y[0],
// mem[m-1] the newest; with update they become the last m outputs, those of mem among them when n
// is below m. x may be y. Order 0 copies x to y and leaves mem alone. n is at
// most kFrame. Without update mem may stand just before y, mem + m == y.
void synthesis_filter(LpFilter filter, const double* x, double* y, int n, double* mem, bool update);

// Two runs of one synthesis filter side by side, for little more than the time of one: y[0..39]
// from x[0..39] and mem, as synthesis_filter without update gives them but for rounding (terms are
// subtracted from the oldest output's to the newest's). y may be its x.
struct SynthesisRun {
  const double* x;
  const double* mem;
  double* y;
};
void synthesis_filter_pair(LpFilter filter, const SynthesisRun& run0, const SynthesisRun& run1);

// y[k] = x[k] + sum_{i=1..m} a[i] x[k-i], the all-zero filter A(z); terms are added in the order
// of i. x[-m..-1] must be valid. y must not overlap x.
void residual_filter(LpFilter filter, const double* x, double* y, int n);

// ap[i] = a[i] gamma^i, i = 0..m, the powers by repeated multiplication: A(z/gamma). ap may be a.
inline void weight_lpc(const double* a, double gamma, int m, double* ap) {
  double power = 1.0;
  ap[0] = a[0];
  for (int i = 1; i <= m; ++i) {
    power *= gamma;
    ap[i] = a[i] * power;
  }
}

// y[n] = sum_{i=0..n} x[i] h[n-i], n = 0..39: x filtered by the impulse response h from rest.
// y must not overlap x or h.
void convolve(const double* x, const double* h, double* y);

// First n samples of the impulse response of num(z) / den(z), both of order m, n at most kSubframe.
void impulse_response(int m, const double* num, const double* den, double* h, int n);

// Memory of a second-order section: x[n-1], x[n-2], y[n-1], y[n-2].
struct BiquadMemory {
  double x1, x2, y1, y2;
};
struct BiquadCoefficients {
  double b0, b1, b2, a1, a2;
};

// Two samples x[0], x[1] in place: with the first one's recursion written into the second's, both
// wait only for the two outputs before them.
KELG729F_VEC void biquad_two(const BiquadCoefficients& c, BiquadMemory* m, double* x) {
  const double c1 = c.a1 * c.a1 + c.a2, c2 = c.a1 * c.a2;
  const double first = c.b0 * x[0] + (c.b1 * m->x1 + c.b2 * m->x2);
  const double second = c.b0 * x[1] + (c.b1 * x[0] + c.b2 * m->x1);
  const double y0 = (first + c.a2 * m->y2) + c.a1 * m->y1;
  const double y1 = ((second + c.a1 * first) + c2 * m->y2) + c1 * m->y1;
  *m = {x[1], x[0], y1, y0};
  x[0] = y0;
  x[1] = y1;
}

// y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + a1 y[n-1] + a2 y[n-2], in place over n samples.
void biquad_filter(const BiquadCoefficients& c, BiquadMemory* mem, double* x, int n);

}  // namespace KELG729F_TARGET
}  // namespace g729
