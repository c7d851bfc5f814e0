#include "tools/wav_io.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tools/failure.h"

namespace tool {
namespace {

void check_form(const std::string& name, const SF_INFO& info) {
  std::string found;
  if (info.channels != 1) found += std::to_string(info.channels) + " channels";
  if (info.samplerate != kSampleRate) {
    found += (found.empty() ? "" : " at ") + std::to_string(info.samplerate) + " Hz";
  }
  if (!found.empty()) {
    throw Failure(Exit::input, name + ": " + found +
                                   ", but the codec takes 8000 Hz mono; convert it first:"
                                   " sox IN.wav -r 8000 -c 1 -b 16 OUT.wav");
  }
}

// Samples read or written at once: a call for every frame would cost as much as the codec.
constexpr size_t kBlock = 65536;

// Sizes from here on stand for "not known yet" in the headers of programs that write to a pipe.
constexpr uint32_t kUnknownSize = 0x7F000000;

struct Chunk {
  char name[4];
  uint8_t size[4];  // little-endian

  bool is(const char* wanted) const { return std::memcmp(name, wanted, sizeof name) == 0; }
  uint32_t length() const {
    uint32_t length = 0;
    for (int i = 3; i >= 0; --i) length = length << 8 | size[i];
    return length;
  }
};

bool read_chunk(const InputFile& input, uint64_t at, Chunk* chunk) {
  constexpr ssize_t wanted = sizeof *chunk;
  return pread(fileno(input.file()), chunk, sizeof *chunk, static_cast<off_t>(at)) == wanted;
}

// The sound library takes a file that was cut short for a shorter one, so look again.
uint64_t missing_sound(const InputFile& input) {
  Chunk chunk;
  if (!read_chunk(input, 0, &chunk) || !chunk.is("RIFF")) return 0;
  uint64_t at = 12;
  while (read_chunk(input, at, &chunk)) {
    const uint64_t end = at + sizeof chunk + chunk.length();
    if (chunk.is("data")) {
      return chunk.length() < kUnknownSize && end > input.size() ? end - input.size() : 0;
    }
    at = end + end % 2;
  }
  return 0;
}

}  // namespace

WavReader::WavReader(const InputFile& input) : missing_(missing_sound(input)) {
  SF_INFO info{};
  sound_.reset(sf_open_fd(fileno(input.file()), SFM_READ, &info, SF_FALSE));
  if (!sound_) {
    throw Failure(Exit::input, input.name() + ": no WAV file (" +
                                   (input.size() ? sf_strerror(nullptr) : "it is empty") + ")");
  }
  check_form(input.name(), info);
  if (info.frames <= 0) throw Failure(Exit::input, input.name() + ": has no samples");
  samples_ = static_cast<uint64_t>(info.frames);
  sf_command(sound_.get(), SFC_SET_SCALE_FLOAT_INT_READ, nullptr, SF_TRUE);
  sf_command(sound_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

size_t WavReader::read(int16_t* samples, size_t count) {
  size_t done = 0;
  while (done < count) {
    if (next_ == block_.size()) {
      block_.resize(kBlock);
      block_.resize(static_cast<size_t>(sf_readf_short(sound_.get(), block_.data(), kBlock)));
      next_ = 0;
      if (block_.empty()) break;
    }
    const size_t n = std::min(count - done, block_.size() - next_);
    std::copy_n(block_.data() + next_, n, samples + done);
    next_ += n;
    done += n;
  }
  return done;
}

std::vector<int16_t> read_wav(const std::string& path) {
  const InputFile input(path);
  WavReader reader(input);
  // Block by block: a header may claim more samples than memory holds.
  std::vector<int16_t> samples;
  size_t count = kBlock;
  while (count == kBlock) {
    const size_t had = samples.size();
    samples.resize(had + kBlock);
    count = reader.read(samples.data() + had, kBlock);
    samples.resize(had + count);
  }
  return samples;
}

WavWriter::WavWriter(const OutputFile& output, int channels)
    : output_(output), channels_(static_cast<size_t>(channels)) {
  SF_INFO info{};
  info.samplerate = kSampleRate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  sound_.reset(sf_open_fd(fileno(output.file()), SFM_WRITE, &info, SF_FALSE));
  if (!sound_) throw Failure(Exit::output, output.name() + ": " + sf_strerror(nullptr));
}

void WavWriter::write(const int16_t* samples, size_t count) {
  block_.insert(block_.end(), samples, samples + count);
  if (block_.size() >= kBlock) write_block();
}

void WavWriter::write_block() {
  const auto wanted = static_cast<sf_count_t>(block_.size() / channels_);
  if (sf_writef_short(sound_.get(), block_.data(), wanted) != wanted) {
    throw Failure(Exit::output, output_.name() + ": cannot write; is the disk full?");
  }
  block_.clear();
}

void WavWriter::close() {
  write_block();
  sound_.reset();
}

}  // namespace tool
