// Pulses of an 8 kbit/s innovation that move, one after the other, to where they are best.
#pragma once

#include "codec/encoder/innovations_8k_search.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Correlation and energy of the codeword's pulses.
void measure(const InnovationSearch& s, Codeword* c);

// Moves pulse k to the best place of its tracks; returns whether that is another one.
bool move_pulse(const InnovationSearch& s, int k, Codeword* c);

// Moves one pulse after the other, `sweeps` times all of them at most, until every one is where it
// is best. The third one is already.
void refine(const InnovationSearch& s, int sweeps, Codeword* c);

// The criterion of the codeword with the greatest correlation, refined once, or 0.
double greedy_level(const InnovationSearch& s);

}  // namespace KELG729F_TARGET
}  // namespace g729
