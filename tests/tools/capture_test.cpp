// Captures of calls through the tool.
#include "tools/capture/capture.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/tools/packets.h"
#include "tests/tools/tool_runner.h"

namespace test {
namespace {

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
  const std::pair<int, std::function<std::string(const std::string&)>> wrappings[] = {
      {1, [&](const auto& rtp) { return ethernet(v4(rtp)) + "trailing bytes of Ethernet"; }},
      {113, [&](const auto& rtp) { return std::string(14, 'c') + "\x08\0"s + v4(rtp); }},
      {276, [&](const auto& rtp) { return "\x86\xDD"s + std::string(18, 'c') + ipv6(udp(rtp)); }},
      {101, v4},
      {229, [&](const auto& rtp) { return ipv6(udp(rtp)); }},
  };
  for (const auto& [link, wrap] : wrappings) {
    EXPECT_EQ(decoded(pcap(call(wrap), link)), clean) << "link " << link;
  }
}

// RFC 3550 clause 6.4.1, ms: the mean over the packets from the second on, and the greatest.
std::pair<double, double> jitter(const std::vector<std::pair<double, size_t>>& arrivals) {
  double j = 0, sum = 0, greatest = 0;
  for (size_t i = 1; i < arrivals.size(); ++i) {
    const double sent = 20 * (static_cast<double>(arrivals[i].second) - arrivals[i - 1].second);
    j += (std::abs(1000 * (arrivals[i].first - arrivals[i - 1].first) - sent) - j) / 16;
    sum += j;
    greatest = std::max(greatest, j);
  }
  return {sum / static_cast<double>(arrivals.size() - 1), greatest};
}

TEST_F(CaptureTest, InfoTellsWhatHappenedOnTheWay) {
  Packets packets;
  std::mt19937 random(1);
  std::vector<std::pair<double, size_t>> arrivals[2];
  for (size_t i = 0; i < 100; ++i) {
    const double time = 0.02 * i + 1e-5 * (i > 0 ? random() % 1000 : 0) + (i % 10 == 3 ? 0.05 : 0);
    const std::string rtp = packet(i).bytes();
    if (i == 40 || i == 41 || i == 60) continue;
    packets.push_back({time, ipv4(udp(rtp))});
    arrivals[0].push_back({time, i});
    if (i % 20 == 7) {
      packets.push_back({time + 0.013, ipv4(udp(rtp))});
      arrivals[0].push_back({time + 0.013, i});
    }
    if (i > 3) continue;
    Rtp back{static_cast<uint16_t>(i), static_cast<uint32_t>(160 * i), packet(i).payload, 0xAB, 99};
    back.payload = i == 0 ? "\x12" + back.payload
                          : big(0x92000000 | 160 << 10 | 20, 4) + "\x12" + packet(i - 1).payload +
                                packet(i).payload;
    if (i != 2) packets.push_back({time + 0.3, ipv6(udp(back.bytes(), true))});
    if (i != 2) arrivals[1].push_back({time + 0.3, i});
  }
  const auto before = [](auto& a, auto& b) { return a.time < b.time; };
  std::stable_sort(packets.begin(), packets.end(), before);
  for (auto& a : arrivals) std::stable_sort(a.begin(), a.end());
  packets.push_back({3, ipv4(udp(Rtp{99, 0, "", 0x1234, 101}.bytes()), false, "", 1)});
  std::string file = pcap(packets, 101);
  // Two of the first source's that were not captured whole.
  for (const int type : {18, 101})
    file += pcap({{3, ipv4(udp(Rtp{99, 0, std::string(20, 0), 0x1234, type}.bytes()))}}, 101, 50)
                .substr(24);
  store(folder / "call.pcap", file);
  char text[2000];
  const auto [mean, most] = jitter(arrivals[0]);
  const auto [mean2, most2] = jitter(arrivals[1]);
  std::snprintf(text, sizeof text,
                "call.pcap: capture, 108 packets, 1 fragments skipped, 2 directions\n"
                "direction 1: 10.0.0.1:4000 to 10.0.0.2:5000, SSRC 0x00001234, begins at 0.00 s\n"
                "  packets 97, lost 3 (3.0 %%), duplicate 5, reordered 10, cut 2\n"
                "  jitter %.2f ms in the mean, %.2f ms at most\n"
                "  played in time, 200 frames, 2.00 s, mean 7.76 kbit/s\n"
                "  speech 8 kbit/s            194   97.0 %%\n"
                "  erased                       6    3.0 %%\n"
                "direction 2: [::1]:5000 to [::2]:4000, SSRC 0x000000AB, begins at 0.30 s\n"
                "  packets 3, lost 1 (25.0 %%), duplicate 0, reordered 0, cut 0\n"
                "  1 of the lost packets came with later ones (RFC 2198)\n"
                "  jitter %.2f ms in the mean, %.2f ms at most\n"
                "  played in time, 8 frames, 0.08 s, mean 8.00 kbit/s\n"
                "  speech 8 kbit/s              8  100.0 %%\n",
                mean, most, mean2, most2);
  EXPECT_EQ(run("kelg729f info call.pcap").out, text);
  const std::string json = run("kelg729f info --json call.pcap | tr -d ' \\n'").out;
  EXPECT_NE(json.find(R"("packets":97,"lost":3,"recovered":0,"duplicates":5,"reordered":10,"cut":2)"
                      R"(,"jitter_ms":)"),
            std::string::npos)
      << json;
  EXPECT_NE(json.find(R"("begin_seconds":0.3,"packets":3,)"), std::string::npos) << json;
  // It sounds like a serial stream with the same losses.
  run_well("kelg729f encode voice.wav v.bit");
  std::string serial = contents(folder / "v.bit").substr(0, 200 * 164);
  for (const size_t frame : {80, 81, 82, 83, 120, 121})
    serial.replace(164 * frame + 4, 160, std::string(160, 0));
  store(folder / "v.bit", serial);
  run_well("kelg729f decode v.bit lost.wav");
  EXPECT_EQ(decoded(file, "--ssrc 1234", 5), load_wav(folder / "lost.wav"));
  EXPECT_EQ(said, "kelg729f: call.pcap: 2 packets were captured only in part and count as lost\n");
}

TEST_F(CaptureTest, InfoCountsEveryKindOfFrame) {
  std::string file;
  const struct {
    int count;
    size_t bits, erased;
    const char *sync, *first;
  } frames[] = {{3, 64, 99, "!", "\x81"}, {2, 118, 118, "!", "\x81"}, {1, 118, 118, "!", "\x7F"},
                {5, 80, 99, "!", "\x81"}, {2, 16, 99, "!", "\x81"},   {4, 0, 99, "!", ""},
                {1, 80, 79, "!", "\x81"}, {1, 80, 0, "!", "\x81"},    {1, 80, 99, " ", "\x81"},
                {1, 0, 99, " ", ""}};
  for (const auto& [count, bits, erased, sync, first] : frames) {
    for (int i = 0; i < count; ++i) {
      file += sync + ("k" + little(bits, 2));
      for (size_t b = 0; b < bits; ++b) file += (b == erased ? "\0"s : b ? "\x81" : first) + "\0"s;
    }
  }
  store(folder / "all.bit", file + "abc");
  const Result result = run("kelg729f info all.bit");
  EXPECT_EQ(result.out,
            "all.bit: ITU serial stream, 21 frames, 0.21 s, mean 5.80 kbit/s\n"
            "  speech 6.4 kbit/s            3   14.3 %\n"
            "  speech 8 kbit/s              5   23.8 %\n"
            "  speech 11.8 kbit/s           3   14.3 %\n"
            "    of it backward             2    9.5 %\n"
            "  silence descriptor           2    9.5 %\n"
            "  untransmitted                4   19.0 %\n"
            "  erased                       4   19.0 %\n");
  EXPECT_EQ(result.err,
            "kelg729f: all.bit: ends in the middle of a frame; the last 3 bytes are not counted\n");
  EXPECT_EQ(run("kelg729f info --json all.bit | tr -d ' \\n'").out,
            R"([{"file":"all.bit","format":"bit","frames":21,"seconds":0.21,"kbit_per_second":5.8,)"
            R"("speech_6.4":3,"speech_8":5,"speech_11.8":3,"silence_descriptor":2,)"
            R"("untransmitted":4,"backward":2,"erased":4,"parity_checked":5,"parity_errors":0,)"
            R"("foreign":false,"dropped_bytes":3}])");
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
  run_well("cp call.pcap call.pcapng; kelg729f info call.pcapng");
  EXPECT_EQ(decoded(pcap(packets), "--ssrc 0x99"), clean);
  const Result both_there =
      run("cp call.pcap call-1.cap; kelg729f decode call.pcap call-1.cap calls");
  EXPECT_NE(both_there.err.find("calls/call-1.wav: two inputs would"), std::string::npos);
  decoded(pcap(packets));
  EXPECT_EQ(said, "kelg729f: call.pcap: holds 2 recordings, written to call-1.wav and so on\n");
  run_well("echo >call-1.wav; rm call-2.wav; kelg729f decode --resume call.pcap call.wav");
  EXPECT_EQ(contents(folder / "call-1.wav"), "\n");
  EXPECT_EQ(load_wav(folder / "call-2.wav"), clean);
  EXPECT_NE(run("kelg729f decode call.pcap -").err.find("holds 2 recordings; choose"),
            std::string::npos);
  run_well("cp call.pcap x-2.wav");
  EXPECT_EQ(run("kelg729f decode --format pcap x-2.wav x.wav").status, 2);
  EXPECT_FALSE(fs::exists(folder / "x-1.wav"));
  decoded(pcap(packets), "--stereo --loss 100");
  EXPECT_EQ(said,
            "kelg729f: call.wav: 200 of 200 frames erased\n"s + said.substr(said.find('\n') + 1));
}

// Every letter is a stream of a second, begun 10 ms after the one before it or, in capitals, a
// minute later: there and back (a, b), there by another port (c), back by a third (d), and between
// other hosts (e).
TEST_F(CaptureTest, WhatAnswersIsRecordedTogether) {
  const auto groups = [&](const std::string& streams, bool stereo = true) {
    Packets packets;
    for (size_t k = 0; k < streams.size(); ++k) {
      const int kind = std::tolower(streams[k]);
      const uint64_t port = kind == 'c' ? 4002 : kind == 'd' ? 4004 : 4000;
      for (size_t i = 0; i < 50; ++i) {
        Rtp rtp = packet(i);
        rtp.ssrc = static_cast<uint32_t>(k);
        const std::string inside = udp(rtp.bytes(), kind == 'b' || kind == 'd', port);
        packets.push_back({0.02 * i + 0.01 * k + (kind == streams[k] ? 0 : 60),
                           kind == 'e' ? ipv6(inside) : ipv4(inside, kind == 'b' || kind == 'd')});
      }
    }
    store(folder / "call.pcap", pcap(packets, 101));
    const tool::Capture capture = tool::read_capture(tool::InputFile(folder / "call.pcap"), {});
    std::string found;
    for (const auto& group : tool::recordings(capture, stereo)) {
      for (const size_t i : group) found += streams[capture.directions[i].parts[0].ssrc];
      found += ' ';
    }
    return found;
  };
  EXPECT_EQ(groups("ab"), "ab ");
  EXPECT_EQ(groups("ab", false), "a b ");
  EXPECT_EQ(groups("acdb"), "ab cd ");
  EXPECT_EQ(groups("bdca"), "ba dc ");
  EXPECT_EQ(groups("ade"), "ad e ");
  EXPECT_EQ(groups("ae"), "ae ");
  EXPECT_EQ(groups("aec"), "a e c ");
  EXPECT_EQ(groups("aB"), "a B ");
  EXPECT_EQ(groups("aac"), "a a c ");  // at a time
  EXPECT_EQ(groups("aA"), "a ");       // one after the other
}

TEST_F(CaptureTest, LongPausesAreLeftOut) {
  Packets packets;
  for (size_t i = 0; i < 10; ++i) {
    Rtp rtp = packet(i);
    rtp.timestamp += i < 4 ? 0 : 3600 * 8000 + 80;
    rtp.ssrc = i < 7;
    packets.push_back(
        {0.02 * i + (i < 4 ? 0 : 3600.01) + (i < 7 ? 0 : 3600.5), ipv4(udp(rtp.bytes()))});
  }
  EXPECT_EQ(decoded(pcap(packets, 101)).size(), 1600u);
  EXPECT_EQ(said, "kelg729f: call.wav: a pause of more than 3600 s is left out\n");
  packets.erase(packets.begin() + 4, packets.begin() + 7);
  EXPECT_EQ(decoded(pcap(packets, 101)).size(), 1120u);
  EXPECT_EQ(said, "kelg729f: call.wav: a pause of more than 3600 s is left out\n");
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
  const auto wrapped = [](const Rtp& rtp) {
    return Packets{{0, ethernet(ipv4(udp(rtp.bytes())))}};
  };
  const Rtp speech = packet(1), other{1, 0, bytes(160), 1, 0};
  const std::string advice = "captured only in part; capture whole packets (tcpdump -s 0)";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {pcap(wrapped(speech), 1, 60), "", "its packets were " + advice},
      {pcap(wrapped(other), 1, 60), "",
       "no stream of RTP payload type 18 in 1 packets, 1 of them " + advice},
      {pcap(wrapped(speech)), "--ssrc 5", "in 1 packets with that SSRC"},
      {pcap(wrapped(speech)), "--payload-type 99",
       "type 99 in 1 packets; --payload-type names another"}};
  for (const auto& [file, options, wanted] : cases) {
    decoded(file, options, 3);
    EXPECT_NE(said.find(wanted + "\n"), std::string::npos) << said;
  }
  decoded(pcap(packets, 105), "", 3);
  EXPECT_NE(said.find("a link of type IEEE802_11; Ethernet"), std::string::npos) << said;
}

}  // namespace
}  // namespace test
