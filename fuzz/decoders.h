// One stream decoded by a handle that can be looked into, and by every other build of the codec
// that this machine runs.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "codec/dispatch.h"
#include "codec/frame_coder.h"
#include "fuzz/input.h"

namespace fuzz {

// Of frames in one input: keeps every input fast.
inline constexpr int kMostFrames = 600;

// The builds of the codec that this machine runs, but for the one whose handles are looked into.
inline std::vector<const g729::Target*> other_builds() {
  std::vector<const g729::Target*> builds;
  for (auto target = g729::supported_targets(); *target; ++target)
    if (std::strcmp((*target)->name, KELG729F_TARGET_NAME) != 0) builds.push_back(*target);
  return builds;
}

inline bool all_finite(const double* x, int n) {
  for (int i = 0; i < n; ++i)
    if (!std::isfinite(x[i])) return false;
  return true;
}

class Decoders {
 public:
  Decoders() {
    g729::decoder_core_init(&state_);
    for (const g729::Target* build : other_builds()) builds_.push_back(build->decoder_create());
  }
  ~Decoders() {
    for (G729DecoderState* build : builds_) build->target->decoder_destroy(build);
  }
  Decoders(const Decoders&) = delete;
  Decoders& operator=(const Decoders&) = delete;

  void packed(const uint8_t* bytes, uint32_t size) {
    g729::decode_packed_frame(&state_, bytes, size, samples_);
    for (G729DecoderState* build : builds_) {
      int16_t samples[g729::kFrame];
      build->target->decode_packed(build, bytes, size, samples);
      expect_same(samples);
    }
    expect_sound();
  }
  void serial(const uint16_t* words) {
    g729::SerialFrame frame = {words[0], words[1]};
    std::memcpy(frame.bits, words + 2, sizeof(uint16_t) * frame.size);
    g729::decode_serial_frame(&state_, &frame, samples_);
    for (G729DecoderState* build : builds_) {
      int16_t samples[g729::kFrame];
      build->target->decode_serial(build, words, samples);
      expect_same(samples);
    }
    expect_sound();
  }
  int frames() const { return static_cast<int>(state_.frame_counter); }
  bool full() const { return frames() >= kMostFrames; }

 private:
  void expect_same(const int16_t* samples) {
    expect(std::memcmp(samples, samples_, sizeof samples_) == 0, "all builds decode alike");
  }
  void expect_sound() {
    expect(all_finite(state_.synthesis, g729::kSynthesisPast + g729::kFrame), "finite synthesis");
    expect(all_finite(state_.output, g729::kFrame), "finite output");
    expect(all_finite(state_.old_exc, g729::kExcitationPast + g729::kFrame), "finite excitation");
    expect(all_finite(state_.lsp_old, g729::kOrder), "finite LSPs");
    expect(state_.voicing >= 0 && state_.voicing <= g729::kPitchMax + 3, "post-filter delay");
    // The second subframe's greatest index stands for 143 2/3, written as 144 - 1/3.
    expect(state_.old_t0 >= g729::kPitchMin - 1 && state_.old_t0 <= g729::kPitchMax + 1,
           "pitch lag");
  }

  g729::DecoderCoreState state_;
  int16_t samples_[g729::kFrame];
  std::vector<G729DecoderState*> builds_;
};

}  // namespace fuzz
