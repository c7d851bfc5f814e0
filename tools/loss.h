// Losses that a decoder is to be tried with.
#ifndef KELG729F_TOOLS_LOSS_H
#define KELG729F_TOOLS_LOSS_H

#include <cstdint>

#include "tools/commands.h"
#include "tools/gilbert_model.h"
#include "tools/stream_io.h"

namespace tool {

// The bursts asked for, or else losses that are independent of each other. Throws Failure for a
// share that no such bursts can make.
inline GilbertModel loss_model(const DecodeOptions& options) {
  const double loss = options.loss / 100.0;
  if (!options.burst) return {loss, options.seed};
  if (loss > GilbertModel::greatest_loss(*options.burst)) {
    throw Failure(Exit::usage,
                  "--loss and --burst: so much loss needs longer bursts; leave --burst"
                  " out or raise it");
  }
  return {loss, *options.burst, options.seed};
}

// Decides frame by frame what the network loses. What was never sent cannot be lost.
class Channel {
 public:
  explicit Channel(const DecodeOptions& options) : model_(loss_model(options)) {}

  void pass(Frame* frame) {
    ++frames_;
    const bool lost = model_.next();
    if (!lost || frame->bits() == 0) return;
    frame->lose();
    ++lost_;
  }
  uint64_t frames() const { return frames_; }
  uint64_t lost() const { return lost_; }

 private:
  GilbertModel model_;
  uint64_t frames_ = 0;
  uint64_t lost_ = 0;
};

}  // namespace tool

#endif
