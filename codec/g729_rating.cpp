// The E-model of ITU-T G.107, its letters and clauses, at the default values of Table 2.
#include "codec/g729_rating.h"

#include <algorithm>
#include <cmath>

namespace {

// dB and dBm, except qdu.
constexpr double kSlr = 8, kRlr = 2, kStmr = 15, kLstr = 18, kDs = 3;
constexpr double kTelr = 65, kWepl = 110, kQdu = 1, kNc = -70, kNfor = -64, kPs = 35, kPr = 35;
constexpr double kOlr = kSlr + kRlr;
constexpr double kAdvantage = 0;
constexpr double kIe = 11, kBpl = 19;

double power(double level) {
  return std::pow(10, level / 10);
}

double level(double power) {
  return 10 * std::log10(power);
}

double root_sum(double x, double exponent) {
  return std::pow(1 + std::pow(x, exponent), 1 / exponent);
}

// 7.2, all noise at the 0 dBr point.
double noise() {
  const double send = kPs - kSlr - kDs - 100 + 0.004 * std::pow(kPs - kOlr - kDs - 14, 2);
  const double room = kPr + level(1 + power(10 - kLstr));
  const double receive = kRlr - 121 + room + 0.008 * std::pow(room - 35, 2);
  const double floor = kNfor + kRlr;
  return level(power(kNc) + power(send) + power(receive) + power(floor));
}

// 7.3: what comes with the voice. `delay` is the mean one, ms.
double simultaneous(double ro, double no, double delay) {
  const double x = (kOlr + 0.2 * (64 + no - kRlr)) / 8;
  const double loudness = 20 * (root_sum(x, 8) - x);
  const double stmr = -level(power(-kStmr) + std::exp(-delay / 4) * power(-kTelr));
  const double sidetone = 12 * root_sum((stmr - 13) / 6, 8) - 28 * root_sum((stmr + 1) / 19.4, 35) -
                          13 * root_sum((stmr - 3) / 33, 13) + 29;
  const double q = 37 - level(std::pow(kQdu, 1.5));
  const double g = 1.07 + 0.258 * q + 0.0602 * q * q;
  const double y = (ro - 100) / 15 + 46 / 8.4 - g / 9, z = 46.0 / 30 - g / 40;
  return loudness + sidetone + 1.5 * level(1 + std::pow(10, y) + std::pow(10, z));
}

// 7.4: talker echo, listener echo, and delay alone.
double delayed(double ro, double no, double delay) {
  const double terv = kTelr - 40 * std::log10((1 + delay / 10) / (1 + delay / 150)) +
                      6 * std::exp(-0.3 * delay * delay);
  const double talker = (-1.5 * (no - kRlr) - (80 + 2.5 * (terv - 14))) / 2;
  const double talker_echo = (talker + std::hypot(talker, 10) - 1) * (1 - std::exp(-delay));
  const double listener = (ro - 10.5 * (kWepl + 7) * std::pow(2 * delay + 1, -0.25)) / 2;
  const double listener_echo = listener + std::hypot(listener, 13);
  if (delay <= 100) return talker_echo + listener_echo;
  const double x = std::log2(delay / 100);
  return talker_echo + listener_echo + 25 * (root_sum(x, 6) - 3 * root_sum(x / 3, 6) + 2);
}

// 7.5, `loss` in per cent.
double equipment(double loss, double burst_ratio) {
  return kIe + (95 - kIe) * loss / (loss / burst_ratio + kBpl);
}

// Annex B.
double opinion(double r) {
  r = std::clamp(r, 0.0, 100.0);
  return std::max(1.0, 1 + 0.035 * r + r * (r - 60) * (100 - r) * 7e-6);
}

}  // namespace

G729Rating g729_rating(double loss, double burst_ratio, double delay) {
  // What is no number compares as false and becomes the least.
  loss = loss > 0 ? std::min(loss, 1.0) : 0;
  burst_ratio = burst_ratio > 0 && loss > 0 ? burst_ratio : 1;
  delay = delay > 0 ? std::min(delay, 1e6) : 0;
  const double no = noise(), ro = 15 - 1.5 * (kSlr + no);
  const double r = ro - simultaneous(ro, no, delay) - delayed(ro, no, delay) -
                   equipment(100 * loss, burst_ratio) + kAdvantage;
  return {r, opinion(r)};
}
