// Speech with pauses over RTP: encoder, UDP on the loopback, jitter buffer, decoder.
#include <gst/app/gstappsink.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "tests/src/pipeline.h"

namespace {

constexpr gsize kFrame = 80;
constexpr gsize kFrames = 400;

bool missing(std::initializer_list<const char*> elements) {
  for (const char* name : elements) {
    GstElementFactory* factory = gst_element_factory_find(name);
    if (!factory) return true;
    gst_object_unref(factory);
  }
  return false;
}

// Frames of the talk spurts: 600 ms of voice after 700 ms of faint noise.
bool voiced(gsize frame) {
  return frame % 130 >= 70;
}

std::vector<gint16> speech_with_pauses() {
  std::vector<gint16> signal(kFrames * kFrame);
  std::mt19937 random(3);
  for (gsize n = 0; n < signal.size(); n++) {
    double value = static_cast<double>(random() % 17) - 8;
    if (voiced(n / kFrame)) {
      const double turns = 120 * static_cast<double>(n) / 8000;
      for (int k = 2; k < 20; k++) value += 5000.0 / k * std::sin(k * turns * 2 * std::numbers::pi);
    }
    signal[n] = static_cast<gint16>(value);
  }
  return signal;
}

GstBuffer* pcm(const gint16* samples, gsize frame) {
  GstBuffer* buffer = gst_buffer_new_memdup(samples, kPcm);
  GST_BUFFER_PTS(buffer) = frame * kTick;
  GST_BUFFER_DURATION(buffer) = kTick;
  return buffer;
}

// The sizes of the packed frames.
std::vector<gsize> encoded_sizes(const std::vector<gint16>& signal) {
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
  if (missing({"rtpg729pay"})) GTEST_SKIP() << "no RTP elements";
  const auto signal = speech_with_pauses();
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

struct Received {
  std::vector<double> energy;  // of every 10 ms from the first timestamp on, dB
  GstClockTime first = GST_CLOCK_TIME_NONE;
};

// Takes all that has come; checks that the timestamps never go back.
Received receive(GstElement* sink) {
  Received got;
  GstClockTime end = 0;
  while (GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 0)) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    if (got.energy.empty()) got.first = end = pts;
    EXPECT_GE(pts + 6 * kTick, end);  // the jitter buffer follows the sender's clock
    end = std::max(end, pts + GST_BUFFER_DURATION(buffer));
    const auto bytes = bytes_of(buffer);
    const auto* samples = reinterpret_cast<const gint16*>(bytes.data());
    for (gsize at = 0; at + kPcm <= bytes.size(); at += kPcm, samples += kFrame) {
      double sum = 1;
      for (gsize n = 0; n < kFrame; n++) sum += static_cast<double>(samples[n]) * samples[n];
      got.energy.push_back(10 * std::log10(sum / kFrame));
    }
    gst_sample_unref(sample);
  }
  return got;
}

TEST(Rtp, SpeechWithPausesOverLoopback) {
  if (missing({"udpsrc", "udpsink", "rtpjitterbuffer", "rtpg729pay", "rtpg729depay"})) {
    GTEST_SKIP() << "gstreamer1.0-plugins-good is not installed";
  }
  Pipeline receiver(
      "udpsrc name=udp address=127.0.0.1 port=0 reuse=false caps=\"application/x-rtp, media=audio, "
      "clock-rate=8000, encoding-name=G729, payload=18\" ! rtpjitterbuffer latency=60 ! "
      "rtpg729depay ! kelg729fdec ! appsink name=sink sync=false");
  receiver.set(GST_STATE_PLAYING);
  gint port = 0;
  g_object_get(receiver.get("udp").get(), "port", &port, nullptr);
  ASSERT_GT(port, 0);

  Pipeline sender(std::string("appsrc name=src format=time caps=\"") + kRawCaps +
                  "\" ! kelg729fenc annexb=true frames=1 ! rtpg729pay ! "
                  "udpsink name=udp host=127.0.0.1 port=" +
                  std::to_string(port));
  std::vector<gsize> payloads;  // written by the streaming thread, read after the end
  Object<GstPad> pad(gst_element_get_static_pad(sender.get("udp").get(), "sink"));
  const auto note = [](GstPad*, GstPadProbeInfo* info, gpointer list) {
    static_cast<std::vector<gsize>*>(list)->push_back(
        gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)) - 12);
    return GST_PAD_PROBE_OK;
  };
  gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, note, &payloads, nullptr);

  const auto signal = speech_with_pauses();
  for (gsize i = 0; i < kFrames; i++) sender.push("src", pcm(&signal[i * kFrame], i));
  gst_app_src_end_of_stream(GST_APP_SRC(sender.get("src").get()));
  sender.set(GST_STATE_PLAYING);
  ASSERT_TRUE(sender.wait_for_end());
  g_usleep(100000);

  gsize bytes = 0;
  for (const gsize size : payloads) {
    EXPECT_TRUE(size == 2 || size == 10) << size;
    bytes += size;
  }
  EXPECT_LT(bytes * 4, kFrames * 10 * 3);  // of the bytes without silence compression

  const auto sink = receiver.get("sink");
  const Received got = receive(sink.get());
  EXPECT_EQ(receiver.complaints(), std::vector<std::string>{});
  // The pauses are filled: what came out lasts as long as what went in.
  EXPECT_NEAR(static_cast<double>(got.energy.size()), double{kFrames}, 15);
  // Every spurt is there from its first frames to its last, as loud as it was spoken.
  gsize loud = 0, spoken = 0, spurts = 0;
  for (gsize i = 0; i < got.energy.size(); i++) {
    loud += got.energy[i] > 50;
    spurts += got.energy[i] > 50 && (i == 0 || got.energy[i - 1] <= 50);
  }
  for (gsize i = 0; i < kFrames; i++) spoken += voiced(i);
  EXPECT_EQ(spurts, 3u);
  EXPECT_NEAR(static_cast<double>(loud), static_cast<double>(spoken), 6);
  RecordProperty("bytes", static_cast<int>(bytes));
  RecordProperty("loud", static_cast<int>(loud));
}

}  // namespace
