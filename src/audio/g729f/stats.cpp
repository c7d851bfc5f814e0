#include "src/audio/g729f/stats.h"

namespace {

template <typename Stats>
struct Field {
  const char* name;
  guint64 Stats::*counter;
};

constexpr Field<EncoderStats> encoder_fields[] = {
    {"frames", &EncoderStats::frames},
    {"sids", &EncoderStats::sids},
    {"untransmitted", &EncoderStats::untransmitted},
};

constexpr Field<DecoderStats> decoder_fields[] = {
    {"frames", &DecoderStats::frames},
    {"sids", &DecoderStats::sids},
    {"invalid-sizes", &DecoderStats::invalid_sizes},
    {"concealed", &DecoderStats::concealed},
    {"comfort-noise", &DecoderStats::comfort_noise},
    {"late-wakeups", &DecoderStats::late_wakeups},
    {"parity-errors", &DecoderStats::parity_errors},
    {"loss-events", &DecoderStats::loss_events},
    {"longest-loss", &DecoderStats::longest_loss},
};

template <typename Stats, gsize N>
void reset(Stats& stats, const Field<Stats> (&fields)[N]) {
  for (const Field<Stats>& field : fields) {
    std::atomic_ref<guint64>(stats.*field.counter).store(0, std::memory_order_relaxed);
  }
}

template <typename Stats, gsize N>
GstStructure* structure(const char* name, Stats& stats, const Field<Stats> (&fields)[N]) {
  GstStructure* result = gst_structure_new_empty(name);
  for (const Field<Stats>& field : fields) {
    const std::atomic_ref<guint64> counter(stats.*field.counter);
    gst_structure_set(result, field.name, G_TYPE_UINT64, counter.load(std::memory_order_relaxed),
                      nullptr);
  }
  return result;
}

}  // namespace

void stats_reset(EncoderStats& stats) {
  reset(stats, encoder_fields);
}

void stats_reset(DecoderStats& stats) {
  reset(stats, decoder_fields);
}

GstStructure* stats_structure(EncoderStats& stats) {
  return structure("application/x-kelg729fenc-stats", stats, encoder_fields);
}

GstStructure* stats_structure(DecoderStats& stats) {
  return structure("application/x-kelg729fdec-stats", stats, decoder_fields);
}

void stats_install_property(GObjectClass* klass, guint id) {
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      klass, id,
      g_param_spec_boxed("stats", "Statistics", "Counters since the element started",
                         GST_TYPE_STRUCTURE, flags));
}
