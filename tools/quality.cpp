#include "tools/quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>

namespace tool {
namespace {

constexpr size_t kSegment = 160;       // 20 ms
constexpr size_t kWindow = 256;        // 32 ms
constexpr double kActiveRange = 1e-4;  // 40 dB
constexpr size_t kLongestSearch = 120 * 8000;

using Spectrum = std::array<std::complex<double>, kWindow>;

int64_t correlation(const int16_t* a, const int16_t* b, size_t count) {
  int64_t sum = 0;
  for (size_t i = 0; i < count; ++i) sum += int32_t{a[i]} * b[i];
  return sum;
}

double energy(Samples x) {
  return static_cast<double>(correlation(x.data(), x.data(), x.size()));
}

double difference_energy(Samples a, Samples b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += std::pow(double{1} * a[i] - b[i], 2);
  return sum;
}

double decibel(double above, double below) {
  return 10.0 * std::log10((above + 1e-9) / (below + 1e-9));
}

// Decimation in time; x becomes its discrete Fourier transform.
void transform(Spectrum* spectrum) {
  Spectrum& x = *spectrum;
  for (size_t i = 1, j = 0; i < kWindow; ++i) {
    size_t bit = kWindow / 2;
    for (; j & bit; bit /= 2) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  for (size_t half = 1; half < kWindow; half *= 2) {
    const auto step = std::polar(1.0, -std::numbers::pi / static_cast<double>(half));
    for (size_t start = 0; start < kWindow; start += 2 * half) {
      std::complex<double> turn = 1.0;
      for (size_t k = start; k < start + half; ++k, turn *= step) {
        const auto odd = turn * x[k + half];
        x[k + half] = x[k] - odd;
        x[k] += odd;
      }
    }
  }
}

// Power of the bins up to half the sampling rate, of kWindow samples under a Hann window.
std::array<double, kWindow / 2> power_spectrum(Samples x) {
  Spectrum spectrum;
  for (size_t n = 0; n < kWindow; ++n) {
    const double phase = 2 * std::numbers::pi * (static_cast<double>(n) + 0.5) / kWindow;
    spectrum[n] = x[n] * (0.5 - 0.5 * std::cos(phase));
  }
  transform(&spectrum);
  std::array<double, kWindow / 2> power;
  for (size_t k = 0; k < power.size(); ++k) power[k] = std::norm(spectrum[k]);
  return power;
}

double log_spectral_distance(Samples reference, Samples output) {
  const auto wanted = power_spectrum(reference);
  const auto found = power_spectrum(output);
  const double floor = kActiveRange * *std::max_element(wanted.begin(), wanted.end());
  double sum = 0;
  int bins = 0;
  for (size_t k = 0; k < wanted.size(); ++k) {
    if (wanted[k] < floor) continue;
    sum += std::pow(decibel(found[k] + 1.0, wanted[k] + 1.0), 2);
    ++bins;
  }
  return std::sqrt(sum / bins);
}

struct SecondOrder {
  double b0, b1, b2, a1, a2;
};
constexpr SecondOrder kInputFilter{0.92727436, -1.8544941, 0.92727436, -1.9059465, 0.9114024};
constexpr SecondOrder kOutputFilter{0.93980581, -1.8795834, 0.93980581, -1.9330735, 0.93589199};

void filter(const SecondOrder& f, std::vector<double>* x) {
  double s1 = 0;
  double s2 = 0;
  for (double& v : *x) {
    const double y = f.b0 * v + s1;
    s1 = f.b1 * v - f.a1 * y + s2;
    s2 = f.b2 * v - f.a2 * y;
    v = y;
  }
}

std::vector<size_t> active_segments(Samples reference) {
  std::vector<double> energies;
  for (size_t start = 0; start + kWindow <= reference.size(); start += kSegment) {
    energies.push_back(energy(reference.subspan(start, kSegment)));
  }
  double loudest = 0;
  for (const double e : energies) loudest = std::max(loudest, e);
  std::vector<size_t> starts;
  for (size_t i = 0; i < energies.size(); ++i) {
    if (energies[i] > 0 && energies[i] >= kActiveRange * loudest) starts.push_back(i * kSegment);
  }
  return starts;
}

}  // namespace

std::vector<int16_t> through_high_pass_filters(Samples x) {
  std::vector<double> signal(x.begin(), x.end());
  filter(kInputFilter, &signal);
  filter(kOutputFilter, &signal);
  std::vector<int16_t> out(x.size());
  for (size_t i = 0; i < out.size(); ++i) {
    out[i] = static_cast<int16_t>(std::clamp(std::round(signal[i]), -32768.0, 32767.0));
  }
  return out;
}

int find_delay(Samples reference, Samples output, int shift) {
  int best = 0;
  double best_score = 0;
  for (int delay = -shift; delay <= shift; ++delay) {
    const auto skip_reference = static_cast<size_t>(std::max(0, -delay));
    const auto skip_output = static_cast<size_t>(std::max(0, delay));
    if (skip_reference >= reference.size() || skip_output >= output.size()) continue;
    const Samples a = reference.subspan(skip_reference);
    const Samples b = output.subspan(skip_output);
    const size_t count = std::min({a.size(), b.size(), kLongestSearch});
    const auto score = static_cast<double>(correlation(a.data(), b.data(), count));
    if (score > best_score) {
      best_score = score;
      best = delay;
    }
  }
  return best;
}

Quality measure_quality(Samples reference, Samples output) {
  Quality quality{};
  quality.snr = decibel(energy(reference), difference_energy(reference, output));
  double wanted = 0;
  double found = 0;
  const std::vector<size_t> starts = active_segments(reference);
  for (const size_t start : starts) {
    const Samples r = reference.subspan(start, kSegment);
    const Samples o = output.subspan(start, kSegment);
    quality.segmental += std::clamp(decibel(energy(r), difference_energy(r, o)), -10.0, 35.0);
    quality.log_spectral +=
        log_spectral_distance(reference.subspan(start, kWindow), output.subspan(start, kWindow));
    wanted += energy(r);
    found += energy(o);
  }
  quality.active = static_cast<int64_t>(starts.size());
  const double segments = std::max<double>(1, static_cast<double>(starts.size()));
  quality.segmental /= segments;
  quality.log_spectral /= segments;
  quality.level = decibel(found, wanted);
  return quality;
}

}  // namespace tool
