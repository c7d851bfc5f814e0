/**
 * SECTION:element-kelg729fdec
 * @title: kelg729fdec
 *
 * Decodes buffers of 10-byte frames (ITU-T G.729, 8 kbit/s) and at most one 2-byte silence
 * descriptor behind them. After a descriptor it makes comfort noise, by the pipeline's clock, until
 * the next buffer. With #GstAudioDecoder:plc, lost packets become concealed speech. Raw streams
 * from files may come in pieces of any size; they have duration and can be sought.
 *
 * #kelg729fdec:stats counts since the start: `frames` of speech, `sids` (silence descriptors),
 * buffers of `invalid-sizes`, frames with `parity-errors`, frames `concealed`, `loss-events` and
 * the `longest-loss` of them in frames, frames of `comfort-noise`, and `late-wakeups` of its thread
 * by a frame or more.
 *
 * ## Example launch lines
 * |[
 * gst-launch-1.0 filesrc location=tone.g729 \
 *   ! audio/G729,rate=8000,channels=1 ! kelg729fdec ! wavenc ! filesink location=tone.wav
 * ]| A raw stream.
 * |[
 * gst-launch-1.0 -e udpsrc port=5004 \
 *   caps="application/x-rtp,media=audio,clock-rate=8000,encoding-name=G729,payload=18" \
 *   ! rtpjitterbuffer latency=60 do-lost=true ! rtpg729depay ! kelg729fdec plc=true \
 *   ! audiorate tolerance=1000000 ! wavenc ! filesink location=received.wav
 * ]| A call's receiver, until Ctrl-C.
 */
#include "src/audio/g729f/dec.h"

#include <cstdio>
#include <cstring>

#include "src/audio/g729f/buffer_map.h"
#include "src/audio/g729f/dtx.h"
#include "src/audio/g729f/events.h"
#include "src/audio/g729f/fill.h"
#include "src/audio/g729f/frame.h"
#include "src/audio/g729f/tags.h"

GST_DEBUG_CATEGORY(g729fdec);
#define GST_CAT_DEFAULT g729fdec

G_DEFINE_TYPE(KelG729fDec, kel_g729f_dec, GST_TYPE_AUDIO_DECODER)

namespace {

enum { PROP_STATS = 1 };

GstStaticPadTemplate src_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("audio/x-raw, format = S16LE, layout = (string) interleaved, "
                    "rate = (int) 8000, channels = (int) 1"));
GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/G729, rate = (int) 8000, channels = (int)1"));

KelG729fDec* as_dec(gpointer object) {
  return G_TYPE_CHECK_INSTANCE_CAST(object, kel_g729f_dec_get_type(), KelG729fDec);
}

// A buffer's content: speech frames, then perhaps one silence descriptor.
struct Packet {
  gsize speech;
  bool sid;

  explicit Packet(gsize size)
      : speech(size / G729_SPEECH_BYTES), sid(size % G729_SPEECH_BYTES == G729_SID_BYTES) {}
  bool valid(gsize size) const { return sid || (speech > 0 && size % G729_SPEECH_BYTES == 0); }
  gsize frames() const { return speech + (sid ? 1 : 0); }
};

void decode_frame(KelG729fDec* dec, const guint8* bytes, guint32 size, guint8* out) {
  gint16 samples[G729_FRAME_SAMPLES];
  g729_decoder_decode_frame(dec->decoder, bytes, size, samples);
  std::memcpy(out, samples, kPcmBytes);
}

// What the codec finds odd is counted, and printed as it is without this.
void on_remark(gpointer data, const gchar* text) {
  GST_DEBUG_OBJECT(data, "%s", text);
  if (std::strstr(text, "Wrong Pitch"))
    stats_add(static_cast<KelG729fDec*>(data)->stats.parity_errors);
  std::fputs(text, stdout);
}

// False when the output cannot be written to.
bool decode_packet(KelG729fDec* dec, const Packet& packet, const BufferMap& in, GstBuffer* output) {
  const BufferMap out(output, GST_MAP_WRITE);
  if (out.size() < packet.frames() * kPcmBytes) return false;
  for (gsize i = 0; i < packet.speech; i++) {
    GST_LOG_OBJECT(dec, "Decoding frame %u/%u (%d bytes)", static_cast<guint>(i + 1),
                   static_cast<guint>(packet.speech), G729_SPEECH_BYTES);
    decode_frame(dec, in.data() + i * G729_SPEECH_BYTES, G729_SPEECH_BYTES,
                 out.data() + i * kPcmBytes);
  }
  if (packet.sid) {
    GST_LOG_OBJECT(dec, "Decoding SID");
    decode_frame(dec, in.data() + in.size() - G729_SID_BYTES, G729_SID_BYTES,
                 out.data() + packet.speech * kPcmBytes);
    kel_g729f_dtx_start(dec);
  }
  plc_note_good(dec->plc, out.data(), packet.speech, packet.sid);
  stats_add(dec->stats.frames, packet.speech);
  stats_add(dec->stats.sids, packet.sid);
  return true;
}

}  // namespace

static void kel_g729f_dec_finalize(GObject* object) {
  KelG729fDec* dec = as_dec(object);
  g_mutex_clear(&dec->lock);
  g_cond_clear(&dec->cond);
  G_OBJECT_CLASS(kel_g729f_dec_parent_class)->finalize(object);
}

static void kel_g729f_dec_get_property(GObject* object, guint id, GValue* value,
                                       GParamSpec* pspec) {
  switch (id) {
    case PROP_STATS:
      g_value_take_boxed(value, stats_structure(as_dec(object)->stats));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static gboolean kel_g729f_dec_start(GstAudioDecoder* base) {
  KelG729fDec* dec = as_dec(base);
  GST_DEBUG_OBJECT(dec, "Start");
  dec->decoder = g729_decoder_create();
  g729_decoder_set_remark_function(dec->decoder, on_remark, dec);
  dec->in_segment = FALSE;  // what belongs to a segment begins with it
  dec->stamp = GST_CLOCK_TIME_NONE;
  dec->raw = {};
  stats_reset(dec->stats);
  gst_audio_decoder_set_plc_aware(base, TRUE);
  gst_audio_decoder_set_drainable(base, FALSE);
  dec->thread_running = 1;
  dec->thread = g_thread_new("dtx-thread", kel_g729f_dtx_thread_main, dec);
  return TRUE;
}

static gboolean kel_g729f_dec_stop(GstAudioDecoder* base) {
  KelG729fDec* dec = as_dec(base);
  GST_DEBUG_OBJECT(dec, "Stop");
  g729_decoder_destroy(dec->decoder);
  return TRUE;
}

static gboolean kel_g729f_dec_set_format(GstAudioDecoder* base, GstCaps*) {
  GstTagList* tags = codec_tags(false);
  gst_audio_decoder_merge_tags(base, tags, GST_TAG_MERGE_REPLACE);
  gst_tag_list_unref(tags);
  GstAudioInfo info;
  GstCaps* caps = gst_static_pad_template_get_caps(&src_template);
  gst_audio_info_from_caps(&info, caps);
  gst_caps_unref(caps);
  return gst_audio_decoder_set_output_format(base, &info);
}

// Whatever has arrived is one packet; of a raw stream, as many whole frames as there are.
static GstFlowReturn kel_g729f_dec_parse(GstAudioDecoder* base, GstAdapter* adapter, gint* offset,
                                         gint* length) {
  RawStream& raw = as_dec(base)->raw;
  gsize size = gst_adapter_available(adapter);
  const bool cuts = g_atomic_int_get(&raw.active) && size > 0;
  if (cuts) size = raw_parse(raw, size);
  *offset = 0;
  *length = static_cast<gint>(size);
  return cuts && size == 0 ? GST_FLOW_EOS : GST_FLOW_OK;
}

// A loss, or silence that somebody tells of.
static GstFlowReturn handle_gap(KelG729fDec* dec, GstBuffer* gap) {
  GST_AUDIO_DECODER_STREAM_LOCK(dec);
  const GstFlowReturn flow = kel_g729f_fill_gap(dec, gap);
  const GstFlowReturn end = gst_audio_decoder_finish_frame(GST_AUDIO_DECODER(dec), nullptr, 1);
  GST_AUDIO_DECODER_STREAM_UNLOCK(dec);
  return flow == GST_FLOW_OK ? end : flow;
}

// Gives the packet its time, and fills what is missing before it if that is wanted.
static GstFlowReturn enter(KelG729fDec* dec, const Packet& packet, GstBuffer* buffer, gsize* cut) {
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) GST_BUFFER_PTS(buffer) = dec->begin;
  dec->begin = GST_CLOCK_TIME_NONE;
  // A stream that is played backwards comes in pieces.
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  if (gst_audio_decoder_get_plc(base) && base->input_segment.rate > 0) {
    return kel_g729f_fill_before(dec, buffer, packet.frames(), packet.sid, cut);
  }
  g_mutex_lock(&dec->lock);
  timeline_restart(dec->line);
  g_mutex_unlock(&dec->lock);
  return GST_FLOW_OK;
}

// Takes `cut` bytes off the audio's beginning; nothing may be left.
static GstBuffer* without(GstBuffer* audio, gsize cut) {
  if (cut == 0) return audio;
  const gsize size = gst_buffer_get_size(audio);
  if (cut < size) {
    gst_buffer_resize(audio, static_cast<gssize>(cut), static_cast<gssize>(size - cut));
  } else {
    gst_clear_buffer(&audio);
  }
  return audio;
}

// The packet's audio, or null where there is no room for it.
static GstBuffer* decode_to_buffer(KelG729fDec* dec, const Packet& packet, const BufferMap& in) {
  const gsize size = packet.frames() * kPcmBytes;
  GST_LOG_OBJECT(dec, "we have %u frames, %" G_GSIZE_FORMAT " in, %" G_GSIZE_FORMAT " out",
                 static_cast<guint>(packet.speech), in.size(), size);
  GstBuffer* output = gst_audio_decoder_allocate_output_buffer(GST_AUDIO_DECODER(dec), size);
  if (!output || !decode_packet(dec, packet, in, output)) gst_clear_buffer(&output);
  return output;
}

static GstFlowReturn kel_g729f_dec_handle_frame(GstAudioDecoder* base, GstBuffer* buffer) {
  KelG729fDec* dec = as_dec(base);
  if (gst_buffer_get_size(buffer) == 0 && gst_audio_decoder_get_plc(base)) {
    return handle_gap(dec, buffer);
  }
  kel_g729f_dtx_stop(dec);

  BufferMap in(buffer, GST_MAP_READ);
  GST_LOG_OBJECT(dec, "Received buffer of size %" G_GSIZE_FORMAT, in.size());
  const Packet packet(in.size());
  if (!packet.valid(in.size())) {
    GST_WARNING_OBJECT(dec, "Received invalid buffer size %" G_GSIZE_FORMAT, in.size());
    stats_add(dec->stats.invalid_sizes);
    in.unmap();
    return gst_audio_decoder_finish_frame(base, nullptr, 1);
  }

  gsize cut = 0;
  const GstFlowReturn flow = enter(dec, packet, buffer, &cut);
  if (flow != GST_FLOW_OK) {
    in.unmap();
    gst_audio_decoder_finish_frame(base, nullptr, 1);
    return flow;
  }

  GstBuffer* const output = decode_to_buffer(dec, packet, in);
  in.unmap();
  if (!output) {
    GST_WARNING_OBJECT(dec, "failed to alloc buffer");
    return GST_FLOW_ERROR;
  }
  GST_LOG_OBJECT(dec, "Finished decoding");
  const GstFlowReturn result = gst_audio_decoder_finish_frame(base, without(output, cut), 1);
  if (g_atomic_int_get(&dec->raw.active) && result == GST_FLOW_OK) raw_note_played(base, dec->raw);
  return result;
}

static gboolean kel_g729f_dec_sink_event(GstAudioDecoder* base, GstEvent* event) {
  event = kel_g729f_take_sink_event(as_dec(base), event);
  return !event || GST_AUDIO_DECODER_CLASS(kel_g729f_dec_parent_class)->sink_event(base, event);
}

// The base class hands this on to the source pad at once.
static GstFlowReturn kel_g729f_dec_pre_push(GstAudioDecoder* base, GstBuffer** buffer) {
  KelG729fDec* dec = as_dec(base);
  g_atomic_pointer_set(&dec->finisher, nullptr);
  if (GST_CLOCK_TIME_IS_VALID(dec->stamp)) GST_BUFFER_PTS(*buffer) = dec->stamp;
  return GST_FLOW_OK;
}

static gboolean kel_g729f_dec_src_event(GstAudioDecoder* base, GstEvent* event) {
  event = kel_g729f_take_src_event(as_dec(base), event);
  return !event || GST_AUDIO_DECODER_CLASS(kel_g729f_dec_parent_class)->src_event(base, event);
}

static gboolean kel_g729f_dec_src_query(GstAudioDecoder* base, GstQuery* query) {
  if (g_atomic_int_get(&as_dec(base)->raw.active) && raw_query(base, query)) return TRUE;
  return GST_AUDIO_DECODER_CLASS(kel_g729f_dec_parent_class)->src_query(base, query);
}

// A clock is changed as in a pause.
static gboolean kel_g729f_dec_set_clock(GstElement* element, GstClock* clock) {
  KelG729fDec* dec = as_dec(element);
  const bool playing = kel_g729f_dtx_pause(dec);
  const gboolean result = GST_ELEMENT_CLASS(kel_g729f_dec_parent_class)->set_clock(element, clock);
  if (playing) kel_g729f_dtx_play(dec);
  return result;
}

static GstStateChangeReturn kel_g729f_dec_change_state(GstElement* element,
                                                       GstStateChange transition) {
  KelG729fDec* dec = as_dec(element);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_PLAYING) kel_g729f_dtx_play(dec);
  if (transition == GST_STATE_CHANGE_PLAYING_TO_PAUSED) kel_g729f_dtx_pause(dec);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) kel_g729f_dtx_join(dec);
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(kel_g729f_dec_parent_class)->change_state(element, transition);
  // Started, but the pads refused: the base class does not stop what it does not hold as running.
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED && result == GST_STATE_CHANGE_FAILURE &&
      dec->thread) {
    kel_g729f_dtx_join(dec);
    kel_g729f_dec_stop(GST_AUDIO_DECODER(dec));
  }
  return result;
}

// The base class warns of every frame that is finished without an input frame. Comfort noise is
// made of such frames. The warning's words may be translated.
static bool is_noise_warning(KelG729fDec* dec, GstMessage* message) {
  if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_WARNING ||
      GST_MESSAGE_SRC(message) != GST_OBJECT_CAST(dec) ||
      g_atomic_pointer_get(&dec->finisher) != g_thread_self()) {
    return false;
  }
  GError* error = nullptr;
  gst_message_parse_warning(message, &error, nullptr);
  const bool matches = g_error_matches(error, GST_STREAM_ERROR, GST_STREAM_ERROR_DECODE);
  g_error_free(error);
  return matches;
}

static gboolean kel_g729f_dec_post_message(GstElement* element, GstMessage* message) {
  if (is_noise_warning(as_dec(element), message)) {
    gst_message_unref(message);
    return TRUE;
  }
  return GST_ELEMENT_CLASS(kel_g729f_dec_parent_class)->post_message(element, message);
}

static void kel_g729f_dec_class_init(KelG729fDecClass* klass) {
  auto* object_class = G_OBJECT_CLASS(klass);
  auto* element_class = GST_ELEMENT_CLASS(klass);
  auto* decoder_class = GST_AUDIO_DECODER_CLASS(klass);

  object_class->finalize = kel_g729f_dec_finalize;
  object_class->get_property = kel_g729f_dec_get_property;
  stats_install_property(object_class, PROP_STATS);

  gst_element_class_add_static_pad_template(element_class, &src_template);
  gst_element_class_add_static_pad_template(element_class, &sink_template);
  gst_element_class_set_static_metadata(
      element_class, "G.729 Decoder element", "Codec/Decoder/Audio ",
      "Decode streams encoded with G.729 (float impl)", KEL_G729F_AUTHORS);

  decoder_class->start = GST_DEBUG_FUNCPTR(kel_g729f_dec_start);
  decoder_class->stop = GST_DEBUG_FUNCPTR(kel_g729f_dec_stop);
  decoder_class->set_format = GST_DEBUG_FUNCPTR(kel_g729f_dec_set_format);
  decoder_class->parse = GST_DEBUG_FUNCPTR(kel_g729f_dec_parse);
  decoder_class->handle_frame = GST_DEBUG_FUNCPTR(kel_g729f_dec_handle_frame);
  decoder_class->sink_event = GST_DEBUG_FUNCPTR(kel_g729f_dec_sink_event);
  decoder_class->pre_push = GST_DEBUG_FUNCPTR(kel_g729f_dec_pre_push);
  decoder_class->src_event = GST_DEBUG_FUNCPTR(kel_g729f_dec_src_event);
  decoder_class->src_query = GST_DEBUG_FUNCPTR(kel_g729f_dec_src_query);
  element_class->change_state = GST_DEBUG_FUNCPTR(kel_g729f_dec_change_state);
  element_class->set_clock = GST_DEBUG_FUNCPTR(kel_g729f_dec_set_clock);
  element_class->post_message = GST_DEBUG_FUNCPTR(kel_g729f_dec_post_message);

  GST_DEBUG_CATEGORY_INIT(g729fdec, "g729fdec", 0, "g729fdec");
}

static void kel_g729f_dec_init(KelG729fDec* dec) {
  g_mutex_init(&dec->lock);
  g_cond_init(&dec->cond);
  dec->line = Timeline{};
  gst_audio_decoder_set_needs_format(GST_AUDIO_DECODER(dec), TRUE);
}
