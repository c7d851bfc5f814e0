// WAV files of 8000 Hz, mono, as 16-bit samples.
#ifndef KELG729F_TOOLS_WAV_IO_H
#define KELG729F_TOOLS_WAV_IO_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/files.h"

namespace tool {

inline constexpr int kSampleRate = 8000;

struct SoundCloser {
  void operator()(SNDFILE* sound) const { sf_close(sound); }
};

class WavReader {
 public:
  // Throws Failure for a file that is no sound file, or not of 8000 Hz and one channel.
  explicit WavReader(const InputFile& input);

  uint64_t samples() const { return samples_; }
  // How much sound the header promises and the file does not hold, in bytes.
  uint64_t missing_bytes() const { return missing_; }
  // Returns how many samples there were, less than count only at the end.
  size_t read(int16_t* samples, size_t count);

 private:
  std::unique_ptr<SNDFILE, SoundCloser> sound_;
  uint64_t samples_;
  uint64_t missing_;
  std::vector<int16_t> block_;  // read ahead, next_ of them handed out
  size_t next_ = 0;
};

std::vector<int16_t> read_wav(const std::string& path);

class WavWriter {
 public:
  explicit WavWriter(const OutputFile& output, int channels = 1);

  // The channels' samples by turns; count is of all of them together.
  void write(const int16_t* samples, size_t count);
  // Writes what is left and completes the header.
  void close();

 private:
  void write_block();

  const OutputFile& output_;
  size_t channels_;
  std::unique_ptr<SNDFILE, SoundCloser> sound_;
  std::vector<int16_t> block_;  // to be written
};

}  // namespace tool

#endif
