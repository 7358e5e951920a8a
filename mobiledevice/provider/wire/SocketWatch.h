// Notices that a socket may have come where there was none.
#pragma once

#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <string>

namespace krl::provider {

/// Watches the folder in which a socket is to stand or, while that is missing too, the nearest one
/// above it that exists.
class SocketWatch {
public:
    explicit SocketWatch(const std::string& path);

    /// Readable once something has happened; -1 when the path cannot be watched.
    [[nodiscard]] int descriptor() const { return events_.get(); }

    /// Takes off what has happened; whether it is a reason to look for the socket again.
    [[nodiscard]] bool takeNews() const;

private:
    void watch(const std::string& path);

    UniqueDescriptor events_;
    std::string name_; // what is to appear in the folder that is watched
};

} // namespace krl::provider
