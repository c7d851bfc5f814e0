// Decoding of the fixed codebooks (clause 4.1.4, Annexes D and E). Each writes the 40 samples of
// code from the subframe's codebook words, in the order they are sent; bits beyond a word's width
// are ignored.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// words[0]: positions (13 bits), words[1]: signs (4 bits). Four pulses of +-1 on distinct tracks.
void fixed_code_decode_8k(const int* words, double* code);

// words[0]: positions (9 bits), words[1]: signs (2 bits). Two pulses, which may share a position.
void fixed_code_decode_6k4(const int* words, double* code);

// Five words of 7 bits: track by track two pulses, ten in all.
void fixed_code_decode_fwd_11k8(const int* words, double* code);

// Five words of 13, 10, 7, 7, 7 bits: 3, 3, 2, 2, 2 pulses on the tracks from the one that the
// first word names.
void fixed_code_decode_bwd_11k8(const int* words, double* code);

}  // namespace KELG729F_TARGET
}  // namespace g729
