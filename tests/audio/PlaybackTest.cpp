// What the process that plays can read.
#include "audio/playing/program/Playback.h"

#include <gtest/gtest.h>

namespace {

/// Whether there is an element that reads from there.
bool canRead(const char* uri) {
    GError* error = nullptr;
    GstElement* const source = gst_element_make_from_uri(GST_URI_SRC, uri, nullptr, &error);
    g_clear_error(&error);
    if (source == nullptr) {
        return false;
    }
    gst_object_unref(gst_object_ref_sink(source));
    return true;
}

} // namespace

TEST(Playback, ReadsNothingButWhatItIsHanded) {
    gst_init(nullptr, nullptr);
    static const bool couldBefore = canRead("file:///etc/hostname"); // once a process
    ASSERT_TRUE(couldBefore);
    krl::audio::forgetOtherSources();
    EXPECT_FALSE(canRead("file:///etc/hostname"));
    EXPECT_FALSE(canRead("http://127.0.0.1/song.mp3"));
    EXPECT_TRUE(canRead("fd://0"));
}
