// A bar on standard error for work that takes long, when that is a terminal.
#ifndef KELG729F_TOOLS_PROGRESS_H
#define KELG729F_TOOLS_PROGRESS_H

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

namespace tool {

class Progress {
 public:
  // wanted: false where another bar stands for the whole.
  explicit Progress(std::string label, bool wanted = true)
      : label_(std::move(label)), shown_(wanted && isatty(STDERR_FILENO) != 0) {}
  ~Progress() {
    if (drawn_) std::fputs("\r\033[K", stderr);
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // share: of the work done, 0 to 1. Cheap enough to be called for every frame.
  void update(double share) {
    if (shown_ && ++calls_ % 1024 == 0) show(share);
  }

  // The same for steps that take long themselves.
  void show(double share) {
    if (!shown_) return;
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
  bool shown_;
  bool drawn_ = false;
  unsigned calls_ = 0;
  // Nothing is drawn for work done within the first half second.
  std::chrono::steady_clock::time_point next_ =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
};

}  // namespace tool

#endif
