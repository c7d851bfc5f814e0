// Captures as the command-line tool reads them: the packet parser on any bytes, `info` and `decode`
// on any file. Either a command fails with its message and leaves no output, or the outputs are
// whole.
//
// Input: one byte of choices. If it is odd the rest is a file; else it is packets, of which the
// target makes a file: a byte for what the packet is, one for its distance in time, and its bytes.
#include "tools/capture/capture.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/scratch.h"
#include "tools/commands.h"

void tool::say(const std::string&) {}

namespace {

using Packet = std::vector<uint8_t>;
constexpr uintmax_t kWavHeader = 44;
constexpr int kLongestPause = 1;
constexpr int kLinks[] = {1, 113, 276, 101};  // as files number them

void put(uint32_t value, size_t size, Packet* to) {
  for (size_t i = 0; i < size; ++i) to->push_back(static_cast<uint8_t>(value >> 8 * i));
}

void put_big(uint32_t value, size_t size, Packet* to) {
  while (size-- > 0) to->push_back(static_cast<uint8_t>(value >> 8 * size));
}

// RTP in UDP in IPv4, numbered by turns; the input says what departs from that. again: with an
// earlier packet's 20 bytes in front (RFC 2198).
Packet rtp_packet(fuzz::Input* in, uint32_t* number, bool again) {
  const int choice = in->byte();
  *number += static_cast<uint32_t>(choice % 4);
  const auto speech = static_cast<uint32_t>((choice & 16 ? 20 : 10) + choice / 4 % 4 * 2);
  const uint32_t size = speech + (again ? 25 : 0);
  const uint32_t from = choice & 32 ? 1 : 2;
  Packet p;
  put_big(0x45000000 + 40 + size, 4, &p);
  put_big(0, 4, &p);
  put_big(64U << 24 | 17U << 16, 4, &p);
  put_big(0x0A000000 + from, 4, &p);
  put_big(0x0A000000 + 3 - from, 4, &p);
  put_big(0x01000100, 4, &p);
  put_big((20 + size) << 16, 4, &p);
  put_big(again ? 0x8060 : 0x8012, 2, &p);
  put_big(*number, 2, &p);
  put_big(160 * *number + (choice & 64 ? 80U * in->byte() : 0), 4, &p);
  put_big(choice & 128 ? 7 : 9, 4, &p);
  if (again) {
    put_big(0x92000000 | 160U * (in->byte() % 100U) << 10 | 20, 4, &p);
    p.push_back(0x12);
  }
  while (p.size() < 40 + size) p.push_back(in->byte());
  return p;
}

void check_parser(const Packet& packet) {
  const auto inside = [](tool::Bytes part, tool::Bytes whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
  };
  for (const tool::Link link :
       {tool::Link::ethernet, tool::Link::cooked, tool::Link::cooked2, tool::Link::ip}) {
    const tool::Datagram datagram = tool::find_datagram(packet, link);
    fuzz::expect(inside(datagram.payload, packet), "a datagram within its packet");
  }
  const auto rtp = tool::parse_rtp(packet, true);
  fuzz::expect(!rtp || inside(rtp->payload, packet), "a payload within its datagram");
  const auto parts = tool::parse_redundant(packet, 18);
  if (!parts) return;
  for (const auto& [age, payload] : parts->earlier) {
    fuzz::expect(inside(payload, packet), "an earlier payload within its packet");
  }
  fuzz::expect(inside(parts->own, packet), "a payload within its packet");
}

Packet file_of_packets(fuzz::Input* in, int choice) {
  Packet file;
  const int link = choice / 2 % 2 ? 3 : choice / 4 % 4;
  for (const uint32_t word :
       {0xA1B23C4DU, 0x00040002U, 0U, 0U, 65535U, static_cast<uint32_t>(kLinks[link])}) {
    put(word, 4, &file);
  }
  uint64_t time = 0;
  uint32_t number = 65530;
  while (!in->done()) {
    const int kind = in->byte();
    time += in->byte() * uint64_t{5'000'000};
    const Packet packet = kind % 4 ? rtp_packet(in, &number, kind % 32 > 24)
                                   : in->bytes(static_cast<size_t>(kind / 4));
    check_parser(packet);
    put(static_cast<uint32_t>(time / 1'000'000'000), 4, &file);
    put(static_cast<uint32_t>(time % 1'000'000'000), 4, &file);
    put(static_cast<uint32_t>(packet.size()), 4, &file);
    put(static_cast<uint32_t>(packet.size()), 4, &file);
    file.insert(file.end(), packet.begin(), packet.end());
  }
  return file;
}

// Frames of every direction, or none at all when the file is refused.
std::vector<uint64_t> count_frames(const std::string& path, const tool::CaptureOptions& options) {
  std::vector<uint64_t> counts;
  try {
    const tool::Capture capture = tool::read_capture(tool::InputFile(path), options);
    for (const tool::Direction& direction : capture.directions) {
      counts.push_back(0);
      for (const auto& part : direction.parts) {
        tool::Playout playout(part.stream, options.longest_pause);
        tool::Frame frame;
        for (; playout.next(&frame); ++counts.back()) {
          const int bits = frame.bits();
          fuzz::expect(bits == 0 || bits == 16 || bits == 80, "frames that the codec takes");
        }
      }
    }
  } catch (const tool::Failure&) {
  }
  return counts;
}

void check(const fuzz::Scratch& scratch, const std::string& file, bool stereo) {
  tool::InfoOptions info;
  info.names = {file};
  info.format = "pcap";
  info.capture.longest_pause = kLongestPause;
  info.json = stereo;
  const std::vector<uint64_t> frames = count_frames(file, info.capture);
  const tool::Exit informed = tool::run_info(info);
  tool::DecodeOptions options;
  options.names = {file, scratch.path("out.wav")};
  options.format = "pcap";
  options.capture = info.capture;
  options.stereo = stereo;
  const tool::Exit decoded = tool::run_decode(options);
  if (frames.empty()) {
    fuzz::expect(informed == tool::Exit::input && decoded == informed && scratch.files() == 1,
                 "refused, no output");
    return;
  }
  fuzz::expect(informed == tool::Exit::ok || informed == tool::Exit::truncated, "read");
  fuzz::expect(decoded == tool::Exit::ok || decoded == tool::Exit::truncated, "decoded");
  if (stereo) return;
  fuzz::expect(scratch.files() == 1 + frames.size(), "a file for every direction");
  for (size_t i = 0; i < frames.size(); ++i) {
    const std::string name =
        frames.size() == 1 ? "out.wav" : "out-" + std::to_string(i + 1) + ".wav";
    fuzz::expect(scratch.size(name.c_str()) >= kWavHeader + 160 * frames[i], "every frame");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Scratch scratch;
  fuzz::Input in(data, size);
  const int choice = in.byte();
  const Packet file = choice % 2 ? in.rest() : file_of_packets(&in, choice);
  check(scratch, scratch.store("in", file), choice & 128);
  scratch.clear();
  return 0;
}
