#include "desktop/bridge/PlayDesk.h"

#include "audio/playing/Player.h"
#include "desktop/bridge/Worker.h"
#include "engine/files/RegularFile.h"

#include <utility>

namespace krl::desktop {

using engine::Failure;
using engine::FailureKind;

namespace {

/// @param goesOn    asked at each news
/// @param progress  told of it
/// @return whether it was played to its end
bool playToEnd(const Sound& sound, int descriptor, const std::string& sink,
               const std::function<bool()>& goesOn, const std::function<void(double)>& progress) {
    audio::Player player(sound.path, descriptor, sink);
    while (goesOn()) {
        const audio::PlayState state = player.next();
        if (state.phase == audio::PlayState::Phase::Ended) {
            return true;
        }
        progress(state.positionSeconds);
    }
    return false;
}

} // namespace

PlayDesk::PlayDesk(Mailbox& mailbox, std::string sink) : mailbox_(mailbox), sink_(std::move(sink)) {
    thread_ = startWorker([this] { run(); });
}

PlayDesk::~PlayDesk() {
    stop();
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void PlayDesk::play(Sound sound, std::function<void(SoundNews)> tell,
                    std::function<void(double)> progress) {
    {
        const std::lock_guard lock(mutex_);
        order_ = {std::move(sound), std::move(tell), std::move(progress), ++wanted_};
    }
    changed_.notify_one();
}

void PlayDesk::stop() {
    const std::lock_guard lock(mutex_);
    ++wanted_;
    order_.reset();
}

void PlayDesk::run() {
    for (;;) {
        Order order;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || order_; });
            if (isEnding_) {
                return;
            }
            order = *std::exchange(order_, std::nullopt);
        }
        carryOut(order);
    }
}

void PlayDesk::carryOut(const Order& order) {
    if (auto news = newsOf(order)) {
        put(order, [tell = order.tell, news = std::move(*news)] { tell(news); });
    }
}

void PlayDesk::put(const Order& order, std::function<void()> letter) const {
    mailbox_.put([this, number = order.number, letter = std::move(letter)] {
        if (number == wanted_) {
            letter();
        }
    });
}

std::optional<SoundNews> PlayDesk::newsOf(const Order& order) const {
    const auto goesOn = [this, &order] { return order.number == wanted_; };
    try {
        std::optional<engine::RegularFile> file;
        if (order.sound.file == nullptr) {
            file.emplace(order.sound.path, std::string());
        }
        const int descriptor = file ? file->descriptor() : order.sound.file->descriptor();
        const auto progress = [this, &order](double seconds) {
            put(order, [progress = order.progress, seconds] { progress(seconds); });
        };
        return playToEnd(order.sound, descriptor, sink_, goesOn, progress)
                   ? std::optional(SoundEnded{})
                   : std::nullopt;
    } catch (const Failure& failure) {
        // The one thing that it expects of this computer and not of the file.
        const bool hasPlayer = !audio::playProgram().empty();
        if (failure.kind() == FailureKind::Unexpected && hasPlayer) {
            return NoSoundDevice{};
        }
        return failure;
    } catch (const std::exception& error) {
        return Failure(FailureKind::Unexpected, error.what());
    }
}

} // namespace krl::desktop
