#include "codec/dsp/filters.h"

#include "codec/dsp/vec.h"

namespace g729::inline KELG729F_TARGET {

void copy_vector(const double* src, double* dst, int n) {
  for (int i = 0; i < n; ++i) dst[i] = src[i];
}

void zero_vector(double* dst, int n) {
  for (int i = 0; i < n; ++i) dst[i] = 0.0;
}

double dot(const double* x, const double* y, int n) {
  Vec8 s = splat(0.0);
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) s = s + load(x + i) * load(y + i);
  double total = sum(s);
  for (; i < n; ++i) total += x[i] * y[i];
  return total;
}

namespace {

// Outputs of two filters, one a lane.
#if defined(KELG729F_PLAIN)
struct Pair {
  double lane[2];
};
KELG729F_VEC Pair operator*(double a, Pair x) {
  return {{a * x.lane[0], a * x.lane[1]}};
}
KELG729F_VEC Pair operator-(Pair x, Pair y) {
  return {{x.lane[0] - y.lane[0], x.lane[1] - y.lane[1]}};
}
KELG729F_VEC double lane(Pair x, int i) {
  return x.lane[i];
}
#else
typedef double Pair __attribute__((vector_size(16)));
KELG729F_VEC double lane(Pair x, int i) {
  return x[i];
}
#endif

// The oldest output's term first, so that only the newest one's waits for the sample before it.
// T is double or Pair; order is the filter's when it is known to the compiler, else 0.
template <int Order, typename T>
KELG729F_VEC void synthesize(int m, const double* a, const T* x, T* out, int n) {
  const int order = Order ? Order : m;
  for (int k = 0; k < n; ++k) {
    T s = x[k];
    for (int i = order; i >= 1; --i) s = s - a[i] * out[k - i];
    out[k] = s;
  }
}

template <typename T>
KELG729F_VEC void synthesize(int m, const double* a, const T* x, T* out, int n) {
  if (m == kOrder)
    synthesize<kOrder>(m, a, x, out, n);
  else
    synthesize<0>(m, a, x, out, n);
}

}  // namespace

void synthesis_filter(int m, const double* a, const double* x, double* y, int n, double* mem,
                      bool update) {
  double work[kBackwardOrder + kFrame];
  double* out = work + m;
  copy_vector(mem, work, m);
  synthesize(m, a, x, out, n);
  copy_vector(out, y, n);
  if (update && n > 0) copy_vector(out + n - m, mem, m);
}

void synthesis_filter_pair(int m, const double* a, const double* x0, const double* mem0, double* y0,
                           const double* x1, const double* mem1, double* y1, int n) {
  Pair x[kFrame], work[kBackwardOrder + kFrame];
  Pair* out = work + m;
  for (int i = 0; i < m; ++i) work[i] = Pair{mem0[i], mem1[i]};
  for (int k = 0; k < n; ++k) x[k] = Pair{x0[k], x1[k]};
  synthesize(m, a, x, out, n);
  for (int k = 0; k < n; ++k) {
    y0[k] = lane(out[k], 0);
    y1[k] = lane(out[k], 1);
  }
}

void residual_filter(int m, const double* a, const double* x, double* y, int n) {
  int k = 0;
  for (; k + kLanes <= n; k += kLanes) {
    Vec8 s = load(x + k);
    for (int i = 1; i <= m; ++i) s = s + splat(a[i]) * load(x + k - i);
    store(y + k, s);
  }
  for (; k < n; ++k) {
    double s = x[k];
    for (int i = 1; i <= m; ++i) s += a[i] * x[k - i];
    y[k] = s;
  }
}

void weight_lpc(const double* a, double gamma, int m, double* ap) {
  double power = 1.0;
  ap[0] = a[0];
  for (int i = 1; i <= m; ++i) {
    power *= gamma;
    ap[i] = a[i] * power;
  }
}

namespace {

constexpr int kBlocks = kSubframe / kLanes;

// Adds the products of x[8 Block..8 Block + 7] to the blocks of the output that they reach; eight
// zeros stand before h. The compiler must know Block to keep s in registers.
template <int Block>
KELG729F_VEC void convolve_block(const double* x, const double* h, Vec8* s) {
  for (int i = Block * kLanes; i < (Block + 1) * kLanes; ++i) {
    const Vec8 xi = splat(x[i]);
    for (int b = Block; b < kBlocks; ++b) s[b] = s[b] + xi * load(h + b * kLanes - i);
  }
}

}  // namespace

void convolve(const double* x, const double* h, double* y) {
  double padded[kLanes + kSubframe];
  store(padded, splat(0.0));
  for (int b = 0; b < kBlocks; ++b) store(padded + (b + 1) * kLanes, load(h + b * kLanes));
  Vec8 s[kBlocks] = {};
  convolve_block<0>(x, padded + kLanes, s);
  convolve_block<1>(x, padded + kLanes, s);
  convolve_block<2>(x, padded + kLanes, s);
  convolve_block<3>(x, padded + kLanes, s);
  convolve_block<4>(x, padded + kLanes, s);
  static_assert(kBlocks == 5);
  for (int b = 0; b < kBlocks; ++b) store(y + b * kLanes, s[b]);
}

void impulse_response(int m, const double* num, const double* den, double* h, int n) {
  double x[kSubframe] = {};
  copy_vector(num, x, n < m + 1 ? n : m + 1);
  double mem[kBackwardOrder] = {};
  synthesis_filter(m, den, x, h, n, mem, false);
}

void biquad_filter(const BiquadCoefficients& c, BiquadMemory* mem, double* x, int n) {
  double x1 = mem->x1, x2 = mem->x2, y1 = mem->y1, y2 = mem->y2;
  for (int k = 0; k < n; ++k) {
    const double y = ((c.b0 * x[k] + c.b1 * x1) + (c.b2 * x2 + c.a2 * y2)) + c.a1 * y1;
    x2 = x1;
    x1 = x[k];
    y2 = y1;
    y1 = y;
    x[k] = y;
  }
  *mem = {x1, x2, y1, y2};
}

}  // namespace g729::inline KELG729F_TARGET
