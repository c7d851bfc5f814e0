// Storms of random serial frames of every type, rate and erasure, each followed by good speech.
//
// usage: random-frames [frames] [seed]
//
// Fails when a value in the decoder stops being finite, when a word beside the samples is written,
// or when the decoder is not back at speech level 50 good frames after a storm. Frames lie in heap
// blocks of their own size, so that AddressSanitizer sees a read beyond one.
#include "tests/codec/decoder/random_frames.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>
#include <vector>

#include "codec/decoder_handle.h"
#include "codec/encoder_handle.h"
#include "tests/support/signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kGoodFrames = 50;      // until the level must be back
constexpr int kLevelFrames = 25;     // over which it is measured
constexpr int kStreamFrames = 3000;  // of good speech, each rate
constexpr int kLongestStorm = 1000;
constexpr int kRates = 3;
constexpr double kLevelTolerance = 6.0;                        // dB
constexpr double kPausePower = signals::kSpeechPower / 100.0;  // fainter stretches count as this
constexpr int16_t kGuard = 0x5A5A;

using Words = std::vector<uint16_t>;

class Decoder {
 public:
  Decoder() {
    decoder_init(&handle_);
    guarded_[0] = guarded_[kFrame + 1] = kGuard;
  }

  void serial(const Words& frame) {
    decode_serial_frame(&handle_, frame.data(), guarded_ + 1);
    check();
  }
  void packed(const Words& frame) {
    const std::vector<uint8_t> bytes = packed_bytes(frame.data());
    decode_packed_frame(&handle_, bytes.empty() ? nullptr : bytes.data(),
                        static_cast<uint32_t>(bytes.size()), guarded_ + 1);
    check();
  }
  double energy() const {
    double sum = 0;
    for (int i = 1; i <= kFrame; ++i) sum += double(guarded_[i]) * guarded_[i];
    return sum;
  }
  bool sound() const { return sound_; }

 private:
  void check() {
    sound_ = sound_ && guarded_[0] == kGuard && guarded_[kFrame + 1] == kGuard;
    const DecoderCoreState& core = handle_.core;
    for (const std::span<const double> values : {std::span<const double>(handle_.output),
                                                 {handle_.synthesis},
                                                 {core.old_exc},
                                                 {core.lsp_old},
                                                 {core.lsp.prev_lsf},
                                                 {core.frozen_a},
                                                 {&core.sharp, 1},
                                                 {&core.gains.gain_pitch, 1},
                                                 {&core.gains.gain_code, 1},
                                                 {&core.frame_energy, 1}})
      sound_ = sound_ &&
               std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
  }

  DecoderHandle handle_;
  int16_t guarded_[kFrame + 2] = {};
  bool sound_ = true;
};

// Speech at one rate and the energy of its undisturbed frames.
struct Speech {
  std::vector<Words> frames;
  std::vector<double> energies;
};

Speech encode_speech(int rate) {
  const signals::Samples samples = signals::loud_speech(kStreamFrames, 7);
  Speech speech;
  static EncoderHandle encoder;
  encoder_init(&encoder, false);
  Decoder decoder;
  for (int f = 0; f < kStreamFrames; ++f) {
    uint16_t serial[kSerialWords];
    encode_serial_frame(&encoder, samples.data() + f * kFrame, rate, serial);
    speech.frames.emplace_back(serial, serial + 2 + serial[1]);
    decoder.serial(speech.frames.back());
    speech.energies.push_back(decoder.energy());
  }
  return speech;
}

// One storm's manner, drawn anew for each.
class Storm {
 public:
  Storm(std::mt19937* random, const Speech* speech) : random_(*random), speech_(speech) {
    length_ = 1 + below(kLongestStorm);
    keep_type_ = kOften[below(4)];
    erased_ = kOften[below(4)] * below(2);
    kind_ = below(5);
  }

  int length() const { return length_; }
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

  Words next() {
    if (frame_.empty() || below(100) >= keep_type_) choose_type();
    fill();
    Words frame = frame_;
    if (below(100) < erased_) erase(&frame);
    return frame;
  }

 private:
  static constexpr int kOften[4] = {0, 50, 90, 99};  // percent
  static constexpr int kSizes[5] = {0, kSidBits, kBits6k4, kBits8k, kBits11k8};

  void choose_type() {
    frame_.assign(2, kSyncWord);
    frame_[1] = static_cast<uint16_t>(kSizes[below(5)]);
    frame_.resize(2u + frame_[1], kBitZero);
    for (size_t i = 2; i < frame_.size(); ++i) frame_[i] = random_bit(50);
    position_ = below(kStreamFrames);
  }

  // Random bits, mostly ones or zeros, the same frame again, or speech with some wrong bits.
  void fill() {
    const int ones[3] = {50, 97, 3};
    if (kind_ < 3) {
      for (size_t i = 2; i < frame_.size(); ++i) frame_[i] = random_bit(ones[kind_]);
    } else if (kind_ == 4 && frame_[1] >= kBits6k4) {
      const int rate = frame_[1] == kBits6k4 ? 0 : frame_[1] == kBits8k ? 1 : 2;
      position_ = (position_ + 1) % kStreamFrames;
      frame_ = speech_[rate].frames[static_cast<size_t>(position_)];
      for (int wrong = below(6); wrong > 0; --wrong)
        frame_[2 + static_cast<size_t>(below(frame_[1]))] = random_bit(50);
    }
    // The mode bits of 11.8 kbit/s disagree at random otherwise, which erases the frame.
    if (frame_[1] == kBits11k8 && below(8)) frame_[3] = frame_[2];
  }

  void erase(Words* frame) {
    if (frame->size() == 2)
      (*frame)[0] = static_cast<uint16_t>(below(65536));
    else
      (*frame)[2 + static_cast<size_t>(below((*frame)[1]))] = kBitErased;
  }

  uint16_t random_bit(int percent) { return below(100) < percent ? kBitOne : kBitZero; }

  std::mt19937& random_;
  const Speech* speech_;
  int length_, keep_type_, erased_, kind_;
  int position_ = 0;
  Words frame_;
};

void run_storm(Storm* storm, Decoder* decoder) {
  for (int i = 0; i < storm->length(); ++i) {
    const Words frame = storm->next();
    const bool whole = frame[1] % 8 == 0 && frame[0] == kSyncWord;
    if (whole && storm->below(8) == 0 &&
        std::find(frame.begin() + 2, frame.end(), kBitErased) == frame.end())
      decoder->packed(frame);
    else
      decoder->serial(frame);
  }
}

// Level (dB) above that of the undisturbed speech, after kGoodFrames of it.
double level_after(const Speech& speech, int first, Decoder* decoder) {
  double found = 0, wanted = 0;
  for (int i = 0; i < kGoodFrames + kLevelFrames; ++i) {
    const size_t f = static_cast<size_t>(first + i);
    decoder->serial(speech.frames[f]);
    if (i < kGoodFrames) continue;
    found += decoder->energy();
    wanted += speech.energies[f];
  }
  const double floor = kPausePower * kFrame * kLevelFrames;
  return 10 * std::log10((found + floor) / (wanted + floor));
}

struct Outcome {
  long long frames = 0, storms = 0, unsound = 0, off_level = 0;
  double lowest = 0, highest = 0;  // dB
};

Outcome run(long long count, uint32_t seed) {
  std::mt19937 random(seed);
  const Speech speech[kRates] = {encode_speech(kRate6k4), encode_speech(kRate8k),
                                 encode_speech(kRate11k8)};
  Outcome outcome;
  Decoder decoder;
  while (outcome.frames < count) {
    Storm storm(&random, speech);
    run_storm(&storm, &decoder);
    const int rate = storm.below(kRates);
    const int first = storm.below(kStreamFrames - kGoodFrames - kLevelFrames);
    const double level = level_after(speech[rate], first, &decoder);
    outcome.frames += storm.length();
    ++outcome.storms;
    outcome.lowest = std::min(outcome.lowest, level);
    outcome.highest = std::max(outcome.highest, level);
    if (!(std::fabs(level) < kLevelTolerance)) {
      ++outcome.off_level;
      std::fprintf(stderr, "storm %lld (%d frames): %+.1f dB after %d good frames at rate %d\n",
                   outcome.storms, storm.length(), level, kGoodFrames, rate);
    }
    if (!decoder.sound()) {
      ++outcome.unsound;
      std::fprintf(stderr, "storm %lld: not finite, or samples overrun\n", outcome.storms);
      decoder = Decoder();
    }
  }
  return outcome;
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729

int main(int argc, char** argv) {
  const long long count = argc > 1 ? std::atoll(argv[1]) : 100000;
  const uint32_t seed = argc > 2 ? static_cast<uint32_t>(std::atoll(argv[2])) : 1;
  if (!std::freopen("/dev/null", "w", stdout)) return 2;  // the decoder's warnings
  const auto outcome = g729::run(count, seed);
  std::fprintf(stderr,
               "%lld random frames in %lld storms: not finite or overrun after %lld, off level "
               "after %lld, level afterwards %+.1f to %+.1f dB\n",
               outcome.frames, outcome.storms, outcome.unsound, outcome.off_level, outcome.lowest,
               outcome.highest);
  return outcome.unsound || outcome.off_level ? 1 : 0;
}
