#include <algorithm>
#include <csignal>
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
    store_wav(folder / "slow.wav", std::vector<int16_t>(500), 999);
    store_wav(folder / "fast.wav", std::vector<int16_t>(500), 768001);
    store_wav(folder / "brief.wav", std::vector<int16_t>(10), 768000);
    store_wav(folder / "silent.wav", std::vector<int16_t>(1600));
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
    {"encode voice.wav cd.wav -", 2, "-: not a folder"},
    {"encode voice.wav cd.wav /dev/null/x", 4, "/dev/null/x: cannot make folder: Not a directory"},
    {"encode '' x.g729", 2, "a file name is empty"},
    {"encode --complexity 4 voice.wav x.g729", 2, "4 is no number from 0 to 3"},
    {"encode --format g729 - x </proc/self/mem", 3, "standard input: cannot read: Input/output"},
    {"encode - x.g729 <&-", 3, "standard input: cannot read"},
    {"encode voice.wav ./voice.wav dir", 2, "two inputs"},
    {"encode voice.wav - dir", 2, "standard input"},
    {"encode voice.wav no/such/x.g729", 4, "No such file"},
    {"encode voice.wav /dev/full --format bit", 4, "No space left"},
    {"encode missing.wav x.g729", 3, "missing.wav"},
    {"encode . x.g729", 3, "folder"},
    {"encode slow.wav x.g729", 3, "has 999 Hz; sample rates from 1000"},
    {"encode fast.wav x.g729", 3, "has 768001 Hz"},
    {"encode brief.wav x.g729", 3, "brief.wav: has no samples"},
    {"encode nothing x.g729", 3, "no WAV file (it is empty)"},
    {"encode --raw nothing x.g729", 3, "has no samples"},
    {"encode -j 0 voice.wav x.g729", 2, "0 is no number from 1 to 256"},
    {"encode empty.wav x.g729", 3, "no samples"},
    {"encode text.wav x.g729", 3, "no WAV file"},
    {"decode voice.wav x.wav", 2, ".g729 or .bit"},
    {"decode good.g729 x.bit", 2, "end its name in .wav"},
    {"decode good.g729 good.g729", 2, "name another output"},
    {"decode --loss 101 good.g729 x.wav", 2, "101 is no number from 0 to 100"},
    {"decode --loss 5% good.g729 x.wav", 2, "5% is no number"},
    {"decode --loss 66.8 --burst 2 good.g729 good.bit dir", 2, "longer bursts"},
    {"decode --burst 0 good.g729 x.wav", 2, "0 is no number from 1 to 1000"},
    {"decode --seed -1 good.g729 x.wav", 2, "-1 is no number from 0 to 4.29497e+09"},
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
    {"decode --ssrc 0x x.pcap x.wav", 2, "0x is no SSRC"},
    {"decode missing.pcap x.wav", 3, "missing.pcap"},
    {"decode --format pcap voice.wav x.wav", 3, "no capture file (unknown file format)"},
    {"decode --format pcap nothing x.wav", 3, "no capture file (truncated dump file"},
    {"info voice.wav", 2, ".g729 or .bit"},
    {"info missing.bit", 3, "missing.bit"},
    {"info --format g729 /proc/self/mem", 3, "/proc/self/mem: cannot read on"},
    {"rating info good.g729", 2, "info"},
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
    {"rating --delay soon", 2, "soon is no number from 0 to 10000"},
    {"compare silent.wav voice.wav", 3, "silent.wav: silent or too short to compare"},
};

TEST_F(Misuse, OneLineSaysWhatIsWrongAndNothingIsWritten) {
  const size_t before = files();
  for (const Case& c : kCases) {
    const Result result = run(std::string("kelg729f ") + c.command);
    EXPECT_EQ(result.status, c.status) << c.command << "\n" << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << c.command << "\n" << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.out, "") << c.command;
    EXPECT_EQ(files(), before) << c.command;
  }
}

TEST_F(Misuse, FailureLeavesAnOlderOutputAlone) {
  store(folder / "old.wav", "precious");
  const size_t before = files();
  EXPECT_EQ(run("kelg729f decode word.bit old.wav").status, 3);
  EXPECT_EQ(run("ulimit -f 8; kelg729f encode --format bit voice.wav old.wav").status, 4);
  EXPECT_EQ(run("ulimit -f 8; kelg729f decode good.bit old.wav").status, 4);
  EXPECT_EQ(contents(folder / "old.wav"), "precious");
  EXPECT_EQ(files(), before);
}

// Hours of silence take long enough to be interrupted.
TEST_F(Misuse, AnInterruptLeavesNothingUnfinished) {
  run_well("truncate -s 400M 1.raw && cp --sparse=always 1.raw 2.raw && mkdir out");
  const size_t before = files();
  const Result result =
      run("'" KELG729F_TOOL
          "' encode -j 2 --raw 1.raw 2.raw out & pid=$!;"
          " until [ $(ls -A out | wc -l) = 2 ]; do sleep 0.01; done; kill $pid; wait $pid");
  EXPECT_EQ(result.status, 128 + SIGTERM) << result.err;
  EXPECT_TRUE(fs::is_empty(folder / "out"));
  EXPECT_EQ(files(), before);
}

// The status of many is the first failure's, or else that of what was cut short.
TEST_F(Misuse, TheWorstOfManyIsTold) {
  store(folder / "cut.g729", contents(folder / "good.g729").substr(0, 1007));
  for (const auto& [names, status] : {std::pair("cut.g729 good.g729", 5),
                                      {"good.g729 cut.g729", 5},
                                      {"cut.g729 missing.bit good.g729", 3},
                                      {"cut.g729 x.mp3 missing.bit", 2}})
    EXPECT_EQ(run(std::string("kelg729f info ") + names).status, status) << names;
}

// Closed streams' numbers are not taken by the files, where remarks would be written to.
TEST_F(Misuse, ClosedStreamsDoNoHarm) {
  run_well("kelg729f decode --loss 100 good.g729 a.wav");
  run_well("kelg729f decode --loss 100 good.g729 b.wav <&- >&- 2>&- && cmp a.wav b.wav");
  EXPECT_EQ(run("kelg729f decode --loss 100 good.g729 a.wav").err,
            "kelg729f: good.g729: 201 of 201 frames erased\n");
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
  // Behind a chunk of an odd length, which is padded.
  const std::string whole = contents(folder / "voice.wav");
  const std::string chunk("note\3\0\0\0abc\0", 12);
  store(folder / "cut.wav", whole.substr(0, 36) + chunk + whole.substr(36, 8 + 2 * 8000));
  const Result result = run("kelg729f encode cut.wav cut.g729");
  EXPECT_EQ(result.status, 5);
  EXPECT_NE(result.err.find(" 8000 samples"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(" 16080 bytes are missing"), std::string::npos) << result.err;
  EXPECT_EQ(contents(folder / "cut.g729").size(), 1000u);
  // A program that writes to a pipe cannot know the size; that is no fault.
  for (const auto& [size, status] : {std::pair("\\0\\0\\0\\177", 0), {"\\377\\377\\377\\176", 5}}) {
    const std::string piped = std::string("printf '") + size + "'; tail -c +45 voice.wav; } |";
    EXPECT_EQ(run("{ head -c 40 voice.wav; " + piped + " kelg729f encode - x.g729").status, status);
    run_well("kelg729f encode voice.wav whole.g729 && cmp whole.g729 x.g729");
  }
}

// By the parity of the first lag: a WAV by another name is noise to the decoder. What is damaged on
// every fourth frame may still be speech.
TEST_F(Misuse, WhatIsNoSpeechIsRemarkedOn) {
  const auto with_errors = [&](const char* name, size_t frames, size_t wrong) {
    std::string stream = contents(folder / "good.g729").substr(0, 10 * frames);
    for (size_t i = 0; i < wrong; ++i) stream[10 * i + 3] ^= '\x20';
    store(folder / name, stream);
    return run(std::string("kelg729f info ") + name).err;
  };
  EXPECT_EQ(with_errors("short.g729", 49, 49), "");
  EXPECT_EQ(with_errors("odd.g729", 100, 25), "");
  EXPECT_EQ(with_errors("more.g729", 50, 13),
            "kelg729f: more.g729: 26 % of the frames have a wrong parity bit; this is hardly G.729,"
            " or it is encrypted\n");
  EXPECT_NE(with_errors("all.g729", 50, 50).find(" 100 % of"), std::string::npos);
  run_well("head -c 4000 /dev/urandom >random.g729");
  const Result result = run("kelg729f decode --raw random.g729 x.raw");
  EXPECT_NE(result.err.find("wrong parity bit; this is hardly G.729"), std::string::npos);
  EXPECT_LT(result.err.size(), 300u) << "remarks of the codec";
  run_well("kelg729f encode --rate 6.4 voice.wav low.bit");  // without parity
  EXPECT_EQ(run("kelg729f info low.bit").err, "");
}

}  // namespace
}  // namespace test
