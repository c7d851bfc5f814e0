// A decoder on a clock that the test turns.
#pragma once

#include "tests/src/harness.h"

struct Live {
  Harness h = make_decoder();
  Object<GstTestClock> clock;

  Live() {
    gst_harness_use_testclock(h.get());
    clock.reset(gst_harness_get_testclock(h.get()));
  }
  GstFlowReturn push(gsize size, GstClockTime pts = GST_CLOCK_TIME_NONE, bool discont = false) {
    GstBuffer* buffer = make_buffer(size, pts);
    if (discont) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    return gst_harness_push(h.get(), buffer);
  }
  void push_and_drop(gsize size, GstClockTime pts) {
    ASSERT_EQ(push(size, pts), GST_FLOW_OK);
    pull(h);
  }
  GstClockTime next_deadline() {
    GstClockID id = nullptr;
    gst_test_clock_wait_for_next_pending_id(clock.get(), &id);
    const GstClockTime time = gst_clock_id_get_time(id);
    gst_clock_id_unref(id);
    return time;
  }
  Buffer noise() {
    EXPECT_TRUE(gst_harness_crank_single_clock_wait(h.get()));
    return pull(h);
  }
  bool waiting() { return gst_test_clock_peek_id_count(clock.get()) > 0; }
};
