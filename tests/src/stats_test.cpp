// What applications and payloaders read off the elements: counters and tags.
#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include "tests/src/scenario.h"

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

// One bit of the first lag, which stands behind the 18 bits of the LSPs, the other way round.
GstBuffer* flip(GstBuffer* frame) {
  guint8 byte;
  gst_buffer_extract(frame, 2, &byte, 1);
  byte ^= 0x20;
  gst_buffer_fill(frame, 2, &byte, 1);
  return frame;
}

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
  Scenario scenario;
  scenario.play("10@0 13@10 32@20 t=50 late+35 t=120 15@200");
  EXPECT_EQ(stats(scenario.element()), (Counters{{"frames", 4},
                                                 {"sids", 1},
                                                 {"invalid-sizes", 2},
                                                 {"concealed", 0},
                                                 {"comfort-noise", 12},
                                                 {"late-wakeups", 1},
                                                 {"loss-events", 0},
                                                 {"longest-loss", 0},
                                                 {"parity-errors", 4}}));
}

// Losses of 2, 1 and 3 frames; a wrong parity bit is one whose lag has been changed in one bit.
TEST(Stats, LossesAndParity) {
  Harness encoder = make_encoder(1), h = make_decoder();
  const auto element = find(h, "kelg729fdec");
  g_object_set(element.get(), "plc", TRUE, nullptr);
  testing::internal::CaptureStdout();
  for (gsize i = 0; i < 12; i++) {
    gst_harness_push(encoder.get(), make_buffer(kPcm, i * kTick));
    GstBuffer* frame = gst_buffer_make_writable(pull(encoder).release());
    if (i == 5 || i == 11) frame = flip(frame);
    const bool lost = i == 1 || i == 2 || i == 4 || (i >= 8 && i <= 10);
    if (lost) {
      gst_buffer_unref(frame);
      gst_harness_push_event(h.get(), gst_event_new_gap(i * kTick, kTick));
    } else {
      gst_harness_push(h.get(), frame);
    }
  }
  const Counters got = stats(element.get());
  EXPECT_EQ(got.at("concealed"), 6u);
  EXPECT_EQ(got.at("loss-events"), 3u);
  EXPECT_EQ(got.at("longest-loss"), 3u);
  EXPECT_EQ(got.at("parity-errors"), 2u);
  const std::string said = testing::internal::GetCapturedStdout();
  EXPECT_EQ(std::ranges::count(said, 'W'), 2) << said;  // as the codec says it
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
    GstEvent* event = gst_pad_get_sticky_event(c.harness->sinkpad, GST_EVENT_TAG, 0);
    ASSERT_TRUE(event);
    GstTagList* tags = nullptr;
    gst_event_parse_tag(event, &tags);
    gchar* codec = nullptr;
    guint most = 0, exact = 0;
    gst_tag_list_get_string(tags, GST_TAG_AUDIO_CODEC, &codec);
    gst_tag_list_get_uint(tags, GST_TAG_MAXIMUM_BITRATE, &most);
    gst_tag_list_get_uint(tags, GST_TAG_BITRATE, &exact);
    EXPECT_STREQ(codec, "G.729");
    EXPECT_EQ(most, 8000u);
    EXPECT_EQ(exact, c.bit_rate);
    g_free(codec);
    gst_event_unref(event);
  }
}

}  // namespace
