// What becomes of handles, descriptors and blocked calls when something ends.

#include "tests/mobiledevice/provider/ProviderFixture.h"

#include "mobiledevice/provider/devices/DeviceHub.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <fcntl.h>

#include <functional>
#include <memory>

namespace krl::provider::testing {
namespace {

using virtualphone::LogEntry;
using virtualphone::parseFault;

class Lifetime : public ProviderTest {
protected:
    // Whether all connections but the listener are gone, on both sides.
    bool onlyTheListenerIsLeft() { return bus().waitForConnections(1); }
};

// ------------------------------------------------------------------ handles

TEST_F(Lifetime, NullHandlesAreAnsweredWithAStatus) {
    am_service* service = nullptr;
    afc_connection* files = nullptr;
    afc_directory* directory = nullptr;
    afc_dictionary* info = nullptr;
    afc_file_ref file = 0;
    uint32_t length = 0;
    log().clear();
    EXPECT_EQ(md.AMDeviceRetain(nullptr), nullptr);
    md.AMDeviceRelease(nullptr);
    EXPECT_EQ(md.AMDeviceConnect(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceDisconnect(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceIsPaired(nullptr), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceStartSession(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceStopSession(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceStartService(nullptr, CFSTR("x"), &service, nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceCopyValue(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(md.AMDPostNotification(nullptr, CFSTR("x"), nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AFCConnectionOpen(nullptr, 0, &files), kAFCNotConnected);
    EXPECT_EQ(md.AFCConnectionClose(nullptr), kAFCNotConnected);
    EXPECT_EQ(md.AFCDirectoryCreate(nullptr, "/x"), kAFCNotConnected);
    EXPECT_EQ(md.AFCDirectoryOpen(nullptr, "/x", &directory), kAFCNotConnected);
    EXPECT_EQ(md.AFCRemovePath(nullptr, "/x"), kAFCNotConnected);
    EXPECT_EQ(md.AFCRenamePath(nullptr, "/x", "/y"), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefOpen(nullptr, "/x", 1, &file), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefRead(nullptr, 1, nullptr, &length), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefWrite(nullptr, 1, "x", 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefClose(nullptr, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefLock(nullptr, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefUnlock(nullptr, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileInfoOpen(nullptr, "/x", &info), kAFCNotConnected);
    EXPECT_EQ(md.AFCDeviceInfoOpen(nullptr, &info), kAFCNotConnected);
    EXPECT_TRUE(log().entries().empty());
}

TEST_F(Lifetime, NullPlacesAreAnsweredWithAStatus) {
    openSession();
    EXPECT_EQ(md.AMDeviceStartService(device, nullptr, nullptr, nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), nullptr, nullptr),
              kAMDInvalidHandle);
    EXPECT_EQ(md.AFCConnectionOpen(startService("com.apple.afc"), 0, nullptr), kAFCInvalidArgument);
}

TEST_F(Lifetime, AFileConnectionIsClosedOnce) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCConnectionClose(files), 0);
    EXPECT_EQ(md.AFCConnectionClose(files), kAFCNotConnected);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefClose(files, 1), kAFCNotConnected);
}

TEST_F(Lifetime, AServiceBelongsToItsFileConnection) {
    openSession();
    am_service* service = startService("com.apple.afc");
    afc_connection* files = nullptr;
    ASSERT_EQ(md.AFCConnectionOpen(service, 0, &files), 0);
    afc_connection* again = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &again), kAFCNotConnected);
    EXPECT_EQ(again, nullptr);
    EXPECT_EQ(md.AMDPostNotification(service, CFSTR("x"), nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(service), kAMDInvalidHandle);
}

TEST_F(Lifetime, HandlesOfAnotherKindAreRefusedAndUnharmed) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AMDShutdownNotificationProxy(files), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(device), kAMDInvalidHandle);
    EXPECT_EQ(md.AFCConnectionClose(reinterpret_cast<afc_connection*>(device)), kAFCNotConnected);
    EXPECT_EQ(md.AMDeviceConnect(reinterpret_cast<am_device*>(files)), kAMDInvalidHandle);
    md.AMDeviceRelease(reinterpret_cast<am_device*>(files));
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), 0);
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
}

TEST_F(Lifetime, TheLastReferenceClosesEverythingOfTheDevice) {
    md.AMDeviceRetain(device);
    afc_connection* files = openFiles();
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    openSession();
    am_service* unused = startService("com.apple.afc");
    afc_dictionary* info = nullptr;
    ASSERT_EQ(md.AFCDeviceInfoOpen(files, &info), 0);
    EXPECT_EQ(watcher.end(), 0);
    md.AMDeviceRelease(device);
    ASSERT_TRUE(bus().waitForConnections(0));

    char* text = nullptr;
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), kAFCNotConnected);
    EXPECT_EQ(md.AFCKeyValueRead(info, &text, &text), kAFCInvalidArgument);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AFCConnectionOpen(unused, 0, &files), kAFCNotConnected);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDInvalidHandle);
    md.AMDeviceRelease(device);
}

// ------------------------------------------------------------------ descriptors

TEST_F(Lifetime, NoDescriptorIsLeftBehind) {
    const std::function<void()> scenarios[] = {
        [&] { md.AFCConnectionClose(openFiles()); },
        [&] {
            am_service* proxy = openProxy();
            md.AMDPostNotification(proxy, CFSTR("x"), nullptr);
            md.AMDShutdownNotificationProxy(proxy);
        },
        [&] { startService("com.apple.afc"); },
        [&] {
            phone().faults().add(parseFault("lockdown/ValidatePair=garbled"));
            EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDBadReply);
        },
        [&] {
            afc_connection* files = openFiles();
            phone().faults().add(parseFault("afc/MakeDirectory=drop"));
            EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), kAFCNotConnected);
            md.AFCConnectionClose(files);
        },
        [&] {
            bus().faults().add(parseFault("usbmux/Connect=status:3"));
            EXPECT_EQ(md.AMDeviceConnect(device), kAMDNotConnected);
        },
    };
    openSession();
    md.AMDeviceDisconnect(device);
    ASSERT_TRUE(onlyTheListenerIsLeft());
    const size_t before = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        for (const auto& scenario : scenarios) {
            openSession();
            scenario();
            md.AMDeviceDisconnect(device);
        }
    }
    ASSERT_TRUE(onlyTheListenerIsLeft());
    EXPECT_TRUE(descriptorsFallTo(before));
}

TEST_F(Lifetime, APhoneThatIsPulledOutLeavesNoDescriptorBehind) {
    ASSERT_TRUE(onlyTheListenerIsLeft());
    const size_t before = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        am_service* proxy = openProxy();
        EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
        openFiles();
        openSession();
        startService("com.apple.afc");
        const size_t events = watcher.events.size();
        replug();
        ASSERT_TRUE(watcher.waitForEvents(events + 2));
        device = watcher.events.back().device;
    }
    ASSERT_TRUE(onlyTheListenerIsLeft());
    EXPECT_TRUE(descriptorsFallTo(before));
}

TEST_F(Lifetime, TunnelsAreNotInheritedByChildren) {
    const int before = inheritableDescriptors();
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    openFiles();
    ASSERT_TRUE(bus().waitForConnections(4)); // the listener, lockdown, the proxy, the files
    EXPECT_EQ(inheritableDescriptors(), before);
}

TEST_F(Lifetime, AProcessWithVeryManyDescriptorsReachesThePhoneAllTheSame) {
    const ManyDescriptors allowance;
    if (!allowance.areAllowed()) {
        GTEST_SKIP() << "so many descriptors are not allowed here";
    }
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    {
        std::vector<UniqueDescriptor> many;
        while (many.size() < 1100) {
            many.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            ASSERT_TRUE(many.back());
        }
        EXPECT_EQ(md.AMDeviceConnect(device), 0);
        EXPECT_NE(md.AMDeviceIsPaired(device), 0);
        EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), 0); // what is open works on
        md.AMDeviceRetain(device);
        EXPECT_EQ(watcher.end(), 0);
        Watcher<1> anew; // and phones are heard of
        EXPECT_EQ(anew.waitForArrival(), device);
    }
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
    md.AMDeviceRelease(device);
}

// ------------------------------------------------------------------ silence and unplugging

// Every call that waits for the phone, in the state in which it works.
struct WaitingCall {
    const char* name;
    const char* service;
    const char* request;
    int32_t timedOut;
    int32_t notConnected;
    int32_t (*call)(const MobileDeviceTable&, am_device*, afc_connection*, afc_file_ref);
};

const WaitingCall kWaitingCalls[] = {
    {"ValidatePairing", "lockdown", "ValidatePair", kAMDTimedOut, kAMDNotConnected,
     [](const MobileDeviceTable& md, am_device* device, afc_connection*, afc_file_ref) {
         return md.AMDeviceValidatePairing(device);
     }},
    {"StartSession", "lockdown", "StartSession", kAMDTimedOut, kAMDNotConnected,
     [](const MobileDeviceTable& md, am_device* device, afc_connection*, afc_file_ref) {
         return md.AMDeviceStartSession(device);
     }},
    {"StartService", "lockdown", "StartService", kAMDTimedOut, kAMDNotConnected,
     [](const MobileDeviceTable& md, am_device* device, afc_connection*, afc_file_ref) {
         am_service* service = nullptr;
         return md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr);
     }},
    {"StopSession", "lockdown", "StopSession", kAMDTimedOut, kAMDNotConnected,
     [](const MobileDeviceTable& md, am_device* device, afc_connection*, afc_file_ref) {
         return md.AMDeviceStopSession(device);
     }},
    {"CopyValue", "lockdown", "GetValue", -1, -1,
     [](const MobileDeviceTable& md, am_device* device, afc_connection*, afc_file_ref) {
         return md.AMDeviceCopyValue(device, nullptr, nullptr) == nullptr ? -1 : 0;
     }},
    {"DirectoryOpen", "afc", "ReadDirectory", kAFCTimedOut, kAFCNotConnected,
     [](const MobileDeviceTable& md, am_device*, afc_connection* files, afc_file_ref) {
         afc_directory* directory = nullptr;
         return md.AFCDirectoryOpen(files, "/", &directory);
     }},
    {"FileRefOpen", "afc", "Open", kAFCTimedOut, kAFCNotConnected,
     [](const MobileDeviceTable& md, am_device*, afc_connection* files, afc_file_ref) {
         afc_file_ref file = 0;
         return md.AFCFileRefOpen(files, "/f", kAFCOpenWrite, &file);
     }},
    {"FileRefWrite", "afc", "Write", kAFCTimedOut, kAFCNotConnected,
     [](const MobileDeviceTable& md, am_device*, afc_connection* files, afc_file_ref file) {
         const std::string bytes(4'194'304, 'x');
         return md.AFCFileRefWrite(files, file, bytes.data(), 4'194'304);
     }},
    {"FileRefRead", "afc", "Read", kAFCTimedOut, kAFCNotConnected,
     [](const MobileDeviceTable& md, am_device*, afc_connection* files, afc_file_ref file) {
         char buffer[10];
         uint32_t length = sizeof buffer;
         return md.AFCFileRefRead(files, file, buffer, &length);
     }},
    {"FileRefLock", "afc", "Lock", kAFCTimedOut, kAFCNotConnected,
     [](const MobileDeviceTable& md, am_device*, afc_connection* files, afc_file_ref file) {
         return md.AFCFileRefLock(files, file);
     }},
};

void PrintTo(const WaitingCall& call, std::ostream* stream) {
    *stream << call.name;
}

class Waiting : public Lifetime, public ::testing::WithParamInterface<WaitingCall> {
protected:
    void SetUp() override {
        Lifetime::SetUp();
        files = openFiles();
        file = openFile(files, "/open", kAFCOpenReadWrite);
        openSession();
    }

    int32_t call() { return GetParam().call(md, device, files, file); }

    // Waits until the phone holds the call's request and does not answer it.
    void waitUntilItWaits() {
        log().waitFor([&](const LogEntry& entry) {
            return entry.request == GetParam().request && entry.fault == "silent";
        });
    }

    void hush() {
        phone().faults().add(
            parseFault(std::string(GetParam().service) + "/" + GetParam().request + "=silent"));
    }

    afc_connection* files = nullptr;
    afc_file_ref file = 0;
};

TEST_P(Waiting, ForASilentPhoneEndsWithTheDeadline) {
    md.AMDeviceSetCallTimeout(200);
    phone().faults().goSilent();
    EXPECT_EQ(call(), GetParam().timedOut);
    // The connection is given up: the answer that comes late would be taken for another one.
    phone().faults().endSilence();
    md.AMDeviceSetCallTimeout(0);
    EXPECT_EQ(call(), GetParam().notConnected);
}

TEST_P(Waiting, ForAPhoneThatIsPulledOutEndsAtOnce) {
    hush();
    std::thread puller([this] {
        waitUntilItWaits();
        bus().unplug(id());
    });
    // Before the deadline of ten seconds, whose status would be another one.
    EXPECT_EQ(call(), GetParam().notConnected);
    puller.join();
    EXPECT_EQ(call(), GetParam().notConnected);
}

TEST_P(Waiting, EndsWhenTheDeviceIsReleasedElsewhere) {
    hush();
    std::thread releaser([this] {
        waitUntilItWaits();
        watcher.end();
    });
    EXPECT_EQ(call(), GetParam().notConnected);
    releaser.join();
    EXPECT_TRUE(bus().waitForConnections(0));
}

TEST_P(Waiting, EndsWhenTheConnectionIsClosedElsewhere) {
    hush();
    std::thread closer([this] {
        waitUntilItWaits();
        md.AMDeviceDisconnect(device);
        md.AFCConnectionClose(files);
    });
    EXPECT_EQ(call(), GetParam().notConnected);
    closer.join();
    EXPECT_TRUE(onlyTheListenerIsLeft());
}

TEST_P(Waiting, EndsWhenCallsAreCancelledElsewhere) {
    hush();
    std::thread canceller([this] {
        waitUntilItWaits();
        EXPECT_EQ(md.AMDeviceCancelCalls(device), 0);
    });
    const int32_t cancelled = GetParam().timedOut == -1 ? -1 : int32_t{kAMDCancelled};
    EXPECT_EQ(call(), cancelled);
    canceller.join();
    EXPECT_EQ(call(), cancelled);
    afc_connection* anew = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(anew, "/x"), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, Waiting, ::testing::ValuesIn(kWaitingCalls),
                         [](const auto& param) { return param.param.name; });

// Byte after byte, so that it is never silent.
TEST_F(Lifetime, AnAnswerThatDripsEndsAsAWhole) {
    afc_connection* files = openFiles();
    openSession();
    md.AMDeviceSetCallTimeout(300);
    phone().faults().add(parseFault("lockdown/ValidatePair=drip:20"));
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDTimedOut);
    phone().faults().add(parseFault("afc/FileInfo=drip:20"));
    afc_dictionary* info = nullptr;
    EXPECT_EQ(md.AFCFileInfoOpen(files, "/iTunes_Control", &info), kAFCTimedOut);
    bus().faults().add(parseFault("usbmux/Connect=drip:20"));
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDTimedOut);
}

TEST_F(Lifetime, APhoneThatDripsOrIsSilentHoldsUpNoOther) {
    bus().plug(makePhone("other"));
    ASSERT_TRUE(watcher.waitForEvents(2));
    am_device* other = watcher.events.back().device;
    openSession();
    for (const char* action : {"drip:20", "silent"}) {
        SCOPED_TRACE(action);
        phone().faults().add(parseFault(std::string("lockdown/StartService=") + action));
        log().clear();
        std::thread waiting([this] {
            am_service* service = nullptr;
            EXPECT_EQ(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr),
                      kAMDCancelled);
        });
        log().waitFor([](const LogEntry& entry) { return !entry.fault.empty(); });
        EXPECT_EQ(md.AMDeviceConnect(other), 0);
        EXPECT_NE(md.AMDeviceIsPaired(other), 0);
        EXPECT_EQ(md.AMDeviceValidatePairing(other), 0);
        Watcher<1> late;
        EXPECT_EQ(md.AMDeviceWaitForAttached(late.handle, 0), 0);
        runOnce();
        EXPECT_EQ(late.events.size(), 2u);
        md.AMDeviceCancelCalls(device); // only now
        waiting.join();
        openSession();
    }
}

TEST_F(Lifetime, ASlowPhoneIsWaitedForWhileItMoves) {
    // Each answer comes well within the deadline, the whole write takes longer.
    afc_connection* files = openFiles();
    const afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    phone().faults().add(parseFault("afc/Write#1+=delay:100"));
    md.AMDeviceSetCallTimeout(1000);
    const auto begin = std::chrono::steady_clock::now();
    const std::string bytes(20 * 65536, 'x');
    EXPECT_EQ(md.AFCFileRefWrite(files, file, bytes.data(), static_cast<uint32_t>(bytes.size())),
              0);
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
}

TEST_F(Lifetime, TheHubSeversAPhoneThatIsGoneEvenIfItsTunnelsStay) {
    // A removal that the mux tells of while its tunnels still stand.
    afc_connection* files = openFiles();
    deviceHub().detached(id());
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), kAFCNotConnected);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDNotConnected);
}

// ------------------------------------------------------------------ threads

TEST_F(Lifetime, TwoPhonesAreUsedFromTwoThreads) {
    bus().plug(makePhone("other"));
    ASSERT_TRUE(watcher.waitForEvents(2));
    const auto work = [this](am_device* phone) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(md.AMDeviceConnect(phone), 0);
            EXPECT_NE(md.AMDeviceIsPaired(phone), 0);
            EXPECT_EQ(md.AMDeviceValidatePairing(phone), 0);
            EXPECT_EQ(md.AMDeviceStartSession(phone), 0);
            am_service* service = nullptr;
            EXPECT_EQ(md.AMDeviceStartService(phone, CFSTR("com.apple.afc"), &service, nullptr), 0);
            EXPECT_EQ(md.AMDeviceStopSession(phone), 0);
            afc_connection* files = nullptr;
            EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), 0);
            afc_file_ref file = 0;
            EXPECT_EQ(md.AFCFileRefOpen(files, "/f", kAFCOpenWrite, &file), 0);
            const std::string bytes(100'000, 'x');
            EXPECT_EQ(md.AFCFileRefWrite(files, file, bytes.data(), 100'000), 0);
            EXPECT_EQ(md.AFCConnectionClose(files), 0);
            EXPECT_EQ(md.AMDeviceDisconnect(phone), 0);
        }
    };
    std::thread first(work, watcher.events[0].device);
    std::thread second(work, watcher.events[1].device);
    first.join();
    second.join();
}

TEST_F(Lifetime, OneConnectionUsedFromTwoThreadsStaysWhole) {
    afc_connection* files = openFiles();
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            const std::string path = "/f" + std::to_string(i);
            for (int j = 0; j < 50; ++j) {
                afc_file_ref file = 0;
                EXPECT_EQ(md.AFCFileRefOpen(files, path.c_str(), kAFCOpenWrite, &file), 0);
                EXPECT_EQ(md.AFCFileRefWrite(files, file, path.data(), 3), 0);
                EXPECT_EQ(md.AFCFileRefClose(files, file), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(contents("/f0"), "/f0");
    EXPECT_EQ(contents("/f1"), "/f1");
}

} // namespace
} // namespace krl::provider::testing
