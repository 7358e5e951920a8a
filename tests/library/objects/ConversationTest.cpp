// An application's life with a phone over the wire, through the object interface of the library
// that users get. After each step, what is on the phone.

#include "tests/endtoend/SyncFixture.h"
#include "tests/library/objects/Ringtones.h"
#include "tests/library/objects/SyncTest.h"

#include <KRLVesk/KRLVesk.h>

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <utility>

namespace krl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using virtualphone::Fault;
using virtualphone::FaultAction;

/// Keeps the phones as they come and go.
class Phones : public KRTPhoneManagerDelegate {
public:
    void phoneConnected(const std::shared_ptr<KRTPhone>& phone) override { here = phone; }

    void phoneRemoved(const std::shared_ptr<KRTPhone>& phone) override {
        gone = phone;
        here = nullptr;
    }

    std::shared_ptr<KRTPhone> here;
    std::shared_ptr<KRTPhone> gone;
};

/// What the application answers to a step of the sync.
enum class Answer { goOn, cancel };

class Conversation : public virtualphone::testing::VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        KRTErrorClear();
        ASSERT_NE(AMDeviceConnect, nullptr) << "the provider was not loaded";
        KRTPhoneManager::sharedManager()->addDelegate(phones);
        ASSERT_TRUE(runUntil([this] { return phones->here != nullptr; })) << "no phone arrived";
    }

    void TearDown() override {
        KRTPhoneManager::sharedManager()->shutdown();
        AMDeviceSetCallTimeout(0);
        KRTErrorClear();
    }

    std::shared_ptr<KRTRingtoneManager> tones() { return phones->here->ringtoneManager(); }

    /// A ringtone of the application with a file of its own.
    Record tone(const std::string& name, const std::string& fileName, const std::string& bytes) {
        const std::filesystem::path path = temporaryFolder() / "sources" / fileName;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
        return record({name, path.string(), path.extension().string().substr(1),
                       static_cast<int64_t>(bytes.size())});
    }

    using AtStep = std::function<Answer(const Step&)>;

    /// Syncs asynchronously, answering each step from this thread; the codes of the errors told.
    std::vector<std::string> sync(const AtStep& atStep = [](const Step&) { return Answer::goOn; }) {
        const auto manager = tones();
        manager->setAsyncMode(true);
        Completion completion(manager);
        const auto delegate = std::make_shared<RecordingDelegate>();
        completion.onCompletion([&delegate] { delegate->end(); });
        manager->syncCurrentListToPhone(delegate);
        for (size_t i = 0; delegate->waitForStepsOrEnd(i + 1); ++i) {
            const Step step = delegate->steps()[i];
            const Answer answer = atStep(step);
            if (!step.isOfStore()) {
                continue;
            }
            if (answer == Answer::cancel) {
                manager->cancelSync();
            } else {
                manager->continueSync();
            }
        }
        EXPECT_TRUE(completion.wait());
        steps = delegate->steps();
        return delegate->errors();
    }

    /// Whether the sync has told that it is over, with all given back.
    bool endedInOrder() const {
        return steps.size() >= 2 && steps[steps.size() - 2] == Step{1, 0, 0, 0, ""} &&
               steps.back() == Step{0, 0, 0, 0, ""};
    }

    Catalogue catalogue() const { return readCatalogue(contents(kCataloguePath)); }

    /// File name to contents, of the whole folder.
    std::map<std::string, std::string> folder() const {
        std::map<std::string, std::string> files;
        if (std::filesystem::is_directory(onDisk(kFolder))) {
            for (const auto& entry : std::filesystem::directory_iterator(onDisk(kFolder))) {
                const std::string name = entry.path().filename().string();
                files[name] = contents(kFolder + name);
            }
        }
        return files;
    }

    /// Ringtone name to the contents of its file, as the catalogue has it. Companions are left out.
    std::map<std::string, std::string> ringtones() const {
        std::map<std::string, std::string> all;
        for (const auto& [fileName, entry] : catalogue()) {
            if (entry.size() > 2) {
                all[entry.at("Name")] = contents(kFolder + fileName);
            }
        }
        return all;
    }

    /// Files that the catalogue does not name, and names without a file.
    std::vector<std::string> mismatches() const {
        std::vector<std::string> wrong;
        const Catalogue named = catalogue();
        const auto files = folder();
        for (const auto& [fileName, entry] : named) {
            if (files.count(fileName) == 0) {
                wrong.push_back(fileName + " is missing");
            }
        }
        for (const auto& [fileName, bytes] : files) {
            if (named.count(fileName) == 0) {
                wrong.push_back(fileName + " is stray");
            }
        }
        return wrong;
    }

    std::vector<std::string> names() {
        return texts(tones()->currentRingtonesManagedByNameOnly().get());
    }

    const std::shared_ptr<Phones> phones = std::make_shared<Phones>();
    std::vector<Step> steps;
};

TEST_F(Conversation, FromTheFirstPlugToTheLast) {
    // Plug in and list.
    EXPECT_EQ(phones->here->phoneFirmwareVersion(), 1011);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_FALSE(tones()->ringtonesUpdated());

    // Add, and sync with a pause at each step.
    tones()->addRingtone(tone("Bells", "bells.m4r", "bells").get());
    tones()->addRingtone(tone("horn", "horn.mp3", "horn").get());
    tones()->addRingtone(tone("Gl\xC3\xB6"
                              "ckchen",
                              "g.aiff", "ding")
                             .get());
    EXPECT_EQ(tones()->sizeOfChanges(tones()->generateChangeLists().get()), 5 + 4 + 4);
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_TRUE(endedInOrder());
    EXPECT_THAT(ringtones(), UnorderedElementsAre(Pair("Bells", "bells"), Pair("horn", "horn"),
                                                  Pair("Gl\xC3\xB6"
                                                       "ckchen",
                                                       "ding")));
    EXPECT_EQ(folder().size(), 5U) << "two of the three have companions on this firmware";
    EXPECT_THAT(mismatches(), IsEmpty());
    EXPECT_THAT(names(), ElementsAre("Bells",
                                     "Gl\xC3\xB6"
                                     "ckchen",
                                     "horn"));
    EXPECT_FALSE(tones()->ringtonesUpdated());

    // Replace a ringtone of the same name.
    tones()->addRingtone(tone("horn", "other horn.mp3", "another horn").get());
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_THAT(ringtones(),
                UnorderedElementsAre(Pair("Bells", "bells"), Pair("horn", "another horn"),
                                     Pair("Gl\xC3\xB6"
                                          "ckchen",
                                          "ding")));
    EXPECT_THAT(mismatches(), IsEmpty());

    // Remove one, with its companion.
    tones()->removeRingtone(tones()->ringtoneForName(CFSTR("horn")).get());
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_THAT(names(), ElementsAre("Bells", "Gl\xC3\xB6"
                                              "ckchen"));
    EXPECT_EQ(folder().size(), 3U);
    EXPECT_THAT(mismatches(), IsEmpty());

    // Compare with a whole list: one stays, one is new, one goes.
    const Record wanted =
        listOf({tone("Bells", "bells.m4r", "bells"), tone("Song", "song.mp3", "la")});
    tones()->compareList(wanted.get());
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_THAT(ringtones(), UnorderedElementsAre(Pair("Bells", "bells"), Pair("Song", "la")));
    EXPECT_THAT(mismatches(), IsEmpty());
    tones()->compareList(wanted.get());
    EXPECT_FALSE(tones()->ringtonesUpdated()) << "the same list again changes nothing";

    // Cancel in the middle: the second upload of three.
    const std::string catalogueBefore = contents(kCataloguePath);
    for (const std::string name : {"First", "Second", "Third"}) {
        tones()->addRingtone(tone(name, name + ".m4r", name + " bytes").get());
    }
    EXPECT_THAT(sync([](const Step& step) {
                    return step.mode == 5 && step.value == 1 && step.status == 1 ? Answer::cancel
                                                                                 : Answer::goOn;
                }),
                IsEmpty());
    EXPECT_TRUE(endedInOrder());
    EXPECT_EQ(contents(kCataloguePath), catalogueBefore);
    EXPECT_THAT(ringtones(), UnorderedElementsAre(Pair("Bells", "bells"), Pair("Song", "la")));
    EXPECT_EQ(mismatches().size(), 1U) << "what was uploaded stays, under the old catalogue";
    EXPECT_THAT(names(), ElementsAre("Bells", "Song"));
    EXPECT_FALSE(tones()->ringtonesUpdated());

    // Sync again, which takes the stray file away.
    tones()->continueSync();
    tones()->addRingtone(tone("First", "First.m4r", "First bytes").get());
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_THAT(ringtones(), UnorderedElementsAre(Pair("Bells", "bells"), Pair("Song", "la"),
                                                  Pair("First", "First bytes")));
    EXPECT_THAT(mismatches(), IsEmpty());

    // Unplug during a sync.
    const std::string catalogueThen = contents(kCataloguePath);
    const auto unplugged = phones->here;
    const auto unpluggedTones = tones();
    tones()->addRingtone(tone("Late", "late.m4r", "late").get());
    const auto errors = sync([this](const Step& step) {
        if (step.mode == 5) {
            bus().unplug(bus().deviceId(phone()));
        }
        return Answer::goOn;
    });
    EXPECT_EQ(errors.size(), 1U);
    EXPECT_TRUE(endedInOrder());
    EXPECT_TRUE(unpluggedTones->ringtonesUpdated()) << "the change is still pending";
    ASSERT_TRUE(runUntil([this] { return phones->gone != nullptr; })) << "the removal was not told";
    EXPECT_EQ(phones->gone, unplugged);
    EXPECT_EQ(unplugged->_rawDevice(), nullptr);
    EXPECT_NE(unplugged->open(), nullptr);
    EXPECT_EQ(contents(kCataloguePath), catalogueThen);

    // Plug in again: a new object, with what is on the phone.
    bus().plug(phonePointer());
    ASSERT_TRUE(runUntil([this] { return phones->here != nullptr; }));
    KRTErrorClear();
    EXPECT_NE(phones->here, unplugged);
    EXPECT_THAT(names(), ElementsAre("Bells", "First", "Song"));
    tones()->addRingtone(tone("Late", "late.m4r", "late").get());
    EXPECT_THAT(sync(), IsEmpty());
    EXPECT_THAT(ringtones(),
                UnorderedElementsAre(Pair("Bells", "bells"), Pair("Song", "la"),
                                     Pair("First", "First bytes"), Pair("Late", "late")));
    EXPECT_THAT(mismatches(), IsEmpty());
}

TEST_F(Conversation, TheSyncLockIsTakenAndTheEndIsTold) {
    tones()->addRingtone(tone("Bells", "bells.m4r", "bells").get());
    log().clear();
    EXPECT_THAT(sync(), IsEmpty());
    std::vector<std::string> posts;
    for (const auto& entry : log().entries()) {
        if (entry.request == "PostNotification") {
            posts.push_back(entry.name);
        }
    }
    EXPECT_THAT(posts, ElementsAre("com.apple.itunes-mobdev.syncWillStart",
                                   "com.apple.itunes-mobdev.syncLockRequest",
                                   "com.apple.itunes-mobdev.syncDidFinish"));
}

TEST_F(Conversation, PulledOutAtAnyRequestASyncEndsOnceAndTheNextOneWorks) {
    tones()->addRingtone(tone("Kept", "kept.mp3", "kept bytes").get());
    ASSERT_THAT(sync(), IsEmpty());
    bool metAFault = true;
    uint32_t n =
        2; // the first two open the lock file and lock it, which is tried for seven seconds
    while (metAFault) {
        ++n;
        ASSERT_LT(n, 500U) << "the sync never ended";
        SCOPED_TRACE("request " + std::to_string(n));
        tones()->addRingtone(tone("New", "new.mp3", "new bytes").get());
        log().clear();
        phone().faults().add(
            Fault{.service = virtualphone::Service::Afc, .nth = n, .action = FaultAction::Unplug});
        EXPECT_LE(sync().size(), 1U);
        metAFault = !log().entries([](const auto& entry) { return !entry.fault.empty(); }).empty();
        phone().faults().clear();

        const auto before = phones->here;
        if (bus().deviceId(phone()) == 0) {
            ASSERT_TRUE(runUntil([&] { return phones->here == nullptr; }));
            bus().plug(phonePointer());
        }
        ASSERT_TRUE(runUntil([this] { return phones->here != nullptr; }));
        KRTErrorClear();
        // A catalogue that was being written when the phone went is repaired by writing a whole
        // list.
        tones()->compareList(listOf({tone("Kept", "kept.mp3", "kept bytes")}).get());
        tones()->setRingtonesUpdated(true);
        ASSERT_THAT(sync(), IsEmpty());
        ASSERT_THAT(ringtones(), UnorderedElementsAre(Pair("Kept", "kept bytes")));
        ASSERT_THAT(mismatches(), IsEmpty());
    }
    EXPECT_GT(n, 20U) << "a sync takes more requests than that";
}

class Firmware113 : public Conversation {
protected:
    Firmware113() { options.firmware = "1.1.3"; }
};

TEST_F(Firmware113, ConvertsAListWithCompanionsOfAnOlderSync) {
    // What a sync on firmware 1.1.1 left, and a file that nobody names.
    put(kCataloguePath, catalogueOf({{"AAAA.mp3", "Song", "/music/song.mp3"},
                                     companion("AAAA.m4r", "Song"),
                                     {"BBBB.m4r", "Bells", "/music/bells.m4r"}}));
    put(kFolder + "AAAA.mp3", "song");
    put(kFolder + "AAAA.m4r", "");
    put(kFolder + "BBBB.m4r", "bells");
    put(kFolder + "ZZZZ.m4r", "stray");

    tones()->rebuildRingtoneListFromOriginal();
    EXPECT_TRUE(tones()->needsConversionFor113());
    EXPECT_TRUE(tones()->ringtonesUpdated());
    EXPECT_THAT(sync(), IsEmpty());

    EXPECT_THAT(folder(),
                UnorderedElementsAre(Pair("AAAA.mp3", "song"), Pair("BBBB.m4r", "bells")));
    EXPECT_THAT(ringtones(), UnorderedElementsAre(Pair("Song", "song"), Pair("Bells", "bells")));
    EXPECT_THAT(mismatches(), IsEmpty());
}

} // namespace
} // namespace krl::test
