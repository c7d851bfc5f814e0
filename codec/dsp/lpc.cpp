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

// Multiplies the fifth-order polynomials f[0] and f[1], kept as coefficients 0..i of a symmetric
// product, by (1 - 2 q z^-1 + z^-2), q the next even and the next odd LSP.
void multiply_polynomials(const double* lsp, int i, double f[kOrder / 2 + 1][2]) {
  const double b[2] = {-2.0 * lsp[2 * i - 2], -2.0 * lsp[2 * i - 1]};
  for (int p = 0; p < 2; ++p) {
    f[i][p] = b[p] * f[i - 1][p] + 2.0 * f[i - 2][p];
    for (int j = i - 1; j > 1; --j) f[j][p] += b[p] * f[j - 1][p] + f[j - 2][p];
    f[1][p] += b[p];
  }
}

}  // namespace

void lsp_to_lpc(const double* lsp, double* a) {
  constexpr int kHalfOrder = kOrder / 2;
  double f[kHalfOrder + 1][2] = {{1.0, 1.0}, {-2.0 * lsp[0], -2.0 * lsp[1]}};
  for (int i = 2; i <= kHalfOrder; ++i) multiply_polynomials(lsp, i, f);
  for (int i = kHalfOrder; i > 0; --i) {
    f[i][0] += f[i - 1][0];
    f[i][1] -= f[i - 1][1];
  }
  a[0] = 1.0;
  for (int i = 1; i <= kHalfOrder; ++i) {
    a[i] = 0.5 * (f[i][0] + f[i][1]);
    a[kOrder + 1 - i] = 0.5 * (f[i][0] - f[i][1]);
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
