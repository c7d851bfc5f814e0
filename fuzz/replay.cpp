// Gives a fuzz target every file of its corpus, once: the findings of longer runs, as a test.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

std::string current;  // what is being replayed

// The codec ends the process when its frame interface is broken; no input may bring it there.
void refuse_exit() {
  if (current.empty()) return;
  std::fprintf(stderr, "the process was ended by %s\n", current.c_str());
  std::_Exit(1);
}

void replay(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  // On the heap and of exact size, so that a sanitizer sees what is read past the end.
  const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
  current = file;
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(argv[1])) files.push_back(entry);
  std::sort(files.begin(), files.end());
  std::fprintf(stderr, "%zu inputs\n", files.size());
  if (files.empty()) return 2;
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  std::atexit(refuse_exit);
  // The codec's remarks about odd frames, thousands of them.
  if (!std::freopen("/dev/null", "w", stdout)) return 2;
  for (const fs::path& file : files) replay(file);
  current.clear();
  return 0;
}
