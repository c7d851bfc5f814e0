// What the elements make with their properties as they come. The traces are recorded: buffers as
// size@pts+duration in milliseconds, D for a discontinuity; gap events as gap@pts+duration. The
// bytes are the codec's.
#include <cstdint>
#include <sstream>
#include <vector>

#include "codec/g729.h"
#include "tests/src/live.h"

namespace {

using Bytes = std::vector<guint8>;

struct Output {
  std::ostringstream trace;
  Bytes bytes;
};

void trace(Output& output, GstClockTime pts, GstClockTime duration) {
  output.trace << "@" << static_cast<double>(pts) / 1e6 << "+"
               << static_cast<double>(duration) / 1e6;
}

void take_buffer(Output& output, GstBuffer* buffer) {
  const Bytes bytes = bytes_of(buffer);
  output.bytes.insert(output.bytes.end(), bytes.begin(), bytes.end());
  output.trace << " " << bytes.size();
  trace(output, GST_BUFFER_PTS(buffer), GST_BUFFER_DURATION(buffer));
  if (GST_BUFFER_IS_DISCONT(buffer)) output.trace << "D";
}

void take(Output& output, const Harness& h) {
  while (Buffer buffer{gst_harness_try_pull(h.get())}) take_buffer(output, buffer.get());
  while (GstEvent* event = gst_harness_try_pull_event(h.get())) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_GAP) {
      GstClockTime pts, duration;
      gst_event_parse_gap(event, &pts, &duration);
      output.trace << " gap";
      trace(output, pts, duration);
    }
    gst_event_unref(event);
  }
}

// Frames 20 to 89 of what is encoded are digital silence.
bool loud(gsize frame) {
  return frame < 20 || frame >= 90;
}

constexpr gsize kFrames = 96;

GstBuffer* audio(gsize frame) {
  GstBuffer* buffer = make_buffer(kPcm, frame * kTick, static_cast<std::uint32_t>(frame));
  if (!loud(frame)) gst_buffer_memset(buffer, 0, 0, kPcm);
  if (frame == 6) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  return buffer;
}

Output encode(int frames, bool annexb, gsize count) {
  Harness h = make_encoder(frames, annexb);
  Output output;
  for (gsize i = 0; i < count; i++) {
    EXPECT_EQ(gst_harness_push(h.get(), audio(i)), GST_FLOW_OK);
    take(output, h);
  }
  gst_harness_push_event(h.get(), gst_event_new_eos());
  take(output, h);
  return output;
}

Bytes encode_directly(bool annexb, gsize count) {
  G729EncoderState* encoder = g729_encoder_create(annexb);
  Bytes stream;
  for (gsize i = 0; i < count; i++) {
    const Buffer buffer(audio(i));
    const Bytes pcm = bytes_of(buffer.get());
    guint8 bytes[G729_SPEECH_BYTES];
    guint32 size = 0;
    g729_encoder_encode_frame(encoder, reinterpret_cast<const gint16*>(pcm.data()), bytes, &size);
    stream.insert(stream.end(), bytes, bytes + size);
  }
  g729_encoder_destroy(encoder);
  return stream;
}

TEST(Defaults, Encoder) {
  const struct {
    int frames;
    bool annexb;
    gsize count;
    const char* trace;
  } runs[] = {
      {1, false, 8, " 10@0+10 10@10+10 10@20+10 10@30+10 10@40+10 10@50+10 10@60+10D 10@70+10"},
      {2, false, 11, " 20@0+20 20@20+20 20@40+20 20@60+20D 20@80+20"},
      {3, false, 10, " 30@0+30 30@30+30 30@60+30D"},
      {1, true, kFrames,
       " 10@0+10 10@10+10 10@20+10 10@30+10 10@40+10 10@50+10 10@60+10D 10@70+10 10@80+10 10@90+10 "
       "10@100+10 10@110+10 10@120+10 10@130+10 10@140+10 10@150+10 10@160+10 10@170+10 10@180+10 "
       "10@190+10 10@200+10 10@210+10 10@220+10 2@230+10 2@260+10 10@900+10D 10@910+10 10@920+10 "
       "10@930+10 10@940+10 10@950+10"},
      {2, true, kFrames,
       " 20@0+20 20@20+20 20@40+20 20@60+20D 20@80+20 20@100+20 20@120+20 20@140+20 20@160+20 "
       "20@180+20 20@200+20 12@220+20 2@260+20 20@900+20D 20@920+20 20@940+20"},
  };
  for (const auto& run : runs) {
    const Output output = encode(run.frames, run.annexb, run.count);
    const gsize whole = run.count - run.count % static_cast<gsize>(run.frames);
    EXPECT_EQ(output.trace.str(), run.trace) << run.frames << run.annexb;
    EXPECT_EQ(output.bytes, encode_directly(run.annexb, whole)) << run.frames << run.annexb;
  }
}

// Packets of speech, a descriptor and what comes of it, gaps, an impossible size, a jump in time.
TEST(Defaults, Decoder) {
  Live live;
  Output output;
  G729DecoderState* decoder = g729_decoder_create();
  Bytes direct;
  const auto decode = [&](const guint8* bytes, guint32 size) {
    gint16 samples[G729_FRAME_SAMPLES];
    g729_decoder_decode_frame(decoder, bytes, size, samples);
    const auto* raw = reinterpret_cast<const guint8*>(samples);
    direct.insert(direct.end(), raw, raw + sizeof(samples));
  };
  const auto push = [&](gsize size, gsize tick, int noise = 0) {
    const Buffer packet(make_buffer(size, tick * kTick, static_cast<std::uint32_t>(tick)));
    const Bytes bytes = bytes_of(packet.get());
    gst_harness_push(live.h.get(), gst_buffer_copy_deep(packet.get()));
    take(output, live.h);
    for (gsize n = 0; size != 13 && n < size; n += 10) {
      decode(&bytes[n], static_cast<guint32>(std::min<gsize>(size - n, 10)));
    }
    for (; noise > 0; noise--) {
      take_buffer(output, live.noise().get());
      decode(nullptr, 0);
    }
  };
  const auto gap = [&](gsize tick, int flags) {
    GstEvent* event = gst_event_new_gap(tick * kTick, 2 * kTick);
    if (flags) gst_event_set_gap_flags(event, static_cast<GstGapFlags>(flags));
    gst_harness_push_event(live.h.get(), event);
    take(output, live.h);
  };

  push(10, 0);
  push(20, 1);
  gap(3, GST_GAP_FLAG_MISSING_DATA);
  push(10, 5);
  gap(6, 0);
  push(13, 8);
  push(12, 9, 4);
  gap(13, GST_GAP_FLAG_MISSING_DATA);
  push(2, 15, 1);
  push(10, 16);
  push(10, 40);
  g729_decoder_destroy(decoder);
  EXPECT_EQ(gst_harness_query_latency(live.h.get()), 0u);
  Caps caps(gst_pad_get_current_caps(live.h->sinkpad)), want(gst_caps_from_string(kRawCaps));
  EXPECT_TRUE(gst_caps_is_strictly_equal(caps.get(), want.get()));
  EXPECT_EQ(output.trace.str(),
            " 160@0+10D 320@10+20 gap@30+20 160@50+10 gap@60+20 320@90+20 160@110+10 160@120+10 "
            "160@130+10 160@140+10 gap@130+20 160@150+10 160@160+10 160@160+10 160@400+10");
  EXPECT_EQ(output.bytes, direct);
}

}  // namespace
