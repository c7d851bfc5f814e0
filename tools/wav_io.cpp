#include "tools/wav_io.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

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
constexpr size_t kBlock = 65536;

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
    info = {0, kSampleRate, 1, SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 0, 0};
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
  if (info.frames <= 0) throw Failure(Exit::input, input.name() + ": has no samples");
  channels_ = static_cast<size_t>(info.channels);
  ratio_ = static_cast<double>(kSampleRate) / info.samplerate;
  samples_ = static_cast<uint64_t>(std::llround(static_cast<double>(info.frames) * ratio_));
  sf_command(sound_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
  // The library would scale such a file to its loudest sample.
  const int coding = info.format & SF_FORMAT_SUBMASK;
  floats_ = coding == SF_FORMAT_FLOAT || coding == SF_FORMAT_DOUBLE;
  if (info.samplerate == kSampleRate) return;
  int error = 0;
  resampler_.reset(src_new(SRC_SINC_MEDIUM_QUALITY, 1, &error));
  if (!resampler_) throw Failure(Exit::other, src_strerror(error));
}

// Samples that need no conversion come as they are.
void WavReader::read_block() {
  next_ = 0;
  if (channels_ > 1 || resampler_ || floats_) {
    convert_block();
    return;
  }
  block_.resize(kBlock);
  block_.resize(static_cast<size_t>(sf_readf_short(sound_.get(), block_.data(), kBlock)));
}

void WavReader::read_mixed() {
  std::vector<float> all(kBlock / channels_ * channels_);
  const auto wanted = static_cast<sf_count_t>(kBlock / channels_);
  const auto count = static_cast<size_t>(sf_readf_float(sound_.get(), all.data(), wanted));
  ended_ = count == 0;
  for (size_t i = 0; i < count; ++i) {
    float sum = 0;
    for (size_t c = 0; c < channels_; ++c) sum += all[i * channels_ + c];
    mixed_.push_back(sum / static_cast<float>(channels_));
  }
}

// Fills the block, or leaves it empty at the end.
void WavReader::convert_block() {
  block_.clear();
  std::vector<float> converted(kBlock);
  while (block_.empty()) {
    if (mixed_.empty() && !ended_) read_mixed();
    size_t used = mixed_.size();
    size_t made = used;
    if (resampler_) {
      SRC_DATA data{mixed_.data(),
                    converted.data(),
                    static_cast<long>(mixed_.size()),
                    static_cast<long>(kBlock),
                    0,
                    0,
                    ended_,
                    ratio_};
      if (const int error = src_process(resampler_.get(), &data); error != 0) {
        throw Failure(Exit::other, src_strerror(error));
      }
      used = static_cast<size_t>(data.input_frames_used);
      made = static_cast<size_t>(data.output_frames_gen);
    } else {
      converted = mixed_;
    }
    for (size_t i = 0; i < made; ++i) block_.push_back(to_sample(converted[i]));
    mixed_.erase(mixed_.begin(), mixed_.begin() + static_cast<ptrdiff_t>(used));
    if (ended_ && made == 0) return;
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
  samples.reserve(std::min(reader.samples(), input.size()) + 2 * kBlock);
  size_t count = kBlock;
  while (count == kBlock) {
    const size_t had = samples.size();
    samples.resize(had + kBlock);
    count = reader.read(samples.data() + had, kBlock);
    samples.resize(had + count);
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
