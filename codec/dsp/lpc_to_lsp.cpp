// Root search of the sum and difference polynomials (clause 3.2.3).
//
// The search walks along a grid from +1 downwards, in turn for a root of the one and of the other
// polynomial, and refines each between the two grid points that enclose it. The plain form does
// just that. The fast form evaluates both polynomials on the whole grid and refines the five sign
// changes of each at once, a root a lane. Where the walk would have found anything else, as when
// two roots share an interval, it leaves the work to the plain form; speech does so in two frames
// of a hundred.
#include <bit>
#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kHalfOrder = kOrder / 2;
constexpr int kGridIntervals = 60;
constexpr int kGridPadded = 64;

// cos(pi i / 60) to 7 decimals as tabulated (point 3 is one unit above the rounded cosine), the
// ends just inside +-1; the last one again to fill up.
// clang-format off
constexpr double lsp_grid[kGridPadded] = {
    0.9997559, 0.9986295, 0.9945219, 0.9876884, 0.9781476, 0.9659258, 0.9510565, 0.9335804,
    0.9135455, 0.8910065, 0.8660254, 0.8386706, 0.8090170, 0.7771460, 0.7431448, 0.7071068,
    0.6691306, 0.6293204, 0.5877853, 0.5446390, 0.5000000, 0.4539905, 0.4067366, 0.3583679,
    0.3090170, 0.2588190, 0.2079117, 0.1564345, 0.1045285, 0.0523360, 0.0000000, -0.0523360,
    -0.1045285, -0.1564345, -0.2079117, -0.2588190, -0.3090170, -0.3583679, -0.4067366, -0.4539905,
    -0.5000000, -0.5446390, -0.5877853, -0.6293204, -0.6691306, -0.7071068, -0.7431448, -0.7771460,
    -0.8090170, -0.8386706, -0.8660254, -0.8910065, -0.9135455, -0.9335804, -0.9510565, -0.9659258,
    -0.9781476, -0.9876884, -0.9945219, -0.9986295, -0.9997559,
    -0.9997559, -0.9997559, -0.9997559,
};
// clang-format on

// A polynomial of x by the coefficients of its even and odd powers.
struct Polynomial {
  double even[3], odd[3];
};

template <typename T>
KELG729F_VEC T evaluate(const Polynomial& f, T x) {
  const T y = x * x;
  const T even = splat_as<T>(f.even[0]) + y * (splat_as<T>(f.even[1]) + y * splat_as<T>(f.even[2]));
  const T odd = splat_as<T>(f.odd[0]) + y * (splat_as<T>(f.odd[1]) + y * splat_as<T>(f.odd[2]));
  return even + x * odd;
}

// The Chebyshev series T5 + c[1] T4 + c[2] T3 + c[3] T2 + c[4] T1 + c[5] / 2 in powers of x.
Polynomial to_powers(const double* c) {
  return {{c[1] - c[3] + 0.5 * c[5], 2.0 * c[3] - 8.0 * c[1], 8.0 * c[1]},
          {5.0 - 3.0 * c[2] + c[4], 4.0 * c[2] - 20.0, 16.0}};
}

// The sum polynomial f[0] and the difference polynomial f[1].
void sum_and_difference(const double* a, Polynomial f[2]) {
  double sum[kHalfOrder + 1] = {1.0}, difference[kHalfOrder + 1] = {1.0};
  for (int i = 0; i < kHalfOrder; ++i) {
    sum[i + 1] = a[i + 1] + a[kOrder - i] - sum[i];
    difference[i + 1] = a[i + 1] - a[kOrder - i] + difference[i];
  }
  f[0] = to_powers(sum);
  f[1] = to_powers(difference);
}

// Two points at which a polynomial differs in sign, and its values there. (The names are the
// grid's: its high end is the smaller x.)
template <typename T>
struct Bracket {
  T xlow, ylow, xhigh, yhigh;
};

// Halves the interval twice; the three points are evaluated before it is known which two matter.
template <typename T>
KELG729F_VEC void bisect_twice(const Polynomial& f, Bracket<T>* b) {
  const T half = splat_as<T>(0.5), zero = splat_as<T>(0.0);
  const T x = half * (b->xlow + b->xhigh);
  const T xs[2] = {half * (b->xlow + x), half * (x + b->xhigh)};
  const T y = evaluate(f, x), ys[2] = {evaluate(f, xs[0]), evaluate(f, xs[1])};
  const auto upper = y * b->yhigh <= zero;
  const T xlow = select(upper, x, b->xlow), xhigh = select(upper, b->xhigh, x);
  const T ylow = select(upper, y, b->ylow), yhigh = select(upper, b->yhigh, y);
  const T xmid = select(upper, xs[1], xs[0]), ymid = select(upper, ys[1], ys[0]);
  const auto again = ymid * yhigh <= zero;
  *b = {select(again, xmid, xlow), select(again, ymid, ylow), select(again, xhigh, xmid),
        select(again, yhigh, ymid)};
}

template <typename T>
KELG729F_VEC T secant(const Bracket<T>& b) {
  return b.xhigh - b.yhigh * (b.xlow - b.xhigh) / (b.ylow - b.yhigh);
}

template <typename T>
KELG729F_VEC T refine_root(const Polynomial& f, Bracket<T> bracket) {
  bisect_twice(f, &bracket);
  bisect_twice(f, &bracket);
  return secant(bracket);
}

// Bit j is set when the polynomial changes its sign between the grid points j - 1 and j.
uint64_t sign_changes(const Polynomial& f) {
  uint64_t positive = 0;
  for (int j = 0; j < kGridPadded; j += kLanes)
    positive |= uint64_t{lanes_greater(evaluate(f, load(lsp_grid + j)), splat(0.0))} << j;
  constexpr uint64_t kIntervals = (uint64_t{2} << kGridIntervals) - 2;
  return (positive ^ positive << 1) & kIntervals;
}

// The interval of every root, numbered by its lower end; false unless there are five of each
// polynomial, in turn and each in an interval of its own.
bool find_intervals(const Polynomial f[2], int interval[2][kHalfOrder]) {
  uint64_t left[2] = {sign_changes(f[0]), sign_changes(f[1])};
  int last = 0;
  bool in_turn = true;
  for (int k = 0; k < kHalfOrder; ++k) {
    for (int p = 0; p < 2; ++p) {
      const int j = left[p] ? std::countr_zero(left[p]) : 0;
      in_turn &= j > last;
      left[p] &= left[p] - 1;
      interval[p][k] = last = j;
    }
  }
  return in_turn && (left[0] | left[1]) == 0;
}

// The roots lane by lane; false when the other polynomial changes its sign twice between a root and
// the lower end of its interval, where the walk would find the next root.
bool refine_roots(const Polynomial f[2], const int interval[2][kHalfOrder],
                  double root[2][kLanes]) {
  unsigned alone = ~0U;
  for (int p = 0; p < 2; ++p) {
    const auto grid = [&](int lane, int offset) {
      return lsp_grid[interval[p][lane < kHalfOrder ? lane : 0] + offset];
    };
    const Vec8 xlow = from_lanes([&](int lane) { return grid(lane, -1); });
    const Vec8 xhigh = from_lanes([&](int lane) { return grid(lane, 0); });
    const Vec8 x =
        refine_root<Vec8>(f[p], {xlow, evaluate(f[p], xlow), xhigh, evaluate(f[p], xhigh)});
    const Polynomial& other = f[1 - p];
    alone &= lanes_greater(evaluate(other, x) * evaluate(other, xhigh), splat(0.0));
    store(root[p], x);
  }
  return alone == (1U << kLanes) - 1;
}

}  // namespace

void lpc_to_lsp(const double* a, double* lsp, const double* old_lsp) {
  Polynomial f[2];
  int interval[2][kHalfOrder];
  double root[2][kLanes];
  sum_and_difference(a, f);
  if (!find_intervals(f, interval) || !refine_roots(f, interval, root)) {
    lpc_to_lsp_plain(a, lsp, old_lsp);
    return;
  }
  for (int i = 0; i < kOrder; ++i) lsp[i] = root[i % 2][i / 2];
}

void lpc_to_lsp_plain(const double* a, double* lsp, const double* old_lsp) {
  Polynomial f[2];
  sum_and_difference(a, f);
  int p = 0, found = 0;
  double xlow = lsp_grid[0], ylow = evaluate(f[p], xlow);
  for (int j = 1; j <= kGridIntervals && found < kOrder;) {
    const double xhigh = lsp_grid[j], yhigh = evaluate(f[p], xhigh);
    if ((ylow > 0.0) == (yhigh > 0.0)) {
      xlow = xhigh;
      ylow = yhigh;
      ++j;
      continue;
    }
    // The other polynomial's next root may lie in the rest of the same interval.
    xlow = lsp[found++] = refine_root<double>(f[p], {xlow, ylow, xhigh, yhigh});
    p = 1 - p;
    ylow = evaluate(f[p], xlow);
  }
  if (found < kOrder) copy_vector(old_lsp, lsp, kOrder);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
