// Files of coded frames as the command-line tool reads them: `info` and `decode` on any bytes.
// Either a command fails with its message and leaves no output, or the output is whole.
//
// Input: one byte for the format and the losses to simulate, then the file.
#include <cstdint>
#include <string>

#include "fuzz/scratch.h"
#include "tools/commands.h"
#include "tools/stream_io.h"

void tool::say(const std::string&) {}

namespace {

constexpr uintmax_t kWavHeader = 44;

// Frames in the file, up to its end or its first damage.
uint64_t count_frames(const std::string& path, tool::StreamFormat format, bool* sound) {
  const tool::InputFile input(path);
  tool::FrameReader reader(input, format);
  tool::Frame frame;
  try {
    while (reader.next(&frame)) {
      const int bits = frame.bits();
      fuzz::expect(bits == 0 || bits == 16 || bits == 64 || bits == 80 || bits == 118,
                   "frames that the codec takes");
    }
    *sound = reader.frames() > 0;
  } catch (const tool::Failure&) {
    *sound = false;
  }
  return reader.frames();
}

void check(const fuzz::Scratch& scratch, const std::string& stream, const char* format, int loss) {
  bool sound;
  const uint64_t frames = count_frames(
      stream, *format == 'b' ? tool::StreamFormat::serial : tool::StreamFormat::packed, &sound);
  tool::InfoOptions info;
  info.names = {stream};
  info.format = format;
  const tool::Exit informed = tool::run_info(info);
  tool::DecodeOptions options;
  options.names = {stream, scratch.path("out.wav")};
  options.format = format;
  options.loss = loss;
  const tool::Exit decoded = tool::run_decode(options);
  fuzz::expect(informed == decoded, "info and decode agree");
  if (!sound) {
    fuzz::expect(decoded == tool::Exit::input && scratch.files() == 1, "damage leaves no output");
    return;
  }
  fuzz::expect(decoded == tool::Exit::ok || decoded == tool::Exit::truncated, "sound stream");
  fuzz::expect(scratch.size("out.wav") == kWavHeader + 160 * frames, "80 samples a frame");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Scratch scratch;
  fuzz::Input in(data, size);
  const int choice = in.byte();
  const std::string stream = scratch.store("stream", in.rest());
  check(scratch, stream, choice % 2 ? "bit" : "g729", choice / 2 % 4 == 3 ? 40 : 0);
  scratch.clear();
  return 0;
}
