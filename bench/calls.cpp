#include "bench/calls.h"

#include <errno.h>
#include <gst/base/gstpushsrc.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "bench/speech.h"

namespace bench {

Shared shared;

namespace {

constexpr gint64 kStartPoll = 250000000;               // ns between looks for the start
constexpr int kShortestTurn = 10, kLongestTurn = 200;  // buffers of speech, or of silence

// The material of a call's buffer.
const guint8* audio(Call* call, gint64 number) {
  if (call->pauses && number == call->turn_end) {
    call->silent = number > 0 && !call->silent;
    std::uniform_int_distribution<int> length(kShortestTurn, kLongestTurn);
    call->turn_end += length(call->random);
  }
  if (call->silent) return shared.silence.data();
  const gsize at = (call->first + static_cast<gsize>(number)) % shared.buffers();
  return shared.material.data() + at * shared.buffer_bytes;
}

// The live source of a call: one buffer when it is due, straight from the material.
struct SpeechSource {
  GstPushSrc parent;
  Call* call;
  GstClockTime first_base;
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
  Call* call = source->call;
  if (call->start == 0) call->start = shared.epoch + call->phase;
  if (call->start == kFromNow) call->start = now_ns() + kTick - call->next * kTick;
  // A pause moves the base time.
  const GstClockTime base_time = gst_element_get_base_time(GST_ELEMENT(base));
  if (source->first_base == 0) source->first_base = base_time;
  const gint64 number = call->next++;
  const gint64 due =
      call->start + number * kTick + static_cast<gint64>(base_time - source->first_base);
  sleep_until(due);
  call->due = due;
  auto* bytes = const_cast<guint8*>(audio(call, number));
  *buffer = gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, bytes, shared.buffer_bytes, 0,
                                        shared.buffer_bytes, nullptr, nullptr);
  // The pipeline's clock is the one that now_ns() reads.
  GST_BUFFER_PTS(*buffer) = static_cast<GstClockTime>(due) - base_time;
  GST_BUFFER_DURATION(*buffer) = kTick;
  if (shared.measuring) shared.sent.fetch_add(1, std::memory_order_relaxed);
  return GST_FLOW_OK;
}

void speech_source_class_init(SpeechSourceClass* klass) {
  auto* element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_add_static_pad_template(element_class, &source_template);
  gst_element_class_set_static_metadata(element_class, "Speech source", "Source/Audio",
                                        "Speech at the pace of a call", "bench");
  GST_PUSH_SRC_CLASS(klass)->create = speech_source_create;
}

void speech_source_init(SpeechSource* source) {
  gst_base_src_set_live(GST_BASE_SRC(source), TRUE);
  gst_base_src_set_format(GST_BASE_SRC(source), GST_FORMAT_TIME);
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

void allow_many_files() {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Only errors wait on the bus to be looked at: a minute's other messages take megabytes.
GstBusSyncReply keep_errors(GstBus*, GstMessage* message, gpointer) {
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) return GST_BUS_PASS;
  gst_message_unref(message);
  return GST_BUS_DROP;
}

}  // namespace

void Lateness::add(gint64 ns) {
  const gint64 step = ns < 0 ? 0 : ns / kStep;
  count[step < kSteps ? step : kSteps].fetch_add(1, std::memory_order_relaxed);
}

void Lateness::clear() {
  for (auto& c : count) c = 0;
}

guint64 Lateness::total() const {
  guint64 sum = 0;
  for (const auto& c : count) sum += c;
  return sum;
}

guint64 Lateness::later_than(gint64 ns) const {
  guint64 sum = 0;
  for (gint64 i = ns / kStep; i <= kSteps; ++i) sum += count[i];
  return sum;
}

double Lateness::quantile(double share) const {
  const double goal = share * static_cast<double>(total());
  double sum = 0;
  for (int i = 0; i <= kSteps; ++i) {
    sum += count[i];
    if (sum >= goal && sum > 0) return (i + 1) * kStep * 1e-6;
  }
  return 0;
}

void fail(const std::string& text) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, text.c_str());
  std::_Exit(1);
}

gint64 now_ns() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * kNsPerSecond + t.tv_nsec;
}

void sleep_until(gint64 ns) {
  const timespec t = {ns / kNsPerSecond, ns % kNsPerSecond};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr);
}

void init_calls() {
  allow_many_files();
  gst_init(nullptr, nullptr);
  gst_element_register(nullptr, "speechsource", GST_RANK_NONE, speech_source_get_type());
}

void load_material() {
  const Speech speech = load_speech(10);
  const gsize count = speech.samples.size() * sizeof(gint16) / kPcmBytes;
  const auto* bytes = reinterpret_cast<const guint8*>(speech.samples.data());
  shared.material.assign(bytes, bytes + count * kPcmBytes);
  std::mt19937 random(1);
  std::vector<gint16> noise(kPcmBytes / sizeof(gint16));
  for (gint16& sample : noise) sample = static_cast<gint16>(random() % 9) - 4;
  bytes = reinterpret_cast<const guint8*>(noise.data());
  shared.silence.assign(bytes, bytes + kPcmBytes);
}

void spread(std::vector<Call>* calls) {
  for (gsize i = 0; i < calls->size(); ++i) {
    (*calls)[i].phase = static_cast<gint64>(i) * kTick / std::ssize(*calls);
    (*calls)[i].first = i * 997;
    (*calls)[i].random.seed(static_cast<guint32>(i));
  }
}

void prepare(Call* call, const std::string& launch) {
  GError* error = nullptr;
  call->pipeline = gst_parse_launch(launch.c_str(), &error);
  if (error) fail(error->message);
  GstElement* source = gst_bin_get_by_name(GST_BIN(call->pipeline), "source");
  reinterpret_cast<SpeechSource*>(source)->call = call;
  gst_object_unref(source);
  GstBus* bus = gst_element_get_bus(call->pipeline);
  gst_bus_set_sync_handler(bus, keep_errors, nullptr, nullptr);
  gst_object_unref(bus);
}

void start_again(Call* call) {
  call->start = kFromNow;
}

void play(Call* call, bool udp) {
  if (udp) connect_loopback(call->pipeline);
  if (gst_element_set_state(call->pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
    fail("a pipeline does not start");
}

void probe(Call* call, const char* element_name, const char* pad_name, GstPadProbeCallback f,
           int kinds) {
  GstElement* element = gst_bin_get_by_name(GST_BIN(call->pipeline), element_name);
  GstPad* pad = gst_element_get_static_pad(element, pad_name);
  gst_pad_add_probe(pad, static_cast<GstPadProbeType>(kinds), f, call, nullptr);
  gst_object_unref(pad);
  gst_object_unref(element);
}

std::string first_error(const std::vector<Call>& calls) {
  for (const Call& call : calls) {
    GstBus* bus = gst_element_get_bus(call.pipeline);
    GstMessage* message = gst_bus_pop(bus);
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

int count_between(const std::string& text, int low, int high) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
    fail("not a number from " + std::to_string(low) + " to " + std::to_string(high) + ": " + text);
  return value;
}

}  // namespace bench
