#include "src/audio/g729f/plc.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "src/audio/g729f/buffer_map.h"
#include "src/audio/g729f/dec.h"

#define GST_CAT_DEFAULT g729fdec
GST_DEBUG_CATEGORY_EXTERN(g729fdec);

namespace {

constexpr GstClockTime kSampleTime = kFrameTime / G729_FRAME_SAMPLES;
static_assert(kSampleTime * G729_FRAME_SAMPLES == kFrameTime);

// In samples of loss: where the fade begins, and where nothing is left.
constexpr gsize kFadeBegin = 60 * GST_MSECOND / kSampleTime;
constexpr gsize kFadeEnd = 100 * GST_MSECOND / kSampleTime;

// A long loss is made in buffers of a second.
constexpr gsize kMostSamples = GST_SECOND / kSampleTime;

double energy(const gint16* frame) {
  double sum = 0;
  for (gsize n = 0; n < G729_FRAME_SAMPLES; n++) sum += static_cast<double>(frame[n]) * frame[n];
  return sum;
}

// An erased speech frame at 8 kbit/s: every bit is 0.
void decode_erased(G729DecoderState* decoder, gint16* frame) {
  guint16 serial[G729_SERIAL_WORDS] = {G729_SERIAL_SYNC, G729_SPEECH_BYTES * 8};
  g729_decoder_decode_serial(decoder, serial, frame);
}

double fade(gsize position) {
  if (position < kFadeBegin) return 1;
  if (position >= kFadeEnd) return 0;
  return static_cast<double>(kFadeEnd - position) / double{kFadeEnd - kFadeBegin};
}

// Brings the frame down to the louder one of the last two good ones, and fades it.
void attenuate(Concealment& plc) {
  const double most = std::max(energy(plc.recent), energy(plc.recent + G729_FRAME_SAMPLES));
  const double now = energy(plc.frame);
  const double gain = now > most ? std::sqrt(most / now) : 1;
  for (gsize n = 0; n < G729_FRAME_SAMPLES; n++) {
    plc.frame[n] = static_cast<gint16>(plc.frame[n] * gain * fade(plc.lost + n));
  }
}

// What is silent already does not ask the codec.
void make_frame(Concealment& plc, G729DecoderState* decoder) {
  if (plc.lost < kFadeEnd) {
    decode_erased(decoder, plc.frame);
    attenuate(plc);
  } else {
    std::fill(std::begin(plc.frame), std::end(plc.frame), gint16{0});
  }
  plc.lost += G729_FRAME_SAMPLES;
  plc.left = G729_FRAME_SAMPLES;
}

// A buffer of the next `samples`, or none.
GstBuffer* make_buffer(KelG729fDec* dec, gsize samples) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  GstBuffer* buffer = gst_audio_decoder_allocate_output_buffer(base, samples * sizeof(gint16));
  if (!buffer) return nullptr;
  {
    const BufferMap out(buffer, GST_MAP_WRITE);
    if (out.size() == samples * sizeof(gint16)) {
      stats_add(dec->stats.concealed, plc_fill(dec->plc, dec->decoder, out.data(), samples));
      timeline_add(dec->timeline, samples * kSampleTime);
      return buffer;
    }
  }
  gst_buffer_unref(buffer);
  return nullptr;
}

// Pushes the next `samples` of the loss, as a part of what the base class takes for a frame.
GstFlowReturn push(KelG729fDec* dec, gsize samples) {
  GstFlowReturn flow = GST_FLOW_OK;
  while (flow == GST_FLOW_OK && samples > 0) {
    const gsize count = std::min(samples, kMostSamples);
    GstBuffer* part = make_buffer(dec, count);
    flow = part ? gst_audio_decoder_finish_subframe(GST_AUDIO_DECODER(dec), part) : GST_FLOW_ERROR;
    samples -= count;
  }
  return flow;
}

// How much is missing between the last output and a packet; silence is, too.
GstClockTime missing_before(const KelG729fDec* dec, GstClockTime pts) {
  const GstClockTime end = dec->timeline.end;
  const bool later = GST_CLOCK_TIME_IS_VALID(pts) && GST_CLOCK_TIME_IS_VALID(end) && pts > end;
  return later && !dec->plc.silent ? pts - end : 0;
}

}  // namespace

void plc_reset(Concealment& plc) {
  plc = {};
}

void plc_note_good(Concealment& plc, const guint8* pcm, gsize frames, bool sid) {
  plc.left = plc.lost = 0;
  plc.silent = sid;
  plc.untold = FALSE;
  if (frames == 0) return;
  if (frames == 1) std::memcpy(plc.recent, plc.recent + G729_FRAME_SAMPLES, kPcmBytes);
  const gsize kept = std::min<gsize>(frames, 2) * kPcmBytes;
  std::memcpy(reinterpret_cast<guint8*>(plc.recent) + sizeof(plc.recent) - kept,
              pcm + frames * kPcmBytes - kept, kept);
}

gsize plc_samples(Concealment& plc, GstClockTime duration) {
  plc.owed += static_cast<GstClockTimeDiff>(duration);
  constexpr auto sample = GstClockTimeDiff{kSampleTime};
  const GstClockTimeDiff samples = std::max<GstClockTimeDiff>(0, (plc.owed + sample / 2) / sample);
  plc.owed -= samples * sample;
  return static_cast<gsize>(samples);
}

gsize plc_fill(Concealment& plc, G729DecoderState* decoder, guint8* pcm, gsize samples) {
  gsize frames = 0;
  while (samples > 0) {
    if (plc.left == 0) {
      make_frame(plc, decoder);
      frames++;
    }
    const gsize count = std::min(plc.left, samples);
    std::memcpy(pcm, plc.frame + G729_FRAME_SAMPLES - plc.left, count * sizeof(gint16));
    pcm += count * sizeof(gint16);
    plc.left -= count;
    samples -= count;
  }
  return frames;
}

bool plc_is_loss(const Concealment& plc, GstEvent* gap) {
  GstClockTime duration = GST_CLOCK_TIME_NONE;
  gst_event_parse_gap(gap, nullptr, &duration);
  if (plc.silent || !GST_CLOCK_TIME_IS_VALID(duration)) return false;
  if (!gst_structure_has_field(gst_event_get_structure(gap), "gap-flags")) return true;
  GstGapFlags flags = {};
  gst_event_parse_gap_flags(gap, &flags);
  return (flags & GST_GAP_FLAG_MISSING_DATA) != 0;
}

GstFlowReturn kel_g729f_plc_conceal(KelG729fDec* dec, GstBuffer* gap) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  GstFlowReturn flow = GST_FLOW_OK;
  GST_AUDIO_DECODER_STREAM_LOCK(dec);
  if (GST_BUFFER_DURATION(gap) == 0) {
    dec->plc.untold = TRUE;
  } else {
    const gsize samples = plc_samples(dec->plc, GST_BUFFER_DURATION(gap));
    GST_LOG_OBJECT(dec, "Concealing %" G_GSIZE_FORMAT " samples", samples);
    kel_g729f_dec_place(dec, gap);
    flow = push(dec, samples);
  }
  const GstFlowReturn end = gst_audio_decoder_finish_frame(base, nullptr, 1);
  GST_AUDIO_DECODER_STREAM_UNLOCK(dec);
  return flow == GST_FLOW_OK ? end : flow;
}

GstFlowReturn kel_g729f_plc_catch_up(KelG729fDec* dec, GstBuffer* packet) {
  const GstClockTime pts = GST_BUFFER_PTS(packet), missing = missing_before(dec, pts);
  if (!dec->plc.untold || missing == 0 || !gst_buffer_is_writable(packet)) return GST_FLOW_OK;
  // Nothing is left of a longer loss.
  const gsize samples = std::min(plc_samples(dec->plc, missing), kFadeEnd);
  GST_LOG_OBJECT(dec, "Concealing %" G_GSIZE_FORMAT " samples before this packet", samples);
  GST_BUFFER_PTS(packet) = dec->timeline.end;
  const GstFlowReturn flow = push(dec, samples);
  GST_BUFFER_PTS(packet) = pts;
  return flow;
}
