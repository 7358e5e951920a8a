#include "library/discovery/NewsOnTheirWay.h"

#include <memory>

namespace krl::discovery {

void NewsOnTheirWay::Telling::toTheEnd() const {
    while (!isStopped && tellNext()) {
    }
}

void NewsOnTheirWay::tell(KRTPhoneRef phone, const std::function<bool()>& tellNext) {
    // Not on the stack: the compiler takes the list of them for one that outlives its members.
    const std::unique_ptr<Telling> telling(new Telling{phone, tellNext, innermost_});
    innermost_ = telling.get();
    telling->toTheEnd();
    if (!telling->isStopped) {
        innermost_ = telling->outer;
    }
}

void NewsOnTheirWay::finish(KRTPhoneRef phone) {
    for (const Telling* telling = innermost_; telling != nullptr; telling = telling->outer) {
        if (telling->phone == phone) {
            telling->toTheEnd();
        }
    }
}

void NewsOnTheirWay::stop() {
    for (Telling* telling = innermost_; telling != nullptr; telling = telling->outer) {
        telling->isStopped = true;
    }
    innermost_ = nullptr;
}

} // namespace krl::discovery
