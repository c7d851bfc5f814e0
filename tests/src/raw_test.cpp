// Raw streams from files: no timestamps, a segment of bytes.
#include <glib/gstdio.h>
#include <gst/app/gstappsink.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "codec/g729.h"
#include "tests/src/pipeline.h"

namespace {

using Samples = std::vector<gint16>;
constexpr gsize kFrames = 600, kBytes = kFrames * G729_SPEECH_BYTES;
constexpr gint64 kLength = kFrames * kTick, kSecond = GST_SECOND;
constexpr auto kNone = GST_SEEK_TYPE_NONE, kSet = GST_SEEK_TYPE_SET, kEnd = GST_SEEK_TYPE_END;
constexpr int kFlush = GST_SEEK_FLAG_FLUSH;

// The stream's bytes and what is in it, decoded without an element.
struct Raw : testing::Test {
  std::string path = std::string(g_get_tmp_dir()) + "/kelg729f-raw-" + std::to_string(getpid());
  std::vector<guint8> stream = std::vector<guint8>(kBytes + 9);
  Samples decoded;

  Raw() {
    G729EncoderState* encoder = g729_encoder_create(0);
    G729DecoderState* decoder = g729_decoder_create();
    for (gsize i = 0; i < kFrames; i++) {
      const auto noise = bytes_of(Buffer(make_buffer(kPcm, 0, static_cast<guint32>(i))).get());
      gint16 frame[G729_FRAME_SAMPLES];
      std::copy(noise.begin(), noise.end(), reinterpret_cast<guint8*>(frame));
      guint32 size = 0;
      g729_encoder_encode_frame(encoder, frame, &stream[i * G729_SPEECH_BYTES], &size);
      g729_decoder_decode_frame(decoder, &stream[i * G729_SPEECH_BYTES], size, frame);
      decoded.insert(decoded.end(), frame, frame + G729_FRAME_SAMPLES);
    }
    g729_encoder_destroy(encoder);
    g729_decoder_destroy(decoder);
  }
  ~Raw() override {
    for (const char* end : {".g729", ".wav"}) g_unlink((path + end).c_str());
  }
  std::string launch(gsize blocksize, gsize bytes = kBytes) const {
    std::ofstream(path + ".g729", std::ios::binary)
        .write(reinterpret_cast<const char*>(stream.data()), static_cast<gint64>(bytes));
    return "filesrc location=" + path + ".g729 blocksize=" + std::to_string(blocksize) +
           " ! audio/G729,rate=8000,channels=1 ! kelg729fdec";
  }
};

struct Step {
  gdouble rate;
  int flags;
  GstSeekType start_type;
  gint64 start;
  GstSeekType stop_type;
  gint64 stop;
  bool plays;
};

struct Outcome {
  enum { kDuration, kAccepted, kPosition, kBegin, kFinish, kRunning, kSegmentDone, kFigures };
  std::array<gint64, kFigures> figures{-1, TRUE, -1, -1, -1, -1, -1};
  gsize warnings = 0;
  guint32 seqnum = 0;   // of the seek
  bool answers = true;  // the end of the segment is the seek's
  Samples samples;

  void add(GstSample* sample) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const auto pts = GST_BUFFER_PTS(buffer);
    auto& [duration, accepted, position, begin, end, running, done] = figures;
    if (begin < 0) {
      begin = end = static_cast<gint64>(pts);
      const GstSegment* segment = gst_sample_get_segment(sample);
      running = static_cast<gint64>(
          gst_segment_to_running_time(segment, GST_FORMAT_TIME, std::max(pts, segment->start)));
    }
    EXPECT_EQ(static_cast<gint64>(pts), end);
    end += static_cast<gint64>(GST_BUFFER_DURATION(buffer));
    const auto bytes = bytes_of(buffer);
    const auto* pcm = reinterpret_cast<const gint16*>(bytes.data());
    samples.insert(samples.end(), pcm, pcm + bytes.size() / sizeof(gint16));
  }
  // To the end of the stream or of a segment.
  void listen(Pipeline& pipeline) {
    pipeline.set(GST_STATE_PLAYING);
    while (GstMessage* message = gst_bus_timed_pop(pipeline.bus.get(), 60 * GST_SECOND)) {
      const GstMessageType type = GST_MESSAGE_TYPE(message);
      GstFormat format = GST_FORMAT_TIME;
      if (type == GST_MESSAGE_SEGMENT_DONE) {
        gst_message_parse_segment_done(message, &format, &figures[kSegmentDone]);
        answers = gst_message_get_seqnum(message) == seqnum;
      }
      gst_message_unref(message);
      EXPECT_EQ(format, GST_FORMAT_TIME);
      warnings += type == GST_MESSAGE_WARNING;
      if (type == GST_MESSAGE_EOS || type == GST_MESSAGE_SEGMENT_DONE) break;
    }
    const auto sink = pipeline.get("sink");
    while (GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 0)) {
      add(sample);
      gst_sample_unref(sample);
    }
  }
};

struct Player : Pipeline {
  explicit Player(const std::string& source)
      : Pipeline(source + " ! appsink name=sink sync=false wait-on-eos=false") {
    set(GST_STATE_PAUSED);
    settle();
  }
  void settle() { gst_element_get_state(top.get(), nullptr, nullptr, 10 * GST_SECOND); }
  Outcome take(const Step& step) {
    Outcome out;
    auto& figures = out.figures;
    gst_element_query_duration(top.get(), GST_FORMAT_TIME, &figures[Outcome::kDuration]);
    GstEvent* seek = gst_event_new_seek(step.rate, GST_FORMAT_TIME, GstSeekFlags(step.flags),
                                        step.start_type, step.start, step.stop_type, step.stop);
    out.seqnum = gst_event_get_seqnum(seek);
    figures[Outcome::kAccepted] = gst_element_send_event(top.get(), seek);
    if (step.flags == kFlush) settle();
    // Where nothing starts anew, wavparse tells what it has read, not what it plays.
    if (step.flags == kFlush && step.start_type != kNone) {
      gst_element_query_position(top.get(), GST_FORMAT_TIME, &figures[Outcome::kPosition]);
    }
    if (figures[Outcome::kAccepted] && step.plays) out.listen(*this);
    if (figures[Outcome::kSegmentDone] < 0) set(GST_STATE_PAUSED);
    return out;
  }
};

TEST_F(Raw, PiecesOfAnySize) {
  for (const gsize blocksize : {1, 7, 12, 1000, 4096, 100000}) {
    for (const gsize rest : {0, 2, 9}) {
      Player player(launch(blocksize, kBytes + rest));
      Outcome out;
      out.listen(player);
      EXPECT_EQ(out.figures[Outcome::kBegin], 0);
      EXPECT_EQ(out.samples, decoded) << blocksize;
      EXPECT_EQ(out.warnings, rest > 0) << blocksize << " with " << rest;
    }
  }
}

// From where nobody knows a length, packets may come.
TEST_F(Raw, PacketsWithoutTimestamps) {
  Harness h = make_decoder();
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  segment.applied_rate = 2;
  segment.base = 100;
  gst_harness_push_event(h.get(), gst_event_new_segment(&segment));
  for (const gsize n : {10, 2, 12, 20, 4096, 4096, 8, 2}) gst_harness_push(h.get(), make_buffer(n));
  for (const gsize frames : {1, 1, 2, 2, 409, 410, 1, 1}) {
    EXPECT_EQ(gst_buffer_get_size(pull(h).get()), frames * kPcm);
  }
  GstEvent* event = gst_pad_get_sticky_event(h.get()->sinkpad, GST_EVENT_SEGMENT, 0);
  gst_event_copy_segment(event, &segment);
  gst_event_unref(event);
  EXPECT_EQ(segment.format, GST_FORMAT_TIME);
  EXPECT_EQ(segment.applied_rate, 2);
  EXPECT_EQ(segment.base, 100 * GST_MSECOND);
}

// Any seek that makes sense; `stop` is the one that holds, or -1. After the end of a segment that
// was asked for as such, the next one goes on without a flush.
Step random_step(std::mt19937& random, gint64& stop, bool goes_on) {
  const auto below = [&random](gint64 n) { return static_cast<gint64>(random() % guint64(n)); };
  Step step{below(4) ? 1.0 : 2.0, below(3) ? 0 : GST_SEEK_FLAG_SEGMENT, kSet, 0, kSet, -1, true};
  step.plays = step.flags || goes_on || below(2);
  if (!goes_on) step.flags |= kFlush;
  if (below(4) == 0 && !goes_on && stop == -1) {
    return {step.rate, kFlush, kNone, 0, kNone, -1, step.plays};
  }
  step.start = below(5) ? below(kLength) : below(2 * kLength) / kTick * kTick;
  const gint64 landed = std::min(step.start, kLength);
  if (below(3) == 0) step.start_type = kEnd, step.start = landed - kLength;
  if (below(3) == 0 && (stop == -1 || stop >= landed)) {
    step.stop_type = kNone;
    return step;
  }
  if (below(3) == 0) step.stop = landed + below(2 * kSecond);
  stop = std::min(step.stop, kLength);
  if (stop != -1 && stop < kLength && below(2)) step.stop_type = kEnd, step.stop -= kLength;
  return step;
}

// The same script on the stream and on a WAV of the same length ends in the same places.
TEST_F(Raw, SeeksAsAWavDoes) {
  Pipeline write(launch(1000) + " ! wavenc ! filesink location=" + path + ".wav");
  write.set(GST_STATE_PLAYING);
  ASSERT_TRUE(write.wait_for_end());
  for (guint seed = 0; seed < 60; seed++) {
    std::mt19937 random(seed);
    Player raw(launch(256)), wav("filesrc location=" + path + ".wav ! wavparse");
    gint64 stop = -1;
    bool goes_on = false;
    for (int i = 0; i < 5; i++) {
      const Step step = random_step(random, stop, goes_on);
      const Outcome got = raw.take(step), want = wav.take(step);
      ASSERT_TRUE(got.answers) << seed << " " << i;
      for (gsize n = 0; n < Outcome::kFigures; n++) {
        ASSERT_NEAR(got.figures[n], want.figures[n], kTick) << seed << " " << i << ": " << n;
      }
      const bool same = got.figures[Outcome::kBegin] == want.figures[Outcome::kBegin];
      double error = 0, power = 0;
      for (gsize n = 0; same && n < std::min(got.samples.size(), want.samples.size()); n++) {
        error += std::pow(got.samples[n] - want.samples[n], 2);
        power += std::pow(want.samples[n], 2);
      }
      ASSERT_LE(error, 0.2 * power) << seed << " " << i;
      goes_on = got.figures[Outcome::kSegmentDone] >= 0;
    }
  }
}

TEST_F(Raw, SeeksThatAWavDoesNot) {
  Player raw(launch(4096));
  GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
  gboolean can = FALSE;
  gint64 end = 0;
  EXPECT_TRUE(gst_element_query(raw.top.get(), query));
  gst_query_parse_seeking(query, nullptr, &can, nullptr, &end);
  gst_query_unref(query);
  EXPECT_TRUE(can);
  EXPECT_EQ(end, kLength);
  EXPECT_TRUE(gst_element_query_duration(raw.top.get(), GST_FORMAT_BYTES, &end));
  EXPECT_EQ(end, kBytes);
  // A stop that was kept does not stand in the way of a start behind it.
  raw.take({1, kFlush, kSet, kSecond, kSet, 2 * kSecond, true});
  const auto behind = raw.take({1, kFlush, kSet, 5 * kSecond, kNone, -1, true}).figures;
  EXPECT_EQ(behind[Outcome::kBegin], 5 * kSecond);
  EXPECT_EQ(behind[Outcome::kFinish], kLength);
  const Step refused[] = {{1, kFlush, kEnd, -kSecond, kEnd, -2 * kSecond, 0},
                          {-1, kFlush, kSet, 0, kSet, kSecond, false}};
  for (const Step& step : refused) EXPECT_FALSE(raw.take(step).figures[Outcome::kAccepted]);
}

}  // namespace
