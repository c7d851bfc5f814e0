// Filters that wait for their own outputs: two or three side by side take little longer than one.
//
// The all-pole filter 1/A(z) of order 10 runs two samples at a time. With y[k] written into the
// recursion of y[k+1],
//
//   y[k]   = x[k]               - sum_i a[i] y[k-i]
//   y[k+1] = x[k+1] - a[1] x[k] - sum_i (a[i+1] - a[1] a[i]) y[k-i],
//
// both wait only for the two outputs before them.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kTurns = kLanes / 2;  // turns of two samples in a block

// Four turns' outputs, stored at once: a wide load that follows would wait for narrow stores.
KELG729F_VEC Vec8 in_a_row(const Pair (&out)[kTurns]) {
  return concat(concat(out[0], out[1]), concat(out[2], out[3]));
}

// c[i] holds the two coefficients of y[k-i].
struct AllPole {
  double a1;
  Pair c[kCoeffs];
};

KELG729F_VEC AllPole all_pole(const double* a) {
  AllPole f;
  f.a1 = a[1];
  for (int i = 1; i < kOrder; ++i) f.c[i] = pair(a[i], a[i + 1] - a[1] * a[i]);
  f.c[kOrder] = pair(a[kOrder], -(a[1] * a[kOrder]));
  return f;
}

// The output number j modulo 10 of such filters, one a lane, without look-ahead: input x,
// coefficients c[1..10], last[i] the newest output whose number is i modulo 10. The newest outputs'
// terms come last, as they arrive last.
template <typename T>
KELG729F_VEC T all_pole_next(const T* c, const T* last, int j, T x) {
  const auto term = [&](int i) __attribute__((always_inline)) {
    return c[i] * last[(j - i + kOrder) % kOrder];
  };
  const T oldest = (term(10) + term(9)) + (term(8) + term(7));
  const T older = (term(6) + term(5)) + (term(4) + term(3));
  return ((x - (oldest + older)) - term(2)) - term(1);
}

// A filter with its input, its ten outputs before y[0] (the newest last), and its output. y may be
// x, or mem + 10.
struct AllPoleRun {
  const AllPole& filter;
  const double* x;
  const double* mem;
  double* y;
};

KELG729F_VEC Pair all_pole_input(const AllPoleRun& run, int k) {
  return pair(run.x[k], run.x[k + 1] - run.filter.a1 * run.x[k]);
}

// The outputs before the turn of two samples, oldest first: each twice, as its coefficients want
// it.
template <typename T>
struct AllPoleHistory {
  static constexpr int kPairs = kOrder / 2;
  T first[kPairs + kTurns], second[kPairs + kTurns];

  KELG729F_VEC void put(int i, T pair) {
    first[i] = both<0>(pair);
    second[i] = both<1>(pair);
  }
  // The oldest outputs' terms first, as synthesis_filter subtracts them; those of the newest two,
  // which arrive last, together.
  KELG729F_VEC T next(const T* c, T s, int turn) const {
    for (int j = 0; j < kPairs - 1; ++j) {
      s = s - c[kOrder - 2 * j] * first[turn + j];
      s = s - c[kOrder - 2 * j - 1] * second[turn + j];
    }
    return s - (c[2] * first[turn + kPairs - 1] + c[1] * second[turn + kPairs - 1]);
  }
  // After four turns.
  KELG729F_VEC void shift() {
    for (int i = 0; i < kPairs; ++i) {
      first[i] = first[i + kTurns];
      second[i] = second[i + kTurns];
    }
  }
};

// One filter.
class AllPoleRecursion {
 public:
  KELG729F_VEC explicit AllPoleRecursion(const AllPoleRun& run) : run_(run) {
    for (int i = 0; i < History::kPairs; ++i)
      history_.put(i, pair(run.mem[2 * i], run.mem[2 * i + 1]));
  }
  KELG729F_VEC void turn(int k, int t) {
    out_[t] = history_.next(run_.filter.c, all_pole_input(run_, k + 2 * t), t);
    history_.put(History::kPairs + t, out_[t]);
  }
  KELG729F_VEC void end_block(int k) {
    store(run_.y + k, in_a_row(out_));
    history_.shift();
  }

 private:
  using History = AllPoleHistory<Pair>;
  const AllPoleRun run_;
  History history_;
  Pair out_[kTurns];
};

// Two filters that have nothing to do with each other.
class AllPoleRecursions {
 public:
  KELG729F_VEC AllPoleRecursions(const AllPoleRun& a, const AllPoleRun& b) : a_(a), b_(b) {
    for (int i = 1; i < kCoeffs; ++i) c_[i] = concat(a.filter.c[i], b.filter.c[i]);
    for (int i = 0; i < History::kPairs; ++i)
      history_.put(
          i, concat(pair(a.mem[2 * i], a.mem[2 * i + 1]), pair(b.mem[2 * i], b.mem[2 * i + 1])));
  }
  KELG729F_VEC void turn(int k, int t) {
    const Quad x = concat(all_pole_input(a_, k + 2 * t), all_pole_input(b_, k + 2 * t));
    const Quad y = history_.next(c_, x, t);
    history_.put(History::kPairs + t, y);
    out_a_[t] = low(y);
    out_b_[t] = high(y);
  }
  KELG729F_VEC void end_block(int k) {
    store(a_.y + k, in_a_row(out_a_));
    store(b_.y + k, in_a_row(out_b_));
    history_.shift();
  }

 private:
  using History = AllPoleHistory<Quad>;
  const AllPoleRun a_, b_;
  Quad c_[kCoeffs];
  History history_;
  Pair out_a_[kTurns], out_b_[kTurns];
};

// A second-order section in place.
class BiquadRecursion {
 public:
  KELG729F_VEC BiquadRecursion(const BiquadCoefficients& c, BiquadMemory* memory, double* x)
      : c_(c), memory_(memory), x_(x), m_(*memory) {}
  KELG729F_VEC void turn(int k, int t) { biquad_two(c_, &m_, x_ + k + 2 * t); }
  KELG729F_VEC void end_block(int) { *memory_ = m_; }

 private:
  const BiquadCoefficients c_;
  BiquadMemory* const memory_;
  double* const x_;
  BiquadMemory m_;
};

// Runs recursions over 8 * blocks samples, turn by turn.
template <typename... Recursion>
KELG729F_VEC void run_side_by_side(int blocks, Recursion... recursion) {
#pragma GCC unroll 1
  for (int k = 0; k < blocks * kLanes; k += kLanes) {
#pragma GCC unroll 4
    for (int t = 0; t < kTurns; ++t) (recursion.turn(k, t), ...);
    (recursion.end_block(k), ...);
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
