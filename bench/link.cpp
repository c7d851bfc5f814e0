// link: a call's receiver on a clock of its own, so that a minute takes a second.
//
//   packets at their arrival times -> rtpjitterbuffer -> rtpg729depay -> kelg729fdec -> appsink
//
// Reads packets from standard input (arrival in ns: 8 bytes, size: 4, then the RTP packet) and
// writes what comes out to standard output (timestamp, time of its coming: 8 bytes each, size: 4,
// then the samples). Time stands still while anything is under way: the clock is turned to the next
// wait or arrival only when every thread of the process sleeps.
//
//   link [latency=MS] [PROPERTY=VALUE of the decoder...]
#include <fcntl.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/check/gsttestclock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr GstClockTime kTail = GST_SECOND;  // after the last packet
constexpr guint32 kMostBytes = 1 << 16;

struct Link {
  GstElement* pipeline;
  GstAppSrc* source;
  GstTestClock* clock;
};

// What the system says of the threads other than this one, which turns the clock.
class Others {
 public:
  // Whether all sleep now. New ones are looked for now and then, and whenever one has ended.
  bool sleep() {
    if (looked_++ % 64 == 0) list();
    for (const int file : files_) {
      char text[128] = {};
      const bool lives = pread(file, text, sizeof(text) - 1, 0) > 0;
      const char* name_end = std::strrchr(text, ')');
      if (!lives) looked_ = 0;
      if (lives && (!name_end || name_end[2] != 'S')) return false;
    }
    return looked_ > 0;
  }

 private:
  void list() {
    for (const int file : files_) close(file);
    files_.clear();
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      if (std::atoi(task.path().filename().c_str()) == gettid()) continue;
      const int file = open((task.path() / "stat").c_str(), O_RDONLY);
      if (file >= 0) files_.push_back(file);
    }
  }
  std::vector<int> files_;
  unsigned looked_ = 0;
};

// A thread that one wakes is awake before the one sleeps: to have seen all asleep, twice, is
// enough.
void settle() {
  static Others others;
  for (int seen = 0; seen < 2;) {
    seen = others.sleep() ? seen + 1 : 0;
    if (seen == 0) usleep(20);  // a sleeper is woken sooner on a loaded machine than one that yields
  }
}

void turn(const Link& link, GstClockTime until) {
  for (settle();; settle()) {
    GstClockID next = nullptr;
    if (!gst_test_clock_peek_next_pending_id(link.clock, &next)) break;
    const GstClockTime due = gst_clock_id_get_time(next);
    gst_clock_id_unref(next);
    if (due > until) break;
    if (due > gst_clock_get_time(GST_CLOCK(link.clock))) gst_test_clock_set_time(link.clock, due);
    GstClockID released = gst_test_clock_process_next_clock_id(link.clock);
    if (released) gst_clock_id_unref(released);
  }
  if (until > gst_clock_get_time(GST_CLOCK(link.clock))) gst_test_clock_set_time(link.clock, until);
}

GstFlowReturn on_sample(GstAppSink* sink, gpointer clock) {
  GstSample* sample = gst_app_sink_pull_sample(sink);
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  GstMapInfo map;
  gst_buffer_map(buffer, &map, GST_MAP_READ);
  const guint64 times[] = {GST_BUFFER_PTS(buffer), gst_clock_get_time(GST_CLOCK(clock))};
  const auto size = static_cast<guint32>(map.size);
  std::fwrite(times, sizeof(times), 1, stdout);
  std::fwrite(&size, sizeof(size), 1, stdout);
  std::fwrite(map.data, map.size, 1, stdout);
  gst_buffer_unmap(buffer, &map);
  gst_sample_unref(sample);
  return GST_FLOW_OK;
}

Link make(const std::string& latency, const std::string& properties) {
  const std::string launch =
      "appsrc name=in is-live=true format=time caps=\"application/x-rtp,media=audio,"
      "clock-rate=8000,encoding-name=G729,payload=18\" ! rtpjitterbuffer do-lost=true latency=" +
      latency + " ! rtpg729depay ! kelg729fdec " + properties +
      " ! appsink name=out sync=false async=false";
  GError* error = nullptr;
  Link link{gst_parse_launch(launch.c_str(), &error), nullptr,
            GST_TEST_CLOCK(gst_test_clock_new())};
  if (error) {
    std::fprintf(stderr, "link: %s\n", error->message);
    std::exit(1);
  }
  link.source = GST_APP_SRC(gst_bin_get_by_name(GST_BIN(link.pipeline), "in"));
  GstElement* sink = gst_bin_get_by_name(GST_BIN(link.pipeline), "out");
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = on_sample;
  gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, link.clock, nullptr);
  gst_object_unref(sink);
  gst_pipeline_use_clock(GST_PIPELINE(link.pipeline), GST_CLOCK(link.clock));
  gst_element_set_state(link.pipeline, GST_STATE_PLAYING);
  gst_element_get_state(link.pipeline, nullptr, nullptr, GST_CLOCK_TIME_NONE);
  return link;
}

GstBuffer* read_packet() {
  guint64 arrival;
  guint32 size;
  if (std::fread(&arrival, sizeof(arrival), 1, stdin) != 1) return nullptr;
  if (std::fread(&size, sizeof(size), 1, stdin) != 1 || size > kMostBytes) return nullptr;
  GstBuffer* packet = gst_buffer_new_allocate(nullptr, size, nullptr);
  GstMapInfo map;
  gst_buffer_map(packet, &map, GST_MAP_WRITE);
  const bool whole = std::fread(map.data, 1, size, stdin) == size;
  gst_buffer_unmap(packet, &map);
  GST_BUFFER_PTS(packet) = GST_BUFFER_DTS(packet) = arrival;
  if (!whole) gst_clear_buffer(&packet);
  return packet;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  std::string latency = "60", properties;
  for (int i = 1; i < argc; i++) {
    const std::string word = argv[i];
    if (word.starts_with("latency=")) {
      latency = word.substr(8);
    } else {
      properties += word + " ";
    }
  }
  const Link link = make(latency, properties);
  GstClockTime last = 0;
  while (GstBuffer* packet = read_packet()) {
    last = GST_BUFFER_PTS(packet);
    turn(link, last);
    gst_app_src_push_buffer(link.source, packet);
  }
  turn(link, last + kTail);
  gst_element_set_state(link.pipeline, GST_STATE_NULL);
  gst_object_unref(link.source);
  gst_object_unref(link.pipeline);
  gst_object_unref(link.clock);
}
