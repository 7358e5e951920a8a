// What a run leaves open on the phone, reckoned from the calls that it made and held against what
// the phone knows.
#pragma once

#include "tests/library/sweep/World.h"

namespace krl::test {

class Ledger {
public:
    /// Listens from now on. At work is the world's own record, or one of the phone manager's.
    Ledger(World& world, bool ofManager)
        : world_(world), ofManager_(ofManager), handlesBefore_(world.fake.live()),
          doubleClosesBefore_(world.fake.doubleCloses()) {
        world.fake.onCall([this](const std::string& line) {
            noteError(world_.fake.calls().size() - 1); // this one was not made yet
            note(line);
            last_ = line;
        });
    }

    ~Ledger() { world_.fake.onCall(nullptr); }

    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    /// To be called when the run has ended.
    void close() { noteError(world_.fake.calls().size()); }

    /// How many calls had been made when the error of the record was seen.
    std::optional<size_t> callsAtFirstError() const { return callsAtFirstError_; }

    /// The first error was never replaced by another one.
    bool keptItsFirstError() const { return keptItsFirstError_; }

    void expectToBeRight() const {
        const LiveHandles live = world_.fake.live();
        EXPECT_EQ(live.directories, 0);
        EXPECT_EQ(live.proxies, world_.phone->notificationProxy != nullptr ? 1 : 0);
        EXPECT_EQ(live.fileConnections, heldByOwnRecord() + heldByListedPhones() + forgotten_);
        // The lock file is open no longer than its connection is.
        EXPECT_LE(live.files, (world_.phone->lockFile != 0 ? 1 : 0) + forgotten_);
        // The pairs of the device information are not closed.
        EXPECT_EQ(live.keyValues, handlesBefore_.keyValues + informationOpened_);
        EXPECT_EQ(live.subscriptions, isSubscribed() ? 1 : 0);
        EXPECT_EQ(world_.fake.doubleCloses() - doubleClosesBefore_, closedTwice_);
        EXPECT_EQ(world_.fake.phone().references(), 1 + static_cast<int>(listedPhones().size()));
        expectCountsToBeRight();
    }

private:
    void expectCountsToBeRight() const {
        EXPECT_GE(world_.phone->openCount, 0);
        EXPECT_GE(world_.phone->fileServiceCount, 0);
        if (!ofManager_) {
            EXPECT_EQ(world_.fake.phone().isConnected(), world_.phone->openCount > 0);
        }
        if (world_.phone->openCount > 0 && world_.phone->fileServiceCount > 0) {
            EXPECT_NE(world_.phone->fileConnection, nullptr);
        }
    }

    static bool beginsWithOneOf(const std::string& line,
                                const std::vector<std::string_view>& names) {
        return std::any_of(names.begin(), names.end(),
                           [&](std::string_view name) { return line.starts_with(name); });
    }

    void note(const std::string& line) {
        if (line.starts_with("AMDeviceDisconnect") && beginsWithOneOf(last_, kBeforeFileService)) {
            // A failed open forgets the connection that its record had, without closing it.
            forgotten_ = connectionsBesidesOwn(/*ownToo=*/!ofManager_);
        } else if (line.starts_with("AMDeviceRelease")) {
            // So does a record that goes.
            forgotten_ = connectionsBesidesOwn(/*ownToo=*/false);
        } else if (line.starts_with("AFCKeyValueRead") && last_.starts_with("AFCDeviceInfoOpen")) {
            ++informationOpened_;
        } else if (line.starts_with("AFCConnectionClose closed")) {
            // Only a failed start of the file service closes what it has closed before.
            EXPECT_TRUE(beginsWithOneOf(last_, kOfFileService)) << last_;
            ++closedTwice_;
        }
    }

    void noteError(size_t callsMade) {
        if (!KRTError()) {
            callsAtFirstError_.reset(); // there was none, or somebody cleared it
            return;
        }
        const std::pair error(KRTErrorGetCode(), KRTErrorGetLine());
        if (!callsAtFirstError_) {
            callsAtFirstError_ = callsMade;
            firstError_ = error;
        }
        keptItsFirstError_ = keptItsFirstError_ && firstError_ == error;
    }

    int connectionsBesidesOwn(bool ownToo) const {
        return world_.fake.live().fileConnections - (ownToo ? 0 : heldByOwnRecord());
    }

    int heldByOwnRecord() const { return world_.phone->fileConnection != nullptr ? 1 : 0; }

    static std::vector<KRTPhoneRef> listedPhones() {
        return _gKRTPhoneSharedPhoneManager == nullptr ? std::vector<KRTPhoneRef>{}
                                                       : World::phones();
    }

    static int heldByListedPhones() {
        const auto phones = listedPhones();
        return static_cast<int>(std::count_if(phones.begin(), phones.end(), [](KRTPhoneRef phone) {
            return phone->fileConnection != nullptr;
        }));
    }

    static bool isSubscribed() {
        return _gKRTPhoneSharedPhoneManager != nullptr &&
               _gKRTPhoneSharedPhoneManager->notification != nullptr;
    }

    using Names = std::vector<std::string_view>;

    static inline const Names kBeforeFileService = {"AMDeviceConnect", "AMDeviceIsPaired",
                                                    "AMDeviceValidatePairing"};
    static inline const Names kOfFileService = {"AMDeviceStartSession", "AMDeviceStartService",
                                                "AMDeviceStopSession", "AFCConnectionOpen"};

    World& world_;
    const bool ofManager_;
    const LiveHandles handlesBefore_;
    const int doubleClosesBefore_;
    std::string last_;
    int forgotten_ = 0;
    int informationOpened_ = 0;
    int closedTwice_ = 0;
    std::optional<size_t> callsAtFirstError_;
    std::pair<int, int> firstError_;
    bool keptItsFirstError_ = true;
};

} // namespace krl::test
