#pragma once

#include "desktop/session/Session.h"

#include <functional>
#include <memory>
#include <string>

namespace krl::desktop {

/// Lets a person hear a part of a song as the ringtone that it would become.
class CutPlayer {
public:
    explicit CutPlayer(Session& session) : session_(session) {}

    ~CutPlayer() { ++*turn_; }

    CutPlayer(const CutPlayer&) = delete;
    CutPlayer& operator=(const CutPlayer&) = delete;

    /// Told when it begins or ends.
    std::function<void()> onChanged = [] {};

    /// Told now and then which second of the song is heard.
    std::function<void(double)> onProgress = [](double) {};

    /// Told why there is nothing to be heard.
    std::function<void(const std::string&)> onProblem = [](const std::string&) {};

    bool isPlaying() const { return isPlaying_; }

    /// Makes it and plays it.
    /// @param again  and again, until it is stopped
    void play(const SongCut& cut, bool again);

    void stop();

private:
    using File = std::shared_ptr<engine::NamelessFile>;

    void playFile(const File& file, const SongCut& cut, bool again);
    void end();
    void fail(Playing::Problem::Kind kind, const std::string& name,
              std::optional<engine::Failure> failure);

    Session& session_;
    bool isPlaying_ = false;
    std::shared_ptr<unsigned> turn_ = std::make_shared<unsigned>(0); ///< counts what was asked for
};

} // namespace krl::desktop
