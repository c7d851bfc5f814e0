// Helpers around GstHarness for the element tests.
#pragma once

#include <gst/check/gstharness.h>
#include <gst/check/gsttestclock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

constexpr const char* kG729Caps = "audio/G729, rate=(int)8000, channels=(int)1";
constexpr const char* kRawCaps =
    "audio/x-raw, format=S16LE, layout=interleaved, rate=(int)8000, channels=(int)1";
constexpr GstClockTime kTick = 10 * GST_MSECOND;
constexpr gsize kPcm = 160;  // bytes of a decoded frame

struct HarnessEnd {
  void operator()(GstHarness* h) const { gst_harness_teardown(h); }
};
using Harness = std::unique_ptr<GstHarness, HarnessEnd>;

struct MiniObjectEnd {
  void operator()(gpointer object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
};
using Buffer = std::unique_ptr<GstBuffer, MiniObjectEnd>;
using Caps = std::unique_ptr<GstCaps, MiniObjectEnd>;

struct ObjectEnd {
  void operator()(gpointer object) const { gst_object_unref(object); }
};
template <typename T>
using Object = std::unique_ptr<T, ObjectEnd>;

inline Harness make_decoder() {
  Harness h(gst_harness_new("kelg729fdec"));
  gst_harness_set_src_caps_str(h.get(), kG729Caps);
  return h;
}

inline Harness make_encoder(int frames = 2, bool annexb = false) {
  const std::string launch =
      "kelg729fenc frames=" + std::to_string(frames) + " annexb=" + (annexb ? "true" : "false");
  Harness h(gst_harness_new_parse(launch.c_str()));
  gst_harness_set_src_caps_str(h.get(), kRawCaps);
  return h;
}

// A buffer of `size` bytes made from `seed`, without a duration.
inline GstBuffer* make_buffer(gsize size, GstClockTime pts = GST_CLOCK_TIME_NONE,
                              std::uint32_t seed = 1) {
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
  GstMapInfo map;
  gst_buffer_map(buffer, &map, GST_MAP_WRITE);
  for (gsize i = 0; i < size; i++) {
    seed = seed * 1664525 + 1013904223;
    map.data[i] = static_cast<guint8>(seed >> 24);
  }
  gst_buffer_unmap(buffer, &map);
  GST_BUFFER_PTS(buffer) = pts;
  return buffer;
}

inline void send_segment(GstHarness* h, GstClockTime start = 0) {
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  segment.start = segment.time = segment.position = start;
  gst_harness_push_event(h, gst_event_new_segment(&segment));
}

inline void flush(GstHarness* h) {
  gst_harness_push_event(h, gst_event_new_flush_start());
  gst_harness_push_event(h, gst_event_new_flush_stop(TRUE));
  send_segment(h);
}

inline std::vector<guint8> bytes_of(GstBuffer* buffer) {
  std::vector<guint8> bytes(gst_buffer_get_size(buffer));
  gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
  return bytes;
}

inline Buffer pull(const Harness& h) {
  return Buffer(gst_harness_pull(h.get()));
}

inline std::vector<gsize> pull_sizes(const Harness& h) {
  std::vector<gsize> sizes;
  while (Buffer buffer{gst_harness_try_pull(h.get())}) {
    sizes.push_back(gst_buffer_get_size(buffer.get()));
  }
  return sizes;
}
