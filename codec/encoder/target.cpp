#include "codec/encoder/target.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/recursions.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/encoder/weighting.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kRest[kBackwardOrder] = {};

// Two signals in pass the filter 1/A(z) of `first`, then that of `second`, both of order 10. Signal
// 0 has memories, signal 1 is at rest. Both inputs have kLag samples more than the outputs.
constexpr int kLag = 2;

struct Cascade {
  const double *first, *second, *first_mem, *second_mem;
  double* in[2];
  double* out[2];
};

// One filter after the other.
void filter_in_turn(const Cascade& f) {
  synthesis_filter_pair({f.first, kOrder}, {f.in[0], f.first_mem, f.in[0]},
                        {f.in[1], kRest, f.in[1]});
  synthesis_filter_pair({f.second, kOrder}, {f.in[0], f.second_mem, f.out[0]},
                        {f.in[1], kRest, f.out[1]});
}

// Both filters side by side: each step takes sample k through the one and sample k - kLag through
// the other. In lanes 0 and 1 are the first filter's outputs, in lanes 2 and 3 the second's. A lane
// sees the operations of filter_in_turn() in their order.
void filter_side_by_side(const Cascade& f) {
  static_assert(kSubframe % kOrder == 0 && kLag < kOrder);
  Quad c[kCoeffs], last[kOrder];  // last[k modulo 10] are the outputs of step k
  for (int i = 1; i <= kOrder; ++i)
    c[i] = concat(splat_as<Pair>(f.first[i]), splat_as<Pair>(f.second[i]));
  for (int i = 0; i < kOrder; ++i)
    last[i] = concat(pair(f.first_mem[i], 0.0), pair(i < kLag ? 0.0 : f.second_mem[i - kLag], 0.0));
#pragma GCC unroll 1
  for (int block = 0; block < kSubframe + kLag; block += kOrder) {
#pragma GCC unroll 10
    for (int j = 0; j < kOrder; ++j) {
      const int k = block + j;
      if (k == kSubframe + kLag) return;
      const Quad x = concat(pair(f.in[0][k], f.in[1][k]), low(last[(j - kLag + kOrder) % kOrder]));
      const Quad y = all_pole_next(c, last, j, x);
      last[j] = y;
      if (k < kLag) {
        last[j] = concat(low(y), pair(f.second_mem[kOrder - kLag + k], 0.0));
        continue;
      }
      f.out[0][k - kLag] = lane(high(y), 0);
      f.out[1][k - kLag] = lane(high(y), 1);
    }
  }
}

// The target and the impulse response, side by side. A(z/gamma1) comes before 1/A(z) here, which
// takes the histories that its input and output would have had.
void find_target_10(const double* residual, const ErrorMemory& mem, const FrameWork& w, int k,
                    double* xn, double* h) {
  constexpr int kPast = 2 * kLanes;  // samples of these histories
  static_assert(kPast >= kOrder && kPast + kOrder <= kBackwardOrder);
  const double* const a = w.quantized[k].a;
  const double* const ap1 = w.weighting[k].ap1;
  const double* const error = mem.error + kBackwardOrder - kPast;
  alignas(kAlign) double past[kPast + kSubframe], weighted_past[kPast];
  residual_filter({a, kOrder}, error, past, kPast);
  residual_filter({ap1, kOrder}, error, weighted_past, kPast);

  alignas(kAlign) double target[kSubframe + kLag] = {}, response[kSubframe + kLag] = {};
  copy_vector(residual, past + kPast, kSubframe);
  residual_filter({ap1, kOrder}, past + kPast, target, kSubframe);
  copy_vector(ap1, response, kCoeffs);
  const auto run = kNativeLanes >= 4 ? filter_side_by_side : filter_in_turn;
  run({a,
       w.weighting[k].ap2,
       weighted_past + kPast - kOrder,
       mem.weighted_error + kBackwardOrder - kOrder,
       {target, response},
       {xn, h}});
}

}  // namespace

void expand_bandwidth(FrameWork* w) {
  for (int k = 0; k < kSubframes; ++k) {
    WeightedFilter* const f = &w->weighting[k];
    weight_lpc(f->filter.a, w->factors.gamma1[k], f->filter.order, f->ap1);
    weight_lpc(f->filter.a, w->factors.gamma2[k], f->filter.order, f->ap2);
  }
}

void weight_speech(const double* speech, const FrameWork& w, double* wsp) {
  for (int k = 0; k < kSubframes; ++k) {
    const int start = k * kSubframe;
    residual_filter({w.weighting[k].ap1, w.weighting[k].filter.order}, speech + start, wsp + start,
                    kSubframe);
  }
  for (int k = 0; k < kSubframes; ++k) {
    double* const y = wsp + k * kSubframe;
    const int m = w.weighting[k].filter.order;
    synthesis_filter({w.weighting[k].ap2, m}, y, y, kSubframe, y - m, false);
  }
}

void find_target_plain(const double* residual, const ErrorMemory& mem, const FrameWork& w, int k,
                       double* xn, double* h) {
  const LpFilter quantized = w.quantized[k], weighting = w.weighting[k].filter;
  double error[kBackwardOrder + kSubframe];
  double* const fresh = error + kBackwardOrder;
  copy_vector(mem.error, error, kBackwardOrder);
  zero_vector(h, kSubframe);
  copy_vector(w.weighting[k].ap1, h, weighting.order + 1);
  synthesis_filter_pair(quantized, {residual, fresh - quantized.order, fresh}, {h, kRest, h});
  residual_filter({w.weighting[k].ap1, weighting.order}, fresh, xn, kSubframe);
  synthesis_filter_pair({w.weighting[k].ap2, weighting.order},
                        {xn, mem.weighted_error + kBackwardOrder - weighting.order, xn},
                        {h, kRest, h});
}

void find_target(const double* residual, const ErrorMemory& mem, const FrameWork& w, int k,
                 double* xn, double* h) {
  const bool short_filters =
      w.quantized[k].order == kOrder && w.weighting[k].filter.order == kOrder;
  const auto find = short_filters ? find_target_10 : find_target_plain;
  find(residual, mem, w, k, xn, h);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
