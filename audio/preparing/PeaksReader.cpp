#include "audio/preparing/PeaksReader.h"

#include "engine/files/RegularFile.h"

#include <algorithm>

namespace krl::audio {

std::shared_ptr<const Peaks> PeaksReader::read(const std::filesystem::path& song) {
    constexpr size_t kMost = 4;
    const engine::RegularFile file(song, "Check the path and its permissions.");
    const engine::Digest digest = file.digest();
    const auto found = std::find_if(kept_.begin(), kept_.end(),
                                    [&](const auto& kept) { return kept.first == digest; });
    if (found != kept_.end()) {
        return found->second;
    }
    kept_.emplace_front(
        digest, std::make_shared<const Peaks>(peaksOf(song, file.descriptor(), program_, stop_)));
    if (kept_.size() > kMost) {
        kept_.pop_back();
    }
    return kept_.front().second;
}

} // namespace krl::audio
