// The stream's tags: codec and bit rate.
#pragma once

#include <gst/gst.h>

#include "src/audio/g729f/frame.h"

constexpr guint kBitRate = G729_SPEECH_BYTES * 8 * (GST_SECOND / kFrameTime);

// The caller owns the list. With silence compression (or where nobody knows), the rate is the
// highest and no exact one.
inline GstTagList* codec_tags(bool constant_rate) {
  GstTagList* tags = gst_tag_list_new(GST_TAG_AUDIO_CODEC, "G.729", GST_TAG_NOMINAL_BITRATE,
                                      kBitRate, GST_TAG_MAXIMUM_BITRATE, kBitRate, nullptr);
  if (constant_rate) {
    gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, GST_TAG_BITRATE, kBitRate, nullptr);
  }
  return tags;
}
