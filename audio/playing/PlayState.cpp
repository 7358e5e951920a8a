#include "audio/playing/PlayState.h"

#include <nlohmann/json.hpp>

namespace krl::audio {

using Json = nlohmann::json;

std::string encoded(const PlayState& state) {
    const Json json{{"phase", static_cast<int>(state.phase)},
                    {"position", state.positionSeconds},
                    {"length", state.lengthSeconds},
                    {"problem", state.problem}};
    return json.dump(-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace);
}

std::optional<PlayState> decodedPlayState(std::string_view text) {
    try {
        const Json json = Json::parse(text);
        const int phase = json.at("phase").get<int>();
        if (phase < 0 || phase > static_cast<int>(PlayState::Phase::NotPlayed)) {
            return std::nullopt;
        }
        return PlayState{static_cast<PlayState::Phase>(phase), json.at("position").get<double>(),
                         json.at("length").get<double>(), json.at("problem").get<std::string>()};
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace krl::audio
