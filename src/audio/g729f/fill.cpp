#include "src/audio/g729f/fill.h"

#include <algorithm>
#include <cstdint>

#include "src/audio/g729f/buffer_map.h"
#include "src/audio/g729f/frame.h"
#include "src/audio/g729f/plc.h"
#include "src/audio/g729f/stats.h"

#define GST_CAT_DEFAULT g729fdec

namespace {

static_assert(kLineFrame == Time{kFrameTime});

// What is made without a break: a second, so that the end of a stream is not far off.
constexpr gsize kMostFrames = GST_SECOND / kLineFrame;

GstClockTime clock_time(Time time) {
  return time == kUnknown ? GST_CLOCK_TIME_NONE : static_cast<GstClockTime>(time);
}

// The next of the frames that are missing, at most a second of them; null without memory. Counts
// them off.
GstBuffer* make_part(KelG729fDec* dec, gsize* frames) {
  const gsize count = std::min(*frames, kMostFrames);
  GstBuffer* part =
      gst_audio_decoder_allocate_output_buffer(GST_AUDIO_DECODER(dec), count * kPcmBytes);
  if (part && !kel_g729f_fill_buffer(dec, part)) gst_clear_buffer(&part);
  *frames -= count;
  return part;
}

gsize frames_of(Time time) {
  return static_cast<gsize>(time / kLineFrame);
}

// Pushes what is missing from `begin` on, as parts of what the base class takes for the frame
// `input`.
GstFlowReturn push(KelG729fDec* dec, GstBuffer* input, Time begin, Time missing) {
  gsize frames = frames_of(missing);
  if (frames > 0) GST_LOG_OBJECT(dec, "Making %" G_GSIZE_FORMAT " frames", frames);
  GstFlowReturn flow = GST_FLOW_OK;
  while (flow == GST_FLOW_OK && frames > 0) {
    GST_BUFFER_PTS(input) = clock_time(begin + missing - static_cast<Time>(frames) * kLineFrame);
    GstBuffer* part = make_part(dec, &frames);
    if (!part) return GST_FLOW_ERROR;
    flow = gst_audio_decoder_finish_subframe(GST_AUDIO_DECODER(dec), part);
  }
  return flow;
}

// Where the segment puts the stream into running time; a plain one only.
Time shift_of(const GstSegment& segment) {
  if (segment.format != GST_FORMAT_TIME || segment.rate != 1) return kUnknown;
  return kel_g729f_time(segment.base) - static_cast<Time>(segment.start) -
         static_cast<Time>(segment.offset);
}

}  // namespace

Time kel_g729f_time(GstClockTime time) {
  constexpr GstClockTime most = INT64_MAX / 4;
  return time <= most ? static_cast<Time>(time) : kUnknown;
}

bool kel_g729f_fill_buffer(KelG729fDec* dec, GstBuffer* buffer) {
  const BufferMap out(buffer, GST_MAP_WRITE);
  const gsize frames = out.size() / kPcmBytes;
  if (!dec->plc.silent && dec->plc.lost == 0 && frames > 0) stats_add(dec->stats.loss_events);
  plc_fill(dec->plc, dec->decoder, out.data(), frames);
  stats_add(dec->plc.silent ? dec->stats.comfort_noise : dec->stats.concealed, frames);
  stats_raise(dec->stats.longest_loss, dec->plc.lost / G729_FRAME_SAMPLES);
  return frames > 0;
}

GstFlowReturn kel_g729f_finish_noise(KelG729fDec* dec, GstBuffer* noise, Time begin) {
  dec->stamp = clock_time(begin);
  g_atomic_pointer_set(&dec->finisher, g_thread_self());
  const GstFlowReturn flow = gst_audio_decoder_finish_frame(GST_AUDIO_DECODER(dec), noise, 1);
  g_atomic_pointer_set(&dec->finisher, nullptr);
  dec->stamp = GST_CLOCK_TIME_NONE;
  return flow;
}

GstFlowReturn kel_g729f_fill_before(KelG729fDec* dec, GstBuffer* packet, gsize frames,
                                    bool descriptor, gsize* cut) {
  const GstSegment& segment = GST_AUDIO_DECODER(dec)->input_segment;
  g_mutex_lock(&dec->lock);
  dec->line.shift = shift_of(segment);
  const Entry entry = timeline_packet(dec->line, kel_g729f_time(GST_BUFFER_PTS(packet)),
                                      static_cast<Time>(frames * kFrameTime), descriptor);
  g_mutex_unlock(&dec->lock);
  *cut = frames_of(entry.cut) * kPcmBytes;
  const GstFlowReturn flow = push(dec, packet, entry.begin, entry.fill);
  if (entry.begin != kUnknown) GST_BUFFER_PTS(packet) = clock_time(entry.begin + entry.fill);
  return flow;
}

GstFlowReturn kel_g729f_fill_gap(KelG729fDec* dec, GstBuffer* gap) {
  const Time pts = kel_g729f_time(GST_BUFFER_PTS(gap));
  const Time duration = kel_g729f_time(GST_BUFFER_DURATION(gap));
  if (pts == kUnknown || duration == kUnknown) return GST_FLOW_OK;
  g_mutex_lock(&dec->lock);
  const Entry entry = timeline_gap(dec->line, pts, duration);
  g_mutex_unlock(&dec->lock);
  return push(dec, gap, entry.begin, entry.fill);
}

void kel_g729f_fill_rest(KelG729fDec* dec) {
  g_mutex_lock(&dec->lock);
  const Time rest = timeline_rest(dec->line), end = dec->line.end + rest;
  g_mutex_unlock(&dec->lock);
  gsize frames = frames_of(rest);
  GstFlowReturn flow = GST_FLOW_OK;
  while (flow == GST_FLOW_OK && frames > 0) {
    const Time begin = end - static_cast<Time>(frames) * kLineFrame;
    GstBuffer* part = make_part(dec, &frames);
    if (!part) return;
    flow = kel_g729f_finish_noise(dec, part, begin);
  }
}
