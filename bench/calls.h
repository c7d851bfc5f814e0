// What the programs with many live calls in one process share: a source that sends at the pace of
// a call, the loopback, how late buffers are, and what the process takes.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <random>
#include <string>
#include <vector>

#include "codec/g729.h"

namespace bench {

constexpr gint64 kNsPerSecond = 1000000000;
constexpr gint64 kTick = 20000000;  // ns between the buffers of a call
constexpr gint64 kFromNow = -1;     // as a call's start
constexpr int kFramesPerBuffer = 2;
constexpr gsize kPcmBytes = kFramesPerBuffer * G729_FRAME_SAMPLES * sizeof(gint16);

// Lateness in steps of 10 us up to a second, over all calls.
struct Lateness {
  static constexpr gint64 kStep = 10000;
  static constexpr int kSteps = 100000;
  std::atomic<guint32> count[kSteps + 1] = {};

  void add(gint64 ns);
  void clear();
  guint64 total() const;
  guint64 later_than(gint64 ns) const;
  // Milliseconds that the given share of the buffers does not exceed.
  double quantile(double share) const;
};

struct Call {
  GstElement* pipeline = nullptr;
  gint64 phase = 0;  // of its buffers within the 20 ms
  gsize first = 0;   // where in the material it starts
  // A call with pauses talks and is silent by turns, of lengths drawn at random.
  bool pauses = false;
  bool silent = false;
  gint64 turn_end = 0;  // in buffers
  std::mt19937 random;
  gint64 start = 0;  // ns, when the first buffer was due, or would have been; 0 for the epoch
  gint64 next = 0;   // buffer
  gint64 due = 0;    // ns, when the last buffer had to be sent
  // For the program that receives.
  guint16 sequence = 0;
  std::atomic<gint64> received = 0;           // ns of audio of late
  gint64 heard = 0;                           // and before
  std::atomic<GThread*> receiving = nullptr;  // brought the last packet
  std::atomic<gint64> arrived = 0;            // ns, when it came
  std::atomic<gint64> calm = 0;               // ns, from when on the call is undisturbed
};

// What all calls share. Sources wait for `epoch`, the time of the first buffer.
struct Shared {
  std::atomic<gint64> epoch{0};
  std::atomic<bool> measuring{false};
  std::atomic<guint64> sent{0};
  std::vector<guint8> material;  // buffers of a call, one behind the other
  std::vector<guint8> silence;   // a buffer for the pauses
  gsize buffer_bytes = kPcmBytes;
  gsize buffers() const { return material.size() / buffer_bytes; }
};
extern Shared shared;

// A call whose pipeline is made anew goes on when that plays.
void start_again(Call* call);

// Prints the text behind the program's name and ends it.
[[noreturn]] void fail(const std::string& text);

gint64 now_ns();
void sleep_until(gint64 ns);

// Initializes GStreamer and registers the element `speechsource`; allows many files.
void init_calls();

// Recordings, every tenth, and faint noise for the pauses.
void load_material();

// Spreads the calls evenly over the 20 ms and over the material.
void spread(std::vector<Call>* calls);

// Starts a pipeline whose source is called `source`; one with UDP has elements `in` and `out`.
void prepare(Call* call, const std::string& launch);
void play(Call* call, bool udp);

void probe(Call* call, const char* element, const char* pad, GstPadProbeCallback f,
           int kinds = GST_PAD_PROBE_TYPE_BUFFER);

// First error on any call's bus, empty without.
std::string first_error(const std::vector<Call>& calls);

gint64 resident_bytes();
int threads();
double cpu_seconds();

int count_between(const std::string& text, int low, int high);

}  // namespace bench
