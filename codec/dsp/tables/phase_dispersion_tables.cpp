#include "codec/dsp/tables/phase_dispersion_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// clang-format off
// In 1/32768.
constexpr int kStrongQ15[kSubframe] = {
    14690, 11518, 1268, -2761, -5671, 7514, -35, -2807, -3040, 4823,
    2952, -8424, 3785, 1455, 2179, -8637, 8051, -2103, -1454, 777,
    1108, -2385, 2254, -363, -674, -2103, 6046, -5681, 1072, 3123,
    -5058, 5312, -2329, -3728, 6924, -3889, 675, -1775, 29, 10145,
};
constexpr int kMediumQ15[kSubframe] = {
    30274, 3831, -4036, 2972, -1048, -1002, 2477, -3043, 2815, -2231,
    1753, -1611, 1714, -1775, 1543, -1008, 429, -169, 472, -1264,
    2176, -2706, 2523, -1621, 344, 826, -1529, 1724, -1657, 1701,
    -2063, 2644, -3060, 2897, -1978, 557, 780, -1369, 842, 655,
};
// clang-format on

consteval DispersionResponse two_periods(const int* q15) {
  DispersionResponse response{};
  for (int k = 0; k < 2 * kSubframe; ++k) response.h[k] = q15[k % kSubframe] / 32768.0;
  return response;
}

}  // namespace

constinit const DispersionResponse kDispersionResponse[2] = {two_periods(kStrongQ15),
                                                             two_periods(kMediumQ15)};

}  // namespace KELG729F_TARGET
}  // namespace g729
