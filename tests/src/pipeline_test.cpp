// The elements in real pipelines, on the system's clock.
#include "tests/src/pipeline.h"

#include <dlfcn.h>
#include <gst/app/gstappsink.h>

#include <atomic>
#include <string>
#include <vector>

// Stands before the framework's own, in whose place libraries call it: whatever the base class
// says, it says in another language, as under a translated locale.
extern "C" __attribute__((visibility("default"))) void gst_element_message_full(
    GstElement* element, GstMessageType type, GQuark domain, gint code, gchar* text, gchar* debug,
    const gchar* file, const gchar* function, gint line) {
  static const auto next = reinterpret_cast<decltype(&gst_element_message_full)>(
      dlsym(RTLD_NEXT, "gst_element_message_full"));
  if (g_strrstr(file, "gstaudiodecoder")) {
    g_free(text);
    text = g_strdup("mehr Rahmen als erwartet");
  }
  next(element, type, domain, code, text, debug, file, function, line);
}

namespace {

void warn(gpointer element, const char* text) {
  GST_ELEMENT_WARNING(element, STREAM, DECODE, ("%s", text), (nullptr));
}

// Of all that is posted, only the base class's complaint about comfort noise goes missing.
TEST(Pipeline, ComfortNoiseIsQuietInEveryLanguage) {
  Pipeline pipeline(std::string("appsrc name=src format=time caps=\"") + kG729Caps +
                    "\" ! kelg729fdec name=dec ! appsink name=sink sync=false async=false");
  const auto decoder = pipeline.get("dec");
  const auto sink = pipeline.get("sink");
  pipeline.set(GST_STATE_PLAYING);
  pipeline.push("src", make_buffer(2, 0));

  // From the thread that makes the noise, and from no other, but with another text.
  Object<GstPad> pad(gst_element_get_static_pad(decoder.get(), "src"));
  std::atomic<bool> told = false;
  const auto complain = [](GstPad* probed, GstPadProbeInfo*, gpointer told) {
    warn(GST_PAD_PARENT(probed), "received less decoded frames");
    *static_cast<std::atomic<bool>*>(told) = true;
    return GST_PAD_PROBE_REMOVE;
  };
  for (int i = 0; i < 20 || !told; i++) {
    GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink.get()));
    ASSERT_TRUE(sample);
    gst_sample_unref(sample);
    if (i == 10) {
      gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, complain, &told, nullptr);
    }
  }
  // The very text, but not from that thread; and of another element.
  const char* text = "received more decoded frames 1 than provided 0";
  warn(decoder.get(), text);
  warn(sink.get(), text);
  EXPECT_EQ(pipeline.complaints(),
            (std::vector<std::string>{"received less decoded frames", text, text}));
}

}  // namespace
