// Two phones of one application at the same time, over the wire.

#include "tests/endtoend/SyncFixture.h"
#include "tests/library/objects/Ringtones.h"
#include "tests/library/objects/SyncTest.h"

#include <KRLVesk/KRLVesk.h>

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <sstream>
#include <utility>

namespace krl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

/// Name to contents of ringtones.
using Contents = std::map<std::string, std::string>;

/// Keeps the phones that are here, by their names.
class PhonesByName : public KRTPhoneManagerDelegate {
public:
    void phoneConnected(const std::shared_ptr<KRTPhone>& phone) override {
        here[text(CFDictionaryGetValue(phone->phoneInformation().get(), KRTPhoneNameKey))] = phone;
    }

    void phoneRemoved(const std::shared_ptr<KRTPhone>& phone) override {
        std::erase_if(here, [&](const auto& each) { return each.second == phone; });
    }

    std::map<std::string, std::shared_ptr<KRTPhone>> here;
};

/// An asynchronous sync that runs from one question to the next, and meanwhile does nothing.
class SyncInSteps {
public:
    explicit SyncInSteps(std::shared_ptr<KRTRingtoneManager> tones)
        : tones_(std::move(tones)), completion_(tones_) {
        tones_->setAsyncMode(true);
        completion_.onCompletion([this] { delegate_->end(); });
        tones_->syncCurrentListToPhone(delegate_);
        runToNextQuestion();
    }

    ~SyncInSteps() {
        while (!isOver()) {
            goOn();
        }
        EXPECT_TRUE(completion_.wait());
    }

    SyncInSteps(const SyncInSteps&) = delete;
    SyncInSteps& operator=(const SyncInSteps&) = delete;

    bool isOver() const { return isOver_; }

    /// Answers the question and waits for the next one.
    void goOn() {
        tones_->continueSync();
        runToNextQuestion();
    }

    /// Goes on until an upload is about to begin.
    void goOnToAnUpload() {
        while (!isOver() && !(question_.mode == 5 && question_.status == 1)) {
            goOn();
        }
        EXPECT_FALSE(isOver()) << "no upload";
    }

    void goOnToTheEnd() {
        while (!isOver()) {
            goOn();
        }
    }

    std::vector<std::string> errors() const { return delegate_->errors(); }

private:
    void runToNextQuestion() {
        while (delegate_->waitForStepsOrEnd(seen_ + 1)) {
            question_ = delegate_->steps()[seen_++];
            if (question_.isOfStore()) {
                return;
            }
        }
        isOver_ = true;
    }

    const std::shared_ptr<KRTRingtoneManager> tones_;
    const std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
    Completion completion_;
    size_t seen_ = 0;
    Step question_{};
    bool isOver_ = false;
};

class TwoPhones : public virtualphone::testing::VirtualPhoneTest {
protected:
    TwoPhones() { options.name = kOne; }

    void SetUp() override {
        VirtualPhoneTest::SetUp();
        other_ = makePhone(kOther, {.firmware = "1.1.3"});
        bus().plug(other_);
        KRTErrorClear();
        ASSERT_NE(AMDeviceConnect, nullptr) << "the provider was not loaded";
        KRTPhoneManager::sharedManager()->addDelegate(phones);
        ASSERT_TRUE(runUntil([this] { return phones->here.size() == 2; })) << "not both arrived";
    }

    void TearDown() override {
        KRTPhoneManager::sharedManager()->shutdown();
        KRTErrorClear();
    }

    std::shared_ptr<KRTRingtoneManager> tonesOf(const std::string& phone) {
        return phones->here.at(phone)->ringtoneManager();
    }

    /// Adds ringtones to a phone's working list; their contents tell the phone.
    void add(const std::string& phone, const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            const std::filesystem::path path = temporaryFolder() / (name + " of " + phone + ".m4r");
            std::ofstream(path, std::ios::binary) << name << " of " << phone;
            tonesOf(phone)->addRingtone(record({name, path.string()}).get());
        }
    }

    /// The ringtones that a phone's catalogue lists.
    Contents ringtonesOn(const std::string& phone) const {
        const std::string root = phone == kOne ? options.root : temporaryFolder() / kOther;
        Contents all;
        for (const auto& [fileName, entry] : readCatalogue(bytesOf(root + kCataloguePath))) {
            all[entry.at("Name")] = bytesOf(root + kFolder + fileName);
        }
        return all;
    }

    std::vector<std::string> namesOf(const std::string& phone) {
        return texts(tonesOf(phone)->currentRingtonesManagedByNameOnly().get());
    }

    void expectBothToHave(const std::vector<std::string>& names) {
        for (const std::string phone : {kOne, kOther}) {
            Contents expected;
            for (const std::string& name : names) {
                expected[name] = name + " of " + phone;
            }
            EXPECT_EQ(ringtonesOn(phone), expected) << phone;
            EXPECT_THAT(namesOf(phone), UnorderedElementsAreArray(names)) << phone;
        }
    }

    static constexpr const char* kOne = "one";
    static constexpr const char* kOther = "other";

    const std::shared_ptr<PhonesByName> phones = std::make_shared<PhonesByName>();

private:
    static std::string bytesOf(const std::string& path) {
        std::ostringstream bytes;
        bytes << std::ifstream(path, std::ios::binary).rdbuf();
        return bytes.str();
    }

    std::shared_ptr<virtualphone::Phone> other_;
};

TEST_F(TwoPhones, HaveWorkingListsOfTheirOwn) {
    add(kOne, {"Bells"});
    EXPECT_THAT(namesOf(kOne), ElementsAre("Bells"));
    EXPECT_THAT(namesOf(kOther), IsEmpty());
    EXPECT_FALSE(tonesOf(kOther)->ringtonesUpdated());

    SyncInSteps(tonesOf(kOne)).goOnToTheEnd();
    EXPECT_THAT(ringtonesOn(kOne), ElementsAre(Pair("Bells", "Bells of one")));
    EXPECT_THAT(namesOf(kOther), IsEmpty());
    tonesOf(kOther)->rebuildRingtoneListFromOriginal();
    EXPECT_THAT(namesOf(kOther), IsEmpty());
}

TEST_F(TwoPhones, KeepTheirRingtonesApartWhenTheirSyncsTakeTurns) {
    // The same names: on each phone the same base names are drawn for them.
    const std::vector<std::string> names = {"Bells", "Horn", "Siren", "Whistle"};
    add(kOne, names);
    add(kOther, names);
    {
        SyncInSteps one(tonesOf(kOne));
        SyncInSteps other(tonesOf(kOther));
        while (!one.isOver() && !other.isOver()) {
            one.goOn();
            other.goOn();
        }
        one.goOnToTheEnd();
        other.goOnToTheEnd();
        EXPECT_THAT(one.errors(), IsEmpty());
        EXPECT_THAT(other.errors(), IsEmpty());
    }
    expectBothToHave(names);

    // Removing from one takes nothing from the other.
    for (const std::string& name : names) {
        tonesOf(kOne)->removeRingtone(tonesOf(kOne)->ringtoneForName(str(name).get()).get());
    }
    SyncInSteps(tonesOf(kOne)).goOnToTheEnd();
    EXPECT_THAT(ringtonesOn(kOne), IsEmpty());
    EXPECT_THAT(ringtonesOn(kOther), SizeIs(names.size()));
}

TEST_F(TwoPhones, OneThatIsPulledOutInTheMiddleOfItsSyncDoesNotDisturbTheOthers) {
    const std::vector<std::string> names = {"Bells", "Horn"};
    add(kOne, names);
    add(kOther, names);
    {
        SyncInSteps one(tonesOf(kOne));
        SyncInSteps other(tonesOf(kOther));
        one.goOnToAnUpload();
        other.goOnToAnUpload();
        bus().unplug(id());
        one.goOnToTheEnd();
        other.goOnToTheEnd();
        EXPECT_THAT(one.errors(), SizeIs(1));
        EXPECT_THAT(other.errors(), IsEmpty());
    }
    EXPECT_TRUE(tonesOf(kOne)->ringtonesUpdated()) << "still to be done";
    EXPECT_FALSE(tonesOf(kOther)->ringtonesUpdated());
    ASSERT_TRUE(runUntil([this] { return phones->here.count(kOne) == 0; }));
    ASSERT_EQ(phones->here.count(kOther), 1U);

    // Plugged in again, it gets what it has missed.
    bus().plug(phonePointer());
    ASSERT_TRUE(runUntil([this] { return phones->here.count(kOne) == 1; }));
    add(kOne, names);
    SyncInSteps(tonesOf(kOne)).goOnToTheEnd();
    expectBothToHave(names);
}

} // namespace
} // namespace krl::test
