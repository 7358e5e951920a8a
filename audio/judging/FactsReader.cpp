#include "audio/judging/FactsReader.h"

#include "engine/errors/Failure.h"
#include "tags/TagExchange.h"

#include <fmt/format.h>

#include <array>
#include <system_error>
#include <utility>

namespace krl::audio {
namespace {

engine::Failure cannotStart(const std::string& why) {
    return {engine::FailureKind::Unexpected, fmt::format("audio files cannot be read: {}", why),
            "Install KRLVesk anew."};
}

} // namespace

FactsReader::FactsReader(std::filesystem::path program) : program_(std::move(program)) {}

std::optional<tags::AudioFacts> FactsReader::factsOf(const std::filesystem::path& file,
                                                     int descriptor) {
    constexpr std::chrono::seconds kLongest{10};
    const std::array<int, 1> files{descriptor};
    const auto answer = process().ask(tags::factsQuestion(file.filename().string()), files,
                                      tags::kLongestFacts, kLongest);
    auto facts = answer ? tags::decodedFacts(*answer) : std::nullopt;
    if (!facts) {
        process_.reset();
    }
    return facts;
}

confined::ConfinedProcess& FactsReader::process() {
    if (program_.empty()) {
        throw cannotStart("the program \"vesk-tags\" is missing beside the library");
    }
    if (!process_) {
        try {
            process_.emplace(program_);
        } catch (const std::system_error& error) {
            throw cannotStart(fmt::format("\"{}\": {}", program_.string(), error.code().message()));
        }
    }
    return *process_;
}

} // namespace krl::audio
