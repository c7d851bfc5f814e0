#include "src/audio/g729f/raw.h"

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

// Applies the seek to the segment; false when it is not for us.
bool wanted_segment(GstEvent* event, GstSegment* segment) {
  gdouble rate;
  GstFormat format;
  GstSeekFlags flags;
  GstSeekType start_type, stop_type;
  gint64 start, stop;
  gst_event_parse_seek(event, &rate, &format, &flags, &start_type, &start, &stop_type, &stop);
  if (format != GST_FORMAT_TIME || rate <= 0) return false;
  return gst_segment_do_seek(segment, rate, format, flags, start_type, static_cast<guint64>(start),
                             stop_type, static_cast<guint64>(stop), nullptr);
}

GstEvent* bytes_seek(GstEvent* event, const GstSegment& wanted) {
  gdouble rate;
  GstSeekFlags flags;
  gst_event_parse_seek(event, &rate, nullptr, &flags, nullptr, nullptr, nullptr, nullptr);
  const guint64 first = frame_at(wanted.start);
  constexpr guint64 settle = kSettleFrames * G729_SPEECH_BYTES;
  const bool stops = GST_CLOCK_TIME_IS_VALID(wanted.stop);
  GstEvent* seek = gst_event_new_seek(rate, GST_FORMAT_BYTES, flags, GST_SEEK_TYPE_SET,
                                      static_cast<gint64>(first > settle ? first - settle : 0),
                                      stops ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE,
                                      stops ? static_cast<gint64>(frame_after(wanted.stop)) : -1);
  gst_event_set_seqnum(seek, gst_event_get_seqnum(event));
  return seek;
}

}  // namespace

GstEvent* raw_take_segment(GstAudioDecoder* base, RawStream& raw, GstEvent* event,
                           GstClockTime* begin) {
  const GstSegment* bytes;
  gst_event_parse_segment(event, &bytes);
  GstSegment time;
  gst_segment_init(&time, GST_FORMAT_TIME);
  time.flags = bytes->flags;
  time.rate = bytes->rate;
  time.applied_rate = bytes->applied_rate;
  time.base = time_of(bytes->base);
  time.start = *begin = time_of(bytes->start);
  time.stop = time_of(bytes->stop);
  GST_OBJECT_LOCK(base);
  if (raw.seek == gst_event_get_seqnum(event)) {
    time.start = raw.wanted.start;
    time.stop = raw.wanted.stop;
  }
  time.time = time.position = time.start;
  raw.segment = time;
  GST_OBJECT_UNLOCK(base);

  GstEvent* converted = gst_event_new_segment(&time);
  gst_event_set_seqnum(converted, gst_event_get_seqnum(event));
  gst_event_unref(event);
  return converted;
}

bool raw_seek(GstAudioDecoder* base, RawStream& raw, GstEvent* event) {
  const GstClockTime total = duration(base);
  GST_OBJECT_LOCK(base);
  GstSegment wanted = raw.segment;
  wanted.duration = total;
  const bool possible = wanted_segment(event, &wanted);
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
