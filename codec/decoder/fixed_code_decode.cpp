#include "codec/decoder/fixed_code_decode.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/tables/algebraic_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kPositionMask = kTrackPositions - 1;
static_assert((kTrackPositions & kPositionMask) == 0);

constexpr int track_position(int field, int track) {
  return kTracks * (field & kPositionMask) + track;
}

// A set sign bit of the 6.4 and 8 kbit/s words is a positive pulse.
double pulse_sign(int signs, int pulse) {
  return (signs >> pulse) & 1 ? 1.0 : -1.0;
}

// The pulses of one 11.8 kbit/s track: positions in bits 0-2, 4-6 and 7-9, the first pulse's sign
// in bit 3 (set: negative). A pulse behind its predecessor has the opposite sign.
void add_track(int word, int track, int pulses, double* code) {
  constexpr int kShift[3] = {0, 4, 7};
  double sign = (word >> 3) & 1 ? -1.0 : 1.0;
  int previous = track_position(word, track);
  code[previous] = sign;
  for (int k = 1; k < pulses; ++k) {
    const int position = track_position(word >> kShift[k], track);
    if (position > previous) sign = -sign;
    code[position] += sign;
    previous = position;
  }
}

}  // namespace

void fixed_code_decode_8k(const int* words, double* code) {
  const int positions = words[0], signs = words[1];
  zero_vector(code, kSubframe);
  for (int k = 0; k < 3; ++k) code[track_position(positions >> (3 * k), k)] = pulse_sign(signs, k);
  const int last_track = 3 + ((positions >> 9) & 1);
  code[track_position(positions >> 10, last_track)] = pulse_sign(signs, 3);
}

void fixed_code_decode_6k4(const int* words, double* code) {
  const int positions = words[0], signs = words[1];
  zero_vector(code, kSubframe);
  const int first = kGrayInverse[positions & (kPulse0Positions6k4 - 1)];
  const int second = kGrayInverse[(positions >> 4) & (kPulse1Positions6k4 - 1)];
  code[kPulse0Track6k4[first]] += pulse_sign(signs, 0);
  code[kPulse1Track6k4[second]] += pulse_sign(signs, 1);
}

void fixed_code_decode_fwd_11k8(const int* words, double* code) {
  zero_vector(code, kSubframe);
  for (int track = 0; track < kTracks; ++track) add_track(words[track], track, 2, code);
}

void fixed_code_decode_bwd_11k8(const int* words, double* code) {
  constexpr int kPulses[kTracks] = {3, 3, 2, 2, 2};
  zero_vector(code, kSubframe);
  const int sent = (words[0] >> 10) & 7;
  const int first_track = sent < kTracks ? sent : kTracks - 1;
  for (int i = 0; i < kTracks; ++i)
    add_track(words[i], (first_track + i) % kTracks, kPulses[i], code);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
