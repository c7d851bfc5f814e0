#include "src/audio/g729f/timeline.h"

#include <algorithm>

namespace {

// To the nearest frame.
Time whole_frames(Time time) {
  return (time + kLineFrame / 2) / kLineFrame * kLineFrame;
}

bool new_time(const Timeline& line, Time pts) {
  const Time back = kMostBack + std::min(line.made, kMostMade);
  return line.end == kUnknown || pts > line.end + kMostMissing || pts < line.end - back;
}

// Packets that follow each other are left together a little longer than others.
Time least_correction(const Timeline& line) {
  return line.made > 0 ? kLineFrame / 2 : kLineFrame;
}

}  // namespace

void timeline_restart(Timeline& line) {
  const Time allowance = line.allowance;
  line = {};
  line.allowance = allowance;
}

Entry timeline_packet(Timeline& line, Time pts, Time duration, bool descriptor) {
  Entry entry{line.end, 0, 0};
  line.follows = pts != kUnknown;
  if (line.follows && new_time(line, pts)) {
    entry.begin = line.end = pts;
  } else if (line.follows) {
    const Time missing = pts - line.end;
    if (missing >= least_correction(line)) entry.fill = whole_frames(missing);
    if (-missing >= least_correction(line)) entry.cut = std::min(whole_frames(-missing), duration);
  }
  if (line.end != kUnknown) line.end += entry.fill + duration - entry.cut;
  if (entry.cut < duration) line.made = 0;
  line.silent = descriptor;
  line.told = kUnknown;
  return entry;
}

Entry timeline_gap(Timeline& line, Time pts, Time duration) {
  if (new_time(line, pts)) line.end = pts;
  Entry entry{line.end, 0, 0};
  if (line.silent) {
    line.told = std::max(line.told, pts + duration);
    return entry;
  }
  const Time missing = std::clamp<Time>(pts + duration - line.end, 0, kMostMissing);
  entry.fill = whole_frames(missing);
  line.end += entry.fill;
  line.made += entry.fill;
  return entry;
}

void timeline_skip(Timeline& line, Time pts, Time duration) {
  if (line.end != kUnknown) line.end = std::max(line.end, pts + std::min(duration, kMostMissing));
}

Time timeline_rest(Timeline& line) {
  const Time rest = line.told == kUnknown ? 0 : std::max<Time>(0, line.told - line.end);
  return whole_frames(std::min(rest, kMostMissing));
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
  line.made += kLineFrame;
}

void timeline_resume(Timeline& line, Time lost) {
  line.next += lost;
}

Time timeline_allowance(Time total, Time upstream) {
  return total < upstream ? upstream + kLineFrame : upstream + (total - upstream) / 2;
}
