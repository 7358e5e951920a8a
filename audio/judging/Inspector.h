#pragma once

#include "audio/judging/FactsReader.h"
#include "audio/judging/Judgement.h"

#include <cstdint>
#include <filesystem>

namespace krl::audio {

/// All that is found out about a file.
struct Inspection {
    uint64_t size = 0;
    tags::AudioFacts facts;
    Judgement judgement;
};

/// Looks at files of this computer, all with one reader.
class Inspector {
public:
    /// @throw Failure when there is no such file, or nothing can be said of it
    Inspection inspect(const std::filesystem::path& path);

private:
    FactsReader reader_;
};

} // namespace krl::audio
