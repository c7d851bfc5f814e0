// One build's results over a signal, folded into hashes.
#pragma once

#include <cstdint>
#include <vector>

struct GoldenHash {
  uint64_t stream = 0;     // words of the serial frames
  uint64_t synthesis = 0;  // doubles before the post-filter
  uint64_t output = 0;     // doubles after post-filter and output filter
  uint64_t state = 0;      // all doubles that encoder and decoder remember, in any order
  int lossless = 0;        // frames before the first lost one
  int in_step = 0;         // of these, frames whose synthesis is the same in encoder and decoder
  std::vector<uint64_t> states = {};  // the states of each frame
};

// How a signal is coded: the rate (-1: a new one every few frames), silence compression, the share
// of frames that the decoder loses, in 1/64, what makes losses and rates those of another call, and
// the encoder's level (-1: level and silence compression change every few frames too).
struct GoldenPlan {
  int rate;
  bool annexb;
  uint32_t loss;
  uint32_t call = 0;
  int complexity = 0;
};
