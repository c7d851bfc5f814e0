#include "src/audio/g729f/raw.h"

#include <algorithm>

#include "codec/g729.h"
#include "src/audio/g729f/frame.h"

namespace {

constexpr guint64 kSettleFrames = 10;

GstClockTime time_of(guint64 bytes) {
  return bytes == GST_BUFFER_OFFSET_NONE ? GST_CLOCK_TIME_NONE
                                         : bytes / G729_SPEECH_BYTES * kFrameTime;
}

// In bytes, the first of the frame that holds this time.
guint64 frame_at(GstClockTime time) {
  return time / kFrameTime * G729_SPEECH_BYTES;
}

guint64 frame_after(GstClockTime time) {
  return frame_at(time + kFrameTime - 1);
}

GstClockTime duration(GstAudioDecoder* base) {
  gint64 bytes = -1;
  const bool known = gst_pad_peer_query_duration(base->sinkpad, GST_FORMAT_BYTES, &bytes);
  return known && bytes >= 0 ? time_of(static_cast<guint64>(bytes)) : GST_CLOCK_TIME_NONE;
}

bool seekable(GstAudioDecoder* base) {
  gboolean can = FALSE;
  GstQuery* query = gst_query_new_seeking(GST_FORMAT_BYTES);
  if (gst_pad_peer_query(base->sinkpad, query)) {
    gst_query_parse_seeking(query, nullptr, &can, nullptr, nullptr);
  }
  gst_query_unref(query);
  return can;
}

struct Seek {
  gdouble rate;
  GstFormat format;
  GstSeekFlags flags;
  GstSeekType start_type, stop_type;
  gint64 start, stop;

  explicit Seek(GstEvent* event) {
    gst_event_parse_seek(event, &rate, &format, &flags, &start_type, &start, &stop_type, &stop);
  }
};

bool do_seek(GstSegment* segment, const Seek& seek, gint64 stop) {
  return gst_segment_do_seek(segment, seek.rate, seek.format, seek.flags, seek.start_type,
                             static_cast<guint64>(seek.start), GST_SEEK_TYPE_SET,
                             static_cast<guint64>(stop), nullptr);
}

// Where the seek wants `segment` to stop, or -1.
gint64 wanted_stop(const Seek& seek, const GstSegment& segment) {
  if (seek.stop_type == GST_SEEK_TYPE_SET) return seek.stop;
  if (seek.stop_type == GST_SEEK_TYPE_END && GST_CLOCK_TIME_IS_VALID(segment.duration)) {
    return std::max<gint64>(0, static_cast<gint64>(segment.duration) + seek.stop);
  }
  return static_cast<gint64>(segment.stop);
}

// Applies the seek to the segment; false when it is not for us.
bool wanted_segment(Seek seek, GstSegment* segment) {
  if (seek.format != GST_FORMAT_TIME || seek.rate <= 0) return false;
  if (seek.start_type == GST_SEEK_TYPE_NONE) {
    seek.start_type = GST_SEEK_TYPE_SET;
    seek.start = static_cast<gint64>(segment->position);
  }
  const gint64 stop = wanted_stop(seek, *segment);
  if (!do_seek(segment, seek, -1)) return false;
  if (stop == -1) return true;
  // A stop before the start is an error where it was asked for; one that was kept has had its day.
  if (stop < static_cast<gint64>(segment->start)) return seek.stop_type == GST_SEEK_TYPE_NONE;
  return do_seek(segment, seek, stop);
}

GstEvent* bytes_seek(GstEvent* event, const GstSegment& wanted) {
  const Seek asked(event);
  const guint64 first = frame_at(wanted.start);
  constexpr guint64 settle = kSettleFrames * G729_SPEECH_BYTES;
  const bool stops = GST_CLOCK_TIME_IS_VALID(wanted.stop);
  GstEvent* seek = gst_event_new_seek(asked.rate, GST_FORMAT_BYTES, asked.flags, GST_SEEK_TYPE_SET,
                                      static_cast<gint64>(first > settle ? first - settle : 0),
                                      GST_SEEK_TYPE_SET,
                                      stops ? static_cast<gint64>(frame_after(wanted.stop)) : -1);
  gst_event_set_seqnum(seek, gst_event_get_seqnum(event));
  return seek;
}

// What the last seek asked for; its running time goes on from what has been played, if nothing was
// flushed.
GstSegment sought_segment(const RawStream& raw) {
  GstSegment time = raw.wanted;
  if (!(time.flags & GST_SEGMENT_FLAG_RESET)) {
    time.base = gst_segment_to_running_time(&raw.segment, GST_FORMAT_TIME, raw.segment.position);
  }
  return time;
}

GstSegment plain_segment(const GstSegment& bytes) {
  GstSegment time;
  gst_segment_init(&time, GST_FORMAT_TIME);
  time.flags = bytes.flags;
  time.rate = bytes.rate;
  time.applied_rate = bytes.applied_rate;
  time.base = time_of(bytes.base);
  time.start = time.time = time.position = time_of(bytes.start);
  time.stop = time_of(bytes.stop);
  return time;
}

// Posts a message about `event`'s segment.
void tell(GstAudioDecoder* base, GstMessage* message, GstEvent* event) {
  gst_message_set_seqnum(message, gst_event_get_seqnum(event));
  gst_element_post_message(GST_ELEMENT(base), message);
}

}  // namespace

GstEvent* raw_take_segment(GstAudioDecoder* base, RawStream& raw, GstEvent* event,
                           GstClockTime* begin) {
  const GstSegment* bytes;
  gst_event_parse_segment(event, &bytes);
  *begin = time_of(bytes->start);
  raw.kept = 0;
  raw.sized = GST_CLOCK_TIME_IS_VALID(duration(base));
  GST_OBJECT_LOCK(base);
  const bool sought = raw.seek == gst_event_get_seqnum(event);
  const GstSegment time = raw.segment = sought ? sought_segment(raw) : plain_segment(*bytes);
  GST_OBJECT_UNLOCK(base);

  GstEvent* converted = gst_event_new_segment(&time);
  gst_event_set_seqnum(converted, gst_event_get_seqnum(event));
  gst_event_unref(event);
  if (time.flags & GST_SEGMENT_FLAG_SEGMENT) {
    const auto start = static_cast<gint64>(time.start);
    tell(base, gst_message_new_segment_start(GST_OBJECT(base), GST_FORMAT_TIME, start), converted);
  }
  return converted;
}

GstEvent* raw_take_segment_done(GstAudioDecoder* base, RawStream& raw, GstEvent* event) {
  GST_OBJECT_LOCK(base);
  const GstClockTime stop = raw.segment.stop;
  GST_OBJECT_UNLOCK(base);
  const auto end = static_cast<gint64>(GST_CLOCK_TIME_IS_VALID(stop) ? stop : duration(base));
  GstEvent* converted = gst_event_new_segment_done(GST_FORMAT_TIME, end);
  gst_event_set_seqnum(converted, gst_event_get_seqnum(event));
  gst_event_unref(event);
  tell(base, gst_message_new_segment_done(GST_OBJECT(base), GST_FORMAT_TIME, end), converted);
  return converted;
}

gsize raw_parse(RawStream& raw, gsize available) {
  const gsize rest = available % G729_SPEECH_BYTES;
  if (rest == G729_SID_BYTES && !raw.sized && raw.kept == 0) return available;
  raw.kept = rest;
  return available - rest;
}

void raw_end(GstAudioDecoder* base, RawStream& raw) {
  if (raw.kept == 0) return;
  GST_ELEMENT_WARNING(base, STREAM, DECODE, ("The stream ends within a frame."),
                      ("%" G_GSIZE_FORMAT " bytes are left over", raw.kept));
  raw.kept = 0;
}

void raw_note_played(GstAudioDecoder* base, RawStream& raw) {
  GST_OBJECT_LOCK(base);
  GstSegment& segment = raw.segment;  // one without a stop has the greatest number there
  segment.position = std::clamp(base->output_segment.position, segment.start, segment.stop);
  GST_OBJECT_UNLOCK(base);
}

bool raw_seek(GstAudioDecoder* base, RawStream& raw, GstEvent* event) {
  const GstClockTime total = duration(base);
  GST_OBJECT_LOCK(base);
  GstSegment wanted = raw.segment;
  wanted.duration = total;
  const bool possible = wanted_segment(Seek(event), &wanted);
  if (possible) {
    raw.seek = gst_event_get_seqnum(event);
    raw.wanted = wanted;
  }
  GST_OBJECT_UNLOCK(base);
  return possible && gst_pad_push_event(base->sinkpad, bytes_seek(event, wanted));
}

bool raw_query(GstAudioDecoder* base, GstQuery* query) {
  GstFormat format;
  switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_DURATION: {
      gst_query_parse_duration(query, &format, nullptr);
      const GstClockTime time = duration(base);
      if (format != GST_FORMAT_TIME || !GST_CLOCK_TIME_IS_VALID(time)) return false;
      gst_query_set_duration(query, format, static_cast<gint64>(time));
      return true;
    }
    case GST_QUERY_SEEKING:
      gst_query_parse_seeking(query, &format, nullptr, nullptr, nullptr);
      if (format != GST_FORMAT_TIME) return false;
      gst_query_set_seeking(query, format, seekable(base), 0, static_cast<gint64>(duration(base)));
      return true;
    default:
      return false;
  }
}
