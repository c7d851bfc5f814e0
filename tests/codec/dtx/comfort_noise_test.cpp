#include "codec/dtx/comfort_noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dtx/gaussian_noise.h"

namespace g729 {
namespace {

double energy(const double* x) {
  double sum = 0;
  for (int i = 0; i < kSubframe; ++i) sum += x[i] * x[i];
  return sum;
}

TEST(GaussianNoise, EverySeedEqualsDrawByDraw) {
  for (int s = -32768; s < 32768; ++s) {
    int16_t seed = static_cast<int16_t>(s), plain_seed = seed;
    double fast[kSubframe], plain[kSubframe];
    gaussian_noise(&seed, fast);
    gaussian_noise_plain(&plain_seed, plain);
    ASSERT_EQ(seed, plain_seed);
    ASSERT_EQ(std::memcmp(fast, plain, sizeof fast), 0) << "seed " << s;
    ASSERT_GT(energy(plain), 1.0) << "seed " << s << " cannot be scaled to a gain";
  }
}

// An excitation buffer with its past, filled with noise of the given deviation.
struct Excitation {
  explicit Excitation(double deviation) : samples(kExcitationPast + kFrame) {
    for (double& x : samples) x = deviation * std::normal_distribution<>()(random);
  }
  double* frame() { return samples.data() + kExcitationPast; }
  std::mt19937 random{7};
  std::vector<double> samples;
};

// The text's bits read as a string, most significant first.
int bits(int16_t word, int high, int count) {
  return (static_cast<uint16_t>(word) >> (high - count + 1)) & ((1 << count) - 1);
}

// Takes the adaptive and Gaussian parts out of the subframe at exc, whose past must still be what
// the generator saw, and checks what is left: nothing, or four pulses that give the energy.
void check_subframe(double gain, std::vector<double> past, const double* exc, int16_t* seed,
                    const NoiseSubframe& applied, int* without_pulses) {
  const int16_t t = random16(seed), u = random16(seed), v = random16(seed);
  const int position[4] = {5 * bits(t, 10, 3), 5 * bits(t, 14, 3) + 1, 5 * bits(u, 2, 3) + 2,
                           5 * bits(u, 7, 3) + 3 + bits(u, 4, 1)};
  const int sign[4] = {bits(t, 11, 1), bits(t, 15, 1), bits(u, 3, 1), bits(u, 8, 1)};
  const int fraction[4] = {-1, 0, 1, 0};
  EXPECT_EQ(applied.lag, 40 + bits(t, 7, 6));
  double gaussian[kSubframe];
  gaussian_noise(seed, gaussian);
  const double scale = gain * std::sqrt(10.0 / energy(gaussian));
  double rest[kSubframe];
  for (int i = 0; i < kSubframe; ++i) rest[i] = exc[i] - scale * gaussian[i];

  if (applied.gain_pitch == 0.0 && bits(v, 12, 13) != 0) {
    ++*without_pulses;
    EXPECT_LT(energy(rest), 1e-12 * energy(exc));
    return;
  }
  EXPECT_EQ(applied.gain_pitch, bits(v, 12, 13) / 16384.0);
  past.resize(kExcitationPast + kSubframe);
  double* adaptive = past.data() + kExcitationPast;
  pitch_excitation_interpolate(adaptive, applied.lag, fraction[bits(t, 1, 2)], kSubframe);
  for (int i = 0; i < kSubframe; ++i) rest[i] -= applied.gain_pitch * adaptive[i];
  const double amplitude = (sign[0] ? 1 : -1) * rest[position[0]];
  double b = 0;
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(rest[position[k]], (sign[k] ? 1 : -1) * amplitude, 1e-9 * (1 + gain));
    rest[position[k]] = 0;
    b += (sign[k] ? 1 : -1) * exc[position[k]] - amplitude;
  }
  EXPECT_LT(energy(rest), 1e-12 * energy(exc)) << "samples besides the pulses differ";
  if (std::fabs(amplitude) < 4999.9) {
    EXPECT_NEAR(energy(exc), 40 * gain * gain, 1e-6 * gain * gain);
    EXPECT_LE(std::fabs(amplitude), std::fabs(-b / 2 - amplitude) + 1e-9) << "not the lesser root";
  } else {
    EXPECT_NEAR(std::fabs(amplitude), 5000, 1e-6);
  }
}

TEST(ComfortNoiseExcitation, IsWhatItsDrawsSay) {
  int without_pulses = 0;
  for (double deviation : {0.0, 20.0, 400.0}) {
    Excitation excitation(deviation);
    int16_t seed = kNoiseSeed;
    for (int frame = 0; frame < 200; ++frame) {
      const double gain = frame % 50 == 49 ? 20000.0 : 1.0 + frame;
      int16_t oracle_seed = seed;
      const std::vector<double> before = excitation.samples;
      NoiseSubframe applied[kSubframes];
      comfort_noise_excitation(gain, excitation.frame(), &seed, applied);
      for (int s = 0; s < kSubframes; ++s) {
        const auto start = (s == 0 ? before : excitation.samples).begin() + s * kSubframe;
        check_subframe(gain, {start, start + kExcitationPast}, excitation.frame() + s * kSubframe,
                       &oracle_seed, applied[s], &without_pulses);
      }
      EXPECT_EQ(seed, oracle_seed);
      std::copy(excitation.samples.end() - kExcitationPast, excitation.samples.end(),
                excitation.samples.begin());
    }
  }
  EXPECT_GT(without_pulses, 0) << "the case of a loud past was not met";
}

TEST(ComfortNoiseExcitation, NoGainIsExactSilence) {
  Excitation excitation(1000);
  int16_t seed = 77;
  NoiseSubframe applied[kSubframes];
  comfort_noise_excitation(0.0, excitation.frame(), &seed, applied);
  for (int i = 0; i < kFrame; ++i) EXPECT_EQ(excitation.frame()[i], 0.0);
  for (const NoiseSubframe& s : applied) {
    EXPECT_EQ(s.gain_pitch, 0.0);
    EXPECT_EQ(s.lag, 41);
  }
  EXPECT_EQ(seed, 77);
}

struct Decoder {
  Decoder() { lsp_history_reset(&history); }
  double decode(int previous_type, const SidParameters* sid, double frame_energy) {
    comfort_noise_decode(&state, previous_type, sid, frame_energy, excitation.frame(), lsp_old, a,
                         &seed, &history, applied);
    return state.cur_gain;
  }
  ComfortNoiseState state;
  Excitation excitation{0};
  double lsp_old[kOrder] = {0.9, 0.8, 0.6, 0.4, 0.1, -0.1, -0.4, -0.6, -0.8, -0.9};
  double a[kSubframes * kCoeffs];
  int16_t seed = kNoiseSeed;
  LspHistory history;
  NoiseSubframe applied[kSubframes];
};

TEST(ComfortNoiseDecode, GainTakesTheFirstDescriptorAndSmoothsLaterOnes) {
  Decoder decoder;
  const SidParameters loud = {1, 3, 5, 20}, quiet = {0, 9, 2, 10};
  EXPECT_EQ(decoder.decode(kSpeech8k, &loud, 0), kSidGain[20]);
  double expected = kSidGain[20];
  for (int frame = 0; frame < 40; ++frame) {
    expected = 0.875 * expected + 0.125 * kSidGain[10];
    EXPECT_DOUBLE_EQ(decoder.decode(kSid, frame % 5 == 0 ? &quiet : nullptr, 1e6), expected);
  }
}

TEST(ComfortNoiseDecode, DescriptorMovesThePredictorOnce) {
  Decoder decoder;
  const SidParameters sid = {1, 17, 6, 12};
  const LspHistory before = decoder.history;
  double innovation[kOrder], lsf[kOrder];
  sid_codevector(sid.first, sid.second, innovation);
  lsp_predict(kNoisePredictor[1], before, innovation, lsf);
  decoder.decode(kSpeech8k, &sid, 0);
  decoder.decode(kSid, nullptr, 0);
  for (int j = 0; j < kOrder; ++j) {
    EXPECT_NEAR(decoder.lsp_old[j], std::cos(lsf[j]), 1e-12);
    EXPECT_EQ(decoder.history.row[0][j], innovation[j]);
    EXPECT_EQ(decoder.history.row[1][j], before.row[0][j]);
  }
}

TEST(ComfortNoiseDecode, PauseWithoutDescriptorKeepsTheLevelOfTheLastSpeech) {
  for (double deviation = 3; deviation < 2000; deviation *= 1.1) {
    Decoder decoder;
    const double gain = decoder.decode(kSpeech8k, nullptr, kFrame * deviation * deviation);
    EXPECT_LT(std::fabs(20 * std::log10(gain / deviation)), deviation < 12 ? 2.01 : 1.01);
  }
}

TEST(ComfortNoiseDecode, NothingEverReceivedIsSilence) {
  Decoder decoder;
  EXPECT_EQ(decoder.decode(kNoTransmission, nullptr, 0), 0.0);
  EXPECT_EQ(energy(decoder.excitation.frame()), 0.0);
}

}  // namespace
}  // namespace g729
