#include "tools/quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <numbers>
#include <numeric>

namespace tool {
namespace {

constexpr size_t kSegment = 160;       // 20 ms
constexpr size_t kWindow = 256;        // 32 ms
constexpr double kActiveRange = 1e-4;  // 40 dB
constexpr size_t kLongestSearch = 120 * 8000;

double energy(Samples x) {
  return std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
}

double difference_energy(Samples a, Samples b) {
  const auto square = [](double d) { return d * d; };
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0, std::plus(),
                            [&](int16_t x, int16_t y) { return square(x - y); });
}

double decibel(double above, double below) {
  return 10.0 * std::log10((above + 1e-9) / (below + 1e-9));
}

// Segments whose spectra are computed together, a vector of them at a time. Floats do: what counts
// is within 40 dB of a frame's peak.
constexpr size_t kLanes = 4;
typedef float Lanes __attribute__((vector_size(kLanes * sizeof(float))));

struct Tables {
  std::array<float, kWindow> window;    // Hann
  std::array<float, kWindow / 2> real;  // of exp(-2 pi i k / kWindow)
  std::array<float, kWindow / 2> imaginary;
  std::array<size_t, kWindow> reversed;  // order of the samples for decimation in time
};

const Tables& tables() {
  static const Tables made = [] {
    Tables t;
    const double turn = 2 * std::numbers::pi / kWindow;
    for (size_t n = 0; n < kWindow; ++n) {
      t.window[n] = static_cast<float>(0.5 - 0.5 * std::cos(turn * (static_cast<double>(n) + 0.5)));
      t.reversed[n] = 0;
      for (size_t bit = 1; bit < kWindow; bit *= 2) {
        t.reversed[n] = 2 * t.reversed[n] + (n & bit ? 1 : 0);
      }
    }
    for (size_t k = 0; k < kWindow / 2; ++k) {
      t.real[k] = static_cast<float>(std::cos(turn * static_cast<double>(k)));
      t.imaginary[k] = static_cast<float>(-std::sin(turn * static_cast<double>(k)));
    }
    return t;
  }();
  return made;
}

struct Spectra {
  std::array<Lanes, kWindow> real;
  std::array<Lanes, kWindow> imaginary;
};

// Decimation in time, of samples that are in its order already.
void transform(Spectra* x) {
  const Tables& t = tables();
  for (size_t half = 1; half < kWindow; half *= 2) {
    for (size_t start = 0; start < kWindow; start += 2 * half) {
      for (size_t k = 0; k < half; ++k) {
        const float c = t.real[k * (kWindow / 2 / half)];
        const float s = t.imaginary[k * (kWindow / 2 / half)];
        Lanes& ar = x->real[start + k];
        Lanes& ai = x->imaginary[start + k];
        Lanes& br = x->real[start + k + half];
        Lanes& bi = x->imaginary[start + k + half];
        const Lanes r = c * br - s * bi;
        const Lanes i = c * bi + s * br;
        br = ar - r;
        bi = ai - i;
        ar += r;
        ai += i;
      }
    }
  }
}

// Of the bins below half the sampling rate.
using Powers = std::array<Lanes, kWindow / 2>;

// The rms distance over the bins within range of the greatest, of one lane.
double distance(const Powers& wanted, const Powers& found, size_t lane) {
  const auto weaker = [&](const Lanes& a, const Lanes& b) { return a[lane] < b[lane]; };
  const double floor = kActiveRange * (*std::ranges::max_element(wanted, weaker))[lane];
  double sum = 0;
  int bins = 0;
  for (size_t k = 0; k < wanted.size(); ++k) {
    if (wanted[k][lane] < floor) continue;
    const double difference = decibel(found[k][lane] + 1.0, wanted[k][lane] + 1.0);
    sum += difference * difference;
    ++bins;
  }
  return std::sqrt(sum / bins);
}

// Of up to kLanes segments, the sum. Both signals share a transform as its real and imaginary part.
double log_spectral_distances(Samples reference, Samples output, std::span<const size_t> starts) {
  const Tables& t = tables();
  Spectra x;
  for (size_t n = 0; n < kWindow; ++n) {
    Lanes r{};
    Lanes o{};
    for (size_t l = 0; l < starts.size(); ++l) {
      r[l] = reference[starts[l] + n];
      o[l] = output[starts[l] + n];
    }
    x.real[t.reversed[n]] = r * t.window[n];
    x.imaginary[t.reversed[n]] = o * t.window[n];
  }
  transform(&x);
  Powers wanted;
  Powers found;
  for (size_t k = 0; k < kWindow / 2; ++k) {
    const size_t mirrored = (kWindow - k) % kWindow;
    const Lanes even_r = x.real[k] + x.real[mirrored], odd_r = x.real[k] - x.real[mirrored];
    const Lanes even_i = x.imaginary[k] + x.imaginary[mirrored];
    const Lanes odd_i = x.imaginary[k] - x.imaginary[mirrored];
    wanted[k] = 0.25F * (even_r * even_r + odd_i * odd_i);
    found[k] = 0.25F * (odd_r * odd_r + even_i * even_i);
  }
  double sum = 0;
  for (size_t l = 0; l < starts.size(); ++l) sum += distance(wanted, found, l);
  return sum;
}

struct SecondOrder {
  double b0, b1, b2, a1, a2;
};
constexpr SecondOrder kInputFilter{0.92727436, -1.8544941, 0.92727436, -1.9059465, 0.9114024};
constexpr SecondOrder kOutputFilter{0.93980581, -1.8795834, 0.93980581, -1.9330735, 0.93589199};

class Filter {
 public:
  explicit Filter(const SecondOrder& f) : f_(f) {}

  double next(double v) {
    const double y = f_.b0 * v + s1_;
    s1_ = f_.b1 * v - f_.a1 * y + s2_;
    s2_ = f_.b2 * v - f_.a2 * y;
    return y;
  }

 private:
  SecondOrder f_;
  double s1_ = 0;
  double s2_ = 0;
};

std::vector<size_t> active_segments(Samples reference) {
  std::vector<double> energies;
  for (size_t start = 0; start + kWindow <= reference.size(); start += kSegment) {
    energies.push_back(energy(reference.subspan(start, kSegment)));
  }
  const double loudest = energies.empty() ? 0 : *std::ranges::max_element(energies);
  std::vector<size_t> starts;
  for (size_t i = 0; i < energies.size(); ++i) {
    if (energies[i] > 0 && energies[i] >= kActiveRange * loudest) starts.push_back(i * kSegment);
  }
  return starts;
}

// Their greatest magnitude, so that kBlock products fit a word.
constexpr int kLoudest = 1 << 11;
constexpr size_t kBlock = 256;

// What a search for the delay looks at.
std::vector<int16_t> scaled_down(Samples x) {
  int divisor = 1;
  for (const int sample : x) {
    while (std::abs(sample) >= kLoudest * divisor) divisor *= 2;
  }
  std::vector<int16_t> y(x.begin(), x.end());
  for (int16_t& sample : y) sample = static_cast<int16_t>(sample / divisor);
  return y;
}

int64_t short_correlation(const int16_t* a, const int16_t* b, size_t count) {
  int64_t sum = 0;
  for (size_t start = 0; start < count; start += kBlock) {
    const size_t end = std::min(start + kBlock, count);
    sum += std::inner_product(a + start, a + end, b + start, int32_t{});
  }
  return sum;
}

}  // namespace

std::vector<int16_t> through_high_pass_filters(Samples x) {
  Filter in(kInputFilter);
  Filter back(kOutputFilter);
  std::vector<int16_t> out;
  for (const int16_t sample : x) {
    const double y = back.next(in.next(sample));
    out.push_back(static_cast<int16_t>(std::lrint(std::clamp(y, -32768.0, 32767.0))));
  }
  return out;
}

int find_delay(Samples all_reference, Samples all_output, int shift) {
  const std::vector<int16_t> reference = scaled_down(all_reference);
  const std::vector<int16_t> output = scaled_down(all_output);
  int best = 0;
  double best_score = 0;
  for (int delay = -shift; delay <= shift; ++delay) {
    const auto skip_reference = static_cast<size_t>(std::max(0, -delay));
    const auto skip_output = static_cast<size_t>(std::max(0, delay));
    if (skip_reference >= reference.size() || skip_output >= output.size()) continue;
    const size_t count = std::min(reference.size() - skip_reference, output.size() - skip_output);
    const auto score = static_cast<double>(short_correlation(
        &reference[skip_reference], &output[skip_output], std::min(count, kLongestSearch)));
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
  for (size_t i = 0; i < starts.size(); i += kLanes) {
    const size_t count = std::min(kLanes, starts.size() - i);
    quality.log_spectral += log_spectral_distances(reference, output, {&starts[i], count});
  }
  for (const size_t start : starts) {
    const Samples r = reference.subspan(start, kSegment);
    const Samples o = output.subspan(start, kSegment);
    quality.segmental += std::clamp(decibel(energy(r), difference_energy(r, o)), -10.0, 35.0);
    wanted += energy(r);
    found += energy(o);
  }
  quality.active = static_cast<int64_t>(starts.size());
  const auto segments = static_cast<double>(starts.size());
  quality.segmental /= segments;
  quality.log_spectral /= segments;
  quality.level = decibel(found, wanted);
  return quality;
}

}  // namespace tool
