#pragma once

#include <KRLVesk/KRLVesk.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace krl::engine {

/// A step of a sync that waits for an answer, with its numbers as the store gives them.
struct SyncStep {
    int32_t mode = 0;
    int32_t status = 0;
    std::string name; ///< of the ringtone that the step is about
};

/// Runs a sync of what the working list holds on a thread of its own, and answers its steps on this
/// one.
/// @param goOn   called for each step; false cancels. Must not throw
/// @param passes called every 50 ms while a step is under way. Must not throw
/// @return why it failed; none after a success, which a cancelled sync is too
std::optional<std::string> runSync(const std::shared_ptr<KRTRingtoneManager>& tones,
                                   const std::function<bool(const SyncStep&)>& goOn,
                                   const std::function<void()>& passes);

} // namespace krl::engine
