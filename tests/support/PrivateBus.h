/// A session bus of a test's own.
#pragma once

#include "tests/support/VeskProcess.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <map>
#include <memory>
#include <string>

namespace krl::testing {

using virtualphone::testing::TemporaryFolder;

/// What makes processes find no session bus.
inline const std::map<std::string, std::string> kNoBus{
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}};

class PrivateBus {
public:
    PrivateBus() { start(); }

    /// Again, at the same address.
    void start() {
        daemon_ = std::make_unique<vesk::testing::VeskProcess>(
            std::vector<std::string>{"--config-file=" KRL_BUS_CONFIGURATION, "--nofork",
                                     "--print-address", "--address=" + address()},
            vesk::testing::VeskProcess::Options{.environment = {},
                                                .program = "/usr/bin/dbus-daemon"});
        daemon_->waitForText(address());
    }

    void stop() {
        daemon_.reset();
        std::filesystem::remove(folder_.path() / "bus");
    }

    std::string address() const { return "unix:path=" + (folder_.path() / "bus").string(); }

    std::map<std::string, std::string> environment() const {
        return {{"DBUS_SESSION_BUS_ADDRESS", address()}};
    }

private:
    TemporaryFolder folder_;
    std::unique_ptr<vesk::testing::VeskProcess> daemon_;
};

} // namespace krl::testing
