// Lost packets with the property `plc`.
#include <algorithm>
#include <random>
#include <vector>

#include "codec/g729.h"
#include "tests/src/live.h"
#include "tests/support/signals.h"

namespace {

using Samples = std::vector<gint16>;

std::vector<std::vector<guint8>> coded_voice(gsize frames) {
  const auto voice = signals::loud_speech(static_cast<int>(frames));
  G729EncoderState* encoder = g729_encoder_create(0);
  std::vector<std::vector<guint8>> coded(frames, std::vector<guint8>(G729_SPEECH_BYTES));
  guint32 size;
  for (gsize i = 0; i < frames; i++) {
    g729_encoder_encode_frame(encoder, &voice[i * 80], coded[i].data(), &size);
  }
  g729_encoder_destroy(encoder);
  return coded;
}

struct Lossy : Live {
  GstClockTime now = GST_SECOND;

  Lossy() { gst_harness_set(h.get(), "kelg729fdec", "plc", TRUE, nullptr); }
  void speech(const std::vector<guint8>& bytes) {
    GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
    GST_BUFFER_PTS(buffer) = now;
    gst_harness_push(h.get(), buffer);
    now += bytes.size() / 10 * kTick;
  }
  void gap(GstClockTime duration) {
    gst_harness_push_event(h.get(), gst_event_new_gap(now, duration));
    now += duration;
  }
  // All that has come out; every buffer begins where the last one ended.
  Samples take(GstClockTime end = GST_SECOND) {
    Samples all;
    while (Buffer buffer{gst_harness_try_pull(h.get())}) {
      EXPECT_EQ(GST_BUFFER_PTS(buffer.get()), end);
      const auto bytes = bytes_of(buffer.get());
      const auto* pcm = reinterpret_cast<const gint16*>(bytes.data());
      all.insert(all.end(), pcm, pcm + bytes.size() / sizeof(gint16));
      end += GST_BUFFER_DURATION(buffer.get());
    }
    return all;
  }
};

double gain_between(const gint16* from, const gint16* to) {
  double product = 0, power = 1e-9;
  for (gsize n = 0; n < 40; n++) {
    product += static_cast<double>(from[n]) * to[n];
    power += static_cast<double>(from[n]) * from[n];
  }
  return product / power;
}

// The codec's own concealment, at its level or below; then the codec goes on.
TEST(Concealment, IsTheCodecs) {
  const auto voice = coded_voice(40);
  Lossy link;
  Samples want;
  G729DecoderState* decoder = g729_decoder_create();
  const auto add = [&](const gint16* pcm, gsize count) {
    want.insert(want.end(), pcm, pcm + count);
  };
  gint16 pcm[80];
  for (gsize i = 0; i < voice.size(); i++) {
    if (i == 30) {
      link.gap(2 * kTick);
      link.gap(3 * kTick);
      guint16 serial[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, 80};
      for (int k = 0; k < 5; k++) {
        g729_decoder_decode_serial(decoder, serial, pcm);
        add(pcm, 80);
      }
    }
    link.speech(voice[i]);
    g729_decoder_decode_frame(decoder, voice[i].data(), 10, pcm);
    add(pcm, 80);
  }
  g729_decoder_destroy(decoder);
  const Samples got = link.take();
  ASSERT_EQ(got.size(), want.size());
  for (gsize at = 0; at < got.size(); at += 40) {
    const bool lost = at >= 30 * 80 && at < 35 * 80;
    const double gain = lost ? gain_between(&want[at], &got[at]) : 1;
    EXPECT_GT(gain, 0.5) << at;
    EXPECT_LE(gain, 1.01) << at;
    for (gsize n = at; n < at + 40; n++) ASSERT_NEAR(got[n], gain * want[n], lost ? 1.5 : 0) << n;
  }
}

double energy(const gint16* frame) {
  double sum = 0;
  for (gsize n = 0; n < 80; n++) sum += static_cast<double>(frame[n]) * frame[n];
  return sum;
}

// No frame is louder than the louder one of the last two good ones, and after 100 ms there is
// nothing; however wild the frames before, and whether they came together or not.
TEST(Concealment, NeverLouderAndSoonOver) {
  std::mt19937 random(4);
  for (int run = 0; run < 300; run++) {
    Lossy link, apart;
    std::vector<guint8> packet(60);
    for (auto& byte : packet) byte = static_cast<guint8>(random());
    link.speech(packet);
    for (auto at = packet.begin(); at < packet.end(); at += 10) apart.speech({at, at + 10});
    link.gap(30 * kTick);
    apart.gap(30 * kTick);
    const Samples out = link.take();
    ASSERT_EQ(apart.take(), out);
    ASSERT_EQ(out.size(), 36u * 80);
    const double most = std::max(energy(&out[4 * 80]), energy(&out[5 * 80]));
    for (gsize i = 6; i < 16; i++) ASSERT_LE(energy(&out[i * 80]), most * 1.0001) << run;
    for (gsize n = 16 * 80; n < out.size(); n++) ASSERT_EQ(out[n], 0) << run;
  }
}

// A flush takes what was heard before with it.
TEST(Concealment, NothingFromBeforeAFlush) {
  Lossy link;
  for (const auto& frame : coded_voice(20)) link.speech(frame);
  flush(link.h.get());
  while (Buffer old{gst_harness_try_pull(link.h.get())}) continue;
  const GstClockTime end = link.now;
  link.gap(2 * kTick);
  EXPECT_EQ(link.take(end), Samples(160, 0));
}

}  // namespace
