#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <future>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/json.h"
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

void print(const Comparison& plain, const Comparison& filtered) {
  const Quality& p = plain.quality;
  const Quality& f = filtered.quality;
  std::printf("%-24s %10s %16s\n", "against the original", "as it is", "high-passed (*)");
  std::printf("%-24s %10d %16d samples\n", "delay", plain.delay, filtered.delay);
  print_row("SNR", p.snr, f.snr, "dB");
  print_row("segmental SNR", p.segmental, f.segmental, "dB");
  print_row("level difference", p.level, f.level, "dB");
  print_row("log-spectral distance", p.log_spectral, f.log_spectral, "dB");
  std::printf("(*) by the codec's own input and output filters, which are no coding error\n");
}

Json to_json(const Comparison& comparison) {
  const Quality& q = comparison.quality;
  return {{"delay_samples", comparison.delay},
          {"snr_db", rounded(q.snr)},
          {"segmental_snr_db", rounded(q.segmental)},
          {"level_difference_db", rounded(q.level)},
          {"log_spectral_distance_db", rounded(q.log_spectral)}};
}

}  // namespace

Exit run_compare(const CompareOptions& options) {
  auto reading = std::async(std::launch::async, read_telephone_wav, options.reference);
  const std::vector<int16_t> output = read_telephone_wav(options.output);
  const std::vector<int16_t> reference = reading.get();
  auto measuring = std::async(std::launch::async, [&] { return compare(reference, output); });
  const Comparison filtered = compare(through_high_pass_filters(reference), output);
  const Comparison plain = measuring.get();
  if (plain.quality.active == 0) {
    throw Failure(Exit::input, options.reference + ": silent or too short to compare");
  }
  if (options.json) {
    print_json({{"as_it_is", to_json(plain)}, {"high_passed", to_json(filtered)}});
  } else {
    print(plain, filtered);
  }
  return Exit::ok;
}

}  // namespace tool
