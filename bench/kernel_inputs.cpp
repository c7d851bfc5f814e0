#include "bench/kernel_inputs.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/encoder/acelp_8k.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/lsp_quantizer.h"
#include "codec/encoder/open_loop_pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kLoud = 1e7;  // energy of a frame worth measuring on: 350 rms
constexpr double kGamma1 = 0.94, kGamma2 = 0.6;

void spectrum_inputs(const EncoderCoreState& before, const EncoderCoreState& after,
                     KernelInput* in) {
  copy_vector(before.old_speech, in->window, kNewSpeech);
  copy_vector(after.old_speech + kNewSpeech - kFrame, in->window + kNewSpeech, kFrame);
  LevinsonMemory memory = before.levinson;
  autocorrelation(in->window, kAutocorrelations, in->r);
  apply_lag_window(kAutocorrelations, in->r);
  levinson_durbin_10(in->r, in->a, in->rc, &memory);
  copy_vector(before.lsp_old, in->lsp_old, kOrder);
  lpc_to_lsp(in->a, in->lsp, in->lsp_old);
  in->lsp_history = before.freq_prev;
  double lsf[kOrder];
  lsp_to_lsf(in->lsp, lsf, kOrder);
  interpolate_quantized_lpc(before.lsp_old_q, lsp_quantize(in->lsp_history, lsf).lsp_q, in->a_q);
}

// The target is the residual through the weighted synthesis filter from rest.
void pitch_inputs(const EncoderCoreState& before, const EncoderCoreState& after, KernelInput* in) {
  copy_vector(before.old_wsp, in->wsp, kPitchMax);
  copy_vector(after.old_wsp + kPitchMax - kFrame, in->wsp + kPitchMax, kFrame);
  in->t_op = open_loop_pitch(in->wsp + kPitchMax);
  double* exc = in->exc + kExcitationPast;
  copy_vector(before.old_exc, in->exc, kExcitationPast);
  residual_filter({in->a_q, kOrder}, in->window + kSpeechPast, exc, kFrame);
  double ap1[kCoeffs], ap2[kCoeffs], rest[kOrder] = {};
  weight_lpc(in->a, kGamma1, kOrder, ap1);
  weight_lpc(in->a, kGamma2, kOrder, ap2);
  impulse_response(kOrder, ap1, ap2, in->h, kSubframe);
  synthesis_filter({in->a_q, kOrder}, in->h, in->h, kSubframe, rest, false);
  convolve(exc, in->h, in->xn);
}

void excitation_inputs(const EncoderCoreState& before, KernelInput* in) {
  double exc[kExcitationPast + kFrame], h[kSubframe];
  copy_vector(in->exc, exc, kExcitationPast + kFrame);
  const int low = in->t_op < kPitchMax - 3 ? (in->t_op > 23 ? in->t_op - 3 : 20) : kPitchMax - 6;
  in->lag = closed_loop_pitch({exc + kExcitationPast, in->xn, in->h, {low, low + 6}, 0, kRate8k});
  pitch_excitation_interpolate(exc + kExcitationPast, in->lag.t0, in->lag.frac, kSubframe);
  convolve(exc + kExcitationPast, in->h, in->y1);
  const double gain = pitch_gain(in->y1, in->xn, in->gain_terms);
  for (int i = 0; i < kSubframe; ++i) in->xn2[i] = in->xn[i] - gain * in->y1[i];
  copy_vector(in->h, h, kSubframe);
  int extra = before.fcb_extra;
  acelp_search_17bit({in->xn2, h, in->lag.t0, before.sharp}, 0, &extra, &in->innovation);
  gain_correlations(in->xn, in->y1, in->innovation.y, in->gain_terms);
  in->gain_history = before.past_energy;
}

void decoder_inputs(const DecoderCoreState& decoder, KernelInput* in) {
  copy_vector(decoder.synthesis, in->past, kSynthesisPast + kFrame);
  copy_vector(in->a_q, in->a_decoded, kCoeffs);
  in->t0_decoded = decoder.old_t0;
}

}  // namespace

int collect_kernel_inputs(const int16_t* samples, int frames, int count, KernelInput* inputs) {
  auto* encoder = new EncoderCoreState;
  auto* decoder = new DecoderCoreState;
  encoder_core_init(encoder, false);
  decoder_core_init(decoder);
  int found = 0;
  for (int f = 0; f < frames && found < count; ++f) {
    const EncoderCoreState before = *encoder;
    KernelInput& in = inputs[found];
    int16_t out[kFrame];
    encode_serial_frame(encoder, samples + f * kFrame, kRate8k, &in.serial);
    decode_serial_frame(decoder, &in.serial, out);
    const bool due = static_cast<long long>(f) * count >= static_cast<long long>(found) * frames;
    const double* const input = encoder->old_speech + kNewSpeech - kFrame;
    if (!due || dot(input, input, kFrame) < kLoud) continue;
    spectrum_inputs(before, *encoder, &in);
    pitch_inputs(before, *encoder, &in);
    excitation_inputs(before, &in);
    decoder_inputs(*decoder, &in);
    ++found;
  }
  delete encoder;
  delete decoder;
  return found;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
