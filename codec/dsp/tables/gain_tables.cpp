#include "codec/dsp/tables/gain_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// clang-format off
const GainPair kGainA[kGainStageA] = {
    {0.00001, 0.185084}, {0.094719, 0.296035}, {0.111779, 0.613122}, {0.003516, 0.65978},
    {0.117258, 1.134277}, {0.197901, 1.214512}, {0.021772, 1.801288}, {0.163457, 3.3157},
};
const GainPair kGainB[kGainStageB] = {
    {0.050466, 0.244769}, {0.121711, 0.00001}, {0.313871, 0.072357}, {0.375977, 0.292399},
    {0.49387, 0.59341}, {0.556641, 0.064087}, {0.645363, 0.362118}, {0.706138, 0.14611},
    {0.809357, 0.397579}, {0.866379, 0.199087}, {0.923602, 0.599938}, {0.925376, 1.742757},
    {0.942028, 0.029027}, {0.983459, 0.414166}, {1.055892, 0.227186}, {1.158039, 0.724592},
};
const GainPair kGainA6k4[kGainStageA] = {
    {0.357003, 0.0}, {0.178752, 0.065771}, {0.575276, 0.166704}, {0.370335, 0.371903},
    {0.220734, 0.411803}, {0.193548, 0.566385}, {0.238962, 0.785625}, {0.304379, 1.360714},
};
const GainPair kGainB6k4[kGainStageB6k4] = {
    {0.0, 0.254841}, {0.243384, 0.0}, {0.273293, 0.447009}, {0.480707, 0.477384},
    {0.628117, 0.694884}, {0.660905, 1.684719}, {0.729735, 0.655223}, {1.002375, 0.959743},
};

const int kGainCodeA[kGainStageA] = {5, 1, 4, 7, 3, 0, 6, 2};
const int kGainCodeB[kGainStageB] = {4, 6, 0, 2, 12, 14, 8, 10, 15, 11, 9, 13, 7, 3, 1, 5};
const int kGainCodeA6k4[kGainStageA] = {0, 4, 6, 5, 2, 1, 7, 3};
const int kGainCodeB6k4[kGainStageB6k4] = {0, 4, 3, 7, 5, 1, 6, 2};
const int kGainIndexA[kGainStageA] = {5, 1, 7, 4, 2, 0, 6, 3};
const int kGainIndexB[kGainStageB] = {2, 14, 3, 13, 0, 15, 1, 12, 6, 10, 7, 9, 4, 11, 5, 8};
const int kGainIndexA6k4[kGainStageA] = {0, 5, 4, 7, 1, 3, 2, 6};
const int kGainIndexB6k4[kGainStageB6k4] = {0, 5, 7, 2, 1, 4, 6, 3};
// clang-format on

}  // namespace KELG729F_TARGET
}  // namespace g729
