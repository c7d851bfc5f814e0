// Both elements where things go wrong around them, one thing at a time.
#include <malloc.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/src/faults.h"
#include "tests/src/live.h"

namespace {

using Sizes = std::vector<gsize>;
using Abuse = OfBoth;
FOR_BOTH_ELEMENTS(Abuse);

// The answer comes back to the caller, and the element goes on when all is well again.
TEST_P(Abuse, DownstreamAnswers) {
  Downstream downstream(h.get());
  for (const GstFlowReturn flow :
       {GST_FLOW_EOS, GST_FLOW_FLUSHING, GST_FLOW_ERROR, GST_FLOW_NOT_LINKED}) {
    EXPECT_EQ(push(), GST_FLOW_OK);
    downstream.answer(flow);
    EXPECT_EQ(push(), flow);
    downstream.answer(GST_FLOW_OK);
    flush(h.get());
    while (Buffer old{gst_harness_try_pull(h.get())}) continue;
    EXPECT_EQ(push(), GST_FLOW_OK);
    EXPECT_EQ(pull_sizes(h), Sizes{kind.result});
  }
}

TEST_P(Abuse, NoMemoryIsAnError) {
  GstBuffer* buffer = make_buffer(kind.packet);
  {
    const NoMemory no_memory;
    EXPECT_EQ(gst_harness_push(h.get(), buffer), GST_FLOW_ERROR);
  }
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 0u);
  flush(h.get());
  EXPECT_EQ(push(), GST_FLOW_OK);
  EXPECT_EQ(pull_sizes(h), Sizes{kind.result});
}

// A sink that blocks holds the buffer, and the thread that brings it, until a flush.
TEST_P(Abuse, FlushInTheMiddleOfABuffer) {
  Downstream downstream(h.get());
  for (GstClockTime i = 1; i <= 50; i++) {
    downstream.block(true);
    const auto bring = [](gpointer data) -> gpointer {
      return GINT_TO_POINTER(static_cast<Abuse*>(data)->push());
    };
    GThread* streaming = g_thread_new("streaming", bring, this);
    downstream.wait_until_waited_for();
    gst_harness_push_event(h.get(), gst_event_new_flush_start());
    gst_harness_push_event(h.get(), gst_event_new_flush_stop(TRUE));
    EXPECT_EQ(GPOINTER_TO_INT(g_thread_join(streaming)), GST_FLOW_FLUSHING);
    send_segment(h.get());
    EXPECT_EQ(push(i * GST_SECOND), GST_FLOW_OK);
    EXPECT_EQ(GST_BUFFER_PTS(pull(h).get()), i * GST_SECOND);
  }
}

// After any number of bytes the end comes through, once, and nothing behind it.
TEST_P(Abuse, EndAtEveryPoint) {
  for (gsize bytes = 0; bytes <= 3 * kind.packet; bytes += 2) {
    Harness ended = kind.make();
    if (bytes > 0) gst_harness_push(ended.get(), make_buffer(bytes));
    EXPECT_TRUE(gst_harness_push_event(ended.get(), gst_event_new_eos()));
    const gsize buffers = gst_harness_buffers_in_queue(ended.get());
    EXPECT_EQ(gst_harness_push(ended.get(), make_buffer(kind.packet)), GST_FLOW_EOS);
    gst_harness_push_event(ended.get(), gst_event_new_eos());
    EXPECT_EQ(gst_harness_buffers_in_queue(ended.get()), buffers);
    gsize ends = 0;
    while (GstEvent* event = gst_harness_try_pull_event(ended.get())) {
      ends += GST_EVENT_TYPE(event) == GST_EVENT_EOS;
      gst_event_unref(event);
    }
    EXPECT_EQ(ends, 1u) << bytes;
  }
}

// Other caps of the same format change nothing; caps of another format stop the stream until the
// right ones come.
TEST_P(Abuse, CapsRenegotiation) {
  const std::string caps = kind.caps;
  const std::pair<std::string, bool> offers[] = {
      {caps + ", note=(string)other", true},
      {caps.substr(0, caps.find(',')) + ", rate=(int)16000, channels=(int)2", false},
      {"audio/x-alaw, rate=(int)8000, channels=(int)1", false},
      {caps, true}};
  for (int round = 0; round < 20; round++) {
    for (const auto& [offer, taken] : offers) {
      send_caps(h.get(), offer);
      EXPECT_EQ(push() == GST_FLOW_OK, taken) << offer;
      EXPECT_EQ(pull_sizes(h), taken ? Sizes{kind.result} : Sizes{});
    }
  }
}

// In every state and with something to do they leave no object and no memory.
TEST_P(Abuse, MadeAndDropped) {
  int finalized = 0;
  const auto count = [](gpointer number, GObject*) { ++*static_cast<int*>(number); };
  const auto use = [&](int number) {
    for (int i = 0; i < number; i++) {
      const Harness one = kind.make();
      constexpr GstState kStates[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED};
      g_object_weak_ref(G_OBJECT(one->element), count, &finalized);
      gst_harness_push(one.get(), make_buffer(kind.packet));
      if (i % 2 == 0) gst_harness_push(one.get(), make_buffer(2));  // a descriptor, a sample
      if (i % 5 < 3) gst_element_set_state(one->element, kStates[i % 5]);
    }
  };
  use(50);
  const size_t before = mallinfo2().uordblks;
  use(200);
  EXPECT_EQ(finalized, 250);
  EXPECT_LT(mallinfo2().uordblks, before + 200 * 100);
}

// Pads that refuse to start leave nothing behind; the next start works.
TEST_P(Abuse, FailedStart) {
  gst_element_set_state(h->element, GST_STATE_NULL);
  Object<GstPad> pad(gst_element_get_static_pad(h->element, "sink"));
  const auto usual = GST_PAD_ACTIVATEFUNC(pad.get());
  gst_pad_set_activate_function(pad.get(), [](GstPad*, GstObject*) -> gboolean { return FALSE; });
  EXPECT_EQ(gst_element_set_state(h->element, GST_STATE_PAUSED), GST_STATE_CHANGE_FAILURE);
  gst_element_set_state(h->element, GST_STATE_NULL);
  gst_pad_set_activate_function(pad.get(), usual);
  gst_harness_play(h.get());
  send_stream(h.get(), kind.caps);
  EXPECT_EQ(push(), GST_FLOW_OK);
  EXPECT_EQ(pull_sizes(h), Sizes{kind.result});
}

TEST(Sizes, DecoderTakesEveryOne) {
  Harness h = make_decoder();
  for (gsize size = 0; size <= 4096; size++) {
    ASSERT_EQ(gst_harness_push(h.get(), make_buffer(size, GST_CLOCK_TIME_NONE, guint32(size))),
              GST_FLOW_OK);
    const gsize frames = size % 10 == 0 ? size / 10 : size % 10 == 2 ? size / 10 + 1 : 0;
    gst_harness_push(h.get(), make_buffer(1));  // ends comfort noise
    ASSERT_EQ(pull_sizes(h), frames ? Sizes{frames * kPcm} : Sizes{}) << size;
  }
}

// What cannot be made or is not taken is left out; the next tick tries again.
TEST(NoiseAbuse, GoesOnAfterFailures) {
  Live live;
  Downstream downstream(live.h.get());
  live.push_and_drop(2, 0);
  const auto fail = [&] {
    for (int i = 0; i < 3; i++) {
      live.next_deadline();
      gst_test_clock_crank(live.clock.get());
    }
    live.next_deadline();
  };
  {
    const NoMemory no_memory;
    fail();
  }
  EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 0u);
  EXPECT_TRUE(live.noise());
  for (const GstFlowReturn flow : {GST_FLOW_EOS, GST_FLOW_FLUSHING, GST_FLOW_ERROR}) {
    downstream.answer(flow);
    fail();
    downstream.answer(GST_FLOW_OK);
    EXPECT_TRUE(live.noise());
    EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 0u);
  }
}

TEST(ConcealmentAbuse, WithoutMemory) {
  Harness h = make_decoder();
  gst_harness_set(h.get(), "kelg729fdec", "plc", TRUE, nullptr);
  gst_harness_push(h.get(), make_buffer(10, 0));
  pull(h);
  {
    const NoMemory no_memory;
    gst_harness_push_event(h.get(), gst_event_new_gap(kTick, kTick));
  }
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 0u);
  EXPECT_EQ(gst_harness_push(h.get(), make_buffer(10, 2 * kTick)), GST_FLOW_OK);
  EXPECT_EQ(GST_BUFFER_PTS(pull(h).get()), 2 * kTick);
}

// There is no place for audio before a segment, as when upstream goes on after caps were refused.
TEST(ConcealmentAbuse, WithoutSegment) {
  Harness h(gst_harness_new_parse("kelg729fdec plc=true"));
  gst_harness_push_event(h.get(), gst_event_new_stream_start("stream"));
  send_caps(h.get(), kG729Caps);
  gst_harness_push_event(h.get(), gst_event_new_gap(0, kTick));
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 0u);
}

}  // namespace
