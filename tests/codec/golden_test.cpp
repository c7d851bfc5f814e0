// Golden results: every build of the codec gives these very bits on every machine, and a decoder
// that gets every frame has the encoder's own synthesis.
//
// GOLDEN_REWRITE=FOLDER writes the tables anew (and fails, so that it is never left on).
#include "tests/codec/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "codec/dispatch.h"
#include "tests/support/signals.h"

// KELG729F_TARGETS is X(name) for every build of the core.
#define X(name)                                                        \
  namespace g729::name {                                               \
  GoldenHash golden_hash(const int16_t*, int frames, GoldenPlan plan); \
  const char* broken_lanes();                                          \
  }
KELG729F_TARGETS
#undef X

namespace {

using HashFunction = GoldenHash (*)(const int16_t*, int, GoldenPlan);

struct Build {
  std::string name;
  HashFunction hash;
  const char* (*broken_lanes)();
};
const Build kBuilds[] = {
#define X(name) {#name, g729::name::golden_hash, g729::name::broken_lanes},
    KELG729F_TARGETS
#undef X
};

const Build& build_of(const g729::Target* target) {
  return *std::ranges::find(kBuilds, target->name, &Build::name);
}

std::string hex(uint64_t hash) {
  std::ostringstream text;
  text << "0x" << std::hex << std::uppercase << std::setfill('0') << std::setw(16) << hash;
  return text.str();
}

TEST(Lanes, AreRightInEveryBuild) {
  for (auto target = g729::supported_targets(); *target; ++target)
    EXPECT_STREQ(build_of(*target).broken_lanes(), nullptr) << (*target)->name;
}

signals::Samples golden_signal() {
  using namespace signals;
  return join({speech_like(400, 21), silence(60), noisy_speech(300, 10, 22), noise(100, 30, 23),
               chord(200), clicks(60, 700), square(40, 31), speech_like(200, 24), noise(80, 400)});
}

GoldenHash one_call(HashFunction hash, GoldenPlan plan) {
  static const signals::Samples signal = golden_signal();
  return hash(signal.data(), static_cast<int>(signal.size()) / 80, plan);
}

// Short calls, which begin in the middle of something, three long ones, and a note that swells;
// frames are lost in some of them, in some the first ones.
GoldenHash many_calls(HashFunction hash, GoldenPlan plan) {
  constexpr uint32_t kCalls = 41, kLong = 3;
  static const auto calls = [] {
    std::vector<signals::Samples> all;
    for (uint32_t i = 0; i + 1 < kCalls; ++i)
      all.push_back(signals::varied(i < kLong ? 1000 : 25, i));
    all.push_back(signals::swelling_pulses(300));
    return all;
  }();
  GoldenHash sum;
  for (uint32_t i = 0; i < kCalls; ++i) {
    plan.call = i;
    plan.loss = i % 2 * (i % 48);
    const GoldenHash h = hash(calls[i].data(), static_cast<int>(calls[i].size()) / 80, plan);
    sum.stream = sum.stream * 31 + h.stream;
    sum.synthesis = sum.synthesis * 31 + h.synthesis;
    sum.output = sum.output * 31 + h.output;
    sum.state = sum.state * 31 + h.state;
    sum.lossless += h.lossless;
    sum.in_step += h.in_step;
    sum.states.insert(sum.states.end(), h.states.begin(), h.states.end());
  }
  return sum;
}

struct Case {
  std::string name;
  GoldenPlan plan;
  GoldenHash expected;
};
const Case kOneCall[] = {
#include "tests/codec/golden_table.inc"
};
const Case kLevels[] = {
#include "tests/codec/golden_levels.inc"
};
const Case kManyCalls[] = {
#include "tests/codec/golden_calls.inc"
};

struct Table {
  GoldenHash (*run)(HashFunction, GoldenPlan);
  std::span<const Case> cases;
  const char* file;
  bool with_state;
};
const Table kTables[] = {{one_call, kOneCall, "golden_table.inc", false},
                         {one_call, kLevels, "golden_levels.inc", false},
                         {many_calls, kManyCalls, "golden_calls.inc", true}};

TEST(Golden, EveryBuildGivesTheRecordedResults) {
  for (const Table& table : kTables) {
    for (const Case& c : table.cases) {
      std::vector<uint64_t> states;  // of the first build: the others' are the same, frame by frame
      for (auto target = g729::supported_targets(); *target; ++target) {
        SCOPED_TRACE(c.name + " on " + (*target)->name);
        const GoldenHash got = table.run(build_of(*target).hash, c.plan);
        EXPECT_EQ(hex(got.stream), hex(c.expected.stream)) << "the encoder";
        EXPECT_EQ(hex(got.synthesis), hex(c.expected.synthesis))
            << "the decoder, if the stream is right";
        EXPECT_EQ(hex(got.output), hex(c.expected.output))
            << "what follows, if the synthesis is right";
        if (table.with_state) {
          EXPECT_EQ(hex(got.state), hex(c.expected.state))
              << "right when a new double is remembered";
        }
        EXPECT_EQ(got.in_step, got.lossless);
        if (states.empty()) states = got.states;
        const auto same = std::ranges::mismatch(got.states, states).in1 - got.states.begin();
        EXPECT_EQ(same, std::ssize(got.states)) << "first frame with other states";
      }
    }
  }
}

TEST(Golden, TheTablesAreNotBeingRewritten) {
  const char* folder = std::getenv("GOLDEN_REWRITE");
  if (!folder) return;
  for (const Table& table : kTables) {
    std::ofstream file(std::string(folder) + "/" + table.file);
    for (const Case& c : table.cases) {
      const GoldenHash got = table.run(build_of(*g729::supported_targets()).hash, c.plan);
      file << "{\"" << c.name << "\", {" << c.plan.rate << ", " << std::boolalpha << c.plan.annexb
           << ", " << c.plan.loss;
      if (c.plan.complexity != 0) file << ", 0, " << c.plan.complexity;
      file << "}, {" << hex(got.stream) << ", " << hex(got.synthesis) << ", " << hex(got.output);
      if (table.with_state) file << ", " << hex(got.state);
      file << "}},\n";
    }
  }
  FAIL() << "golden tables rewritten in " << folder;
}

}  // namespace
