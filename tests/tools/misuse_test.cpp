#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/tool_runner.h"

namespace test {
namespace {

class Misuse : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    store_wav(folder / "cd.wav", std::vector<int16_t>(8820), 44100, 2);
    store_wav(folder / "wide.wav", std::vector<int16_t>(1600), 16000);
    store_wav(folder / "slow.wav", std::vector<int16_t>(500), 500);
    store_wav(folder / "empty.wav", {});
    store(folder / "text.wav", "not a sound");
    store(folder / "nothing", "");
    run_well("kelg729f encode voice.wav good.g729 && kelg729f encode voice.wav good.bit");
    const std::string good = contents(folder / "good.bit");
    damage("size.bit", good, 164 * 5 + 2, "\x5a");
    damage("sync.bit", good, 164 * 7, "XX");
    damage("word.bit", good, 164 * 9 + 40, "\x12\x34");
    damage("endian.bit", good, 0, "\x6b\x21");
    store(folder / "tiny.bit", good.substr(0, 3));
  }

  void damage(const char* name, std::string stream, size_t at, const std::string& bytes) {
    store(folder / name, stream.replace(at, bytes.size(), bytes));
  }
};

struct Case {
  const char* command;
  int status;
  const char* says;  // what the line must contain
};

constexpr Case kCases[] = {
    {"", 2, "encode, decode, info, compare or rating"},
    {"frobnicate", 2, "frobnicate"},
    {"encode", 2, "FILES"},
    {"encode voice.wav", 2, "and the output?"},
    {"encode --rate 7 voice.wav x.bit", 2, "{6.4,8,11.8}"},
    {"encode --speed voice.wav x.bit", 2, "--speed"},
    {"encode voice.wav x.mp3", 2, ".g729 or .bit"},
    {"encode voice.wav x", 2, ".g729 or .bit"},
    {"encode voice.wav -", 2, "--format"},
    {"encode voice.wav x.pcap", 2, "captures are only read"},
    {"encode --annexb voice.wav x.g729", 2, "write a .bit"},
    {"encode --rate 6.4 voice.wav x.g729", 2, "write a .bit"},
    {"encode voice.wav ''", 2, "empty"},
    {"encode --format bit voice.wav voice.wav", 2, "name another output"},
    {"encode voice.wav cd.wav wide.wav", 2, "folder"},
    {"encode voice.wav cd.wav x.g729", 2, "folder"},
    {"encode voice.wav ./voice.wav dir", 2, "two inputs"},
    {"encode voice.wav - dir", 2, "standard input"},
    {"encode voice.wav no/such/x.g729", 4, "No such file"},
    {"encode voice.wav /dev/full --format bit", 4, "No space left"},
    {"encode missing.wav x.g729", 3, "missing.wav"},
    {"encode . x.g729", 3, "folder"},
    {"encode slow.wav x.g729", 3, "has 500 Hz; sample rates from 1000"},
    {"encode --raw nothing x.g729", 3, "has no samples"},
    {"encode -j 0 voice.wav x.g729", 2, "0 is no number from 1 to 256"},
    {"decode -j many good.g729 x.wav", 2, "many is no number"},
    {"encode empty.wav x.g729", 3, "no samples"},
    {"encode text.wav x.g729", 3, "no WAV file"},
    {"encode good.g729 x.bit", 3, "no WAV file"},
    {"decode voice.wav x.wav", 2, ".g729 or .bit"},
    {"decode good.g729 x.bit", 2, "end its name in .wav"},
    {"decode good.g729 good.g729", 2, "name another output"},
    {"decode --loss 101 good.g729 x.wav", 2, "101 is no number from 0 to 100"},
    {"decode --loss 5% good.g729 x.wav", 2, "5% is no number"},
    {"decode --loss nan good.g729 x.wav", 2, "nan is no number"},
    {"decode --loss 80 --burst 2 good.g729 x.wav", 2, "longer bursts"},
    {"decode --burst 0 good.g729 x.wav", 2, "0 is no number"},
    {"decode --seed -1 good.g729 x.wav", 2, "-1 is no number"},
    {"decode --format g729 nothing x.wav", 3, "no whole frame"},
    {"decode tiny.bit x.wav", 3, "no whole frame"},
    {"decode size.bit x.wav", 3, "frame 6 (byte 820): frame of 90 bits"},
    {"decode sync.bit x.wav", 3, "frame 8 (byte 1148): sync word 0x5858"},
    {"decode word.bit x.wav", 3, "frame 10 (byte 1476): bit word 0x3412"},
    {"decode endian.bit x.wav", 3, "big-endian"},
    {"decode --format bit good.g729 x.wav", 3, "no ITU serial stream"},
    {"decode --stereo good.g729 x.wav", 2, "--stereo is for captures"},
    {"decode --payload-type 128 x.pcap x.wav", 2, "128 is no number from 0 to 127"},
    {"decode --ssrc 0x123456789 x.pcap x.wav", 2, "0x123456789 is no SSRC"},
    {"decode --ssrc 12g x.pcap x.wav", 2, "12g is no SSRC"},
    {"decode missing.pcap x.wav", 3, "missing.pcap"},
    {"decode --format pcap voice.wav x.wav", 3, "no capture file (unknown file format)"},
    {"decode --format pcap nothing x.wav", 3, "no capture file (truncated dump file"},
    {"info --format pcap text.wav", 3, "no capture file"},
    {"info", 2, "FILES"},
    {"info voice.wav", 2, ".g729 or .bit"},
    {"info missing.bit", 3, "missing.bit"},
    {"info ''", 2, "empty"},
    {"info good.g729 >/dev/full", 4, "No space left"},
    {"info good.g729 >&-", 4, "standard output: cannot write"},
    {"rating >/dev/full", 4, "No space left"},
    {"compare voice.wav", 2, "OUTPUT"},
    {"compare voice.wav cd.wav", 3, "2 channels at 44100 Hz, but only 8000 Hz mono"},
    {"compare --json wide.wav voice.wav", 3,
     "16000 Hz, but only 8000 Hz mono can be compared; convert"},
    {"rating --loss 101", 2, "101 is no number from 0 to 100"},
    {"rating --burst-ratio 0", 2, "0 is no number from 0.1 to 1000"},
    {"rating --delay soon", 2, "soon is no number"},
};

TEST_F(Misuse, OneLineSaysWhatIsWrongAndNothingIsWritten) {
  const size_t before = files();
  for (const Case& c : kCases) {
    const Result result = run(std::string("kelg729f ") + c.command);
    EXPECT_EQ(result.status, c.status) << c.command << "\n" << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << c.command << "\n" << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.out, "") << c.command;
    fs::remove(folder / "dir");
    EXPECT_EQ(files(), before) << c.command;
  }
}

TEST_F(Misuse, FailureLeavesAnOlderOutputAlone) {
  store(folder / "old.wav", "precious");
  const size_t before = files();
  EXPECT_EQ(run("kelg729f decode word.bit old.wav").status, 3);
  EXPECT_EQ(run("ulimit -f 8; kelg729f encode --format bit voice.wav old.wav").status, 4);
  EXPECT_EQ(contents(folder / "old.wav"), "precious");
  EXPECT_EQ(files(), before);
}

TEST_F(Misuse, TruncatedStreamsDecodeWhatIsWhole) {
  store(folder / "cut.g729", contents(folder / "good.g729").substr(0, 1007));
  store(folder / "cut.bit", contents(folder / "good.bit").substr(0, 164 * 100 + 103));
  for (const auto& [name, dropped] :
       {std::pair("cut.g729", " 7 bytes"), {"cut.bit", " 103 bytes"}}) {
    const Result result = run(std::string("kelg729f decode ") + name + " cut.wav");
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.err.find("100 whole frames"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(dropped), std::string::npos) << result.err;
    EXPECT_EQ(load_wav(folder / "cut.wav").size(), 8000u);
    EXPECT_EQ(run(std::string("kelg729f info ") + name).status, 5);
  }
}

TEST_F(Misuse, CutSoundEncodesWhatIsThere) {
  store(folder / "cut.wav", contents(folder / "voice.wav").substr(0, 44 + 2 * 8000));
  const Result result = run("kelg729f encode cut.wav cut.g729");
  EXPECT_EQ(result.status, 5);
  EXPECT_NE(result.err.find(" 8000 samples"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(" 16080 bytes are missing"), std::string::npos) << result.err;
  EXPECT_EQ(contents(folder / "cut.g729").size(), 1000u);
  // A program that writes to a pipe cannot know the size; that is no fault.
  run_well(
      "{ head -c 40 voice.wav; printf '\\377\\377\\377\\377'; tail -c +45 voice.wav; } |"
      " kelg729f encode - piped.g729");
  run_well("kelg729f encode voice.wav whole.g729 && cmp whole.g729 piped.g729");
}

// By the parity of the first lag: a WAV by another name is noise to the decoder.
TEST_F(Misuse, WhatIsNoSpeechIsRemarkedOn) {
  run_well("head -c 500 voice.wav >renamed.g729; head -c 4000 /dev/urandom >random.g729");
  run_well("head -c 490 voice.wav >short.g729");
  EXPECT_EQ(run("kelg729f info short.g729").err, "");
  for (const char* command : {"info renamed.g729", "decode --raw random.g729 x.raw"}) {
    const Result result = run(std::string("kelg729f ") + command);
    EXPECT_NE(result.err.find("wrong parity bit; this is hardly G.729"), std::string::npos);
    EXPECT_LT(result.err.size(), 300u) << "remarks of the codec";
  }
  EXPECT_EQ(run("kelg729f info good.g729").err, "");
  run_well("kelg729f encode --rate 6.4 voice.wav low.bit");  // without parity
  EXPECT_EQ(run("kelg729f info low.bit").err, "");
  run_well("kelg729f info --json good.g729 good.bit >x.json");
  EXPECT_NE(contents(folder / "x.json").find("\"parity_errors\": 0"), std::string::npos);
}

}  // namespace
}  // namespace test
