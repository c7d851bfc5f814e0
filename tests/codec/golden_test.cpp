// Golden results: every build of the codec gives these very bits on every machine.
//
// GOLDEN_REWRITE=FILE writes the table anew (and fails, so that it is never left on).
#include "tests/codec/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "codec/dispatch.h"
#include "tests/support/signals.h"

// KELG729F_TARGETS is X(name) for every build of the core.
#define X(name)                                                        \
  namespace g729::name {                                               \
  GoldenHash golden_hash(const int16_t*, int frames, GoldenPlan plan); \
  }
KELG729F_TARGETS
#undef X

namespace {

using HashFunction = GoldenHash (*)(const int16_t*, int, GoldenPlan);

HashFunction function_of(const std::string& target) {
#define X(name) \
  if (target == #name) return g729::name::golden_hash;
  KELG729F_TARGETS
#undef X
  return nullptr;
}

struct Case {
  std::string name;
  GoldenPlan plan;
  GoldenHash expected;
};

const Case kCases[] = {
#include "tests/codec/golden_table.inc"
};

signals::Samples golden_signal() {
  using namespace signals;
  return join({speech_like(400, 21), silence(60), noisy_speech(300, 10, 22), noise(100, 30, 23),
               chord(200), clicks(60, 700), square(40, 31), speech_like(200, 24), noise(80, 400)});
}

TEST(Golden, EveryBuildGivesTheRecordedResults) {
  const signals::Samples signal = golden_signal();
  const int frames = static_cast<int>(signal.size()) / 80;
  for (const Case& c : kCases) {
    std::vector<uint64_t> states;  // of the first build: the others' are the same, frame by frame
    for (auto target = g729::supported_targets(); *target; ++target) {
      SCOPED_TRACE(c.name + " on " + (*target)->name);
      const HashFunction hash = function_of((*target)->name);
      ASSERT_NE(hash, nullptr);
      const GoldenHash got = hash(signal.data(), frames, c.plan);
      EXPECT_EQ(got.stream, c.expected.stream);
      EXPECT_EQ(got.synthesis, c.expected.synthesis);
      EXPECT_EQ(got.output, c.expected.output);
      if (states.empty()) states = got.states;
      const auto differs = std::ranges::mismatch(got.states, states);
      EXPECT_EQ(differs.in1 - got.states.begin(), frames) << "first frame with other states";
    }
  }
}

TEST(Golden, TheTableIsNotBeingRewritten) {
  const char* path = std::getenv("GOLDEN_REWRITE");
  if (!path) return;
  const signals::Samples signal = golden_signal();
  const int frames = static_cast<int>(signal.size()) / 80;
  const HashFunction hash = function_of((*g729::supported_targets())->name);
  std::ofstream table(path);
  for (const Case& c : kCases) {
    const GoldenHash got = hash(signal.data(), frames, c.plan);
    char line[200];
    std::snprintf(line, sizeof line, "{\"%s\", {%d, %s, %u}, {0x%016llX, 0x%016llX, 0x%016llX}},\n",
                  c.name.c_str(), c.plan.rate, c.plan.annexb ? "true" : "false", c.plan.loss,
                  static_cast<unsigned long long>(got.stream),
                  static_cast<unsigned long long>(got.synthesis),
                  static_cast<unsigned long long>(got.output));
    table << line;
  }
  FAIL() << "golden table rewritten to " << path;
}

}  // namespace
