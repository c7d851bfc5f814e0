#include "tests/src/harness.h"

namespace {

using Lines = std::vector<std::string>;

TEST(Decoder, SizesInSizesOut) {
  for (const gsize size : {10, 20, 60, 2, 12, 22, 1000, 1002}) {
    Harness h = make_decoder();
    ASSERT_EQ(gst_harness_push(h.get(), make_buffer(size, GST_SECOND)), GST_FLOW_OK);
    const gsize frames = size / 10 + (size % 10 ? 1 : 0);
    const Buffer out = pull(h);
    EXPECT_EQ(gst_buffer_get_size(out.get()), frames * kPcm) << size;
    EXPECT_EQ(GST_BUFFER_PTS(out.get()), GST_SECOND);
    EXPECT_EQ(GST_BUFFER_DURATION(out.get()), frames * kTick);
  }
}

TEST(Decoder, InvalidSizesAreDropped) {
  LogCapture log("g729fdec");
  Harness h = make_decoder();
  Lines want;
  for (const gsize size : {1, 4, 8, 11, 15, 19, 1001}) {
    EXPECT_EQ(gst_harness_push(h.get(), make_buffer(size)), GST_FLOW_OK);
    want.push_back("Received invalid buffer size " + std::to_string(size));
  }
  EXPECT_EQ(gst_harness_push(h.get(), make_buffer(0)), GST_FLOW_OK);
  EXPECT_EQ(gst_harness_buffers_in_queue(h.get()), 0u);
  EXPECT_EQ(log.at(GST_LEVEL_WARNING), want);

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

// Frames in one buffer decode as they do one by one.
TEST(Decoder, SplitsLikeSingleFrames) {
  Harness whole = make_decoder();
  Harness single = make_decoder();
  const Buffer packet(make_buffer(32, 0, 9));
  gst_harness_push(whole.get(), gst_buffer_copy_deep(packet.get()));
  std::vector<guint8> joined;
  for (const gsize at : {0, 10, 20, 30}) {
    gst_harness_push(single.get(), gst_buffer_copy_region(packet.get(), GST_BUFFER_COPY_ALL, at,
                                                          std::min<gsize>(10, 32 - at)));
    const auto bytes = bytes_of(pull(single).get());
    joined.insert(joined.end(), bytes.begin(), bytes.end());
  }
  EXPECT_EQ(bytes_of(pull(whole).get()), joined);
}

TEST(Decoder, Logs) {
  LogCapture log("g729fdec");
  Harness h = make_decoder();
  gst_harness_push(h.get(), make_buffer(22));
  const Lines want{"Received buffer of size 22",
                   "we have 2 frames, 22 in, 480 out",
                   "Decoding frame 1/2 (10 bytes)",
                   "Decoding frame 2/2 (10 bytes)",
                   "Decoding SID",
                   "Finished decoding"};
  EXPECT_EQ(log.at(GST_LEVEL_LOG), want);
  h.reset();
  EXPECT_EQ(log.count(GST_LEVEL_DEBUG, "Start"), 1u);
  EXPECT_EQ(log.count(GST_LEVEL_DEBUG, "Stop"), 1u);
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
