// The elements in real pipelines, on the system's clock.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <atomic>
#include <cmath>

#include "tests/src/harness.h"

namespace {

struct Pipeline {
  Object<GstElement> top;
  Object<GstBus> bus;

  explicit Pipeline(const std::string& launch) {
    GError* error = nullptr;
    top.reset(gst_parse_launch(launch.c_str(), &error));
    EXPECT_FALSE(error) << error->message;
    bus.reset(gst_element_get_bus(top.get()));
  }
  ~Pipeline() { set(GST_STATE_NULL); }

  GstStateChangeReturn set(GstState state) { return gst_element_set_state(top.get(), state); }
  Object<GstElement> get(const char* name) {
    return Object<GstElement>(gst_bin_get_by_name(GST_BIN(top.get()), name));
  }
  void push(const char* source, GstBuffer* buffer) {
    EXPECT_EQ(gst_app_src_push_buffer(GST_APP_SRC(get(source).get()), buffer), GST_FLOW_OK);
  }
  // The texts of the warnings and errors on the bus so far.
  std::vector<std::string> complaints() {
    std::vector<std::string> texts;
    constexpr auto kinds = static_cast<GstMessageType>(GST_MESSAGE_WARNING | GST_MESSAGE_ERROR);
    while (GstMessage* message = gst_bus_pop_filtered(bus.get(), kinds)) {
      GError* error = nullptr;
      if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message, &error, nullptr);
      } else {
        gst_message_parse_warning(message, &error, nullptr);
      }
      texts.push_back(error->message);
      g_error_free(error);
      gst_message_unref(message);
    }
    return texts;
  }
  bool wait_for_end() {
    constexpr auto kinds = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
    GstMessage* message = gst_bus_timed_pop_filtered(bus.get(), 30 * GST_SECOND, kinds);
    const bool ended = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message) gst_message_unref(message);
    return ended;
  }
};

void warn(gpointer element, const char* text) {
  GST_ELEMENT_WARNING(element, STREAM, DECODE, ("%s", text), (nullptr));
}

// Of all that is posted, only the base class's complaint about comfort noise goes missing.
TEST(Pipeline, ComfortNoiseIsQuiet) {
  Pipeline pipeline(std::string("appsrc name=src format=time caps=\"") + kG729Caps +
                    "\" ! kelg729fdec name=dec ! appsink name=sink sync=false async=false");
  const auto decoder = pipeline.get("dec");
  const auto sink = pipeline.get("sink");
  pipeline.set(GST_STATE_PLAYING);
  pipeline.push("src", make_buffer(2, 0));

  // From the thread that makes the noise, and from no other, but with another text.
  Object<GstPad> pad(gst_element_get_static_pad(decoder.get(), "src"));
  const auto complain = [](GstPad*, GstPadProbeInfo*, gpointer element) {
    warn(element, "received less decoded frames");
    return GST_PAD_PROBE_REMOVE;
  };
  for (int i = 0; i < 20; i++) {
    GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink.get()));
    ASSERT_TRUE(sample);
    gst_sample_unref(sample);
    if (i == 10) {
      gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, complain, decoder.get(), nullptr);
    }
  }
  // The very text, but not from that thread; and of another element.
  const char* text = "received more decoded frames 1 than provided 0";
  warn(decoder.get(), text);
  warn(sink.get(), text);
  EXPECT_EQ(pipeline.complaints(),
            (std::vector<std::string>{"received less decoded frames", text, text}));
}

TEST(Pipeline, AnyFramesReachTheEnd) {
  for (const char* frames : {"0", "1", "7", "2147483647"}) {
    Pipeline pipeline("audiotestsrc num-buffers=50 ! kelg729fenc frames=" + std::string(frames) +
                      " ! kelg729fdec ! fakesink");
    pipeline.set(GST_STATE_PLAYING);
    EXPECT_TRUE(pipeline.wait_for_end()) << frames;
  }
}

}  // namespace
