#include "desktop/bridge/Mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::desktop {
namespace {

int newEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for the main loop");
    }
    return event;
}

} // namespace

Mailbox::Mailbox() : event_(newEvent()) {}

Mailbox::~Mailbox() {
    ::close(event_);
}

void Mailbox::put(Letter letter) {
    const std::lock_guard lock(mutex_);
    letters_.push_back(std::move(letter));
    ::eventfd_write(event_, 1);
}

void Mailbox::deliver() {
    std::vector<Letter> letters;
    {
        const std::lock_guard lock(mutex_);
        eventfd_t count = 0;
        ::eventfd_read(event_, &count);
        const size_t taken = std::min(letters_.size(), kMostAtOnce);
        const auto end = letters_.begin() + static_cast<std::ptrdiff_t>(taken);
        letters.assign(std::make_move_iterator(letters_.begin()), std::make_move_iterator(end));
        letters_.erase(letters_.begin(), end);
        if (!letters_.empty()) {
            ::eventfd_write(event_, 1);
        }
    }
    for (const Letter& letter : letters) {
        letter();
    }
}

} // namespace krl::desktop
