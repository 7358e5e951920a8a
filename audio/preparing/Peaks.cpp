#include "audio/preparing/Peaks.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>

namespace krl::audio {

using Json = nlohmann::json;

std::string encoded(const PeaksAnswer& answer) {
    const Json json{{"seconds", answer.seconds},
                    {"secondsPerPeak", answer.secondsPerPeak},
                    {"problem", answer.problem},
                    {"advice", answer.advice}};
    return json.dump(-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace);
}

std::optional<PeaksAnswer> decodedPeaksAnswer(std::string_view text) {
    try {
        const Json json = Json::parse(text);
        return PeaksAnswer{
            json.at("seconds").get<double>(), json.at("secondsPerPeak").get<double>(),
            json.at("problem").get<std::string>(), json.at("advice").get<std::string>()};
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::string bytesOf(const std::vector<Peak>& peaks) {
    return {reinterpret_cast<const char*>(peaks.data()), peaks.size() * sizeof(Peak)};
}

std::optional<Peaks> peaksIn(std::string_view bytes, const PeaksAnswer& about) {
    const size_t count = bytes.size() / sizeof(Peak);
    const bool isWhole = count > 0 && count <= kMostPeaks && bytes.size() % sizeof(Peak) == 0;
    const double most = static_cast<double>(count) * about.secondsPerPeak;
    const bool isAsSaid = about.secondsPerPeak > 0 && std::isfinite(most) &&
                          about.seconds <= most && about.seconds > most - about.secondsPerPeak;
    if (!isWhole || !isAsSaid) {
        return std::nullopt;
    }
    Peaks result{std::vector<Peak>(count), about.seconds, about.secondsPerPeak};
    std::memcpy(result.peaks.data(), bytes.data(), bytes.size());
    return result;
}

} // namespace krl::audio
