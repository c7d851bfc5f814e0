#include <algorithm>
#include <barrier>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "codec/g729.h"
#include "codec/g729_rating.h"
#include "tests/tools/tool_runner.h"
#include "tools/batch.h"
#include "tools/quality.h"
#include "tools/wav_io.h"

void tool::say(const std::string&) {}

namespace test {
namespace {

using RoundTrip = ToolTest;

TEST_F(RoundTrip, FilesAndPipesHoldWhatTheByteInterfaceMakes) {
  std::vector<int16_t> samples = voice(16040), decoded(16080);
  samples.resize(decoded.size());
  std::string stream(samples.size() / 8, 0);
  G729EncoderState* encoder = g729_encoder_create(0);
  G729DecoderState* decoder = g729_decoder_create();
  g729_encoder_set_complexity(encoder, 1);
  for (size_t i = 0; i < samples.size(); i += 80) {
    auto* bytes = reinterpret_cast<uint8_t*>(&stream[i / 8]);
    uint32_t size = 0;
    g729_encoder_encode_frame(encoder, &samples[i], bytes, &size);
    g729_decoder_decode_frame(decoder, bytes, size, &decoded[i]);
  }
  g729_encoder_destroy(encoder);
  g729_decoder_destroy(decoder);
  run_well("kelg729f encode --complexity 1 voice.wav a.g729 && kelg729f decode a.g729 a.wav");
  EXPECT_EQ(contents(folder / "a.g729"), stream);
  EXPECT_EQ(run("umask 026; kelg729f decode a.g729 a.wav; stat -c %a a.wav").out, "640\n");
  EXPECT_EQ(run("kelg729f decode a.g729 a.wav").err, "");
  EXPECT_EQ(load_wav(folder / "a.wav"), decoded);
  run_well(
      "kelg729f encode --complexity 1 voice.wav a.bit; kelg729f decode a.bit b && cmp a.wav b");
  run_well(
      "kelg729f encode voice.wav 0 --format g729 && kelg729f encode --complexity 0 voice.wav "
      "1.g729");
  run_well("cmp 0 1.g729 && ! cmp -s 0 a.g729 && kelg729f --version");
  run_well("kelg729f --help | grep -q 'Exit status: 0 done'");
  run_well("mkfifo pipe; cat voice.wav >pipe & kelg729f encode --complexity 1 pipe b.g729");
  run_well("cat voice.wav | kelg729f encode --complexity 1 --format g729 - - | cmp - b.g729");
  run_well(
      "cat a.g729 | kelg729f decode --loss 0 --burst 1 --format g729 - - | cat >c.wav && cmp a.wav "
      "c.wav");
}

TEST_F(RoundTrip, EveryRateComesBackRecognisable) {
  for (const auto& [rate, bits, least] :
       {std::tuple("6.4", 64, 5.0), {"8", 80, 7.0}, {"11.8", 118, 11.0}}) {
    run_well(std::string("kelg729f encode --rate ") + rate + " voice.wav x.bit");
    EXPECT_EQ(contents(folder / "x.bit").size(), 201u * 2 * static_cast<size_t>(2 + bits)) << rate;
    const Result info = run("kelg729f info x.bit");
    EXPECT_NE(info.out.find(std::string("speech ") + rate + " kbit/s"), std::string::npos);
    run_well("kelg729f decode x.bit x.wav");
    const std::string measures = run("kelg729f compare --json voice.wav x.wav").out;
    const size_t segmental = measures.find("segmental_snr_db", measures.find("high_passed"));
    EXPECT_GT(std::stod(measures.substr(measures.find(' ', segmental))), least) << measures;
  }
}

TEST_F(RoundTrip, SilenceCompressionSavesFramesAndKeepsTheLength) {
  std::vector<int16_t> samples = voice(16000);
  samples.resize(32000);
  store_wav(folder / "pause.wav", samples);
  run_well("kelg729f encode --annexb pause.wav pause.bit && kelg729f decode pause.bit out.wav");
  EXPECT_LT(contents(folder / "pause.bit").size(), 400u * 164 * 3 / 4);
  EXPECT_EQ(load_wav(folder / "out.wav").size(), 32000u);
  const Result info = run("kelg729f info pause.bit");
  EXPECT_NE(info.out.find("untransmitted"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("silence descriptor"), std::string::npos) << info.out;
}

TEST_F(RoundTrip, SeveralInputsGoIntoAFolder) {
  store_wav(folder / "other.wav", voice(800));
  run_well("kelg729f encode --rate 6.4 voice.wav other.wav streams");
  run_well("mkdir decoded && kelg729f decode streams/*.bit decoded");
  EXPECT_EQ(load_wav(folder / "decoded/voice.wav").size(), 16080u);
  EXPECT_EQ(load_wav(folder / "decoded/other.wav").size(), 800u);
  run_well("for to in new/ new; do kelg729f encode other.wav $to; mv new/other.g729 .; done");
  // One bad input does not keep the others from being done.
  store(folder / "bad.wav", "no sound");
  EXPECT_EQ(run("kelg729f encode bad.wav other.wav more").status, 3);
  EXPECT_FALSE(fs::exists(folder / "more/bad.g729"));
  EXPECT_EQ(contents(folder / "more/other.g729").size(), 100u);
}

TEST_F(RoundTrip, LossFollowsTheSeed) {
  run_well("kelg729f encode voice.wav voice.g729");
  for (const char* name : {"a.wav --seed 5", "b.wav --seed 5", "c.wav --seed 6"}) {
    const Result result =
        run(std::string("kelg729f decode --loss 20 --burst 3 voice.g729 ") + name);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find(" of 201 frames erased"), std::string::npos) << result.err;
  }
  EXPECT_EQ(contents(folder / "a.wav"), contents(folder / "b.wav"));
  EXPECT_NE(contents(folder / "a.wav"), contents(folder / "c.wav"));
  run_well(
      "kelg729f decode --loss 20 voice.g729 d.wav && kelg729f decode --loss 20 --seed 1 voice.g729 "
      "e.wav");
  EXPECT_EQ(contents(folder / "d.wav"), contents(folder / "e.wav"));
}

std::vector<int16_t> as_read(const fs::path& path) {
  const tool::InputFile input(path);
  tool::WavReader reader(input, tool::SoundForm::any);
  std::vector<int16_t> samples(reader.samples() + 1);
  samples.resize(reader.read(samples.data(), samples.size()));
  return samples;
}

// Tones below 3400 Hz are the same sound at every rate and number of channels.
TEST_F(RoundTrip, EveryRateAndNumberOfChannelsIsTaken) {
  const auto tones = [](int rate, int channels) {
    std::vector<int16_t> samples;
    for (int n = 0; n < rate; ++n) {
      const double t = 2 * std::numbers::pi * n / rate;
      const double value = 3000 * (std::sin(300 * t) + std::sin(1100 * t) + std::sin(2900 * t));
      // Their mean is the value.
      for (int c = 0; c < channels; ++c) {
        samples.push_back(static_cast<int16_t>(std::lrint(value + 900 * c - 450 * (channels - 1))));
      }
    }
    return samples;
  };
  const std::vector<int16_t> wanted = tones(8000, 1);
  for (const int rate : {8000, 11025, 16000, 44100, 48000}) {
    for (const int channels : {1, 2, 3}) {
      store_wav(folder / "other.wav", tones(rate, channels), rate, channels);
      const std::vector<int16_t> found = as_read(folder / "other.wav");
      ASSERT_NEAR(static_cast<double>(found.size()), 8000, rate != 8000) << rate;
      // The ends are steps, which no filter lets through.
      for (size_t n = 200; n < 7800; ++n) ASSERT_NEAR(found[n], wanted[n], 3) << rate << " " << n;
    }
  }
  for (const int coding : {SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
    store_wav(folder / "other.wav", wanted, 8000, 1, coding);
    EXPECT_EQ(as_read(folder / "other.wav"), wanted) << coding;
  }
  // What overshoots does not wrap.
  std::vector<int16_t> square(16000);
  for (size_t n = 0; n < square.size(); ++n) square[n] = n / 80 % 2 ? 32767 : -32768;
  store_wav(folder / "other.wav", square, 16000);
  const std::vector<int16_t> halved = as_read(folder / "other.wav");
  for (size_t n = 0; n < 7800; ++n) {
    ASSERT_TRUE(n % 40 % 38 < 2 || (halved[n] > 0) == (square[2 * n] > 0)) << n;
  }
  store_wav(folder / "other.wav", wanted, 8000, 1, SF_FORMAT_AU | SF_FORMAT_PCM_16);
  run_well("kelg729f encode other.wav other.g729");
  EXPECT_EQ(contents(folder / "other.g729").size(), 1000u);
}

TEST_F(RoundTrip, RawSamplesAreThoseOfAWav) {
  run_well("kelg729f encode voice.wav a.g729 && tail -c +45 voice.wav >voice.raw");
  run_well("kelg729f encode --raw voice.raw b.g729 && cmp a.g729 b.g729");
  run_well(
      "kelg729f decode a.g729 a.wav && kelg729f decode --raw --format g729 - - <a.g729 >b.raw");
  run_well("tail -c +45 a.wav | cmp - b.raw");
  const Result odd = run("printf abc | kelg729f encode --raw --format g729 - -");
  EXPECT_EQ(odd.status, 5);
  EXPECT_NE(odd.err.find("1 bytes are missing"), std::string::npos) << odd.err;
}

// Two inputs that never come hold both threads up, with files before and behind them; the run is
// killed there and done again.
TEST_F(RoundTrip, AKilledBatchIsResumed) {
  std::string inputs;
  run_well("mkdir in out whole");
  for (int i = 0; i < 12; ++i) {
    const std::string name = "in/" + std::to_string(100 + i) + ".wav";
    store_wav(folder / name, voice(static_cast<size_t>(4000 + 400 * i)));
    inputs += name + " ";
  }
  run_well("kelg729f encode -j 3 " + inputs + "whole");
  run_well("mv in/105.wav in/106.wav . && mkfifo in/105.wav in/106.wav");
  run_well("'" KELG729F_TOOL "' encode -j 2 " + inputs +
           "out & pid=$!; until [ -e out/104.g729 ]; do sleep 0.05; done; kill -9 $pid;"
           " wait $pid; rm in/105.wav in/106.wav; mv 105.wav 106.wav in/; ls -i out >before");
  EXPECT_GE(std::distance(fs::directory_iterator(folder / "out"), {}), 5);
  EXPECT_FALSE(fs::exists(folder / "out/107.g729"));
  const Result again = run("kelg729f encode -j 2 --resume " + inputs + "out");
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_NE(again.err.find(" of 12 outputs are there already"), std::string::npos) << again.err;
  run_well("diff -r out whole");
  // What was complete is what it was, and a changed input is coded again.
  run_well(
      "ls -i out >after; while read -r line; do grep -q \"$line\" after || exit; done <before");
  run_well("touch -r in/100.wav out/100.g729");
  EXPECT_EQ(run("kelg729f encode --resume " + inputs + "out").err,
            "kelg729f: 12 of 12 outputs are there already\n");
  EXPECT_EQ(run("mv in/111.wav . && kelg729f encode --resume " + inputs + "out").status, 3);
  run_well("mv 111.wav in/");
  store_wav(folder / "in/100.wav", voice(8000));
  run_well("touch -d '1 hour' in/100.wav && kelg729f encode --resume " + inputs + "out");
  EXPECT_EQ(contents(folder / "out/100.g729").size(), 1000u);
}

// Half the level and as late as is looked for: the difference is half the signal. The other way
// round it is as much as the signal.
TEST_F(RoundTrip, CompareMeasuresAKnownChange) {
  std::vector<int16_t> late(800);
  for (const int16_t sample : voice(16040)) late.push_back(static_cast<int16_t>(sample / 2));
  store_wav(folder / "late.wav", late);
  const std::pair<std::string, std::string> cases[] = {
      {"voice.wav late.wav", R"("delay_samples": 800, "snr_db": 6.02, "segmental_snr_db": 6.02, )"
                             R"("level_difference_db": -6.02, "log_spectral_distance_db": 6.02 })"},
      {"late.wav voice.wav", R"("delay_samples": -800, "snr_db": 0.0, "segmental_snr_db": 0.0, )"
                             R"("level_difference_db": 6.02, "log_spectral_distance_db": 6.02 })"}};
  for (const auto& [files, measures] : cases) {
    const std::string found = run("kelg729f compare --json " + files + " | tr -s ' \\n' ' '").out;
    EXPECT_TRUE(found.starts_with(R"({ "as_it_is": { )" + measures)) << found;
  }
  late.insert(late.begin(), 0);
  store_wav(folder / "late.wav", late);
  const std::string found = run("kelg729f compare --json voice.wav late.wav").out;
  EXPECT_EQ(found.find(": 801,"), std::string::npos) << found;
}

double energy(const int16_t* x, size_t count) {
  return std::inner_product(x, x + count, x, 0.0);
}

// Of the 32 ms from x on at the frequency of bin k.
double power(const int16_t* x, double k) {
  std::complex<double> sum;
  for (int n = 0; n < 256; ++n) {
    const double window = std::pow(std::sin(std::numbers::pi * (n + 0.5) / 256), 2);
    sum += window * x[n] * std::polar(1.0, -2 * std::numbers::pi * k * n / 256);
  }
  return std::norm(sum);
}

double decibel(double above, double below) {
  return 10 * std::log10((above + 1e-9) / (below + 1e-9));
}

// Against the definitions in quality.h, of noise that grows and fades and what is done to it.
TEST(Quality, IsMeasuredAsItIsDefined) {
  std::mt19937 random(1);
  for (const int loudest : {20000, 2}) {
    std::vector<int16_t> a, b, d;
    for (int n = 0; n < 8000; ++n) {
      const double level = loudest * std::pow(10, -3 * std::abs(n - 4000) / 4000.0);
      a.push_back(static_cast<int16_t>(std::lrint(level * (random() % 2001 / 1000.0 - 1))));
      b.push_back(static_cast<int16_t>(0.9 * a.back() + (n < 5000 ? n % 100 : 0) * level / 99));
      d.push_back(static_cast<int16_t>(a.back() - b.back()));
    }
    double most = 0, segmental = 0, spectral = 0, wanted = 0, found = 0, active = 0;
    for (size_t n = 0; n + 256 <= a.size(); n += 160) most = std::max(most, energy(&a[n], 160));
    for (size_t n = 0; n + 256 <= a.size(); n += 160) {
      if (energy(&a[n], 160) < 1e-4 * most) continue;
      double peak = 0, sum = 0, bins = 0;
      for (int k = 0; k < 128; ++k) peak = std::max(peak, power(&a[n], k));
      for (int k = 0; k < 128; ++k) {
        if (power(&a[n], k) < 1e-4 * peak) continue;
        sum += std::pow(decibel(power(&b[n], k) + 1, power(&a[n], k) + 1), 2);
        ++bins;
      }
      spectral += std::sqrt(sum / bins);
      segmental += std::clamp(decibel(energy(&a[n], 160), energy(&d[n], 160)), -10.0, 35.0);
      wanted += energy(&a[n], 160);
      found += energy(&b[n], 160);
      ++active;
    }
    const tool::Quality quality = tool::measure_quality(a, b);
    EXPECT_NEAR(quality.snr, decibel(energy(a.data(), 8000), energy(d.data(), 8000)), 1e-6);
    EXPECT_NEAR(quality.segmental, segmental / active, 1e-6);
    EXPECT_NEAR(quality.level, decibel(found, wanted), 1e-6);
    EXPECT_NEAR(quality.log_spectral, spectral / active, 1e-4);
    EXPECT_EQ(quality.active, active);
  }
}

// By the gain that their coefficients have for what is constant and at half the sampling rate.
TEST(Quality, TheHighPassFiltersAreTheCodecs) {
  std::vector<int16_t> constant(8000, 30000), turning(constant);
  for (size_t n = 0; n < turning.size(); n += 2) turning[n] = -30000;
  EXPECT_NEAR(tool::through_high_pass_filters(constant).back(), 3, 1);
  const double gain =
      4 * 0.92727436 / (1 + 1.9059465 + 0.9114024) * 4 * 0.93980581 / (1 + 1.9330735 + 0.93589199);
  EXPECT_NEAR(tool::through_high_pass_filters(turning).back(), 30000 * gain, 1);
}

TEST_F(RoundTrip, FiguresAreOnLines) {
  char line[100];
  for (const auto& [options, rating] :
       {std::pair(" --burst-ratio 1.5 --delay 200", g729_rating(0.05, 1.5, 200)),
        {"", g729_rating(0.05, 1, 0)}}) {
    std::snprintf(line, sizeof line, "R %.1f, MOS %.2f\n", rating.r, rating.mos);
    EXPECT_EQ(run(std::string("kelg729f rating --loss 5") + options).out, line);
  }
  EXPECT_EQ(run("kelg729f rating --json").out, "{\n  \"r\": 82.21,\n  \"mos\": 4.1\n}\n");
  std::snprintf(line, sizeof line, "\nSNR                      %10.2f ",
                decibel(energy(voice(16040).data(), 16040), 0));
  EXPECT_NE(run("kelg729f compare voice.wav voice.wav").out.find(line), std::string::npos);
}

// A bar is there from the first frame or file on, but not for each of them.
TEST_F(RoundTrip, ATerminalShowsProgress) {
  store_wav(folder / "4.wav", voice(320));
  const auto shown = [&](const std::string& arguments) {
    return run("script -qec \"" KELG729F_TOOL " " + arguments + "\" /dev/null").out;
  };
  const std::string quarter = " [##########" + std::string(30, ' ') + "]  25 %";
  for (const auto& [command, name] : {std::pair("encode 4.wav 4.g729", "4.wav"),
                                      {"encode 4.wav 4.bit", "4.wav"},
                                      {"decode 4.g729 x.wav", "4.g729"},
                                      {"decode 4.bit x.wav", "4.bit"}}) {
    EXPECT_TRUE(shown(command).starts_with("\r" + (name + quarter))) << command;
  }
  const std::string one = shown("encode voice.wav voice.g729");
  EXPECT_TRUE(one.find("  0 %") < 100 && one.ends_with("\r\033[K")) << one;
  EXPECT_LT(std::count(one.begin(), one.end(), '['), 100);
  EXPECT_EQ(shown("decode -j 2 4.g729 dir/"),
            "\r1 files [" + std::string(40, '#') + "] 100 %\r\033[K");
  EXPECT_NE(shown("decode 4.g729 -").find("standard output is a terminal"), std::string::npos);
}

TEST(Batch, ThreadsWorkAtATime) {
  std::barrier together(3);
  const auto wait = [&](size_t) { return together.arrive_and_wait(), tool::Exit::ok; };
  EXPECT_EQ(tool::for_each(6, 3, wait), tool::Exit::ok);
}

}  // namespace
}  // namespace test
