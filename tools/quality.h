// How a coded signal differs from its original, as users of speech codecs measure it.
#ifndef KELG729F_TOOLS_QUALITY_H
#define KELG729F_TOOLS_QUALITY_H

#include <cstdint>
#include <span>
#include <vector>

namespace tool {

using Samples = std::span<const int16_t>;

// What the codec would give back if it coded without error: it removes the lowest frequencies by
// the high-pass filters at its input and output (G.729 clauses 3.1 and 4.2.5), which also turn the
// phase of those that stay. Differences against this are coding errors.
std::vector<int16_t> through_high_pass_filters(Samples x);

// The delay of output against reference, in samples, at which they correlate best; searched from
// -shift to +shift in the first two minutes.
int find_delay(Samples reference, Samples output, int shift);

struct Quality {
  double snr;           // dB, over the whole signal
  double segmental;     // dB, mean over active segments of 20 ms, each held to -10 to 35 dB
  double level;         // dB, output above reference, over the active segments
  double log_spectral;  // dB, rms over the bins within 40 dB of the frame's peak, mean over the
                        // active segments (Hann window, 32 ms)
  int64_t active;       // segments within 40 dB of the loudest one
};

// Both signals aligned and equally long. Where no segment is active only the SNR means anything.
Quality measure_quality(Samples reference, Samples output);

}  // namespace tool

#endif
