// A pipeline from a launch line, and what its bus says.
#pragma once

#include <gst/app/gstappsrc.h>

#include <string>
#include <vector>

#include "tests/src/harness.h"

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
    GstMessage* message = gst_bus_timed_pop_filtered(bus.get(), 120 * GST_SECOND, kinds);
    const bool ended = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message) gst_message_unref(message);
    return ended;
  }
};
