#pragma once

#include "desktop/bridge/Mailbox.h"
#include "engine/errors/Failure.h"
#include "engine/files/NamelessFile.h"

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>

namespace krl::desktop {

/// What can be played: a file of this computer, or one that has no name.
struct Sound {
    std::filesystem::path path; ///< of one without a name: what it is called in a message
    std::shared_ptr<engine::NamelessFile> file = nullptr;
};

/// How the playing of a sound has ended by itself.
struct SoundEnded {};

/// There is nothing to play it on.
struct NoSoundDevice {};

using SoundNews = std::variant<SoundEnded, NoSoundDevice, engine::Failure>;

/// Plays one sound at a time, in the process that plays for vesk too, on a thread of its own.
class PlayDesk {
public:
    /// @param sink  where the sound goes, in GStreamer's words; empty: where the desktop's goes
    PlayDesk(Mailbox& mailbox, std::string sink);
    ~PlayDesk();
    PlayDesk(const PlayDesk&) = delete;
    PlayDesk& operator=(const PlayDesk&) = delete;

    /// Ends what is being played, and begins another.
    /// @param tell      called by the mailbox when it has ended by itself
    /// @param progress  called by the mailbox now and then with how many seconds were heard
    void play(
        Sound sound, std::function<void(SoundNews)> tell,
        std::function<void(double)> progress = [](double) {});

    /// Ends what is being played; nothing more is told of it.
    void stop();

private:
    struct Order {
        Sound sound;
        std::function<void(SoundNews)> tell;
        std::function<void(double)> progress;
        uint64_t number;
    };

    /// Calls it on the main loop if this order is still the one that is to be heard.
    void put(const Order& order, std::function<void()> letter) const;
    void run();
    void carryOut(const Order& order);

    /// @return nothing when it was ended
    std::optional<SoundNews> newsOf(const Order& order) const;

    Mailbox& mailbox_;
    const std::string sink_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Order> order_;       ///< under the lock; the next to be begun
    bool isEnding_ = false;            ///< under the lock
    std::atomic<uint64_t> wanted_ = 0; ///< the number of the order that is to be heard
    std::thread thread_;
};

} // namespace krl::desktop
