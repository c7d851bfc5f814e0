// What the elements say of their delay, and what it is.
#include <cstdlib>

#include "tests/src/harness.h"

namespace {

constexpr GstClockTime kSample = GST_SECOND / 8000;
constexpr GstClockTime kLookAhead = 5 * GST_MSECOND;

GstClockTime reported(const Harness& h) {
  return gst_harness_query_latency(h.get());
}

TEST(Latency, Reported) {
  for (const guint frames : {1u, 2u, 6u}) {
    Harness encoder = make_encoder(static_cast<int>(frames));
    EXPECT_EQ(reported(encoder), frames * kTick + kLookAhead);
    gst_harness_set_upstream_latency(encoder.get(), 7 * GST_MSECOND);
    EXPECT_EQ(reported(encoder), frames * kTick + kLookAhead + 7 * GST_MSECOND);
  }
  Harness decoder = make_decoder();
  gst_harness_push(decoder.get(), make_buffer(12, 0));
  EXPECT_EQ(reported(decoder), 0u);
}

// Samples arrive one after the other, each at its time; all are zero but every `period`th, from the
// first on: the codec needs a few of them to rise to their level. Returns how long it takes until
// the last pulse's echo, the greatest sample from there on, can be heard: every output buffer is
// played from its arrival.
GstClockTime heard(const Harness& h, gsize period, gsize pulses) {
  const gsize last = (pulses - 1) * period;
  GstClockTime delay = 0;
  int greatest = 0;
  gsize out = 0;
  for (gsize n = 0; n < pulses * period; n++) {
    const gint16 sample = n % period == 0 ? 300 : 0;
    GstBuffer* buffer = gst_buffer_new_memdup(&sample, sizeof(sample));
    GST_BUFFER_PTS(buffer) = n * kSample;
    EXPECT_EQ(gst_harness_push(h.get(), buffer), GST_FLOW_OK);
    const Buffer played(gst_harness_try_pull(h.get()));
    if (!played) continue;
    const auto bytes = bytes_of(played.get());
    const auto* pcm = reinterpret_cast<const gint16*>(bytes.data());
    for (gsize k = 0; k < bytes.size() / sizeof(gint16); k++, out++) {
      if (out < last || std::abs(pcm[k]) <= greatest) continue;
      greatest = std::abs(pcm[k]);
      delay = (n + 1 + k - last) * kSample;
    }
  }
  EXPECT_GT(greatest, 15);
  return delay;
}

// The first sample of a buffer waits longest: for all the buffer and then for the look-ahead.
TEST(Latency, ImpulseTakesAsLongAsReported) {
  for (const guint frames : {1u, 2u, 3u}) {
    Harness h(gst_harness_new_parse(
        ("kelg729fenc frames=" + std::to_string(frames) + " ! kelg729fdec").c_str()));
    gst_harness_set_src_caps_str(h.get(), kRawCaps);
    const GstClockTime delay = heard(h, frames == 1 ? 160 : frames * 80, 40);
    // The codec places a pulse of its own to within a few samples.
    EXPECT_NEAR(static_cast<double>(delay), static_cast<double>(reported(h)), 4.0 * kSample)
        << frames;
    RecordProperty("delay" + std::to_string(frames), std::to_string(delay / 1000));
  }
}

}  // namespace
