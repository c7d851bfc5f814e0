// The plug-in's two entry points: the loader reads the descriptor, an application that links the
// plug-in in calls the registration.
#include <gst/gst.h>

#include "src/audio/g729f/dec.h"
#include "src/audio/g729f/enc.h"

namespace {

gboolean plugin_init(GstPlugin* plugin) {
  const gboolean encoder =
      gst_element_register(plugin, "kelg729fenc", GST_RANK_NONE, kel_g729f_enc_get_type());
  const gboolean decoder =
      gst_element_register(plugin, "kelg729fdec", GST_RANK_NONE, kel_g729f_dec_get_type());
  return encoder && decoder;
}

constexpr GstPluginDesc descriptor = {
    .major_version = 1,
    .minor_version = 17,
    .name = "kelg729f_avx",
    .description = "Kelora AS world-class audio elements",
    .plugin_init = plugin_init,
    .version = "1.0.20",
    .license = "Proprietary",
    .source = "Kelora",
    .package = "GStreamer",
    .origin = "https://kelora.example/",
    .release_datetime = nullptr,
    ._gst_reserved = {},
};

}  // namespace

extern "C" {

GST_PLUGIN_EXPORT const GstPluginDesc* gst_plugin_kelg729f_avx_get_desc() {
  return &descriptor;
}

GST_PLUGIN_EXPORT gboolean gst_plugin_kelg729f_avx_register() {
  const GstPluginDesc& d = descriptor;
  return gst_plugin_register_static(d.major_version, d.minor_version, d.name, d.description,
                                    d.plugin_init, d.version, d.license, d.source, d.package,
                                    d.origin);
}
}
