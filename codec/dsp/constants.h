// Sizes of the coder (ITU-T G.729 clause 2 and Annex E) and the codes that every module shares.
#pragma once

#include <span>

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kFrame = 80;                      // samples of a 10 ms frame at 8000 Hz
inline constexpr int kSubframes = 2;                   // subframes of a frame
inline constexpr int kSubframe = kFrame / kSubframes;  // samples of a subframe
inline constexpr int kLookAhead = 40;                  // samples the LP analysis sees ahead
inline constexpr int kWindow = 240;                    // samples of the LP analysis window

inline constexpr int kOrder = 10;           // forward LP order
inline constexpr int kCoeffs = kOrder + 1;  // coefficients with the leading a[0] = 1.0
inline constexpr int kBackwardOrder = 30;   // backward LP order (Annex E)
inline constexpr int kBackwardCoeffs = kBackwardOrder + 1;

inline constexpr int kPitchMin = 20;           // lowest integer pitch lag
inline constexpr int kPitchMax = 143;          // highest integer pitch lag
inline constexpr int kInterpolationTaps = 10;  // taps each side of the one-third-sample filter
inline constexpr int kExcitationPast = kPitchMax + kInterpolationTaps + 1;  // past excitation kept

inline constexpr int kMaOrder = 4;         // vectors in the LSF predictor memory
inline constexpr int kSynthesisPast = 65;  // past synthesis kept for the backward analysis

static_assert(kSubframe * kSubframes == kFrame);
static_assert(kExcitationPast == 154);
static_assert(kWindow == 120 + kFrame + kLookAhead);
static_assert(kSubframe % 8 == 0 && kFrame % 8 == 0 && kWindow % 8 == 0,
              "kernels work on eight samples at a time");

// Kernels load eight samples at a time, fastest from a cache line. A signal behind a past of `past`
// samples starts at one when lead(past) samples more stand before them.
inline constexpr int kAlign = 64;
constexpr int lead(int past) {
  return (8 - past % 8) % 8;
}

// A subframe's samples as one block hands them to another.
using Subframe = std::span<const double, kSubframe>;

// Rate of a speech frame.
enum Rate : int { kRate6k4 = 0, kRate8k = 1, kRate11k8 = 2 };

// Type of a frame; a speech frame's type is its rate + 2.
enum FrameType : int {
  kNoTransmission = 0,
  kSid = 1,
  kSpeech6k4 = 2,
  kSpeech8k = 3,
  kSpeech11k8 = 4,
};
static_assert(kSpeech6k4 == kRate6k4 + 2 && kSpeech8k == kRate8k + 2 &&
              kSpeech11k8 == kRate11k8 + 2);

// LP mode of an 11.8 kbit/s frame (Annex E).
enum LpMode : int { kForward = 0, kBackward = 1 };

// LSPs of a flat spectrum, the state of every LSP memory at the start (cosines, decreasing).
inline constexpr double kInitialLsp[kOrder] = {0.9595,  0.8413,  0.6549,  0.4154,  0.1423,
                                               -0.1423, -0.4154, -0.6549, -0.8413, -0.9595};

}  // namespace KELG729F_TARGET
}  // namespace g729
