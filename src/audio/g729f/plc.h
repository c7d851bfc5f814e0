// Audio for the time in which no packet came: concealed speech, or noise after a descriptor.
//
// Lost speech becomes the codec's own concealment of erased frames, no louder than the last good
// speech and faded out by the time the loss has lasted 100 ms; silence after that. Comfort noise is
// what the codec decodes from untransmitted frames.
//
// Not for more than one thread at a time.
#pragma once

#include <glib.h>

#include "codec/g729.h"

struct Concealment {
  gint16 recent[2 * G729_FRAME_SAMPLES];  // the last two good frames
  gsize lost;                             // samples of speech made since the last good packet
  gboolean silent;                        // a silence descriptor came last
};

void plc_reset(Concealment& plc);

// Takes note of a packet's audio: `frames` of speech from `pcm` on, and whether a descriptor
// follows.
void plc_note_good(Concealment& plc, const guint8* pcm, gsize frames, bool sid);

// Makes the next `frames` into `pcm`: noise in silence, else concealed speech.
void plc_fill(Concealment& plc, G729DecoderState* decoder, guint8* pcm, gsize frames);
