#include <algorithm>
#include <utility>
#include <vector>

#include "codec/g729.h"
#include "tests/src/harness.h"

namespace {

using Sizes = std::vector<gsize>;

// `frames` frames of noise, or of digital silence.
GstBuffer* audio(gsize frames, bool loud = true, GstClockTime pts = GST_CLOCK_TIME_NONE) {
  GstBuffer* buffer = make_buffer(frames * kPcm, pts);
  if (!loud) gst_buffer_memset(buffer, 0, 0, frames * kPcm);
  return buffer;
}

// Input in pieces of any size gives the same bytes as input in whole packets; what does not fill a
// packet is dropped at the end.
TEST(Encoder, PiecesGiveTheSameStream) {
  const auto encode = [](const Sizes& pieces) {
    Harness h = make_encoder();
    const Buffer all(make_buffer(41 * kPcm, 0, 5));
    gsize at = 0;
    for (gsize i = 0; at < 41 * kPcm; i++) {
      const gsize size = std::min(pieces[i % pieces.size()], 41 * kPcm - at);
      gst_harness_push(h.get(), gst_buffer_copy_region(all.get(), GST_BUFFER_COPY_ALL, at, size));
      at += size;
    }
    gst_harness_push_event(h.get(), gst_event_new_eos());
    std::vector<guint8> bytes;
    while (Buffer out{gst_harness_try_pull(h.get())}) {
      const auto more = bytes_of(out.get());
      bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return bytes;
  };
  const auto whole = encode({2 * kPcm});
  EXPECT_EQ(whole.size(), 400u);
  EXPECT_EQ(encode({2, 1000, 316}), whole);
  EXPECT_EQ(encode({41 * kPcm}), whole);
}

// From the next frame on, as the codec does by itself.
TEST(Encoder, ComplexityReachesTheCodec) {
  Harness h = make_encoder(1);
  G729EncoderState* codec = g729_encoder_create(FALSE);
  for (int i = 0; i < 40; i++) {
    gst_harness_set(h.get(), "kelg729fenc", "complexity", i / 10, nullptr);
    g729_encoder_set_complexity(codec, i / 10);
    GstBuffer* in = make_buffer(kPcm, static_cast<GstClockTime>(i) * kTick, 7u + i);
    gint16 samples[G729_FRAME_SAMPLES];
    gst_buffer_extract(in, 0, samples, sizeof samples);
    std::vector<guint8> direct(G729_SPEECH_BYTES);
    guint32 size = 0;
    g729_encoder_encode_frame(codec, samples, direct.data(), &size);
    gst_harness_push(h.get(), in);
    EXPECT_EQ(bytes_of(pull(h).get()), direct) << "frame " << i;
  }
  g729_encoder_destroy(codec);
}

TEST(Encoder, AnnexBIsReadAtStart) {
  Harness h = make_encoder(1, false);
  gst_harness_set(h.get(), "kelg729fenc", "annexb", TRUE, nullptr);
  for (gsize i = 0; i < 100; i++) gst_harness_push(h.get(), audio(1, false));
  EXPECT_EQ(pull_sizes(h), Sizes(100, 10));
}

// `frames` is re-read for every frame, but never leads out of the buffers.
TEST(Encoder, FramesChangedWhileRunning) {
  Harness h = make_encoder(4);
  const std::pair<int, Sizes> steps[] = {{4, {40}},        {5, {40}}, {100, {40}},
                                         {G_MAXINT, {40}}, {3, {30}}, {0, {}}};
  for (const auto& [frames, sizes] : steps) {
    gst_harness_set(h.get(), "kelg729fenc", "frames", frames, nullptr);
    ASSERT_EQ(gst_harness_push(h.get(), audio(4)), GST_FLOW_OK);
    EXPECT_EQ(pull_sizes(h), sizes) << frames;
  }
}

TEST(Encoder, NoFramesAndTheMostFramesReachTheEnd) {
  for (const int frames : {0, G_MAXINT / 80, G_MAXINT}) {
    Harness h = make_encoder(frames);
    for (int i = 0; i < 300; i++) ASSERT_EQ(gst_harness_push(h.get(), audio(3)), GST_FLOW_OK);
    EXPECT_TRUE(gst_harness_push_event(h.get(), gst_event_new_eos()));
    EXPECT_EQ(pull_sizes(h), Sizes{}) << frames;
  }
}

// The first sample of a buffer waits for all of it, and then for the 5 ms of look-ahead.
TEST(Encoder, Latency) {
  for (const int frames : {1, 2, 6}) {
    Harness h = make_encoder(frames);
    const GstClockTime own = static_cast<guint>(frames) * kTick + 5 * GST_MSECOND;
    EXPECT_EQ(gst_harness_query_latency(h.get()), own);
    gst_harness_set_upstream_latency(h.get(), 7 * GST_MSECOND);
    EXPECT_EQ(gst_harness_query_latency(h.get()), own + 7 * GST_MSECOND);
  }
}

TEST(Encoder, StartsAfresh) {
  Harness h = make_encoder();
  std::vector<guint8> first;
  for (int run = 0; run < 3; run++) {
    gst_harness_push(h.get(), audio(2));
    const auto bytes = bytes_of(pull(h).get());
    if (run == 0) first = bytes;
    EXPECT_EQ(bytes, first);
    gst_element_set_state(h->element, GST_STATE_NULL);
    gst_harness_play(h.get());
    gst_harness_set_src_caps_str(h.get(), kRawCaps);
  }
}

}  // namespace
