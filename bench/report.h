// Counters that every benchmark reports.
#pragma once

#include <benchmark/benchmark.h>

namespace bench {

// Each iteration did `frames` frames of 10 ms: frames per second, CPU time per frame and
// multiples of real time.
inline void report_frames(benchmark::State& state, double frames) {
  using benchmark::Counter;
  const double total = frames * static_cast<double>(state.iterations());
  state.counters["frames/s"] = Counter(total, Counter::kIsRate);
  state.counters["cpu/frame"] = Counter(total, Counter::kIsRate | Counter::kInvert);
  state.counters["x_real_time"] = Counter(total * 0.01, Counter::kIsRate);
}

}  // namespace bench
