// What the benchmarks code: real speech where it is installed, else the generator's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// 8000 Hz, mono, 16 bit, whole 10 ms frames; `source` names where it comes from.
struct Speech {
  std::string source;
  std::vector<int16_t> samples;

  int frames() const { return static_cast<int>(samples.size() / 80); }
  // Frame i of the endless repetition.
  const int16_t* frame(int64_t i) const { return samples.data() + i % frames() * 80; }
};

// Every `stride`-th recording of Debian's asterisk-core-sounds-en-wav, one behind the other in the
// order of their names; without the package 60 s of speech-like signal.
Speech load_speech(int stride);

}  // namespace bench
