#include "codec/dsp/lpc.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr double kUnstable = 0.999451;    // largest reflection coefficient of a stable filter
constexpr double kUnstableError = 0.001;  // prediction error reported for an unstable one

}  // namespace

double levinson_durbin(int m, const double* r, double* a, double* rc, LevinsonMemory* mem) {
  double error = r[0];
  a[0] = 1.0;
  for (int i = 1; i <= m; ++i) {
    double s = r[i];
    for (int j = 1; j < i; ++j) s += a[j] * r[i - j];
    const double k = error == 0.0 ? 0.0 : -s / error;
    rc[i - 1] = k;
    if (k > kUnstable || k < -kUnstable) {
      copy_vector(mem->a, a, m + 1);
      copy_vector(mem->rc, rc, 2);
      return kUnstableError;
    }
    for (int j = 1; 2 * j <= i; ++j) {
      const double low = a[j], high = a[i - j];
      a[j] = low + k * high;
      a[i - j] = high + k * low;
    }
    a[i] = k;
    error *= 1.0 - k * k;
  }
  copy_vector(a, mem->a, m + 1);
  copy_vector(rc, mem->rc, 2);
  return error;
}

namespace {

// Product of (1 - 2 q z^-1 + z^-2) over every second LSP, coefficients f[0..5].
void lsp_polynomial(const double* lsp, double* f) {
  f[0] = 1.0;
  f[1] = -2.0 * lsp[0];
  for (int i = 2; i <= kOrder / 2; ++i) {
    const double b = -2.0 * lsp[2 * i - 2];
    f[i] = b * f[i - 1] + 2.0 * f[i - 2];
    for (int j = i - 1; j > 1; --j) f[j] += b * f[j - 1] + f[j - 2];
    f[1] += b;
  }
}

}  // namespace

void lsp_to_lpc(const double* lsp, double* a) {
  constexpr int kHalfOrder = kOrder / 2;
  double f1[kHalfOrder + 1], f2[kHalfOrder + 1];
  lsp_polynomial(lsp, f1);
  lsp_polynomial(lsp + 1, f2);
  for (int i = kHalfOrder; i > 0; --i) {
    f1[i] += f1[i - 1];
    f2[i] -= f2[i - 1];
  }
  a[0] = 1.0;
  for (int i = 1; i <= kHalfOrder; ++i) {
    a[i] = 0.5 * (f1[i] + f2[i]);
    a[kOrder + 1 - i] = 0.5 * (f1[i] - f2[i]);
  }
}

void interpolate_quantized_lpc(const double* lsp_old_q, const double* lsp_new_q, double* aq) {
  double lsp[kOrder];
  for (int i = 0; i < kOrder; ++i) lsp[i] = 0.5 * lsp_old_q[i] + 0.5 * lsp_new_q[i];
  lsp_to_lpc(lsp, aq);
  lsp_to_lpc(lsp_new_q, aq + kCoeffs);
}

void lsp_to_lsf(const double* lsp, double* lsf, int n) {
  arc_cosine(lsp, lsf, n);
}

}  // namespace g729::inline KELG729F_TARGET
