// Test signals made from formulas, the same on every run. 8000 Hz, 16 bit, whole 10 ms frames.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace signals {

using Samples = std::vector<int16_t>;

inline int16_t to_sample(double x) {
  return static_cast<int16_t>(std::lround(std::fmin(32767.0, std::fmax(-32768.0, x))));
}

// n frames of f(sample number).
template <typename Function>
Samples make(int frames, Function f) {
  Samples out;
  out.reserve(static_cast<size_t>(frames) * 80);
  for (int n = 0; n < frames * 80; ++n) out.push_back(to_sample(f(n)));
  return out;
}

inline Samples silence(int frames) {
  return make(frames, [](int) { return 0.0; });
}
inline Samples constant(int frames, double level) {
  return make(frames, [=](int) { return level; });
}
inline Samples noise(int frames, double deviation, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  return make(frames, [&](int) { return deviation * normal(random); });
}
inline Samples square(int frames, int half_period) {
  return make(frames, [=](int n) { return n / half_period % 2 ? -32768.0 : 32767.0; });
}
inline Samples clicks(int frames, int period) {
  return make(frames, [=](int n) { return n % period == period / 3 ? 32767.0 : 0.0; });
}
inline Samples sweep(int frames) {
  return make(frames, [=](int n) {
    const double t = n / (frames * 80.0);
    return 12000 * std::sin(M_PI * n * (0.01 + 0.45 * t));
  });
}
// A chord of steady partials, as in organ music; at 11.8 kbit/s most of it is coded backward.
inline Samples chord(int frames) {
  return make(frames, [](int n) {
    double s = 0;
    for (double f : {220.0, 277.2, 329.6, 440.0, 659.3, 880.0, 1318.5, 1760.0})
      s += std::sin(2 * M_PI * f * n / 8000.0);
    return 2500 * s;
  });
}

// A resonance at `frequency` hertz of the given bandwidth.
struct Resonator {
  double y1 = 0, y2 = 0;
  double operator()(double x, double frequency, double bandwidth) {
    const double r = std::exp(-M_PI * bandwidth / 8000.0);
    const double y = x + 2 * r * std::cos(2 * M_PI * frequency / 8000.0) * y1 - r * r * y2;
    y2 = y1;
    y1 = y;
    return y;
  }
};

// Speech-like: syllables of a pulse train with gliding pitch or of noise through moving formants,
// with pauses of faint noise between phrases.
inline Samples speech_like(int frames, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> normal;
  Resonator formant[4];
  double frequency[4] = {500, 1500, 2500, 3300}, target[4] = {500, 1500, 2500, 3300};
  double phase = 0, pitch = 120, level = 0, goal = 0;
  bool voiced = true;
  int left = 0;
  return make(frames, [&](int) {
    if (left-- <= 0) {
      const double kind = unit(random);
      voiced = kind < 0.6;
      goal = kind > 0.85 ? 0.0 : 0.3 + 0.7 * unit(random);
      left = 8 * static_cast<int>(60 + 200 * unit(random));
      const double low[4] = {280, 850, 2100, 3100}, span[4] = {500, 1300, 700, 500};
      for (int k = 0; k < 4; ++k) target[k] = low[k] + span[k] * unit(random);
      pitch = 90 + 130 * unit(random);
    }
    level += 0.004 * (goal - level);
    phase += pitch * (1 + 0.1 * level) / 8000.0;
    double s = 0.02 * normal(random);
    if (phase >= 1) {
      phase -= 1;
      if (voiced) s += 6;
    }
    if (!voiced) s += 0.4 * normal(random);
    for (int k = 0; k < 4; ++k) {
      frequency[k] += 0.002 * (target[k] - frequency[k]);
      s = formant[k](s, frequency[k], 60 + 40 * k);
    }
    return 60 * level * s + 4 * normal(random);
  });
}

// x + scale * y, sample by sample, as long as the shorter.
inline Samples mix(const Samples& x, const Samples& y, double scale) {
  Samples out;
  for (size_t n = 0; n < x.size() && n < y.size(); ++n)
    out.push_back(to_sample(x[n] + scale * y[n]));
  return out;
}

inline Samples join(std::initializer_list<Samples> parts) {
  Samples out;
  for (const Samples& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

inline double power(const Samples& x) {
  double s = 0;
  for (int16_t v : x) s += static_cast<double>(v) * v;
  return x.empty() ? 0.0 : s / static_cast<double>(x.size());
}

// speech_like as loud as recordings are, 26 dB below full scale.
inline constexpr double kSpeechPower = 1640.0 * 1640.0;
inline Samples loud_speech(int frames, uint32_t seed = 1) {
  const Samples faint = speech_like(frames, seed);
  return mix(silence(frames), faint, std::sqrt(kSpeechPower / power(faint)));
}

// speech_like with white noise `snr` dB below its mean power.
inline Samples noisy_speech(int frames, double snr, uint32_t seed = 1) {
  const Samples speech = speech_like(frames, seed);
  const double deviation = std::sqrt(power(speech) / std::pow(10.0, snr / 10));
  return mix(speech, noise(frames, deviation, seed + 1), 1.0);
}

// A voice of one note that swells, so that the encoder comes to tame the pitch gain.
inline Samples swelling_pulses(int frames) {
  constexpr int kPeriod = 57;
  return make(frames, [](int n) { return n % kPeriod == 0 ? std::fmin(20000.0, 1.17 * n) : 0.0; });
}

// Pieces of everything above, each at a level of its own.
inline Samples varied(int frames, uint32_t seed) {
  std::mt19937 random(seed);
  Samples out;
  while (out.size() < static_cast<size_t>(frames) * 80) {
    const int n = 5 + static_cast<int>(random() % 60) * (random() % 4 ? 1 : 4);
    const double level = std::pow(10.0, -static_cast<double>(random() % 50) / 20);
    const auto piece = static_cast<uint32_t>(random());
    const Samples pieces[] = {loud_speech(n, piece),
                              noisy_speech(n, piece % 30, piece),
                              chord(n),
                              noise(n, 8000, piece),
                              square(n, 1 + static_cast<int>(piece % 90)),
                              clicks(n, 20 + static_cast<int>(piece % 900)),
                              sweep(n),
                              constant(n, 20000),
                              silence(n)};
    const Samples& x = pieces[random() % std::size(pieces)];
    out = join({out, mix(silence(n), x, level)});
  }
  out.resize(static_cast<size_t>(frames) * 80);
  return out;
}

}  // namespace signals
