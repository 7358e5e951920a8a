#include "audio/preparing/Wish.h"

#include <nlohmann/json.hpp>

namespace krl::audio {
namespace {

using Json = nlohmann::json;

// Each record's names with its members, so that both directions go by one list.

template <typename Visitor>
void forEachField(Visitor visit, const Wish* /*record*/) {
    visit("start", &Wish::startSeconds);
    visit("length", &Wish::lengthSeconds);
    visit("fadeIn", &Wish::fadeInSeconds);
    visit("fadeOut", &Wish::fadeOutSeconds);
    visit("automatic", &Wish::automatic);
    visit("level", &Wish::level);
    visit("title", &Wish::title);
    visit("artist", &Wish::artist);
}

template <typename Visitor>
void forEachField(Visitor visit, const Prepared* /*record*/) {
    visit("start", &Prepared::startSeconds);
    visit("length", &Prepared::lengthSeconds);
    visit("songLoudness", &Prepared::songLoudness);
    visit("loudness", &Prepared::loudness);
    visit("peak", &Prepared::peak);
    visit("silent", &Prepared::silent);
    visit("damagedParts", &Prepared::damagedParts);
}

template <typename Record>
Json jsonOf(const Record& record) {
    Json json;
    forEachField([&](const char* name, auto member) { json[name] = record.*member; }, &record);
    return json;
}

/// @throw Json::exception when a field is missing or of another type
template <typename Record>
Record recordOf(const Json& json) {
    Record record;
    forEachField([&](const char* name, auto member) { json.at(name).get_to(record.*member); },
                 &record);
    return record;
}

std::string dumped(const Json& json) {
    return json.dump(-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace);
}

template <typename Make>
auto parsed(std::string_view text, Make make) -> std::optional<decltype(make(Json()))> {
    try {
        return make(Json::parse(text));
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace

std::string encoded(const Wish& wish) {
    return dumped(jsonOf(wish));
}

std::optional<Wish> decodedWish(std::string_view text) {
    return parsed(text, [](const Json& json) { return recordOf<Wish>(json); });
}

std::string encoded(const PrepareAnswer& answer) {
    return dumped({{"prepared", jsonOf(answer.prepared)},
                   {"problem", answer.problem},
                   {"advice", answer.advice}});
}

std::optional<PrepareAnswer> decodedAnswer(std::string_view text) {
    return parsed(text, [](const Json& json) {
        return PrepareAnswer{recordOf<Prepared>(json.at("prepared")),
                             json.at("problem").get<std::string>(),
                             json.at("advice").get<std::string>()};
    });
}

} // namespace krl::audio
