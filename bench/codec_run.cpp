// codec-run: the codec alone over speech, for profilers and for checks of how its cost grows.
//
//   codec-run encode|decode [--target NAME] [--rate 8k|6k4|11k8] [--complexity 0..3]
//             [--annexb] [--frames N] [--signal speech|zeros|noise] [--types]
//
// Codes N frames, repeating the signal as often as it takes, and prints one line of JSON: CPU
// seconds, nanoseconds per frame, the growth of memory meanwhile; with --types also the cost of
// every type of frame by itself. Ten seconds of speech go before zeros and noise, unmeasured, for
// filters to decay from.
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bench/speech.h"
#include "codec/dispatch.h"
#include "tests/support/signals.h"

namespace {

struct Options {
  bool encode = true;
  std::string target;  // empty: the best
  int32_t rate = G729_RATE_8K;
  int complexity = 0;  // of the encoder
  bool annexb = false;
  bool types = false;  // time every frame and tell types apart
  int64_t frames = 100000;
  std::string signal = "speech";
};

[[noreturn]] void usage(const std::string& problem) {
  std::fprintf(stderr, "codec-run: %s\n", problem.c_str());
  std::exit(2);
}

int32_t parse_rate(const std::string& name) {
  if (name == "6k4") return G729_RATE_6K4;
  if (name == "8k") return G729_RATE_8K;
  if (name == "11k8") return G729_RATE_11K8;
  usage("no such rate: " + name);
}

int parse_level(const std::string& name) {
  if (name.size() == 1 && name[0] >= '0' && name[0] <= '0' + G729_COMPLEXITY_MAX)
    return name[0] - '0';
  usage("no such level: " + name);
}

int64_t parse_count(const std::string& text) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1)
    usage("not a count: " + text);
  return value;
}

Options parse(int argc, char** argv) {
  Options options;
  if (argc < 2) usage("encode or decode?");
  const std::string direction = argv[1];
  if (direction != "encode" && direction != "decode") usage("encode or decode?");
  options.encode = direction == "encode";
  for (int i = 2; i < argc; ++i) {
    const std::string name = argv[i];
    const auto value = [&] {
      if (i + 1 == argc) usage(name + " needs a value");
      return std::string(argv[++i]);
    };
    if (name == "--annexb")
      options.annexb = true;
    else if (name == "--types")
      options.types = true;
    else if (name == "--target")
      options.target = value();
    else if (name == "--rate")
      options.rate = parse_rate(value());
    else if (name == "--complexity")
      options.complexity = parse_level(value());
    else if (name == "--frames")
      options.frames = parse_count(value());
    else if (name == "--signal")
      options.signal = value();
    else
      usage("no such option: " + name);
  }
  return options;
}

const g729::Target& choose_target(const std::string& name) {
  if (name.empty()) return *g729::best_target();
  for (auto target = g729::supported_targets(); *target; ++target)
    if (name == (*target)->name) return **target;
  usage("no such build, or not on this machine: " + name);
}

// A signal and what goes before it.
struct Material {
  bench::Speech lead;
  bench::Speech signal;
};

Material choose_signal(const std::string& name) {
  constexpr int kFrames = 3000, kLead = 1000;
  const bench::Speech speech = bench::load_speech(1);
  if (name == "speech") return {{}, speech};
  const bench::Speech lead = {"", {speech.samples.begin(), speech.samples.begin() + 80 * kLead}};
  if (name == "zeros") return {lead, {"zeros", signals::silence(kFrames)}};
  if (name == "noise") return {lead, {"faint noise", signals::noise(kFrames, 8)}};
  usage("no such signal: " + name);
}

double cpu_seconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

int64_t thread_ns() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * int64_t{1000000000} + t.tv_nsec;
}

int64_t resident_bytes() {
  std::ifstream statm("/proc/self/statm");
  int64_t size = 0, resident = 0;
  statm >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

struct Serial {
  uint16_t words[G729_SERIAL_WORDS];
};

using Stream = std::vector<Serial>;

// `count` frames of the signal.
Stream encode(const Options& options, G729EncoderState* encoder, const bench::Speech& signal,
              int64_t count) {
  Stream frames(static_cast<size_t>(count));
  for (int64_t i = 0; i < count; ++i)
    encoder->target->encode_serial(encoder, signal.frame(i), options.rate,
                                   frames[static_cast<size_t>(i)].words);
  return frames;
}

// Frames by what is sent of them: nothing, a descriptor, speech.
struct TypeCost {
  size_t handle_bytes = 0;  // of the handle that did it
  double seconds = 0;       // of all frames
  int64_t frames[3] = {};
  int64_t ns[3] = {};

  void add(int bits, int64_t cost) {
    const int type = bits == 0 ? 0 : bits == 8 * G729_SID_BYTES ? 1 : 2;
    ++frames[type];
    ns[type] += cost;
  }
  double mean(int type) const {
    return frames[type] ? static_cast<double>(ns[type]) / static_cast<double>(frames[type]) : 0;
  }
};

// What reading the clock adds to a measured time.
int64_t clock_cost() {
  constexpr int kReads = 10000;
  int64_t sum = 0;
  for (int i = 0; i < kReads; ++i) {
    const int64_t start = thread_ns();
    sum += thread_ns() - start;
  }
  return sum / kReads;
}

// Calls code(frame number) for all frames; code returns the bits that are sent.
template <typename Code>
TypeCost run(const Options& options, Code code) {
  TypeCost cost;
  if (!options.types) {
    const double start = cpu_seconds();
    for (int64_t i = 0; i < options.frames; ++i) code(i);
    cost.seconds = cpu_seconds() - start;
    return cost;
  }
  const double begin = cpu_seconds();
  const int64_t overhead = clock_cost();
  for (int64_t i = 0; i < options.frames; ++i) {
    const int64_t start = thread_ns();
    const int bits = code(i);
    cost.add(bits, thread_ns() - start - overhead);
  }
  cost.seconds = cpu_seconds() - begin;
  return cost;
}

TypeCost run_encoder(const Options& options, const g729::Target& target, const Material& material) {
  G729EncoderState* encoder = target.encoder_create(options.annexb);
  target.set_complexity(encoder, options.complexity);
  encode(options, encoder, material.lead, material.lead.frames());
  Serial serial;
  TypeCost cost = run(options, [&](int64_t i) {
    target.encode_serial(encoder, material.signal.frame(i), options.rate, serial.words);
    return serial.words[1];
  });
  cost.handle_bytes = malloc_usable_size(encoder);
  target.encoder_destroy(encoder);
  return cost;
}

TypeCost run_decoder(const Options& options, const g729::Target& target, const Stream& lead,
                     const Stream& frames) {
  G729DecoderState* decoder = target.decoder_create();
  int16_t samples[G729_FRAME_SAMPLES];
  for (const Serial& frame : lead) target.decode_serial(decoder, frame.words, samples);
  TypeCost cost = run(options, [&](int64_t i) {
    const Serial& frame = frames[static_cast<size_t>(i) % frames.size()];
    target.decode_serial(decoder, frame.words, samples);
    return frame.words[1];
  });
  cost.handle_bytes = malloc_usable_size(decoder);
  target.decoder_destroy(decoder);
  return cost;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  const g729::Target& target = choose_target(options.target);
  const Material material = choose_signal(options.signal);
  Stream lead, stream;
  if (!options.encode) {
    G729EncoderState* encoder = target.encoder_create(options.annexb);
    lead = encode(options, encoder, material.lead, material.lead.frames());
    stream = encode(options, encoder, material.signal,
                    std::min<int64_t>(options.frames, material.signal.frames()));
    target.encoder_destroy(encoder);
  }

  const int64_t memory = resident_bytes();
  const TypeCost cost = options.encode ? run_encoder(options, target, material)
                                       : run_decoder(options, target, lead, stream);
  const int64_t growth = resident_bytes() - memory;

  std::printf(
      "{\"target\": \"%s\", \"speech\": \"%s\", \"frames\": %lld, \"cpu_s\": %.6f, "
      "\"ns_per_frame\": %.1f, \"memory_growth\": %lld, \"handle_bytes\": %zu",
      target.name, material.signal.source.c_str(), static_cast<long long>(options.frames),
      cost.seconds, 1e9 * cost.seconds / static_cast<double>(options.frames),
      static_cast<long long>(growth), cost.handle_bytes);
  const char* const types[] = {"untransmitted", "descriptor", "speech"};
  if (options.types)
    for (int i = 0; i < 3; ++i)
      std::printf(", \"%s\": {\"frames\": %lld, \"ns\": %.1f}", types[i],
                  static_cast<long long>(cost.frames[i]), cost.mean(i));
  std::printf("}\n");
}
