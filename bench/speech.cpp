#include "bench/speech.h"

#include <algorithm>
#include <filesystem>
#include <sndfile.hh>
#include <system_error>

#include "tests/support/signals.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/usr/share/asterisk/sounds/en_US_f_Allison";
constexpr int kGeneratedFrames = 6000;

std::vector<fs::path> recordings() {
  std::vector<fs::path> paths;
  std::error_code none;
  for (const auto& entry : fs::recursive_directory_iterator(kFolder, none))
    if (entry.path().extension() == ".wav") paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  return paths;
}

void append(const fs::path& path, std::vector<int16_t>* samples) {
  SndfileHandle file(path.string());
  if (file.error() || file.samplerate() != 8000 || file.channels() != 1) return;
  std::vector<int16_t> part(static_cast<size_t>(file.frames()));
  part.resize(static_cast<size_t>(file.read(part.data(), file.frames())));
  samples->insert(samples->end(), part.begin(), part.end());
}

}  // namespace

Speech load_speech(int stride) {
  Speech speech = {"recordings of asterisk-core-sounds-en-wav", {}};
  const auto paths = recordings();
  for (size_t i = 0; i < paths.size(); i += static_cast<size_t>(stride))
    append(paths[i], &speech.samples);
  if (speech.frames() == 0)
    speech = {"generated, speech-like (no recordings installed)",
              signals::speech_like(kGeneratedFrames)};
  speech.samples.resize(static_cast<size_t>(speech.frames()) * 80);
  return speech;
}

}  // namespace bench
