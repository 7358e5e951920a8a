// What a validation does with its time: run loop, notification centre, clock and UUIDs are the
// test's own here, so that nothing waits.

#include <KRLVesk/KRTPluginValidator.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace {

using testing::DoubleEq;
using testing::ElementsAre;

/// What was called, in order, and how long the run loop was to run.
struct Seen {
    std::vector<std::string> calls;
    std::vector<double> seconds;
    CFNotificationCallback callback = nullptr;
    void* observer = nullptr;
    /// Done while the run loop runs; says for how long it ran, of the seconds it was given.
    std::function<double(double)> whileRunning;
    std::chrono::nanoseconds elapsed{};
};

Seen seen;

std::string nameOf(CFStringRef string) {
    char text[128] = "null";
    if (string != nullptr) {
        CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8);
    }
    return text;
}

} // namespace

// Visible, as shared libraries call functions of these names, too.
#pragma GCC visibility push(default)
extern "C" {
// The clock's now: its result is a number of nanoseconds, in C as well.
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv();
CFRunLoopRunResult __wrap_CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                             Boolean returnAfterSourceHandled);
void __wrap_CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                            CFNotificationCallback callback, CFStringRef name,
                                            const void* object,
                                            CFNotificationSuspensionBehavior behaviour);
void __wrap_CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer,
                                               CFNotificationName name, const void* object);
void __wrap_CFNotificationCenterPostNotification(CFNotificationCenterRef center,
                                                 CFNotificationName name, const void* object,
                                                 CFDictionaryRef userInfo, Boolean immediately);
CFStringRef __wrap_CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);

/// Stands still but for what the run loop takes.
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return seen.elapsed.count();
}

CFRunLoopRunResult __wrap_CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                             Boolean returnAfterSourceHandled) {
    EXPECT_TRUE(CFEqual(mode, kCFRunLoopDefaultMode));
    EXPECT_FALSE(returnAfterSourceHandled);
    seen.calls.emplace_back("run");
    seen.seconds.push_back(seconds);
    const double taken = seen.whileRunning ? seen.whileRunning(seconds) : seconds;
    seen.elapsed +=
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(taken));
    return kCFRunLoopRunTimedOut;
}

void __wrap_CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                            CFNotificationCallback callback, CFStringRef name,
                                            const void* object, CFNotificationSuspensionBehavior) {
    EXPECT_EQ(center, CFNotificationCenterGetDistributedCenter());
    seen.calls.push_back("add " + nameOf(name) + " " + nameOf(static_cast<CFStringRef>(object)));
    seen.callback = callback;
    seen.observer = const_cast<void*>(observer);
}

void __wrap_CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer,
                                               CFNotificationName name, const void* object) {
    EXPECT_EQ(center, CFNotificationCenterGetDistributedCenter());
    EXPECT_EQ(observer, seen.observer);
    seen.calls.push_back("remove " + nameOf(name) + " " + nameOf(static_cast<CFStringRef>(object)));
}

void __wrap_CFNotificationCenterPostNotification(CFNotificationCenterRef, CFNotificationName name,
                                                 const void* object, CFDictionaryRef userInfo,
                                                 Boolean) {
    EXPECT_EQ(userInfo, nullptr);
    seen.calls.push_back("post " + nameOf(name) + " " + nameOf(static_cast<CFStringRef>(object)));
}

CFStringRef __wrap_CFUUIDCreateString(CFAllocatorRef, CFUUIDRef) {
    return CFSTR("01234567-89AB-CDEF-0123-456789ABCDEF");
}
}
#pragma GCC visibility pop

namespace {

class ValidatorTime : public testing::Test {
protected:
    ValidatorTime() { seen = {}; }

    static void pong(const char* version) {
        const auto text =
            krl::cf::adopt(CFStringCreateWithCString(nullptr, version, kCFStringEncodingUTF8));
        const void* keys[] = {CFSTR("version")};
        const void* values[] = {text.get()};
        const auto information = krl::cf::adopt(
            CFDictionaryCreate(nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                               &kCFTypeDictionaryValueCallBacks));
        seen.callback(nullptr, seen.observer, CFSTR("com.QuellmarSW.HarlixSupport.Pong"), nullptr,
                      information.get());
    }
};

TEST_F(ValidatorTime, ObservesPostsWaitsSixSecondsAndObservesNoMore) {
    EXPECT_FALSE(KRTValidatePlugin());
    EXPECT_THAT(
        seen.calls,
        ElementsAre("add com.QuellmarSW.HarlixSupport.Pong com.QuellmarSW.HarlixSupport",
                    "post com.QuellmarSW.HarlixSupport.Ping com.QuellmarSW.HarlixSupport", "run",
                    "remove com.QuellmarSW.HarlixSupport.Pong com.QuellmarSW.HarlixSupport"));
    EXPECT_THAT(seen.seconds, ElementsAre(DoubleEq(6.0)));
}

TEST_F(ValidatorTime, ARunLoopThatWasStoppedRunsOnForTheRest) {
    std::vector<double> takes = {1.5, 2.5};
    seen.whileRunning = [&](double given) {
        if (takes.empty()) {
            return given;
        }
        const double taken = takes.front();
        takes.erase(takes.begin());
        return taken;
    };
    EXPECT_FALSE(KRTPluginValidator::validator()->isValid());
    EXPECT_THAT(seen.seconds, ElementsAre(DoubleEq(6.0), DoubleEq(4.5), DoubleEq(2.0)));
}

TEST_F(ValidatorTime, AnEarlyPongDoesNotShortenItAndALaterOldOneDoesNotUndoIt) {
    seen.whileRunning = [](double given) {
        pong("2.5");
        pong("1.0");
        return given;
    };
    EXPECT_TRUE(KRTValidatePlugin());
    EXPECT_THAT(seen.seconds, ElementsAre(DoubleEq(6.0)));
    EXPECT_EQ(seen.calls.back(),
              "remove com.QuellmarSW.HarlixSupport.Pong com.QuellmarSW.HarlixSupport");
}

TEST_F(ValidatorTime, EachQuestionWaitsAnew) {
    const auto validator = KRTPluginValidator::validator();
    seen.whileRunning = [](double given) {
        pong("2.5");
        return given;
    };
    EXPECT_TRUE(validator->isValid());
    seen.whileRunning = nullptr;
    EXPECT_TRUE(validator->isValid()) << "once it was true, it stays true";
    EXPECT_THAT(seen.seconds, ElementsAre(DoubleEq(6.0), DoubleEq(6.0)));
}

TEST(GenerateUUIDString, IsTheFirstGroupAndThenTheSecond) {
    EXPECT_EQ(nameOf(NSStringUUIDAdditions::generateUUIDString().get()), "0123456789AB");
}

} // namespace
