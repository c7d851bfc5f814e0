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

}  // namespace

PitchLag pitch_lag_decode_first(int index) {
  if (index >= kFractionalIndices) return {index - 112, 0};
  const int q = (index + 2) / 3;
  return {q + 19, index - 3 * q + 1};
}

PitchLag pitch_lag_decode_second(int index, int first_t0, FrameType type) {
  const int t0_min = second_lag_min(first_t0);
  if (type == kSpeech6k4) return decode_second_6k4(index & 15, t0_min);
  const int q = (index + 2) / 3;
  return {t0_min + q - 1, index + 1 - 3 * q};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
