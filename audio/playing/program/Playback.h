#pragma once

#include "audio/playing/PlayState.h"
#include "confined/OpenFile.h"

#include <gst/gst.h>

#include <chrono>
#include <memory>
#include <string>

namespace krl::audio {

/// Gives up one reference on an object of GStreamer.
struct Unref {
    template <typename Object>
    void operator()(Object* object) const {
        gst_object_unref(object);
    }
};

/// An open file being played by GStreamer's playbin.
class Playback {
public:
    /// GStreamer has been initialised.
    Playback(confined::OpenFile file, const std::string& sink);
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// Waits for the end or a failure, so long at most, and says how far it is.
    PlayState wait(std::chrono::milliseconds longest);

private:
    bool setSink(const std::string& sink);
    void take(GstMessage* message);
    void fail(PlayState::Phase phase, const std::string& problem);
    double seconds(gboolean (*query)(GstElement*, GstFormat, gint64*)) const;

    confined::OpenFile file_;
    std::unique_ptr<GstElement, Unref> playbin_;
    std::unique_ptr<GstBus, Unref> bus_;
    PlayState state_;
};

/// Leaves GStreamer nothing to read from but what it is handed: files that name others, such as
/// playlists, lead nowhere.
void forgetOtherSources();

} // namespace krl::audio
