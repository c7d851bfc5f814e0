// The elements in disorder: data, properties, flushes and state changes from threads of their own,
// on a test clock that a ticker turns as fast as it goes and on the system's. What is looked for is
// deadlocks (the test's time runs out), races and leaks (by the sanitizers and the leaks tracer)
// and warnings (fatal).
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/src/faults.h"
#include "tests/src/pipeline.h"

namespace {

using Random = std::mt19937;

int sequences(int usual) {
  const char* set = std::getenv("STORM_SEQUENCES");
  return set ? std::atoi(set) : usual;
}

void linger(Random& random) {
  g_usleep(random() % 200);
}

// Does something again and again in a thread of its own, as long as the object lives.
class Again {
 public:
  template <typename F>
  Again(unsigned seed, F step)
      : thread_([this, seed, step] {
          Random random(seed);
          while (!done_) step(random);
        }) {}
  ~Again() {
    done_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

constexpr gsize kMostFrames = 6;
constexpr gsize kMost = kMostFrames * kPcm;

// An element on a clock that stands still but for a thread that releases every wait on it.
struct Stage {
  const Kind& kind;
  Harness h = kind.make();
  Object<GstElement> element{gst_harness_find_element(h.get(), kind.name)};
  Downstream downstream{h.get()};
  Object<GstTestClock> clock;
  std::atomic<GstClockTime> pts = 0;
  std::unique_ptr<Again> ticker;

  explicit Stage(const Kind& which) : kind(which) {
    gst_harness_set_drop_buffers(h.get(), TRUE);
    gst_harness_use_testclock(h.get());
    clock.reset(gst_harness_get_testclock(h.get()));
    ticker = std::make_unique<Again>(0, [this](Random&) { tick(); });
  }
  void tick() {
    if (gst_test_clock_peek_id_count(clock.get()) > 0) {
      gst_test_clock_advance_time(clock.get(), kTick);
      GstClockID id = gst_test_clock_process_next_clock_id(clock.get());
      if (id) gst_clock_id_unref(id);
    }
    std::this_thread::yield();
  }
  void push(gsize size) {
    static constexpr guint8 kBytes[kMost] = {0x5a, 0x17, 0x42, 0x93, 0xc8, 0x21};
    GstBuffer* buffer = size ? gst_buffer_new_memdup(kBytes, size) : gst_buffer_new();
    const GstClockTime at = pts.fetch_add(kTick);
    if (size % 3) GST_BUFFER_PTS(buffer) = at;
    gst_harness_push(h.get(), buffer);
  }
  // Frames; for the decoder often the beginning of comfort noise, and now and then no packet.
  void push_some(Random& random) {
    const auto frames = 1 + random() % kMostFrames;
    if (kind.packet == kPcm) return push(random() % 4 ? frames * kPcm : random() % (kMost / 2) * 2);
    const gsize odd = random() % 20, sizes[] = {10 * frames, 10 * frames, 2, 2, 2, 12, odd, odd};
    push(sizes[random() % 8]);
  }
  void set(GstState state) {
    EXPECT_NE(gst_element_set_state(h->element, state), GST_STATE_CHANGE_FAILURE);
  }
  void set_property(Random& random) {
    const auto number = static_cast<gint>(random() % 6);
    if (kind.packet == kPcm) {
      g_object_set(element.get(), "frames", number, "annexb", number % 2, nullptr);
    } else {
      g_object_set(element.get(), "plc", number % 2, "tolerance", gint64{number} * 10000000,
                   "max-errors", number - 1, nullptr);
    }
    GstStructure* stats = nullptr;
    g_object_get(element.get(), "stats", &stats, nullptr);
    gst_structure_free(stats);
  }
};

class Storm : public testing::TestWithParam<Kind> {
 protected:
  Stage stage{GetParam()};
};
FOR_BOTH_ELEMENTS(Storm);

// Data and properties from threads of their own, flushes and state changes from another. As
// upstream elements do, a new stream or segment is begun while no data is under way; the rest comes
// at any moment.
TEST_P(Storm, StateChangesWhileDataFlows) {
  std::mutex upstream;
  const Again streaming(21, [&](Random& random) {
    {
      const std::lock_guard lock(upstream);
      stage.push_some(random);
    }
    linger(random);
  });
  const Again properties(22, [&](Random& random) {
    stage.set_property(random);
    linger(random);
  });
  GstHarness* h = stage.h.get();
  Random random(23);
  for (int i = sequences(5000); i > 0; i--) {
    linger(random);
    const auto kind = random() % 4;
    if (kind == 0) {
      stage.downstream.block(random() % 2);
      gst_harness_push_event(h, gst_event_new_flush_start());
      const std::lock_guard lock(upstream);
      gst_harness_push_event(h, gst_event_new_flush_stop(TRUE));
      send_segment(h);
    } else if (kind == 1) {
      stage.set(GST_STATE_PAUSED);
      stage.set(GST_STATE_PLAYING);
    } else {
      stage.set(kind == 2 ? GST_STATE_READY : GST_STATE_NULL);
      const std::lock_guard lock(upstream);
      stage.set(GST_STATE_PLAYING);
      send_stream(h, stage.kind.caps);
    }
  }
}

// Both elements in a pipeline on the system's clock, every state after every other.
TEST(StormPipeline, RandomStates) {
  Pipeline pipeline(std::string("appsrc name=src format=time is-live=true do-timestamp=true "
                                "block=true max-bytes=3200 caps=\"") +
                    kRawCaps + "\" ! kelg729fenc annexb=true frames=1 ! kelg729fdec plc=true ! " +
                    "fakesink sync=true");
  const auto source = pipeline.get("src");
  const Again feeding(24, [&](Random& random) {
    GstBuffer* buffer = make_buffer(kPcm, GST_CLOCK_TIME_NONE, static_cast<guint32>(random()));
    if (random() % 64) gst_buffer_memset(buffer, 0, 0, kPcm);
    gst_app_src_push_buffer(GST_APP_SRC(source.get()), buffer);
    linger(random);
  });
  constexpr GstState kStates[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED,
                                  GST_STATE_PLAYING, GST_STATE_PLAYING};
  Random random(25);
  for (int i = sequences(1000); i > 0; i--) {
    EXPECT_NE(pipeline.set(kStates[random() % std::size(kStates)]), GST_STATE_CHANGE_FAILURE);
    g_usleep(random() % 8 ? random() % 500 : 20000);
  }
  pipeline.set(GST_STATE_NULL);
  EXPECT_EQ(pipeline.complaints(), std::vector<std::string>{});
}

}  // namespace
