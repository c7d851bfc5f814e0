// soak: N live calls in one process for as long as wanted, with pauses and losses.
//
//   speech and silence -> kelg729fenc (Annex B) -> rtpg729pay -> loss -> queue
//     -> rtpjitterbuffer -> rtpg729depay -> kelg729fdec (plc)
//
// A call sends 20 ms every 20 ms; it talks and is silent by turns of 0.2 to 4 s. Meanwhile calls
// are paused for 50 to 300 ms, four at a time, and now and then one is taken out, its decoder
// first, and a new one put in its place. For half a second after that nothing of the call is
// measured.
//
// Four latenesses are taken: of a packet that is sent, against the time when its last sample was
// due (source, encoder, payloader); of a packet that the jitter buffer lets go, against its time
// (up to 60 ms behind a loss, and longer where a silence makes the jitter buffer expect the lost
// packet later than the one behind it); of the audio that the decoder makes when a packet comes,
// against its coming; and of the comfort noise of its thread, against the time at which it is due.
// All but the second count as late above 10 ms. Prints a line a minute, then one line of JSON.
//
// Fails when a pipeline reports an error, when a state change takes more than five seconds, when a
// call falls silent, when nothing is concealed or there is no comfort noise, and when the heap in
// use at the end is more than 1 % above that after the first minute. Resident memory is printed
// only: the stacks of a thousand threads deepen for an hour, as they go by rarer paths.
//
// The C library and GLib keep freed memory back, per thread and arena. With a thousand threads such
// caches fill for hours, and a leak would not stand out. So the program runs itself without the
// caches of the threads and with few arenas, and has the C library give free memory back before it
// looks. `--caches yes` leaves all as it is.
//
//   soak [--calls N] [--seconds S | --hours H] [--loss PERCENT] [--caches yes|no]
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bench/calls.h"

namespace {

using namespace bench;

constexpr int kMostCalls = 2000;
constexpr gint64 kLate = 10000000;  // ns
constexpr int kMinute = 60;
constexpr double kMostGrowth = 0.01;
constexpr gint64 kMostStateChange = 5 * kNsPerSecond;
constexpr gint64 kCalm = kNsPerSecond / 2;
constexpr int kPausedAtOnce = 4, kRoundsToRemoval = 5;
// After its timestamp: the latency of jitter buffer (60 ms) and encoder (15 ms) and, as the sink
// does not wait for the clock, a frame.
constexpr gint64 kNoiseDue = 85000000;  // ns
constexpr int kSettleSeconds = 2;       // after the start, not looked at
// Of a minute, in decoded audio. A silence whose first packet is lost leaves a hole.
constexpr double kLeastAudio = 0.25;

struct Options {
  int calls = 200;
  int seconds = 600;
  int loss = 5;
  bool caches = false;
};

// Of the present minute and of all.
struct Latenesses {
  Lateness sent, held, audio, noise;

  guint64 late() const {
    return sent.later_than(kLate) + audio.later_than(kLate) + noise.later_than(kLate);
  }
  void clear() {
    for (Lateness* lateness : {&sent, &held, &audio, &noise}) lateness->clear();
  }
};
Latenesses minute, total;

// What the program has done to calls, and the counters of those that it took out.
struct Disturbances {
  int pauses = 0, removals = 0;
  gint64 slowest = 0;  // state change, ns
  gint64 away = 0;     // ns of calls' time that was paused
  std::map<std::string, guint64> gone;
};
Disturbances disturbances;

void add(const Call* call, Lateness Latenesses::*kind, gint64 ns) {
  if (!shared.measuring || now_ns() < call->calm) return;
  (minute.*kind).add(ns);
  (total.*kind).add(ns);
}

// How much later than its timestamp a buffer is.
gint64 later(const Call* call, const GstBuffer* buffer) {
  const auto base = static_cast<gint64>(gst_element_get_base_time(call->pipeline));
  return now_ns() - base - static_cast<gint64>(GST_BUFFER_PTS(buffer));
}

GstPadProbeReturn on_sent(GstPad*, GstPadProbeInfo*, gpointer data) {
  auto* call = static_cast<Call*>(data);
  add(call, &Latenesses::sent, now_ns() - call->due);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn on_input(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* call = static_cast<Call*>(data);
  call->arrived = now_ns();
  call->receiving = g_thread_self();
  if (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) {
    add(call, &Latenesses::held, later(call, GST_PAD_PROBE_INFO_BUFFER(info)));
  }
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn on_audio(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* call = static_cast<Call*>(data);
  const GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  if (shared.measuring) call->received += static_cast<gint64>(GST_BUFFER_DURATION(buffer));
  if (call->receiving == g_thread_self())
    add(call, &Latenesses::audio, now_ns() - call->arrived);
  else
    add(call, &Latenesses::noise,
        std::min(later(call, buffer) - kNoiseDue, now_ns() - call->arrived));
  return GST_PAD_PROBE_OK;
}

std::string launch_line(const Options& options) {
  return "speechsource name=source ! "
         "audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1 ! "
         "kelg729fenc name=enc annexb=true frames=1 ! "
         "rtpg729pay min-ptime=20000000 perfect-rtptime=false ! "
         "identity drop-probability=" +
         std::to_string(options.loss * 0.01) +
         " ! queue name=link ! rtpjitterbuffer latency=60 do-lost=true ! rtpg729depay ! "
         "kelg729fdec name=dec plc=true ! "
         "fakesink name=sink sync=false async=false";
}

constexpr const char* kCounters[] = {"frames",    "sids",          "invalid-sizes",
                                     "concealed", "comfort-noise", "late-wakeups"};

// A counter of a call's decoder.
guint64 counted(const Call& call, const char* counter) {
  GstElement* element = gst_bin_get_by_name(GST_BIN(call.pipeline), "dec");
  GstStructure* stats = nullptr;
  g_object_get(element, "stats", &stats, nullptr);
  guint64 value = 0;
  if (!gst_structure_get_uint64(stats, counter, &value)) fail("no such counter");
  gst_structure_free(stats);
  gst_object_unref(element);
  return value;
}

// Over all calls, with those that are gone.
guint64 counted(const std::vector<Call>& calls, const char* counter) {
  guint64 sum = disturbances.gone[counter];
  for (const Call& call : calls) sum += counted(call, counter);
  return sum;
}

void begin(Call* call, const Options& options) {
  prepare(call, launch_line(options));
  probe(call, "link", "sink", on_sent);
  probe(call, "dec", "sink", on_input,
        GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM);
  probe(call, "sink", "sink", on_audio);
  play(call, false);
}

void set_state(GstElement* element, GstState state) {
  const gint64 start = now_ns();
  if (gst_element_set_state(element, state) == GST_STATE_CHANGE_FAILURE) fail("no state change");
  const gint64 took = now_ns() - start;
  disturbances.slowest = std::max(disturbances.slowest, took);
  if (took > kMostStateChange) fail("a state change hangs");
}

void remove(Call* call) {
  for (const char* counter : kCounters) disturbances.gone[counter] += counted(*call, counter);
  GstElement* decoder = gst_bin_get_by_name(GST_BIN(call->pipeline), "dec");
  set_state(decoder, GST_STATE_NULL);
  gst_object_unref(decoder);
  set_state(call->pipeline, GST_STATE_NULL);
  gst_object_unref(call->pipeline);
}

// One round: a few calls pause, or one is replaced.
void disturb(std::vector<Call>& calls, const Options& options, std::mt19937& random, int round) {
  const auto any = [&]() -> Call* { return &calls[random() % calls.size()]; };
  if (round % kRoundsToRemoval == 0) {
    Call* call = any();
    call->calm = G_MAXINT64;
    remove(call);
    start_again(call);
    begin(call, options);
    call->calm = now_ns() + kCalm;
    disturbances.removals++;
    return;
  }
  std::set<Call*> paused;
  for (int i = 0; i < kPausedAtOnce; i++) paused.insert(any());
  for (Call* call : paused) {
    call->calm = G_MAXINT64;
    set_state(call->pipeline, GST_STATE_PAUSED);
  }
  const gint64 start = now_ns();
  sleep_until(start + (50 + random() % 250) * 1000000);
  for (Call* call : paused) {
    set_state(call->pipeline, GST_STATE_PLAYING);
    call->calm = now_ns() + kCalm;
    disturbances.away += now_ns() - start;
  }
  disturbances.pauses += static_cast<int>(paused.size());
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i], value = argv[i + 1];
    if (name == "--calls")
      options.calls = count_between(value, 1, kMostCalls);
    else if (name == "--seconds")
      options.seconds = count_between(value, 1, 1000000);
    else if (name == "--hours")
      options.seconds = 3600 * count_between(value, 1, 1000);
    else if (name == "--loss")
      options.loss = count_between(value, 0, 100);
    else if (name == "--caches" && (value == "yes" || value == "no"))
      options.caches = value == "yes";
    else
      fail("no such option: " + name + " " + value);
  }
  if (argc % 2 == 0) fail("an option without a value");
  return options;
}

void run_without_caches(char** argv) {
  if (std::getenv("GLIBC_TUNABLES")) return;
  // One arena alone would make the threads wait for each other.
  setenv("GLIBC_TUNABLES",
         "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=4:glibc.pthread.stack_cache_size=0",
         1);
  setenv("G_SLICE", "always-malloc", 1);
  execv("/proc/self/exe", argv);
}

struct Memory {
  gint64 resident = 0, heap = 0;  // bytes; what is allocated of the heap
};

Memory memory(const Options& options) {
  if (!options.caches) malloc_trim(0);
  const struct mallinfo2 info = mallinfo2();
  return {resident_bytes(), static_cast<gint64>(info.uordblks + info.hblkhd)};
}

// Touches the memory that only looking needs, so that none of it appears after the first minute.
void rehearse(const std::vector<Call>& calls, const Options& options) {
  minute.clear();
  total.clear();
  counted(calls, "late-wakeups");
  memory(options);
}

// Waits for the end and says what happens. Returns the memory after the first minute, nothing in a
// run that is too short for it.
Memory watch(std::vector<Call>& calls, const Options& options) {
  const int step = std::min(kMinute, options.seconds);
  const gint64 start = now_ns();
  Memory first;
  std::mt19937 random(1);
  int round = 0;
  std::printf(
      "seconds resident     heap KiB   sent, 99 %%, max ms   audio, 99 %%, max ms  late "
      "wake-ups\n");
  for (int at = step; at <= options.seconds; at += step) {
    while (now_ns() < start + at * kNsPerSecond) disturb(calls, options, random, ++round);
    const Memory now = memory(options);
    if (at == kMinute) first = now;
    std::printf("%7d %8lld %8lld %10.2f %6.2f %7.2f %7.2f %6.2f %7.2f %5llu %8llu\n", at,
                static_cast<long long>(now.resident / 1024),
                static_cast<long long>(now.heap / 1024), minute.sent.quantile(0.5),
                minute.sent.quantile(0.99), minute.sent.quantile(1), minute.audio.quantile(0.5),
                minute.audio.quantile(0.99), minute.audio.quantile(1),
                static_cast<unsigned long long>(minute.late()),
                static_cast<unsigned long long>(counted(calls, "late-wakeups")));
    std::fflush(stdout);
    minute.clear();
    const std::string error = first_error(calls);
    if (!error.empty()) fail(error);
    for (Call& call : calls) {
      const gint64 audio = call.received.exchange(0);
      call.heard += audio;
      if (static_cast<double>(audio) < kLeastAudio * step * kNsPerSecond) fail("a call is silent");
    }
  }
  return first;
}

// Percent of the calls' time, but for pauses, without audio.
double missing(const std::vector<Call>& calls, double seconds) {
  double heard = static_cast<double>(disturbances.away) / kNsPerSecond;
  for (const Call& call : calls) heard += static_cast<double>(call.heard) / kNsPerSecond;
  return 100 - 100 * heard / (seconds * static_cast<double>(calls.size()));
}

void print_lateness(const char* name, const Lateness& lateness) {
  std::printf(", \"%s_ms\": {\"median\": %.2f, \"p99\": %.2f, \"max\": %.2f, \"over_20\": %llu}",
              name, lateness.quantile(0.5), lateness.quantile(0.99), lateness.quantile(1),
              static_cast<unsigned long long>(lateness.later_than(2 * kLate)));
}

void stop(const std::vector<Call>& calls) {
  for (const Call& call : calls) {
    gst_element_set_state(call.pipeline, GST_STATE_NULL);
    gst_object_unref(call.pipeline);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  if (!options.caches) run_without_caches(argv);
  init_calls();
  load_material();
  std::vector<Call> calls(static_cast<size_t>(options.calls));
  spread(&calls);
  for (Call& call : calls) {
    call.pauses = true;
    begin(&call, options);
  }
  shared.epoch = now_ns() + kNsPerSecond;
  sleep_until(shared.epoch + kSettleSeconds * kNsPerSecond);
  rehearse(calls, options);
  const double cpu = cpu_seconds();
  shared.measuring = true;
  const gint64 start = now_ns();
  const Memory first = watch(calls, options);
  shared.measuring = false;
  const double seconds = static_cast<double>(now_ns() - start) / kNsPerSecond;
  const Memory last = memory(options);
  const double growth =
      first.heap > 0 ? static_cast<double>(last.heap) / static_cast<double>(first.heap) - 1 : 0;

  std::printf(
      "{\"calls\": %d, \"seconds\": %.1f, \"loss\": %d, \"cores_used\": %.3f, \"threads\": %d, "
      "\"first_minute_kib\": %lld, \"end_kib\": %lld, "
      "\"first_minute_heap_kib\": %lld, \"end_heap_kib\": %lld, \"heap_growth_percent\": %.2f, "
      "\"buffers\": %llu, \"late\": %llu",
      options.calls, seconds, options.loss, (cpu_seconds() - cpu) / seconds, threads(),
      static_cast<long long>(first.resident / 1024), static_cast<long long>(last.resident / 1024),
      static_cast<long long>(first.heap / 1024), static_cast<long long>(last.heap / 1024),
      100 * growth,
      static_cast<unsigned long long>(total.sent.total() + total.audio.total() +
                                      total.noise.total()),
      static_cast<unsigned long long>(total.late()));
  print_lateness("sent", total.sent);
  print_lateness("held", total.held);
  print_lateness("audio", total.audio);
  print_lateness("noise", total.noise);
  std::printf(", \"pauses\": %d, \"removals\": %d, \"slowest_state_change_ms\": %.1f",
              disturbances.pauses, disturbances.removals,
              static_cast<double>(disturbances.slowest) * 1e-6);
  for (const char* counter : kCounters) {
    std::printf(", \"%s\": %llu", counter,
                static_cast<unsigned long long>(counted(calls, counter)));
  }
  std::printf(", \"missing_percent\": %.2f}\n", missing(calls, seconds));
  std::fflush(stdout);

  if (counted(calls, "invalid-sizes") > 0) fail("buffers of invalid sizes");
  if (counted(calls, "comfort-noise") == 0) fail("no comfort noise");
  if (options.loss > 0 && counted(calls, "concealed") == 0) fail("nothing concealed");
  stop(calls);
  gst_deinit();
  if (growth > kMostGrowth) fail("the heap grows");
}
