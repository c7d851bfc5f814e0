// Both elements alike, and what goes wrong around them: memory, and what is downstream.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "tests/src/harness.h"

struct Kind {
  const char* name;
  Harness (*make)();
  const char* caps;
  gsize packet;  // bytes of a frame that go in
  gsize result;  // and that come out
};

inline const Kind kKinds[] = {
    {"kelg729fenc", [] { return make_encoder(1); }, kRawCaps, kPcm, 10},
    {"kelg729fdec", make_decoder, kG729Caps, 10, kPcm},
};

// For tests of every kind of element.
struct OfBoth : testing::TestWithParam<Kind> {
  const Kind& kind = GetParam();
  Harness h = kind.make();

  GstFlowReturn push(GstClockTime pts = GST_CLOCK_TIME_NONE) {
    return gst_harness_push(h.get(), make_buffer(kind.packet, pts));
  }
};
#define FOR_BOTH_ELEMENTS(suite)                                   \
  INSTANTIATE_TEST_SUITE_P(Both, suite, testing::ValuesIn(kKinds), \
                           [](const auto& info) { return std::string(info.param.name); })

inline void send_caps(GstHarness* h, const std::string& text) {
  const Caps caps(gst_caps_from_string(text.c_str()));
  gst_harness_push_event(h, gst_event_new_caps(caps.get()));
}

inline void send_stream(GstHarness* h, const char* caps) {
  gst_harness_push_event(h, gst_event_new_stream_start("again"));
  send_caps(h, caps);
  send_segment(h);
}

// What is downstream of a harness: takes buffers, answers them with anything, or blocks, as a sink
// does that is paused, until a flush comes.
class Downstream {
 public:
  explicit Downstream(GstHarness* h) : pad_(GST_PAD(gst_object_ref(h->sinkpad))) {
    buffers_ = gst_pad_add_probe(pad_.get(), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
    flushes_ =
        gst_pad_add_probe(pad_.get(), GST_PAD_PROBE_TYPE_EVENT_FLUSH, on_flush, this, nullptr);
  }
  ~Downstream() {
    block(false);
    gst_pad_remove_probe(pad_.get(), buffers_);
    gst_pad_remove_probe(pad_.get(), flushes_);
  }
  Downstream(const Downstream&) = delete;
  Downstream& operator=(const Downstream&) = delete;

  void answer(GstFlowReturn flow) { answer_ = flow; }
  void block(bool blocked) {
    const std::lock_guard lock(mutex_);
    blocked_ = blocked;
    change_.notify_all();
  }
  void wait_until_waited_for() {
    std::unique_lock lock(mutex_);
    change_.wait(lock, [this] { return waiting_ > 0; });
  }

 private:
  static GstPadProbeReturn on_buffer(GstPad*, GstPadProbeInfo* info, gpointer data) {
    auto* self = static_cast<Downstream*>(data);
    const GstFlowReturn flow = self->wait() ? GST_FLOW_FLUSHING : self->answer_.load();
    if (flow == GST_FLOW_OK) return GST_PAD_PROBE_OK;
    gst_clear_buffer(reinterpret_cast<GstBuffer**>(&info->data));
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) = flow;
    return GST_PAD_PROBE_HANDLED;
  }
  static GstPadProbeReturn on_flush(GstPad*, GstPadProbeInfo* info, gpointer data) {
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_FLUSH_START) {
      static_cast<Downstream*>(data)->block(false);
    }
    return GST_PAD_PROBE_OK;
  }
  bool wait() {  // whether there was anything to wait for
    std::unique_lock lock(mutex_);
    if (!blocked_) return false;
    waiting_++;
    change_.notify_all();
    change_.wait(lock, [this] { return !blocked_; });
    waiting_--;
    return true;
  }

  Object<GstPad> pad_;
  gulong buffers_, flushes_;
  std::atomic<GstFlowReturn> answer_ = GST_FLOW_OK;
  std::mutex mutex_;
  std::condition_variable change_;
  bool blocked_ = false;
  int waiting_ = 0;
};

// Memory runs out: in the framework's default allocator's place stands one that gives nothing. The
// framework does not expect it to be replaced while other threads allocate.
class NoMemory {
 public:
  NoMemory() : usual_(gst_allocator_find(nullptr)) {
    auto* allocator = static_cast<GstAllocator*>(g_object_new(type(), nullptr));
    gst_object_ref_sink(allocator);
    gst_allocator_set_default(allocator);
  }
  ~NoMemory() { gst_allocator_set_default(usual_); }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

 private:
  static GType type() {
    const auto init = [](gpointer klass, gpointer) {
      static_cast<GstAllocatorClass*>(klass)->alloc =
          [](GstAllocator*, gsize, GstAllocationParams*) -> GstMemory* { return nullptr; };
    };
    static const GType made = g_type_register_static_simple(
        GST_TYPE_ALLOCATOR, "NoMemoryAllocator", sizeof(GstAllocatorClass), init,
        sizeof(GstAllocator), nullptr, static_cast<GTypeFlags>(0));
    return made;
  }

  GstAllocator* usual_;
};
