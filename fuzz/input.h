// A fuzzer's input, read from the front as choices; past its end it reads as zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

  bool done() const { return next_ == end_; }
  uint8_t byte() { return done() ? uint8_t{0} : *next_++; }
  uint16_t word() {
    const int high = byte();
    return static_cast<uint16_t>(high << 8 | byte());
  }
  // 0 to n - 1, n at most 256.
  int below(int n) { return byte() % n; }
  // A copy of its own, so that reading past its end is seen.
  std::vector<uint8_t> bytes(size_t n) {
    std::vector<uint8_t> copy(n);
    for (uint8_t& b : copy) b = byte();
    return copy;
  }
  std::vector<uint8_t> rest() { return bytes(static_cast<size_t>(end_ - next_)); }

 private:
  const uint8_t* next_;
  const uint8_t* end_;
};

// Noise from a seed, for what need not be spelled out in the input.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  uint32_t next() {
    state_ = state_ * 1664525 + 1013904223;
    return state_ >> 8;
  }

 private:
  uint32_t state_;
};

// A property that must hold for every input.
inline void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace fuzz
