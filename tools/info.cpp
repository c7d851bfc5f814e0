#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "codec/g729.h"
#include "tools/batch.h"
#include "tools/capture/capture.h"
#include "tools/capture/datagram.h"
#include "tools/capture/rtp_stream.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/json.h"
#include "tools/parity.h"
#include "tools/stream_io.h"

namespace tool {
namespace {

struct FrameKind {
  int bits;
  const char* name;
  const char* key;
};
constexpr std::array<FrameKind, 5> kKinds{{{64, "speech 6.4 kbit/s", "speech_6.4"},
                                           {80, "speech 8 kbit/s", "speech_8"},
                                           {118, "speech 11.8 kbit/s", "speech_11.8"},
                                           {16, "silence descriptor", "silence_descriptor"},
                                           {0, "untransmitted", "untransmitted"}}};

struct Counts {
  std::array<uint64_t, kKinds.size()> of_kind{};
  uint64_t backward = 0;  // of the 11.8 kbit/s frames
  uint64_t erased = 0;
  uint64_t bits = 0;
  uint64_t frames = 0;
  Parity parity;

  double seconds() const { return 0.01 * static_cast<double>(frames); }
  double rate() const { return static_cast<double>(bits) / seconds() / 1000.0; }
};

void count(const Frame& frame, Counts* counts) {
  ++counts->frames;
  counts->bits += frame.words[1];
  counts->parity.look(frame);
  if (frame.erased()) {
    ++counts->erased;
    return;
  }
  if (frame.bits() == 118 && frame.words[2] == G729_SERIAL_ONE) ++counts->backward;
  for (size_t i = 0; i < kKinds.size(); ++i) {
    if (frame.bits() == kKinds[i].bits) ++counts->of_kind[i];
  }
}

template <class Reader>
Counts count_all(Reader* reader) {
  Counts counts;
  Frame frame;
  while (reader->next(&frame)) count(frame, &counts);
  return counts;
}

void print_row(const char* name, uint64_t number, uint64_t frames) {
  if (number == 0) return;
  std::printf("  %-20s %9llu  %5.1f %%\n", name, static_cast<unsigned long long>(number),
              100.0 * static_cast<double>(number) / static_cast<double>(frames));
}

void print(const std::string& title, const Counts& counts) {
  std::printf("%s, %llu frames, %.2f s, mean %.2f kbit/s\n", title.c_str(),
              static_cast<unsigned long long>(counts.frames), counts.seconds(), counts.rate());
  for (size_t i = 0; i < kKinds.size(); ++i) {
    print_row(kKinds[i].name, counts.of_kind[i], counts.frames);
    if (kKinds[i].bits == 118) print_row("  of it backward", counts.backward, counts.frames);
  }
  print_row("erased", counts.erased, counts.frames);
}

void add(const Counts& counts, Json* json) {
  (*json)["frames"] = counts.frames;
  (*json)["seconds"] = rounded(counts.seconds());
  (*json)["kbit_per_second"] = rounded(counts.rate());
  for (size_t i = 0; i < kKinds.size(); ++i) (*json)[kKinds[i].key] = counts.of_kind[i];
  (*json)["backward"] = counts.backward;
  (*json)["erased"] = counts.erased;
  (*json)["parity_checked"] = counts.parity.checked();
  (*json)["parity_errors"] = counts.parity.wrong();
  (*json)["foreign"] = counts.parity.foreign();
}

std::string hexadecimal(uint32_t number) {
  char text[sizeof "0x00000000"];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(number));
  return text;
}

void print(const RtpStream::Figures& f) {
  std::printf("  packets %llu, lost %llu (%.1f %%), duplicate %llu, reordered %llu, cut %llu\n",
              static_cast<unsigned long long>(f.packets), static_cast<unsigned long long>(f.lost),
              100.0 * static_cast<double>(f.lost) / static_cast<double>(f.packets + f.lost),
              static_cast<unsigned long long>(f.duplicates),
              static_cast<unsigned long long>(f.reordered), static_cast<unsigned long long>(f.cut));
  if (f.recovered > 0) {
    std::printf("  %llu of the lost packets came with later ones (RFC 2198)\n",
                static_cast<unsigned long long>(f.recovered));
  }
  std::printf("  jitter %.2f ms in the mean, %.2f ms at most\n", f.jitter, f.worst_jitter);
}

Json to_json(const RtpStream::Figures& figures) {
  return {{"packets", figures.packets},
          {"lost", figures.lost},
          {"recovered", figures.recovered},
          {"duplicates", figures.duplicates},
          {"reordered", figures.reordered},
          {"cut", figures.cut},
          {"jitter_ms", rounded(figures.jitter)},
          {"greatest_jitter_ms", rounded(figures.worst_jitter)}};
}

class Report {
 public:
  explicit Report(const InfoOptions& options) : options_(options) {}

  Exit show(const std::string& path) {
    const StreamFormat format = stream_format(path, options_.format);
    const InputFile input(path);
    return format == StreamFormat::capture ? show_capture(input) : show_stream(input, format);
  }

  void finish() const {
    if (options_.json) print_json(all_);
  }

 private:
  Exit show_stream(const InputFile& input, StreamFormat format) {
    FrameReader reader(input, format);
    const Counts counts = count_all(&reader);
    if (counts.frames == 0) throw Failure(Exit::input, input.name() + ": has no whole frame");
    const bool packed = format == StreamFormat::packed;
    if (options_.json) {
      Json json{{"file", input.name()}, {"format", packed ? "g729" : "bit"}};
      add(counts, &json);
      json["dropped_bytes"] = reader.dropped_bytes();
      all_.push_back(json);
    } else {
      print(input.name() + (packed ? ": packed stream" : ": ITU serial stream"), counts);
    }
    if (counts.parity.foreign()) say(input.name() + ": " + counts.parity.remark());
    if (reader.dropped_bytes() == 0) return Exit::ok;
    say(input.name() + ": ends in the middle of a frame; the last " +
        std::to_string(reader.dropped_bytes()) + " bytes are not counted");
    return Exit::truncated;
  }

  Exit show_capture(const InputFile& input) {
    const Capture capture = read_capture(input, options_.capture);
    Json json{{"file", input.name()},           {"format", "pcap"},
              {"packets", capture.packets},     {"fragments", capture.fragments},
              {"whole", capture.fault.empty()}, {"streams", Json::array()}};
    if (!options_.json) {
      std::printf("%s: capture, %llu packets, %llu fragments skipped, %zu directions\n",
                  input.name().c_str(), static_cast<unsigned long long>(capture.packets),
                  static_cast<unsigned long long>(capture.fragments), capture.directions.size());
    }
    for (size_t d = 0; d < capture.directions.size(); ++d) {
      for (const auto& part : capture.directions[d].parts) {
        show_part(input.name(), capture, d, part, &json["streams"]);
      }
    }
    if (options_.json) all_.push_back(json);
    if (capture.fault.empty()) return Exit::ok;
    say(input.name() + ": ends early (" + capture.fault + "); counted what there is");
    return Exit::truncated;
  }

  void show_part(const std::string& file, const Capture& capture, size_t direction,
                 const Direction::Part& part, Json* list) const {
    const Flow& flow = capture.directions[direction].flow;
    const int64_t since = std::max(capture.begin, part.stream.begin()) - capture.begin;
    const double begin = static_cast<double>(since) / kSecond;
    Playout playout(part.stream, options_.capture.longest_pause);
    const Counts counts = count_all(&playout);
    const std::string ends = to_string(flow.from) + " to " + to_string(flow.to);
    const std::string name = "direction " + std::to_string(direction + 1);
    if (options_.json) {
      Json json{{"direction", direction + 1},
                {"from", to_string(flow.from)},
                {"to", to_string(flow.to)},
                {"ssrc", hexadecimal(part.ssrc)},
                {"begin_seconds", rounded(begin)}};
      json.update(to_json(part.stream.figures()));
      add(counts, &json);
      list->push_back(json);
    } else {
      std::printf("%s: %s, SSRC %s, begins at %.2f s\n", name.c_str(), ends.c_str(),
                  hexadecimal(part.ssrc).c_str(), begin);
      print(part.stream.figures());
      print("  played in time", counts);
    }
    if (counts.parity.foreign()) say(file + ": " + name + ": " + counts.parity.remark());
  }

  const InfoOptions& options_;
  Json all_ = Json::array();
};

}  // namespace

Exit run_info(const InfoOptions& options) {
  Report report(options);
  const Exit status =
      for_each(options.names.size(), 1, [&](size_t i) { return report.show(options.names[i]); });
  report.finish();
  return status;
}

}  // namespace tool
