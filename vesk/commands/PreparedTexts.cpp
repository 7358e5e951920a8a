#include "vesk/commands/PreparedTexts.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <cmath>

namespace vesk {

using krl::audio::Prepared;

std::string preparedText(const Prepared& prepared) {
    const double start = prepared.startSeconds;
    return fmt::format("{} from {}:{:04.1f}, {:.1f} LUFS", formatDuration(prepared.lengthSeconds),
                       static_cast<int>(start) / 60, std::fmod(start, 60), prepared.loudness);
}

Json preparedJson(const Prepared& prepared) {
    return {{"startSeconds", prepared.startSeconds},
            {"lengthSeconds", prepared.lengthSeconds},
            {"songLoudness", prepared.songLoudness},
            {"loudness", prepared.loudness},
            {"peak", prepared.peak},
            {"silent", prepared.silent},
            {"damagedParts", prepared.damagedParts}};
}

void warnOfPrepared(const std::string& song, const Prepared& prepared, Output& output) {
    if (prepared.silent) {
        output.warning(fmt::format("there is nothing to hear in that part of \"{}\"", song),
                       {"Begin elsewhere (--start, --auto)."});
    }
    if (prepared.damagedParts > 0) {
        output.warning(fmt::format("\"{}\" is damaged: {} could not be decoded", song,
                                   counted(static_cast<size_t>(prepared.damagedParts), "part")));
    }
}

} // namespace vesk
