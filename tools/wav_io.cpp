#include "tools/wav_io.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <numeric>
#include <utility>

#include "tools/failure.h"

namespace tool {
namespace {

void check_telephone(const std::string& name, const SF_INFO& info) {
  std::string found;
  if (info.channels != 1) found += std::to_string(info.channels) + " channels";
  if (info.samplerate != kSampleRate) {
    found += (found.empty() ? "" : " at ") + std::to_string(info.samplerate) + " Hz";
  }
  if (!found.empty()) {
    throw Failure(Exit::input, name + ": " + found +
                                   ", but only 8000 Hz mono can be compared; convert it first:"
                                   " sox IN.wav -r 8000 -c 1 -b 16 OUT.wav");
  }
}

// No recording has others; a header that was made up could ask for any amount of work.
void check_rate(const std::string& name, const SF_INFO& info) {
  constexpr int kLowest = 1000, kHighest = 768000;
  if (info.samplerate >= kLowest && info.samplerate <= kHighest) return;
  throw Failure(Exit::input, name + ": has " + std::to_string(info.samplerate) +
                                 " Hz; sample rates from 1000 to 768000 Hz are converted");
}

int16_t to_sample(float value) {
  return static_cast<int16_t>(std::lrint(std::clamp(value * 32768.0F, -32768.0F, 32767.0F)));
}

// Samples read or written at once: a call for every frame would cost as much as the codec.
constexpr size_t kBlock = BUFSIZ;

// Sizes from here on stand for "not known yet" in the headers of programs that write to a pipe.
constexpr uint32_t kUnknownSize = 0x7F000000;

// Sizes are 32 bits, and the header counts too.
constexpr uint64_t kLongestWav = 0xFFFFFF00;

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

WavReader::WavReader(const InputFile& input, SoundForm form) {
  SF_INFO info{};
  if (form == SoundForm::raw) {
    info.samplerate = kSampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;
    missing_ = input.size() % 2;
  } else {
    missing_ = missing_sound(input);
  }
  sound_.reset(sf_open_fd(fileno(input.file()), SFM_READ, &info, SF_FALSE));
  if (!sound_) {
    throw Failure(Exit::input, input.name() + ": no WAV file (" +
                                   (input.size() ? sf_strerror(nullptr) : "it is empty") + ")");
  }
  if (form == SoundForm::telephone) check_telephone(input.name(), info);
  check_rate(input.name(), info);
  channels_ = static_cast<size_t>(info.channels);
  ratio_ = static_cast<double>(kSampleRate) / info.samplerate;
  samples_ = static_cast<uint64_t>(std::llround(static_cast<double>(info.frames) * ratio_));
  if (info.samplerate == kSampleRate) return;
  resampler_.reset(src_new(SRC_SINC_MEDIUM_QUALITY, 1, nullptr));
  if (!resampler_) throw std::bad_alloc();
}

// Floats hold samples of 16 bits as they are; the library would scale others to the loudest one.
void WavReader::read_mixed() {
  std::vector<float> all(kBlock * channels_);
  mixed_.resize(static_cast<size_t>(sf_readf_float(sound_.get(), all.data(), kBlock)));
  ended_ = mixed_.empty();
  auto frame = all.begin();
  for (float& mean : mixed_) {
    const auto next = frame + static_cast<ptrdiff_t>(channels_);
    mean = std::accumulate(frame, next, 0.0F) / static_cast<float>(channels_);
    frame = next;
  }
}

// Of what is mixed, as much as fits the result, at 8000 Hz.
std::vector<float> WavReader::convert() {
  if (!resampler_) return std::exchange(mixed_, {});
  std::vector<float> converted(kBlock);
  SRC_DATA data{};
  data.data_in = mixed_.data();
  data.input_frames = std::ssize(mixed_);
  data.data_out = converted.data();
  data.output_frames = std::ssize(converted);
  data.end_of_input = ended_;
  data.src_ratio = ratio_;
  const int error = src_process(resampler_.get(), &data);
  if (error) throw Failure(Exit::other, src_strerror(error));
  mixed_.erase(mixed_.begin(), mixed_.begin() + data.input_frames_used);
  converted.resize(static_cast<size_t>(data.output_frames_gen));
  return converted;
}

// Fills the block, or leaves it empty at the end.
void WavReader::read_block() {
  next_ = 0;
  block_.clear();
  while (block_.empty()) {
    if (mixed_.empty()) read_mixed();
    const std::vector<float> made = convert();
    block_.resize(made.size());
    std::ranges::transform(made, block_.begin(), to_sample);
    if (ended_ && block_.empty()) return;
  }
}

size_t WavReader::read(int16_t* samples, size_t count) {
  size_t done = 0;
  while (done < count) {
    if (next_ == block_.size()) {
      read_block();
      if (block_.empty()) break;
    }
    const size_t n = std::min(count - done, block_.size() - next_);
    std::copy_n(block_.data() + next_, n, samples + done);
    next_ += n;
    done += n;
  }
  return done;
}

std::vector<int16_t> read_telephone_wav(const std::string& path) {
  const InputFile input(path);
  WavReader reader(input, SoundForm::telephone);
  // Block by block: a header may claim more samples than memory holds, or than the file has bytes.
  std::vector<int16_t> samples;
  std::array<int16_t, kBlock> block;
  while (const size_t count = reader.read(block.data(), block.size())) {
    samples.insert(samples.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(count));
  }
  return samples;
}

WavWriter::WavWriter(const OutputFile& output, int channels, bool raw)
    : output_(output), channels_(static_cast<size_t>(channels)), raw_(raw) {
  SF_INFO info{};
  info.samplerate = kSampleRate;
  info.channels = channels;
  info.format =
      raw ? SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE : SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  sound_.reset(sf_open_fd(fileno(output.file()), SFM_WRITE, &info, SF_FALSE));
  if (!sound_) throw Failure(Exit::output, output.name() + ": " + sf_strerror(nullptr));
}

void WavWriter::write(const int16_t* samples, size_t count) {
  written_ += 2 * count;
  if (!raw_ && written_ > kLongestWav) {
    throw Failure(Exit::output, output_.name() + ": more than a WAV file holds; use --raw");
  }
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
