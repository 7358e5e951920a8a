// What a submit does when something fails.
#include "tests/library/store/StoreTest.h"

#include <cerrno>

namespace {

class SubmitFailure : public StoreTest {
protected:
    /// A submit that must fail with this code, reported by this module.
    void expectFailure(int code, const char* module, const std::vector<Tone>& added,
                       const std::vector<Tone>& unchanged = {}) {
        EXPECT_EQ(submit(added, {}, unchanged), 0);
        EXPECT_EQ(recordedCode(), code);
        EXPECT_STREQ(KRTErrorGetFile(), module);
    }

    static constexpr const char* kStoreModule = "KRTRingtoneManagerInternal";
    static constexpr const char* kPhoneModule = "KRTPhoneInternal";
};

// ---------------------------------------------------------------------------- before the phone is
// opened

struct MissingRow {
    const char* name;
    bool added;
    bool removed;
    bool unchanged;
};

void PrintTo(const MissingRow& row, std::ostream* out) {
    *out << row.name;
}

class MissingLists : public StoreTest, public ::testing::WithParamInterface<MissingRow> {
protected:
    int submitWith(bool added, bool removed, bool unchanged) {
        const auto list = listOf({});
        return KRTRingtoneManagerSubmitChanges(manager, added ? list.get() : nullptr,
                                               removed ? list.get() : nullptr,
                                               unchanged ? list.get() : nullptr);
    }

    /// The line that reports the absence of this list alone.
    int lineOf(bool added, bool removed, bool unchanged) {
        KRTErrorClear();
        openPhone();
        submitWith(added, removed, unchanged);
        return KRTErrorGetLine();
    }
};

TEST_P(MissingLists, FailWithCode1AndTakeOneOpenBack) {
    openPhone(3);
    EXPECT_EQ(submitWith(GetParam().added, GetParam().removed, GetParam().unchanged), 0);
    EXPECT_EQ(recordedCode(), 1);
    EXPECT_STREQ(KRTErrorGetFile(), "KRTRingtoneManagerInternal");
    EXPECT_EQ(counts(), (Counts{2, 1}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_P(MissingLists, AreLookedForInTheOrderUnchangedAddedRemoved) {
    const int line = lineOf(GetParam().added, GetParam().removed, GetParam().unchanged);
    if (!GetParam().unchanged) {
        EXPECT_EQ(line, lineOf(true, true, false));
    } else if (!GetParam().added) {
        EXPECT_EQ(line, lineOf(false, true, true));
    } else {
        EXPECT_EQ(line, lineOf(true, false, true));
    }
}

INSTANTIATE_TEST_SUITE_P(All, MissingLists,
                         ::testing::Values(MissingRow{"Unchanged", true, true, false},
                                           MissingRow{"Added", false, true, true},
                                           MissingRow{"Removed", true, false, true},
                                           MissingRow{"AddedAndRemoved", false, false, true},
                                           MissingRow{"AllThree", false, false, false}),
                         [](const auto& row) { return row.param.name; });

TEST_F(SubmitFailure, OnAClosedPhoneLeavesTheCountAtZero) {
    EXPECT_EQ(KRTRingtoneManagerSubmitChanges(manager, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(SubmitFailure, AnEarlierErrorIsNotReplaced) {
    KRTErrorSet(12, "earlier", 34);
    EXPECT_EQ(KRTRingtoneManagerSubmitChanges(manager, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(recordedCode(), 34);
}

TEST_F(SubmitFailure, OfTheGenerationDoesNothingOnThePhoneAndTakesOneOpenBack) {
    openPhone(3);
    expectFailure(-2, kStoreModule, {newTone("A", "m4r").with("RemotePath", "")});
    EXPECT_EQ(counts(), (Counts{2, 1}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

// ---------------------------------------------------------------------------- opening

TEST_F(SubmitFailure, APhoneThatDoesNotOpenIsNotTouched) {
    fake.fail("AMDeviceConnect", kStatus);
    expectFailure(kStatus, kPhoneModule, {toneWithSource("A", "m4r")});
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceConnect", "AMDeviceDisconnect"));
    EXPECT_EQ(counts().open, 0);
}

TEST_F(SubmitFailure, AFileServiceThatDoesNotStartIsNotTouchedAndTheOpenIsTakenBackTwice) {
    // Open once with no service running: the submit's open counts, its start of the service is
    // real.
    openPhone(2);
    KRTPhoneEndFileService(phone);
    ASSERT_EQ(counts(), (Counts{1, 0}));
    fake.fail("AMDeviceStartSession", kStatus);
    expectFailure(kStatus, kPhoneModule, {toneWithSource("A", "m4r")});
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_EQ(fake.countOf("AFCDirectoryCreate"), 0);
}

// ---------------------------------------------------------------------------- sources

TEST_F(SubmitFailure, AMissingSourceFailsWithTheCodeOfTheRead) {
    openPhone(10);
    expectFailure(ENOENT, kStoreModule,
                  {newTone("A", "m4r").with("LocalPath", computer.path("missing.m4r"))});
    // Less the creation of the folder and the close; the service is not ended.
    EXPECT_EQ(counts(), (Counts{9, 2}));
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
}

TEST_F(SubmitFailure, AFolderAsSourceFails) {
    openPhone();
    expectFailure(EISDIR, kStoreModule, {newTone("A", "m4r").with("LocalPath", computer.path(""))});
}

TEST_F(SubmitFailure, AnEmptyLocalPathFails) {
    openPhone();
    expectFailure(ENOENT, kStoreModule, {newTone("A", "m4r").with("LocalPath", "")});
}

TEST_F(SubmitFailure, EarlierUploadsStayUnderTheOldCatalogue) {
    putCatalogue({});
    const std::string oldCatalogue = fake.phone().contents(kCatalogue);
    openPhone();
    Reports reports;
    reportTo(reports);
    expectFailure(ENOENT, kStoreModule,
                  {toneWithSource("first", "m4r"),
                   newTone("second", "m4r").with("LocalPath", computer.path("missing.m4r")),
                   toneWithSource("third", "m4r")});
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(fake.phone().contents(kCatalogue), oldCatalogue);
    EXPECT_EQ(reports.lines.back(), "5 1 3 1 second");
}

// ---------------------------------------------------------------------------- writing

TEST_F(SubmitFailure, APlaceholderThatCannotBeWrittenFails) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone tone = putTone("A", base + ".mp3").with("LocalPath", "/a");
    // The folder is there, and the phone says so; that would stay the first error.
    fake.phone().file(kFolder + "/" + base + ".m4r", "old");
    fake.fail("AFCFileRefOpen", kStatus);
    fake.onCall([](const std::string& line) {
        if (line.starts_with("AFCFileRefOpen")) {
            KRTErrorClear();
        }
    });
    openPhone();
    expectFailure(kStatus, kPhoneModule, {}, {tone});
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
}

TEST_F(SubmitFailure, AnUploadThatCannotBeWrittenFails) {
    openPhone(10);
    fake.fail("AFCFileRefWrite", kAFCNoSpaceLeft);
    expectFailure(kAFCNoSpaceLeft, kPhoneModule,
                  {toneWithSource("A", "m4r"), toneWithSource("B", "m4r")});
    // Opened by the submit (11, service 2); the folder takes one open; the failed write leaves both
    // counts raised by one; and the close.
    EXPECT_EQ(counts(), (Counts{10, 3}));
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
}

TEST_F(SubmitFailure, ADestinationThatCannotBeFormedFailsWithCode5) {
    const UniChar loneSurrogate[] = {0xD800};
    const Tone tone =
        toneWithSource("A", "m4r")
            .withObject("FileType",
                        adopt(CFStringCreateWithCharacters(nullptr, loneSurrogate, 1)).get());
    openPhone();
    expectFailure(5, kStoreModule, {tone});
    EXPECT_EQ(fake.countOf("AFCFileRefOpen"), 0);
}

TEST_F(SubmitFailure, ADestinationWithAZeroInsideCannotBeFormed) {
    const UniChar zero[] = {'m', 0, 'r'};
    const Tone tone =
        toneWithSource("A", "m4r")
            .withObject("FileType", adopt(CFStringCreateWithCharacters(nullptr, zero, 3)).get());
    openPhone();
    expectFailure(5, kStoreModule, {tone});
}

// ---------------------------------------------------------------------------- each call in turn

/// A call that fails, and what a submit on a phone opened ten times comes to.
struct CallRow {
    const char* name;
    const char* function; // null: none
    int nth;
    int result;
    std::optional<int> code;
    Counts counts;
};

void PrintTo(const CallRow& row, std::ostream* out) {
    *out << row.name;
}

class FailingCalls : public StoreTest, public ::testing::WithParamInterface<CallRow> {};

TEST_P(FailingCalls, HaveTheirResultCodeAndCounts) {
    setFirmware("1.1.1");
    // Files elsewhere, so that the submit creates the folder.
    fake.phone().file("/elsewhere/Long name.m4r").file("/elsewhere/OLDA.m4r");
    const Tone moved = newTone("moved", "m4r")
                           .with("RemotePath", "/elsewhere/Long name.m4r")
                           .with("LocalPath", "/m");
    const Tone removed = newTone("old", "m4r").with("RemotePath", "/elsewhere/OLDA.m4r");
    const Tone added = toneWithSource("new", "m4r");
    openPhone(10);
    if (GetParam().function != nullptr) {
        fake.failNth(GetParam().function, GetParam().nth, kStatus);
    }
    EXPECT_EQ(submit({added}, {removed}, {moved}), GetParam().result);
    EXPECT_EQ(fake.faultsMet(), GetParam().function != nullptr ? 1 : 0);
    EXPECT_EQ(recordedCode(), GetParam().code);
    EXPECT_EQ(counts(), GetParam().counts);
}

// From open 10, service 1: the size query of the generation takes one open; the submit opens and
// starts the service; folder, rename, upload, removal, catalogue and listing take one open each;
// the end of the service takes one and the close another.
INSTANTIATE_TEST_SUITE_P(
    All, FailingCalls,
    ::testing::Values(CallRow{"None", nullptr, 0, 1, std::nullopt, {2, 1}},
                      // The ringtone counts as gone: no rename, so one open less is taken.
                      CallRow{"Size", "AFCFileInfoOpen", 1, 1, std::nullopt, {3, 1}},
                      CallRow{"SizeRead", "AFCKeyValueRead", 1, 1, std::nullopt, {2, 1}},
                      // Closes without ending the service.
                      CallRow{"Rename", "AFCRenamePath", 1, 1, kStatus, {3, 2}},
                      // Nothing is undone, then the close of the failed submit.
                      CallRow{"UploadOpen", "AFCFileRefOpen", 1, 0, kStatus, {8, 3}},
                      CallRow{"UploadWrite", "AFCFileRefWrite", 1, 0, kStatus, {8, 3}},
                      CallRow{"UploadClose", "AFCFileRefClose", 1, 1, std::nullopt, {2, 1}},
                      CallRow{"Removal", "AFCRemovePath", 1, 1, kStatus, {3, 2}},
                      // Nothing is undone, and the submit goes on to its end.
                      CallRow{"CatalogueOpen", "AFCFileRefOpen", 2, 1, kStatus, {4, 2}},
                      CallRow{"CatalogueWrite", "AFCFileRefWrite", 2, 1, kStatus, {4, 2}},
                      // Closes once more than it opened.
                      CallRow{"Listing", "AFCDirectoryOpen", 1, 1, kStatus, {1, 1}},
                      CallRow{"ListingRead", "AFCDirectoryRead", 1, 1, std::nullopt, {2, 1}}),
    [](const auto& row) { return row.param.name; });

// ---------------------------------------------------------------------------- the sweep

constexpr const char* kOldCatalogue = "<plist><dict><key>Ringtones</key><dict/></dict></plist>";

/// What one submit under a fault came to.
struct Run {
    int result = -1;
    bool metFault = false;
    std::string catalogue;
    std::vector<std::string> reports;
};

using Fault = std::function<void(FakeMobileDevice&, int n)>;

void expectNothingIsLeftOpen(const Store& store) {
    EXPECT_GE(store.counts().open, 0);
    EXPECT_GE(store.counts().service, 0);
    EXPECT_EQ(store.fake.live().files, 0);
    EXPECT_EQ(store.fake.live().directories, 0);
    EXPECT_EQ(store.fake.live().keyValues, 1); // of the device information, never closed
}

void expectTheNextSyncGoesThrough(Store& store) {
    store.fake.clearFaults();
    store.fake.onCall(nullptr);
    store.fake.attach();
    KRTErrorClear();
    while (store.counts().open > 0) {
        KRTPhoneClose(store.phone);
    }
    const auto onPhone = store.load();
    ASSERT_TRUE(onPhone) << "code " << KRTErrorGetCode();
    store.openPhone();
    const auto added = listOf({store.toneWithSource("later", "m4r")});
    EXPECT_EQ(KRTRingtoneManagerSubmitChanges(store.manager, added.get(), listOf({}).get(),
                                              onPhone.get()),
              1);
    EXPECT_THAT(keysOf(store.load().get()), Contains("later"));
}

/// A submit with a long name, an mp3 that moves, two uploads and a removal, on a phone with a fault
/// at the n-th call.
Run runWithFault(const Fault& fault, int n) {
    Store store("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/true);
    const std::vector<Tone> unchanged = {
        store.putTone("moved", "Long name.m4r").with("LocalPath", "/m"),
        store.putTone("with companion", base + ".mp3").with("LocalPath", "/c")};
    const std::vector<Tone> removed = {store.putTone("old", "OLDA.mp3")};
    const std::vector<Tone> added = {store.toneWithSource("first", "m4r"),
                                     store.toneWithSource("second", "wav")};
    store.putTone("stray", "SSSS.m4r");
    store.putCatalogueBytes(kOldCatalogue);
    store.openPhone();
    Reports reports;
    store.reportTo(reports);

    fault(store.fake, n);
    Run run;
    run.result = store.submit(added, removed, unchanged);
    run.metFault = store.fake.calls().size() >= static_cast<size_t>(n);
    run.reports = reports.lines;
    run.catalogue = store.fake.phone().contents(kCatalogue);
    // The computer's folder is another one in each run.
    const std::string folder = store.computer.path("");
    for (size_t at; (at = run.catalogue.find(folder)) != std::string::npos;) {
        run.catalogue.replace(at, folder.size(), "FOLDER/");
    }
    expectNothingIsLeftOpen(store);
    expectTheNextSyncGoesThrough(store);
    return run;
}

/// A run that says that it succeeded has left the new catalogue, or, since a failed write of the
/// catalogue fails nothing, the old one, or an empty file when only its opening went through.
void expectSound(const Run& run, const Run& healthy) {
    EXPECT_THAT(run.result, AnyOf(0, 1));
    if (run.result == 0) {
        EXPECT_EQ(run.catalogue, kOldCatalogue);
        return;
    }
    EXPECT_EQ(run.reports.back(), "3 0 0 0");
    if (run.catalogue.empty() || run.catalogue == kOldCatalogue) {
        // Nothing is told after the write.
        EXPECT_EQ(run.reports, healthy.reports);
    } else if (run.reports == healthy.reports) {
        EXPECT_EQ(run.catalogue, healthy.catalogue);
    } else {
        // A file that the phone did not answer for while the catalogue was made counts as gone.
        EXPECT_LT(run.reports.size(), healthy.reports.size());
        EXPECT_TRUE(run.catalogue.ends_with("</plist>\n"));
    }
}

/// Runs with a fault at the 1st, 2nd, 3rd ... call until a run meets none.
void sweep(const Fault& fault) {
    const Run healthy = runWithFault([](FakeMobileDevice&, int) {}, 1);
    ASSERT_EQ(healthy.result, 1);
    ASSERT_TRUE(healthy.catalogue.ends_with("</plist>\n"));
    int met = 0;
    for (int n = 1;; ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        const Run run = runWithFault(fault, n);
        if (!run.metFault) {
            EXPECT_EQ(run.catalogue, healthy.catalogue);
            break;
        }
        ++met;
        expectSound(run, healthy);
    }
    EXPECT_GT(met, 100) << "the sweep did not get far";
}

TEST(SubmitSweep, AnyCallMayFailOnce) {
    sweep([](FakeMobileDevice& fake, int n) { fake.failNthCall(n, kStatus); });
}

TEST(SubmitSweep, AllCallsMayFailFromAnyOneOn) {
    sweep([](FakeMobileDevice& fake, int n) { fake.failFromCall(n, kStatus); });
}

TEST(SubmitSweep, ThePhoneMayBePulledOutAtAnyCall) {
    sweep([](FakeMobileDevice& fake, int n) {
        fake.onCall([&fake, left = n](const std::string&) mutable {
            if (--left == 0) {
                fake.pull(fake.phone());
            }
        });
    });
}

} // namespace
