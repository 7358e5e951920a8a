// The distributed notification centre over a session bus of the test's own.

#include "tests/support/PrivateBus.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <unistd.h>

namespace krl::testing {
namespace {

using cf::adopt;
using cf::CFRef;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

CFNotificationCenterRef center() {
    return CFNotificationCenterGetDistributedCenter();
}

CFRef<CFStringRef> string(const std::string& utf8) {
    return cf::stringOf(utf8);
}

std::string text(CFTypeRef object) {
    if (object == nullptr) {
        return "-";
    }
    const auto description = CFGetTypeID(object) == CFStringGetTypeID()
                                 ? cf::retain(static_cast<CFStringRef>(object))
                                 : adopt(CFCopyDescription(object));
    char result[256] = "";
    CFStringGetCString(description.get(), result, sizeof result, kCFStringEncodingUTF8);
    return result;
}

/// "key=value ..." by the dictionary's order; "-" for none.
std::string text(CFDictionaryRef info) {
    if (info == nullptr) {
        return "-";
    }
    std::string result;
    for (const auto& [key, value] : cf::pairsOf(info)) {
        result += result.empty() ? "" : " ";
        result += text(key);
        result += "=";
        result += text(value);
    }
    return result;
}

void post(const std::string& name, const std::string& object = "", CFDictionaryRef info = nullptr) {
    CFNotificationCenterPostNotification(
        center(), string(name).get(), object.empty() ? nullptr : string(object).get(), info, false);
}

/// Notes what it hears, "name object information".
class Observer {
public:
    Observer(const char* name, const char* object) {
        CFNotificationCenterAddObserver(center(), this, hear,
                                        name != nullptr ? string(name).get() : nullptr,
                                        object != nullptr ? string(object).get() : nullptr,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }

    ~Observer() { CFNotificationCenterRemoveEveryObserver(center(), this); }

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    /// Runs this thread's loop until so many were heard.
    const std::vector<std::string>& waitFor(size_t count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (heard.size() < count && std::chrono::steady_clock::now() < end) {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, true);
        }
        return heard;
    }

    std::vector<std::string> heard;
    std::thread::id thread;
    void (*onHearing)(Observer&) = nullptr;

private:
    static void hear(CFNotificationCenterRef from, void* observer, CFNotificationName name,
                     const void* object, CFDictionaryRef info) {
        auto& self = *static_cast<Observer*>(observer);
        EXPECT_EQ(from, center());
        self.heard.push_back(text(static_cast<CFTypeRef>(name)) + " " + text(object) + " " +
                             text(info));
        self.thread = std::this_thread::get_id();
        if (self.onHearing != nullptr) {
            self.onHearing(self);
        }
    }
};

class DistributedCenter : public ::testing::Test {
protected:
    DistributedCenter() { setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1); }

    PrivateBus bus;
};

TEST_F(DistributedCenter, DeliversNameObjectAndInformation) {
    Observer observer("Næme", "An object");
    const auto info = cf::makeDictionary();
    const int whole = -7;
    const double real = 2.5;
    CFDictionarySetValue(info.get(), CFSTR("text"), string("Glöckchen 🌅").get());
    CFDictionarySetValue(info.get(), CFSTR("whole"),
                         adopt(CFNumberCreate(nullptr, kCFNumberIntType, &whole)).get());
    CFDictionarySetValue(info.get(), CFSTR("real"),
                         adopt(CFNumberCreate(nullptr, kCFNumberDoubleType, &real)).get());
    CFDictionarySetValue(info.get(), CFSTR("flag"), kCFBooleanTrue);
    post("Næme", "An object", info.get());
    EXPECT_THAT(observer.waitFor(1),
                ElementsAre("Næme An object text=Glöckchen 🌅 whole=-7 real=2.5 flag=true"));
}

TEST_F(DistributedCenter, LeavesOutWhatCannotTravel) {
    Observer observer("Name", nullptr);
    const auto info = cf::makeDictionary();
    const UniChar loneSurrogate = 0xD800;
    const UniChar zero = 0;
    CFDictionarySetValue(info.get(), CFSTR("nested"), cf::makeDictionary().get());
    CFDictionarySetValue(info.get(), CFSTR("surrogate"),
                         adopt(CFStringCreateWithCharacters(nullptr, &loneSurrogate, 1)).get());
    CFDictionarySetValue(info.get(), CFSTR("zero"),
                         adopt(CFStringCreateWithCharacters(nullptr, &zero, 1)).get());
    CFDictionarySetValue(info.get(), kCFBooleanTrue, CFSTR("key is no string"));
    post("Name", "", info.get());
    CFDictionarySetValue(info.get(), CFSTR("kept"), CFSTR("yes"));
    post("Name", "", info.get());
    EXPECT_THAT(observer.waitFor(2), ElementsAre("Name - -", "Name - kept=yes"));
    const auto bad = adopt(CFStringCreateWithCharacters(nullptr, &loneSurrogate, 1));
    CFNotificationCenterPostNotification(center(), bad.get(), nullptr, nullptr, false);
    CFNotificationCenterPostNotification(center(), CFSTR("Name"), bad.get(), nullptr, false);
    post("Name", "last");
    EXPECT_THAT(observer.waitFor(3), ElementsAre("Name - -", "Name - kept=yes", "Name last -"));
}

TEST_F(DistributedCenter, FiltersByNameAndByObject) {
    Observer both("A", "1");
    Observer anyObject("A", nullptr);
    Observer anyName(nullptr, "1");
    Observer all(nullptr, nullptr);
    post("A", "1");
    post("A", "2");
    post("A");
    post("B", "1");
    post("end", "end");
    EXPECT_THAT(all.waitFor(5), ElementsAre("A 1 -", "A 2 -", "A - -", "B 1 -", "end end -"));
    EXPECT_THAT(both.waitFor(1), ElementsAre("A 1 -"));
    EXPECT_THAT(anyObject.waitFor(3), ElementsAre("A 1 -", "A 2 -", "A - -"));
    EXPECT_THAT(anyName.waitFor(2), ElementsAre("A 1 -", "B 1 -"));
}

TEST_F(DistributedCenter, DeliversOnTheRunLoopOfTheObserver) {
    std::thread([&] {
        Observer observer("Name", nullptr);
        std::thread([] { post("Name"); }).join();
        EXPECT_THAT(observer.heard, IsEmpty());
        observer.waitFor(1);
        EXPECT_EQ(observer.thread, std::this_thread::get_id());
    }).join();
}

TEST_F(DistributedCenter, ARemovedObserverHearsNothing) {
    Observer removed("Name", "object");
    Observer stays("Name", "object");
    // Removing with another name or object than it was added with removes nothing.
    CFNotificationCenterRemoveObserver(center(), &removed, CFSTR("Other"), CFSTR("object"));
    CFNotificationCenterRemoveObserver(center(), &removed, CFSTR("Name"), CFSTR("other"));
    post("Name", "object");
    EXPECT_EQ(removed.waitFor(1).size(), 1U);
    stays.waitFor(1);
    post("Name", "object");
    // It may have arrived already: what is pending is not delivered either.
    CFNotificationCenterRemoveObserver(center(), &removed, CFSTR("Name"), CFSTR("object"));
    EXPECT_EQ(stays.waitFor(2).size(), 2U);
    EXPECT_EQ(removed.heard.size(), 1U);
}

TEST_F(DistributedCenter, AnObserverMayRemoveItselfWhileItIsCalled) {
    Observer once("Name", nullptr);
    once.onHearing = [](Observer& self) {
        CFNotificationCenterRemoveEveryObserver(center(), &self);
    };
    Observer stays("Name", nullptr);
    post("Name");
    post("Name");
    stays.waitFor(2);
    once.waitFor(1);
    EXPECT_EQ(once.heard.size(), 1U);
}

TEST_F(DistributedCenter, IgnoresForeignAndMalformedMessages) {
    constexpr char kPath[] = "/CoreFoundation/DistributedNotification";
    constexpr char kInterface[] = "CoreFoundation.DistributedNotification";
    Observer observer(nullptr, nullptr);
    sd_bus* other = nullptr;
    ASSERT_GE(sd_bus_open_user(&other), 0);
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "");
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "s", "Name");
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "ss", "Name", "object");
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "ssa{ss}", "Name", "object", 1, "a",
                       "b");
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "isa{sv}", 1, "object", 0);
    sd_bus_emit_signal(other, kPath, kInterface, "Other", "ssa{sv}", "Name", "object", 0);
    sd_bus_emit_signal(other, "/elsewhere", kInterface, "Posted", "ssa{sv}", "Name", "object", 0);
    sd_bus_emit_signal(other, kPath, "some.thing.else", "Posted", "ssa{sv}", "Name", "object", 0);
    // Values of types that we do not know are left out, the others stay.
    sd_bus_emit_signal(other, kPath, kInterface, "Posted", "ssa{sv}", "Name", "object", 7, "array",
                       "as", 1, "x", "byte", "y", 200, "path", "o", "/a", "short", "n", -3,
                       "unsigned", "u", 4000000000U, "large", "t", UINT64_MAX, "flag", "b", 0);
    sd_bus_flush_close_unref(other);
    EXPECT_THAT(observer.waitFor(1),
                ElementsAre("Name object byte=200 short=-3 unsigned=4000000000 "
                            "large=18446744073709551615 flag=false"));
}

TEST_F(DistributedCenter, ALostConnectionIsMadeAnewByTheNextPost) {
    Observer observer("Name", nullptr);
    post("Name", "before");
    observer.waitFor(1);
    bus.stop();
    post("Name", "lost");
    bus.start();
    // The end of the old connection may be noticed only now.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (observer.heard.size() < 2 && std::chrono::steady_clock::now() < end) {
        post("Name", "after");
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, true);
    }
    ASSERT_GE(observer.heard.size(), 2U);
    EXPECT_EQ(observer.heard[1], "Name after -");
}

TEST_F(DistributedCenter, ManyThreadsPostAndObserve) {
    constexpr int kPosts = 50;
    std::vector<std::thread> threads;
    for (const char* name : {"A", "B", "C"}) {
        threads.emplace_back([name] {
            Observer observer(name, nullptr);
            std::vector<std::string> expected;
            for (int i = 0; i < kPosts; ++i) {
                const std::string object = std::to_string(i);
                post(name, object);
                expected.push_back(name + (" " + object) + " -");
            }
            EXPECT_EQ(observer.waitFor(kPosts), expected);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(DistributedCenterWithoutABus, DeliversNothingAndFailsNothing) {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    Observer observer(nullptr, nullptr);
    post("Name");
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, false);
    EXPECT_THAT(observer.heard, IsEmpty());
}

TEST(DistributedCenterWithoutABus, ABusThatNeverAnswersHoldsNobodyUp) {
    const TemporaryFolder folder;
    const std::string path = (folder.path() / "bus").string();
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(silent, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(silent, 8), 0);
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    {
        Observer observer(nullptr, nullptr);
        post("Name");
        EXPECT_THAT(observer.heard, IsEmpty());
    }
    close(silent);
}

} // namespace
} // namespace krl::testing
