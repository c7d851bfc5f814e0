// The encoder fed with any samples at changing rates and levels, with and without silence
// compression. What holds: frames that the decoder takes, the same from every build, and the
// encoder's local synthesis equal to the decoder's, double for double.
//
// Input: one byte for silence compression, then steps of one byte for signal, rate, level and a
// turn of silence compression, one for the count of frames, and what the signal needs.
#include <cstdint>
#include <cstring>
#include <vector>

#include "codec/dispatch.h"
#include "codec/frame_coder.h"
#include "fuzz/decoders.h"

namespace {

using g729::kFrame;

constexpr int kMostFrames = 120;

class Call {
 public:
  explicit Call(bool annexb) : annexb_(annexb) {
    g729::encoder_core_init(&encoder_, annexb);
    g729::decoder_core_init(&decoder_);
    for (const g729::Target* build : fuzz::other_builds())
      builds_.push_back(build->encoder_create(annexb));
  }
  ~Call() { drop_builds(); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void set_complexity(int level) {
    encoder_.complexity = level;
    for (G729EncoderState* build : builds_) build->target->set_complexity(build, level);
  }

  // Only here: a handle is made with or without it, so the other builds' part ends.
  void turn_annexb() {
    annexb_ = !annexb_;
    encoder_.dtx_enabled = annexb_;
    drop_builds();
  }

  void frame(const int16_t* samples, g729::Rate rate) {
    g729::SerialFrame serial;
    g729::encode_serial_frame(&encoder_, samples, rate, &serial);
    expect_size(serial, rate);
    for (G729EncoderState* build : builds_) {
      uint16_t words[G729_SERIAL_WORDS] = {};
      build->target->encode_serial(build, samples, rate, words);
      fuzz::expect(std::memcmp(words, &serial, 2 * (2 + size_t{serial.size})) == 0,
                   "all builds encode alike");
    }
    int16_t out[kFrame];
    g729::decode_serial_frame(&decoder_, &serial, out);
    expect_in_step();
  }
  bool full() const { return decoder_.frame_counter >= kMostFrames; }

 private:
  void drop_builds() {
    for (G729EncoderState* build : builds_) build->target->encoder_destroy(build);
    builds_.clear();
  }
  void expect_size(const g729::SerialFrame& serial, g729::Rate rate) const {
    const int bits = serial.size;
    fuzz::expect(serial.sync == g729::kSyncWord, "sync word");
    fuzz::expect(bits == g729::kFrameBits[rate + 2] ||
                     (annexb_ && (bits == 0 || bits == g729::kFrameBits[g729::kSid])),
                 "bits of the rate, or of silence");
  }
  void expect_in_step() const {
    const double* encoded = encoder_.synthesis + g729::kSynthesisPast;
    const double* decoded = decoder_.synthesis + g729::kSynthesisPast;
    fuzz::expect(fuzz::all_finite(encoded, kFrame), "finite synthesis");
    fuzz::expect(fuzz::all_finite(decoder_.output, kFrame), "finite output");
    for (int i = 0; i < kFrame; ++i)
      fuzz::expect(encoded[i] == decoded[i], "encoder and decoder in step");
  }

  bool annexb_;
  g729::EncoderCoreState encoder_;
  g729::DecoderCoreState decoder_;
  std::vector<G729EncoderState*> builds_;
};

// A formula's samples, or the input's own.
class Signal {
 public:
  Signal(int kind, fuzz::Input* in) : kind_(kind), noise_(static_cast<uint32_t>(kind)) {
    level_ = static_cast<int16_t>(in->word());
    period_ = 1 + in->byte();
    if (kind_ == 0) own_ = in->bytes(kFrame);
  }

  void frame(int16_t* samples) {
    for (int i = 0; i < kFrame; ++i, ++n_) samples[i] = sample(i);
  }

 private:
  int16_t sample(int i) {
    switch (kind_) {
      case 0:
        return static_cast<int16_t>((own_[static_cast<size_t>(i)] - 128) * period_);
      case 1:
        return level_;
      case 2:
        return static_cast<int16_t>(noise_.next() % 65536 * level_ >> 16);
      case 3:
        return n_ / period_ % 2 ? level_ : static_cast<int16_t>(~level_);
      case 4:
        return n_ % period_ == 0 ? level_ : int16_t{0};
      case 5:
        return static_cast<int16_t>(n_ % period_ * level_ / period_);
      default:
        return static_cast<int16_t>(noise_.next());
    }
  }

  int kind_, period_ = 1, n_ = 0;
  int16_t level_ = 0;
  fuzz::Noise noise_;
  std::vector<uint8_t> own_;
};

void step(fuzz::Input* in, Call* call) {
  const int choice = in->byte();
  const int frames = 1 + in->byte() / 8;
  Signal signal(choice / 3 % 7, in);
  call->set_complexity(choice / 21 % (1 + G729_COMPLEXITY_MAX));
  if (choice / 84 == 1) call->turn_annexb();
  for (int f = 0; f < frames && !call->full(); ++f) {
    int16_t samples[kFrame];
    signal.frame(samples);
    call->frame(samples, static_cast<g729::Rate>(choice % 3));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  Call call(in.byte() % 2);
  while (!in.done() && !call.full()) step(&in, &call);
  return 0;
}
