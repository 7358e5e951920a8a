#pragma once

#include "library/discovery/KRTPhoneManagerInternal.h"
#include "library/phone/KRTPhoneInternal.h"
#include "tests/support/FakeMobileDevice.h"

#include <KRLVesk/KRTError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using krl::test::FakeMobileDevice;
using krl::test::FakePhone;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A status that nothing but a scripted fault gives.
constexpr int32_t kStatus = 4711;

/// Writes down what it is told, as "name connected", "name connected null", "name removed".
class Listener {
public:
    Listener(std::string name, std::vector<std::string>& told)
        : name_(std::move(name)), told_(told) {}

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Registers with the manager.
    Listener& add() {
        handle = KRTPhoneManagerAddDelegate(
            this,
            [](void* context, KRTPhoneRef phone) {
                static_cast<Listener*>(context)->hear("connected", phone);
            },
            [](void* context, KRTPhoneRef phone) {
                static_cast<Listener*>(context)->hear("removed", phone);
            });
        return *this;
    }

    void remove() { KRTPhoneManagerRemoveDelegate(handle); }

    /// Done after the writing down, in the callback.
    std::function<void(const std::string& what, KRTPhoneRef phone)> then;
    KRTPhoneManagerDelegateRef handle = nullptr;
    std::vector<KRTPhoneRef> phones;

private:
    void hear(const std::string& what, KRTPhoneRef phone) {
        told_.push_back(name_ + " " + what + (phone == nullptr ? " null" : ""));
        phones.push_back(phone);
        if (then) {
            // A copy, as the listener may take the action away.
            const auto action = then;
            action(what, phone);
        }
    }

    const std::string name_;
    std::vector<std::string>& told_;
};

/// A fresh manager, one phone to attach, and an empty error record.
class PhoneManagerTest : public ::testing::Test {
protected:
    PhoneManagerTest() {
        KRTErrorClear();
        KRTPhoneManagerInit();
    }

    ~PhoneManagerTest() override {
        fake.onCall(nullptr);
        KRTPhoneManagerShutdown();
        KRTErrorClear();
    }

    /// What is written to standard error meanwhile.
    static std::string errorOutputOf(const std::function<void()>& action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }

    static std::vector<KRTPhoneRef> phones() {
        const CFArrayRef list = KRTPhoneManagerGetPhones();
        std::vector<KRTPhoneRef> result;
        for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
            result.push_back(
                static_cast<KRTPhoneRef>(const_cast<void*>(CFArrayGetValueAtIndex(list, i))));
        }
        KRTPhoneManagerReleasePhoneList(list);
        return result;
    }

    FakeMobileDevice fake;
    std::vector<std::string> told;
    Listener first{"first", told};
    Listener second{"second", told};
    Listener third{"third", told};
};
