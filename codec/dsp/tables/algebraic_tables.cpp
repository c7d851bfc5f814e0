#include "codec/dsp/tables/algebraic_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// clang-format off
const int kPulse0Track6k4[kPulse0Positions6k4] = {
    1, 3, 6, 8, 11, 13, 16, 18, 21, 23, 26, 28, 31, 33, 36, 38,
};
const int kPulse1Track6k4[kPulse1Positions6k4] = {
    0, 2, 4, 5, 7, 9, 10, 12, 14, 15, 17, 19, 20, 22, 24, 25,
    27, 29, 30, 32, 34, 35, 37, 39, 1, 6, 11, 16, 21, 26, 31, 36,
};
const int kGray[kPulse1Positions6k4] = {
    0, 1, 3, 2, 6, 7, 5, 4, 12, 13, 15, 14, 10, 11, 9, 8,
    24, 25, 27, 26, 30, 31, 29, 28, 20, 21, 23, 22, 18, 19, 17, 16,
};
const int kGrayInverse[kPulse1Positions6k4] = {
    0, 1, 3, 2, 7, 6, 4, 5, 15, 14, 12, 13, 8, 9, 11, 10,
    31, 30, 28, 29, 24, 25, 27, 26, 16, 17, 19, 18, 23, 22, 20, 21,
};
// clang-format on

}  // namespace KELG729F_TARGET
}  // namespace g729
