// density: N calls in one process, each a live pipeline over the loopback, and how late they are.
//
//   speech -> kelg729fenc -> rtpg729pay -> UDP -> rtpg729depay -> kelg729fdec
//
// A call sends 20 ms of speech every 20 ms; the calls are spread evenly over the 20 ms. A buffer is
// late by the time from when its samples are due to when its decoded samples arrive. Prints one
// line of JSON. `--without-codec` sends speech coded beforehand and leaves it so, `--without-udp`
// hands packets over inside the pipeline: what such runs cost less is the codec's or UDP's.
//
//   density --channels N [--seconds S] [--cores K] [--without-codec] [--without-udp]
#include <gst/base/gstpushsrc.h>
#include <gst/gst.h>
#include <sched.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/speech.h"
#include "codec/g729.h"

namespace {

constexpr gint64 kNsPerSecond = 1000000000;
constexpr gint64 kTick = 20000000;        // ns between the buffers of a call
constexpr gint64 kStartPoll = 250000000;  // ns between looks for the start
constexpr int kFramesPerBuffer = 2;
constexpr gsize kPcmBytes = kFramesPerBuffer * G729_FRAME_SAMPLES * sizeof(gint16);
constexpr gsize kCodedBytes = kFramesPerBuffer * G729_SPEECH_BYTES;
constexpr int kMaxChannels = 5000;
constexpr int kMaxSeconds = 120;
constexpr int kSettleSeconds = 2;  // after the start, not measured

struct Options {
  int channels = 10;
  int seconds = 10;
  int cores = 1;
  bool codec = true;
  bool udp = true;
};

// Lateness in steps of 10 us up to a second, over all calls.
struct Lateness {
  static constexpr gint64 kStep = 10000;
  static constexpr int kSteps = 100000;
  std::atomic<guint32> count[kSteps + 1] = {};

  void add(gint64 ns) {
    const gint64 step = ns < 0 ? 0 : ns / kStep;
    count[step < kSteps ? step : kSteps].fetch_add(1, std::memory_order_relaxed);
  }
  guint64 total() const {
    guint64 sum = 0;
    for (const auto& c : count) sum += c;
    return sum;
  }
  // Milliseconds that the given share of the buffers does not exceed.
  double quantile(double share) const {
    const double goal = share * static_cast<double>(total());
    double sum = 0;
    for (int i = 0; i <= kSteps; ++i) {
      sum += count[i];
      if (sum >= goal && sum > 0) return (i + 1) * kStep * 1e-6;
    }
    return 0;
  }
};

// What all calls share. Sources wait for `epoch`, the time of the first buffer.
struct Shared {
  std::atomic<gint64> epoch{0};
  std::atomic<bool> measuring{false};
  std::atomic<guint64> sent{0};
  Lateness lateness;
  std::vector<guint8> material;  // buffers of a call, one behind the other
  gsize buffer_bytes = kPcmBytes;
  gsize buffers() const { return material.size() / buffer_bytes; }
};
Shared shared;

gint64 now_ns() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * kNsPerSecond + t.tv_nsec;
}

void sleep_until(gint64 ns) {
  const timespec t = {ns / kNsPerSecond, ns % kNsPerSecond};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr);
}

struct Channel {
  GstElement* pipeline = nullptr;
  gint64 phase = 0;      // of its buffers within the 20 ms
  gsize first = 0;       // where in the material it starts
  guint16 sequence = 0;  // RTP sequence number of the packet being received
};

// The live source of a call: one buffer when it is due, straight from the material.
struct SpeechSource {
  GstPushSrc parent;
  const Channel* channel;
  gint64 next;
};
struct SpeechSourceClass {
  GstPushSrcClass parent;
};
GType speech_source_get_type();
G_DEFINE_TYPE(SpeechSource, speech_source, GST_TYPE_PUSH_SRC)

GstStaticPadTemplate source_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

GstFlowReturn speech_source_create(GstPushSrc* base, GstBuffer** buffer) {
  auto* source = reinterpret_cast<SpeechSource*>(base);
  while (shared.epoch == 0) sleep_until(now_ns() + kStartPoll);
  const gint64 number = source->next++;
  sleep_until(shared.epoch + source->channel->phase + number * kTick);
  const gsize at = (source->channel->first + static_cast<gsize>(number)) % shared.buffers();
  *buffer = gst_buffer_new_wrapped_full(
      GST_MEMORY_FLAG_READONLY, shared.material.data() + at * shared.buffer_bytes,
      shared.buffer_bytes, 0, shared.buffer_bytes, nullptr, nullptr);
  GST_BUFFER_PTS(*buffer) = static_cast<GstClockTime>(number * kTick);
  GST_BUFFER_DURATION(*buffer) = kTick;
  if (shared.measuring) shared.sent.fetch_add(1, std::memory_order_relaxed);
  return GST_FLOW_OK;
}

void speech_source_class_init(SpeechSourceClass* klass) {
  auto* element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_add_static_pad_template(element_class, &source_template);
  gst_element_class_set_static_metadata(element_class, "Speech source", "Source/Audio",
                                        "Speech at the pace of a call", "density");
  GST_PUSH_SRC_CLASS(klass)->create = speech_source_create;
}

void speech_source_init(SpeechSource* source) {
  gst_base_src_set_live(GST_BASE_SRC(source), TRUE);
  gst_base_src_set_format(GST_BASE_SRC(source), GST_FORMAT_TIME);
}

// Calls are far shorter than a turn of the sequence numbers, which start at 0: they count buffers.
GstPadProbeReturn on_packet(GstPad*, GstPadProbeInfo* info, gpointer data) {
  guint8 header[4] = {};
  gst_buffer_extract(GST_PAD_PROBE_INFO_BUFFER(info), 0, header, sizeof header);
  static_cast<Channel*>(data)->sequence = static_cast<guint16>(header[2] << 8 | header[3]);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn on_arrival(GstPad*, GstPadProbeInfo*, gpointer data) {
  const auto* channel = static_cast<const Channel*>(data);
  if (shared.measuring)
    shared.lateness.add(now_ns() - (shared.epoch + channel->phase + channel->sequence * kTick));
  return GST_PAD_PROBE_OK;
}

[[noreturn]] void fail(const std::string& text) {
  std::fprintf(stderr, "density: %s\n", text.c_str());
  std::_Exit(1);
}

void probe(GstElement* pipeline, const char* name, const char* pad_name, GstPadProbeCallback f,
           Channel* channel) {
  GstElement* element = gst_bin_get_by_name(GST_BIN(pipeline), name);
  GstPad* pad = gst_element_get_static_pad(element, pad_name);
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, f, channel, nullptr);
  gst_object_unref(pad);
  gst_object_unref(element);
}

// The receiving socket opens first, on a port of the system's choice.
void connect_loopback(GstElement* pipeline) {
  GstElement* in = gst_bin_get_by_name(GST_BIN(pipeline), "in");
  GstElement* out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
  gint port = 0;
  gst_element_set_state(in, GST_STATE_READY);
  g_object_get(in, "port", &port, nullptr);
  if (port == 0) fail("no UDP port");
  g_object_set(out, "port", port, nullptr);
  gst_object_unref(in);
  gst_object_unref(out);
}

// A call's pipeline; without UDP sender and receiver share one thread.
std::string launch_line(const Options& options) {
  const std::string raw = "audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1";
  const std::string coded = "audio/G729,rate=8000,channels=1";
  const std::string packets =
      "\"application/x-rtp,media=audio,clock-rate=8000,encoding-name=G729,payload=18\"";
  std::string line = "speechsource name=source ! ";
  line += options.codec ? raw + " ! kelg729fenc frames=2 ! " : coded + " ! ";
  line += "rtpg729pay seqnum-offset=0 ! ";
  if (options.udp)
    line +=
        "udpsink name=out host=127.0.0.1 sync=false async=false "
        "udpsrc name=in address=127.0.0.1 port=0 caps=" +
        packets + " ! ";
  line += "rtpg729depay name=depay ! ";
  if (options.codec) line += "kelg729fdec ! ";
  return line + "fakesink name=sink sync=false async=false";
}

void start(Channel* channel, const Options& options) {
  const std::string launch = launch_line(options);
  GError* error = nullptr;
  channel->pipeline = gst_parse_launch(launch.c_str(), &error);
  if (error) fail(error->message);
  GstElement* source = gst_bin_get_by_name(GST_BIN(channel->pipeline), "source");
  reinterpret_cast<SpeechSource*>(source)->channel = channel;
  gst_object_unref(source);
  probe(channel->pipeline, "depay", "sink", on_packet, channel);
  probe(channel->pipeline, "sink", "sink", on_arrival, channel);
  if (options.udp) connect_loopback(channel->pipeline);
  if (gst_element_set_state(channel->pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
    fail("a pipeline does not start");
}

// First error on any call's bus, empty without.
std::string first_error(const std::vector<Channel>& channels) {
  for (const Channel& channel : channels) {
    GstBus* bus = gst_element_get_bus(channel.pipeline);
    GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    gst_object_unref(bus);
    if (!message) continue;
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    return error->message;
  }
  return {};
}

gint64 resident_bytes() {
  std::ifstream statm("/proc/self/statm");
  gint64 size = 0, resident = 0;
  statm >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

int threads() {
  std::ifstream status("/proc/self/status");
  std::string word;
  int count = 0;
  while (status >> word)
    if (word == "Threads:") status >> count;
  return count;
}

double cpu_seconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](timeval t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void load_material(bool codec) {
  bench::Speech speech = bench::load_speech(10);
  const gsize count = speech.samples.size() * sizeof(gint16) / kPcmBytes;
  const auto* bytes = reinterpret_cast<const guint8*>(speech.samples.data());
  if (codec) {
    shared.material.assign(bytes, bytes + count * kPcmBytes);
    return;
  }
  shared.buffer_bytes = kCodedBytes;
  shared.material.resize(count * kCodedBytes);
  G729EncoderState* encoder = g729_encoder_create(0);
  for (gsize i = 0; i < count * kFramesPerBuffer; ++i) {
    guint32 size = 0;
    g729_encoder_encode_frame(encoder, speech.frame(static_cast<gint64>(i)),
                              shared.material.data() + i * G729_SPEECH_BYTES, &size);
  }
  g729_encoder_destroy(encoder);
}

void use_cores(int count) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int i = 0; i < count; ++i) CPU_SET(static_cast<unsigned>(i), &set);
  if (sched_setaffinity(0, sizeof set, &set) != 0) fail("cannot run on that many cores");
}

void allow_many_files() {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int count_between(const std::string& text, int low, int high) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
    fail("not a number from " + std::to_string(low) + " to " + std::to_string(high) + ": " + text);
  return value;
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const std::string value = i + 1 < argc ? argv[i + 1] : "";
    if (name == "--without-codec" || name == "--without-udp") {
      (name == "--without-codec" ? options.codec : options.udp) = false;
      continue;
    }
    if (name == "--channels")
      options.channels = count_between(value, 1, kMaxChannels);
    else if (name == "--seconds")
      options.seconds = count_between(value, 1, kMaxSeconds);
    else if (name == "--cores")
      options.cores = count_between(value, 1, 1024);
    else
      fail("no such option: " + name);
    ++i;
  }
  return options;
}

struct Measured {
  double cores;  // CPU seconds a second
  gint64 bytes;
  int threads;
};

Measured measure(int seconds) {
  shared.epoch = now_ns() + kNsPerSecond;
  sleep_until(shared.epoch + kSettleSeconds * kNsPerSecond);
  const double cpu = cpu_seconds();
  const gint64 start = now_ns();
  shared.measuring = true;
  sleep_until(start + seconds * kNsPerSecond);
  shared.measuring = false;
  const double wall = static_cast<double>(now_ns() - start) / kNsPerSecond;
  return {(cpu_seconds() - cpu) / wall, resident_bytes(), threads()};
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  use_cores(options.cores);
  allow_many_files();
  gst_init(nullptr, nullptr);
  gst_element_register(nullptr, "speechsource", GST_RANK_NONE, speech_source_get_type());
  load_material(options.codec);

  std::vector<Channel> channels(static_cast<size_t>(options.channels));
  for (size_t i = 0; i < channels.size(); ++i) {
    channels[i].phase = static_cast<gint64>(i) * kTick / options.channels;
    channels[i].first = i * 997;
  }
  // The first call loads what all share; the others show what a call takes.
  start(&channels[0], options);
  const gint64 base = resident_bytes();
  for (size_t i = 1; i < channels.size(); ++i) start(&channels[i], options);

  const Measured m = measure(options.seconds);
  const std::string error = first_error(channels);
  if (!error.empty()) fail(error);

  std::printf(
      "{\"channels\": %d, \"cores\": %d, \"codec\": %s, \"udp\": %s, \"seconds\": %d, "
      "\"cores_used\": %.4f, \"sent\": %llu, \"arrived\": %llu, "
      "\"late_ms\": {\"median\": %.2f, \"p99\": %.2f, \"p999\": %.2f, \"max\": %.2f}, "
      "\"bytes_per_channel\": %lld, \"threads\": %d}\n",
      options.channels, options.cores, options.codec ? "true" : "false",
      options.udp ? "true" : "false", options.seconds, m.cores,
      static_cast<unsigned long long>(shared.sent),
      static_cast<unsigned long long>(shared.lateness.total()), shared.lateness.quantile(0.5),
      shared.lateness.quantile(0.99), shared.lateness.quantile(0.999),
      shared.lateness.quantile(1.0),
      static_cast<long long>((m.bytes - base) / std::max(1, options.channels - 1)), m.threads);
  // Thousands of pipelines that have fallen behind would take minutes to stop.
  std::fflush(stdout);
  std::_Exit(0);
}
