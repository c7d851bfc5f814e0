// The time line by itself: random calls, and what must hold after each of their packets.
#include "src/audio/g729f/timeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

constexpr Time kHalf = kLineFrame / 2;

struct Link {
  Time waver;      // of the timestamps
  Time delay;      // the most by which a packet arrives late
  Time allowance;  // or unknown
  int loss;        // per cent
};

// Talks and is silent by turns; packets of one to three frames, a descriptor at the end of a turn
// and now and then in silence.
struct Call {
  std::mt19937 random;
  const Link link;
  Timeline line;
  Time sent = 0, now = 0, first = kUnknown, made = 0;
  int turn = 20;
  bool talks = true;

  Call(unsigned seed, const Link& with) : random(seed), link(with) {
    line.shift = 1234567;
    line.allowance = link.allowance;
  }
  Time below(Time most) { return most > 0 ? static_cast<Time>(random()) % most : 0; }

  void noise_until(Time time) {
    while (line.silent && timeline_due(line) <= time) {
      const Time due = timeline_due(line), end = line.end;
      if (link.allowance != kUnknown) {
        ASSERT_EQ(due, end + line.shift + link.allowance);
      }
      timeline_noise(line);
      ASSERT_EQ(line.end, end + kLineFrame);
      ASSERT_EQ(timeline_due(line), due + kLineFrame);
      made += kLineFrame;
    }
  }
  void packet(Time duration, bool descriptor) {
    const Time pts = sent + below(2 * link.waver) - link.waver;
    now = std::max(now, sent + line.shift + below(link.delay));
    noise_until(now);
    if (below(100) < link.loss) return told(duration);
    const Timeline before = line;
    const Entry entry = timeline_packet(line, pts, duration, descriptor);
    if (first == kUnknown) first = entry.begin;
    made += entry.fill + duration - entry.cut;
    check(before, entry, pts, duration);
    if (descriptor) timeline_begin_noise(line, now);
  }
  // Somebody may tell of a loss, in one way or another.
  void told(Time duration) {
    if (first == kUnknown || below(3) == 0) return;
    const Time end = line.end;
    const Entry entry = timeline_gap(line, sent, below(4) ? duration : 0);
    ASSERT_EQ(entry.begin, end);
    ASSERT_EQ(line.end, end + entry.fill);
    made += entry.fill;
  }
  void check(const Timeline& before, const Entry& entry, Time pts, Time duration) {
    if (before.end != kUnknown) {
      ASSERT_EQ(entry.begin, before.end);
    }
    ASSERT_EQ(line.end - first, made);
    ASSERT_TRUE(entry.fill >= 0 && entry.cut >= 0 && entry.cut <= duration);
    ASSERT_EQ(entry.fill % kLineFrame + entry.cut % kLineFrame, 0);
    if (entry.cut < duration) {
      const Time off = entry.begin + entry.fill - (pts + entry.cut);
      ASSERT_LE(std::abs(off), before.made > 0 ? kHalf : kLineFrame);
    } else {
      ASSERT_GE(line.end, pts + duration - kHalf);
    }
    // What came in the time that it has is heard whole.
    const bool in_time = link.allowance != kUnknown && link.delay <= link.allowance;
    if (in_time && link.loss == 0) {
      ASSERT_EQ(entry.cut, 0);
    }
  }
  void go_on() {
    const Time frames = 1 + below(3);
    if (talks || below(20) == 0) packet(frames * kLineFrame, !talks || turn <= frames);
    sent += frames * kLineFrame;
    turn -= static_cast<int>(frames);
    if (turn > 0) return;
    talks = !talks;
    turn = 1 + static_cast<int>(below(150));
  }
};

TEST(Timeline, RandomCalls) {
  constexpr Time ms = kMillisecond;
  constexpr Link links[] = {
      {0, 0, kUnknown, 0},
      {0, 40 * ms, kUnknown, 10},
      {2 * ms, 0, kUnknown, 20},
      {0, 60 * ms, 60 * ms, 0},
      {2 * ms, 60 * ms, 70 * ms, 0},
      {2 * ms, 60 * ms, 70 * ms, 10},
      {2 * ms, 200 * ms, 50 * ms, 5},
      {0, 900 * ms, 0, 50},
  };
  unsigned seed = 1;
  for (const Link& link : links) {
    for (int i = 0; i < 40; i++) {
      Call call(seed++, link);
      for (int step = 0; step < 500; step++) {
        call.go_on();
        if (HasFatalFailure()) FAIL() << "call " << seed << " step " << step;
      }
    }
  }
}

// Times so far off that nothing explains them.
TEST(Timeline, NewTimes) {
  for (const Time off : {kMostMissing + 1, -kMostBack - 1}) {
    Timeline line;
    timeline_packet(line, kMostMissing, kLineFrame, false);
    const Time pts = line.end + off;
    const Entry entry = timeline_packet(line, pts, kLineFrame, false);
    EXPECT_EQ(entry.begin, pts);
    EXPECT_EQ(entry.fill + entry.cut, 0);
    EXPECT_EQ(line.end, pts + kLineFrame);
  }
}

}  // namespace
