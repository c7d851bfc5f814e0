// What a coded frame carries: the fields that encoder and decoder exchange (clause 4 and Annexes B,
// D and E).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// The four fields of a silence descriptor.
struct SidParameters {
  int mode;    // noise predictor, 0 or 1
  int first;   // 5-bit pointer to a first-stage row
  int second;  // 4-bit pointer to a pair of second-stage rows
  int energy;  // 5-bit energy index
};

inline constexpr int kMaxCodeWords = 5;

// Words of a subframe's innovation in a frame of the given type.
constexpr int code_words(FrameType type) {
  return type == kSpeech11k8 ? kMaxCodeWords : 2;
}

struct SubframeParameters {
  int lag;                  // pitch index, in the second subframe relative to the first's lag
  int parity;               // of the first subframe's lag; not sent at 6.4 kbit/s
  int code[kMaxCodeWords];  // innovation: positions and signs, at 11.8 kbit/s a word a track
  int gain;                 // index of both gains
};

// Which fields a frame has depends on its type; reading a frame leaves the others as they were.
struct ParameterSet {
  FrameType type = kNoTransmission;
  LpMode lp_mode = kForward;  // of a frame at 11.8 kbit/s
  int lsp[2] = {};            // not in backward mode
  SubframeParameters subframe[kSubframes] = {};
  SidParameters sid = {};
  int first_field = 0;  // as last read, whatever it was: a lost frame's passes for its LP mode
};

}  // namespace KELG729F_TARGET
}  // namespace g729
