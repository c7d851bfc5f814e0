#include "tools/quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>

namespace tool {
namespace {

constexpr size_t kSegment = 160;       // 20 ms
constexpr size_t kWindow = 256;        // 32 ms
constexpr double kActiveRange = 1e-4;  // 40 dB
constexpr size_t kLongestSearch = 120 * 8000;

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
  for (size_t i = 0; i < a.size(); ++i) {
    const double d = double{1} * a[i] - b[i];
    sum += d * d;
  }
  return sum;
}

double decibel(double above, double below) {
  return 10.0 * std::log10((above + 1e-9) / (below + 1e-9));
}

// Segments whose spectra are computed together, so that the compiler makes vectors of them.
constexpr size_t kLanes = 4;
using Lanes = std::array<double, kLanes>;

struct Tables {
  std::array<double, kWindow> window;    // Hann
  std::array<double, kWindow / 2> real;  // of exp(-2 pi i k / kWindow)
  std::array<double, kWindow / 2> imaginary;
  std::array<size_t, kWindow> reversed;  // order of the samples for decimation in time
};

const Tables& tables() {
  static const Tables made = [] {
    Tables t;
    const double turn = 2 * std::numbers::pi / kWindow;
    for (size_t n = 0; n < kWindow; ++n) {
      t.window[n] = 0.5 - 0.5 * std::cos(turn * (static_cast<double>(n) + 0.5));
      t.reversed[n] = 0;
      for (size_t bit = 1; bit < kWindow; bit *= 2) {
        t.reversed[n] = 2 * t.reversed[n] + (n & bit ? 1 : 0);
      }
    }
    for (size_t k = 0; k < kWindow / 2; ++k) {
      t.real[k] = std::cos(turn * static_cast<double>(k));
      t.imaginary[k] = -std::sin(turn * static_cast<double>(k));
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
        const double c = t.real[k * (kWindow / 2 / half)];
        const double s = t.imaginary[k * (kWindow / 2 / half)];
        Lanes& ar = x->real[start + k];
        Lanes& ai = x->imaginary[start + k];
        Lanes& br = x->real[start + k + half];
        Lanes& bi = x->imaginary[start + k + half];
        for (size_t l = 0; l < kLanes; ++l) {
          const double r = c * br[l] - s * bi[l];
          const double i = c * bi[l] + s * br[l];
          br[l] = ar[l] - r;
          bi[l] = ai[l] - i;
          ar[l] += r;
          ai[l] += i;
        }
      }
    }
  }
}

// The rms distance over the bins within range of the greatest; powers of the bins below half the
// sampling rate.
double distance(const std::array<double, kWindow / 2>& wanted,
                const std::array<double, kWindow / 2>& found) {
  const double floor = kActiveRange * *std::max_element(wanted.begin(), wanted.end());
  double sum = 0;
  int bins = 0;
  for (size_t k = 0; k < wanted.size(); ++k) {
    if (wanted[k] < floor) continue;
    const double difference = decibel(found[k] + 1.0, wanted[k] + 1.0);
    sum += difference * difference;
    ++bins;
  }
  return std::sqrt(sum / bins);
}

// Of up to kLanes segments, the sum. Both signals share a transform as its real and imaginary part.
double log_spectral_distances(Samples reference, Samples output, std::span<const size_t> starts) {
  const Tables& t = tables();
  Spectra x{};
  for (size_t l = 0; l < starts.size(); ++l) {
    for (size_t n = 0; n < kWindow; ++n) {
      x.real[t.reversed[n]][l] = reference[starts[l] + n] * t.window[n];
      x.imaginary[t.reversed[n]][l] = output[starts[l] + n] * t.window[n];
    }
  }
  transform(&x);
  double sum = 0;
  for (size_t l = 0; l < starts.size(); ++l) {
    std::array<double, kWindow / 2> wanted;
    std::array<double, kWindow / 2> found;
    for (size_t k = 0; k < wanted.size(); ++k) {
      const size_t mirrored = (kWindow - k) % kWindow;
      const std::complex<double> a(x.real[k][l], x.imaginary[k][l]);
      const std::complex<double> b(x.real[mirrored][l], -x.imaginary[mirrored][l]);
      wanted[k] = 0.25 * std::norm(a + b);
      found[k] = 0.25 * std::norm(a - b);
    }
    sum += distance(wanted, found);
  }
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
  Filter in(kInputFilter);
  Filter back(kOutputFilter);
  std::vector<int16_t> out(x.size());
  for (size_t i = 0; i < out.size(); ++i) {
    const double y = back.next(in.next(x[i]));
    out[i] = static_cast<int16_t>(std::clamp(std::round(y), -32768.0, 32767.0));
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
  const double segments = std::max<double>(1, static_cast<double>(starts.size()));
  quality.segmental /= segments;
  quality.log_spectral /= segments;
  quality.level = decibel(found, wanted);
  return quality;
}

}  // namespace tool
