// One source's packets of a capture, put in order, and what happened to them on the way.
#ifndef KELG729F_TOOLS_CAPTURE_RTP_STREAM_H
#define KELG729F_TOOLS_CAPTURE_RTP_STREAM_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/capture/datagram.h"
#include "tools/capture/rtp.h"
#include "tools/stream_io.h"

namespace tool {

// Times of a capture are nanoseconds, 0 to 2^32 seconds and a little, so that differences fit.
inline constexpr int64_t kSecond = 1'000'000'000;
inline constexpr int64_t kSampleTime = kSecond / 8000;

class RtpStream {
 public:
  struct Packet {
    int64_t sequence;  // without wrap
    uint32_t timestamp;
    int64_t time;  // of capture
    size_t begin;  // of the payload
    uint16_t size;
    bool late;          // came behind its successor
    bool fresh;         // the sender counts anew from here
    bool speech;        // or else something that takes a number only
    uint64_t lost = 0;  // between the one before and this
  };

  struct Figures {
    uint64_t packets = 0;  // taken, without duplicates
    uint64_t lost = 0;
    uint64_t recovered = 0;  // of the lost ones, from later packets
    uint64_t duplicates = 0;
    uint64_t reordered = 0;
    uint64_t odd = 0;         // of a size that G.729 has not, or out of any order; not taken
    uint64_t cut = 0;         // captured in part, not taken
    double jitter = 0;        // ms, RFC 3550 clause 6.4.1, the mean over the packets
    double worst_jitter = 0;  // ms, the greatest
  };

  // In the order of capture: G.729, G.729 with earlier packets' again, and what else the source
  // sends, tones for example, of which only the number counts.
  void add(const RtpPacket& packet, int64_t time);
  void add(const RtpPacket& packet, const RedundantPacket& parts, int64_t time);
  void add_other(const RtpPacket& packet, int64_t time);
  void add_cut() { ++figures_.cut; }
  uint64_t cut() const { return figures_.cut; }

  // Whether this was RTP at all: enough packets, most of them with the next numbers and the right
  // sizes. For what was added so far.
  bool plausible() const;

  // Sorts what was added, two packets of speech at least; nothing is added from then on.
  void finish();

  // After finish():
  const std::vector<Packet>& packets() const { return packets_; }
  Bytes payload(const Packet& packet) const {
    return Bytes(payloads_).subspan(packet.begin, packet.size);
  }
  const Figures& figures() const { return figures_; }
  // When its first sample would have come without the delay that packets had on the way.
  int64_t begin() const;
  int64_t end() const { return last_time_; }

 private:
  int step_to(const RtpPacket& packet) const;
  bool add_payload(const RtpPacket& packet, Bytes payload, int64_t time);
  Packet store(const RtpPacket& packet, Bytes payload, int64_t sequence, int64_t time);
  void take(const Packet& packet);
  void add_far(const RtpPacket& packet, Bytes payload, int64_t time);
  void sort();
  void count_losses();
  void recover();
  std::vector<Packet> spares_between(const Packet& before, const Packet& after) const;
  void measure_jitter(const Packet& packet);

  std::vector<Packet> packets_;
  std::vector<Packet> spares_;  // sent again; the number is that of the packet that brought them
  std::vector<uint8_t> payloads_;
  Figures figures_;
  int64_t highest_;              // sequence number so far
  std::optional<Packet> stray_;  // one that jumped; kept when another follows it
  uint64_t following_ = 0;       // packets near their predecessor's number
  uint64_t others_ = 0;          // packets that are no speech
  bool certain_ = false;         // something had the payload type by its own account
  int64_t last_time_;
  uint32_t last_timestamp_;
  double jitter_ = 0;  // samples
};

// The frames of a stream as a receiver with patience without end plays them: lost packets become
// erased frames, pauses (gaps of the timestamp) untransmitted ones. stream outlives it.
class Playout {
 public:
  // longest_pause: seconds that are filled; what is longer is left out.
  Playout(const RtpStream& stream, int longest_pause)
      : stream_(stream), longest_(longest_pause * 100) {}

  bool next(Frame* frame);

  double progress() const;                 // 0 to 1
  bool cut_short() const { return cut_; }  // a pause was left out

 private:
  void begin_packet(size_t index);
  int64_t gap_before(const RtpStream::Packet& packet, const RtpStream::Packet& before);
  void fill(int64_t gap, int64_t lost_packets);

  const RtpStream& stream_;
  int64_t longest_;            // frames
  size_t packet_ = 0;          // the next one
  Bytes left_;                 // of the payload before it
  int64_t erased_ = 0;         // frames to come before that
  int64_t untransmitted_ = 0;  // and behind those
  int64_t ahead_ = 0;          // samples given beyond the timestamps
  size_t usual_frames_ = 2;    // of a packet with speech
  bool cut_ = false;
};

}  // namespace tool

#endif
