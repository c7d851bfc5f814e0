// Elementary functions with one result on every machine.
//
// The C library picks a variant of cos, acos, log10 and pow by the processor, and the variants
// differ in the last bit; a codec whose encoder and decoder must agree across machines cannot use
// them. These use only +, -, *, / and square root, which IEEE 754 fixes. Relative error is below
// 4e-16 of the function's scale (tests compare with the C library).
#pragma once

#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Cosine, x in [0, pi] radians (any x of magnitude up to 4 is accurate).
double cosine(double x);

// Arc cosine in [0, pi] radians, x in [-1, 1]; beyond that the value at the nearer end.
double arc_cosine(double x);

// out[i] = cosine(x[i]), out[i] = arc_cosine(x[i]) for n values; out may be x. Bit-equal to the
// scalar forms.
void cosine(const double* x, double* out, int n);
void arc_cosine(const double* x, double* out, int n);

// Decimal logarithm of a positive, normal x.
double log10_of(double x);

// 10^x, |x| below 300.
double power_of_10(double x);

}  // namespace KELG729F_TARGET
}  // namespace g729
