// link: a call's receiver on a clock of its own, so that a minute takes a second.
//
//   packets at their arrival times -> rtpjitterbuffer -> rtpg729depay -> kelg729fdec -> appsink
//
// Reads packets from standard input (arrival in ns: 8 bytes, size: 4, then the RTP packet) and
// writes what comes out to standard output (timestamp, time of its coming: 8 bytes each, size: 4,
// then the samples). Time stands still while anything is under way: the clock is turned to the next
// wait or arrival only when every thread of the process sleeps.
//
//   link [latency=MS] [before=ELEMENTS] [buffer=PROPERTIES] [behind=ELEMENTS] [rtx=MS]
//        [PROPERTY=VALUE of the decoder...]
//
// `before` and `behind` stand around the jitter buffer, which gets the properties `buffer`;
// elements named storage and fec find each other. A size with its highest bit set is that of a
// packet that the link loses. With rtx=MS what the jitter buffer asks for comes again after so
// long, unless its size has the next bit set; standard error tells how many packets did or did not
// come again.
#include <fcntl.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/check/gsttestclock.h>
#include <gst/rtp/gstrtpbuffer.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr GstClockTime kTail = GST_SECOND;  // after the last packet
constexpr guint32 kMostBytes = 1 << 16;
constexpr guint32 kLost = 1u << 31, kLostAgain = 1u << 30;

struct Packet {
  GstBuffer* buffer;
  bool lost, lost_again;
};

// The sender's store for retransmission.
struct Store {
  std::mutex mutex;
  GstClock* clock;
  GstClockTime round_trip = GST_CLOCK_TIME_NONE;  // or none: nothing is sent again
  std::map<guint, Packet> sent;                   // by sequence number
  std::multimap<GstClockTime, GstBuffer*> under_way;
  guint requests = 0;
};

struct Link {
  GstElement* pipeline;
  GstAppSrc* source;
  GstTestClock* clock;
  Store* store;
};

struct Options {
  std::string latency = "60", before, buffer, behind, decoder;
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
    if (seen == 0)
      usleep(20);  // a sleeper is woken sooner on a loaded machine than one that yields
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

GstPadProbeReturn on_request(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* store = static_cast<Store*>(data);
  const GstStructure* request = gst_event_get_structure(GST_PAD_PROBE_INFO_EVENT(info));
  guint number;
  if (!request || !gst_structure_has_name(request, "GstRTPRetransmissionRequest") ||
      !gst_structure_get_uint(request, "seqnum", &number)) {
    return GST_PAD_PROBE_OK;
  }
  const std::lock_guard lock(store->mutex);
  const auto packet = store->sent.find(number);
  if (packet == store->sent.end()) return GST_PAD_PROBE_DROP;
  store->requests++;
  if (packet->second.lost_again) return GST_PAD_PROBE_DROP;
  const GstClockTime due = gst_clock_get_time(store->clock) + store->round_trip;
  GstBuffer* again = gst_buffer_copy(packet->second.buffer);
  GST_BUFFER_PTS(again) = GST_BUFFER_DTS(again) = due;
  GST_BUFFER_FLAG_SET(again, GST_RTP_BUFFER_FLAG_RETRANSMISSION);
  store->under_way.emplace(due, again);
  return GST_PAD_PROBE_DROP;
}

void watch(const Link& link) {
  link.store->clock = GST_CLOCK(link.clock);
  GstPad* pad = gst_element_get_static_pad(GST_ELEMENT(link.source), "src");
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, on_request, link.store, nullptr);
  gst_object_unref(pad);
  GstElement* storage = gst_bin_get_by_name(GST_BIN(link.pipeline), "storage");
  GstElement* fec = gst_bin_get_by_name(GST_BIN(link.pipeline), "fec");
  if (!storage || !fec) return;
  GObject* internal = nullptr;
  g_object_get(storage, "internal-storage", &internal, nullptr);
  g_object_set(fec, "storage", internal, nullptr);
  g_object_unref(internal);
  gst_object_unref(storage);
  gst_object_unref(fec);
}

Link make(const Options& options, Store* store) {
  const std::string launch =
      "appsrc name=in is-live=true format=time caps=\"application/x-rtp,media=audio,"
      "clock-rate=8000,encoding-name=G729,payload=18\" ! " +
      options.before + " rtpjitterbuffer do-lost=true latency=" + options.latency + " " +
      options.buffer + " ! " + options.behind + " rtpg729depay ! kelg729fdec " + options.decoder +
      " ! appsink name=out sync=false async=false";
  GError* error = nullptr;
  Link link{gst_parse_launch(launch.c_str(), &error), nullptr, GST_TEST_CLOCK(gst_test_clock_new()),
            store};
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
  watch(link);
  gst_pipeline_use_clock(GST_PIPELINE(link.pipeline), GST_CLOCK(link.clock));
  gst_element_set_state(link.pipeline, GST_STATE_PLAYING);
  gst_element_get_state(link.pipeline, nullptr, nullptr, GST_CLOCK_TIME_NONE);
  return link;
}

Packet read_packet() {
  guint64 arrival;
  guint32 size;
  if (std::fread(&arrival, sizeof(arrival), 1, stdin) != 1) return {};
  if (std::fread(&size, sizeof(size), 1, stdin) != 1) return {};
  const bool lost = size & kLost, lost_again = size & kLostAgain;
  size &= ~(kLost | kLostAgain);
  if (size > kMostBytes) return {};
  GstBuffer* packet = gst_buffer_new_allocate(nullptr, size, nullptr);
  GstMapInfo map;
  gst_buffer_map(packet, &map, GST_MAP_WRITE);
  const bool whole = std::fread(map.data, 1, size, stdin) == size;
  gst_buffer_unmap(packet, &map);
  GST_BUFFER_PTS(packet) = GST_BUFFER_DTS(packet) = arrival;
  if (!whole) gst_clear_buffer(&packet);
  return {packet, lost, lost_again};
}

GstBuffer* due_again(Store* store, GstClockTime now) {
  const std::lock_guard lock(store->mutex);
  const auto first = store->under_way.begin();
  if (first == store->under_way.end() || first->first > now) return nullptr;
  GstBuffer* again = first->second;
  store->under_way.erase(first);
  return again;
}

// Lets time pass, and packets that were asked for come again in it.
void pass(const Link& link, GstClockTime until) {
  constexpr GstClockTime kStep = 10 * GST_MSECOND;
  GstClockTime now = gst_clock_get_time(GST_CLOCK(link.clock));
  while (GST_CLOCK_TIME_IS_VALID(link.store->round_trip) && now + kStep < until) {
    turn(link, now += kStep);
    while (GstBuffer* again = due_again(link.store, now)) {
      gst_app_src_push_buffer(link.source, again);
      settle();
    }
  }
  turn(link, until);
}

void keep(Store* store, const Packet& packet) {
  if (!GST_CLOCK_TIME_IS_VALID(store->round_trip)) return;
  guint8 number[2] = {};
  gst_buffer_extract(packet.buffer, 2, number, sizeof(number));
  const std::lock_guard lock(store->mutex);
  store->sent[GST_READ_UINT16_BE(number)] = {gst_buffer_ref(packet.buffer), false,
                                             packet.lost_again};
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  Options options;
  Store store;
  for (int i = 1; i < argc; i++) {
    const std::string word = argv[i];
    const auto takes = [&word](const char* name, std::string& value, const char* end = "") {
      if (!word.starts_with(name)) return false;
      value = word.substr(std::strlen(name)) + end;
      return true;
    };
    std::string round_trip;
    if (takes("rtx=", round_trip)) {
      store.round_trip = static_cast<GstClockTime>(std::stoi(round_trip)) * GST_MSECOND;
    } else if (!takes("latency=", options.latency) && !takes("before=", options.before, " ! ") &&
               !takes("buffer=", options.buffer) && !takes("behind=", options.behind, " ! ")) {
      options.decoder += word + " ";
    }
  }
  const Link link = make(options, &store);
  GstClockTime last = 0;
  for (Packet packet = read_packet(); packet.buffer; packet = read_packet()) {
    last = GST_BUFFER_PTS(packet.buffer);
    pass(link, last);
    keep(&store, packet);
    if (packet.lost) {
      gst_buffer_unref(packet.buffer);
    } else {
      gst_app_src_push_buffer(link.source, packet.buffer);
    }
  }
  pass(link, last + kTail);
  gst_element_set_state(link.pipeline, GST_STATE_NULL);
  gst_object_unref(link.source);
  gst_object_unref(link.pipeline);
  gst_object_unref(link.clock);
  for (const auto& [number, packet] : store.sent) gst_buffer_unref(packet.buffer);
  if (GST_CLOCK_TIME_IS_VALID(store.round_trip)) std::fprintf(stderr, "%u\n", store.requests);
}
