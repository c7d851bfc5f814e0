#include "src/audio/g729f/dtx.h"

#include <atomic>
#include <cstring>

#include "src/audio/g729f/buffer_map.h"

#define GST_CAT_DEFAULT g729fdec

namespace {

// kel_g729f_dtx_start looks at this flag before it takes the lock.
std::atomic_ref<gint32> running(KelG729fDec* dec) {
  return std::atomic_ref<gint32>(dec->thread_running);
}

// Whether a run of comfort noise still is the one wanted: it may have been stopped and another
// one started while the thread was away.
bool wanted(const KelG729fDec* dec, guint run) {
  return dec->dtx_active && dec->dtx_run == run;
}

// Ends a pending wait at once.
void stop_locked(KelG729fDec* dec) {
  dec->dtx_active = 0;
  if (dec->clock_id) {
    gst_clock_id_unschedule(dec->clock_id);
    g_assert(dec->clock_id);
  }
}

void wait_for(KelG729fDec* dec, GstClock* clock, GstClockTime time) {
  dec->clock_id = gst_clock_new_single_shot_id(clock, time);
  g_assert(dec->clock_id);
  const GstClockID id = dec->clock_id;
  g_mutex_unlock(&dec->lock);
  gst_clock_id_wait(id, nullptr);
  g_mutex_lock(&dec->lock);
  gst_clock_id_unref(dec->clock_id);
  dec->clock_id = nullptr;
}

bool decode_noise(KelG729fDec* dec, const BufferMap& out) {
  if (out.size() < kPcmBytes) return false;
  gint16 samples[G729_FRAME_SAMPLES];
  g729_decoder_decode_frame(dec->decoder, nullptr, 0, samples);
  std::memcpy(out.data(), samples, kPcmBytes);
  return true;
}

// Decodes and pushes one packet, if it still is wanted once the stream lock is ours.
void push_noise(KelG729fDec* dec, guint run) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  g_mutex_unlock(&dec->lock);
  GST_AUDIO_DECODER_STREAM_LOCK(base);
  GstBuffer* buffer = gst_audio_decoder_allocate_output_buffer(base, kPcmBytes);
  g_mutex_lock(&dec->lock);
  bool decoded = false;
  if (buffer && wanted(dec, run)) {
    BufferMap out(buffer, GST_MAP_WRITE);
    decoded = decode_noise(dec, out);
    g_mutex_unlock(&dec->lock);
  } else {
    g_mutex_unlock(&dec->lock);
  }
  if (decoded) {
    timeline_add_noise(dec->timeline);
    stats_add(dec->stats.comfort_noise);
    gst_audio_decoder_finish_frame(base, buffer, 1);
  } else if (buffer) {
    gst_mini_object_unref(GST_MINI_OBJECT_CAST(buffer));
  }
  GST_AUDIO_DECODER_STREAM_UNLOCK(base);
  g_mutex_lock(&dec->lock);
}

}  // namespace

void kel_g729f_dtx_func(KelG729fDec* dec) {
  GstElement* element = GST_ELEMENT(dec);
  GstClock* clock = gst_element_get_clock(element);
  if (!clock) {
    GST_WARNING_OBJECT(dec, "No clock, unable to do DTX");
    dec->dtx_active = 0;
    return;
  }

  const guint run = dec->dtx_run;
  GstClockTime base_time = gst_element_get_base_time(element);
  GstClockTime time = gst_clock_get_time(clock) + dec->dtx_delay;
  while (wanted(dec, run)) {
    // The pipeline was paused meanwhile: what fell into the pause is not made up for.
    if (base_time != gst_element_get_base_time(element)) {
      base_time = gst_element_get_base_time(element);
      time = gst_clock_get_time(clock);
    }
    time += kFrameTime;
    wait_for(dec, clock, time);
    if (!wanted(dec, run)) break;
    const bool paused = base_time != gst_element_get_base_time(element);
    if (!paused && gst_clock_get_time(clock) >= time + kFrameTime) {
      stats_add(dec->stats.late_wakeups);
    }
    GST_DEBUG_OBJECT(dec, "producing DTX packet at time %" GST_TIME_FORMAT, GST_TIME_ARGS(time));
    push_noise(dec, run);
  }
  gst_object_unref(clock);
}

gpointer kel_g729f_dtx_thread_main(gpointer data) {
  auto* dec = static_cast<KelG729fDec*>(data);
  g_mutex_lock(&dec->lock);
  while (running(dec)) {
    if (!dec->dtx_active) g_cond_wait(&dec->cond, &dec->lock);
    if (dec->dtx_active) kel_g729f_dtx_func(dec);
  }
  g_mutex_unlock(&dec->lock);
  return nullptr;
}

void kel_g729f_dtx_start(KelG729fDec* dec) {
  if (!running(dec)) return;
  GST_DEBUG_OBJECT(dec, "start DTX transmission");
  g_mutex_lock(&dec->lock);
  dec->dtx_active = 1;
  dec->dtx_run++;
  dec->dtx_delay = dec->timeline.lead;
  g_cond_signal(&dec->cond);
  g_mutex_unlock(&dec->lock);
}

void kel_g729f_dtx_stop(KelG729fDec* dec) {
  GST_DEBUG_OBJECT(dec, "stop DTX transmission");
  kel_g729f_dtx_cancel(dec);
}

void kel_g729f_dtx_cancel(KelG729fDec* dec) {
  g_mutex_lock(&dec->lock);
  stop_locked(dec);
  g_mutex_unlock(&dec->lock);
}

void kel_g729f_dtx_join(KelG729fDec* dec) {
  if (!dec->thread) return;
  g_mutex_lock(&dec->lock);
  running(dec) = 0;
  stop_locked(dec);
  g_cond_signal(&dec->cond);
  g_mutex_unlock(&dec->lock);
  g_thread_join(dec->thread);
  dec->thread = nullptr;
}
