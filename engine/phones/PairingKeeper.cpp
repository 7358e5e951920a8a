#include "engine/phones/PairingKeeper.h"

#include "engine/errors/Status.h"

#include <fmt/format.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace krl::engine {
namespace {

class Notes {
public:
    void add(std::string note) {
        const std::lock_guard lock(mutex_);
        notes_.push_back(std::move(note));
    }

    std::vector<std::string> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(notes_, {});
    }

private:
    std::mutex mutex_;
    std::vector<std::string> notes_;
};

Notes& notes() {
    static Notes& processWide = *new Notes;
    return processWide;
}

/// Stands between the library and the provider, with the provider's functions in its hands.
class PairingKeeper {
public:
    PairingKeeper()
        : isPaired_(AMDeviceIsPaired), validate_(AMDeviceValidatePairing),
          startSession_(AMDeviceStartSession) {}

    void keep(am_device* device) {
        const std::lock_guard lock(mutex_);
        kept_.try_emplace(device);
    }

    void letGo(am_device* device) {
        const std::lock_guard lock(mutex_);
        kept_.erase(device);
    }

    int32_t isPaired(am_device* device) {
        const int32_t paired = isPaired_(device);
        return paired == 0 && isMended(device) ? isPaired_(device) : paired;
    }

    int32_t validate(am_device* device) {
        const int32_t status = validate_(device);
        return status == kAMDInvalidHostID && isMended(device) ? validate_(device) : status;
    }

    int32_t startSession(am_device* device) {
        const int32_t status = startSession_(device);
        if (status != kAMDInvalidHostID || !isMended(device)) {
            return status;
        }
        const int32_t validated = validate_(device);
        return validated == 0 ? startSession_(device) : validated;
    }

private:
    struct Kept {
        bool wasMadeAgain = false;
        bool isGivenUp = false;
        bool isToldOfOthers = false;
    };

    /// Whether there is a good pairing again, somebody else's or a new one.
    bool isMended(am_device* device) {
        const std::lock_guard lock(mutex_);
        const auto found = kept_.find(device);
        if (found == kept_.end() || found->second.isGivenUp) {
            return false;
        }
        Kept& kept = found->second;
        if (isMadeByOthers(device)) {
            if (!std::exchange(kept.isToldOfOthers, true)) {
                notes().add("Another program had ended the phone's pairing with this computer and "
                            "made one of its own; the work went on. \"vesk doctor\" looks for that "
                            "program.");
            }
            return true;
        }
        if (AMDevicePair == nullptr) {
            return false;
        }
        if (std::exchange(kept.wasMadeAgain, true)) {
            kept.isGivenUp = true;
            notes().add("The pairing was ended once more and not made again. "
                        "\"vesk doctor\" looks for the program that ends it.");
            return false;
        }
        return makeAgain(device);
    }

    /// A file manager's program that cannot have a session ends the pairing, deletes its record and
    /// pairs anew half a second later, several times in a row. What it makes is as good.
    bool isMadeByOthers(am_device* device) const {
        constexpr std::chrono::milliseconds kMoment{100};
        constexpr int kMoments = 20;
        for (int moment = 0; moment < kMoments; ++moment) {
            std::this_thread::sleep_for(kMoment);
            if (isPaired_(device) != 0) {
                return validate_(device) == 0;
            }
        }
        return false;
    }

    static bool makeAgain(am_device* device) {
        const int32_t status = AMDevicePair(device);
        notes().add(
            status == 0
                ? "Another program had ended the phone's pairing with this computer; it was made "
                  "again, and the work went on. \"vesk doctor\" looks for that program."
                : fmt::format("Another program has ended the phone's pairing with this computer, "
                              "and it cannot be made again: {}",
                              statusText(status)));
        return status == 0;
    }

    int32_t (*const isPaired_)(am_device*);
    int32_t (*const validate_)(am_device*);
    int32_t (*const startSession_)(am_device*);
    std::mutex mutex_;
    std::map<am_device*, Kept> kept_;
};

// As long as the process, as the function variables that point here.
PairingKeeper& keeper() {
    static PairingKeeper& processWide = []() -> PairingKeeper& {
        auto& made = *new PairingKeeper;
        AMDeviceIsPaired = [](am_device* device) { return keeper().isPaired(device); };
        AMDeviceValidatePairing = [](am_device* device) { return keeper().validate(device); };
        AMDeviceStartSession = [](am_device* device) { return keeper().startSession(device); };
        return made;
    }();
    return processWide;
}

} // namespace

void keepPairing(am_device* device) {
    keeper().keep(device);
}

void letPairingGo(am_device* device) {
    keeper().letGo(device);
}

std::vector<std::string> takePairingNotes() {
    return notes().take();
}

} // namespace krl::engine
