#pragma once

#include "engine/layer/DeviceLayer.h"

#include <KRLVesk/KRLVesk.h>

#include <atomic>
#include <optional>

namespace krl::engine {

/// Keeps a phone open while the library works on it. Each operation on files takes one open of the
/// phone back, so that a phone opened once reconnects for each, and gives up the sync lock. So one
/// open is added for each operation that passes, no sooner, and all are given back together.
class KeptOpen {
public:
    explicit KeptOpen(KRTPhone& phone) : phone_(phone) {}

    ~KeptOpen() { close(); }

    KeptOpen(const KeptOpen&) = delete;
    KeptOpen& operator=(const KeptOpen&) = delete;

    /// Opens the phone unless it is kept open already. What stands in the way is the operations'
    /// to say.
    void open();

    /// Gives all opens back: the next operation connects anew.
    void close();

private:
    KRTPhone& phone_;
    std::atomic<size_t> opens_{0};
    std::optional<layer::Listener> listener_;
};

} // namespace krl::engine
