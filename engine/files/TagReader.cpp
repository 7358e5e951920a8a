#include "engine/files/TagReader.h"

#include "tags/TagExchange.h"

namespace krl::engine {

std::optional<std::string> TagReader::titleOf(const std::filesystem::path& file, int descriptor) {
    return process_.ask(tags::titleQuestion(file.filename().string()), descriptor,
                        tags::kLongestTitle);
}

} // namespace krl::engine
