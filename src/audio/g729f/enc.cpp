/**
 * SECTION:element-kelg729fenc
 * @title: kelg729fenc
 *
 * Codes 8 kHz mono audio at 8 kbit/s (ITU-T G.729), with silence compression (Annex B) when asked.
 * A buffer holds #kelg729fenc:frames frames of 10 ms; its latency is as long, and 5 ms of
 * look-ahead. After silence, the first buffer of speech is a discontinuity: payloaders set the
 * marker bit.
 *
 * #kelg729fenc:annexb is read when the element starts. #kelg729fenc:frames counts at once for how
 * many frames of a buffer are coded, but buffers change their length only with the next caps: fewer
 * frames leave the rest of each buffer out, more draw a warning. What does not fill a buffer at the
 * end of the stream, less than `frames` times 80 samples, is dropped. #kelg729fenc:complexity
 * counts from the next frame on: each level sounds better and takes longer.
 *
 * #kelg729fenc:stats counts since the start: `frames` of speech, `sids` (silence descriptors) and
 * `untransmitted` frames, which left nothing.
 *
 * ## Example launch lines
 * |[
 * gst-launch-1.0 audiotestsrc num-buffers=100 ! audioconvert ! audioresample ! kelg729fenc \
 *   ! filesink location=tone.g729
 * ]| A raw stream.
 * |[
 * gst-launch-1.0 audiotestsrc num-buffers=25 wave=ticks ! audioconvert ! audioresample \
 *   ! kelg729fenc annexb=true frames=1 ! rtpg729pay min-ptime=20000000 perfect-rtptime=false \
 *   ! udpsink host=127.0.0.1 port=5004
 * ]| RTP packets of 20 ms, and none in silence.
 */
#include "src/audio/g729f/enc.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "src/audio/g729f/buffer_map.h"
#include "src/audio/g729f/frame.h"
#include "src/audio/g729f/tags.h"

GST_DEBUG_CATEGORY_STATIC(g729fenc);
#define GST_CAT_DEFAULT g729fenc

G_DEFINE_TYPE(KelG729fEnc, kel_g729f_enc, GST_TYPE_AUDIO_ENCODER)

namespace {

enum { PROP_ANNEXB = 1, PROP_FRAMES, PROP_STATS, PROP_COMPLEXITY };

constexpr gint kDefaultFrames = 2;
// As many as the base class can count in bytes.
constexpr gint64 kMaxFrames = G_MAXINT / gint64{kPcmBytes};

GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/G729, rate = (int)8000, channels = (int)1"));
GstStaticPadTemplate sink_template = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("audio/x-raw, format = S16LE, layout = (string) interleaved, "
                    "rate = (int) 8000, channels = (int) 1"));

KelG729fEnc* as_enc(gpointer object) {
  return G_TYPE_CHECK_INSTANCE_CAST(object, kel_g729f_enc_get_type(), KelG729fEnc);
}

std::atomic_ref<gint32> shared(gint32& property) {
  return std::atomic_ref<gint32>(property);
}

gint32 frames_now(KelG729fEnc* enc) {
  return shared(enc->frames).load(std::memory_order_relaxed);
}

gint32 complexity_now(KelG729fEnc* enc) {
  return shared(enc->complexity).load(std::memory_order_relaxed);
}

// The frames that the base class is asked to collect.
gint64 collected_frames(KelG729fEnc* enc) {
  return std::min<gint64>(frames_now(enc), kMaxFrames);
}

void announce_latency(KelG729fEnc* enc) {
  const auto collect = static_cast<GstClockTime>(collected_frames(enc)) * kFrameTime;
  gst_audio_encoder_set_latency(GST_AUDIO_ENCODER(enc), collect + kLookAhead, collect + kLookAhead);
}

}  // namespace

static void kel_g729f_enc_set_property(GObject* object, guint id, const GValue* value,
                                       GParamSpec* pspec) {
  KelG729fEnc* enc = as_enc(object);
  switch (id) {
    case PROP_ANNEXB:
      shared(enc->annexb).store(g_value_get_boolean(value), std::memory_order_relaxed);
      break;
    case PROP_FRAMES:
      shared(enc->frames).store(g_value_get_int(value), std::memory_order_relaxed);
      break;
    case PROP_COMPLEXITY:
      shared(enc->complexity).store(g_value_get_int(value), std::memory_order_relaxed);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void kel_g729f_enc_get_property(GObject* object, guint id, GValue* value,
                                       GParamSpec* pspec) {
  KelG729fEnc* enc = as_enc(object);
  switch (id) {
    case PROP_ANNEXB:
      g_value_set_boolean(value, shared(enc->annexb).load(std::memory_order_relaxed));
      break;
    case PROP_FRAMES:
      g_value_set_int(value, frames_now(enc));
      break;
    case PROP_COMPLEXITY:
      g_value_set_int(value, complexity_now(enc));
      break;
    case PROP_STATS:
      g_value_take_boxed(value, stats_structure(enc->stats));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static gboolean kel_g729f_enc_start(GstAudioEncoder* base) {
  KelG729fEnc* enc = as_enc(base);
  GST_DEBUG_OBJECT(enc, "start");
  stats_reset(enc->stats);
  const gint32 annexb = shared(enc->annexb).load(std::memory_order_relaxed);
  GST_OBJECT_LOCK(enc);
  enc->silent = FALSE;
  enc->constant_rate = !annexb;
  enc->encoder = g729_encoder_create(annexb);
  GST_OBJECT_UNLOCK(enc);
  announce_latency(enc);  // the format is set with the first buffer only
  return TRUE;
}

static gboolean kel_g729f_enc_stop(GstAudioEncoder* base) {
  KelG729fEnc* enc = as_enc(base);
  GST_DEBUG_OBJECT(enc, "stop");
  GST_OBJECT_LOCK(enc);
  g729_encoder_destroy(enc->encoder);
  enc->encoder = nullptr;
  GST_OBJECT_UNLOCK(enc);
  return TRUE;
}

static gboolean kel_g729f_enc_set_format(GstAudioEncoder* base, GstAudioInfo*) {
  KelG729fEnc* enc = as_enc(base);
  GstCaps* caps = gst_static_pad_template_get_caps(&src_template);
  const gboolean done = gst_audio_encoder_set_output_format(base, caps);
  gst_caps_unref(caps);
  GstTagList* tags = codec_tags(enc->constant_rate);
  gst_audio_encoder_merge_tags(base, tags, GST_TAG_MERGE_REPLACE);
  gst_tag_list_unref(tags);

  const gint64 frames = collected_frames(enc);
  const auto samples = static_cast<gint>(frames * G729_FRAME_SAMPLES);
  gst_audio_encoder_set_frame_samples_min(base, samples);
  gst_audio_encoder_set_frame_samples_max(base, samples);
  gst_audio_encoder_set_frame_max(base, 1);
  gst_audio_encoder_set_hard_min(base, TRUE);
  gst_audio_encoder_set_drainable(base, FALSE);
  announce_latency(enc);
  return done;
}

static void count_frame(EncoderStats& stats, guint32 size) {
  stats_add(size == G729_SPEECH_BYTES ? stats.frames
            : size == G729_SID_BYTES  ? stats.sids
                                      : stats.untransmitted);
}

struct Encoded {
  gsize bytes;
  bool talk_begins;  // a frame of speech follows one that is none
};

// Encodes up to `frames` frames of `in` back to back into `out`.
// The property may change at any moment, so every pass checks that both areas have room for it.
static Encoded encode_frames(KelG729fEnc* enc, const BufferMap& in, const BufferMap& out) {
  Encoded done = {};
  for (gsize i = 0; static_cast<gint64>(i) < frames_now(enc); i++) {
    if (in.size() / kPcmBytes <= i || out.size() - done.bytes < G729_SPEECH_BYTES) {
      GST_WARNING_OBJECT(enc, "frames is %d now, but this buffer has room for %" G_GSIZE_FORMAT,
                         frames_now(enc), i);
      break;
    }
    gint16 samples[G729_FRAME_SAMPLES];
    std::memcpy(samples, in.data() + i * kPcmBytes, kPcmBytes);
    guint32 size = 0;
    g729_encoder_set_complexity(enc->encoder, complexity_now(enc));
    g729_encoder_encode_frame(enc->encoder, samples, out.data() + done.bytes, &size);
    done.bytes += size;
    count_frame(enc->stats, size);
    const bool speech = size == G729_SPEECH_BYTES;
    done.talk_begins |= speech && enc->silent;
    enc->silent = !speech;
  }
  return done;
}

// The samples to report as consumed. The base class refuses more than it handed over, and would
// keep what is not consumed for ever, so a count of no frames drops the buffer.
static gint consumed_samples(gint32 frames, gsize in_size) {
  const auto given = static_cast<gint64>(in_size / sizeof(gint16));
  if (frames == 0) return static_cast<gint>(given);
  return static_cast<gint>(std::min(gint64{frames} * G729_FRAME_SAMPLES, given));
}

static GstFlowReturn kel_g729f_enc_handle_frame(GstAudioEncoder* base, GstBuffer* buffer) {
  KelG729fEnc* enc = as_enc(base);
  const BufferMap in(buffer, GST_MAP_READ);
  GST_LOG_OBJECT(enc, "Received buffer of size %" G_GSIZE_FORMAT, in.size());

  const gint32 frames = frames_now(enc);
  const gsize room = std::min<gsize>(static_cast<gsize>(frames), in.size() / kPcmBytes);
  GstBuffer* output = nullptr;
  Encoded done = {};
  if (room > 0) {
    output = gst_audio_encoder_allocate_output_buffer(base, room * G729_SPEECH_BYTES);
    if (!output) {
      GST_DEBUG_OBJECT(enc, "failed to alloc buffer");
      return GST_FLOW_ERROR;
    }
    const BufferMap out(output, GST_MAP_WRITE);
    done = encode_frames(enc, in, out);
  }
  GST_LOG_OBJECT(enc, "Finished encoding, got %" G_GSIZE_FORMAT " bytes", done.bytes);

  if (output && done.bytes > 0) {
    if (done.bytes < room * G729_SPEECH_BYTES) {
      gst_buffer_set_size(output, static_cast<gssize>(done.bytes));
    }
    // A payloader counts the bytes it is given; the flag makes it look at the timestamp again and
    // set the marker bit. At a descriptor it looks by itself.
    if (done.talk_begins) GST_BUFFER_FLAG_SET(output, GST_BUFFER_FLAG_DISCONT);
  } else {
    gst_clear_buffer(&output);
  }
  return gst_audio_encoder_finish_frame(base, output, consumed_samples(frames, in.size()));
}

static void install_properties(GObjectClass* object_class) {
  constexpr auto flags =
      static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      object_class, PROP_ANNEXB,
      g_param_spec_boolean("annexb", "Annex B", "Use Annex B", FALSE, flags));
  g_object_class_install_property(
      object_class, PROP_FRAMES,
      g_param_spec_int("frames", "Frames", "Number of 10ms frames to encode", 0, G_MAXINT,
                       kDefaultFrames, flags));
  g_object_class_install_property(
      object_class, PROP_COMPLEXITY,
      g_param_spec_int("complexity", "Complexity",
                       "How far to search: each level sounds better and takes longer", 0,
                       G729_COMPLEXITY_MAX, 0,
                       static_cast<GParamFlags>(flags | GST_PARAM_MUTABLE_PLAYING)));
  stats_install_property(object_class, PROP_STATS);
}

static void kel_g729f_enc_class_init(KelG729fEncClass* klass) {
  auto* object_class = G_OBJECT_CLASS(klass);
  auto* element_class = GST_ELEMENT_CLASS(klass);
  auto* encoder_class = GST_AUDIO_ENCODER_CLASS(klass);

  object_class->set_property = kel_g729f_enc_set_property;
  object_class->get_property = kel_g729f_enc_get_property;

  gst_element_class_add_static_pad_template(element_class, &src_template);
  gst_element_class_add_static_pad_template(element_class, &sink_template);
  gst_element_class_set_static_metadata(
      element_class, "G.729 Encoder element", "Codec/Encoder/Audio ",
      "Encode streams with G.729 (float impl)", KEL_G729F_AUTHORS);

  encoder_class->start = GST_DEBUG_FUNCPTR(kel_g729f_enc_start);
  encoder_class->stop = GST_DEBUG_FUNCPTR(kel_g729f_enc_stop);
  encoder_class->set_format = GST_DEBUG_FUNCPTR(kel_g729f_enc_set_format);
  encoder_class->handle_frame = GST_DEBUG_FUNCPTR(kel_g729f_enc_handle_frame);

  install_properties(object_class);
  GST_DEBUG_CATEGORY_INIT(g729fenc, "g729fenc", 0, "g729fenc");
}

static void kel_g729f_enc_init(KelG729fEnc*) {}
