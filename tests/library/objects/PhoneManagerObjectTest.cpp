// Phones that come and go, as objects.

#include "tests/library/objects/ObjectTest.h"

#include "library/phone/KRTPhoneInternal.h"

#include <utility>

namespace {

using namespace krl::test;
using testing::ElementsAre;
using testing::IsEmpty;

using Phone = std::shared_ptr<KRTPhone>;

/// Writes what it is told into a log that several may share.
class LoggingDelegate : public KRTPhoneManagerDelegate {
public:
    LoggingDelegate(std::string name, std::vector<std::string>& log)
        : name_(std::move(name)), log_(log) {}

    void phoneConnected(const Phone& phone) override {
        log_.push_back(name_ + " connected " + nameOfPhone(phone));
        last = phone;
        if (onConnected) {
            onConnected();
        }
    }

    void phoneRemoved(const Phone& phone) override {
        log_.push_back(name_ + " removed " + nameOfPhone(phone));
        lastRemoved = phone;
        deviceAtRemoval = phone->_rawDevice();
        if (onRemoved) {
            onRemoved();
        }
    }

    Phone last;
    Phone lastRemoved;
    am_device* deviceAtRemoval = nullptr;
    std::function<void()> onConnected;
    std::function<void()> onRemoved;

private:
    static std::string nameOfPhone(const Phone& phone) {
        return phone == nullptr
                   ? "null"
                   : text(CFDictionaryGetValue(phone->phoneInformation().get(), KRTPhoneNameKey));
    }

    std::string name_;
    std::vector<std::string>& log_;
};

class PhoneManagerObject : public ObjectTest {
protected:
    PhoneManagerObject() {
        fake.phone().name("One");
        manager = KRTPhoneManager::sharedManager();
    }

    ~PhoneManagerObject() override { KRTPhoneManager::sharedManager()->shutdown(); }

    std::shared_ptr<LoggingDelegate> addDelegate(const std::string& name) {
        auto made = std::make_shared<LoggingDelegate>(name, log);
        manager->addDelegate(made);
        return made;
    }

    static krl::cf::CFRef<CFDictionaryRef> infoOf(const std::string& name) {
        auto info = dictionary();
        CFDictionarySetValue(info.get(), KRTPhoneNameKey, str(name).get());
        return info;
    }

    std::vector<std::string> log;
    std::shared_ptr<KRTPhoneManager> manager;
};

// ---------------------------------------------------------------------------- the shared manager

TEST_F(PhoneManagerObject, IsSharedUntilItIsShutDown) {
    EXPECT_EQ(KRTPhoneManager::sharedManager(), manager);
    manager->shutdown();
    EXPECT_NE(KRTPhoneManager::sharedManager(), manager);
}

TEST_F(PhoneManagerObject, HasACoreThatDoesNotSearchAtFirst) {
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.live().subscriptions, 0);
    EXPECT_THAT(manager->phones(), IsEmpty());
}

TEST_F(PhoneManagerObject, ShutdownEndsTheSearchAndReleasesThePhones) {
    addDelegate("a");
    fake.attach();
    manager->shutdown();
    EXPECT_EQ(fake.live().subscriptions, 0);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_THAT(log, ElementsAre("a connected One")) << "nobody is told";
    EXPECT_EQ(manager->phones()[0]->_rawDevice(), nullptr);
}

TEST_F(PhoneManagerObject, ShutdownWithoutASearchIsHarmless) {
    manager->shutdown();
    manager->shutdown();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
}

TEST_F(PhoneManagerObject, ShutdownLetsGoOfTheObject) {
    const std::weak_ptr<KRTPhoneManager> weak = manager;
    manager.reset();
    KRTPhoneManager::sharedManager()->shutdown();
    EXPECT_TRUE(weak.expired());
}

TEST_F(PhoneManagerObject, OneThatWasShutDownDoesNotEndItsSuccessor) {
    manager->shutdown();
    const auto successor = KRTPhoneManager::sharedManager();
    manager.reset();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    manager = successor;
    addDelegate("a");
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One"));
}

TEST_F(PhoneManagerObject, OneThatWasShutDownRegistersNobodyWithItsSuccessor) {
    manager->shutdown();
    const auto old = std::exchange(manager, KRTPhoneManager::sharedManager());
    const auto late = std::make_shared<LoggingDelegate>("late", log);
    old->addDelegate(late);
    EXPECT_EQ(fake.live().subscriptions, 0);
    EXPECT_EQ(late.use_count(), 1) << "nor does it keep the delegate";
    old->_beginPhoneSearch();
    addDelegate("a");
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One"));
    old->removeDelegate(late);
    EXPECT_EQ(fake.live().subscriptions, 1);
}

TEST_F(PhoneManagerObject, ASecondShutdownLeavesTheSuccessorAlone) {
    manager->shutdown();
    const auto old = std::exchange(manager, KRTPhoneManager::sharedManager());
    addDelegate("a");
    fake.attach();
    old->shutdown();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
    EXPECT_EQ(KRTPhoneManager::sharedManager(), manager);
    fake.detach();
    EXPECT_THAT(log, ElementsAre("a connected One", "a removed One"));
}

TEST_F(PhoneManagerObject, FindsNothingAnyMoreAfterShutdown) {
    manager->shutdown();
    addDelegate("a");
    EXPECT_EQ(fake.live().subscriptions, 0);
}

TEST_F(PhoneManagerObject, AManagerOfOnesOwnEndsTheCoreWhenItGoes) {
    manager->shutdown();
    auto own = KRTPhoneManager::init();
    const auto delegate = std::make_shared<LoggingDelegate>("a", log);
    own->addDelegate(delegate);
    fake.attach();
    const Phone phone = own->phones()[0];
    own->removeDelegate(delegate);
    own.reset();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
    EXPECT_EQ(phone->_rawDevice(), nullptr);
}

TEST_F(PhoneManagerObject, ObjectAndCoreMayReleaseAPhoneInAnyOrder) {
    manager->shutdown();
    auto own = KRTPhoneManager::init();
    own->addDelegate(std::make_shared<LoggingDelegate>("a", log));
    fake.attach();
    own.reset(); // its phones go first, then the core with the record
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
    fake.detach(); // the subscription was left, and meets no core
}

// ---------------------------------------------------------------------------- delegates

TEST_F(PhoneManagerObject, TheFirstDelegateStartsTheSearchAndTheLastEndsIt) {
    const auto first = addDelegate("a");
    EXPECT_EQ(fake.live().subscriptions, 1);
    const auto second = addDelegate("b");
    EXPECT_EQ(fake.countOf("AMDeviceNotificationSubscribe"), 1);

    manager->removeDelegate(first);
    EXPECT_EQ(fake.live().subscriptions, 1);
    fake.attach();
    EXPECT_THAT(log, ElementsAre("b connected One"));

    manager->removeDelegate(second);
    EXPECT_EQ(fake.live().subscriptions, 0);
}

TEST_F(PhoneManagerObject, TellsDelegatesInTheOrderOfTheirRegistration) {
    addDelegate("a");
    addDelegate("b");
    fake.attach();
    fake.detach();
    EXPECT_THAT(
        log, ElementsAre("a connected One", "b connected One", "a removed One", "b removed One"));
}

TEST_F(PhoneManagerObject, ADelegateRegisteredTwiceIsToldTwiceAndRemovedAltogether) {
    const auto delegate = addDelegate("a");
    manager->addDelegate(delegate);
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One", "a connected One"));
    manager->removeDelegate(delegate);
    EXPECT_EQ(fake.live().subscriptions, 0);
}

TEST_F(PhoneManagerObject, RetainsItsDelegates) {
    auto delegate = addDelegate("a");
    const std::weak_ptr<LoggingDelegate> weak = delegate;
    delegate.reset();
    EXPECT_FALSE(weak.expired());
    manager->shutdown();
    EXPECT_TRUE(weak.expired());
}

TEST_F(PhoneManagerObject, IgnoresDelegatesThatItDoesNotHave) {
    manager->addDelegate(nullptr);
    EXPECT_EQ(fake.live().subscriptions, 0);
    manager->removeDelegate(nullptr);
    const auto delegate = addDelegate("a");
    manager->removeDelegate(std::make_shared<LoggingDelegate>("b", log));
    EXPECT_EQ(fake.live().subscriptions, 1);
}

TEST_F(PhoneManagerObject, ASearchMayBeginAgain) {
    manager->removeDelegate(addDelegate("a"));
    addDelegate("b");
    EXPECT_EQ(fake.live().subscriptions, 1);
    fake.attach();
    EXPECT_THAT(log, ElementsAre("b connected One"));
}

TEST_F(PhoneManagerObject, PhonesThatAreThereAlreadyArriveAfterTheFirstDelegate) {
    fake.attach();
    addDelegate("a");
    EXPECT_THAT(log, IsEmpty());
    fake.deliverArrivals();
    EXPECT_THAT(log, ElementsAre("a connected One"));
}

TEST_F(PhoneManagerObject, ADelegateMayRemoveItselfInAMessage) {
    const auto first = addDelegate("a");
    const auto second = addDelegate("b");
    first->onConnected = [&] { manager->removeDelegate(first); };
    second->onConnected = [&] { manager->removeDelegate(second); };
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One", "b connected One"));
    EXPECT_EQ(fake.live().subscriptions, 0);
    first->onConnected = second->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, ADelegateThatWasRemovedInAMessageIsNotTold) {
    const auto first = addDelegate("a");
    const auto second = addDelegate("b");
    first->onConnected = [&] { manager->removeDelegate(second); };
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One"));
    first->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, ADelegateThatWasAddedInAMessageHearsOfTheNextEvent) {
    const auto first = addDelegate("a");
    first->onConnected = [&] { addDelegate("b"); };
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One"));
    fake.detach();
    EXPECT_THAT(log, ElementsAre("a connected One", "a removed One", "b removed One"));
    first->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, MayBeShutDownInAMessage) {
    const auto first = addDelegate("a");
    addDelegate("b");
    first->onConnected = [&] { std::exchange(manager, nullptr)->shutdown(); };
    fake.attach();
    EXPECT_THAT(log, ElementsAre("a connected One"));
    EXPECT_EQ(fake.phone().references(), 0);
    first->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, MayBeShutDownWhileAPhoneIsRemoved) {
    const auto first = addDelegate("a");
    first->onRemoved = [&] { std::exchange(manager, nullptr)->shutdown(); };
    fake.attach();
    fake.detach();
    EXPECT_THAT(log, ElementsAre("a connected One", "a removed One"));
    EXPECT_EQ(fake.phone().references(), 0);
    first->onRemoved = nullptr;
}

// ---------------------------------------------------------------------------- nested news

TEST_F(PhoneManagerObject, NobodyHearsOfARemovalBeforeTheArrivalOrOfAnArrivalAfterIt) {
    const auto first = addDelegate("a");
    const auto second = addDelegate("b");
    first->onConnected = [&] { fake.detach(); };
    am_device* deviceAtArrival = nullptr;
    second->onConnected = [&] { deviceAtArrival = second->last->_rawDevice(); };
    fake.attach();
    EXPECT_THAT(
        log, ElementsAre("a connected One", "b connected One", "a removed One", "b removed One"));
    EXPECT_EQ(deviceAtArrival, fake.phone().device());
    EXPECT_EQ(second->lastRemoved, second->last);
    EXPECT_EQ(fake.phone().references(), 0);
    first->onConnected = second->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, ARemovalWithinTheRemovalIsToldAfterIt) {
    const auto first = addDelegate("a");
    addDelegate("b");
    fake.attach();
    log.clear();
    first->onRemoved = [&] {
        first->onRemoved = nullptr;
        fake.detach();
    };
    fake.detach();
    EXPECT_THAT(log,
                ElementsAre("a removed One", "b removed One", "a removed One", "b removed One"));
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(PhoneManagerObject, OneThatIsToldLaterMayBeTakenAwayOrTheManagerShutDown) {
    for (const bool isShutDown : {false, true}) {
        log.clear();
        manager = KRTPhoneManager::sharedManager();
        const auto first = addDelegate("a");
        const auto second = addDelegate("b");
        const auto third = addDelegate("c");
        first->onConnected = [&] { fake.detach(); };
        second->onConnected = [&] {
            if (isShutDown) {
                std::exchange(manager, nullptr)->shutdown();
            } else {
                manager->removeDelegate(third);
            }
        };
        fake.attach();
        std::vector<std::string> expected = {"a connected One", "b connected One"};
        if (!isShutDown) {
            expected.insert(expected.end(), {"a removed One", "b removed One"});
        }
        EXPECT_EQ(log, expected);
        EXPECT_EQ(fake.phone().references(), 0);
        first->onConnected = second->onConnected = nullptr;
        KRTPhoneManager::sharedManager()->shutdown();
    }
}

// ---------------------------------------------------------------------------- phones

TEST_F(PhoneManagerObject, AnArrivingPhoneIsClosedAndHasItsInformation) {
    const auto delegate = addDelegate("a");
    fake.attach();
    ASSERT_NE(delegate->last, nullptr);
    EXPECT_EQ(delegate->last->phoneFirmwareVersion(), 1011);
    EXPECT_FALSE(fake.phone().isConnected());
    EXPECT_THAT(manager->phones(), ElementsAre(delegate->last));
}

TEST_F(PhoneManagerObject, APhoneIsInTheListWhenItIsAnnounced) {
    const auto delegate = addDelegate("a");
    std::vector<Phone> listed;
    delegate->onConnected = [&] { listed = manager->phones(); };
    fake.attach();
    EXPECT_THAT(listed, ElementsAre(delegate->last));
    delegate->onConnected = nullptr;
}

TEST_F(PhoneManagerObject, ADeviceThatIsNotAnIPhoneIsAnnouncedAsNull) {
    fake.phone().deviceClass("iPod");
    addDelegate("a");
    addDelegate("b");
    testing::internal::CaptureStderr();
    fake.attach();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("not an iPhone"));
    EXPECT_THAT(log, ElementsAre("a connected null", "b connected null"));
    EXPECT_THAT(manager->phones(), IsEmpty());
}

TEST_F(PhoneManagerObject, APhoneThatCannotBeOpenedIsNotAnnounced) {
    addDelegate("a");
    fake.fail("AMDeviceConnect", 4711);
    testing::internal::CaptureStderr();
    fake.attach();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("Unable to open phone"));
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(PhoneManagerObject, ARemovalBringsTheSameObjectWhichStaysInTheList) {
    const auto delegate = addDelegate("a");
    fake.attach();
    const Phone arrived = delegate->last;
    fake.detach();
    EXPECT_EQ(delegate->lastRemoved, arrived);
    EXPECT_EQ(delegate->deviceAtRemoval, fake.phone().device())
        << "told before the record is released";
    EXPECT_THAT(manager->phones(), ElementsAre(arrived));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
}

TEST_F(PhoneManagerObject, ARemovedPhoneIsInert) {
    addDelegate("a");
    fake.attach();
    fake.detach();
    EXPECT_EQ(fake.phone().references(), 0);
    const Phone gone = manager->phones()[0];
    EXPECT_EQ(gone->_rawDevice(), nullptr);
    EXPECT_EQ(gone->phoneInformation(), nullptr);
    const auto error = gone->open();
    ASSERT_TRUE(error);
    EXPECT_EQ(CFErrorGetCode(error.get()), 0);
}

TEST_F(PhoneManagerObject, APhoneThatComesBackIsANewObject) {
    const auto delegate = addDelegate("a");
    for (int i = 0; i < 50; ++i) {
        fake.attach();
        const Phone arrived = delegate->last;
        fake.detach();
        // No record gets the address of one that an object still refers to.
        EXPECT_EQ(delegate->lastRemoved, arrived);
    }
    EXPECT_EQ(manager->phones().size(), 50U);
}

TEST_F(PhoneManagerObject, APhoneObjectMayGoBeforeThePhone) {
    // An object of an application's own, over a record that is the manager's.
    addDelegate("a");
    fake.attach();
    Phone own = KRTPhone::_phoneWithPhoneRef(manager->phones()[0]->_phoneRef());
    own.reset();
    EXPECT_EQ(fake.phone().references(), 1);
    EXPECT_EQ(manager->phones()[0]->open(), nullptr);
    manager->phones()[0]->close();
    fake.detach();
    EXPECT_THAT(log, ElementsAre("a connected One", "a removed One"));
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(PhoneManagerObject, ARingtoneManagerMayOutliveTheManagerOfItsPhone) {
    addDelegate("a");
    fake.attach();
    const auto tones = manager->phones()[0]->ringtoneManager();
    manager->shutdown();
    manager.reset();
    tones->addRingtone(record({"New"}).get());
    EXPECT_NE(tones->ringtoneForName(CFSTR("New")), nullptr);
}

TEST_F(PhoneManagerObject, PhonesIsASnapshot) {
    addDelegate("a");
    const auto before = manager->phones();
    fake.attach();
    EXPECT_THAT(before, IsEmpty());
}

// ---------------------------------------------------------------------------- looking phones up

TEST_F(PhoneManagerObject, FindsAPhoneByItsName) {
    FakePhone& two = fake.addPhone("two").name("Two");
    addDelegate("a");
    fake.attach();
    fake.attach(two);
    EXPECT_EQ(manager->phoneForInfo(infoOf("Two").get()), manager->phones()[1]);
    EXPECT_EQ(manager->phoneForInfo(infoOf("One").get()), manager->phones()[0]);
    EXPECT_EQ(manager->phoneForInfo(infoOf("Three").get()), nullptr);
    EXPECT_EQ(manager->phoneForInfo(infoOf("one").get()), nullptr);
}

TEST_F(PhoneManagerObject, FindsTheFirstOfTwoPhonesOfOneName) {
    FakePhone& two = fake.addPhone("two").name("One");
    addDelegate("a");
    fake.attach(two);
    fake.attach();
    EXPECT_EQ(manager->phoneForInfo(infoOf("One").get()), manager->phones()[0]);
}

TEST_F(PhoneManagerObject, APhoneWithoutANameGoesWithAnyInformation) {
    fake.phone().withoutValue("DeviceName");
    addDelegate("a");
    fake.attach();
    EXPECT_EQ(manager->phoneForInfo(infoOf("Whatever").get()), manager->phones()[0]);
    EXPECT_EQ(manager->phoneForInfo(dictionary().get()), manager->phones()[0]);
    EXPECT_EQ(manager->phoneForInfo(nullptr), manager->phones()[0]);
}

TEST_F(PhoneManagerObject, InformationWithoutANameFindsNoPhoneThatHasOne) {
    addDelegate("a");
    fake.attach();
    EXPECT_EQ(manager->phoneForInfo(dictionary().get()), nullptr);
    EXPECT_EQ(manager->phoneForInfo(nullptr), nullptr);
}

TEST_F(PhoneManagerObject, APhoneThatWasUnpluggedIsNotFoundAndDoesNotHideOthers) {
    FakePhone& two = fake.addPhone("two").name("Two");
    addDelegate("a");
    fake.attach();
    fake.attach(two);
    fake.detach();
    EXPECT_EQ(manager->phoneForInfo(infoOf("One").get()), nullptr);
    EXPECT_EQ(manager->phoneForInfo(infoOf("Two").get()), manager->phones()[1]);
    EXPECT_EQ(manager->phoneForInfo(infoOf("Three").get()), nullptr);
}

TEST_F(PhoneManagerObject, FindsPhonesByDeviceAndByRecord) {
    FakePhone& two = fake.addPhone("two").name("Two");
    addDelegate("a");
    fake.attach();
    fake.attach(two);
    const auto phones = manager->phones();
    EXPECT_EQ(manager->_phoneForDevice(two.device()), phones[1]);
    EXPECT_EQ(manager->_phoneForPhoneRef(phones[0]->_phoneRef()), phones[0]);
    EXPECT_EQ(manager->_phoneForPhoneRef(nullptr), nullptr);
    fake.detach(two);
    EXPECT_EQ(manager->_phoneForDevice(two.device()), nullptr);
    EXPECT_EQ(manager->_phoneForPhoneRef(phones[1]->_phoneRef()), phones[1]);
}

TEST_F(PhoneManagerObject, ARemovalOfAnUnknownPhoneTellsNobody) {
    addDelegate("a");
    const KRTPhoneRef unknown = KRTPhoneWithDevice(fake.phone().device());
    manager->_phoneRemoved(unknown);
    manager->_phoneRemoved(nullptr);
    EXPECT_THAT(log, IsEmpty());
    KRTPhoneRelease(unknown);
}

} // namespace
