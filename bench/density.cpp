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
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench/calls.h"

namespace {

using namespace bench;

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

Lateness lateness;

// Calls are far shorter than a turn of the sequence numbers, which start at 0: they count buffers.
GstPadProbeReturn on_packet(GstPad*, GstPadProbeInfo* info, gpointer data) {
  guint8 header[4] = {};
  gst_buffer_extract(GST_PAD_PROBE_INFO_BUFFER(info), 0, header, sizeof header);
  static_cast<Call*>(data)->sequence = static_cast<guint16>(header[2] << 8 | header[3]);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn on_arrival(GstPad*, GstPadProbeInfo*, gpointer data) {
  const auto* call = static_cast<const Call*>(data);
  if (shared.measuring)
    lateness.add(now_ns() - (shared.epoch + call->phase + call->sequence * kTick));
  return GST_PAD_PROBE_OK;
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
        "udpsrc name=in address=127.0.0.1 port=0 reuse=false caps=" +
        packets + " ! ";
  line += "rtpg729depay name=depay ! ";
  if (options.codec) line += "kelg729fdec ! ";
  return line + "fakesink name=sink sync=false async=false";
}

void start(Call* call, const Options& options) {
  prepare(call, launch_line(options));
  probe(call, "depay", "sink", on_packet);
  probe(call, "sink", "sink", on_arrival);
  play(call, options.udp);
}

// The material, coded beforehand.
void encode_material() {
  const std::vector<guint8> pcm = std::move(shared.material);
  const gsize frames = pcm.size() / kPcmBytes * kFramesPerBuffer;
  shared.buffer_bytes = kCodedBytes;
  shared.material.resize(frames * G729_SPEECH_BYTES);
  G729EncoderState* encoder = g729_encoder_create(0);
  for (gsize i = 0; i < frames; ++i) {
    gint16 samples[G729_FRAME_SAMPLES];
    std::memcpy(samples, pcm.data() + i * sizeof samples, sizeof samples);
    guint32 size = 0;
    g729_encoder_encode_frame(encoder, samples, shared.material.data() + i * G729_SPEECH_BYTES,
                              &size);
  }
  g729_encoder_destroy(encoder);
}

void use_cores(int count) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int i = 0; i < count; ++i) CPU_SET(static_cast<unsigned>(i), &set);
  if (sched_setaffinity(0, sizeof set, &set) != 0) fail("cannot run on that many cores");
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
  init_calls();
  load_material();
  if (!options.codec) encode_material();

  std::vector<Call> calls(static_cast<size_t>(options.channels));
  spread(&calls);
  // The first call loads what all share; the others show what a call takes.
  start(&calls[0], options);
  const gint64 base = resident_bytes();
  for (size_t i = 1; i < calls.size(); ++i) start(&calls[i], options);

  const Measured m = measure(options.seconds);
  const std::string error = first_error(calls);
  if (!error.empty()) fail(error);

  std::printf(
      "{\"channels\": %d, \"cores\": %d, \"codec\": %s, \"udp\": %s, \"seconds\": %d, "
      "\"cores_used\": %.4f, \"sent\": %llu, \"arrived\": %llu, "
      "\"late_ms\": {\"median\": %.2f, \"p99\": %.2f, \"p999\": %.2f, \"max\": %.2f}, "
      "\"bytes_per_channel\": %lld, \"threads\": %d}\n",
      options.channels, options.cores, options.codec ? "true" : "false",
      options.udp ? "true" : "false", options.seconds, m.cores,
      static_cast<unsigned long long>(shared.sent),
      static_cast<unsigned long long>(lateness.total()), lateness.quantile(0.5),
      lateness.quantile(0.99), lateness.quantile(0.999), lateness.quantile(1.0),
      static_cast<long long>((m.bytes - base) / std::max(1, options.channels - 1)), m.threads);
  // Thousands of pipelines that have fallen behind would take minutes to stop.
  std::fflush(stdout);
  std::_Exit(0);
}
