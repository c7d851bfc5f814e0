// Runs the command-line tool in a folder of its own.
#ifndef KELG729F_TESTS_TOOLS_TOOL_RUNNER_H
#define KELG729F_TESTS_TOOLS_TOOL_RUNNER_H

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/signals.h"

namespace test {

namespace fs = std::filesystem;

inline std::string contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void store(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline void store_wav(const fs::path& path, const std::vector<int16_t>& samples, int rate = 8000,
                      int channels = 1, int coding = SF_FORMAT_PCM_16) {
  SF_INFO info{};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | coding;
  SNDFILE* wav = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_command(wav, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
  sf_write_short(wav, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(wav);
}

inline std::vector<int16_t> load_wav(const fs::path& path) {
  SF_INFO info{};
  SNDFILE* wav = sf_open(path.c_str(), SFM_READ, &info);
  if (!wav) return {};
  std::vector<int16_t> samples(static_cast<size_t>(info.frames * info.channels));
  sf_readf_short(wav, samples.data(), info.frames);
  sf_close(wav);
  return samples;
}

// Speech in even numbers, which halve exactly.
inline std::vector<int16_t> voice(size_t count) {
  auto samples = signals::loud_speech(static_cast<int>(count / 80 + 1));
  samples.resize(count);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(sample / 2 * 2);
  return samples;
}

struct Result {
  int status;
  std::string out;
  std::string err;
};

class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "kelg729f-test-XXXXXX";
    folder = mkdtemp(pattern.data());
    store_wav(folder / "voice.wav", voice(16040));
  }
  void TearDown() override { fs::remove_all(folder); }

  // arguments: as for a shell, "kelg729f" standing for the tool.
  Result run(const std::string& command) {
    const std::string line = "cd " + folder.string() +
                             " && kelg729f() { '" KELG729F_TOOL "' \"$@\"; }; { " + command +
                             "; } >.out 2>.err </dev/null";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(folder / ".out"),
            contents(folder / ".err")};
  }

  void run_well(const std::string& command) {
    const Result result = run(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.err;
  }

  // Everything in the folder but what run() itself leaves there.
  size_t files() {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
      count += entry.path().filename() != ".out" && entry.path().filename() != ".err";
    }
    return count;
  }

  fs::path folder;
};

}  // namespace test

#endif
