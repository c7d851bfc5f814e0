// The frame as the elements see it: 10 ms of 8 kHz mono 16-bit audio.
#pragma once

#include <gst/gst.h>

#include <bit>

#include "codec/g729.h"

constexpr gsize kPcmBytes = G729_FRAME_SAMPLES * sizeof(gint16);
constexpr GstClockTime kFrameTime = 10 * GST_MSECOND;
// The encoder hears this much more than the frame before it codes it (G.729, 2.5). The codec has no
// other delay: what is decoded can be played at once.
constexpr GstClockTime kLookAhead = 5 * GST_MSECOND;

static_assert(G729_FRAME_SAMPLES * GST_SECOND == 8000 * kFrameTime);
static_assert(std::endian::native == std::endian::little, "pads carry S16LE");

#define KEL_G729F_AUTHORS \
  "Kelora Codec Team <codec@kelora.example>\nKelora Media Team <media@kelora.example>"
