// Gain codebooks of clause 3.9.2 and, for 6.4 kbit/s, of Annex D; the index maps of both.
#pragma once

namespace g729 {
inline namespace KELG729F_TARGET {

// A codebook entry: its parts of the pitch gain and of the code-gain correction factor. A
// quantized pair is the sum of one entry of stage A and one of stage B.
struct GainPair {
  double pitch;
  double code;
};
inline constexpr int kGainStageA = 8;
inline constexpr int kGainStageB = 16;    // 8 and 11.8 kbit/s
inline constexpr int kGainStageB6k4 = 8;  // 6.4 kbit/s (Annex D)
extern const GainPair kGainA[kGainStageA];
extern const GainPair kGainB[kGainStageB];
extern const GainPair kGainA6k4[kGainStageA];
extern const GainPair kGainB6k4[kGainStageB6k4];

// Transmitted code of each codebook index (the encoder's maps); the decoder's are their inverses.
extern const int kGainCodeA[kGainStageA];
extern const int kGainCodeB[kGainStageB];
extern const int kGainCodeA6k4[kGainStageA];
extern const int kGainCodeB6k4[kGainStageB6k4];
extern const int kGainIndexA[kGainStageA];
extern const int kGainIndexB[kGainStageB];
extern const int kGainIndexA6k4[kGainStageA];
extern const int kGainIndexB6k4[kGainStageB6k4];

}  // namespace KELG729F_TARGET
}  // namespace g729
