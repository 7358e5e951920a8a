#include "audio/judging/Inspector.h"

#include "audio/judging/DecoderFacts.h"
#include "engine/files/LocalFile.h"
#include "engine/files/RegularFile.h"

#include <fmt/format.h>

namespace krl::audio {

using engine::Failure;
using engine::FailureKind;

Inspection Inspector::inspect(const std::filesystem::path& path) {
    const engine::RegularFile file(path, "Check the path and its permissions.");
    if (file.size() == 0) {
        throw Failure(FailureKind::EmptyFile, fmt::format("\"{}\" is empty", path.string()),
                      "Make the file anew.");
    }
    auto facts = reader_.factsOf(path, file.descriptor());
    if (!facts) {
        throw Failure(FailureKind::UnreadableFile,
                      fmt::format("\"{}\" cannot be read as an audio file: that takes too much "
                                  "memory or time",
                                  path.string()),
                      "It is damaged, or made to do harm. Make it anew from its source.");
    }
    if (!facts->encrypted && !facts->hasSound()) {
        facts = decoderFacts(file.descriptor()).value_or(*facts);
    }
    return {file.size(), *facts, judge(*facts, engine::typeOf(path))};
}

} // namespace krl::audio
