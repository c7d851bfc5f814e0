#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "codec/decoder/fixed_code_decode.h"
#include "codec/decoder/gain_decode.h"
#include "codec/decoder/lag_decode.h"
#include "codec/decoder/lsp_decode.h"
#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

int thirds(PitchLag lag) {
  return 3 * lag.t0 + lag.frac;
}

TEST(LagDecode, FirstIndexCountsThirdsThenWholes) {
  EXPECT_EQ(thirds(pitch_lag_decode_first(0)), 3 * 19 + 1);
  for (int index = 1; index < 256; ++index) {
    const PitchLag lag = pitch_lag_decode_first(index);
    EXPECT_LE(std::abs(lag.frac), 1);
    EXPECT_EQ(thirds(lag) - thirds(pitch_lag_decode_first(index - 1)), index <= 197 ? 1 : 3)
        << index;
  }
  EXPECT_EQ(pitch_lag_decode_first(255).t0, kPitchMax);
}

TEST(LagDecode, SecondIndexStaysAroundTheFirstLag) {
  for (int first = 19; first <= 144; ++first) {
    const int low = second_lag_min(first);
    EXPECT_EQ(thirds(pitch_lag_decode_second(0, first, kRate8k)), 3 * low - 2);
    for (int index = 1; index < 32; ++index)
      EXPECT_EQ(thirds(pitch_lag_decode_second(index, first, kRate11k8)), 3 * low - 2 + index);
  }
  EXPECT_EQ(second_lag_min(143), 134);
}

// Whole lags at both ends, thirds around the middle; every lag once.
TEST(LagDecode, SecondIndexOf6k4) {
  const int first = 60, low = 55;
  const std::vector<int> expected = {0, 3, 6, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 21, 24, 27};
  for (int index = 0; index < 16; ++index)
    EXPECT_EQ(thirds(pitch_lag_decode_second(index, first, kRate6k4)) - 3 * low, expected[index])
        << index;
}

struct Pulse {
  int position;
  double amplitude;
};

struct CodeCase {
  void (*decode)(const int* words, double* code);
  std::vector<int> words;
  std::vector<Pulse> pulses;
};

TEST(FixedCodeDecode, Vectors) {
  const CodeCase cases[] = {
      {fixed_code_decode_8k, {0, 0}, {{0, -1}, {1, -1}, {2, -1}, {3, -1}}},
      {fixed_code_decode_8k, {0x1FFF, 0xF}, {{35, 1}, {36, 1}, {37, 1}, {39, 1}}},
      {fixed_code_decode_8k,
       {1 | 2 << 3 | 3 << 6 | 0 << 9 | 5 << 10, 6},
       {{5, -1}, {11, 1}, {17, 1}, {28, -1}}},
      // Gray-coded positions: 3 stands for entry 2, 20 for entry 24 (track 1, which repeats 1).
      {fixed_code_decode_6k4, {3 | 20 << 4, 1}, {{6, 1}, {1, -1}}},
      {fixed_code_decode_6k4, {0 | 20 << 4, 3}, {{1, 2}}},
      {fixed_code_decode_6k4, {0 | 20 << 4, 2}, {}},
      // Both pulses: larger position first keeps the sign, smaller first turns it, equal adds.
      {fixed_code_decode_fwd_11k8,
       {7 | 0 << 4, 0 | 7 << 4, 8 | 3 | 3 << 4, 0, 0},
       {{35, 1}, {0, 1}, {1, 1}, {36, -1}, {17, -2}, {3, 2}, {4, 2}}},
      // First track 3: three pulses there and on track 4, two on tracks 0, 1, 2.
      {fixed_code_decode_bwd_11k8,
       {3 << 10 | 2 | 5 << 4 | 1 << 7, 8 | 6 | 6 << 4 | 7 << 7, 0, 0, 4 | 8 | 1 << 4},
       {{13, 1}, {28, -1}, {8, -1}, {34, -2}, {39, 1}, {0, 2}, {1, 2}, {22, -1}, {7, -1}}},
      {fixed_code_decode_bwd_11k8, {7 << 10, 0, 0, 0, 0}, {{4, 3}, {0, 3}, {1, 2}, {2, 2}, {3, 2}}},
  };
  for (const CodeCase& c : cases) {
    double expected[kSubframe] = {}, code[kSubframe];
    for (const Pulse& p : c.pulses) expected[p.position] = p.amplitude;
    c.decode(c.words.data(), code);
    for (int i = 0; i < kSubframe; ++i)
      EXPECT_EQ(code[i], expected[i]) << "case " << &c - cases << " sample " << i;
  }
}

// Only the 6.4 kbit/s history has a floor; entries 0 and 1 of its stages add up to no code at all.
TEST(GainDecode, FloorOf6k4History) {
  const double pulse[kSubframe] = {1};
  GainDecoderState state;
  gain_decode_6k4(0 << 3 | 4, pulse, &state);
  EXPECT_EQ(state.gain_code, 0.0);
  EXPECT_NEAR(state.past_energy.energy[0], 20 * std::log10(0.2), 1e-12);
}

// An erased frame repeats the LSPs, and its residual keeps the predictor consistent: predicting
// from what it pushed gives the same LSFs again.
TEST(LspDecode, ErasureRepeatsTheSpectrum) {
  LspDecoderState state;
  lsp_decoder_init(&state);
  double good[kOrder], repeated[kOrder];
  const int index[2] = {0x80 | 17, 3 << 5 | 21};
  lsp_decode(index, false, &state, good);
  EXPECT_EQ(state.prev_ma_mode, 1);
  for (int i = 1; i < kOrder; ++i) EXPECT_LT(good[i], good[i - 1]);
  LspHistory before = state.lsp_predictor;
  lsp_decode(nullptr, true, &state, repeated);
  EXPECT_TRUE(std::equal(good, good + kOrder, repeated));
  double lsf[kOrder];
  lsp_predict(kSpeechPredictor[1], before, state.lsp_predictor.row[0], lsf);
  for (int i = 0; i < kOrder; ++i) EXPECT_NEAR(lsf[i], state.prev_lsf[i], 1e-12);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
