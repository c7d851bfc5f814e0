#include <array>
#include <cstdio>

#include "tools/commands.h"
#include "tools/stream_io.h"

namespace tool {
namespace {

struct FrameKind {
  int bits;
  const char* name;
};
constexpr std::array<FrameKind, 5> kKinds{{{64, "speech 6.4 kbit/s"},
                                           {80, "speech 8 kbit/s"},
                                           {118, "speech 11.8 kbit/s"},
                                           {16, "silence descriptor"},
                                           {0, "untransmitted"}}};

struct Counts {
  std::array<uint64_t, kKinds.size()> of_kind{};
  uint64_t backward = 0;  // of the 11.8 kbit/s frames
  uint64_t erased = 0;
  uint64_t bits = 0;
  uint64_t frames = 0;
};

void count(const Frame& frame, Counts* counts) {
  ++counts->frames;
  counts->bits += frame.words[1];
  if (frame.erased()) {
    ++counts->erased;
    return;
  }
  if (frame.bits() == 118 && frame.words[2] == G729_SERIAL_ONE) ++counts->backward;
  for (size_t i = 0; i < kKinds.size(); ++i) {
    if (frame.bits() == kKinds[i].bits) ++counts->of_kind[i];
  }
}

void print_row(const char* name, uint64_t number, uint64_t frames) {
  if (number == 0) return;
  std::printf("  %-20s %9llu  %5.1f %%\n", name, static_cast<unsigned long long>(number),
              100.0 * static_cast<double>(number) / static_cast<double>(frames));
}

void print(const std::string& name, StreamFormat format, const Counts& counts) {
  const double seconds = 0.01 * static_cast<double>(counts.frames);
  std::printf("%s: %s, %llu frames, %.2f s, mean %.2f kbit/s\n", name.c_str(),
              format == StreamFormat::packed ? "packed stream" : "ITU serial stream",
              static_cast<unsigned long long>(counts.frames), seconds,
              static_cast<double>(counts.bits) / seconds / 1000.0);
  for (size_t i = 0; i < kKinds.size(); ++i) {
    print_row(kKinds[i].name, counts.of_kind[i], counts.frames);
    if (kKinds[i].bits == 118) print_row("  of it backward", counts.backward, counts.frames);
  }
  print_row("erased", counts.erased, counts.frames);
}

Exit show(const std::string& path, const std::string& format_option) {
  const StreamFormat format = stream_format(path, format_option);
  const InputFile input(path);
  FrameReader reader(input, format);
  Counts counts;
  Frame frame;
  while (reader.next(&frame)) count(frame, &counts);
  if (counts.frames == 0) throw Failure(Exit::input, input.name() + ": has no whole frame");
  print(input.name(), format, counts);
  if (reader.dropped_bytes() == 0) return Exit::ok;
  say(input.name() + ": ends in the middle of a frame; the last " +
      std::to_string(reader.dropped_bytes()) + " bytes are not counted");
  return Exit::truncated;
}

}  // namespace

Exit run_info(const InfoOptions& options) {
  return for_each_file(options.names,
                       [&](const std::string& path) { return show(path, options.format); });
}

}  // namespace tool
