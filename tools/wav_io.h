// Sound files as 16-bit samples of 8000 Hz.
#ifndef KELG729F_TOOLS_WAV_IO_H
#define KELG729F_TOOLS_WAV_IO_H

#include <samplerate.h>
#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/files.h"

namespace tool {

inline constexpr int kSampleRate = 8000;

struct SoundCloser {
  void operator()(SNDFILE* sound) const { sf_close(sound); }
};

struct ResamplerDeleter {
  void operator()(SRC_STATE* resampler) const { src_delete(resampler); }
};

enum class SoundForm {
  telephone,  // 8000 Hz and one channel, or else refused
  any,        // every rate that can be converted; channels are mixed by their mean
  raw         // 16-bit little-endian samples of 8000 Hz, one channel, without a header
};

class WavReader {
 public:
  // Throws Failure for a file that is no sound file, or not of the form.
  WavReader(const InputFile& input, SoundForm form);

  // As many as will be read, to within one.
  uint64_t samples() const { return samples_; }
  // How much sound the header promises and the file does not hold, in bytes.
  uint64_t missing_bytes() const { return missing_; }
  // Returns how many samples there were, less than count only at the end.
  size_t read(int16_t* samples, size_t count);

 private:
  void read_block();
  void read_mixed();
  std::vector<float> convert();

  std::unique_ptr<SNDFILE, SoundCloser> sound_;
  size_t channels_;
  double ratio_;                                            // of 8000 Hz to the file's rate
  std::unique_ptr<SRC_STATE, ResamplerDeleter> resampler_;  // none at 8000 Hz
  uint64_t samples_;
  uint64_t missing_;
  std::vector<float> mixed_;  // one channel at the file's rate, not converted yet
  bool ended_ = false;
  std::vector<int16_t> block_;  // read ahead, next_ of them handed out
  size_t next_ = 0;
};

std::vector<int16_t> read_telephone_wav(const std::string& path);

class WavWriter {
 public:
  // raw: without a header.
  WavWriter(const OutputFile& output, int channels, bool raw);

  // The channels' samples by turns; count is of all of them together.
  void write(const int16_t* samples, size_t count);
  // Writes what is left and completes the header.
  void close();

 private:
  void write_block();

  const OutputFile& output_;
  size_t channels_;
  bool raw_;
  uint64_t written_ = 0;  // bytes
  std::unique_ptr<SNDFILE, SoundCloser> sound_;
  std::vector<int16_t> block_;  // to be written
};

}  // namespace tool

#endif
