// The machine's limit: multiply-adds a second on doubles that never leave the registers, with the
// instruction set of this build. Products are added without fusing, as everywhere in the codec.
#include <benchmark/benchmark.h>

#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {

void register_peak_benchmark();

namespace {

using Native = Vec8::Part;

constexpr int kRounds = 1000;
// Enough independent sums to hide an addition's latency, few enough to stay in registers.
constexpr int kSums = 12;

// Tells the compiler that the value may have changed, so that every product is computed anew.
KELG729F_VEC void touch(Native* value) {
#if defined(__AVX512F__)
  asm volatile("" : "+v"(*value));
#elif defined(__x86_64__)
  asm volatile("" : "+x"(*value));
#elif defined(__aarch64__)
  asm volatile("" : "+w"(*value));
#else
  asm volatile("" : "+m"(*value));
#endif
}

void peak(benchmark::State& state) {
  Native sum[kSums] = {};
  Native factor = Native{} + 1e-9, other = Native{} + 1e-9;
  for (auto _ : state) {
    for (int i = 0; i < kRounds; ++i)
      for (int k = 0; k < kSums; ++k) {
        touch(&factor);
        sum[k] += factor * other;
      }
    benchmark::DoNotOptimize(sum);
  }
  using benchmark::Counter;
  const double adds = static_cast<double>(state.iterations()) * kRounds * kSums * kNativeLanes;
  state.counters["multiply_adds/s"] = Counter(adds, Counter::kIsRate);
}

}  // namespace

void register_peak_benchmark() {
#define KELG729F_STRING(x) #x
#define KELG729F_NAME(x) KELG729F_STRING(x)
  benchmark::RegisterBenchmark("peak/" KELG729F_NAME(KELG729F_TARGET), peak);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
