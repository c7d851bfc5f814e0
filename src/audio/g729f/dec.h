// kelg729fdec: packed G.729 frames in, raw audio out, comfort noise in silence.
#pragma once

#include <gst/audio/audio.h>

#include "codec/g729.h"
#include "src/audio/g729f/plc.h"
#include "src/audio/g729f/raw.h"
#include "src/audio/g729f/stats.h"
#include "src/audio/g729f/timeline.h"

struct KelG729fDec {
  GstAudioDecoder parent;

  // Shared with the comfort-noise thread (dtx.h).
  GMutex lock;
  GCond cond;
  gint32 dtx_active;      // comfort noise is wanted
  gint32 thread_running;  // the thread keeps its loop
  GstClockID clock_id;    // what the thread waits for, or none
  GThread* thread;
  G729DecoderState* decoder;
  guint dtx_run;     // counts the starts of comfort noise
  gboolean playing;  // else no noise is made
  guint pauses;      // counts the ends of `playing` and the changes of the clock
  Time paused_at;    // running time of the last of these, by the base time then
  GstClockTime paused_base;
  Timeline line;  // written with the base class's stream lock, too

  // Under the base class's stream lock.
  Concealment plc;
  GstClockTime begin;   // of the next packet without a timestamp, if that is known
  GstClockTime stamp;   // of the noise being finished; the base class may have lost its place
  gboolean in_segment;  // one has come since the last flush or end
  GThread* finisher;    // hands a packet of noise to the base class just now; atomic

  RawStream raw;
  DecoderStats stats;
};

struct KelG729fDecClass {
  GstAudioDecoderClass parent_class;
};

GType kel_g729f_dec_get_type();
