#include "codec/dtx/sid.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Gains of the energy levels: 10^((level + 6.02) / 20), levels as in sid_gain_quantize (Annex B
// clause B.4.2.1).
const double kSidGain[kSidEnergies] = {
    0.502,   1.262,    2.0,      3.17,     5.024,   7.962,    12.619,   15.887,
    20.0,    25.179,   31.698,   39.905,   50.238,  63.246,   79.621,   100.237,
    126.191, 158.866,  200.0,    251.785,  316.979, 399.052,  502.377,  632.456,
    796.214, 1002.374, 1261.915, 1588.656, 2000.0,  2517.851, 3169.786, 3990.525};

// Rows of the speech codebooks that a descriptor can name (Annex B clause B.4.2.2).
const int kSidFirstStage[kSidFirst] = {96, 52,  20,  54, 86,  114, 82,  68, 36,  121, 48,
                                       92, 18,  120, 94, 124, 50,  125, 4,  100, 28,  76,
                                       12, 117, 81,  22, 90,  116, 127, 21, 108, 66};
const int kSidSecondStageLower[kSidSecond] = {31, 21, 9,  3,  10, 2,  19, 26,
                                              4,  3,  11, 29, 15, 27, 21, 12};
const int kSidSecondStageUpper[kSidSecond] = {16, 1,  0,  0,  8, 25, 22, 20,
                                              19, 23, 20, 31, 4, 31, 20, 31};

}  // namespace KELG729F_TARGET
}  // namespace g729
