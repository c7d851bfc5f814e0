// The whole codec, frame by frame: every build that this machine runs, every rate, with and without
// silence compression.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "bench/report.h"
#include "bench/speech.h"
#include "codec/dispatch.h"

// KELG729F_TARGETS is X(name) for every build of the core.
#define X(name)                      \
  namespace g729::name {             \
  void register_kernel_benchmarks(); \
  }
KELG729F_TARGETS
#undef X

namespace {

using g729::Target;

struct Setting {
  const char* name;
  int32_t rate;
  bool annexb;
};
constexpr Setting kSettings[] = {
    {"8k", G729_RATE_8K, false},     {"8k_dtx", G729_RATE_8K, true},
    {"6k4", G729_RATE_6K4, false},   {"6k4_dtx", G729_RATE_6K4, true},
    {"11k8", G729_RATE_11K8, false}, {"11k8_dtx", G729_RATE_11K8, true},
};

const bench::Speech& speech() {
  static const bench::Speech speech = bench::load_speech(5);
  return speech;
}

struct SerialFrame {
  uint16_t words[G729_SERIAL_WORDS];
};

std::vector<SerialFrame> encode_all(const Target& target, const Setting& setting) {
  std::vector<SerialFrame> frames(static_cast<size_t>(speech().frames()));
  G729EncoderState* encoder = target.encoder_create(setting.annexb);
  for (size_t i = 0; i < frames.size(); ++i)
    target.encode_serial(encoder, speech().frame(static_cast<int64_t>(i)), setting.rate,
                         frames[i].words);
  target.encoder_destroy(encoder);
  return frames;
}

void encode(benchmark::State& state, const Target& target, const Setting& setting) {
  G729EncoderState* encoder = target.encoder_create(setting.annexb);
  SerialFrame serial;
  int64_t frame = 0;
  for (auto _ : state) {
    target.encode_serial(encoder, speech().frame(frame++), setting.rate, serial.words);
    benchmark::DoNotOptimize(serial);
  }
  target.encoder_destroy(encoder);
  bench::report_frames(state, 1);
}

void decode(benchmark::State& state, const Target& target, const Setting& setting) {
  const std::vector<SerialFrame> frames = encode_all(target, setting);
  G729DecoderState* decoder = target.decoder_create();
  int16_t samples[G729_FRAME_SAMPLES];
  size_t frame = 0;
  for (auto _ : state) {
    target.decode_serial(decoder, frames[frame].words, samples);
    benchmark::DoNotOptimize(samples);
    if (++frame == frames.size()) frame = 0;
  }
  target.decoder_destroy(decoder);
  bench::report_frames(state, 1);
}

void register_codec_benchmarks() {
  using Run = void (*)(benchmark::State&, const Target&, const Setting&);
  const std::pair<const char*, Run> directions[] = {{"encode/", encode}, {"decode/", decode}};
  for (const auto& [direction, run] : directions)
    for (auto target = g729::supported_targets(); *target; ++target)
      for (const Setting& setting : kSettings) {
        const std::string name = std::string(direction) + (*target)->name + "/" + setting.name;
        benchmark::RegisterBenchmark(
            name.c_str(), [run = run, target = *target, &setting](benchmark::State& state) {
              run(state, *target, setting);
            });
      }
}

void register_kernels() {
  for (auto target = g729::supported_targets(); *target; ++target) {
    const std::string name = (*target)->name;
#define X(build) \
  if (name == #build) g729::build::register_kernel_benchmarks();
    KELG729F_TARGETS
#undef X
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("speech", speech().source);
  register_codec_benchmarks();
  register_kernels();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
