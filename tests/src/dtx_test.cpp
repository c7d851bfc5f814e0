// Comfort noise on a clock that the test turns.
#include <random>

#include "tests/src/live.h"

namespace {

constexpr const char* kNoClock = "No clock, unable to do DTX";

TEST(ComfortNoise, EveryTenMilliseconds) {
  Live live;
  gst_test_clock_set_time(live.clock.get(), 5 * GST_SECOND + 1234567);
  const GstClockTime start = gst_clock_get_time(GST_CLOCK(live.clock.get()));
  live.push_and_drop(12, GST_SECOND);
  for (GstClockTime i = 1; i <= 20; i++) {
    ASSERT_EQ(live.next_deadline(), start + i * kTick);
    const Buffer noise = live.noise();
    EXPECT_EQ(gst_buffer_get_size(noise.get()), kPcm);
    EXPECT_EQ(GST_BUFFER_PTS(noise.get()), GST_SECOND + (i + 1) * kTick);
    EXPECT_EQ(GST_BUFFER_DURATION(noise.get()), kTick);
  }
}

// A late wake-up is made up for: the deadlines stay where they were.
TEST(ComfortNoise, CatchesUp) {
  Live live;
  live.push_and_drop(2, 0);
  live.next_deadline();
  gst_test_clock_set_time(live.clock.get(), 55 * GST_MSECOND);
  for (GstClockTime i = 1; i <= 5; i++) {
    ASSERT_EQ(live.next_deadline(), i * kTick);
    EXPECT_EQ(GST_BUFFER_PTS(live.noise().get()), i * kTick);
  }
  EXPECT_EQ(live.next_deadline(), 6 * kTick);
}

TEST(ComfortNoise, EndsWithTheNextBuffer) {
  for (const gsize size : {10, 20, 4}) {  // the last is not valid, and ends it too
    Live live;
    live.push_and_drop(2, 0);
    for (int i = 1; i <= 3; i++) live.noise();
    live.next_deadline();
    ASSERT_EQ(live.push(size, 4 * kTick), GST_FLOW_OK);
    EXPECT_FALSE(live.waiting());
    if (size != 4) {
      EXPECT_EQ(GST_BUFFER_PTS(pull(live.h).get()), 4 * kTick);
    }
    gst_test_clock_advance_time(live.clock.get(), GST_SECOND);
    EXPECT_EQ(live.push(10), GST_FLOW_OK);
    EXPECT_FALSE(live.waiting());
    EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 1u);
  }
}

// A descriptor within comfort noise starts it anew, ten milliseconds from there.
TEST(ComfortNoise, NewDescriptorNewGrid) {
  Live live;
  live.push_and_drop(2, 0);
  for (int i = 1; i <= 3; i++) live.noise();
  live.next_deadline();
  gst_test_clock_set_time(live.clock.get(), 37 * GST_MSECOND);
  live.push_and_drop(2, 4 * kTick);
  EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 0u);
  EXPECT_EQ(live.next_deadline(), 47 * GST_MSECOND);
  EXPECT_EQ(GST_BUFFER_PTS(live.noise().get()), 5 * kTick);
}

TEST(ComfortNoise, NoiseIsTheDecodersOwn) {
  Live first, second;
  for (Live* live : {&first, &second}) live->push_and_drop(2, 0);
  for (int i = 0; i < 50; i++) {
    EXPECT_EQ(bytes_of(first.noise().get()), bytes_of(second.noise().get()));
  }
}

// Comfort noise that falls on the same tick as the buffer that ends it has filled that buffer's
// place: the buffer follows on, and the next silence takes the lead back.
TEST(ComfortNoise, SurplusIsTakenBack) {
  Live live;
  live.push_and_drop(2, 0);
  for (int i = 1; i <= 5; i++) live.noise();
  ASSERT_EQ(live.push(10, 5 * kTick), GST_FLOW_OK);
  EXPECT_EQ(GST_BUFFER_PTS(pull(live.h).get()), 6 * kTick);
  gst_test_clock_set_time(live.clock.get(), 6 * kTick);
  ASSERT_EQ(live.push(2, 6 * kTick), GST_FLOW_OK);
  EXPECT_EQ(GST_BUFFER_PTS(pull(live.h).get()), 7 * kTick);
  EXPECT_EQ(live.next_deadline(), 8 * kTick);
  EXPECT_EQ(GST_BUFFER_PTS(live.noise().get()), 8 * kTick);
  // A timestamp further back than comfort noise explains is a new time.
  ASSERT_EQ(live.push(10, 3 * kTick), GST_FLOW_OK);
  EXPECT_EQ(GST_BUFFER_PTS(pull(live.h).get()), 3 * kTick);
}

TEST(ComfortNoise, ReadyReturnsFromTheMiddle) {
  for (int run = 0; run < 20; run++) {
    Live live;
    live.push_and_drop(2, 0);
    if (run % 2) live.noise();
    live.next_deadline();  // the clock stands still: only the state change can end the wait
    EXPECT_EQ(gst_element_set_state(live.h->element, GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
    EXPECT_FALSE(live.waiting());
  }
}

TEST(ComfortNoise, NothingAfterFlushOrEnd) {
  const auto end = [](GstHarness* h) { gst_harness_push_event(h, gst_event_new_eos()); };
  const auto segment = [](GstHarness* h) { send_segment(h); };
  for (void (*event)(GstHarness*) : {flush, +end, +segment}) {
    Live live;
    live.push_and_drop(2, 0);
    live.noise();
    live.next_deadline();
    event(live.h.get());
    gst_test_clock_advance_time(live.clock.get(), GST_SECOND);
    EXPECT_FALSE(live.waiting());
    EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 0u);
  }
}

// A gap in the stream is silence all the same, and the noise's time goes on.
TEST(ComfortNoise, GoesOnThroughGaps) {
  Live live;
  live.push_and_drop(2, GST_SECOND);
  for (GstClockTime i = 1; i <= 6; i++) {
    EXPECT_EQ(GST_BUFFER_PTS(live.noise().get()), GST_SECOND + i * kTick);
    gst_harness_push_event(live.h.get(), gst_event_new_gap(GST_SECOND + i * kTick, kTick));
  }
  live.push(10, GST_SECOND + 7 * kTick);
  EXPECT_EQ(GST_BUFFER_PTS(pull(live.h).get()), GST_SECOND + 7 * kTick);
}

// What falls into a pause of the pipeline is not made up for.
TEST(ComfortNoise, Pause) {
  Live live;
  live.push_and_drop(2, 0);
  live.noise();
  EXPECT_EQ(live.next_deadline(), 2 * kTick);
  gst_test_clock_set_time(live.clock.get(), GST_SECOND);
  gst_element_set_base_time(live.h->element, GST_SECOND - kTick);
  EXPECT_EQ(GST_BUFFER_PTS(live.noise().get()), 2 * kTick);
  EXPECT_EQ(live.next_deadline(), GST_SECOND + kTick);
}

TEST(ComfortNoise, WithoutClock) {
  LogCapture log("g729fdec");
  Harness h = make_decoder();
  gst_element_set_clock(h->element, nullptr);
  for (gsize i = 1; i <= 3; i++) {
    ASSERT_EQ(gst_harness_push(h.get(), make_buffer(2, i * kTick)), GST_FLOW_OK);
    EXPECT_TRUE(log.wait(GST_LEVEL_WARNING, kNoClock, i));
  }
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 3u);
  h.reset();
  EXPECT_EQ(log.count(GST_LEVEL_WARNING, kNoClock), 3u);
}

TEST(ComfortNoise, Logs) {
  LogCapture log("g729fdec");
  Live live;
  gst_test_clock_set_time(live.clock.get(), 3723 * GST_SECOND);
  live.push_and_drop(2, 0);
  live.noise();
  live.push_and_drop(10, 2 * kTick);
  EXPECT_EQ(log.count(GST_LEVEL_DEBUG, "start DTX transmission"), 1u);
  EXPECT_EQ(log.count(GST_LEVEL_DEBUG, "stop DTX transmission"), 2u);
  EXPECT_EQ(log.count(GST_LEVEL_DEBUG, "producing DTX packet at time 1:02:03.010000000"), 1u);
}

// A live source: talk spurts, then silence with a descriptor now and then. What comes after a
// descriptor has the discontinuity flag, as depayloaders set it.
struct Source {
  std::mt19937 random;
  int speech = 50;
  int silence = 0;

  explicit Source(unsigned seed) : random(seed) {}
  gsize next() {  // bytes of this tick's packet
    if (speech > 0) {
      if (--speech == 0) silence = 1 + static_cast<int>(random() % 150);
      return speech == 0 ? 2 : 10;
    }
    if (--silence <= 0) speech = 1 + static_cast<int>(random() % 200);
    return random() % 25 == 0 ? 2 : 0;
  }
};

// Collects the output and checks its timestamps.
struct Output {
  GstClockTime end = 0;
  GstClockTime total = 0;

  void take(const Buffer& buffer) {
    ASSERT_TRUE(buffer);
    ASSERT_GE(GST_BUFFER_PTS(buffer.get()), end);
    end = GST_BUFFER_PTS(buffer.get()) + GST_BUFFER_DURATION(buffer.get());
    total += GST_BUFFER_DURATION(buffer.get());
  }
};

// Runs comfort noise up to `time`; a packet that arrives at that very time may come before the
// noise of that tick or after it.
void run_noise(Live& live, Output& output, bool on, GstClockTime time, bool noise_first) {
  while (on) {
    const GstClockTime deadline = live.next_deadline();
    if (deadline > time || (deadline == time && !noise_first)) break;
    gst_test_clock_set_time(live.clock.get(), deadline);
    GstClockID id = gst_test_clock_process_next_clock_id(live.clock.get());
    if (id) gst_clock_id_unref(id);
    output.take(pull(live.h));
  }
  gst_test_clock_set_time(live.clock.get(), time);
}

TEST(TimeGrid, TenMinutesOnTime) {
  Live live;
  Output output;
  Source source(11);
  bool noise = false;
  for (GstClockTime tick = 0; tick < 60000; tick++) {
    const gsize size = source.next();
    run_noise(live, output, noise, tick * kTick, size == 0 || source.random() % 2);
    if (size > 0) {
      ASSERT_EQ(live.push(size, tick * kTick, noise), GST_FLOW_OK);
      output.take(pull(live.h));
      noise = size == 2;
    }
    if (testing::Test::HasFatalFailure()) return;
    const auto drift = GST_CLOCK_DIFF((tick + 1) * kTick, output.total);
    ASSERT_LE(ABS(drift), kTick) << "tick " << tick;
  }
}

// The network holds packets up by as much as 45 ms, each in its turn.
TEST(TimeGrid, TenMinutesOfJitter) {
  Live live;
  Output output;
  Source source(12);
  bool noise = false;
  GstClockTime arrival = 0;
  constexpr GstClockTime kJitter = 45 * GST_MSECOND;
  for (GstClockTime tick = 0; tick < 60000; tick++) {
    const gsize size = source.next();
    if (size == 0) continue;
    const GstClockTime sent = tick * kTick;
    arrival = std::max(arrival, sent + source.random() % kJitter);
    run_noise(live, output, noise, arrival, source.random() % 2);
    ASSERT_EQ(live.push(size, sent, noise), GST_FLOW_OK);
    output.take(pull(live.h));
    noise = size == 2;
    if (testing::Test::HasFatalFailure()) return;
    const auto ahead = GST_CLOCK_DIFF(sent + kTick, output.end);
    ASSERT_GE(ahead, 0);
    ASSERT_LE(ahead, static_cast<GstClockTimeDiff>(kJitter + kTick)) << "tick " << tick;
  }
}

}  // namespace
