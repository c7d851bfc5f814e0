// What the registry and gst-inspect-1.0 show of the plug-in.
#include <algorithm>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <utility>

#include "tests/src/harness.h"

namespace {

struct Expected {
  const char* factory;
  const char* type;
  const char* name;
  const char* klass;
  const char* description;
  const char* sink;
  const char* src;
};

constexpr Expected kExpected[] = {
    {"kelg729fenc", "KelG729fEnc", "G.729 Encoder element", "Codec/Encoder/Audio ",
     "Encode streams with G.729 (float impl)",
     "audio/x-raw, format = S16LE, layout = (string) interleaved, rate = (int) 8000, "
     "channels = (int) 1",
     "audio/G729, rate = (int)8000, channels = (int)1"},
    {"kelg729fdec", "KelG729fDec", "G.729 Decoder element", "Codec/Decoder/Audio ",
     "Decode streams encoded with G.729 (float impl)",
     "audio/G729, rate = (int) 8000, channels = (int)1",
     "audio/x-raw, format = S16LE, layout = (string) interleaved, rate = (int) 8000, "
     "channels = (int) 1"},
};

TEST(Plugin, Factories) {
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.factory);
    Object<GstElementFactory> factory(gst_element_factory_find(e.factory));
    ASSERT_TRUE(factory);
    EXPECT_EQ(gst_plugin_feature_get_rank(GST_PLUGIN_FEATURE(factory.get())), guint{GST_RANK_NONE});
    const auto meta = [&](const char* key) {
      return gst_element_factory_get_metadata(factory.get(), key);
    };
    EXPECT_STREQ(meta(GST_ELEMENT_METADATA_LONGNAME), e.name);
    EXPECT_STREQ(meta(GST_ELEMENT_METADATA_KLASS), e.klass);
    EXPECT_STREQ(meta(GST_ELEMENT_METADATA_DESCRIPTION), e.description);
    const std::string authors = meta(GST_ELEMENT_METADATA_AUTHOR);
    EXPECT_EQ(std::count(authors.begin(), authors.end(), '\n'), 1);

    Object<GstElement> element(
        GST_ELEMENT(gst_object_ref_sink(gst_element_factory_create(factory.get(), nullptr))));
    EXPECT_STREQ(G_OBJECT_TYPE_NAME(element.get()), e.type);
    for (const auto& [pad, caps] : {std::pair{"sink", e.sink}, std::pair{"src", e.src}}) {
      GstPadTemplate* of = gst_element_get_pad_template(element.get(), pad);
      ASSERT_TRUE(of);
      EXPECT_EQ(GST_PAD_TEMPLATE_PRESENCE(of), GST_PAD_ALWAYS);
      const Caps have(gst_pad_template_get_caps(of)), want(gst_caps_from_string(caps));
      EXPECT_TRUE(gst_caps_is_strictly_equal(have.get(), want.get()));
    }
  }
}

TEST(Plugin, Descriptor) {
  Object<GstPlugin> plugin(gst_registry_find_plugin(gst_registry_get(), "kelg729f_avx"));
  ASSERT_TRUE(plugin);
  EXPECT_STREQ(gst_plugin_get_description(plugin.get()), "Kelora AS world-class audio elements");
  EXPECT_STREQ(gst_plugin_get_version(plugin.get()), "1.0.20");
  EXPECT_STREQ(gst_plugin_get_license(plugin.get()), "Proprietary");
  EXPECT_STREQ(gst_plugin_get_source(plugin.get()), "Kelora");
  EXPECT_STREQ(gst_plugin_get_package(plugin.get()), "GStreamer");
}

// What the type has beyond the base class's properties: what can be set, with nick, text, range and
// default, and what can be read.
std::set<std::string> own_properties(const char* factory) {
  Object<GstElement> element(
      GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make(factory, nullptr))));
  guint count = 0;
  GParamSpec** all = g_object_class_list_properties(G_OBJECT_GET_CLASS(element.get()), &count);
  std::set<std::string> own;
  for (GParamSpec* property : std::span(all, count)) {
    if (property->owner_type != G_OBJECT_TYPE(element.get())) continue;
    std::ostringstream text;
    text << property->name;
    if (property->flags & G_PARAM_WRITABLE) {
      gchar* value = gst_value_serialize(g_param_spec_get_default_value(property));
      text << "=" << value << " " << g_param_spec_get_nick(property) << ": "
           << g_param_spec_get_blurb(property) << " " << property->flags;
      g_free(value);
    }
    if (G_IS_PARAM_SPEC_INT(property)) {
      text << " " << G_PARAM_SPEC_INT(property)->minimum << ".."
           << G_PARAM_SPEC_INT(property)->maximum;
    }
    own.insert(text.str());
  }
  g_free(all);
  return own;
}

TEST(Plugin, OwnProperties) {
  using Names = std::set<std::string>;
  EXPECT_EQ(own_properties("kelg729fenc"),
            (Names{"annexb=false Annex B: Use Annex B 231",
                   "complexity=0 Complexity: How far to search: each level sounds better and takes "
                   "longer 4327 0..3",
                   "frames=2 Frames: Number of 10ms frames to encode 231 0..2147483647", "stats"}));
  EXPECT_EQ(own_properties("kelg729fdec"), (Names{"stats"}));
}

TEST(Plugin, PropertiesKeepWhatTheyAreGiven) {
  Object<GstElement> element(
      GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("kelg729fenc", nullptr))));
  for (const auto& [name, value] : {std::pair{"annexb", 1}, {"frames", 7}, {"complexity", 2}}) {
    int found = 0;
    g_object_set(element.get(), name, value, nullptr);
    g_object_get(element.get(), name, &found, nullptr);
    EXPECT_EQ(found, value) << name;
  }
}

}  // namespace
