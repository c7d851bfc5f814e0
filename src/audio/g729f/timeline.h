// The decoder's output against its input's timestamps.
//
// Comfort noise is made by the clock, before anybody knows how long the silence lasts. So when a
// buffer ends it, the output may already reach past that buffer's timestamp: by one frame when
// both fall on the same tick, by more when the network was late.
//
//   output   | SID | noise | noise | noise | speech ...
//   input    | SID |       |       | speech ...
//                                  ^pts    ^end       lead = end - pts
//
// Speech is then neither cut nor stamped with a time that has gone: it follows on from the noise,
// and the next run of comfort noise starts later by the lead, which brings it back to nothing.
// Everything here is guarded by the base class's stream lock.
#pragma once

#include <gst/gst.h>

#include "src/audio/g729f/frame.h"

struct Timeline {
  GstClockTime end;   // of the output; none until a timestamp has come in
  GstClockTime lead;  // how far comfort noise may have put the output ahead of the input
};

inline void timeline_reset(Timeline& line) {
  line = {GST_CLOCK_TIME_NONE, 0};
}

inline void timeline_add(Timeline& line, GstClockTime duration) {
  if (GST_CLOCK_TIME_IS_VALID(line.end)) line.end += duration;
}

inline void timeline_add_noise(Timeline& line) {
  timeline_add(line, kFrameTime);
  line.lead += kFrameTime;
}

// Returns the timestamp at which the output of a buffer with timestamp `pts` (or none) begins, or
// none if nothing is known. The base class stamps the output with it, unless the buffer is within
// the application's `tolerance` of where the last one ended.
inline GstClockTime timeline_enter(Timeline& line, GstClockTime pts, GstClockTime tolerance) {
  if (!GST_CLOCK_TIME_IS_VALID(pts)) return line.end;
  if (GST_CLOCK_TIME_IS_VALID(line.end)) {
    const GstClockTimeDiff ahead = GST_CLOCK_DIFF(pts, line.end);
    // A frame's grace: the sender's clock is not ours.
    const auto most = static_cast<GstClockTimeDiff>(line.lead > 0 ? line.lead + kFrameTime : 0);
    if (ahead > 0 && ahead <= most) {
      line.lead = static_cast<GstClockTime>(ahead);
      return line.end;
    }
    line.lead = 0;
    if (static_cast<GstClockTime>(ABS(ahead)) <= tolerance) return pts;
  }
  line.end = pts;
  line.lead = 0;
  return pts;
}
