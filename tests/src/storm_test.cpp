// The decoder in disorder: random sequences of buffers, descriptors, invalid sizes, flushes and
// state changes, while a ticker drives comfort noise as fast as it goes. What is looked for is
// deadlocks (the test does not end), races and leaks (by the sanitizers) and warnings (fatal).
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/src/harness.h"

namespace {

using Random = std::mt19937;

int sequences(int usual) {
  const char* set = std::getenv("STORM_SEQUENCES");
  return set ? std::atoi(set) : usual;
}

// Releases every wait on the clock, from a thread of its own.
class Ticker {
 public:
  explicit Ticker(GstTestClock* clock) : clock_(clock), thread_([this] { run(); }) {}
  ~Ticker() {
    done_ = true;
    thread_.join();
  }

 private:
  void run() {
    while (!done_) {
      if (gst_test_clock_peek_id_count(clock_) > 0) {
        gst_test_clock_advance_time(clock_, kTick);
        GstClockID id = gst_test_clock_process_next_clock_id(clock_);
        if (id) gst_clock_id_unref(id);
      }
      std::this_thread::yield();
    }
  }

  GstTestClock* clock_;
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

struct Stage {
  Harness h = make_decoder();
  Object<GstTestClock> clock;
  std::atomic<GstClockTime> pts = 0;

  Stage() {
    gst_harness_set_drop_buffers(h.get(), TRUE);
    gst_harness_use_testclock(h.get());
    clock.reset(gst_harness_get_testclock(h.get()));
  }
  void push(gsize size) {
    const GstClockTime at = pts.fetch_add(kTick);
    gst_harness_push(h.get(), make_buffer(size, size % 3 ? at : GST_CLOCK_TIME_NONE));
  }
  void send_stream_start() {
    gst_harness_push_event(h.get(), gst_event_new_stream_start("storm"));
    GstCaps* caps = gst_caps_from_string(kG729Caps);
    gst_harness_push_event(h.get(), gst_event_new_caps(caps));
    gst_caps_unref(caps);
    send_segment();
  }
  void send_segment() {
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_harness_push_event(h.get(), gst_event_new_segment(&segment));
  }
  void flush() {
    gst_harness_push_event(h.get(), gst_event_new_flush_start());
    gst_harness_push_event(h.get(), gst_event_new_flush_stop(TRUE));
    send_segment();
  }
  void set(GstState state) {
    EXPECT_NE(gst_element_set_state(h->element, state), GST_STATE_CHANGE_FAILURE);
  }
};

void linger(Random& random) {
  g_usleep(random() % 200);
}

void random_step(Stage& stage, Random& random) {
  constexpr gsize kInvalid[] = {1, 4, 8, 11, 13, 15, 19};
  switch (random() % 16) {
    case 0:
    case 1:
    case 2:
      return stage.push(10 * (1 + random() % 6));
    case 3:
    case 4:
    case 5:
    case 6:
      return stage.push(2);
    case 7:
      return stage.push(12);
    case 8:
    case 9:
      return stage.push(kInvalid[random() % std::size(kInvalid)]);
    case 10:
      return stage.flush();
    case 11:
      stage.set(random() % 2 ? GST_STATE_READY : GST_STATE_NULL);
      stage.set(GST_STATE_PLAYING);
      return stage.send_stream_start();
    case 12:
      gst_harness_push_event(stage.h.get(), gst_event_new_eos());
      return stage.flush();
    case 13:
      stage.send_segment();
      return stage.push(2);
    default:
      return linger(random);
  }
}

TEST(Storm, RandomSequences) {
  Stage stage;
  const Ticker ticker(stage.clock.get());
  Random random(20);
  for (int i = sequences(10000); i > 0; i--) {
    for (int steps = 1 + static_cast<int>(random() % 8); steps > 0; steps--) {
      random_step(stage, random);
    }
  }
}

// Data from one thread, flushes and state changes from another. As upstream elements do, a new
// stream or segment is begun while no data is under way; the rest comes at any moment.
TEST(Storm, StateChangesWhileDataFlows) {
  Stage stage;
  const Ticker ticker(stage.clock.get());
  std::mutex upstream;
  std::atomic<bool> done = false;
  std::thread streaming([&] {
    Random random(21);
    while (!done) {
      {
        const std::lock_guard lock(upstream);
        stage.push(random() % 2 ? 2 : 20);
      }
      linger(random);
    }
  });
  Random random(22);
  for (int i = sequences(10000) / 4; i > 0; i--) {
    linger(random);
    const auto kind = random() % 4;
    if (kind == 0) {
      gst_harness_push_event(stage.h.get(), gst_event_new_flush_start());
      const std::lock_guard lock(upstream);
      gst_harness_push_event(stage.h.get(), gst_event_new_flush_stop(TRUE));
      stage.send_segment();
    } else if (kind == 1) {
      stage.set(GST_STATE_PAUSED);
      stage.set(GST_STATE_PLAYING);
    } else {
      stage.set(kind == 2 ? GST_STATE_READY : GST_STATE_NULL);
      const std::lock_guard lock(upstream);
      stage.set(GST_STATE_PLAYING);
      stage.send_stream_start();
    }
  }
  done = true;
  streaming.join();
}

// The properties may be written by any thread while the encoder runs.
TEST(Storm, EncoderPropertiesWhileDataFlows) {
  Harness h = make_encoder(2, true);
  gst_harness_set_drop_buffers(h.get(), TRUE);
  std::atomic<bool> done = false;
  std::thread writer([&] {
    Random random(23);
    while (!done) {
      gst_harness_set(h.get(), "kelg729fenc", "frames", static_cast<gint>(random() % 6), "annexb",
                      static_cast<gboolean>(random() % 2), nullptr);
    }
  });
  for (int i = sequences(10000) / 4; i > 0; i--) {
    EXPECT_EQ(gst_harness_push(h.get(), make_buffer(kPcm * 2, GST_CLOCK_TIME_NONE,
                                                    static_cast<std::uint32_t>(i))),
              GST_FLOW_OK);
  }
  done = true;
  writer.join();
}

}  // namespace
