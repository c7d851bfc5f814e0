// The commands behind the command line; each returns the process's exit status.
#ifndef KELG729F_TOOLS_COMMANDS_H
#define KELG729F_TOOLS_COMMANDS_H

#include <cstdint>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/failure.h"

namespace tool {

struct BatchOptions {
  int threads = 1;
  bool resume = false;  // leave out what is done
};

struct EncodeOptions {
  std::vector<std::string> names;  // inputs, then the output
  BatchOptions batch;
  bool raw = false;        // the input has no header: 8000 Hz, mono, 16 bit, little-endian
  std::string rate = "8";  // "6.4", "8" or "11.8"
  int complexity = 0;      // 0..G729_COMPLEXITY_MAX
  std::string format;      // of the output: "g729", "bit", or empty for the suffix's
  bool annexb = false;
};

// What of a capture is meant.
struct CaptureOptions {
  int payload_type = 18;         // of RTP; this is G.729's by RFC 3551
  std::optional<uint32_t> ssrc;  // none: every source
  int longest_pause = 3600;      // seconds that are filled with comfort noise
};

struct DecodeOptions {
  std::vector<std::string> names;  // inputs, then the output
  BatchOptions batch;
  bool raw = false;    // the output has no header
  std::string format;  // of the inputs
  CaptureOptions capture;
  bool stereo = false;          // of a capture, both directions as two channels
  double loss = 0.0;            // per cent of frames
  std::optional<double> burst;  // mean frames a burst; none: independent losses
  uint32_t seed = 1;
};

struct InfoOptions {
  std::vector<std::string> names;
  std::string format;
  CaptureOptions capture;
  bool json = false;
};

struct Job {
  std::string input;
  std::string output;
};

struct CompareOptions {
  std::string reference;
  std::string output;
  bool json = false;
};

struct RatingOptions {
  double loss = 0;         // per cent of the packets
  double burst_ratio = 1;  // G.107, 7.5
  double delay = 0;        // one way, ms
  bool json = false;
};

Exit run_encode(const EncodeOptions& options);
Exit run_decode(const DecodeOptions& options);
// others: outputs that belong to other inputs.
Exit decode_capture(const Job& job, const DecodeOptions& options,
                    const std::set<std::string>& others);
Exit run_info(const InfoOptions& options);
Exit run_compare(const CompareOptions& options);
Exit run_rating(const RatingOptions& options);

// One line on standard error.
void say(const std::string& message);

// Says what went wrong; the status for it.
inline Exit complain(const std::exception& error) {
  say(error.what());
  const auto* failure = dynamic_cast<const Failure*>(&error);
  return failure ? failure->exit : Exit::other;
}

}  // namespace tool

#endif
