#include "codec/dsp/lpc.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kUnstable = 0.999451;    // largest reflection coefficient of a stable filter
constexpr double kUnstableError = 0.001;  // prediction error reported for an unstable one

// False for what is not a number, as 0 / 0 is.
bool is_stable(double k) {
  return k <= kUnstable && k >= -kUnstable;
}

// The memory's filter of order m in place of an unstable one. Returns the error to report.
double use_last_stable(const LevinsonMemory& mem, int m, double* a, double* rc) {
  copy_vector(mem.levinson_old_a, a, m + 1);
  copy_vector(mem.levinson_old_rc, rc, 2);
  return kUnstableError;
}

void keep_stable(int m, const double* a, const double* rc, LevinsonMemory* mem) {
  copy_vector(a, mem->levinson_old_a, m + 1);
  copy_vector(rc, mem->levinson_old_rc, 2);
}

}  // namespace

double levinson_durbin(int m, const double* r, double* a, double* rc, LevinsonMemory* mem) {
  double error = r[0];
  a[0] = 1.0;
  for (int i = 1; i <= m; ++i) {
    double s = r[i];
    for (int j = 1; j < i; ++j) s += a[j] * r[i - j];
    const double k = error == 0.0 ? 0.0 : -s / error;
    rc[i - 1] = k;
    if (!is_stable(k)) return use_last_stable(*mem, m, a, rc);
    for (int j = 1; 2 * j <= i; ++j) {
      const double low = a[j], high = a[i - j];
      a[j] = low + k * high;
      a[i - j] = high + k * low;
    }
    a[i] = k;
    error *= 1.0 - k * k;
  }
  keep_stable(m, a, rc, mem);
  return error;
}

// Schur's form of the recursion: the next numerator and denominator come from the last ones in a
// multiplication and an addition, where a dot product would have to wait for all coefficients. The
// filter follows beside it.
double levinson_durbin_10(const double* r, double* a, double* rc, LevinsonMemory* mem) {
  double forward[kCoeffs], backward[kCoeffs], c[kCoeffs] = {1.0};
  for (int i = 0; i < kCoeffs; ++i) forward[i] = backward[i] = r[i];
  bool stable = true;
#pragma GCC unroll 16
  for (int i = 1; i <= kOrder; ++i) {
    const double k = -forward[i] / backward[i - 1];
    stable = stable && is_stable(k);
    rc[i - 1] = k;
#pragma GCC unroll 16
    for (int j = kOrder; j >= i; --j) {
      const double f = forward[j], b = backward[j - 1];
      forward[j] = f + k * b;
      backward[j] = b + k * f;
    }
#pragma GCC unroll 16
    for (int j = 1; 2 * j <= i; ++j) {
      const double low = c[j], high = c[i - j];
      c[j] = low + k * high;
      c[i - j] = high + k * low;
    }
    c[i] = k;
  }
  if (!stable) {
    int last = 0;
    while (is_stable(rc[last])) ++last;
    zero_vector(rc + last + 1, kOrder - 1 - last);
    return use_last_stable(*mem, kOrder, a, rc);
  }
  copy_vector(c, a, kCoeffs);
  keep_stable(kOrder, c, rc, mem);
  return backward[kOrder];
}

// A lane each for the sum and the difference polynomial of either set: products of
// (1 - 2 q z^-1 + z^-2), q the even or the odd LSPs, kept as coefficients 0..5 of what is
// symmetric.
void lsp_to_lpc_pair(const double* lsp, double* a) {
  constexpr int kHalfOrder = kOrder / 2;
  Quad b[kHalfOrder], f[kHalfOrder + 1];
  const double *const p = lsp, *const q = lsp + kOrder;
  for (int i = 0; i < kHalfOrder; ++i)
    b[i] = splat_as<Quad>(-2.0) * quad(p[2 * i], p[2 * i + 1], q[2 * i], q[2 * i + 1]);
  f[0] = splat_as<Quad>(1.0);
  f[1] = b[0];
#pragma GCC unroll 8
  for (int i = 2; i <= kHalfOrder; ++i) {
    f[i] = b[i - 1] * f[i - 1] + (f[i - 2] + f[i - 2]);
#pragma GCC unroll 8
    for (int j = i - 1; j > 1; --j) f[j] = f[j] + (b[i - 1] * f[j - 1] + f[j - 2]);
    f[1] = f[1] + b[i - 1];
  }
  a[0] = a[kCoeffs] = 1.0;
  for (int i = 1; i <= kHalfOrder; ++i) {
    double v[4];
    store(v, f[i] + quad(1.0, -1.0, 1.0, -1.0) * f[i - 1]);
    a[i] = 0.5 * (v[0] + v[1]);
    a[kOrder + 1 - i] = 0.5 * (v[0] - v[1]);
    a[kCoeffs + i] = 0.5 * (v[2] + v[3]);
    a[kCoeffs + kOrder + 1 - i] = 0.5 * (v[2] - v[3]);
  }
}

void lsp_to_lpc(const double* lsp, double* a) {
  double twice[2 * kOrder], both[2 * kCoeffs];
  copy_vector(lsp, twice, kOrder);
  copy_vector(lsp, twice + kOrder, kOrder);
  lsp_to_lpc_pair(twice, both);
  copy_vector(both, a, kCoeffs);
}

void interpolate_lsp(const double* lsp_old, const double* lsp_new, double* lsp) {
  for (int i = 0; i < kOrder; ++i) lsp[i] = 0.5 * lsp_old[i] + 0.5 * lsp_new[i];
  copy_vector(lsp_new, lsp + kOrder, kOrder);
}

void interpolate_quantized_lpc(const double* lsp_old_q, const double* lsp_new_q, double* aq) {
  double lsp[kSubframes * kOrder];
  interpolate_lsp(lsp_old_q, lsp_new_q, lsp);
  lsp_to_lpc_pair(lsp, aq);
}

void lsp_to_lsf(const double* lsp, double* lsf, int n) {
  arc_cosine(lsp, lsf, n);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
