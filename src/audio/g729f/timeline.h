// When audio is due that no packet brings, and where a packet's audio belongs.
//
// There are two receivers. One goes by the clock alone: noise is due 10 ms, 20 ms ... after a
// descriptor, and nothing here looks at timestamps. The other follows the packets' timestamps:
//
//   packets   | speech |   (lost)   | speech |SID|                 | speech |
//   output    | speech | concealed  | speech |SID| noise | noise |...| speech |
//                                                ^end    ^+ allowance: due
//
// - Audio has no holes and no overlaps: every piece begins at `end`, where the last one ended.
// - All audio comes in frames, as the sender's did. What is missing before a packet is made first,
//   to the nearest frame; what of a packet comes too late, because its time is already filled, is
//   cut off likewise. Timestamps waver by less than that, and the sender's clock is not ours.
// - So a packet's audio begins within half a frame of its timestamp where something was made before
//   it, and within a frame where packets follow each other.
// - `end` is what the timestamps say, to within a frame: the audio made is the time passed.
// - Noise for a moment is due at that moment plus what the pipeline allows, never by arrival. As
//   long as no latency or no timestamps are known, it is due by the clock alone.
// - A timestamp so far off that no loss explains it begins a new time, at which `end` starts again.
//
// Times are nanoseconds: of the stream (timestamps) or of the pipeline (running time). Nothing here
// calls GStreamer or the codec, waits or locks.
#pragma once

#include <cstdint>

using Time = std::int64_t;

constexpr Time kUnknown = INT64_MIN;
constexpr Time kMillisecond = 1000000;
constexpr Time kLineFrame = 10 * kMillisecond;

// The longest silence or loss that is filled. How far a timestamp may go back behind the packets
// before, and how much of the audio made since may be the reason for it: a jitter buffer holds
// packets for seconds when one is lost near a silence.
constexpr Time kMostMissing = 3600000 * kMillisecond;
constexpr Time kMostBack = 1000 * kMillisecond;
constexpr Time kMostMade = 10000 * kMillisecond;

struct Timeline {
  Time end = kUnknown;        // of the audio made; unknown until a timestamp has come
  Time told = kUnknown;       // up to where gaps in silence have said that nothing will come
  bool follows = false;       // the last packet had a timestamp
  bool silent = false;        // the last packet ended with a descriptor
  Time made = 0;              // audio made since a packet's audio came last
  Time next = kUnknown;       // the running time at which noise is due by the clock alone
  Time shift = kUnknown;      // running time less stream time
  Time allowance = kUnknown;  // how long after its running time audio may be made
};

// What to do for a packet, in this order; whole frames, none of them negative.
struct Entry {
  Time begin;  // timestamp of what comes out first, or unknown
  Time fill;   // to be made before the packet
  Time cut;    // off the beginning of the packet's audio
};

// Forgets the stream, not the pipeline.
void timeline_restart(Timeline& line);

// A packet with a timestamp or none, whose audio lasts `duration`, and whether it ends with a
// descriptor.
Entry timeline_packet(Timeline& line, Time pts, Time duration, bool descriptor);

// A loss, or a gap in silence, that somebody has told of. `cut` is 0; in silence `fill` is, too:
// noise has its own time.
Entry timeline_gap(Timeline& line, Time pts, Time duration);

// A stretch that shall stay without audio.
void timeline_skip(Timeline& line, Time pts, Time duration);

// The stream ends: what gaps in silence have told of and has not been made.
Time timeline_rest(Timeline& line);

// Noise begins at this running time. A frame of it is due at the running time that timeline_due
// answers; timeline_noise says that it was made.
void timeline_begin_noise(Timeline& line, Time now);
Time timeline_due(const Timeline& line);
void timeline_noise(Timeline& line);

// Running time went on by `lost` while nothing was to be made.
void timeline_resume(Timeline& line, Time lost);

// The allowance in a pipeline whose latency is `total`, of which `upstream` passes before a packet
// is here: half of the rest is left to what comes after. A total that is less than that means that
// no sink waits for the clock; then a frame more does no harm.
Time timeline_allowance(Time total, Time upstream);
