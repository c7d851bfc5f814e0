#include <algorithm>
#include <cstdio>

#include "tools/commands.h"
#include "tools/quality.h"
#include "tools/wav_io.h"

namespace tool {
namespace {

constexpr int kGreatestDelay = 800;  // samples, either way

struct Comparison {
  int delay;
  Quality quality;
};

Comparison compare(Samples reference, Samples output) {
  const int delay = find_delay(reference, output, kGreatestDelay);
  const Samples a = reference.subspan(static_cast<size_t>(std::max(0, -delay)));
  const Samples b = output.subspan(static_cast<size_t>(std::max(0, delay)));
  const size_t count = std::min(a.size(), b.size());
  return {delay, measure_quality(a.first(count), b.first(count))};
}

void print_row(const char* name, double plain, double filtered, const char* unit) {
  std::printf("%-24s %10.2f %16.2f %s\n", name, plain, filtered, unit);
}

}  // namespace

Exit run_compare(const CompareOptions& options) {
  const std::vector<int16_t> reference = read_wav(options.reference);
  const std::vector<int16_t> output = read_wav(options.output);
  const auto [delay, plain] = compare(reference, output);
  const auto [filtered_delay, filtered] = compare(through_high_pass_filters(reference), output);
  if (plain.active == 0) {
    throw Failure(Exit::input, options.reference + ": silent or too short to compare");
  }
  std::printf("%-24s %10s %16s\n", "against the original", "as it is", "high-passed (*)");
  std::printf("%-24s %10d %16d samples\n", "delay", delay, filtered_delay);
  print_row("SNR", plain.snr, filtered.snr, "dB");
  print_row("segmental SNR", plain.segmental, filtered.segmental, "dB");
  print_row("level difference", plain.level, filtered.level, "dB");
  print_row("log-spectral distance", plain.log_spectral, filtered.log_spectral, "dB");
  std::printf("(*) by the codec's own input and output filters, which are no coding error\n");
  return Exit::ok;
}

}  // namespace tool
