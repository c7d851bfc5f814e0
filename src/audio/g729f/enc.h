// kelg729fenc: raw audio in, packed G.729 frames out.
#pragma once

#include <gst/audio/audio.h>

#include "codec/g729.h"
#include "src/audio/g729f/stats.h"

struct KelG729fEnc {
  GstAudioEncoder parent;
  G729EncoderState* encoder;  // from start to stop

  // Properties: written by any thread, read while encoding.
  gint32 annexb;
  gint32 frames;
  gint32 complexity;

  EncoderStats stats;
  gboolean constant_rate;  // no silence compression since the start
  gboolean silent;         // the last frame was not speech
};

struct KelG729fEncClass {
  GstAudioEncoderClass parent_class;
};

GType kel_g729f_enc_get_type();
