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
  guint dtx_run;           // counts the starts of comfort noise
  GstClockTime dtx_delay;  // by which this run's first packet comes later

  Timeline timeline;  // under the base class's stream lock
  Concealment plc;
  RawStream raw;
  DecoderStats stats;
};

struct KelG729fDecClass {
  GstAudioDecoderClass parent_class;
};

GType kel_g729f_dec_get_type();

// Stamps an input buffer, which the base class has made its own, with the output's time.
void kel_g729f_dec_place(KelG729fDec* dec, GstBuffer* buffer);
