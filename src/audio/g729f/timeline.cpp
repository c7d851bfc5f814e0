#include "src/audio/g729f/timeline.h"

#include <algorithm>

namespace {

// To the nearest sample.
Time whole_samples(Time time) {
  return (time + kLineSample / 2) / kLineSample * kLineSample;
}

bool new_time(const Timeline& line, Time pts) {
  return line.end == kUnknown || pts > line.end + kMostMissing || pts < line.end - kMostLate;
}

// Timestamps waver, and the sender's clock is not ours: packets that follow each other are left
// together while they are less than a frame apart.
Time least_correction(const Timeline& line) {
  return line.made ? 1 : kLineFrame;
}

}  // namespace

void timeline_restart(Timeline& line, Time begin) {
  const Time shift = line.shift, allowance = line.allowance;
  line = {};
  line.end = begin;
  line.shift = shift;
  line.allowance = allowance;
}

Entry timeline_packet(Timeline& line, Time pts, Time duration, bool descriptor) {
  Entry entry{line.end, 0, 0};
  line.follows = pts != kUnknown;
  if (line.follows && new_time(line, pts)) {
    entry.begin = line.end = pts;
  } else if (line.follows) {
    const Time missing = pts - line.end;
    if (missing >= least_correction(line)) entry.fill = whole_samples(missing);
    if (-missing >= least_correction(line)) entry.cut = std::min(whole_samples(-missing), duration);
  }
  if (line.end != kUnknown) line.end += entry.fill + duration - entry.cut;
  line.made = false;
  line.silent = descriptor;
  line.told = kUnknown;
  return entry;
}

Entry timeline_gap(Timeline& line, Time pts, Time duration) {
  duration = std::min(duration, kMostMissing);
  if (new_time(line, pts)) line.end = pts;
  Entry entry{line.end, 0, 0};
  const Time missing = pts + duration - line.end;
  if (line.silent) {
    line.told = std::max(line.told, pts + duration);
  } else if (missing > 0) {
    entry.fill = whole_samples(std::min(missing, kMostMissing));
    line.end += entry.fill;
    line.made = true;
  }
  return entry;
}

void timeline_skip(Timeline& line, Time pts, Time duration) {
  if (line.end != kUnknown) line.end = std::max(line.end, pts + std::min(duration, kMostMissing));
}

Time timeline_rest(Timeline& line) {
  const Time rest = line.told == kUnknown ? 0 : std::max<Time>(0, line.told - line.end);
  return whole_samples(std::min(rest, kMostMissing));
}

void timeline_begin_noise(Timeline& line, Time now) {
  line.next = now + kLineFrame;
}

Time timeline_due(const Timeline& line) {
  const bool known = line.follows && line.end != kUnknown && line.shift != kUnknown;
  if (!known || line.allowance == kUnknown) return line.next;
  return line.end + line.shift + line.allowance;
}

void timeline_noise(Timeline& line) {
  if (line.end != kUnknown) line.end += kLineFrame;
  line.next += kLineFrame;
  line.made = true;
}

void timeline_resume(Timeline& line, Time lost) {
  line.next += lost;
}

Time timeline_allowance(Time total, Time upstream) {
  return upstream < total ? upstream + (total - upstream) / 2 : total;
}
