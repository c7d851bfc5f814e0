#include "codec/encoder/path.h"

#include "codec/dsp/filters.h"
#include "codec/encoder/subframe.h"

namespace g729 {
inline namespace KELG729F_TARGET {

void start_path(const EncoderCoreState& state, Path* path) {
  copy_vector(state.old_exc, path->exc, kExcitationPast);
  copy_vector(state.synthesis + kSynthesisPast - kBackwardOrder, path->synthesis, kBackwardOrder);
  copy_vector(state.undispersed, path->undispersed, kBackwardOrder);
  path->has_dispersed = state.has_dispersed;
  path->error_mem = state.error_mem;
  path->sharp = state.sharp;
  path->past_energy = state.past_energy;
  path->exc_err = state.exc_err;
  path->dispersion = state.dispersion;
  path->spectrum = 0;
  path->error = 0.0;
}

void follow_path(const Path& path, EncoderCoreState* state) {
  copy_vector(path.exc + kExcitationPast, state->old_exc + kExcitationPast, kFrame);
  copy_vector(path.synthesis + kBackwardOrder, state->synthesis + kSynthesisPast, kFrame);
  copy_vector(path.undispersed, state->undispersed, kBackwardOrder);
  state->has_dispersed = path.has_dispersed;
  state->error_mem = path.error_mem;
  state->sharp = path.sharp;
  state->past_energy = path.past_energy;
  state->exc_err = path.exc_err;
  state->dispersion = path.dispersion;
  for (const double gain : path.gain_pitch) push_pitch_gain(state, gain);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
