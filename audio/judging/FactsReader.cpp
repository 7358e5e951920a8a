#include "audio/judging/FactsReader.h"

#include "tags/TagExchange.h"

namespace krl::audio {

std::optional<tags::AudioFacts> FactsReader::factsOf(const std::filesystem::path& file,
                                                     int descriptor) {
    const auto answer = process_.ask(tags::factsQuestion(file.filename().string()), descriptor,
                                     tags::kLongestFacts);
    auto facts = answer ? tags::decodedFacts(*answer) : std::nullopt;
    if (!facts) {
        process_.end();
    }
    return facts;
}

} // namespace krl::audio
