// A bar on standard error for work that takes long, when that is a terminal.
#ifndef KELG729F_TOOLS_PROGRESS_H
#define KELG729F_TOOLS_PROGRESS_H

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

namespace tool {

using namespace std::chrono_literals;

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
  void show(double share) {
    if (!shown_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + 100ms;
    draw(share);
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
  std::chrono::steady_clock::time_point next_;
};

}  // namespace tool

#endif
