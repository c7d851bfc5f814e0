#include "codec/dtx/dtx_encode.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dtx/sid.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr double kSpectrumChanged = 1.1481628;  // distance that asks for a new descriptor
constexpr double kSpectrumFar = 1.0966466;      // distance that rules out the average filter
constexpr double kEnergyChanged = 2.0;          // dB
constexpr int kSidInterval = 3;                 // least distance of two descriptors, frames

// The filter of the last two frames.
struct NoiseFilter {
  double r[kCoeffs];  // autocorrelation it comes from
  double a[kCoeffs];
  double ener;  // prediction error
};

// Filter of an autocorrelation; silence has the filter 1 and no energy.
double solve(const double* r, LevinsonMemory* memory, double* a) {
  if (r[0] == 0.0) {
    a[0] = 1.0;
    zero_vector(a + 1, kOrder);
    return 0.0;
  }
  double rc[kOrder];
  return levinson_durbin(kOrder, r, a, rc, memory);
}

void sum_current(const DtxState& state, double* r) {
  for (int i = 0; i < kCoeffs; ++i) r[i] = state.acf_cur[0][i] + state.acf_cur[1][i];
}

void push_current(DtxState* state) {
  for (int k = kSumAcf - 1; k > 0; --k)
    copy_vector(state->acf_sum[k - 1], state->acf_sum[k], kCoeffs);
  sum_current(*state, state->acf_sum[0]);
}

// Autocorrelation of the filter's coefficients, so that distance() is its residual energy.
void filter_autocorrelation(const double* a, double* rcoeff) {
  for (int i = 0; i < kCoeffs; ++i) {
    double sum = 0.0;
    for (int j = 0; j + i < kCoeffs; ++j) sum += a[j] * a[j + i];
    rcoeff[i] = i == 0 ? sum : 2.0 * sum;
  }
}

// Energy that the reference filter leaves of a signal with the autocorrelation r (the Itakura
// distance when set against the signal's own prediction error).
double distance(const double* rcoeff, const double* r) {
  double sum = 0.0;
  for (int i = 0; i < kCoeffs; ++i) sum += rcoeff[i] * r[i];
  return sum;
}

// Whether an inactive frame after an inactive frame sends a descriptor.
bool decide(DtxState* state, const NoiseFilter& current, double energy, const NoiseLevel* level) {
  if (distance(state->ref_rcoeff, current.r) > kSpectrumChanged * current.ener)
    state->flag_chang = true;
  const double change = energy - state->prev_energy;
  if (level ? noise_level_worth_sending(*level, change) : std::fabs(change) > kEnergyChanged)
    state->flag_chang = true;
  state->count_fr0 = std::min(state->count_fr0 + 1, kSidInterval);
  return state->count_fr0 == kSidInterval && state->flag_chang;
}

// The energy that a descriptor tells of the last two frames. After speech the first of them has
// some of it; where the level is to be kept, the second stands for both.
double told_energy(const DtxState& state, const NoiseFilter& current, bool previous_vad,
                   const NoiseLevel* level) {
  if (!level || current.ener == 0.0) return current.ener;
  const double newest = state.acf_cur[1 - state.fr_cur][0];
  const double share = previous_vad ? 2.0 * newest / current.r[0] : 1.0;
  return current.ener * share * noise_level_factor(*level);
}

// Chooses the filter to send, the average of the past when it suits the present, and makes it the
// reference.
void choose_filter(DtxState* state, const NoiseFilter& current, double* a) {
  double r[kCoeffs];
  for (int i = 0; i < kCoeffs; ++i)
    r[i] = state->acf_sum[0][i] + state->acf_sum[1][i] + state->acf_sum[2][i];
  solve(r, &state->levinson, a);
  filter_autocorrelation(a, state->ref_rcoeff);
  if (distance(state->ref_rcoeff, current.r) > kSpectrumFar * current.ener) {
    copy_vector(current.a, a, kCoeffs);
    filter_autocorrelation(a, state->ref_rcoeff);
  }
}

// Codes the spectrum of a descriptor whose energy word is set.
void code_spectrum(DtxState* state, const NoiseFilter& current, const LspHistory& history,
                   SidParameters* sid) {
  double a[kCoeffs];
  double lsp[kOrder];
  choose_filter(state, current, a);
  lpc_to_lsp(a, lsp, state->noise.lsp_sid);
  sid_quantize_lsp(lsp, history, sid);
}

}  // namespace

void dtx_update(DtxState* state, const double* r, bool vad) {
  copy_vector(r, state->acf_cur[state->fr_cur], kCoeffs);
  state->fr_cur = (state->fr_cur + 1) % 2;
  if (state->fr_cur == 0 && vad) push_current(state);
}

DtxFrame dtx_encode_frame(DtxState* state, bool previous_vad, const NoiseLevel* level, double* exc,
                          std::span<double, kOrder> lsp_old_q, LspHistory* history) {
  NoiseFilter current;
  sum_current(*state, current.r);
  current.ener = solve(current.r, &state->levinson, current.a);
  state->energy[1] = state->energy[0];
  state->energy[0] = told_energy(*state, current, previous_vad, level);

  DtxFrame frame = {};
  const int nb_ener = previous_vad ? 1 : 2;
  const double quantized = sid_gain_quantize(state->energy, nb_ener, &frame.sid.energy);
  const bool send = previous_vad || decide(state, current, quantized, level);
  if (send) {
    frame.type = kSid;
    state->flag_chang = false;
    state->count_fr0 = 0;
    state->prev_energy = quantized;
    code_spectrum(state, current, *history, &frame.sid);
  }
  const NoiseInput noise = {previous_vad ? kSpeech8k : kSid, send ? &frame.sid : nullptr, 0.0};
  frame.noise = comfort_noise_decode(&state->noise, noise, exc, lsp_old_q, history);
  if (state->fr_cur == 0) push_current(state);
  return frame;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
