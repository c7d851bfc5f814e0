// From the bytes of a packet to what is played of a stream.
#include "tools/capture/rtp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/tools/packets.h"
#include "tools/capture/datagram.h"
#include "tools/capture/rtp_stream.h"

namespace test {
namespace {

tool::Bytes as_bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// All that is not there in a prefix is its end.
TEST(Datagram, IsFoundAsFarAsItWasCaptured) {
  using enum tool::Content;
  const std::string inside = udp("payload"), tags = std::string(12, 'e') + "\x91\0\0\7"s;
  const std::string options = "\x2B\1"s + std::string(14, 0) + "\x33\0"s + std::string(6, 0) +
                              "\x3C\2"s + std::string(14, 0) + "\x11\1"s + std::string(14, 0);
  const std::pair<tool::Link, std::string> whole[] = {
      {tool::Link::ip, ipv4(inside)},
      {tool::Link::ip, ipv4(inside, false, "\1\1\1\1", 0x4000)},
      {tool::Link::ip, ipv6(inside, 0, options)},
      {tool::Link::ethernet, tags + "\x81\0\0\1\x08\0"s + ipv4(inside)},
      {tool::Link::cooked, std::string(14, 'c') + "\x86\xDD"s + ipv6(inside)},
      {tool::Link::cooked2, "\x08\0"s + std::string(18, 'c') + ipv4(inside)}};
  for (const auto& [link, packet] : whole) {
    for (size_t size = 0; size <= packet.size() + 1; ++size) {
      const std::string captured = (packet + "!").substr(0, size);
      const tool::Datagram found = tool::find_datagram(as_bytes(captured), link);
      const size_t headers = packet.size() - 7;
      ASSERT_EQ(found.content, size < headers ? other : size < packet.size() ? cut : datagram);
      if (size < headers) continue;
      EXPECT_EQ(found.payload.size(), std::min<size_t>(size - headers, 7));
      EXPECT_EQ(found.flow.from.port, 4000);
    }
  }
}

TEST(Datagram, DamagedAndOtherPacketsAreTold) {
  using enum tool::Content;
  const std::string v4 = ipv4(udp("payload")), v6 = ipv6(udp("payload"));
  const auto part = [](int offset) {
    return ipv6(udp("payload"), 44, "\x11\0"s + big(static_cast<uint64_t>(offset), 2) + big(7, 4));
  };
  const struct {
    std::string packet;
    size_t at;
    std::string bytes;  // there
    tool::Content content;
  } cases[] = {
      {v4, 2, "\0\0"s, datagram},  // no length: the network card's work
      {v6, 4, "\0\0"s, datagram},   {v4, 2, "\0\x13"s, other},  // nothing behind its header
      {v4, 2, "\0\x14"s, other},    {v4, 0, "\x44", other},     {v4, 0, "\x55", other},
      {v6, 0, "\x70", other},       {v4, 9, "\6", other},       {v6, 6, "\6", other},
      {v4, 24, "\0\7"s, other},  // UDP's length
      {v4, 24, "\0\x8"s, datagram}, {v4, 24, "\0\x10"s, other}, {v6, 44, "\0\x10"s, other},
      {v4, 6, "\x40", datagram},    {v4, 6, "\x20", fragment},  {v4, 6, "\x10", fragment},
      {v4, 7, "\1", fragment},      {part(0), 0, "", datagram}, {part(1), 0, "", fragment},
      {part(8), 0, "", fragment}};
  for (auto [packet, at, bytes, content] : cases) {
    packet.replace(at, bytes.size(), bytes);
    EXPECT_EQ(tool::find_datagram(as_bytes(packet), tool::Link::ip).content, content) << at;
  }
}

TEST(RtpParser, PayloadIsWhatIsBehindTheHeader) {
  const std::string packet = "\xB2\x92"s + big(0x1234, 2) + big(0x56789ABC, 4) +
                             big(0xDEF01234, 4) + std::string(8, 's') + "\0\0\0\2"s +
                             std::string(8, 'x') + "speech\0\2"s;
  const int headers = 12 + 8 + 4 + 8;
  const auto size = [](const std::string& bytes, bool whole) {
    const auto found = tool::parse_rtp(as_bytes(bytes), whole);
    return found ? static_cast<int>(found->payload.size()) : -1;
  };
  for (int n = 0; n < headers + 8; ++n)
    ASSERT_EQ(size(packet.substr(0, static_cast<size_t>(n)), false),
              n < headers ? -1 : n - headers);
  const auto found = tool::parse_rtp(as_bytes(packet), true);
  ASSERT_TRUE(found);
  EXPECT_EQ(std::tuple(found->payload_type, found->sequence, found->timestamp, found->ssrc),
            std::tuple(18, 0x1234, 0x56789ABCU, 0xDEF01234U));
  for (const auto& [padding, left] : {std::pair('\0', -1), {'\1', 7}, {'\x8', 0}, {'\x9', -1}})
    EXPECT_EQ(size(packet.substr(0, headers + 7) + padding, true), left);
  EXPECT_EQ(size(packet.substr(0, headers), true), -1);  // no padding there
  EXPECT_EQ(size("\x40" + packet.substr(1), true), -1);
}

TEST(RtpParser, RedundantPayloadsAreOfKnownSizes) {
  // The earlier payloads' sizes and ages, and the size of its own; empty for none.
  const auto parsed = [](int earlier, size_t size, const std::string& own, uint64_t type = 0x92) {
    std::string packet, text;
    for (int i = 0; i < earlier; ++i) packet += big(type << 24 | 0x3FFF << 10 | size, 4);
    packet += "\x12" + std::string(static_cast<size_t>(earlier) * size, 'e') + own;
    const auto found = tool::parse_redundant(as_bytes(packet), 18);
    if (!found) return text;
    for (const auto& [age, payload] : found->earlier)
      text += std::to_string(payload.size()) + "@" + std::to_string(age) + " ";
    return text + std::to_string(found->own.size());
  };
  const std::string speech(10, 's');
  EXPECT_EQ(parsed(0, 0, speech), "10");
  EXPECT_EQ(parsed(2, 12, speech), "12@16383 12@16383 10");
  EXPECT_EQ(parsed(1, 1000, ""), "1000@16383 0");
  EXPECT_NE(parsed(16, 10, speech), "");
  EXPECT_EQ(parsed(17, 10, speech) + parsed(1, 11, speech) + parsed(1, 1010, speech), "");
  EXPECT_EQ(parsed(1, 10, "cut") + parsed(0, 0, speech + "?") + parsed(1, 10, speech, 0x93), "");
  EXPECT_FALSE(tool::parse_redundant(as_bytes(big(0x9200000A, 4) + "\x12short"), 18));
  EXPECT_FALSE(tool::parse_redundant(as_bytes(big(0x92000000, 4)), 18));
  EXPECT_FALSE(tool::parse_redundant(as_bytes("\x13" + speech), 18));
}

struct Sent {
  int sequence;
  int64_t timestamp;
  double time;       // seconds
  size_t size = 10;  // bytes
  bool speech = true;
};

tool::RtpStream stream_of(const std::vector<Sent>& packets) {
  static const std::vector<uint8_t> bytes(1000);
  tool::RtpStream stream;
  for (const Sent& s : packets) {
    const tool::RtpPacket packet{18, static_cast<uint16_t>(s.sequence),
                                 static_cast<uint32_t>(s.timestamp), 1,
                                 tool::Bytes(bytes).first(s.size)};
    const int64_t time = std::llround(s.time * tool::kSecond);
    s.speech ? stream.add(packet, time) : stream.add_other(packet, time);
  }
  return stream;
}

// How far numbers may jump or come late: 3000 and 100. Two behind a greater jump begin anew.
TEST(RtpStream, NumbersTellWhatIsMissing) {
  struct {
    std::vector<int> numbers;
    uint64_t packets, lost, odd, duplicates, reordered;
    bool plausible;
  } const cases[] = {{{0, 1}, 2, 0, 0, 0, 0, false},
                     {{0, 1, 2}, 3, 0, 0, 0, 0, true},
                     {{65534, 65535, 0, 1}, 4, 0, 0, 0, 0, true},
                     {{0, 1, 2, 3002}, 4, 2999, 0, 0, 0, false},
                     {{0, 1, 2, 3003}, 3, 0, 1, 0, 0, true},
                     {{0, 1, 2, 3, 3004}, 4, 0, 1, 0, 0, true},
                     {{0, 1, 2, 3003, 3004, 3005}, 6, 0, 0, 0, 0, false},
                     {{0, 1, 2, 3003, 9000, 9001, 9002}, 6, 0, 1, 0, 0, false},
                     {{0, 1, 2, 3003, 3, 4}, 5, 0, 1, 0, 0, true},
                     {{0, 1, 2, 3003, 3, 3004}, 4, 0, 2, 0, 0, true},
                     {{200, 201, 202, 102}, 4, 97, 0, 0, 1, true},
                     {{200, 201, 202, 101}, 3, 0, 1, 0, 0, true},
                     {{0, 1, 2, 2, 2, 4, 3}, 5, 0, 0, 2, 1, true},
                     {{0, 1, 2, 103, 104}, 5, 100, 0, 0, 0, true},
                     {{0, 1, 102, 203}, 4, 200, 0, 0, 0, false}};
  for (const auto& c : cases) {
    std::vector<Sent> sent;
    for (const int number : c.numbers) sent.push_back({number, 80 * number, 0.01 * number});
    tool::RtpStream stream = stream_of(sent);
    EXPECT_EQ(stream.plausible(), c.plausible) << testing::PrintToString(c.numbers);
    stream.finish();
    const auto& f = stream.figures();
    EXPECT_EQ(std::tie(f.packets, f.lost, f.odd, f.duplicates, f.reordered),
              std::tie(c.packets, c.lost, c.odd, c.duplicates, c.reordered))
        << testing::PrintToString(c.numbers);
  }
}

// s: speech, d: a descriptor, e: erased, u: untransmitted.
TEST(RtpStream, PlaysInTime) {
  const std::pair<std::vector<Sent>, std::string> cases[] = {
      {{{0, 0, 0}, {1, 80, 0.01, 12}, {2, 240, 0.03}}, "ssds"},
      {{{0, 0, 0}, {1, 160, 0.02}, {3, 320, 0.04}}, "suses"},
      {{{0, 0, 0, 20}, {1, 160, 0.02, 20}, {3, 800, 0.1, 20}}, "sssseeuuuuss"},
      {{{0, 0, 0, 20}, {1, 160, 0.02, 2}, {3, 400, 0.05, 20}}, "ssdeess"},
      {{{0, 0, 0}, {2, 400, 0.05}}, "seuuus"},
      {{{0, 0, 0, 2}, {2, 400, 0.05}}, "deeuus"},
      {{{0, 0, 0}, {1, 119, 0.01}, {2, 239, 0.02}, {3, 359, 0.03}}, "ssuss"},
      {{{0, 0, 0}, {1, 120, 0.01}, {2, 240, 0.02}, {3, 360, 0.03}},
       "suss"
       "us"},
      {{{0, 0, 0}, {1, 80 - 16000, 0.01}, {2, 160 - 16000, 0.05}}, "sss"},
      {{{0, 0, 0}, {1, 79 - 16000, 0.05}, {2, 159 - 16000, 0.06}}, "suuuuss"},
      {{{0, 0, 0}, {1, 80160, 0.02}, {2, 80240, 0.03}}, "sss+"},
      {{{0, 0, 0}, {1, 80161, 0.02}, {2, 80241, 0.03}}, "suss"},
      {{{0, 0, 0}, {1, 8080, 0.02}}, "s" + std::string(100, 'u') + "s"},
      {{{0, 0, 0}, {1, 8160, 0.02}}, "ss+"},
      {{{0, 0, 0}, {1, 5, 0.01, 0, false}, {2, 80, 0.01}}, "ss"},
      {{{0, 0, 0}, {1, 160000, 100}, {2, 160080, 100}}, "sss+"},
  };
  for (const auto& [sent, wanted] : cases) {
    tool::RtpStream stream = stream_of(sent);
    stream.finish();
    tool::Playout playout(stream, 1);
    std::string played;
    for (tool::Frame frame; playout.next(&frame);) {
      played += frame.lost ? 'e' : frame.bits() == 80 ? 's' : frame.bits() == 16 ? 'd' : 'u';
    }
    EXPECT_EQ(played + (playout.cut_short() ? "+" : ""), wanted);
    EXPECT_EQ(playout.progress(), 1);
  }
}

// A packet comes the sooner the later it was sent. No delay is the least one of the first 50, up to
// where the sender's clock jumps by more than 10 s or its numbers begin anew.
TEST(RtpStream, BeginsWithoutItsDelay) {
  for (const auto& [jump, number, wanted] :
       {std::tuple(0, 0, 51), {80000, 0, 51}, {80101, 0, 91}, {0, 9000, 91}}) {
    std::vector<Sent> sent;
    for (int i = 0; i < 60; ++i) {
      const bool late = i >= 10;
      sent.push_back({i + (late ? number : 0), 160 * i + (late ? jump : 0), 0.1 + 0.019 * i});
      if (late && jump == 80000) sent.back().time += 10;
    }
    tool::RtpStream stream = stream_of(sent);
    stream.finish();
    EXPECT_EQ(stream.begin(), wanted * tool::kSecond / 1000) << jump << number;
    EXPECT_EQ(stream.end(), std::llround(sent.back().time * tool::kSecond));
    EXPECT_LT(stream.figures().worst_jitter, 1) << jump;
  }
}

}  // namespace
}  // namespace test
