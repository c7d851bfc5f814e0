// Concealment of lost packets, when the base class's property `plc` is set.
//
// A gap that is a loss reaches the decoder as an empty buffer with a duration, and becomes exactly
// as much audio: the codec's own concealment of erased frames, no louder than the last good speech
// and faded out by the time the loss has lasted 100 ms.
//
//   gap         |<------ 25 ms ------>|<- 15 ms ->|
//   frames      | erased  | erased  | erased  | erased  |
//   played      |---------|---------|----:----|---------|
//                                        the rest of a frame waits for more of the same loss
//
// A jitter buffer may know that something was lost, but not how much: its gap lasts 0. That loss
// lasts until the next packet's timestamp, and is concealed when it comes.
//
// Everything here is guarded by the base class's stream lock.
#pragma once

#include <gst/audio/audio.h>

#include "codec/g729.h"

struct KelG729fDec;

struct Concealment {
  gint16 recent[2 * G729_FRAME_SAMPLES];  // the last two good frames
  gint16 frame[G729_FRAME_SAMPLES];       // the last concealed one
  gsize left;                             // samples at its end that have not been played
  gsize lost;                             // samples made since the last good packet
  GstClockTimeDiff owed;  // time asked for and not played, within half a sample either way
  gboolean silent;        // a silence descriptor came last
  gboolean untold;        // a loss of unknown length came last
};

void plc_reset(Concealment& plc);

// Takes note of a packet's audio: `samples` that end with its last speech frame, and whether a
// descriptor follows.
void plc_note_good(Concealment& plc, const guint8* pcm, gsize frames, bool sid);

// The samples that a loss of this duration asks for. Fractions are carried over.
gsize plc_samples(Concealment& plc, GstClockTime duration);

// Makes the next `samples` of the loss; returns the frames that took.
gsize plc_fill(Concealment& plc, G729DecoderState* decoder, guint8* pcm, gsize samples);

// Whether a gap event means lost packets. Silence is none; nor is a gap that says so, or one that
// does not say how long it is.
bool plc_is_loss(const Concealment& plc, GstEvent* gap);

// Conceals the loss that `gap`, an empty buffer of the base class, stands for.
GstFlowReturn kel_g729f_plc_conceal(KelG729fDec* dec, GstBuffer* gap);

// Conceals what was lost before `packet`, an input buffer of the base class's, if nobody has told how
// much that was.
GstFlowReturn kel_g729f_plc_catch_up(KelG729fDec* dec, GstBuffer* packet);
