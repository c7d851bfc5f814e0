// Whether frames are G.729 at all, by the parity bit that a speech frame carries of its first lag.
#ifndef KELG729F_TOOLS_PARITY_H
#define KELG729F_TOOLS_PARITY_H

#include <cstdint>
#include <string>

#include "tools/stream_io.h"

namespace tool {

class Parity {
 public:
  // Looks at speech of 8 kbit/s, where six bits of the lag (G.729 clause 3.7.2) and their parity
  // stand behind the 18 bits of the LSPs. There is no parity at 6.4 kbit/s.
  void look(const Frame& frame) {
    if (frame.bits() != 80 || frame.erased()) return;
    constexpr size_t kLag = 2 + 18;
    constexpr size_t kParity = kLag + 8;
    int ones = frame.words[kParity] == G729_SERIAL_ONE;
    for (size_t i = kLag; i < kLag + 6; ++i) ones += frame.words[i] == G729_SERIAL_ONE;
    ++checked_;
    wrong_ += ones % 2 == 0;
  }

  uint64_t checked() const { return checked_; }
  uint64_t wrong() const { return wrong_; }

  // Half of them are wrong in bytes of any other kind. A link that damages every fourth lag would
  // not carry speech.
  bool foreign() const { return checked_ >= 50 && 4 * wrong_ > checked_; }

  std::string remark() const {
    return std::to_string(100 * wrong_ / checked_) +
           " % of the frames have a wrong parity bit; this is hardly G.729, or it is encrypted";
  }

 private:
  uint64_t checked_ = 0;
  uint64_t wrong_ = 0;
};

}  // namespace tool

#endif
