// How long a main loop stands still while a phone that has arrived is silent, and how long the
// program takes to leave then. No ratio: a loop that asked the phone itself would stand still until
// the call's time is over, ten seconds as a rule.

#include "engine/phones/PhoneThread.h"
#include "tests/support/TemporaryFolder.h"
#include "virtualphone/VirtualPhone.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kRuns = 5;

/// A loop that does nothing but watch for news, if any, for two seconds.
Milliseconds longestGap(std::optional<krl::engine::PhoneThread>& phones) {
    Clock::duration longest{};
    const Clock::time_point start = Clock::now();
    Clock::time_point before = start;
    while (before - start < std::chrono::seconds{2}) {
        pollfd news{phones ? phones->descriptor() : -1, POLLIN, 0};
        poll(&news, 1, /*timeout=*/1);
        if (phones) {
            phones->take();
        }
        const Clock::time_point now = Clock::now();
        longest = std::max(longest, now - before);
        before = now;
    }
    return longest;
}

Milliseconds timeToLeave(std::optional<krl::engine::PhoneThread>& phones) {
    const Clock::time_point start = Clock::now();
    phones.reset();
    return Clock::now() - start;
}

} // namespace

int main() {
    const virtualphone::testing::TemporaryFolder root;
    {
        virtualphone::Bus bus;
        setenv("USBMUXD_SOCKET_ADDRESS", bus.environmentValue().c_str(), 1);
        const auto phone =
            std::make_shared<virtualphone::Phone>(virtualphone::PhoneOptions{.root = root.path()});
        phone->faults().goSilent();
        bus.plug(phone);
        Milliseconds gap{};
        Milliseconds gapWithout{};
        Milliseconds leaving{};
        for (int i = 0; i < kRuns; ++i) {
            std::optional<krl::engine::PhoneThread> phones;
            gapWithout = std::max(gapWithout, longestGap(phones));
            phones.emplace();
            gap = std::max(gap, longestGap(phones));
            leaving = std::max(leaving, timeToLeave(phones));
        }
        std::printf(
            "main loop beside a silent phone: longest gap %.1f ms (without phones %.1f ms), "
            "leaving %.1f ms; the worst of %d runs\n",
            gap.count(), gapWithout.count(), leaving.count(), kRuns);
    }
}
