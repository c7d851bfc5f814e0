#include "src/audio/g729f/dtx.h"

#include <algorithm>
#include <atomic>

#include "src/audio/g729f/fill.h"
#include "src/audio/g729f/frame.h"
#include "src/audio/g729f/stats.h"

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
void wake_locked(KelG729fDec* dec) {
  if (dec->clock_id) {
    gst_clock_id_unschedule(dec->clock_id);
    g_assert(dec->clock_id);
  }
  g_cond_signal(&dec->cond);
}

// A thread that sleeps is left asleep: every packet comes by here.
void stop_locked(KelG729fDec* dec) {
  if (!dec->dtx_active) return;
  dec->dtx_active = 0;
  wake_locked(dec);
}

// The element's clock and what running time counts from. Held by the thread for a run.
struct Watch {
  GstClock* clock = nullptr;
  GstClockTime base = 0;
  guint pauses = 0;

  explicit Watch(KelG729fDec* dec) { set(dec); }
  ~Watch() { gst_clear_object(&clock); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  void set(KelG729fDec* dec) {
    gst_clear_object(&clock);
    clock = gst_element_get_clock(GST_ELEMENT(dec));
    base = gst_element_get_base_time(GST_ELEMENT(dec));
    pauses = dec->pauses;
  }
  Time now() const {
    return static_cast<Time>(gst_clock_get_time(clock)) - static_cast<Time>(base);
  }
};

// Waits until the element plays. What a pause has taken from the clock and not from running time
// is taken from running time here. False without a clock.
bool resume(KelG729fDec* dec, guint run, Watch& watch) {
  while (wanted(dec, run) && !dec->playing) g_cond_wait(&dec->cond, &dec->lock);
  if (watch.pauses == dec->pauses || !wanted(dec, run)) return true;
  watch.set(dec);
  if (!watch.clock) return false;
  if (watch.base == dec->paused_base && dec->paused_at != kUnknown) {
    timeline_resume(dec->line, watch.now() - dec->paused_at);
  }
  return true;
}

// False when the wait was ended from outside. What the machine made late is counted: a wait that
// began in time and ended a frame late.
bool wait_for(KelG729fDec* dec, const Watch& watch, Time due) {
  const bool early = watch.now() < due;
  const Time time = std::max<Time>(0, due + static_cast<Time>(watch.base));
  dec->clock_id = gst_clock_new_single_shot_id(watch.clock, static_cast<GstClockTime>(time));
  g_assert(dec->clock_id);
  const GstClockID id = dec->clock_id;
  g_mutex_unlock(&dec->lock);
  const GstClockReturn result = gst_clock_id_wait(id, nullptr);
  g_mutex_lock(&dec->lock);
  gst_clock_id_unref(dec->clock_id);
  dec->clock_id = nullptr;
  if (result == GST_CLOCK_UNSCHEDULED) return false;
  const bool paused = !dec->playing || watch.pauses != dec->pauses;
  if (early && !paused && watch.now() >= due + kLineFrame) stats_add(dec->stats.late_wakeups);
  return !paused;
}

// Makes and pushes one packet, if it still is wanted once the stream lock is ours.
void push_noise(KelG729fDec* dec, guint run) {
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  g_mutex_unlock(&dec->lock);
  GST_AUDIO_DECODER_STREAM_LOCK(base);
  GstBuffer* buffer = gst_audio_decoder_allocate_output_buffer(base, kPcmBytes);
  g_mutex_lock(&dec->lock);
  const bool made = wanted(dec, run) && dec->playing;
  const Time begin = dec->line.end;
  if (made) timeline_noise(dec->line);
  const bool filled = made && buffer && kel_g729f_fill_buffer(dec, buffer);
  g_mutex_unlock(&dec->lock);
  if (filled) {
    kel_g729f_finish_noise(dec, buffer, begin);
  } else {
    gst_clear_buffer(&buffer);
  }
  GST_AUDIO_DECODER_STREAM_UNLOCK(base);
  g_mutex_lock(&dec->lock);
}

// Whether nobody has been at work with a buffer at some time before `limit` has passed.
bool comes_to_rest(GstAudioDecoder* base, GstClockTime limit) {
  constexpr gulong step = 1000;  // us
  for (GstClockTime waited = 0; waited < limit; waited += step * GST_USECOND) {
    if (g_rec_mutex_trylock(&base->stream_lock)) {
      GST_AUDIO_DECODER_STREAM_UNLOCK(base);
      return true;
    }
    g_usleep(step);
  }
  return false;
}

}  // namespace

void kel_g729f_dtx_func(KelG729fDec* dec) {
  Watch watch(dec);
  const guint run = dec->dtx_run;
  bool clock = watch.clock;
  if (clock) timeline_begin_noise(dec->line, watch.now());
  while (clock && wanted(dec, run)) {
    clock = resume(dec, run, watch);
    if (!clock || !wanted(dec, run)) continue;
    const Time due = timeline_due(dec->line);
    if (!wait_for(dec, watch, due) || !wanted(dec, run)) continue;
    GST_DEBUG_OBJECT(dec, "producing DTX packet at time %" GST_TIME_FORMAT,
                     GST_TIME_ARGS(watch.base + static_cast<GstClockTime>(due)));
    push_noise(dec, run);
  }
  if (clock || !wanted(dec, run)) return;
  GST_WARNING_OBJECT(dec, "No clock, unable to do DTX");
  dec->dtx_active = 0;
}

gpointer kel_g729f_dtx_thread_main(gpointer data) {
  auto* dec = static_cast<KelG729fDec*>(data);
  g_mutex_lock(&dec->lock);
  while (running(dec)) {
    if (!dec->dtx_active || !dec->playing) g_cond_wait(&dec->cond, &dec->lock);
    if (dec->dtx_active && dec->playing) kel_g729f_dtx_func(dec);
  }
  g_mutex_unlock(&dec->lock);
  return nullptr;
}

void kel_g729f_dtx_start(KelG729fDec* dec) {
  if (!running(dec)) return;
  GST_DEBUG_OBJECT(dec, "start DTX transmission");
  g_mutex_lock(&dec->lock);
  dec->dtx_active = running(dec);  // the element may have stopped before the lock was ours
  dec->dtx_run++;
  g_cond_signal(&dec->cond);
  g_mutex_unlock(&dec->lock);
}

void kel_g729f_dtx_stop(KelG729fDec* dec) {
  GST_DEBUG_OBJECT(dec, "stop DTX transmission");
  kel_g729f_dtx_cancel(dec);
}

bool kel_g729f_dtx_cancel(KelG729fDec* dec) {
  g_mutex_lock(&dec->lock);
  const bool active = dec->dtx_active;
  stop_locked(dec);
  g_mutex_unlock(&dec->lock);
  return active;
}

void kel_g729f_dtx_play(KelG729fDec* dec) {
  g_mutex_lock(&dec->lock);
  dec->playing = TRUE;
  g_cond_signal(&dec->cond);
  g_mutex_unlock(&dec->lock);
}

bool kel_g729f_dtx_pause(KelG729fDec* dec) {
  g_mutex_lock(&dec->lock);
  const bool playing = dec->playing;
  if (playing) {
    const Watch watch(dec);
    dec->pauses++;
    dec->paused_base = watch.base;
    dec->paused_at = watch.clock ? watch.now() : kUnknown;
    dec->playing = FALSE;
    wake_locked(dec);
  }
  g_mutex_unlock(&dec->lock);
  return playing;
}

void kel_g729f_dtx_set_allowance(KelG729fDec* dec, Time allowance) {
  g_mutex_lock(&dec->lock);
  dec->line.allowance = allowance;
  wake_locked(dec);
  g_mutex_unlock(&dec->lock);
}

void kel_g729f_dtx_join(KelG729fDec* dec) {
  if (!dec->thread) return;
  GstAudioDecoder* base = GST_AUDIO_DECODER(dec);
  g_mutex_lock(&dec->lock);
  running(dec) = 0;
  stop_locked(dec);
  g_cond_signal(&dec->cond);
  g_mutex_unlock(&dec->lock);

  gst_pad_set_active(base->srcpad, FALSE);
  GstPad* peer = comes_to_rest(base, kHeldUp) ? nullptr : gst_pad_get_peer(base->srcpad);
  if (peer) {
    gst_pad_send_event(peer, gst_event_new_flush_start());
    GST_AUDIO_DECODER_STREAM_LOCK(base);
    GST_AUDIO_DECODER_STREAM_UNLOCK(base);
  }
  g_thread_join(dec->thread);
  dec->thread = nullptr;
  if (!peer) return;
  gst_pad_send_event(peer, gst_event_new_flush_stop(FALSE));
  gst_object_unref(peer);
}
