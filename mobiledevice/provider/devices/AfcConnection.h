// A file-service connection as callers hold it.
#pragma once

#include "mobiledevice/provider/devices/Handles.h"
#include "mobiledevice/provider/services/AfcClient.h"

#include <memory>
#include <mutex>
#include <utility>

namespace krl::provider {

class AfcConnection final : public Object {
public:
    AfcConnection(std::shared_ptr<Channel> channel, std::shared_ptr<TransferCount> count)
        : client_(std::move(channel), std::move(count)) {}

    /// Calls the body with the client; one call after the other.
    template <typename Body>
    int32_t exchange(Body body) {
        const std::lock_guard lock(mutex_);
        try {
            return body(client_);
        } catch (...) {
            client_.shutdown(); // half a reply may be left in the stream
            throw;
        }
    }

    /// Ends the connection; a call under way on another thread fails at once.
    void close() noexcept { client_.shutdown(); }

private:
    std::mutex mutex_;
    AfcClient client_;
};

} // namespace krl::provider
