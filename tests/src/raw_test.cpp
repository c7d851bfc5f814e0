// Raw streams from files: no timestamps, a segment of bytes.
#include <glib/gstdio.h>
#include <gst/app/gstappsink.h>

#include <fstream>

#include "tests/src/pipeline.h"

namespace {

using Samples = std::vector<gint16>;
constexpr gsize kFrames = 200;
constexpr GstClockTime kSample = GST_SECOND / 8000;

class Raw : public testing::Test {
 protected:
  void SetUp() override {
    path = g_build_filename(g_get_tmp_dir(), "kelg729f-raw-XXXXXX", nullptr);
    const gint file = g_mkstemp(path);
    ASSERT_GE(file, 0);
    g_close(file, nullptr);
    std::ofstream out(path, std::ios::binary);
    Harness encoder = make_encoder(1);
    for (gsize i = 0; i < kFrames; i++) {
      gst_harness_push(encoder.get(), make_buffer(kPcm, i * kTick, static_cast<guint32>(i)));
      const auto bytes = bytes_of(pull(encoder).get());
      out.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
    }
  }
  void TearDown() override {
    g_unlink(path);
    g_free(path);
  }
  std::string launch(const std::string& blocksize) const {
    return std::string("filesrc location=") + path + " blocksize=" + blocksize +
           " ! audio/G729,rate=8000,channels=1 ! kelg729fdec name=dec ! "
           "appsink name=sink sync=false";
  }
  gchar* path = nullptr;
};

struct Heard {
  Samples samples;
  GstClockTime begin = GST_CLOCK_TIME_NONE;
};

// All up to the end; every buffer begins where the last one ended.
Heard listen(GstElement* sink) {
  Heard heard;
  GstClockTime end = GST_CLOCK_TIME_NONE;
  while (GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink))) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (heard.samples.empty()) heard.begin = end = GST_BUFFER_PTS(buffer);
    EXPECT_EQ(GST_BUFFER_PTS(buffer), end);
    end += GST_BUFFER_DURATION(buffer);
    const auto bytes = bytes_of(buffer);
    const auto* pcm = reinterpret_cast<const gint16*>(bytes.data());
    heard.samples.insert(heard.samples.end(), pcm, pcm + bytes.size() / sizeof(gint16));
    gst_sample_unref(sample);
  }
  return heard;
}

TEST_F(Raw, AnyBlocksOfWholeFrames) {
  Samples first;
  for (const char* size : {"10", "30", "1000", "10000"}) {
    Pipeline pipeline(launch(size));
    pipeline.set(GST_STATE_PLAYING);
    const Heard heard = listen(pipeline.get("sink").get());
    EXPECT_EQ(heard.begin, 0u) << size;
    EXPECT_EQ(heard.samples.size(), kFrames * 80) << size;
    if (first.empty()) first = heard.samples;
    EXPECT_EQ(heard.samples, first) << size;
    EXPECT_EQ(pipeline.complaints(), std::vector<std::string>{});
  }
}

TEST_F(Raw, DurationAndSeekingQueries) {
  Pipeline pipeline(launch("100"));
  pipeline.set(GST_STATE_PAUSED);
  gst_element_get_state(pipeline.top.get(), nullptr, nullptr, GST_CLOCK_TIME_NONE);
  gint64 duration = 0;
  EXPECT_TRUE(gst_element_query_duration(pipeline.top.get(), GST_FORMAT_TIME, &duration));
  EXPECT_EQ(duration, static_cast<gint64>(kFrames * kTick));
  gboolean seekable = FALSE;
  GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
  EXPECT_TRUE(gst_element_query(pipeline.top.get(), query));
  gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
  EXPECT_TRUE(seekable);
  gst_query_unref(query);
}

// A seek to any time gives what plays from there, once the decoder has settled, to the sample.
TEST_F(Raw, SeeksByTime) {
  Pipeline whole(launch("10"));
  whole.set(GST_STATE_PLAYING);
  const Samples all = listen(whole.get("sink").get()).samples;
  const struct {
    GstClockTime start, stop;
  } seeks[] = {{0, GST_CLOCK_TIME_NONE},
               {kTick, GST_CLOCK_TIME_NONE},
               {1234 * GST_MSECOND + 500 * GST_USECOND, GST_CLOCK_TIME_NONE},
               {505 * GST_MSECOND, 1503 * GST_MSECOND}};
  for (const auto& seek : seeks) {
    for (const char* size : {"10", "70"}) {
      Pipeline pipeline(launch(size));
      pipeline.set(GST_STATE_PAUSED);
      gst_element_get_state(pipeline.top.get(), nullptr, nullptr, GST_CLOCK_TIME_NONE);
      const bool stops = GST_CLOCK_TIME_IS_VALID(seek.stop);
      ASSERT_TRUE(gst_element_seek(pipeline.top.get(), 1, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                                   GST_SEEK_TYPE_SET, static_cast<gint64>(seek.start),
                                   stops ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE,
                                   stops ? static_cast<gint64>(seek.stop) : -1));
      pipeline.set(GST_STATE_PLAYING);
      const Heard heard = listen(pipeline.get("sink").get());
      EXPECT_EQ(heard.begin, seek.start);
      const gsize first = seek.start / kSample;
      const gsize last = stops ? seek.stop / kSample : all.size();
      ASSERT_EQ(heard.samples.size(), last - first);
      double error = 0, power = 0;
      for (gsize n = 0; n < heard.samples.size(); n++) {
        const double want = all[first + n], difference = heard.samples[n] - want;
        error += difference * difference;
        power += want * want;
      }
      EXPECT_LT(error, 0.05 * power) << seek.start;
    }
  }
}

TEST_F(Raw, RefusesToPlayBackwards) {
  Pipeline pipeline(launch("10"));
  pipeline.set(GST_STATE_PAUSED);
  gst_element_get_state(pipeline.top.get(), nullptr, nullptr, GST_CLOCK_TIME_NONE);
  EXPECT_FALSE(gst_element_seek(pipeline.top.get(), -1, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                                GST_SEEK_TYPE_SET, 0, GST_SEEK_TYPE_SET, GST_SECOND));
}

}  // namespace
