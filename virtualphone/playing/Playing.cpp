#include "virtualphone/playing/Playing.h"

#include "virtualphone/playing/Ffprobe.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace virtualphone {

namespace {

using Json = nlohmann::json;

// What plays, in FFmpeg's words.
struct Played {
    std::string_view container;
    std::vector<std::string_view> codecs;
    std::vector<std::string_view> extensions;
    bool hasKilobits; // bounds hold for them
};

const std::vector<Played>& allPlayed() {
    static const std::vector<Played> all = {
        {"mov,mp4,m4a,3gp,3g2,mj2", {"aac"}, {"m4r", "m4a", "m4p"}, true},
        {"mp3", {"mp3"}, {"mp3"}, true},
        {"wav", {"pcm_u8", "pcm_s16le"}, {"wav"}, false},
        {"aiff", {"pcm_s8", "pcm_s16be", "pcm_s16le"}, {"aif", "aiff"}, false},
    };
    return all;
}

constexpr double kLowestRate = 8000;
constexpr double kHighestRate = 48000;
constexpr double kMostChannels = 2;
constexpr double kFewestKilobits = 8;
constexpr double kMostKilobits = 320;
/// The 40 seconds of media libraries, and what an encoder adds at the ends.
constexpr double kMostSeconds = 40.999;

template <typename List, typename Value>
bool contains(const List& list, const Value& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string extensionOf(const std::string& name) {
    const size_t point = name.rfind('.');
    std::string extension = point == std::string::npos ? "" : name.substr(point + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

const Json& at(const Json& object, const char* key) {
    static const Json kNothing;
    const auto found = object.is_object() ? object.find(key) : object.end();
    return object.is_object() && found != object.end() ? *found : kNothing;
}

std::string textAt(const Json& object, const char* key) {
    const Json& value = at(object, key);
    return value.is_string() ? value.get<std::string>() : "";
}

// ffprobe writes some numbers as text.
std::optional<double> numberAt(const Json& object, const char* key) {
    const Json& value = at(object, key);
    if (value.is_number()) {
        return value.get<double>();
    }
    const std::string text = textAt(object, key);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && !text.empty() ? std::optional(number) : std::nullopt;
}

// "FLAC" of "FLAC (Free Lossless Audio Codec)", "QuickTime" of "QuickTime / MOV".
std::string shortName(const std::string& longName) {
    return longName.substr(0, std::min(longName.find(" ("), longName.find(" / ")));
}

std::string shown(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", number);
    return text;
}

bool isPicture(const Json& stream) {
    return numberAt(at(stream, "disposition"), "attached_pic").value_or(0) != 0;
}

bool isEncrypted(const Json& probed, const Json& sound) {
    static const std::vector<std::string> kTags = {"drms", "enca", "aavd"};
    const auto hasKeys = [](const Json& packet) {
        const Json& data = at(packet, "side_data_list");
        return std::any_of(data.begin(), data.end(), [](const Json& one) {
            return textAt(one, "side_data_type").starts_with("Encryption");
        });
    };
    const Json& packets = at(probed, "packets");
    return contains(kTags, textAt(sound, "codec_tag_string")) ||
           std::any_of(packets.begin(), packets.end(), hasKeys);
}

// Why a file of a kind that plays does not.
std::string whyNotThisSound(const Played& played, const Json& format, const Json& sound) {
    const double rate = numberAt(sound, "sample_rate").value_or(0);
    const double channels = numberAt(sound, "channels").value_or(0);
    const double seconds = numberAt(format, "duration").value_or(0);
    const double bits =
        numberAt(sound, "bit_rate").value_or(numberAt(format, "bit_rate").value_or(0));
    const double kilobits = std::round(bits / 1000);
    if (rate < kLowestRate || rate > kHighestRate) {
        return shown(rate / 1000) + " kHz";
    }
    if (channels < 1 || channels > kMostChannels) {
        return shown(channels) + " channels";
    }
    if (played.hasKilobits && (kilobits < kFewestKilobits || kilobits > kMostKilobits)) {
        return shown(kilobits) + " kbit/s";
    }
    if (seconds <= 0 || seconds > kMostSeconds) {
        return shown(seconds) + " seconds long";
    }
    return {};
}

std::string whyNotThisKind(const Json& probed, const Json& sound, const std::string& extension) {
    const Json& format = at(probed, "format");
    const std::string kind = shortName(textAt(sound, "codec_long_name")) + " in " +
                             shortName(textAt(format, "format_long_name"));
    const auto played =
        std::find_if(allPlayed().begin(), allPlayed().end(), [&](const Played& one) {
            return one.container == textAt(format, "format_name") &&
                   contains(one.codecs, textAt(sound, "codec_name"));
        });
    if (isEncrypted(probed, sound)) {
        return "encrypted";
    }
    if (played == allPlayed().end()) {
        return kind;
    }
    if (const std::string profile = textAt(sound, "profile");
        textAt(sound, "codec_name") == "aac" && profile != "LC") {
        return profile + " in place of AAC-LC";
    }
    if (!contains(played->extensions, extension)) {
        return kind + " under the name of another type";
    }
    return whyNotThisSound(*played, format, sound);
}

} // namespace

bool isRingtoneName(const std::string& name) {
    return std::any_of(allPlayed().begin(), allPlayed().end(), [&](const Played& played) {
        return contains(played.extensions, extensionOf(name));
    });
}

std::string whyNotPlayed(int file, const std::string& name, bool onlyM4r) {
    if (!isRingtoneName(name)) {
        return "no ringtone by its name";
    }
    const std::string extension = extensionOf(name);
    if (onlyM4r && extension != "m4r") {
        return "firmware 1.1.3 and later plays m4r only";
    }
    const std::optional<std::string> text = ffprobe(file);
    if (!text) {
        return "ffprobe has not done with it after 30 seconds";
    }
    const Json probed = Json::parse(*text, nullptr, /*allow_exceptions=*/false);
    Json sound;
    for (const Json& stream : at(probed, "streams")) {
        const std::string type = textAt(stream, "codec_type");
        if (type == "audio" && sound.is_null()) {
            sound = stream;
        } else if (type == "video" && !isPicture(stream)) {
            return "a film";
        }
    }
    return sound.is_null() ? "no sound that is known" : whyNotThisKind(probed, sound, extension);
}

} // namespace virtualphone
