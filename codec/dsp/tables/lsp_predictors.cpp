#include "codec/dsp/tables/lsp_predictors.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using Coefficients = double[kMaOrder][kOrder];

// Newest vector first.
// clang-format off
constexpr Coefficients kMode0 = {
    {0.2570, 0.2780, 0.2800, 0.2736, 0.2757, 0.2764, 0.2675, 0.2678, 0.2779, 0.2647},
    {0.2142, 0.2194, 0.2331, 0.2230, 0.2272, 0.2252, 0.2148, 0.2123, 0.2115, 0.2096},
    {0.1670, 0.1523, 0.1567, 0.1580, 0.1601, 0.1569, 0.1589, 0.1555, 0.1474, 0.1571},
    {0.1238, 0.0925, 0.0798, 0.0923, 0.0890, 0.0828, 0.1010, 0.0988, 0.0872, 0.1060},
};
constexpr Coefficients kMode1 = {
    {0.2360, 0.2405, 0.2499, 0.2495, 0.2517, 0.2591, 0.2636, 0.2625, 0.2551, 0.2310},
    {0.1285, 0.0925, 0.0779, 0.1060, 0.1183, 0.1176, 0.1277, 0.1268, 0.1193, 0.1211},
    {0.0981, 0.0589, 0.0401, 0.0654, 0.0761, 0.0728, 0.0841, 0.0826, 0.0776, 0.0891},
    {0.0923, 0.0486, 0.0287, 0.0498, 0.0526, 0.0482, 0.0621, 0.0636, 0.0584, 0.0794},
};
// clang-format on

// weight0 * mode 0 + weight1 * mode 1, with the column sums that follow.
consteval LspPredictor blend(double weight0, double weight1) {
  LspPredictor p = {};
  for (int j = 0; j < kOrder; ++j) {
    double total = 0;
    for (int k = 0; k < kMaOrder; ++k) {
      p.coefficient[k][j] = weight0 * kMode0[k][j] + weight1 * kMode1[k][j];
      total += p.coefficient[k][j];
    }
    p.sum[j] = 1.0 - total;
    p.inverse[j] = 1.0 / p.sum[j];
  }
  return p;
}

}  // namespace

constexpr LspPredictor kSpeechPredictor[kPredictorModes] = {blend(1.0, 0.0), blend(0.0, 1.0)};
constexpr LspPredictor kNoisePredictor[kPredictorModes] = {blend(1.0, 0.0), blend(0.6, 0.4)};

}  // namespace KELG729F_TARGET
}  // namespace g729
