// WAV files as the command-line tool reads them: `encode` on any bytes, `decode` on its output, and
// `compare`, which holds a file whole. What was encoded decodes to as many frames.
//
// Input: one byte for rate and silence compression, then the file.
#include <cstdint>
#include <string>

#include "fuzz/scratch.h"
#include "tools/commands.h"
#include "tools/wav_io.h"

void tool::say(const std::string&) {}

namespace {

constexpr uintmax_t kWavHeader = 44;
constexpr const char* kRates[] = {"6.4", "8", "11.8"};

// Samples that can be read; none for a file that is refused.
uint64_t count_samples(const std::string& path) {
  try {
    const tool::InputFile input(path);
    tool::WavReader reader(input, tool::SoundForm::any);
    uint64_t count = 0;
    int16_t samples[80];
    while (const size_t more = reader.read(samples, 80)) count += more;
    return count;
  } catch (const tool::Failure&) {
    return 0;
  }
}

void check(const fuzz::Scratch& scratch, const std::string& wav, int choice) {
  const uint64_t samples = count_samples(wav);
  const std::string stream = scratch.path("out.bit"), decoded = scratch.path("out.wav");
  tool::EncodeOptions options;
  options.names = {wav, stream};
  options.rate = kRates[choice % 3];
  options.annexb = choice / 3 % 2;
  const tool::Exit encoded = tool::run_encode(options);
  if (encoded != tool::Exit::ok && encoded != tool::Exit::truncated) {
    fuzz::expect(encoded == tool::Exit::input && scratch.files() == 1, "refused, no output");
    return;
  }
  const uint64_t frames = (samples + 79) / 80;
  if (frames == 0) return;
  tool::DecodeOptions back;
  back.names = {stream, decoded};
  fuzz::expect(tool::run_decode(back) == tool::Exit::ok, "decodes");
  fuzz::expect(scratch.size("out.wav") == kWavHeader + 160 * frames, "80 samples a frame");
  try {
    tool::run_compare({wav, decoded});
  } catch (const tool::Failure&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Scratch scratch;
  fuzz::Input in(data, size);
  const int choice = in.byte();
  check(scratch, scratch.store("in.wav", in.rest()), choice);
  scratch.clear();
  return 0;
}
