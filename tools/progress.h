// A bar on standard error for work that takes long, when that is a terminal.
#ifndef KELG729F_TOOLS_PROGRESS_H
#define KELG729F_TOOLS_PROGRESS_H

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

namespace tool {

class Progress {
 public:
  explicit Progress(std::string label) : label_(std::move(label)) {}
  ~Progress() {
    if (drawn_) std::fputs("\r\033[K", stderr);
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // share: of the work done, 0 to 1. Cheap enough to be called for every frame.
  void update(double share) {
    if (!terminal_ || ++calls_ % 1024 != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    draw(std::clamp(share, 0.0, 1.0));
  }

 private:
  void draw(double share) {
    static constexpr int kWidth = 40;
    const std::string bar(static_cast<size_t>(share * kWidth), '#');
    std::fprintf(stderr, "\r%s [%-*s] %3.0f %%", label_.c_str(), kWidth, bar.c_str(), 100 * share);
    drawn_ = true;
  }

  std::string label_;
  bool terminal_ = isatty(STDERR_FILENO) != 0;
  bool drawn_ = false;
  unsigned calls_ = 0;
  // Nothing is drawn for work done within the first half second.
  std::chrono::steady_clock::time_point next_ =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
};

}  // namespace tool

#endif
