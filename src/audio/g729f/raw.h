// Raw streams: a file of 10-byte frames and nothing else, pushed in pieces of any size.
//
// Such a stream comes in a segment of bytes and without timestamps. As a byte is a millisecond, the
// decoder knows the time of all that it holds: the segment is turned into one of time, and duration
// and seeks are asked for in bytes. A seek to any sample starts a little earlier in the file, for
// the decoder to settle; the segment cuts that off again.
//
// What is not a file (a socket, an application) may send packets in a segment of bytes. There a
// piece of 10 n + 2 bytes ends in a descriptor, unless it goes on from a frame that was cut.
#pragma once

#include <gst/audio/audio.h>

struct RawStream {
  gint active;  // the last segment was one of bytes; atomic

  // Of the streaming thread.
  bool sized;  // upstream knows the stream's length: a file
  gsize kept;  // bytes of a frame that is not complete

  // Under the object's lock: a seek comes from any thread, while data may be held up downstream.
  GstSegment segment;  // in time; its position is the end of what downstream has taken
  GstSegment wanted;   // what the last seek asked for, and its sequence number, or 0
  guint32 seek;
};

// A segment of time for one of bytes. Takes the event; sets the time at which its data begins.
GstEvent* raw_take_segment(GstAudioDecoder* base, RawStream& raw, GstEvent* event,
                           GstClockTime* begin);

// The same for the end of a segment that was asked for with GST_SEEK_FLAG_SEGMENT. The application
// is told in time, too.
GstEvent* raw_take_segment_done(GstAudioDecoder* base, RawStream& raw, GstEvent* event);

// How many of the available bytes are to be decoded now; 0 for none.
gsize raw_parse(RawStream& raw, gsize available);

// The stream has ended. Warns on the bus when it ended within a frame.
void raw_end(GstAudioDecoder* base, RawStream& raw);

// Downstream has taken all output so far.
void raw_note_played(GstAudioDecoder* base, RawStream& raw);

// Both answer for the source pad while a raw stream is active; false when they have no answer.
bool raw_seek(GstAudioDecoder* base, RawStream& raw, GstEvent* event);
bool raw_query(GstAudioDecoder* base, GstQuery* query);
