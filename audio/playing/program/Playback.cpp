#include "audio/playing/program/Playback.h"

#include <unistd.h>

#include <string_view>
#include <utility>

namespace krl::audio {
namespace {

/// Of playbin's flags: no pictures.
constexpr gint kSoundAlone = 0x02;

constexpr char kFileSource[] = "fdsrc";

struct FreeMessage {
    void operator()(GstMessage* message) const { gst_message_unref(message); }
};

/// What a message of a failure or warning says.
struct Complaint {
    std::string text;
    bool isFromSink = false;  ///< an element that the sound would go to
    bool isOfDevices = false; ///< the one that looks for a device
};

Complaint complaintOf(GstMessage* message) {
    GError* error = nullptr;
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message, &error, nullptr);
    } else {
        gst_message_parse_warning(message, &error, nullptr);
    }
    Complaint complaint;
    complaint.text = error == nullptr ? "it does not say why" : error->message;
    g_clear_error(&error);
    while (complaint.text.ends_with('.')) {
        complaint.text.pop_back();
    }
    GstObject* const source = GST_MESSAGE_SRC(message);
    if (GST_IS_ELEMENT(source)) {
        GstElement* const element = GST_ELEMENT(source);
        GstElementFactory* const factory = gst_element_get_factory(element);
        const gchar* const name = factory == nullptr ? nullptr : GST_OBJECT_NAME(factory);
        complaint.isOfDevices = name != nullptr && std::string_view(name) == "autoaudiosink";
        complaint.isFromSink =
            complaint.isOfDevices ||
            (GST_OBJECT_FLAG_IS_SET(element, GST_ELEMENT_FLAG_SINK) && !GST_IS_PIPELINE(element));
    }
    return complaint;
}

} // namespace

void forgetOtherSources() {
    GstRegistry* const registry = gst_registry_get();
    GList* const features = gst_registry_get_feature_list(registry, GST_TYPE_ELEMENT_FACTORY);
    for (GList* one = features; one != nullptr; one = one->next) {
        auto* const factory = GST_ELEMENT_FACTORY(one->data);
        if (gst_element_factory_get_uri_type(factory) == GST_URI_SRC &&
            std::string_view(GST_OBJECT_NAME(factory)) != kFileSource) {
            gst_registry_remove_feature(registry, GST_PLUGIN_FEATURE(factory));
        }
    }
    gst_plugin_feature_list_free(features);
}

Playback::Playback(confined::OpenFile file, const std::string& sink) : file_(std::move(file)) {
    GstElement* const playbin = gst_element_factory_make("playbin", nullptr);
    if (playbin == nullptr) {
        fail(PlayState::Phase::NotPlayed, "GStreamer has no \"playbin\" here");
        return;
    }
    playbin_.reset(GST_ELEMENT(gst_object_ref_sink(playbin)));
    bus_.reset(gst_element_get_bus(playbin));
    if (!setSink(sink)) {
        return;
    }
    lseek(file_.get(), 0, SEEK_SET); // whoever wrote it left it at its end
    const std::string uri = "fd://" + std::to_string(file_.get());
    g_object_set(playbin, "uri", uri.c_str(), "flags", kSoundAlone, nullptr);
    gst_element_set_state(playbin, GST_STATE_PLAYING);
}

Playback::~Playback() {
    if (playbin_) {
        gst_element_set_state(playbin_.get(), GST_STATE_NULL);
    }
}

bool Playback::setSink(const std::string& sink) {
    const std::string words = sink.empty() ? "autoaudiosink" : sink;
    GError* error = nullptr;
    GstElement* const element =
        gst_parse_bin_from_description(words.c_str(), /*ghost_unlinked_pads=*/TRUE, &error);
    if (element == nullptr || error != nullptr) {
        fail(PlayState::Phase::NoDevice, error == nullptr ? "no such sink" : error->message);
        g_clear_error(&error);
        if (element != nullptr) {
            gst_object_unref(gst_object_ref_sink(element));
        }
        return false;
    }
    g_object_set(playbin_.get(), "audio-sink", element, nullptr);
    return true;
}

PlayState Playback::wait(std::chrono::milliseconds longest) {
    if (state_.phase == PlayState::Phase::Playing) {
        const auto kinds =
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_WARNING);
        const std::chrono::nanoseconds most = longest;
        const std::unique_ptr<GstMessage, FreeMessage> message(
            gst_bus_timed_pop_filtered(bus_.get(), static_cast<GstClockTime>(most.count()), kinds));
        // Before the end is taken in, after which there is no position.
        state_.lengthSeconds = seconds(gst_element_query_duration);
        state_.positionSeconds = seconds(gst_element_query_position);
        if (message) {
            take(message.get());
        }
    }
    return state_;
}

void Playback::take(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        state_.phase = PlayState::Phase::Ended;
        return;
    }
    const Complaint complaint = complaintOf(message);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        fail(complaint.isFromSink ? PlayState::Phase::NoDevice : PlayState::Phase::NotPlayed,
             complaint.text);
    } else if (complaint.isOfDevices) {
        // It would go on without a sound.
        fail(PlayState::Phase::NoDevice, complaint.text);
    }
}

void Playback::fail(PlayState::Phase phase, const std::string& problem) {
    state_.phase = phase;
    state_.problem = problem;
}

double Playback::seconds(gboolean (*query)(GstElement*, GstFormat, gint64*)) const {
    gint64 time = 0;
    return query(playbin_.get(), GST_FORMAT_TIME, &time) && time > 0
               ? static_cast<double>(time) / static_cast<double>(GST_SECOND)
               : 0;
}

} // namespace krl::audio
