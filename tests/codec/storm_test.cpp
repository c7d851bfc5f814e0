// Storms of random frames of every type, rate and erasure, each followed by good speech: every
// build decodes them to the recorded samples, writes nothing beside them, and is back at the
// speech's level after 50 good frames.
//
// STORM_FRAMES=N runs more of them than the recorded ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "codec/dispatch.h"
#include "codec/g729.h"
#include "tests/support/signals.h"

namespace {

constexpr int kRecordedFrames = 30000;
constexpr uint64_t kRecorded = 0x3EB85658414FAC53;
constexpr int kStreamFrames = 1500;  // of good speech and music, each rate
constexpr int kLongestStorm = 1000;
constexpr int kGoodFrames = 50;          // until the level must be back
constexpr int kLevelFrames = 25;         // over which it is measured
constexpr double kLevelTolerance = 6.0;  // dB
constexpr int16_t kGuard = 0x5A5A;
constexpr uint16_t kBits[] = {64, 80, 118, 16, 0};

using Words = std::vector<uint16_t>;

struct Decoder {
  explicit Decoder(const g729::Target* target) : build(target), handle(build->decoder_create()) {}
  ~Decoder() { build->decoder_destroy(handle); }

  // Returns the energy of what is decoded.
  double decode(const Words& frame) {
    int16_t out[82] = {};
    out[0] = out[81] = kGuard;
    build->decode_serial(handle, frame.data(), out + 1);
    guarded = guarded && out[0] == kGuard && out[81] == kGuard;
    double energy = 0;
    for (int i = 1; i <= 80; ++i) {
      energy += double(out[i]) * out[i];
      hash = (hash ^ static_cast<uint16_t>(out[i])) * 0x100000001B3u;
    }
    return energy;
  }

  const g729::Target* build;
  G729DecoderState* handle;
  bool guarded = true;
  uint64_t hash = 0;
};

// Speech and music at one rate and the energy of their undisturbed frames.
struct Stream {
  std::vector<Words> frames;
  std::vector<double> energies;
};

Stream encode_stream(const g729::Target* build, int rate) {
  const signals::Samples samples =
      signals::join({signals::loud_speech(kStreamFrames - 300, 7), signals::chord(300)});
  Stream stream;
  G729EncoderState* encoder = build->encoder_create(0);
  Decoder decoder(build);
  for (int f = 0; f < kStreamFrames; ++f) {
    uint16_t words[G729_SERIAL_WORDS];
    build->encode_serial(encoder, samples.data() + f * 80, rate, words);
    stream.frames.emplace_back(words, words + 2 + words[1]);
    stream.energies.push_back(decoder.decode(stream.frames.back()));
  }
  build->encoder_destroy(encoder);
  return stream;
}

struct Storm {
  std::mt19937 random{1};
  const Stream* streams;
  int keep_type = 0, erased = 0, manner = 0, type = 0, position = 0;
  uint16_t mode = 0;

  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); }
  uint16_t bit(int ones) { return below(100) < ones ? G729_SERIAL_ONE : G729_SERIAL_ZERO; }

  void begin() {
    const int often[] = {0, 50, 90, 99};  // percent
    keep_type = often[below(4)];
    erased = often[below(4)] * below(2);
    manner = below(5);
  }

  // Random bits, mostly ones or zeros, or the stream with some wrong bits.
  Words next() {
    if (below(100) >= keep_type) {
      type = below(5);
      mode = bit(50);
      position = below(kStreamFrames);
    }
    Words frame(2u + kBits[type], G729_SERIAL_SYNC);
    frame[1] = kBits[type];
    const int ones[] = {50, 97, 3};
    if (manner < 3 || type > 2) {
      for (size_t i = 2; i < frame.size(); ++i) frame[i] = bit(ones[manner % 3]);
      // The mode bits disagree at random otherwise, which erases the frame.
      if (type == 2 && below(8)) frame[2] = frame[3] = mode;
    } else {
      position = (position + 1) % kStreamFrames;
      frame = streams[type].frames[static_cast<size_t>(position)];
      for (int wrong = below(manner); wrong > 0; --wrong)
        frame[2u + static_cast<size_t>(below(frame[1]))] = bit(50);
    }
    if (below(100) >= erased) return frame;
    if (type == 4)
      frame[0] = static_cast<uint16_t>(below(65536));
    else
      frame[2u + static_cast<size_t>(below(frame[1]))] = G729_SERIAL_ERASED;
    return frame;
  }
};

// Level (dB) above that of the undisturbed stream, after some frames of it.
double level_after(const Stream& stream, int first, Decoder* decoder) {
  double found = 0, wanted = 0;
  for (int i = 0; i < kGoodFrames + kLevelFrames; ++i) {
    const auto f = static_cast<size_t>(first + i);
    const double energy = decoder->decode(stream.frames[f]);
    found += i < kGoodFrames ? 0 : energy;
    wanted += i < kGoodFrames ? 0 : stream.energies[f];
  }
  const double floor = signals::kSpeechPower / 100 * 80 * kLevelFrames;  // of pauses
  return 10 * std::log10((found + floor) / (wanted + floor));
}

TEST(Storm, OfRandomFramesEndsInSpeech) {
  const char* wanted = std::getenv("STORM_FRAMES");
  const long long most = wanted ? std::atoll(wanted) : kRecordedFrames;
  for (auto build = g729::supported_targets(); *build; ++build) {
    testing::internal::CaptureStdout();
    const Stream streams[] = {encode_stream(*build, 0), encode_stream(*build, 1),
                              encode_stream(*build, 2)};
    Storm storm{.streams = streams};
    Decoder decoder(*build);
    std::vector<double> levels;
    long long frames = 0;
    while (frames < most) {
      storm.begin();
      for (int left = 1 + storm.below(kLongestStorm); left > 0; --left, ++frames)
        decoder.decode(storm.next());
      const int first = storm.below(kStreamFrames - kGoodFrames - kLevelFrames);
      levels.push_back(level_after(streams[storm.below(3)], first, &decoder));
    }
    std::fflush(stdout);
    const std::string remarks = testing::internal::GetCapturedStdout();
    EXPECT_NE(remarks.find(" ! Wrong Pitch 1st subfr. !   "), std::string::npos);
    const auto off =
        std::ranges::count_if(levels, [](double x) { return !(std::fabs(x) < kLevelTolerance); });
    EXPECT_EQ(off, 0) << "storms of " << levels.size();
    EXPECT_TRUE(decoder.guarded);
    EXPECT_TRUE(wanted || decoder.hash == kRecorded)
        << std::hex << "0x" << decoder.hash << " by " << (*build)->name
        << ": the decoder, or the encoder that made the speech in it";
  }
}

}  // namespace
