#include "src/audio/g729f/events.h"

#include "src/audio/g729f/dtx.h"
#include "src/audio/g729f/fill.h"

namespace {

// What comes next has nothing to do with what came before. It begins at `time`, if that is known.
void restart(KelG729fDec* dec, GstClockTime time) {
  kel_g729f_dtx_cancel(dec);
  GST_AUDIO_DECODER_STREAM_LOCK(dec);
  g_mutex_lock(&dec->lock);
  timeline_restart(dec->line);
  g_mutex_unlock(&dec->lock);
  dec->begin = time;
  plc_reset(dec->plc);
  GST_AUDIO_DECODER_STREAM_UNLOCK(dec);
}

// Whether the segment is the one that the stream is in already.
bool is_unchanged(KelG729fDec* dec, const GstSegment& segment) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  if (!dec->in_segment || segment.format != GST_FORMAT_TIME) return false;
  GST_AUDIO_DECODER_STREAM_LOCK(base);
  GstSegment now = base->input_segment;
  GST_AUDIO_DECODER_STREAM_UNLOCK(base);
  now.position = segment.position;
  return gst_segment_is_equal(&now, &segment);
}

// Null when nothing is left to do.
GstEvent* take_segment(KelG729fDec* dec, GstEvent* event) {
  const GstSegment* segment;
  gst_event_parse_segment(event, &segment);
  // The base class would lose its place in the stream.
  if (is_unchanged(dec, *segment)) {
    gst_event_unref(event);
    return nullptr;
  }
  dec->in_segment = TRUE;
  GstClockTime begin = GST_CLOCK_TIME_NONE;
  const bool raw = segment->format == GST_FORMAT_BYTES;
  if (raw) event = raw_take_segment(GST_AUDIO_DECODER(dec), dec->raw, event, &begin);
  g_atomic_int_set(&dec->raw.active, raw);
  restart(dec, begin);
  return event;
}

// Whether a gap means lost packets: not if it says that it is none.
bool is_loss(GstEvent* gap) {
  if (!gst_structure_has_field(gst_event_get_structure(gap), "gap-flags")) return true;
  GstGapFlags flags = {};
  gst_event_parse_gap_flags(gap, &flags);
  return (flags & GST_GAP_FLAG_MISSING_DATA) != 0;
}

// Whether a gap shall become audio: a loss, or silence, which is noise then. The others are passed
// on, and those for which there is no segment.
bool take_gap(KelG729fDec* dec, GstEvent* gap) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  GstClockTime pts = GST_CLOCK_TIME_NONE, duration = GST_CLOCK_TIME_NONE;
  gst_event_parse_gap(gap, &pts, &duration);
  if (!gst_audio_decoder_get_plc(base) || !dec->in_segment) return false;
  if (kel_g729f_time(pts) == kUnknown || kel_g729f_time(duration) == kUnknown) return false;
  GST_AUDIO_DECODER_STREAM_LOCK(base);
  const bool taken = dec->plc.silent || is_loss(gap);
  g_mutex_lock(&dec->lock);
  if (!taken) timeline_skip(dec->line, kel_g729f_time(pts), kel_g729f_time(duration));
  g_mutex_unlock(&dec->lock);
  GST_AUDIO_DECODER_STREAM_UNLOCK(base);
  return taken;
}

// The stream is over: nothing may follow but what is known to be missing.
void finish(KelG729fDec* dec) {
  kel_g729f_dtx_cancel(dec);
  GST_AUDIO_DECODER_STREAM_LOCK(dec);
  kel_g729f_fill_rest(dec);
  GST_AUDIO_DECODER_STREAM_UNLOCK(dec);
  dec->in_segment = FALSE;
}

void take_latency(KelG729fDec* dec, GstEvent* event) {
  GstClockTime total = 0, upstream = 0;
  gst_event_parse_latency(event, &total);
  GstQuery* query = gst_query_new_latency();
  if (gst_pad_peer_query(GST_AUDIO_DECODER_SINK_PAD(dec), query)) {
    gboolean live = FALSE;
    gst_query_parse_latency(query, &live, &upstream, nullptr);
    if (!live) upstream = 0;
  }
  gst_query_unref(query);
  if (kel_g729f_time(total) == kUnknown || kel_g729f_time(upstream) == kUnknown) return;
  kel_g729f_dtx_set_allowance(dec,
                              timeline_allowance(kel_g729f_time(total), kel_g729f_time(upstream)));
}

}  // namespace

// Comfort noise ends where its stream ends: nothing may follow an end of stream, nor come between
// a flush and the segment after it.
GstEvent* kel_g729f_take_sink_event(KelG729fDec* dec, GstEvent* event) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_STREAM_START:
      dec->in_segment = FALSE;
      break;
    case GST_EVENT_FLUSH_STOP:
      dec->in_segment = FALSE;
      restart(dec, GST_CLOCK_TIME_NONE);
      break;
    case GST_EVENT_SEGMENT:
      return take_segment(dec, event);
    case GST_EVENT_SEGMENT_DONE:
      if (g_atomic_int_get(&dec->raw.active)) event = raw_take_segment_done(base, dec->raw, event);
      break;
    case GST_EVENT_FLUSH_START:
      kel_g729f_dtx_cancel(dec);
      break;
    case GST_EVENT_EOS:
      if (g_atomic_int_get(&dec->raw.active)) raw_end(base, dec->raw);
      finish(dec);
      break;
    case GST_EVENT_GAP:
      gst_audio_decoder_set_plc_aware(base, take_gap(dec, event));
      break;
    default:
      break;
  }
  return event;
}

GstEvent* kel_g729f_take_src_event(KelG729fDec* dec, GstEvent* event) {
  if (GST_EVENT_TYPE(event) == GST_EVENT_LATENCY) take_latency(dec, event);
  if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK && g_atomic_int_get(&dec->raw.active) &&
      raw_seek(GST_AUDIO_DECODER(dec), dec->raw, event)) {
    gst_clear_event(&event);
  }
  return event;
}
