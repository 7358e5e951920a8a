#include "desktop/editor/CutPlayer.h"

#include "desktop/session/Words.h"

#include <utility>

namespace krl::desktop {

using Kind = Playing::Problem::Kind;

void CutPlayer::play(const SongCut& cut, bool again) {
    stop();
    isPlaying_ = true;
    onChanged();
    session_.songs().makeSound(
        cut.song, cut.wish,
        [this, cut, again, turn = turn_, number = *turn_](const SongDesk::CutSound& sound) {
            if (*turn != number) {
                return; // the person wants something else by now
            }
            if (const File* const file = std::get_if<File>(&sound)) {
                playFile(*file, cut, again);
            } else {
                fail(Kind::NotPlayed, cut.name, std::get<engine::Failure>(sound));
            }
        });
}

void CutPlayer::playFile(const File& file, const SongCut& cut, bool again) {
    const auto isWanted = [turn = turn_, number = *turn_] { return *turn == number; };
    session_.playing().playApart(
        {.path = cut.name, .file = file},
        [this, isWanted, file, cut, again](const SoundNews& news) {
            if (!isWanted()) {
                return;
            }
            if (const auto* failure = std::get_if<engine::Failure>(&news)) {
                fail(Kind::NotPlayed, cut.name, *failure);
            } else if (std::holds_alternative<NoSoundDevice>(news)) {
                fail(Kind::NoDevice, cut.name, std::nullopt);
            } else if (again) {
                playFile(file, cut, again);
            } else {
                end();
            }
        },
        [this, isWanted, start = cut.wish.startSeconds](double seconds) {
            if (isWanted()) {
                onProgress(start + seconds);
            }
        });
}

void CutPlayer::stop() {
    if (isPlaying_) {
        session_.playing().stop();
        end();
    }
}

void CutPlayer::end() {
    ++*turn_;
    isPlaying_ = false;
    onChanged();
}

void CutPlayer::fail(Kind kind, const std::string& name, std::optional<engine::Failure> failure) {
    end();
    onProblem(playProblemText({kind, {}, name, std::move(failure)}, {}));
}

} // namespace krl::desktop
