// Raw streams: a file of 10-byte frames and nothing else, pushed in pieces of whole frames.
//
// Such a stream comes in a segment of bytes and without timestamps. As a byte is a millisecond, the
// decoder knows the time of all that it holds: the segment is turned into one of time, and duration
// and seeks are asked for in bytes. A seek to any sample starts a little earlier in the file, for
// the decoder to settle; the segment cuts that off again.
#pragma once

#include <gst/audio/audio.h>

struct RawStream {
  gint active;  // the last segment was one of bytes; atomic

  // Under the object's lock: a seek comes from any thread, while data may be held up downstream.
  GstSegment segment;  // in time
  GstSegment wanted;   // what the last seek asked for, and its sequence number, or 0
  guint32 seek;
};

// A segment of time for one of bytes. Takes the event; sets the time at which its data begins.
GstEvent* raw_take_segment(GstAudioDecoder* base, RawStream& raw, GstEvent* event,
                           GstClockTime* begin);

// Both answer for the source pad while a raw stream is active; false when they have no answer.
bool raw_seek(GstAudioDecoder* base, RawStream& raw, GstEvent* event);
bool raw_query(GstAudioDecoder* base, GstQuery* query);
