// Whole syncs over the wire, and what is on the phone afterwards.

#include "tests/endtoend/SyncFixture.h"

#include <gmock/gmock.h>

namespace krl::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

struct FirmwareCase {
    const char* version;
    bool hasCompanions;
};

using virtualphone::SessionKind;

void PrintTo(const FirmwareCase& firmware, std::ostream* stream) {
    *stream << firmware.version;
}

const FirmwareCase kGenerations[] = {{"1.0.0", false}, {"1.0.1", false}, {"1.0.2", true},
                                     {"1.1.1", true},  {"1.1.2", false}, {"1.1.3", false}};

class SyncOnFirmware : public SyncTest,
                       public ::testing::WithParamInterface<std::tuple<FirmwareCase, SessionKind>> {
protected:
    SyncOnFirmware() {
        options.firmware = firmware().version;
        options.session = std::get<SessionKind>(GetParam());
    }

    static const FirmwareCase& firmware() { return std::get<FirmwareCase>(GetParam()); }

    /// What was agreed on in the handshakes of all sessions so far.
    std::set<std::string> handshakes() {
        std::set<std::string> outcomes;
        for (const auto& entry : log().entries()) {
            if (entry.request == "Handshake") {
                outcomes.insert(entry.name + entry.error);
            }
        }
        return outcomes;
    }
};

TEST_P(SyncOnFirmware, PutsRingtonesOnThePhoneInItsLayout) {
    const List added = emptyList();
    addNew(added, "First", sourceFile("first.m4r", "m4r bytes"));
    addNew(added, "Zweiter Klingelton \xC3\xA4\xF0\x9F\x8E\xB5",
           sourceFile("second.mp3", "mp3 bytes"));

    ASSERT_EQ(syncAdding(added), 1) << KRTErrorGetFile() << ": " << KRTErrorGetCode();

    std::string m4r;
    std::string mp3;
    std::string companion;
    for (const auto& [fileName, entry] : catalogueOnPhone()) {
        if (fileName.ends_with(".mp3")) {
            mp3 = fileName;
            EXPECT_EQ(entry.at("Name"), "Zweiter Klingelton \xC3\xA4\xF0\x9F\x8E\xB5");
            EXPECT_EQ(entry.count("FileType") + entry.count("FileSize") + entry.count("RemotePath"),
                      0U);
        } else if (entry.size() == 2) {
            companion = fileName;
            EXPECT_EQ(entry.at("GUID"), "GUID of Zweiter Klingelton \xC3\xA4\xF0\x9F\x8E\xB5");
        } else {
            m4r = fileName;
            EXPECT_EQ(entry.at("Name"), "First");
        }
    }
    EXPECT_EQ(contents(std::string(kFolder) + "/" + m4r), "m4r bytes");
    EXPECT_EQ(contents(std::string(kFolder) + "/" + mp3), "mp3 bytes");
    if (firmware().hasCompanions) {
        EXPECT_EQ(companion, mp3.substr(0, 4) + ".m4r");
        EXPECT_THAT(filesOnPhone(), UnorderedElementsAre(m4r, mp3, companion));
        EXPECT_EQ(contents(std::string(kFolder) + "/" + companion), "");
    } else {
        EXPECT_EQ(companion, "");
        EXPECT_THAT(filesOnPhone(), UnorderedElementsAre(m4r, mp3));
    }
    EXPECT_THAT(loadedNames(),
                UnorderedElementsAre("First", "Zweiter Klingelton \xC3\xA4\xF0\x9F\x8E\xB5"));
    if (std::get<SessionKind>(GetParam()) == SessionKind::Clear) {
        EXPECT_THAT(handshakes(), IsEmpty());
    } else {
        EXPECT_THAT(handshakes(), ElementsAre("SSL 3.0, TLS_RSA_WITH_AES_128_CBC_SHA"));
    }
}

TEST_P(SyncOnFirmware, TakesARingtoneOffWithItsCompanion) {
    const List added = emptyList();
    addNew(added, "stays", sourceFile("a.m4r", "a"));
    addNew(added, "goes", sourceFile("b.mp3", "b"));
    ASSERT_EQ(syncAdding(added), 1);

    const List unchanged = load();
    const List removed = emptyList();
    move(unchanged, removed, "goes");
    ASSERT_EQ(sync(emptyList(), removed, unchanged), 1);

    EXPECT_EQ(filesOnPhone().size(), 1U);
    EXPECT_EQ(catalogueOnPhone().size(), 1U);
    EXPECT_THAT(loadedNames(), ElementsAre("stays"));
}

TEST_P(SyncOnFirmware, ASecondSyncUploadsNothingAndKeepsEveryFile) {
    const List added = emptyList();
    for (int i = 0; i < 8; ++i) {
        const std::string name = "tone " + std::to_string(i);
        addNew(added, name, sourceFile(name + (i % 2 == 0 ? ".mp3" : ".m4r"), name));
    }
    ASSERT_EQ(syncAdding(added), 1);
    const auto files = filesOnPhone();
    const auto catalogue = catalogueOnPhone();
    const std::string bytes = contents(kCatalogue);
    log().clear();

    ASSERT_EQ(sync(emptyList(), emptyList(), load()), 1);

    EXPECT_EQ(filesOnPhone(), files);
    EXPECT_EQ(contents(kCatalogue), bytes);
    const auto writes = log().entries([](const virtualphone::LogEntry& entry) {
        return entry.request == "Write" && entry.size.value_or(0) > 0;
    });
    EXPECT_EQ(writes.size(), 1U) << "the catalogue, and no ringtone";
}

class SyncOn111 : public SyncTest {
protected:
    SyncOn111() { options.firmware = "1.1.1"; }

    std::vector<std::string> renames() {
        std::vector<std::string> names;
        for (const auto& entry : log().entries()) {
            if (entry.request == "RenamePath") {
                names.push_back(entry.name);
            }
        }
        return names;
    }
};

TEST_F(SyncOn111, FourteenMixedTonesStayThroughThreeSyncs) {
    const List added = emptyList();
    std::set<std::string> names;
    const char* types[] = {"wav", "m4r", "m4r", "wav", "aif", "mp3", "aif",
                           "m4r", "mp3", "m4r", "mp3", "aif", "aif", "aif"};
    for (size_t i = 0; i < std::size(types); ++i) {
        const std::string name = "tone " + std::to_string(10 + i);
        addNew(added, name, sourceFile(name + "." + types[i], name));
        names.insert(name);
    }
    ASSERT_EQ(syncAdding(added), 1) << KRTErrorGetFile() << ": " << KRTErrorGetCode();
    const auto files = filesOnPhone();

    for (int i = 0; i < 2; ++i) {
        log().clear();
        ASSERT_EQ(sync(emptyList(), emptyList(), load()), 1) << KRTErrorGetCode();
        EXPECT_THAT(renames(), IsEmpty());
        EXPECT_EQ(filesOnPhone(), files);
        EXPECT_EQ(loadedNames(), names);
    }
    for (const auto& [fileName, entry] : catalogueOnPhone()) {
        EXPECT_EQ(contents(std::string(kFolder) + "/" + fileName),
                  entry.size() == 2 ? "" : entry.at("Name"));
    }
}

std::string caseName(const ::testing::TestParamInfo<SyncOnFirmware::ParamType>& parameter) {
    std::string name = std::get<FirmwareCase>(parameter.param).version;
    std::replace(name.begin(), name.end(), '.', '_');
    return "firmware_" + name;
}

INSTANTIATE_TEST_SUITE_P(Generations, SyncOnFirmware,
                         ::testing::Combine(::testing::ValuesIn(kGenerations),
                                            ::testing::Values(SessionKind::Clear)),
                         caseName);

#ifdef KRL_HAS_SECURE_SESSIONS
INSTANTIATE_TEST_SUITE_P(GenerationsWithSsl3, SyncOnFirmware,
                         ::testing::Combine(::testing::ValuesIn(kGenerations),
                                            ::testing::Values(SessionKind::Ssl3)),
                         caseName);
#endif

class WholeSync : public SyncTest {};

TEST_F(WholeSync, ConvertsAPhoneThatWasUpdatedToTheCurrentLayout) {
    const List added = emptyList();
    addNew(added, "song", sourceFile("song.mp3", "song"));
    ASSERT_EQ(syncAdding(added), 1);
    ASSERT_EQ(filesOnPhone().size(), 2U);

    // The same folder on a phone whose firmware is newer now.
    bus().unplug(id());
    ASSERT_TRUE(runUntil([this] { return !hasPhone(); }));
    auto updated = options;
    updated.firmware = "1.1.3";
    bus().plug(std::make_shared<virtualphone::Phone>(updated));
    ASSERT_TRUE(runUntil([this] { return hasPhone(); }));

    ASSERT_EQ(sync(emptyList(), emptyList(), load()), 1);
    EXPECT_EQ(filesOnPhone().size(), 1U);
    EXPECT_EQ(catalogueOnPhone().size(), 1U);
    EXPECT_THAT(loadedNames(), ElementsAre("song"));
}

TEST_F(WholeSync, DeletesStrayFilesOfTheRingtoneFolder) {
    put(std::string(kFolder) + "/stray.m4r", "nobody's");
    ASSERT_EQ(sync(emptyList(), emptyList(), load()), 1);
    EXPECT_THAT(filesOnPhone(), IsEmpty());
}

TEST_F(WholeSync, AFileOfSeveralPiecesArrivesByteForByte) {
    std::string bytes(9 * 1024 * 1024 + 1, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    }
    const List added = emptyList();
    addNew(added, "long", sourceFile("long.m4r", bytes));
    ASSERT_EQ(syncAdding(added), 1);
    ASSERT_EQ(filesOnPhone().size(), 1U);
    EXPECT_TRUE(contents(std::string(kFolder) + "/" + *filesOnPhone().begin()) == bytes);
}

// ---------------------------------------------------------------------- order on the wire

class OrderOnTheWire : public SyncTest {
protected:
    /// What was asked of one service, in the order in which the phone read it.
    std::vector<std::string> requestsTo(const std::string& service) {
        std::vector<std::string> lines;
        for (const auto& entry : log().entries()) {
            if (entry.service != service) {
                continue;
            }
            std::string line = entry.request;
            for (const std::string& part : {entry.name, entry.path, entry.newPath}) {
                line += part.empty() ? "" : " " + part;
            }
            if (entry.mode) {
                line += " " + std::to_string(*entry.mode);
            }
            lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(OrderOnTheWire, OfTheSyncLock) {
    ASSERT_EQ(KRTPhoneOpen(krtPhone()), 1);
    log().clear();
    ASSERT_EQ(KRTPhoneBeginSync(krtPhone()), 1);
    ASSERT_EQ(KRTPhoneEndSync(krtPhone()), 1);
    KRTPhoneClose(krtPhone());

    EXPECT_THAT(requestsTo("afc"),
                ElementsAre("Open /com.apple.itunes.lock_sync 2", "Lock 6", "Lock 12", "Close"));
    EXPECT_THAT(requestsTo("notification_proxy"),
                ElementsAre("PostNotification com.apple.itunes-mobdev.syncWillStart",
                            "PostNotification com.apple.itunes-mobdev.syncLockRequest",
                            "PostNotification com.apple.itunes-mobdev.syncDidFinish", "Shutdown"));
}

TEST_F(OrderOnTheWire, TheLockIsHeldBetweenBeginAndEndOnOneConnection) {
    ASSERT_EQ(KRTPhoneOpen(krtPhone()), 1);
    ASSERT_EQ(KRTPhoneBeginSync(krtPhone()), 1);
    EXPECT_FALSE(phone().holdSyncLock()) << "somebody else got the lock";
    ASSERT_EQ(KRTPhoneEndSync(krtPhone()), 1);
    EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
}

TEST_F(OrderOnTheWire, OfASubmit) {
    const List first = emptyList();
    addNew(first, "old", sourceFile("old.m4r", "old"));
    ASSERT_EQ(syncAdding(first), 1);
    const std::string oldFile = *filesOnPhone().begin();

    const List unchanged = emptyList();
    const List removed = load();
    const List added = emptyList();
    addNew(added, "new", sourceFile("new.mp3", "new"));
    ASSERT_EQ(KRTPhoneOpen(krtPhone()), 1);
    log().clear();
    ASSERT_EQ(KRTRingtoneManagerSubmitChanges(store(), added.get(), removed.get(), unchanged.get()),
              1);

    // With nothing unchanged the draws begin anew, so that the new base name is the old one.
    const std::string base = oldFile.substr(0, 4);
    const std::string folder = kFolder;
    EXPECT_THAT(requestsTo("afc"),
                ElementsAre("MakeDirectory " + folder, "Open " + folder + "/" + base + ".mp3 3",
                            "Write", "Close", "Open " + folder + "/" + base + ".m4r 3", "Close",
                            "Open " + std::string(kCatalogue) + " 3", "Write", "Close",
                            "ReadDirectory " + folder));
}

TEST_F(OrderOnTheWire, AnOperationOnAPhoneOpenedOnceReconnectsWithTheseStepsAndNoOther) {
    uint32_t size = 0;
    KRTPhoneSizeOfFileAtPath(krtPhone(), kCatalogue, &size); // the first asks for the firmware
    log().clear();
    KRTPhoneSizeOfFileAtPath(krtPhone(), kCatalogue, &size);

    std::vector<std::string> steps;
    for (const auto& entry : log().entries()) {
        steps.push_back(entry.service + "/" + entry.request);
    }
    EXPECT_THAT(steps,
                ElementsAre("usbmux/Connect", "usbmux/ReadPairRecord", "lockdown/ValidatePair",
                            "lockdown/StartSession", "lockdown/StartService",
                            "lockdown/StopSession", "usbmux/Connect", "afc/FileInfo"));
}

} // namespace
} // namespace krl::test
