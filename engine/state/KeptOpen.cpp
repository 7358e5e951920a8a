#include "engine/state/KeptOpen.h"

namespace krl::engine {

void KeptOpen::open() {
    if (listener_ || phone_.open()) {
        return;
    }
    opens_ = 1;
    // On the thread of the operation, which has the phone open at that moment: this only counts.
    listener_.emplace(phone_._rawDevice(), [this](size_t opensTaken) {
        for (; opensTaken > 0 && !phone_.open(); --opensTaken) {
            ++opens_;
        }
    });
}

void KeptOpen::close() {
    listener_.reset();
    // Closing a closed phone does nothing.
    for (; opens_ > 0; --opens_) {
        phone_.close();
    }
}

} // namespace krl::engine
