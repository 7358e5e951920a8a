#pragma once

#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/Outcome.h"
#include "engine/phones/PhoneThread.h"

#include <functional>
#include <utility>

namespace krl::desktop {

/// Has work done on the thread that knows phones, and the outcome brought to the main loop.
class PhoneDesk {
public:
    /// @throw Failure when there is no device layer
    explicit PhoneDesk(Mailbox& mailbox) : mailbox_(mailbox) {}

    /// Readable while there is news of phones.
    int descriptor() const { return thread_.descriptor(); }

    std::vector<engine::DeviceNews::Item> takeNews() { return thread_.take(); }

    /// @param work    called on the phones' thread
    /// @param answer  called by the mailbox with what came of it
    template <typename T>
    void ask(std::function<T()> work, std::function<void(Outcome<T>)> answer) {
        thread_.post([this, work = std::move(work), answer = std::move(answer)] {
            mailbox_.put([answer, outcome = outcomeOf(work)] { answer(outcome); });
        });
    }

    /// Something from a piece of work under way to the main loop.
    void tell(Mailbox::Letter letter) { mailbox_.put(std::move(letter)); }

private:
    Mailbox& mailbox_;
    engine::PhoneThread thread_;
};

} // namespace krl::desktop
