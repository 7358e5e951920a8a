// A phone, its store and the phone manager, from which each run of a sweep begins.
#pragma once

#include "library/discovery/KRTPhoneManagerInternal.h"
#include "library/system/Clock.h"
#include "tests/library/store/StoreTest.h"

namespace krl::test {

/// Waiting for the sync lock takes no time.
class NoSleep {
public:
    NoSleep() : before_(system::setSleepFunction([](unsigned) {})) {}

    ~NoSleep() { system::setSleepFunction(before_); }

    NoSleep(const NoSleep&) = delete;
    NoSleep& operator=(const NoSleep&) = delete;

private:
    system::SleepFunction before_;
};

/// A store on firmware 1.1.1 beside a phone manager that knows no phone yet.
class World : public Store {
public:
    World() : Store("1.1.1") { KRTPhoneManagerInit(); }

    ~World() { endManager(); }

    /// Makes the phone well again, closes all that is open, and forgets phones and delegates.
    void rest() {
        fake.clearFaults();
        close();
        if (phone->notificationProxy != nullptr) {
            EXPECT_EQ(KRTPhoneOpen(phone), 1);
            EXPECT_EQ(KRTPhoneEndSync(phone), 1);
            close();
        }
        endManager();
        KRTPhoneManagerInit();
        KRTErrorClear();
        fake.clearCalls();
    }

    /// Registers a delegate that is told and does nothing.
    KRTPhoneManagerDelegateRef addDelegate() {
        const auto ignore = [](void*, KRTPhoneRef) {};
        return KRTPhoneManagerAddDelegate(nullptr, ignore, ignore);
    }

    /// The phone manager's.
    static std::vector<KRTPhoneRef> phones() {
        const auto list = adopt(KRTPhoneManagerGetPhones());
        std::vector<KRTPhoneRef> result;
        for (CFIndex i = 0; i < CFArrayGetCount(list.get()); ++i) {
            result.push_back(
                static_cast<KRTPhoneRef>(const_cast<void*>(CFArrayGetValueAtIndex(list.get(), i))));
        }
        return result;
    }

    am_device* device() { return fake.phone().device(); }

    KRTPhoneManagerDelegateRef delegate = nullptr;

private:
    void close() {
        while (phone->openCount > 0) {
            KRTPhoneClose(phone);
        }
    }

    static void endManager() {
        if (_gKRTPhoneSharedPhoneManager != nullptr &&
            _gKRTPhoneSharedPhoneManager->notification != nullptr) {
            KRTPhoneManagerEndSearch();
        }
        KRTPhoneManagerShutdown();
    }

    NoSleep noSleep_;
};

} // namespace krl::test
