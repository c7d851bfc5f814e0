// RTP packets (RFC 3550), earlier ones sent again in them (RFC 2198), and G.729 (RFC 3551).
#ifndef KELG729F_TOOLS_CAPTURE_RTP_H
#define KELG729F_TOOLS_CAPTURE_RTP_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/capture/datagram.h"

namespace tool {

struct RtpPacket {
  uint8_t payload_type;
  uint16_t sequence;
  uint32_t timestamp;
  uint32_t ssrc;
  Bytes payload;  // without header extension and padding
};

// None for what cannot be RTP. whole: the bytes are all of the packet; otherwise its end is unknown
// and so is how much of the payload is padding.
std::optional<RtpPacket> parse_rtp(Bytes bytes, bool whole);

// A packet that holds its own payload and those of earlier packets.
struct RedundantPacket {
  struct Earlier {
    uint32_t age;  // samples before the packet's own timestamp
    Bytes payload;
  };
  Bytes own;
  std::vector<Earlier> earlier;
};

// None for what is no such packet with payloads of this type, and with nothing behind them.
std::optional<RedundantPacket> parse_redundant(Bytes payload, int payload_type);

// Speech frames and at most one descriptor behind them, not more than a second together; or
// nothing.
bool is_g729_size(size_t payload);

// Frames in a payload of such a size.
size_t frames_in(size_t payload);

}  // namespace tool

#endif
