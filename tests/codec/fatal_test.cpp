// Callers who break the frame interface: each ends the process with status 255 and its text, and
// nothing else, on standard output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "codec/bitstream.h"
#include "codec/dsp/constants.h"
#include "codec/g729.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int16_t kSilence[kFrame] = {};

void encode(int value) {
  uint16_t serial[G729_SERIAL_WORDS];
  g729_encoder_encode_serial(g729_encoder_create(0), kSilence, value, serial);
}
void write_frame(int value) {
  SerialFrame serial;
  parameters_to_serial({.type = static_cast<FrameType>(value)}, &serial);
}
void decode_bytes(int value) {
  const uint8_t bytes[G729_SERIAL_WORDS] = {};
  int16_t samples[kFrame];
  g729_decoder_decode_frame(g729_decoder_create(), bytes, static_cast<uint32_t>(value), samples);
}
void decode_words(int value) {
  const uint16_t serial[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, static_cast<uint16_t>(value)};
  int16_t samples[kFrame];
  g729_decoder_decode_serial(g729_decoder_create(), serial, samples);
}

constexpr char kBitRate[] = "Unrecognized bit rate\n";
constexpr char kFrameType[] = "Unrecognized frame type\n";
constexpr char kSerialSize[] = "Unrecognized frame type: uncorrect value of serial_size\n";

TEST(FatalDeathTest, EveryBrokenCallEndsTheProcessWithItsText) {
  const struct {
    void (*call)(int);
    int value;
    const char* text;
  } cases[] = {
      {encode, -1, kBitRate},           {encode, 3, kBitRate},
      {write_frame, -1, kFrameType},    {write_frame, 5, kFrameType},
      {decode_bytes, 1, kSerialSize},   {decode_bytes, 9, kSerialSize},
      {decode_bytes, 15, kSerialSize},  {decode_words, 1, kSerialSize},
      {decode_words, 15, kSerialSize},  {decode_words, 117, kSerialSize},
      {decode_words, 120, kSerialSize}, {decode_words, 32767, kSerialSize},
      {decode_words, -1, kSerialSize},
  };
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          dup2(STDERR_FILENO, STDOUT_FILENO);
          c.call(c.value);
        },
        testing::ExitedWithCode(255), std::string("^") + c.text + "$")
        << c.value;
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
