// What applications and payloaders read off the elements: counters and tags.
#include <map>

#include "tests/src/live.h"

namespace {

using Counters = std::map<std::string, guint64>;

Counters stats(GstElement* element) {
  GstStructure* structure = nullptr;
  g_object_get(element, "stats", &structure, nullptr);
  Counters counters;
  for (gint i = 0; i < gst_structure_n_fields(structure); i++) {
    const gchar* name = gst_structure_nth_field_name(structure, static_cast<guint>(i));
    EXPECT_TRUE(gst_structure_get_uint64(structure, name, &counters[name])) << name;
  }
  gst_structure_free(structure);
  return counters;
}

Object<GstElement> find(const Harness& h, const char* factory) {
  return Object<GstElement>(gst_harness_find_element(h.get(), factory));
}

// Loud noise but for frames 30 to 129 and 160 to 199.
GstBuffer* audio(gsize frame) {
  const bool silent = (frame >= 30 && frame < 130) || (frame >= 160 && frame < 200);
  GstBuffer* buffer = make_buffer(kPcm, frame * kTick, static_cast<std::uint32_t>(frame));
  if (silent) gst_buffer_memset(buffer, 0, 0, kPcm);
  return buffer;
}
constexpr gsize kFrames = 240;

TEST(Stats, Encoder) {
  Harness h = make_encoder(1, true);
  const auto element = find(h, "kelg729fenc");
  EXPECT_EQ(stats(element.get()), (Counters{{"frames", 0}, {"sids", 0}, {"untransmitted", 0}}));
  for (gsize i = 0; i < kFrames; i++) gst_harness_push(h.get(), audio(i));
  Counters want{{"frames", 0}, {"sids", 0}, {"untransmitted", kFrames}};
  for (const gsize size : pull_sizes(h)) {
    want[size == 10 ? "frames" : "sids"]++;
    want["untransmitted"]--;
  }
  EXPECT_EQ(stats(element.get()), want);
  EXPECT_GT(want["sids"] * want["untransmitted"], 0u);
  gst_element_set_state(h->element, GST_STATE_NULL);
  EXPECT_EQ(stats(element.get()), want);  // still there, until the next start
  gst_harness_play(h.get());
  EXPECT_EQ(stats(element.get())["frames"], 0u);
}

TEST(Stats, Decoder) {
  Live live;
  const auto element = find(live.h, "kelg729fdec");
  live.push(10, 0);
  live.push(13, 1 * kTick);
  live.push(32, 2 * kTick);  // three frames and a descriptor
  for (int i = 0; i < 3; i++) gst_harness_crank_single_clock_wait(live.h.get());
  live.next_deadline();
  gst_test_clock_advance_time(live.clock.get(), 35 * GST_MSECOND);  // one wake-up is late
  for (int i = 0; i < 4; i++) {
    gst_harness_crank_single_clock_wait(live.h.get());
    live.next_deadline();
  }
  live.push(15, 20 * kTick);
  const Counters want{{"frames", 4},    {"sids", 1},          {"invalid-sizes", 2},
                      {"concealed", 0}, {"comfort-noise", 7}, {"late-wakeups", 1}};
  EXPECT_EQ(stats(element.get()), want);
}

TEST(Tags, CodecAndBitRate) {
  Harness constant = make_encoder(2, false);
  Harness silence = make_encoder(2, true);
  Harness decoder = make_decoder();
  const struct {
    const Harness& harness;
    gsize size;
    guint bit_rate;
  } cases[] = {{constant, 320, 8000}, {silence, 320, 0}, {decoder, 10, 0}};
  for (const auto& c : cases) {
    gst_harness_push(c.harness.get(), make_buffer(c.size, 0));
    GstTagList* tags = nullptr;
    while (GstEvent* event = gst_harness_try_pull_event(c.harness.get())) {
      if (GST_EVENT_TYPE(event) == GST_EVENT_TAG) {
        GstTagList* list;
        gst_event_parse_tag(event, &list);
        gst_clear_tag_list(&tags);
        tags = gst_tag_list_copy(list);
      }
      gst_event_unref(event);
    }
    ASSERT_TRUE(tags);
    gchar* codec = nullptr;
    guint most = 0, exact = 0;
    gst_tag_list_get_string(tags, GST_TAG_AUDIO_CODEC, &codec);
    gst_tag_list_get_uint(tags, GST_TAG_MAXIMUM_BITRATE, &most);
    gst_tag_list_get_uint(tags, GST_TAG_BITRATE, &exact);
    EXPECT_STREQ(codec, "G.729");
    EXPECT_EQ(most, 8000u);
    EXPECT_EQ(exact, c.bit_rate);
    g_free(codec);
    gst_tag_list_unref(tags);
  }
}

}  // namespace
