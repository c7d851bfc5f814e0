// Speech with pauses as RTP packets.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/src/harness.h"
#include "tests/support/signals.h"

namespace {

constexpr gsize kFrame = 80;
constexpr gsize kFrames = 400;

GstBuffer* pcm(const gint16* samples, gsize frame) {
  GstBuffer* buffer = gst_buffer_new_memdup(samples, kPcm);
  GST_BUFFER_PTS(buffer) = frame * kTick;
  GST_BUFFER_DURATION(buffer) = kTick;
  return buffer;
}

// The sizes of the packed frames.
std::vector<gsize> encoded_sizes(const signals::Samples& signal) {
  Harness h = make_encoder(1, true);
  std::vector<gsize> sizes;
  for (gsize i = 0; i < kFrames; i++) {
    gst_harness_push(h.get(), pcm(&signal[i * kFrame], i));
    const Buffer out(gst_harness_try_pull(h.get()));
    sizes.push_back(out ? gst_buffer_get_size(out.get()) : 0);
  }
  return sizes;
}

// The payloader joins single frames. On the wire each is in its place by the packet's timestamp,
// and the first packet of a talk spurt alone has the marker bit (RFC 3551, 4.1).
TEST(Rtp, PacketsSayWhereTheyAre) {
  Object<GstElementFactory> payloader(gst_element_factory_find("rtpg729pay"));
  if (!payloader) GTEST_SKIP() << "no RTP elements";
  // 600 ms of voice after 700 ms of faint noise.
  const auto voice = signals::make(
      kFrames, [](int n) { return n / 80 % 130 >= 70 && n % 67 == 0 ? 20000.0 : 0.0; });
  const auto signal = signals::mix(voice, signals::noise(kFrames, 5), 1.0);
  const auto truth = encoded_sizes(signal);
  EXPECT_GT(std::count(truth.begin(), truth.end(), gsize{2}), 4);
  for (const char* options : {"max-ptime=10000000", "max-ptime=10000000 perfect-rtptime=false",
                              "min-ptime=20000000 perfect-rtptime=false"}) {
    Harness h(gst_harness_new_parse(
        (std::string("kelg729fenc annexb=true frames=1 ! rtpg729pay timestamp-offset=0 ") + options)
            .c_str()));
    gst_harness_set_src_caps_str(h.get(), kRawCaps);
    for (gsize i = 0; i < kFrames; i++) gst_harness_push(h.get(), pcm(&signal[i * kFrame], i));
    gst_harness_push_event(h.get(), gst_event_new_eos());

    std::vector<gsize> sizes(kFrames, 0);
    while (Buffer packet{gst_harness_try_pull(h.get())}) {
      const auto bytes = bytes_of(packet.get());
      const guint32 time = GST_READ_UINT32_BE(&bytes[4]);
      ASSERT_EQ(time % kFrame, 0u);
      const gsize first = time / kFrame;
      const bool talk_begins = bytes.size() >= 12 + 10 && (first == 0 || truth[first - 1] != 10);
      EXPECT_EQ(bytes[1] >> 7, talk_begins) << options << " frame " << first;
      for (gsize at = first, left = bytes.size() - 12; left > 0; at++) {
        ASSERT_LT(at, kFrames);
        sizes[at] = std::min<gsize>(left, 10);
        left -= sizes[at];
      }
    }
    EXPECT_EQ(sizes, truth) << options;
  }
}

}  // namespace
