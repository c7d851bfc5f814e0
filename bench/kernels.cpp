// The kernels one by one, on inputs taken from coding speech. Compiled once per build of the core.
//
// A benchmark's time is that of one call; its frame counters take the calls of a frame into
// account.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "bench/kernel_inputs.h"
#include "bench/report.h"
#include "bench/speech.h"
#include "codec/decoder/postfilter.h"
#include "codec/decoder/postprocess.h"
#include "codec/dsp/backward_lp.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dtx/gaussian_noise.h"
#include "codec/dtx/sid.h"
#include "codec/dtx/vad.h"
#include "codec/encoder/acelp_11k8.h"
#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/acelp_8k.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/lsp_quantizer.h"
#include "codec/encoder/open_loop_pitch.h"
#include "codec/encoder/preprocess.h"

namespace g729 {
inline namespace KELG729F_TARGET {

void register_kernel_benchmarks();
void register_peak_benchmark();

namespace {

constexpr int kInputs = 128;
KernelInput inputs[kInputs];
int input_count = 0;

void prepare_inputs() {
  if (input_count > 0) return;
  const bench::Speech speech = bench::load_speech(5);
  input_count = collect_kernel_inputs(speech.samples.data(), speech.frames(), kInputs, inputs);
}

// Registers work(input), which runs `calls` times a frame.
template <typename Work>
void kernel(const char* name, int calls, Work work) {
#define KELG729F_STRING(x) #x
#define KELG729F_NAME(x) KELG729F_STRING(x)
  const std::string full = std::string("kernel/" KELG729F_NAME(KELG729F_TARGET) "/") + name;
  benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) mutable {
    prepare_inputs();
    int i = 0;
    for (auto _ : state) {
      work(inputs[i]);
      benchmark::ClobberMemory();
      if (++i == input_count) i = 0;
    }
    bench::report_frames(state, 1.0 / calls);
  });
}

template <typename T>
void keep(T&& value) {
  benchmark::DoNotOptimize(value);
}

void register_spectrum() {
  kernel("preprocess_highpass", 1, [memory = BiquadMemory{}](const KernelInput& in) mutable {
    double x[kFrame];
    copy_vector(in.window, x, kFrame);
    preprocess_highpass(&memory, x, kFrame);
    keep(x);
  });
  kernel("lp_analysis", 1, [memory = LevinsonMemory{}](const KernelInput& in) mutable {
    double r[kAutocorrelations + 1], a[kCoeffs], rc[kOrder];
    autocorrelation(in.window, kOrder, r);
    apply_lag_window(kOrder, r);
    levinson_durbin_10(r, a, rc, &memory);
    keep(a);
  });
  kernel("lpc_to_lsp", 1, [](const KernelInput& in) {
    double lsp[kOrder];
    lpc_to_lsp(in.a, lsp, in.lsp_old);
    keep(lsp);
  });
  kernel("lsp_quantize", 1, [](const KernelInput& in) {
    double lsf[kOrder];
    lsp_to_lsf(in.lsp, lsf, kOrder);
    keep(lsp_quantize(in.lsp_history, lsf));
  });
  kernel("interpolate_lpc", 1, [](const KernelInput& in) {
    double lsf[2 * kOrder], a[2 * kCoeffs];
    interpolate_lpc(in.lsp_old, in.lsp, lsf, a);
    keep(a);
  });
  kernel("backward_lp_analysis", 1, [state = BackwardLpState{}](const KernelInput& in) mutable {
    double a[kBackwardCoeffs];
    backward_lp_analysis(&state, in.past, a);
    keep(a);
  });
}

void register_filters() {
  kernel("residual_filter", 2, [](const KernelInput& in) {
    double y[kSubframe];
    residual_filter({in.a_q, kOrder}, in.window + kSpeechPast, y, kSubframe);
    keep(y);
  });
  kernel("synthesis_filter", 2, [](const KernelInput& in) {
    double y[kSubframe], memory[kOrder] = {};
    synthesis_filter({in.a_q, kOrder}, in.exc + kExcitationPast, y, kSubframe, memory, true);
    keep(y);
  });
  kernel("convolve", 2, [](const KernelInput& in) {
    double y[kSubframe];
    convolve(in.exc + kExcitationPast, in.h, y);
    keep(y);
  });
}

void register_pitch() {
  kernel("open_loop_pitch", 1,
         [](const KernelInput& in) { keep(open_loop_pitch(in.wsp + kPitchMax)); });
  kernel("closed_loop_pitch", 2, [](const KernelInput& in) {
    const int low = in.lag.t0 > 23 ? (in.lag.t0 < 139 ? in.lag.t0 - 3 : 137) : 20;
    keep(closed_loop_pitch({in.exc + kExcitationPast, in.xn, in.h, {low, low + 6}, 0, kRate8k}));
  });
}

// The searches sharpen the impulse response in place, so each call works on a copy.
void register_codebooks() {
  kernel("acelp_search_11bit", 2, [](const KernelInput& in) {
    double h[kSubframe];
    Innovation innovation;
    copy_vector(in.h, h, kSubframe);
    keep(acelp_search_11bit({in.xn2, h, in.lag.t0, 0.5}, &innovation));
  });
  kernel("acelp_search_17bit", 2, [extra = 0](const KernelInput& in) mutable {
    double h[kSubframe];
    Innovation innovation;
    copy_vector(in.h, h, kSubframe);
    keep(acelp_search_17bit({in.xn2, h, in.lag.t0, 0.5}, 0, &extra, &innovation));
  });
  for (const LpMode mode : {kForward, kBackward})
    kernel(mode == kForward ? "acelp_search_118_forward" : "acelp_search_118_backward", 2,
           [mode](const KernelInput& in) {
             double h[kSubframe];
             Innovation innovation;
             int words[kMaxCodeWords];
             copy_vector(in.h, h, kSubframe);
             acelp_search_118(mode, {in.xn2, h, in.lag.t0, 0.5}, &innovation, words);
             keep(words);
           });
  kernel("gain_quantize", 2, [](const KernelInput& in) {
    double terms[kGainTerms];
    copy_vector(in.gain_terms, terms, kGainTerms);
    gain_correlations(in.xn, in.y1, in.innovation.y, terms);
    GainHistory history = in.gain_history;
    keep(gain_quantize({in.innovation.code, terms, false}, &history));
  });
}

void register_decoder() {
  constexpr PostFilterSettings settings = {0.7, 0.55, 0.5, 20};
  kernel("postfilter_subframe", 2, [=, state = PostFilterState{}](const KernelInput& in) mutable {
    double out[kSubframe];
    const PostFilterInput input = {
        in.past + kSynthesisPast, {in.a_decoded, kOrder}, in.t0_decoded, kSpeech8k};
    keep(postfilter_subframe(&state, input, settings, out));
    keep(out);
  });
  kernel("long_term_postfilter", 2, [](const KernelInput& in) {
    double out[kSubframe];
    keep(long_term_postfilter(in.exc + kResidualPast + 2, in.t0_decoded, 0.5, out));
    keep(out);
  });
  kernel("lsp_decode", 1, [](const KernelInput& in) {
    LspDecoderState state;
    state.lsp_predictor = in.lsp_history;
    const int index[2] = {in.serial.bits[0] & 0xff, in.serial.bits[10] & 0x3ff};
    double lsp[kOrder];
    lsp_decode(index, false, &state, lsp);
    keep(lsp);
  });
  kernel("postprocess", 1, [memory = BiquadMemory{}](const KernelInput& in) mutable {
    double x[kFrame];
    int16_t samples[kFrame];
    copy_vector(in.window, x, kFrame);
    postprocess_highpass(&memory, x, kFrame);
    wrap_to_samples(x, samples);
    keep(samples);
  });
}

void register_silence() {
  kernel("vad_decide", 1, [state = VadState{}](const KernelInput& in) mutable {
    double lsf[kOrder];
    lsp_to_lsf(in.lsp, lsf, kOrder);
    keep(vad_decide(&state, {in.rc[1], lsf, in.r, in.window, 1000, true, true}));
  });
  kernel("sid_quantize_lsp", 1, [](const KernelInput& in) {
    SidParameters sid;
    sid_quantize_lsp(in.lsp, in.lsp_history, &sid);
    keep(sid);
  });
  kernel("gaussian_noise", 2, [seed = kNoiseSeed](const KernelInput&) mutable {
    double out[kSubframe];
    gaussian_noise(&seed, out);
    keep(out);
  });
  kernel("comfort_noise_decode", 1, [=](const KernelInput& in) {
    ComfortNoiseState state = {.sid_gain = 30, .cur_gain = 30};
    double exc[kExcitationPast + kFrame], lsp_old[kOrder];
    copy_vector(in.exc, exc, kExcitationPast);
    copy_vector(in.lsp_old, lsp_old, kOrder);
    LspHistory history = in.lsp_history;
    keep(comfort_noise_decode(&state, {kNoTransmission, nullptr, 0.0}, exc + kExcitationPast,
                              lsp_old, &history));
    keep(exc);
  });
}

}  // namespace

void register_kernel_benchmarks() {
  register_spectrum();
  register_filters();
  register_pitch();
  register_codebooks();
  register_decoder();
  register_silence();
  register_peak_benchmark();
}

}  // namespace KELG729F_TARGET
}  // namespace g729
