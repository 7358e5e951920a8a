// Phones that go, fall silent or fail in the middle of a sync. Whatever happens, the call returns,
// the catalogue on the phone is the old one or the new one as a whole, and the next sync works.

#include "tests/endtoend/SyncFixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace krl::test {
namespace {

using ::testing::AnyOf;
using ::testing::UnorderedElementsAre;
using virtualphone::Fault;
using virtualphone::FaultAction;

class Interruption : public SyncTest {
protected:
    /// A phone with an m4r and an mp3 on it.
    void prepare() {
        const List added = emptyList();
        addNew(added, "kept", sourceFile("kept.m4r", "kept bytes"));
        addNew(added, "also kept", sourceFile("also.mp3", "other bytes"));
        ASSERT_EQ(syncAdding(added), 1);
        oldCatalogue_ = contents(kCatalogue);
    }

    /// Adds one ringtone to what prepare() put there.
    int syncOneMore() {
        const List unchanged = load();
        if (!unchanged) {
            return 0;
        }
        const List added = emptyList();
        addNew(added, "new", sourceFile("new.mp3", std::string(200000, 'n')));
        return sync(added, emptyList(), unchanged);
    }

    /// Whether the first fault of the log met the catalogue while it was being written. Writing it
    /// is emptying it first, so that what is there then is neither the old one nor the new one.
    bool faultMetTheCatalogueWrite() {
        std::string openPath;
        for (const auto& entry : log().entries()) {
            if (entry.request == "Open") {
                openPath = entry.path;
            }
            if (!entry.fault.empty()) {
                return openPath == kCatalogue && entry.request != "Open";
            }
        }
        return false;
    }

    void expectOldOrNewCatalogue(const std::string& when) {
        const std::string now = contents(kCatalogue);
        if (now == oldCatalogue_) {
            return;
        }
        if (faultMetTheCatalogueWrite()) {
            put(kCatalogue, oldCatalogue_); // the files are all there; as a person would repair it
            return;
        }
        const Catalogue catalogue = readCatalogue(now);
        std::set<std::string> names;
        for (const auto& [fileName, entry] : catalogue) {
            names.insert(entry.at("Name"));
            EXPECT_TRUE(exists(std::string(kFolder) + "/" + fileName)) << when << ": " << fileName;
        }
        EXPECT_THAT(names, UnorderedElementsAre("kept", "also kept", "new")) << when;
    }

    /// The contents of all ringtones that the phone has.
    std::multiset<std::string> ringtoneContents() {
        std::multiset<std::string> all;
        for (const std::string& name : filesOnPhone()) {
            const std::string bytes = contents(std::string(kFolder) + "/" + name);
            if (!bytes.empty()) {
                all.insert(bytes.substr(0, 16));
            }
        }
        return all;
    }

    /// A phone pulled out and put back has a new record.
    void plugAgain() {
        const uint32_t now = bus().deviceId(phone());
        if (now != 0) {
            bus().unplug(now);
        }
        ASSERT_TRUE(runUntil([this] { return !hasPhone(); }));
        bus().plug(phonePointer());
        ASSERT_TRUE(runUntil([this] { return hasPhone(); }));
        KRTErrorClear();
    }

    std::string oldCatalogue_;
};

TEST_F(Interruption, TheConnectionDroppedAtTheNthFileRequestLosesNoRingtone) {
    prepare();
    bool metAFault = true;
    for (uint32_t n = 1; metAFault; ++n) {
        ASSERT_LT(n, 500U) << "the sync never ended";
        log().clear();
        phone().faults().add(Fault{.service = virtualphone::Service::Afc,
                                   .nth = n,
                                   .andAllLater = true,
                                   .action = FaultAction::Drop});
        const int result = syncOneMore();
        EXPECT_THAT(result, AnyOf(0, 1));
        metAFault = !log().entries([](const auto& entry) { return !entry.fault.empty(); }).empty();
        phone().faults().clear();

        const std::string when = "request " + std::to_string(n);
        expectOldOrNewCatalogue(when);
        const auto bytes = ringtoneContents();
        EXPECT_EQ(bytes.count("kept bytes"), 1U) << when;
        EXPECT_EQ(bytes.count("other bytes"), 1U) << when;

        // Back to the start, over a phone plugged in anew.
        plugAgain();
        if (HasFatalFailure()) {
            return;
        }
        const List all = load();
        ASSERT_TRUE(all) << when;
        if (CFDictionaryContainsKey(all.get(), CFSTR("new"))) {
            const List removed = emptyList();
            move(all, removed, "new");
            ASSERT_EQ(sync(emptyList(), removed, all), 1) << when;
        }
        oldCatalogue_ = contents(kCatalogue);
        KRTErrorClear();
    }
}

TEST_F(Interruption, APhonePulledOutDuringAnUploadFailsTheSubmitAtOnce) {
    options.linkBytesPerSecond = 0;
    prepare();
    phone().faults().add(Fault{
        .service = virtualphone::Service::Afc, .request = "Write", .action = FaultAction::Unplug});
    EXPECT_EQ(syncOneMore(), 0);
    EXPECT_TRUE(KRTError());
    expectOldOrNewCatalogue("after the phone was pulled out");
    ASSERT_TRUE(runUntil([this] { return !hasPhone(); })) << "the removal was not told";
    bus().plug(phonePointer());
    ASSERT_TRUE(runUntil([this] { return hasPhone(); }));
    KRTErrorClear();
    EXPECT_EQ(syncOneMore(), 1);
    EXPECT_THAT(loadedNames(), UnorderedElementsAre("kept", "also kept", "new"));
}

TEST_F(Interruption, ASilentPhoneFailsTheSubmitAfterTheDeadline) {
    prepare();
    AMDeviceSetCallTimeout(200);
    phone().faults().add(virtualphone::parseFault("afc/Write=silent"));
    EXPECT_EQ(syncOneMore(), 0);
    EXPECT_TRUE(KRTError());
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Interruption, AFullPhoneFailsTheSubmitAndTheFirstErrorIsThatTheFolderIsThere) {
    prepare();
    phone().setFreeBytes(100000);
    EXPECT_EQ(syncOneMore(), 0);
    EXPECT_EQ(KRTErrorGetCode(), kAFCObjectExists);
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Interruption, ClearingTheRecordAtEachReportShowsWhatFailedTheSubmit) {
    prepare();
    phone().setFreeBytes(100000);
    KRTRingtoneManagerSetStatusResponder(
        store(),
        [](int32_t, int32_t, uint32_t, uint32_t, const char*, void*) {
            KRTErrorClear();
            return true;
        },
        nullptr);
    EXPECT_EQ(syncOneMore(), 0);
    EXPECT_EQ(KRTErrorGetCode(), kAFCNoSpaceLeft);
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Interruption, ACancelledSubmitLeavesTheOldCatalogue) {
    prepare();
    const List unchanged = load();
    const List added = emptyList();
    addNew(added, "new", sourceFile("new.m4r", "new"));
    KRTRingtoneManagerSetStatusResponder(
        store(),
        [](int32_t mode, int32_t, uint32_t, uint32_t, const char*, void*) { return mode != 5; },
        nullptr);
    EXPECT_EQ(sync(added, emptyList(), unchanged), 1);
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Interruption, ACatalogueThatIsNoPropertyListIsAnEmptyList) {
    put(kCatalogue, "<plist><dict><key>Ringtones</key><dict>");
    const List list = load();
    ASSERT_TRUE(list);
    EXPECT_EQ(CFDictionaryGetCount(list.get()), 0);
    EXPECT_FALSE(KRTError());
}

} // namespace
} // namespace krl::test
