#include "vesk/commands/Commands.h"

#include "audio/playing/Player.h"
#include "engine/change/NameRefusals.h"
#include "engine/fetch/RingtoneFetch.h"
#include "engine/files/NamelessFile.h"
#include "engine/files/RegularFile.h"
#include "engine/state/PhoneState.h"
#include "engine/values/Text.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace vesk {
namespace {

namespace fs = std::filesystem;
using krl::audio::Player;
using krl::audio::PlayState;

/// Whether a word can be nothing but a path.
bool isPath(const std::string& word) {
    return word.starts_with('/') || word.starts_with("./") || word.starts_with("../");
}

bool meansFile(const Options& options, const std::string& word) {
    std::error_code ignored;
    const bool isThere = fs::exists(word, ignored) && !fs::is_directory(word, ignored);
    return isPath(word) || (isThere && options.phone.udid.empty());
}

/// Plays it to its end, or until Ctrl-C.
void play(const Options& options, Output& output, const std::string& what, int descriptor) {
    const InterruptScope scope(OnInterrupt::EndWatching);
    Player player(what, descriptor, options.sink);
    ProgressDisplay display(output);
    PlayState state;
    while (state.phase == PlayState::Phase::Playing) {
        state = player.next();
        const std::string of =
            state.lengthSeconds > 0 ? " of " + formatDuration(state.lengthSeconds) : "";
        display.stage(fmt::format("{}{}  {}", formatDuration(state.positionSeconds), of, what));
    }
    display.clear();
    output.document({{"played", what}, {"lengthSeconds", state.lengthSeconds}});
}

void fetch(const Options& options, Output& output, const std::string& name, NamelessFile& file) {
    OpenPhone phone(options.phone);
    const PhoneState state = readRingtones(phone);
    requireReadableCatalogue(state);
    const std::string found = foundNames(state, {name}).front();
    const auto ringtone = std::find_if(state.ringtones.begin(), state.ringtones.end(),
                                       [&](const PhoneRingtone& one) { return one.name == found; });
    PhoneFiles files(phone.phone()._rawDevice());
    ProgressDisplay display(output);
    uint64_t done = 0;
    readRingtone(files, *ringtone, [&](std::string_view piece) {
        file.add(piece);
        done += piece.size();
        display.stage(fmt::format("Fetching {}: {} of {} ...", name, formatBytes(done),
                                  formatBytes(ringtone->size)));
    });
}

/// A word that is no file may have been meant for one.
Failure withNoFile(const std::string& word, const Failure& failure) {
    return {failure.kind(), fmt::format("there is no file \"{}\", and {}", word, failure.what()),
            failure.advice(), failure.details()};
}

} // namespace

ExitCode runPlay(const Options& options, Output& output) {
    const std::string& word = options.arguments.front();
    if (meansFile(options, word)) {
        const RegularFile file(word, "Check the path and its permissions.");
        play(options, output, word, file.descriptor());
        return ExitCode::Success;
    }
    NamelessFile file;
    try {
        fetch(options, output, word, file);
    } catch (const Failure& failure) {
        const bool mayBeFile =
            failure.kind() == FailureKind::NoPhone || failure.kind() == FailureKind::NameNotFound;
        throw mayBeFile && options.phone.udid.empty() ? withNoFile(word, failure)
                                                      : Failure(failure);
    }
    play(options, output, word, file.descriptor());
    return ExitCode::Success;
}

} // namespace vesk
