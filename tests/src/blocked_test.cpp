// What holds the decoder's threads up in a push, and state changes in the middle of it. Time is the
// system's here: a clock that stands still cannot tell a wait from a hang.
#include <atomic>
#include <memory>
#include <thread>
#include <tuple>

#include "tests/src/faults.h"
#include "tests/src/live.h"

namespace {

constexpr gint64 kMost = G_USEC_PER_SEC;  // a hang, not a slow machine

enum class Obstacle { kProbe, kPeer, kUnlinked, kFlushing, kError };

class Blocked : public testing::TestWithParam<std::tuple<Obstacle, GstState, bool>> {
 protected:
  Live live;
  GstElement* element = live.h->element;
  Object<GstPad> pad{gst_element_get_static_pad(element, "src")};
  std::unique_ptr<Downstream> downstream = std::make_unique<Downstream>(live.h.get());
  std::atomic<bool> held = false;

  void put(Obstacle obstacle) {
    const auto block = [](GstPad*, GstPadProbeInfo*, gpointer data) {
      *static_cast<std::atomic<bool>*>(data) = true;
      return GST_PAD_PROBE_OK;
    };
    if (obstacle == Obstacle::kProbe) {
      gst_pad_add_probe(
          pad.get(),
          static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BLOCK | GST_PAD_PROBE_TYPE_BUFFER), block,
          &held, nullptr);
    }
    if (obstacle == Obstacle::kPeer) downstream->block(true);
    if (obstacle == Obstacle::kUnlinked) gst_pad_unlink(pad.get(), live.h->sinkpad);
    if (obstacle == Obstacle::kFlushing) downstream->answer(GST_FLOW_FLUSHING);
    if (obstacle == Obstacle::kError) downstream->answer(GST_FLOW_ERROR);
  }
  void wait_for(Obstacle obstacle) {
    if (obstacle == Obstacle::kPeer) downstream->wait_until_waited_for();
    while (obstacle == Obstacle::kProbe && !held) g_usleep(100);
  }
};

// The thread is held up by a packet of noise, and the streaming thread perhaps by the thread.
TEST_P(Blocked, StateChangesReturn) {
  const auto [obstacle, state, streaming] = GetParam();
  ASSERT_EQ(live.push(2, 0), GST_FLOW_OK);
  live.next_deadline();
  put(obstacle);
  gst_test_clock_advance_time(live.clock.get(), kTick);
  gst_clock_id_unref(gst_test_clock_process_next_clock_id(live.clock.get()));
  wait_for(obstacle);
  std::thread push([&, also = streaming] {
    if (also) live.push(10, 2 * kTick);
  });
  if (streaming) g_usleep(2000);

  const gint64 start = g_get_monotonic_time();
  EXPECT_EQ(gst_element_set_state(element, state), GST_STATE_CHANGE_SUCCESS);
  EXPECT_LT(g_get_monotonic_time() - start, kMost);

  gst_element_set_state(element, GST_STATE_NULL);
  push.join();
  downstream.reset();
  if (obstacle == Obstacle::kProbe || obstacle == Obstacle::kUnlinked) return;
  gst_harness_play(live.h.get());  // and all is well again
  gst_harness_set_src_caps_str(live.h.get(), kG729Caps);
  while (Buffer old{gst_harness_try_pull(live.h.get())}) continue;
  EXPECT_EQ(live.push(10, 0), GST_FLOW_OK);
  EXPECT_EQ(gst_harness_buffers_in_queue(live.h.get()), 1u);
}
INSTANTIATE_TEST_SUITE_P(
    All, Blocked,
    testing::Combine(testing::Values(Obstacle::kProbe, Obstacle::kPeer, Obstacle::kUnlinked,
                                     Obstacle::kFlushing, Obstacle::kError),
                     testing::Values(GST_STATE_PAUSED, GST_STATE_READY, GST_STATE_NULL),
                     testing::Bool()));

// Stops the element `data` when its streaming thread is about to begin noise.
void stop_at_noise(GstDebugCategory*, GstDebugLevel, const gchar*, const gchar*, gint, GObject*,
                   GstDebugMessage* message, gpointer data) {
  if (g_strcmp0(gst_debug_message_get(message), "start DTX transmission") != 0) return;
  auto* element = static_cast<GstElement*>(data);
  const Object<GstPad> pad(gst_element_get_static_pad(element, "src"));
  std::thread(gst_element_set_state, element, GST_STATE_READY).detach();
  while (gst_pad_is_active(pad.get())) g_usleep(100);
}

// Noise that comes too late for its run is none of the next one's, which has no caps yet.
TEST(BlockedStart, NoiseEndsWithTheRun) {
  Live live;
  GstElement* element = live.h->element;
  gst_debug_remove_log_function(gst_debug_log_default);
  gst_debug_add_log_function(stop_at_noise, element, nullptr);
  gst_debug_set_threshold_for_name("g729fdec", GST_LEVEL_DEBUG);
  live.push(2, 0);
  gst_debug_unset_threshold_for_name("g729fdec");
  gst_debug_remove_log_function(stop_at_noise);
  gst_debug_add_log_function(gst_debug_log_default, nullptr, nullptr);

  ASSERT_EQ(gst_element_set_state(element, GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
  ASSERT_EQ(gst_element_set_state(element, GST_STATE_PLAYING), GST_STATE_CHANGE_SUCCESS);
  g_usleep(2000);
  EXPECT_FALSE(live.waiting());
}

}  // namespace
