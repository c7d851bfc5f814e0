// What encoder and decoder share of the adaptive codebook: the fractional delay (clause 3.7.1),
// the parity bit (clauses 3.7.2, 4.1.2) and pitch sharpening (clause 3.8).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// A pitch lag of t0 + frac / 3 samples.
struct PitchLag {
  int t0;    // 19..144
  int frac;  // -1, 0 or 1
};

// One-third-sample interpolation filter of the past excitation, h[3 i + p] its phase p.
extern const double kPitchInterpolation[3 * kInterpolationTaps + 1];

// exc[k], k = 0..n-1, becomes the past excitation delayed by t0 + frac/3 samples, frac -1, 0 or 1;
// n is a multiple of 8.
// exc[-(t0 + 11)..-1] must be valid (kExcitationPast samples cover every lag). Lags below n repeat
// the samples just written.
void pitch_excitation_interpolate(double* exc, int t0, int frac, int n);

// code[i] += sharp * code[i - t0], i = t0..39 ascending, in place; nothing when t0 >= 40.
void pitch_sharpen(double* code, int t0, double sharp);

// Parity bit of an 8-bit pitch index: 1 plus its six most significant bits, modulo 2.
int pitch_parity(int index);

// Whether `parity` does not belong to `index`.
bool pitch_parity_check(int index, int parity);

// Limits of the sharpening gain (clause 3.8).
inline constexpr double kSharpMin = 0.2;
inline constexpr double kSharpMax = 0.7945;
// Pitch gain bounded to [kSharpMin, kSharpMax].
double sharpening_gain(double gain_pitch);

// Lowest lag of the second subframe's range, whose width is 10: previous lag - 5, within
// [kPitchMin, kPitchMax - 9].
int second_lag_min(int t0);

}  // namespace KELG729F_TARGET
}  // namespace g729
