#include "codec/dsp/filters.h"

#include "codec/dsp/recursions.h"
#include "codec/dsp/simd/sample_run.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

// The look-ahead of recursions.h for any order: c[i] holds the two coefficients of y[k-i].
struct LookAhead {
  Pair c[kBackwardCoeffs];
};

KELG729F_VEC LookAhead look_ahead(int m, const double* a) {
  LookAhead f;
  for (int i = 1; i < m; ++i) f.c[i] = pair(a[i], a[i + 1] - a[1] * a[i]);
  if (m > 0) f.c[m] = pair(a[m], -(a[1] * a[m]));
  return f;
}

// y[k] and y[k+1], the newest outputs' terms last; those two, which `last` holds, come from a
// register and not by way of memory. m is at least 2.
KELG729F_VEC Pair next_two(int m, const double* a, const LookAhead& f, const double* x,
                           const double* out, Pair last) {
  Pair s = pair(x[0], x[1] - a[1] * x[0]);
  for (int i = m; i >= 3; --i) s = s - f.c[i] * splat_as<Pair>(out[-i]);
  return s - (f.c[2] * both<0>(last) + f.c[1] * both<1>(last));
}

KELG729F_VEC double next_one(int m, const double* a, double x, const double* out) {
  for (int i = m; i >= 1; --i) x = x - a[i] * out[-i];
  return x;
}

// Any order and count; `out` follows the outputs before it.
void synthesize(int m, const double* a, const double* x, double* out, int n) {
  int k = 0;
  if (m >= 2) {
    const LookAhead f = look_ahead(m, a);
    Pair last = pair(out[-2], out[-1]);
    for (; k + 2 <= n; k += 2) {
      last = next_two(m, a, f, x + k, out + k, last);
      store(out + k, last);
    }
  }
  for (; k < n; ++k) out[k] = next_one(m, a, x[k], out + k);
}

// Signals that two filters with the same coefficients work on, side by side.
struct PairSignals {
  const SynthesisRun &run0, &run1;
};

KELG729F_VEC Pair input(const PairSignals& p, int k) {
  return pair(p.run0.x[k], p.run1.x[k]);
}
KELG729F_VEC void output(const PairSignals& p, int k, Pair y) {
  p.run0.y[k] = lane(y, 0);
  p.run1.y[k] = lane(y, 1);
}

// Order 10, all in registers: last[j] is the newest output whose number is j modulo 10.
void synthesize_pair_10(const double* a, const PairSignals& p) {
  static_assert(kSubframe % kOrder == 0);
  Pair c[kCoeffs], last[kOrder];
  for (int i = 1; i <= kOrder; ++i) c[i] = splat_as<Pair>(a[i]);
  for (int i = 0; i < kOrder; ++i) last[i] = pair(p.run0.mem[i], p.run1.mem[i]);
  for (int k = 0; k < kSubframe; k += kOrder) {
#pragma GCC unroll 10
    for (int j = 0; j < kOrder; ++j) {
      output(p, k + j, last[j] = all_pole_next(c, last, j, input(p, k + j)));
    }
  }
}

void synthesize_pair(int m, const double* a, const PairSignals& p) {
  Pair work[kBackwardOrder + kSubframe];
  Pair* const out = work + m;
  for (int i = 0; i < m; ++i) work[i] = pair(p.run0.mem[i], p.run1.mem[i]);
  for (int k = 0; k < kSubframe; ++k) {
    Pair y = input(p, k);
    for (int i = m; i >= 1; --i) y = y - splat_as<Pair>(a[i]) * out[k - i];
    output(p, k, out[k] = y);
  }
}

// Eight samples of the residual.
KELG729F_VEC Vec8 residual(int m, const double* a, const double* x) {
  Vec8 s = load(x);
  for (int i = 1; i <= m; ++i) s = s + splat(a[i]) * load(x - i);
  return s;
}

void residual_10(const double* a, const double* x, double* y, int blocks) {
  Vec8 c[kCoeffs];
  for (int i = 1; i <= kOrder; ++i) c[i] = splat(a[i]);
#pragma GCC unroll 1
  for (int k = 0; k < blocks * kLanes; k += kLanes) {
    const SampleRun<2> run(x + k - kLanes);
    Vec8 s = load(x + k);
    for_places<kLanes>([&](auto i) __attribute__((always_inline)) {
      s = s + c[i + 1] * run.from(Constant<kLanes - 1>() - i);
    });
    for (int i = kLanes + 1; i <= kOrder; ++i) s = s + c[i] * load(x + k - i);
    store(y + k, s);
  }
}

}  // namespace

void synthesis_filter(LpFilter filter, const double* x, double* y, int n, double* mem,
                      bool update) {
  const auto [a, m] = filter;
  if (m == kOrder && n >= m && n % kLanes == 0) {
    const AllPole poles = all_pole(a);
    run_side_by_side(n / kLanes, AllPoleRecursion({poles, x, mem, y}));
    if (update) copy_vector(y + n - m, mem, m);
    return;
  }
  double work[kBackwardOrder + kFrame];
  double* const out = work + m;
  copy_vector(mem, work, m);
  synthesize(m, a, x, out, n);
  copy_vector(out, y, n);
  if (update && n > 0) copy_vector(out + n - m, mem, m);
}

void synthesis_filter_pair(LpFilter filter, const SynthesisRun& run0, const SynthesisRun& run1) {
  const PairSignals signals = {run0, run1};
  if (filter.order == kOrder)
    synthesize_pair_10(filter.a, signals);
  else
    synthesize_pair(filter.order, filter.a, signals);
}

void residual_filter(LpFilter filter, const double* x, double* y, int n) {
  const auto [a, m] = filter;
  if (m == kOrder && n % kLanes == 0) return residual_10(a, x, y, n / kLanes);
  int k = 0;
  for (; k + kLanes <= n; k += kLanes) store(y + k, residual(m, a, x + k));
  for (; k < n; ++k) {
    double s = x[k];
    for (int i = 1; i <= m; ++i) s += a[i] * x[k - i];
    y[k] = s;
  }
}

// Output block b is the sum over r and d of x[8 (b - d) + r] times h[8 d - r], ..., h[8 d - r + 7]:
// one load of h serves every block. The terms of one r are added up first, which keeps short the
// chain of additions that each block waits for.
void convolve(const double* x, const double* h, double* y) {
  constexpr int kBlocks = kSubframe / kLanes;
  alignas(kAlign) double padded[kLanes + kSubframe];
  store(padded, splat(0.0));
  for (int b = 0; b < kBlocks; ++b) store(padded + (b + 1) * kLanes, load(h + b * kLanes));
  Vec8 s[kBlocks] = {};
  for_places<kLanes>([&](auto r) __attribute__((always_inline)) {
    Vec8 terms[kBlocks] = {};
#pragma GCC unroll 5
    for (int d = 0; d < kBlocks; ++d) {
      const Vec8 taps = SampleRun<2>(padded + d * kLanes).from(Constant<kLanes>() - r);
#pragma GCC unroll 5
      for (int b = d; b < kBlocks; ++b) {
        const Vec8 term = splat(x[(b - d) * kLanes + r]) * taps;
        terms[b] = d == 0 ? term : terms[b] + term;
      }
    }
    for (int b = 0; b < kBlocks; ++b) s[b] = s[b] + terms[b];
  });
  for (int b = 0; b < kBlocks; ++b) store(y + b * kLanes, s[b]);
}

void impulse_response(int m, const double* num, const double* den, double* h, int n) {
  double x[kSubframe] = {}, y[kSubframe];
  copy_vector(num, x, n < m + 1 ? n : m + 1);
  double mem[kBackwardOrder] = {};
  synthesis_filter({den, m}, x, y, (n + kLanes - 1) / kLanes * kLanes, mem, false);
  copy_vector(y, h, n);
}

void biquad_filter(const BiquadCoefficients& c, BiquadMemory* mem, double* x, int n) {
  BiquadMemory m = *mem;
  int k = 0;
  for (; k + 2 <= n; k += 2) biquad_two(c, &m, x + k);
  for (; k < n; ++k) {
    const double y = (c.b0 * x[k] + (c.b1 * m.x1 + c.b2 * m.x2)) + c.a2 * m.y2 + c.a1 * m.y1;
    m = {x[k], m.x1, y, m.y1};
    x[k] = y;
  }
  *mem = m;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
