#include "audio/judging/DecoderFacts.h"

#include "confined/ConfinedProcess.h"
#include "engine/files/TagProcess.h"

#include <unistd.h>

#include <array>

namespace krl::audio {

std::filesystem::path prepareProgram() {
    const auto program = engine::tagProgram().replace_filename("vesk-prepare");
    return access(program.c_str(), X_OK) == 0 ? program : std::filesystem::path();
}

std::optional<tags::AudioFacts> decoderFacts(int descriptor, const std::filesystem::path& program) {
    constexpr std::chrono::minutes kLongest{1};
    if (program.empty()) {
        return std::nullopt;
    }
    confined::ConfinedProcess process(program);
    const std::array<int, 1> files{descriptor};
    const auto answer = process.ask(kForFacts, files, tags::kLongestFacts, kLongest);
    const auto facts = answer ? tags::decodedFacts(*answer) : std::nullopt;
    return facts && facts->hasSound() ? facts : std::nullopt;
}

} // namespace krl::audio
