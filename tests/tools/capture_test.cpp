#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/tool_runner.h"

namespace test {
namespace {

using namespace std::string_literals;

std::string big(uint64_t value, int bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(bytes < 8 ? value >> 8 * bytes : 0);
  return text;
}

std::string little(uint64_t value, int bytes) {
  std::string text = big(value, bytes);
  std::reverse(text.begin(), text.end());
  return text;
}

std::string udp(const std::string& payload, bool back = false) {
  return big(back ? 5000 : 4000, 2) + big(back ? 4000 : 5000, 2) + big(8 + payload.size(), 2) +
         big(0, 2) + payload;
}

std::string ipv4(const std::string& inside, bool back = false, const std::string& options = "",
                 int fragment = 0) {
  return big(0x45 + options.size() / 4, 1) + "\0"s + big(20 + options.size() + inside.size(), 2) +
         big(0, 2) + big(static_cast<uint64_t>(fragment), 2) + "\x40\x11"s + big(0, 2) +
         big(back ? 0x0A000002 : 0x0A000001, 4) + big(back ? 0x0A000001 : 0x0A000002, 4) + options +
         inside;
}

// headers: extension headers, the number of the first one before them.
std::string ipv6(const std::string& inside, int next = 17, const std::string& headers = "") {
  return big(6 << 28, 4) + big(headers.size() + inside.size(), 2) +
         big(static_cast<uint64_t>(next), 1) + "\x40"s + big(1, 16) + big(2, 16) + headers + inside;
}

struct Rtp {
  uint16_t sequence;
  uint32_t timestamp;
  std::string payload;
  uint32_t ssrc = 0x1234;
  int type = 18;

  // Decorated by turns with sources, an extension and padding.
  std::string bytes() const {
    const bool sources = sequence % 3 == 1, extended = sequence % 5 == 2,
               padded = sequence % 7 == 3;
    return big(0x80U + (sources ? 2 : 0) + (extended ? 0x10 : 0) + (padded ? 0x20 : 0), 1) +
           big(static_cast<uint64_t>(type), 1) + big(sequence, 2) + big(timestamp, 4) +
           big(ssrc, 4) + std::string(sources ? 8 : 0, 'c') +
           (extended ? big(0xBEDE0001, 4) + "ext!" : "") + payload +
           (padded ? std::string(3, 0) + "\4" : "");
  }
};

struct Captured {
  double time;  // seconds
  std::string packet;
};
using Packets = std::vector<Captured>;

std::string pcap(const Packets& packets, int link = 1, size_t longest = 65535) {
  std::string file = little(0xA1B2C3D4, 4) + little(0x00040002, 4) + little(0, 8) +
                     little(65535, 4) + little(static_cast<uint64_t>(link), 4);
  for (const auto& [time, packet] : packets) {
    const std::string kept = packet.substr(0, longest);
    const auto micros = static_cast<uint64_t>(std::llround(1e6 * time));
    file += little(micros / 1000000, 4) + little(micros % 1000000, 4) + little(kept.size(), 4) +
            little(packet.size(), 4) + kept;
  }
  return file;
}

std::string ethernet(const std::string& ip) {
  return std::string(12, 'e') + "\x08\0"s + ip;
}

class CaptureTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    run_well("kelg729f encode voice.wav whole.g729 && head -c 2000 whole.g729 >voice.g729");
    run_well("kelg729f decode voice.g729 clean.wav");
    stream = contents(folder / "voice.g729");
    clean = load_wav(folder / "clean.wav");
  }

  // The stream two frames a packet, numbers and timestamps wrapping on the way.
  Rtp packet(size_t i) const {
    return {static_cast<uint16_t>(65500 + i), static_cast<uint32_t>(4294960000U + 160 * i),
            stream.substr(20 * i, 20)};
  }

  Packets call(const std::function<std::string(const std::string&)>& wrap) const {
    Packets packets;
    for (size_t i = 0; i < 100; ++i) packets.push_back({0.02 * i, wrap(packet(i).bytes())});
    return packets;
  }

  std::vector<int16_t> decoded(const std::string& file, const std::string& options = "",
                               int status = 0) {
    store(folder / "call.pcap", file);
    const Result result = run("kelg729f decode " + options + " call.pcap call.wav");
    EXPECT_EQ(result.status, status) << result.err;
    said = result.err;
    return load_wav(folder / "call.wav");
  }

  std::string stream;
  std::vector<int16_t> clean;
  std::string said;
};

TEST_F(CaptureTest, EveryWrappingHoldsTheSameCall) {
  const auto v4 = [](const std::string& rtp) { return ipv4(udp(rtp)); };
  const std::string qinq = "\x88\xA8\0\1\x81\0\0\7\x08\0"s;
  const std::string chain = "\x3C\0\1\2\0\0\0\0"s + "\x2C\0\1\2\0\0\0\0"s + "\x11\0\0\0\0\0\0\1"s;
  const auto v6 = [&](const std::string& rtp) { return ipv6(udp(rtp), 0, chain); };
  const std::pair<int, std::function<std::string(const std::string&)>> wrappings[] = {
      {1, [&](const auto& rtp) { return ethernet(v4(rtp)) + "trailing bytes of Ethernet"; }},
      {1, [&](const auto& rtp) { return ethernet(ipv4(udp(rtp), false, "\1\1\1\1")); }},
      {1, [&](const auto& rtp) { return std::string(12, 'e') + "\x81\0\0\7\x86\xDD"s + v6(rtp); }},
      {1, [&](const auto& rtp) { return std::string(12, 'e') + qinq + v4(rtp); }},
      {113, [&](const auto& rtp) { return std::string(14, 'c') + "\x08\0"s + v4(rtp); }},
      {276, [&](const auto& rtp) { return "\x86\xDD"s + std::string(18, 'c') + v6(rtp); }},
      {101, v4},
      {101, v6},
      {229, [&](const auto& rtp) { return ipv6(udp(rtp)); }},
  };
  for (const auto& [link, wrap] : wrappings) {
    EXPECT_EQ(decoded(pcap(call(wrap), link)), clean) << "link " << link;
  }
}

TEST_F(CaptureTest, OrderAndDuplicatesMakeNoDifferenceAndAreCounted) {
  Packets packets;
  std::mt19937 random(1);
  for (size_t i = 0; i < 100; ++i) {
    const std::string bytes = ethernet(ipv4(udp(packet(i).bytes())));
    packets.push_back({0.02 * i + (i % 10 == 3 ? 0.05 : 0.0), bytes});
    if (i % 20 == 7) packets.push_back({0.02 * i + 0.001 * (random() % 100), bytes});
  }
  std::sort(packets.begin(), packets.end(), [](auto& a, auto& b) { return a.time < b.time; });
  EXPECT_EQ(decoded(pcap(packets)), clean);
  const auto [status, found, errors] = run("kelg729f info call.pcap");
  EXPECT_EQ(status, 0) << errors;
  EXPECT_NE(found.find("packets 100, lost 0 (0.0 %), duplicate 5, reordered 10,"),
            std::string::npos)
      << found;
  // Two packets at a time, 40 ms of delay from one to the next and none: RFC 3550's 16th of it.
  for (size_t i = 0; i < packets.size(); ++i) packets[i].time = 0.04 * (i / 2);
  packets.resize(3);
  store(folder / "call.pcap", pcap(packets));
  EXPECT_NE(run("kelg729f info call.pcap").out.find("2.42 ms at most"), std::string::npos)
      << run("kelg729f info call.pcap").out;
}

// Against the same losses and pauses as a serial stream, which says what every frame is.
TEST_F(CaptureTest, LossesAreConcealedAndPausesFilled) {
  std::vector<int16_t> samples = voice(40000);
  for (size_t n = 12000; n < 40000; ++n) samples[n] = static_cast<int16_t>(samples[n] / 4096);
  store_wav(folder / "pause.wav", samples);
  run_well("kelg729f encode --annexb pause.wav pause.bit");
  const std::string serial = contents(folder / "pause.bit");
  std::mt19937 random(1);
  std::string expected;
  Packets packets;
  int lost = 0;
  bool spoke = false;
  for (size_t at = 0, i = 0; at < serial.size(); ++i) {
    const size_t bits = static_cast<uint8_t>(serial[at + 2]);
    std::string frame = serial.substr(at, 4 + 2 * bits);
    at += frame.size();
    if (bits == 80 && spoke && random() % 6 == 0) {
      frame.replace(4, 160, std::string(160, 0));
      ++lost;
    } else if (bits > 0) {
      std::string payload(bits / 8, 0);
      for (size_t b = 0; b < bits; ++b)
        payload[b / 8] |= (frame[4 + 2 * b] == '\x81') << (7 - b % 8);
      const Rtp rtp{static_cast<uint16_t>(packets.size() + static_cast<size_t>(lost)),
                    static_cast<uint32_t>(80 * i), payload};
      packets.push_back({0.01 * i, ipv4(udp(rtp.bytes()))});
    }
    spoke = bits == 80;
    expected += frame;
  }
  // What the sender keeps to itself at the end nobody knows of.
  while (expected.size() > 4 && expected.compare(expected.size() - 4, 4, "\x21\x6B\0\0"s) == 0) {
    expected.resize(expected.size() - 4);
  }
  ASSERT_GT(lost, 10);
  store(folder / "expected.bit", expected);
  run_well("kelg729f decode expected.bit expected.wav");
  EXPECT_EQ(decoded(pcap(packets, 101)), load_wav(folder / "expected.wav"));
  EXPECT_NE(run("kelg729f info --json call.pcap").out.find("\"lost\": " + std::to_string(lost)),
            std::string::npos);
}

TEST_F(CaptureTest, TwoDirectionsBecomeTwoChannelsInTime) {
  Packets packets;
  for (size_t i = 0; i < 100; ++i) {
    Rtp there = packet(i), back = packet(i);
    back.ssrc = 0x99;
    back.sequence = static_cast<uint16_t>(back.sequence * 1 + 77);
    if (i >= 50) there.ssrc = 0x5678, there.timestamp -= 1000000;  // another source goes on
    packets.push_back({0.02 * i, ethernet(ipv4(udp(there.bytes())))});
    packets.push_back({0.02 * i + 0.3, ethernet(ipv4(udp(back.bytes(), true), true))});
  }
  std::sort(packets.begin(), packets.end(), [](auto& a, auto& b) { return a.time < b.time; });
  std::vector<int16_t> left = clean, right(2400);
  right.insert(right.end(), clean.begin(), clean.end());
  store(folder / "half.g729", stream.substr(1000));
  run_well("kelg729f decode half.g729 half.wav");
  const std::vector<int16_t> half = load_wav(folder / "half.wav");
  std::copy(half.begin(), half.end(), left.begin() + 8000);  // by a fresh decoder
  left.resize(right.size());
  std::vector<int16_t> both;
  for (size_t i = 0; i < left.size(); ++i) both.insert(both.end(), {left[i], right[i]});
  EXPECT_EQ(decoded(pcap(packets), "--stereo"), both);
  fs::remove(folder / "call.wav");
  EXPECT_EQ(decoded(pcap(packets)).size(), 0u);
  EXPECT_EQ(load_wav(folder / "call-2.wav"), clean);
  left.resize(16000);
  EXPECT_EQ(load_wav(folder / "call-1.wav"), left);
  EXPECT_EQ(decoded(pcap(packets), "--ssrc 0x99"), clean);
  const Result both_there =
      run("cp call.pcap call-1.pcap; kelg729f decode call.pcap call-1.pcap calls");
  EXPECT_NE(both_there.err.find("calls/call-1.wav: two inputs would"), std::string::npos);
}

// Every packet with the second before it (RFC 2198); tones of the same source take numbers, no
// time.
TEST_F(CaptureTest, WhatComesTwiceIsNotMissedAndTonesAreNoSpeech) {
  Packets packets;
  for (size_t i = 0; i < 100; ++i) {
    Rtp rtp = packet(i);
    rtp.type = 96;
    rtp.payload = "\x12" + rtp.payload;
    if (i > 1)
      rtp.payload =
          big(0x92000000 | 320 << 10 | 20, 4) + rtp.payload.insert(1, packet(i - 2).payload);
    rtp.sequence = static_cast<uint16_t>(rtp.sequence + 5 * (i >= 60));
    if (i == 20 || i == 40 || i == 41 || i == 80) continue;
    packets.push_back({0.02 * i, ipv4(udp(rtp.bytes()))});
    for (uint16_t tone = 5; tone > 0 && i == 60; --tone) {
      const Rtp event{static_cast<uint16_t>(rtp.sequence - tone), rtp.timestamp, "tone", 0x1234,
                      101};
      packets.insert(packets.end() - 1, {0.02 * i, ipv4(udp(event.bytes()))});
    }
  }
  EXPECT_EQ(decoded(pcap(packets, 101)), clean);
  const std::string found = run("kelg729f info call.pcap").out;
  EXPECT_NE(found.find("packets 96, lost 4 (4.0 %)"), std::string::npos) << found;
  EXPECT_NE(found.find("\n  4 of the lost packets came with later ones"), std::string::npos)
      << found;
}

TEST_F(CaptureTest, WhatIsCutShortIsUsedAsFarAsItGoes) {
  const auto wrap = [](const std::string& rtp) { return ethernet(ipv4(udp(rtp))); };
  const std::string whole = pcap(call(wrap));
  std::vector<int16_t> part = decoded(whole.substr(0, whole.size() / 2), "", 5);
  EXPECT_NE(said.find("ends early (truncated dump file"), std::string::npos) << said;
  EXPECT_EQ(part, std::vector<int16_t>(clean.begin(), clean.begin() + part.size()));
  EXPECT_GT(part.size(), 7000u);
  EXPECT_EQ(run("kelg729f info call.pcap").status, 5);
  // Packets with extensions are longer; only those do not fit, and what is no part of the call.
  Packets packets = call(wrap);
  packets.push_back({9.0, wrap(Rtp{1, 0, std::string(160, 'x'), 9, 0}.bytes())});
  part = decoded(pcap(packets, 1, 14 + 28 + 12 + 20 + 4), "", 5);
  EXPECT_EQ(part.size(), clean.size() - 160);  // the last one is among them
  EXPECT_NE(said.find("captured only in part and count as lost"), std::string::npos) << said;
}

TEST_F(CaptureTest, OtherTrafficIsNotTakenForSpeech) {
  std::mt19937 random(1);
  Packets packets;
  const auto bytes = [&](size_t count) {
    std::string text(count, 0);
    for (char& c : text) c = static_cast<char>(random());
    return text;
  };
  for (size_t i = 0; i < 300; ++i) {
    const auto number = static_cast<uint16_t>(random());
    const Rtp payloads[] = {{number, number * 77U, bytes(20)},                 // no sequence
                            {static_cast<uint16_t>(i), 0, bytes(160), 1, 0},   // another codec
                            {static_cast<uint16_t>(i), 0, bytes(21), 2},       // no G.729's size
                            {static_cast<uint16_t>(i), 0, bytes(48), 3, 72}};  // RTCP
    packets.push_back({0.02 * i, ethernet(ipv4(udp(payloads[i % 4].bytes())))});
    packets.push_back({0.02 * i, ethernet(ipv4(udp(packet(i % 100).bytes()), false, "", 0x2000))});
    packets.push_back({0.02 * i, bytes(random() % 80)});
  }
  packets.push_back({6.0, ethernet(ipv4(udp(packet(0).bytes())))});
  packets.push_back({6.1, ethernet(ipv4(udp(packet(1).bytes())))});
  decoded(pcap(packets), "", 3);
  EXPECT_NE(said.find("no stream of RTP payload type 18 in 902 packets (300 of them fragments"),
            std::string::npos)
      << said;
  decoded(pcap(packets, 105), "", 3);
  EXPECT_NE(said.find("a link of type IEEE802_11; Ethernet"), std::string::npos) << said;
}

}  // namespace
}  // namespace test
