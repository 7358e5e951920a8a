#include "tests/corefoundation/Support.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace krl::cf::test {
namespace {

CFNotificationCenterRef center() {
    return CFNotificationCenterGetLocalCenter();
}

/// Counts what it is told.
class Observer {
public:
    explicit Observer(std::function<void()> received = [] {}) : received_(std::move(received)) {}

    ~Observer() { CFNotificationCenterRemoveEveryObserver(center(), this); }

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    void observe(CFStringRef name, const void* object = nullptr) {
        CFNotificationCenterAddObserver(center(), this, receive, name, object,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }

    void ignore(CFStringRef name, const void* object = nullptr) {
        CFNotificationCenterRemoveObserver(center(), this, name, object);
    }

    std::atomic<int> count{0};
    CFNotificationCenterRef lastCenter = nullptr;
    std::string lastName;
    const void* lastObject = nullptr;
    CFDictionaryRef lastUserInfo = nullptr;

private:
    static void receive(CFNotificationCenterRef from, void* observer, CFNotificationName name,
                        const void* object, CFDictionaryRef userInfo) {
        auto* self = static_cast<Observer*>(observer);
        ++self->count;
        self->lastCenter = from;
        self->lastName = textOf(name);
        self->lastObject = object;
        self->lastUserInfo = userInfo;
        self->received_();
    }

    std::function<void()> received_;
};

void post(CFStringRef name, const void* object = nullptr, CFDictionaryRef userInfo = nullptr) {
    CFNotificationCenterPostNotification(center(), name, object, userInfo, true);
}

TEST(NotificationCenter, TellsObserversBeforeThePostReturns) {
    Observer observer;
    observer.observe(CFSTR("n"));
    auto userInfo = makeDictionary();
    const int object = 0;
    post(CFSTR("n"), &object, userInfo.get());
    EXPECT_EQ(observer.count, 1);
    EXPECT_EQ(observer.lastCenter, center());
    EXPECT_EQ(observer.lastName, "n");
    EXPECT_EQ(observer.lastObject, &object);
    EXPECT_EQ(observer.lastUserInfo, userInfo.get());
}

TEST(NotificationCenter, DeliversOnThePostingThread) {
    std::thread::id thread;
    Observer observer([&] { thread = std::this_thread::get_id(); });
    observer.observe(CFSTR("n"));
    std::thread poster([] { post(CFSTR("n")); });
    const std::thread::id expected = poster.get_id();
    poster.join();
    EXPECT_EQ(thread, expected);
}

TEST(NotificationCenter, FiltersByNameAndObject) {
    const int object = 0;
    const int other = 0;
    Observer named;
    Observer ofObject;
    Observer ofBoth;
    Observer ofAll;
    named.observe(makeString("n").get());
    ofObject.observe(nullptr, &object);
    ofBoth.observe(CFSTR("n"), &object);
    ofAll.observe(nullptr);
    post(CFSTR("n"), &object);
    post(CFSTR("n"), &other);
    post(CFSTR("n"));
    post(CFSTR("m"), &object);
    EXPECT_EQ(named.count, 3);
    EXPECT_EQ(ofObject.count, 2);
    EXPECT_EQ(ofBoth.count, 1);
    EXPECT_EQ(ofAll.count, 4);
}

TEST(NotificationCenter, TellsInTheOrderOfAdding) {
    std::string order;
    Observer first([&] { order += '1'; });
    Observer second([&] { order += '2'; });
    first.observe(CFSTR("n"));
    second.observe(CFSTR("n"));
    first.observe(CFSTR("n"));
    post(CFSTR("n"));
    EXPECT_EQ(order, "121");
}

TEST(NotificationCenter, RemovesWhatWasAddedAlike) {
    const int object = 0;
    Observer observer;
    observer.observe(CFSTR("n"));
    observer.observe(CFSTR("m"));
    observer.observe(CFSTR("n"), &object);
    observer.ignore(CFSTR("n"), &object);
    post(CFSTR("n"), &object);
    EXPECT_EQ(observer.count, 1);
    observer.ignore(CFSTR("n"));
    post(CFSTR("n"));
    EXPECT_EQ(observer.count, 1);
    post(CFSTR("m"));
    EXPECT_EQ(observer.count, 2);
    CFNotificationCenterRemoveEveryObserver(center(), &observer);
    post(CFSTR("m"));
    EXPECT_EQ(observer.count, 2);
}

TEST(NotificationCenter, TellsNobodyWhoWasRemovedInTheMeantime) {
    Observer second;
    Observer first([&] {
        CFNotificationCenterRemoveEveryObserver(center(), &second);
        CFNotificationCenterRemoveEveryObserver(center(), &first);
    });
    first.observe(CFSTR("n"));
    second.observe(CFSTR("n"));
    post(CFSTR("n"));
    post(CFSTR("n"));
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(second.count, 0);
}

TEST(NotificationCenter, TellsNobodyWhoWasAddedInTheMeantime) {
    Observer second;
    Observer first([&] { second.observe(CFSTR("n")); });
    first.observe(CFSTR("n"));
    post(CFSTR("n"));
    EXPECT_EQ(second.count, 0);
    post(CFSTR("n"));
    EXPECT_EQ(second.count, 1);
}

TEST(NotificationCenter, MayBePostedToWhileItDelivers) {
    Observer observer([&] {
        if (observer.count < 3) {
            post(CFSTR("n"));
        }
    });
    observer.observe(CFSTR("n"));
    post(CFSTR("n"));
    EXPECT_EQ(observer.count, 3);
}

TEST(NotificationCenter, ServesSeveralThreadsAtOnce) {
    std::atomic<int> received{0};
    const auto receive = [](CFNotificationCenterRef, void* observer, CFNotificationName,
                            const void*,
                            CFDictionaryRef) { ++*static_cast<std::atomic<int>*>(observer); };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            int passing = 0;
            for (int round = 0; round < 200; ++round) {
                CFNotificationCenterAddObserver(center(), &passing, receive, CFSTR("other"),
                                                nullptr, 0);
                post(CFSTR("n"));
                CFNotificationCenterRemoveEveryObserver(center(), &passing);
            }
        });
    }
    CFNotificationCenterAddObserver(center(), &received, receive, CFSTR("n"), nullptr, 0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    post(CFSTR("n"));
    CFNotificationCenterRemoveEveryObserver(center(), &received);
    EXPECT_GE(received, 1);
}

TEST(NotificationCenter, IsOneAndImmortal) {
    EXPECT_EQ(CFNotificationCenterGetLocalCenter(), center());
    CFRelease(center());
    EXPECT_GT(CFGetRetainCount(center()), 1000000);
}

} // namespace
} // namespace krl::cf::test
