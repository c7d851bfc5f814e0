// Random scenarios (scenario.h): a call over a link that delays and loses, and what happens to
// pipelines meanwhile. STORM_SEQUENCES says how many.
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>

#include "tests/src/scenario.h"

namespace {

class Call {
 public:
  explicit Call(unsigned seed) : random_(seed) {
    plc_ = below(2);
    stamped_ = below(4);
    delay_ = below(3) * 30;
    loss_ = below(3) * 10;
    do_step("plc=", plc_);
    if (below(3)) do_step("latency=80/60");
  }
  void step() {
    const int least = below(8) ? 1 : 0;
    if (least) return packet();
    happen();
    sync();
  }
  std::string script;

 private:
  int below(int most) { return static_cast<int>(random_() % static_cast<unsigned>(most)); }

  template <typename... Parts>
  void do_step(const Parts&... parts) {
    std::ostringstream word;
    (word << ... << parts);
    script.append(word.str()).append(" ");
    scenario_.play(word.str());
    ASSERT_EQ(scenario_.heard().out_of_turn, 0u);
  }
  // Time passes: every 10 ms of it since noise began a frame of noise, if the clock alone counts.
  void pass(int ms, bool late = false) {
    const guint64 before = scenario_.counter("comfort-noise");
    const bool noisy = scenario_.noisy() && by_clock_;
    do_step(late ? "late+" : "t+", ms);
    now_ += ms;
    if (!noisy) return;
    const int frames = (since_ + ms) / 10 - since_ / 10;
    since_ += ms;
    ASSERT_EQ(scenario_.counter("comfort-noise") - before, static_cast<guint64>(frames));
  }
  // What came before has nothing to do with what comes.
  void sync() {
    breaks_ = scenario_.heard().breaks;
    fresh_ = true;
  }

  void packet() {
    const int frames = 1 + below(3);
    const bool last = !talks_ || turn_ <= frames;
    if (talks_ || below(10) == 0) send(frames, last);
    sent_ += 10 * frames;
    turn_ -= frames;
    if (turn_ > 0) return;
    talks_ = !talks_;
    turn_ = 1 + below(40);
  }
  void send(int frames, bool descriptor) {
    const int wait = sent_ + (delay_ ? below(delay_) : 0) - now_;
    if (wait > 0) pass(wait);
    if (below(100) < loss_) {
      if (below(2)) do_step("gap@", sent_, "+", 10 * frames);
      return;
    }
    const GstClockTime end = scenario_.heard().end, pts = ms(sent_);
    const int size = 10 * frames - (descriptor ? 8 : 0);
    const char* mark = below(10) ? "" : "!";
    stamped_ ? do_step(mark, size, "@", sent_) : do_step(mark, size);
    if (descriptor) since_ = 0, by_clock_ = !plc_;
    if (plc_ && stamped_) check(end, pts, pts + ms(10 * frames));
    fresh_ = false;
    breaks_ = scenario_.heard().breaks;
  }
  void check(GstClockTime before, GstClockTime pts, GstClockTime until) {
    const auto heard = scenario_.heard();
    if (!fresh_) {
      ASSERT_EQ(heard.breaks, breaks_);
    }
    ASSERT_GE(heard.end + kTick, until);
    if (before <= pts) {
      ASSERT_LE(heard.end, until + kTick);
    }
  }
  static GstClockTime ms(int time) { return static_cast<GstClockTime>(time) * GST_MSECOND; }

  void happen() {
    switch (below(9)) {
      case 0:
        return pause(below(2), below(3) == 0);
      case 1:
        sent_ += 20;
        return do_step("hole@", sent_ - 20, "+20");
      case 2:
        return do_step("hush@", sent_, "+", below(30));
      case 3:
        return do_step("4@", sent_);
      case 4:
        return pass(1 + below(100), true);
      case 5:
        plc_ = !plc_;
        return do_step("plc=", plc_);
      case 6:
        return do_step("latency=", 60 + below(60), "/", below(80));
      case 7:
        return hold();
      default:
        constexpr const char* kNews[] = {"flush", "segment@0", "segment@5", "ready", "eos flush"};
        return do_step(kNews[below(5)]);
    }
  }
  void pause(bool moves_base, bool other_clock) {
    const int length = 1 + below(300);
    do_step("pause");
    do_step("t+", length);
    if (other_clock) do_step("clock+", below(5000));
    do_step(moves_base || other_clock ? "play" : "resume");
    now_ += length;
    sent_ += length;
  }
  void hold() {
    constexpr const char* kEnds[] = {"flush let-go", "ready let-go", "let-go"};
    do_step("hold=", below(2), " ", kEnds[below(3)], " flush");
    since_ = 0;
    now_ += 100;  // the clock may have been turned to the next packet of noise
    do_step("t+100");
  }

  std::mt19937 random_;
  Scenario scenario_;
  bool plc_, stamped_, talks_ = true, fresh_ = true, by_clock_ = false;
  int delay_, loss_, turn_ = 20, sent_ = 0, now_ = 0, since_ = 0;
  gsize breaks_ = 0;
};

TEST(Random, Scenarios) {
  const char* count = std::getenv("STORM_SEQUENCES");
  const unsigned calls = count ? static_cast<unsigned>(std::atoi(count)) : 100;
  for (unsigned seed = 1; seed <= calls; seed++) {
    Call call(seed);
    for (int i = 0; i < 60; i++) {
      call.step();
      if (HasFailure()) FAIL() << "call " << seed << ": " << call.script;
    }
  }
}

}  // namespace
