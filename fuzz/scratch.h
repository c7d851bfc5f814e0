// A folder for the files that the command-line tool reads and writes, gone at the end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "tools/files.h"

namespace fuzz {

class Scratch {
 public:
  Scratch() {
    const std::filesystem::path memory = "/dev/shm";
    std::string pattern =
        (std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) /
        "kelg729f-fuzz-XXXXXX";
    expect(mkdtemp(pattern.data()) != nullptr, "a folder for files");
    folder_ = pattern;
    // What the codec and `info` print is dropped.
    expect(std::freopen("/dev/null", "w", stdout) != nullptr, "a null device");
  }
  ~Scratch() { std::filesystem::remove_all(folder_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string path(const char* name) const { return folder_ / name; }
  std::string store(const char* name, const std::vector<uint8_t>& bytes) const {
    std::ofstream(path(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path(name);
  }
  bool has(const char* name) const { return std::filesystem::exists(folder_ / name); }
  uintmax_t size(const char* name) const { return std::filesystem::file_size(folder_ / name); }
  size_t files() const {
    const std::filesystem::directory_iterator first(folder_), end;
    return static_cast<size_t>(std::distance(first, end));
  }
  void clear() const {
    for (const auto& file : std::filesystem::directory_iterator(folder_)) {
      std::filesystem::remove(file);
    }
  }

 private:
  std::filesystem::path folder_;
};

}  // namespace fuzz
