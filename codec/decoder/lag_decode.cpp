#include "codec/decoder/lag_decode.h"

#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kFractionalIndices = 197;  // first-subframe indices with a fraction: 19 1/3 to 84 2/3

// Thirds of a sample at 5 of the 10 integer lags, none at the outer ones.
PitchLag decode_second_6k4(int index, int t0_min) {
  if (index < 4) return {t0_min + index, 0};
  if (index >= 12) return {t0_min + index - 6, 0};
  const int q = index / 3, r = index % 3;
  return r == 2 ? PitchLag{t0_min + q + 3, -1} : PitchLag{t0_min + q + 2, r};
}

PitchLag decode_first(int index) {
  if (index >= kFractionalIndices) return {index - 112, 0};
  const int q = (index + 2) / 3;
  return {q + 19, index - 3 * q + 1};
}

PitchLag decode_second(int index, int t0_min) {
  const int q = (index + 2) / 3;
  return {t0_min + q - 1, index + 1 - 3 * q};
}

}  // namespace

PitchLag pitch_lag_decode(int index, const int* first_t0, FrameType type) {
  if (!first_t0) return decode_first(index);
  const int t0_min = second_lag_min(*first_t0);
  return type == kSpeech6k4 ? decode_second_6k4(index & 15, t0_min) : decode_second(index, t0_min);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
