// The words of a silence descriptor (Annex B clauses B.4.2 and B.4.3): their tables and quantizers.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/parameter_set.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kSidFirst = 32;     // first-stage rows that a descriptor can name
inline constexpr int kSidSecond = 16;    // pairs of second-stage rows
inline constexpr int kSidEnergies = 32;  // energy levels

extern const double kSidGain[kSidEnergies];         // energy index -> gain
extern const int kSidFirstStage[kSidFirst];         // pointer -> first-stage row
extern const int kSidSecondStageLower[kSidSecond];  // pointer -> second-stage row, columns 0..4
extern const int kSidSecondStageUpper[kSidSecond];  // pointer -> second-stage row, columns 5..9

// Quantizes the sum of `count` (0..2) frame energies, none negative; count 0 takes energies[0]
// unaveraged, the decoder's stored excitation energy. Returns the level in dB, *index its energy
// index. The levels are 4 dB apart from -12 to 16 dB (-8 is left out) and 2 dB above.
double sid_gain_quantize(const double* energies, int count, int* index);

// buf[0..9] = the spread codebook sum that the pointers name, the predictor's innovation.
void sid_codevector(int first, int second, double* buf);

// Quantizes ten LSPs: sets mode, first and second of *sid. history is the predictor memory before
// the frame; whoever decodes the words moves it.
void sid_quantize_lsp(const double* lsp, const LspHistory& history, SidParameters* sid);

}  // namespace KELG729F_TARGET
}  // namespace g729
