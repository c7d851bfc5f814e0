// The decoder element in disorder: buffers of any size, descriptors and the comfort noise after
// them, flushes, segments, ends of stream, state changes, other caps, and downstream elements that
// refuse. Whatever GLib or GStreamer finds critical ends the run; a deadlock runs into its limit.
//
// Input: steps of one byte for what happens and one or two for its details.
#include <gst/check/gstharness.h>
#include <gst/check/gsttestclock.h>

#include <cstdint>

#include "fuzz/input.h"
#include "src/audio/g729f/frame.h"

extern "C" gboolean gst_plugin_kelg729f_avx_register();

namespace {

constexpr int kMostSteps = 200;
constexpr const char* kCaps = "audio/G729, rate=(int)8000, channels=(int)1";

class Stage {
 public:
  Stage() : harness_(gst_harness_new("kelg729fdec")) {
    gst_harness_use_testclock(harness_);
    clock_ = gst_harness_get_testclock(harness_);
    gst_pad_add_probe(harness_->sinkpad, GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
    gst_harness_set_src_caps_str(harness_, kCaps);
  }
  ~Stage() {
    gst_object_unref(clock_);
    gst_harness_teardown(harness_);
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  void step(fuzz::Input* in) {
    switch (in->below(12)) {
      case 0:
      case 1:
        return push(in->byte(), in);
      case 2:
        return push(static_cast<gsize>(in->word()) % 4097, in);
      case 3:
        return push(static_cast<gsize>(10 * in->below(7)), in);
      case 4:
      case 5:
        push(static_cast<gsize>(10 * in->below(3)) + 2, in);
        return wait_for_noise();
      case 6:
        return tick(1 + in->below(5));
      case 7:
        return flush(in->byte());
      case 8:
        return send_segment(in);
      case 9:
        return change_state(in->byte());
      case 10:
        return answer(in->byte());
      default:
        return odd_event(in->byte());
    }
  }

 private:
  static GstPadProbeReturn on_buffer(GstPad*, GstPadProbeInfo* info, gpointer data) {
    auto* self = static_cast<Stage*>(data);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const gsize size = gst_buffer_get_size(buffer);
    // The base class cuts what crosses an edge of the segment.
    const gsize unit = g_atomic_int_get(&self->cut_) ? sizeof(gint16) : kPcmBytes;
    fuzz::expect(size % unit == 0 && (size > 0 || unit < kPcmBytes), "whole frames");
    gst_buffer_unref(buffer);
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) =
        static_cast<GstFlowReturn>(g_atomic_int_get(&self->answer_));
    return GST_PAD_PROBE_HANDLED;
  }

  void push(gsize size, fuzz::Input* in) {
    const int details = in->byte();
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    gst_buffer_memset(buffer, 0, static_cast<guint8>(details), size);
    if (details % 4 != 0) GST_BUFFER_PTS(buffer) = time_ += kFrameTime * (details % 8);
    if (details % 16 == 5) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    if (details % 16 == 6) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_GAP);
    gst_harness_push(harness_, buffer);
  }
  // The noise thread waits on the clock soon after a descriptor, unless it was stopped again.
  void wait_for_noise() {
    gst_test_clock_timed_wait_for_multiple_pending_ids(clock_, 1, 1, nullptr);
  }
  void tick(int times) {
    for (; times > 0; --times) {
      gst_test_clock_advance_time(clock_, kFrameTime);
      if (gst_test_clock_peek_id_count(clock_) == 0) continue;
      GstClockID id = gst_test_clock_process_next_clock_id(clock_);
      if (id) gst_clock_id_unref(id);
      wait_for_noise();
    }
  }
  void flush(int details) {
    gst_harness_push_event(harness_, gst_event_new_flush_start());
    if (details % 4 == 1) push_plain(12);
    gst_harness_push_event(harness_, gst_event_new_flush_stop(details % 2));
    plain_segment();
  }
  void push_plain(gsize size) {
    gst_harness_push(harness_, gst_buffer_new_allocate(nullptr, size, nullptr));
  }
  void plain_segment() {
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_harness_push_event(harness_, gst_event_new_segment(&segment));
  }
  void send_segment(fuzz::Input* in) {
    constexpr double kRates[] = {1.0, 1.0, 2.0, 0.5, -1.0};
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    const int details = in->byte();
    segment.rate = kRates[details % 5];
    segment.start = segment.position = kFrameTime * static_cast<GstClockTime>(in->byte());
    segment.stop = segment.start + kFrameTime * static_cast<GstClockTime>(in->byte());
    g_atomic_int_set(&cut_, 1);
    segment.base = kFrameTime * static_cast<GstClockTime>(details);
    gst_harness_push_event(harness_, gst_event_new_segment(&segment));
  }
  void begin_stream(const char* caps_text) {
    gst_harness_push_event(harness_, gst_event_new_stream_start("fuzz"));
    GstCaps* caps = gst_caps_from_string(caps_text);
    gst_harness_push_event(harness_, gst_event_new_caps(caps));
    gst_caps_unref(caps);
    plain_segment();
  }
  void change_state(int details) {
    constexpr GstState kStates[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED};
    gst_element_set_state(harness_->element, kStates[details % 3]);
    if (details % 32 == 31) push_plain(10);
    gst_element_set_state(harness_->element, GST_STATE_PLAYING);
    if (details % 3 != 2) begin_stream(kCaps);
  }
  void answer(int details) {
    constexpr GstFlowReturn kAnswers[] = {GST_FLOW_OK,       GST_FLOW_OK,    GST_FLOW_EOS,
                                          GST_FLOW_FLUSHING, GST_FLOW_ERROR, GST_FLOW_NOT_LINKED};
    g_atomic_int_set(&answer_, kAnswers[details % 6]);
  }
  void odd_event(int details) {
    switch (details % 4) {
      case 0:
        gst_harness_push_event(harness_, gst_event_new_eos());
        return flush(0);
      case 1:
        gst_harness_push_event(harness_,
                               gst_event_new_gap(time_, kFrameTime * static_cast<guint>(details)));
        return;
      case 2:
        return begin_stream("audio/G729, rate=(int)16000, channels=(int)1");
      default:
        return begin_stream(kCaps);
    }
  }

  GstHarness* harness_;
  GstTestClock* clock_;
  GstClockTime time_ = 0;
  gint answer_ = GST_FLOW_OK;
  gint cut_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Nothing but this plug-in, and no scanner, which could not load it with a sanitizer inside.
  g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", TRUE);
  g_setenv("GST_REGISTRY_DISABLE", "yes", TRUE);
  gst_registry_fork_set_enabled(FALSE);
  gst_init(nullptr, nullptr);
  g_log_set_always_fatal(
      static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
  gst_debug_remove_log_function(gst_debug_log_default);
  fuzz::expect(gst_plugin_kelg729f_avx_register(), "the plug-in");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  Stage stage;
  for (int i = 0; i < kMostSteps && !in.done(); ++i) stage.step(&in);
  return 0;
}
