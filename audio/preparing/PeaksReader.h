#pragma once

#include "audio/preparing/PrepareProgram.h"
#include "engine/values/Digest.h"

#include <deque>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <utility>

namespace krl::audio {

/// Reads the waveforms of songs, and keeps those of the last few by their content.
class PeaksReader {
public:
    /// @param stop  ends what is being read, which fails then
    explicit PeaksReader(std::filesystem::path program = prepareProgram(),
                         std::stop_token stop = {})
        : program_(std::move(program)), stop_(std::move(stop)) {}

    /// @throw Failure when it cannot be decoded, with the reason
    std::shared_ptr<const Peaks> read(const std::filesystem::path& song);

private:
    std::filesystem::path program_;
    std::stop_token stop_;
    std::deque<std::pair<engine::Digest, std::shared_ptr<const Peaks>>>
        kept_; ///< the last in front
};

} // namespace krl::audio
