#include "tags/AudioFacts.h"

#include "tags/TagExchange.h"

#include <nlohmann/json.hpp>

namespace krl::tags {
namespace {

using Json = nlohmann::json;

std::string ifShort(const std::string& text) {
    return text.size() > kLongestTitle ? "" : text;
}

/// A name with its member, so that both directions go by one list.
template <typename Visitor>
void forEachField(Visitor visit) {
    visit("container", &AudioFacts::container);
    visit("codec", &AudioFacts::codec);
    visit("channels", &AudioFacts::channels);
    visit("sampleRate", &AudioFacts::sampleRate);
    visit("bits", &AudioFacts::bits);
    visit("kilobits", &AudioFacts::kilobits);
    visit("lengthMs", &AudioFacts::lengthMs);
    visit("encrypted", &AudioFacts::encrypted);
    visit("title", &AudioFacts::title);
    visit("artist", &AudioFacts::artist);
    visit("pictureBytes", &AudioFacts::pictureBytes);
}

} // namespace

std::string encoded(const AudioFacts& facts) {
    AudioFacts sent = facts;
    sent.title = ifShort(facts.title);
    sent.artist = ifShort(facts.artist);
    Json json;
    forEachField([&](const char* name, auto member) { json[name] = sent.*member; });
    return json.dump(-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace);
}

std::optional<AudioFacts> decodedFacts(std::string_view text) {
    const Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    AudioFacts facts;
    try {
        forEachField([&](const char* name, auto member) { json.at(name).get_to(facts.*member); });
    } catch (const Json::exception&) {
        return std::nullopt;
    }
    return facts;
}

} // namespace krl::tags
