// G.729 in a capture file: which streams there are, and which of them belong together.
#ifndef KELG729F_TOOLS_CAPTURE_CAPTURE_H
#define KELG729F_TOOLS_CAPTURE_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/capture/datagram.h"
#include "tools/capture/rtp_stream.h"
#include "tools/commands.h"
#include "tools/files.h"

namespace tool {

// What one end says to the other: its streams in turn. A new one begins when the end takes another
// SSRC.
struct Direction {
  struct Part {
    uint32_t ssrc;
    RtpStream stream;
  };
  Flow flow;
  std::vector<Part> parts;

  int64_t begin() const { return parts.front().stream.begin(); }
  int64_t end() const { return parts.back().stream.end(); }
};

struct Capture {
  std::vector<Direction> directions;  // by their beginning
  uint64_t packets = 0;
  uint64_t cut = 0;        // captured in part
  uint64_t fragments = 0;  // of datagrams, which are not put together
  int64_t begin;           // time of the first packet
  std::string fault;       // why reading ended before the file's end; empty: it did not
};

// Reads pcap and pcapng. Throws Failure when nothing can be read, or no stream is found.
Capture read_capture(const InputFile& input, const CaptureOptions& options);

// Directions that are recorded together, by their index: alone, or each with the one against it.
std::vector<std::vector<size_t>> recordings(const Capture& capture, bool stereo);

}  // namespace tool

#endif
