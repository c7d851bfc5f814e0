// Chebyshev root search of the sum and difference polynomials (clause 3.2.3).
//
// The search walks along a grid from +1 downwards, in turn for a root of the one and of the other
// polynomial, and refines each between the two grid points that enclose it. The plain form does
// just that. The fast form first evaluates both polynomials on the whole grid and refines every
// sign change at once, a root a lane; the walk then only picks from the results. Only where the
// next root lies in the same interval as the last one has the walk to refine it by itself.
#include <bit>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/vec_lanes.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr int kHalfOrder = kOrder / 2;
constexpr int kGridIntervals = 60;
constexpr int kGridPadded = 64;
constexpr int kBisections = 4;

// cos(pi i / 60) to 7 decimals as tabulated (point 3 is one unit above the rounded cosine), the
// ends just inside +-1; the last one again to fill up.
// clang-format off
constexpr double kLspGrid[kGridPadded] = {
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

KELG729F_VEC double constant(double value, double) {
  return value;
}
KELG729F_VEC Vec8 constant(double value, Vec8) {
  return splat(value);
}
KELG729F_VEC double select(bool m, double a, double b) {
  return m ? a : b;
}

// Value at x of the Chebyshev series with the coefficients f[0..5], f[0] = 1.
template <typename T>
KELG729F_VEC T chebyshev(const double* f, T x) {
  const T twice = x + x;
  T b2 = constant(1.0, x), b1 = twice + constant(f[1], x);
  for (int i = 2; i < kHalfOrder; ++i) {
    const T b0 = twice * b1 - b2 + constant(f[i], x);
    b2 = b1;
    b1 = b0;
  }
  return x * b1 - b2 + constant(0.5 * f[kHalfOrder], x);
}

// The sum polynomial f[0] and the difference polynomial f[1].
void sum_and_difference(const double* a, double f[2][kHalfOrder + 1]) {
  f[0][0] = f[1][0] = 1.0;
  for (int i = 0; i < kHalfOrder; ++i) {
    f[0][i + 1] = a[i + 1] + a[kOrder - i] - f[0][i];
    f[1][i + 1] = a[i + 1] - a[kOrder - i] + f[1][i];
  }
}

// Two points at which a polynomial differs in sign, and its values there.
template <typename T>
struct Bracket {
  T xlow, ylow, xhigh, yhigh;
};

template <typename T>
KELG729F_VEC void bisect(const double* f, Bracket<T>* b) {
  const T xmid = constant(0.5, b->xlow) * (b->xlow + b->xhigh);
  const T ymid = chebyshev(f, xmid);
  const auto upper = ymid * b->yhigh <= constant(0.0, xmid);
  b->xlow = select(upper, xmid, b->xlow);
  b->ylow = select(upper, ymid, b->ylow);
  b->xhigh = select(upper, b->xhigh, xmid);
  b->yhigh = select(upper, b->yhigh, ymid);
}

template <typename T>
KELG729F_VEC T secant(const Bracket<T>& b) {
  return b.xhigh - b.yhigh * (b.xlow - b.xhigh) / (b.ylow - b.yhigh);
}

double refine_root(const double* f, Bracket<double> bracket) {
  for (int i = 0; i < kBisections; ++i) bisect(f, &bracket);
  return secant(bracket);
}

// One polynomial along the grid.
struct GridSearch {
  double value[kGridPadded + kLanes];  // at the grid points
  uint64_t changes;                    // bit j: sign change between points j - 1 and j
  double root[kLanes];                 // refined roots of the first changes
  double other[kLanes];                // the other polynomial there
};

void evaluate_grid(const double* f, GridSearch* s) {
  for (int j = 0; j < kGridPadded; j += kLanes)
    store(s->value + j, chebyshev(f, load(kLspGrid + j)));
  store(s->value + kGridPadded, splat(0.0));
  s->changes = 0;
  for (int j = 1; j <= kGridIntervals; j += kLanes) {
    const unsigned same = lanes_greater(load(s->value + j - 1) * load(s->value + j), splat(0.0));
    s->changes |= uint64_t{~same & 0xFF} << j;
  }
  s->changes &= (uint64_t{2} << kGridIntervals) - 1;
}

// The first sign changes of a polynomial, one a lane.
Bracket<Vec8> brackets_of(const GridSearch& s) {
  double xlow[kLanes] = {}, ylow[kLanes] = {}, xhigh[kLanes] = {}, yhigh[kLanes] = {};
  uint64_t left = s.changes;
  for (int lane = 0; lane < kLanes && left; ++lane, left &= left - 1) {
    const int j = std::countr_zero(left);
    xlow[lane] = kLspGrid[j - 1];
    ylow[lane] = s.value[j - 1];
    xhigh[lane] = kLspGrid[j];
    yhigh[lane] = s.value[j];
  }
  return {load(xlow), load(ylow), load(xhigh), load(yhigh)};
}

// Both polynomials in turn, so that one works while the other waits.
void refine_changes(const double f[2][kHalfOrder + 1], GridSearch s[2]) {
  Bracket<Vec8> bracket[2] = {brackets_of(s[0]), brackets_of(s[1])};
  for (int i = 0; i < kBisections; ++i)
    for (int p = 0; p < 2; ++p) bisect(f[p], &bracket[p]);
  for (int p = 0; p < 2; ++p) {
    const Vec8 root = secant(bracket[p]);
    store(s[p].root, root);
    store(s[p].other, chebyshev(f[1 - p], root));
  }
}

// Walks along the grid and picks the roots; returns how many it found.
int pick_roots(const double f[2][kHalfOrder + 1], const GridSearch s[2], double* lsp) {
  int found = 0, p = 0;
  double x = kLspGrid[0], y = 0;  // where the last root stands, and polynomial p there
  bool from_root = false;
  for (int j = 1; j <= kGridIntervals && found < kOrder;) {
    if (from_root) {
      if (y * s[p].value[j] > 0.0) {
        from_root = false;
        ++j;
        continue;
      }
      x = refine_root(f[p], {x, y, kLspGrid[j], s[p].value[j]});
      y = chebyshev(f[1 - p], x);
    } else {
      const uint64_t ahead = s[p].changes >> j;
      if (ahead == 0) break;
      j += std::countr_zero(ahead);
      const int lane = std::popcount(s[p].changes & ((uint64_t{1} << j) - 1));
      if (lane >= kLanes) break;
      x = s[p].root[lane];
      y = s[p].other[lane];
    }
    lsp[found++] = x;
    p = 1 - p;
    from_root = true;
  }
  return found;
}

}  // namespace

void lpc_to_lsp(const double* a, double* lsp, const double* old_lsp) {
  double f[2][kHalfOrder + 1];
  GridSearch search[2];
  sum_and_difference(a, f);
  for (int p = 0; p < 2; ++p) evaluate_grid(f[p], &search[p]);
  refine_changes(f, search);
  if (pick_roots(f, search, lsp) < kOrder) copy_vector(old_lsp, lsp, kOrder);
}

void lpc_to_lsp_plain(const double* a, double* lsp, const double* old_lsp) {
  double f[2][kHalfOrder + 1];
  sum_and_difference(a, f);
  int p = 0, found = 0;
  double xlow = kLspGrid[0], ylow = chebyshev(f[p], xlow);
  for (int j = 1; j <= kGridIntervals && found < kOrder;) {
    const double xhigh = kLspGrid[j], yhigh = chebyshev(f[p], xhigh);
    if (ylow * yhigh > 0.0) {
      xlow = xhigh;
      ylow = yhigh;
      ++j;
      continue;
    }
    // The other polynomial's next root may lie in the rest of the same interval.
    xlow = lsp[found++] = refine_root(f[p], {xlow, ylow, xhigh, yhigh});
    p = 1 - p;
    ylow = chebyshev(f[p], xlow);
  }
  if (found < kOrder) copy_vector(old_lsp, lsp, kOrder);
}

}  // namespace g729::inline KELG729F_TARGET
