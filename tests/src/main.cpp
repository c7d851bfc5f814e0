// The elements' tests. Nothing they do may draw a warning from GLib or GStreamer; what is left over
// under GST_TRACERS=leaks is such a warning, at the very end (GST_DEBUG=GST_TRACER:7 tells more).
#include <gst/gst.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  if (const gchar* file = g_getenv("TEST_PLUGIN")) {
    GstPlugin* plugin = gst_plugin_load_file(file, nullptr);
    if (!plugin) return 1;
    gst_object_unref(plugin);
  }
  g_log_set_always_fatal(
      static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));

  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
