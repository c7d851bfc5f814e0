// What an element has done since it started, for its read-only property `stats`.
//
// Every counter is written by one thread at a time and read by any. Adding is a plain load and
// store; a reader may see one counter a frame ahead of another.
#pragma once

#include <gst/gst.h>

#include <atomic>

struct EncoderStats {
  guint64 frames;         // of speech
  guint64 sids;           // silence descriptors
  guint64 untransmitted;  // frames of silence that left nothing
};

struct DecoderStats {
  guint64 frames;         // of speech
  guint64 sids;           // silence descriptors
  guint64 invalid_sizes;  // buffers dropped for their size
  guint64 concealed;      // frames made for lost ones
  guint64 comfort_noise;  // frames made in silence
  guint64 late_wakeups;   // of the comfort-noise thread, by a whole frame at least
  guint64 parity_errors;  // speech frames with a wrong parity bit (G.729, 4.1.2)
  guint64 loss_events;    // stretches of concealed frames
  guint64 longest_loss;   // of them, in frames
};

inline void stats_add(guint64& counter, guint64 n = 1) {
  const std::atomic_ref<guint64> shared(counter);
  shared.store(shared.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

// For what is the greatest so far.
inline void stats_raise(guint64& counter, guint64 n) {
  const std::atomic_ref<guint64> shared(counter);
  if (n > shared.load(std::memory_order_relaxed)) shared.store(n, std::memory_order_relaxed);
}

void stats_reset(EncoderStats& stats);
void stats_reset(DecoderStats& stats);

// The caller owns the structure.
GstStructure* stats_structure(EncoderStats& stats);
GstStructure* stats_structure(DecoderStats& stats);

void stats_install_property(GObjectClass* klass, guint id);
