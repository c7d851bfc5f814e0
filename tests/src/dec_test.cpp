#include "tests/src/harness.h"

namespace {

TEST(Decoder, InvalidSizesAreDropped) {
  Harness h = make_decoder();
  for (const gsize size : {1, 4, 8, 11, 15, 19, 1001}) {
    EXPECT_EQ(gst_harness_push(h.get(), make_buffer(size)), GST_FLOW_OK);
  }
  EXPECT_EQ(gst_harness_push(h.get(), make_buffer(0)), GST_FLOW_OK);
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 0u);
  EXPECT_EQ(gst_harness_push(h.get(), make_buffer(10, 3 * kTick)), GST_FLOW_OK);
  EXPECT_EQ(GST_BUFFER_PTS(pull(h).get()), 3 * kTick);
}

TEST(Decoder, CapsAndTimestamps) {
  Harness h = make_decoder();
  // Timestamps are followed; a buffer without one goes on where the last ended.
  const GstClockTime none = GST_CLOCK_TIME_NONE;
  const GstClockTime in[] = {5 * kTick, 6 * kTick, none, none, 50 * kTick, 51 * kTick};
  const GstClockTime out[] = {5 * kTick, 6 * kTick, 7 * kTick, 8 * kTick, 50 * kTick, 51 * kTick};
  for (gsize i = 0; i < std::size(in); i++) {
    gst_harness_push(h.get(), make_buffer(10, in[i]));
    EXPECT_EQ(GST_BUFFER_PTS(pull(h).get()), out[i]) << i;
  }
  GstCaps* caps = gst_pad_get_current_caps(h->sinkpad);
  GstCaps* want = gst_caps_from_string(kRawCaps);
  EXPECT_TRUE(gst_caps_is_strictly_equal(caps, want));
  gst_caps_unref(want);
  gst_caps_unref(caps);
}

// Pads that refuse to start leave no thread behind; the next start works.
TEST(Decoder, FailedStart) {
  Harness h = make_decoder();
  gst_element_set_state(h->element, GST_STATE_NULL);
  Object<GstPad> pad(gst_element_get_static_pad(h->element, "sink"));
  const auto usual = GST_PAD_ACTIVATEFUNC(pad.get());
  gst_pad_set_activate_function(pad.get(), [](GstPad*, GstObject*) -> gboolean { return FALSE; });
  EXPECT_EQ(gst_element_set_state(h->element, GST_STATE_PAUSED), GST_STATE_CHANGE_FAILURE);
  gst_element_set_state(h->element, GST_STATE_NULL);
  gst_pad_set_activate_function(pad.get(), usual);
  gst_harness_play(h.get());
  gst_harness_set_src_caps_str(h.get(), kG729Caps);
  EXPECT_EQ(gst_harness_push(h.get(), make_buffer(10)), GST_FLOW_OK);
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 1u);
}

}  // namespace
