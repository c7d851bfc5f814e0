#include <algorithm>
#include <cstdio>

#include "tools/commands.h"
#include "tools/quality.h"
#include "tools/wav_io.h"

namespace tool {
namespace {

constexpr int kGreatestDelay = 800;  // samples, either way

}  // namespace

Exit run_compare(const CompareOptions& options) {
  const std::vector<int16_t> reference = read_wav(options.reference);
  const std::vector<int16_t> output = read_wav(options.output);
  const int delay = find_delay(reference, output, kGreatestDelay);
  const Samples a = Samples(reference).subspan(static_cast<size_t>(std::max(0, -delay)));
  const Samples b = Samples(output).subspan(static_cast<size_t>(std::max(0, delay)));
  const size_t count = std::min(a.size(), b.size());
  const Quality quality = measure_quality(a.first(count), b.first(count));
  if (quality.active == 0) {
    throw Failure(Exit::input, options.reference + ": silent or too short to compare");
  }
  std::printf("delay                 %8d samples\n", delay);
  std::printf("compared              %8.2f s, %.0f %% of it active\n",
              static_cast<double>(count) / kSampleRate,
              100.0 * static_cast<double>(quality.active) * 160.0 / static_cast<double>(count));
  std::printf("SNR                   %8.2f dB\n", quality.snr);
  std::printf("segmental SNR         %8.2f dB\n", quality.segmental);
  std::printf("level difference      %+8.2f dB\n", quality.level);
  std::printf("log-spectral distance %8.2f dB\n", quality.log_spectral);
  return Exit::ok;
}

}  // namespace tool
