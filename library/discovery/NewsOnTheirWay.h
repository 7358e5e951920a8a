// News of phones on their way from delegate to delegate.
#pragma once

#include <KRLVesk/KRTPhone.h>

#include <functional>

namespace krl::discovery {

/// News that delegates are being told, one delegate after the other. A delegate may run the run
/// loop in its callback, and what comes there can be the next news of the same phone. Those still
/// to be told of the earlier news are told of them first: everybody hears of an arrival before the
/// removal, and nobody of an arrival after it.
class NewsOnTheirWay {
public:
    /// Tells the delegates.
    ///
    /// @param phone     may be null, for news of no phone in particular
    /// @param tellNext  tells the next delegate and returns true; false when there is none left
    void tell(KRTPhoneRef phone, const std::function<bool()>& tellNext);

    /// Tells to the end what is on its way of this phone.
    void finish(KRTPhoneRef phone);

    /// Whatever is on its way reaches nobody more. This may be destroyed afterwards.
    void stop();

private:
    /// Lives as long as its call of tell.
    struct Telling {
        KRTPhoneRef phone;
        const std::function<bool()>& tellNext;
        Telling* outer;
        bool isStopped = false;

        void toTheEnd() const;
    };

    Telling* innermost_ = nullptr;
};

} // namespace krl::discovery
