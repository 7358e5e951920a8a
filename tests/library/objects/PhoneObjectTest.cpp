// The phone object: which function each method forwards to, and what it makes of the result.

#include "tests/library/objects/ObjectTest.h"

#include "library/phone/KRTPhoneInternal.h"

#include <functional>

namespace {

using namespace krl::test;
using krl::cf::CFRef;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class PhoneObject : public ObjectTest {
protected:
    PhoneObject() : phone(makePhone()) {}

    ~PhoneObject() override { KRTErrorDomain = CFSTR("com.korvane.vesk"); }

    KRTPhoneRef record() const { return phone->_phoneRef(); }

    std::shared_ptr<KRTPhone> phone;
};

// ---------------------------------------------------------------------------- making

TEST_F(PhoneObject, StandsForTheRecordThatItWasMadeOf) {
    const KRTPhoneRef made = KRTPhoneWithDevice(fake.phone().device());
    EXPECT_EQ(KRTPhone::_phoneWithPhoneRef(made)->_phoneRef(), made);
    const KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    EXPECT_EQ(KRTPhone::_initWithPhoneRef(other)->_phoneRef(), other);
    EXPECT_EQ(phone->_rawDevice(), fake.phone().device());
}

TEST_F(PhoneObject, IsNotMadeOfNothing) {
    EXPECT_EQ(KRTPhone::_phoneWithPhoneRef(nullptr), nullptr);
    EXPECT_EQ(KRTPhone::_initWithPhoneRef(nullptr), nullptr);
}

TEST_F(PhoneObject, IsNeverMadeOfADevice) {
    try {
        KRTPhone::_phoneWithDevice(fake.phone().device());
        ADD_FAILURE() << "an object was made";
    } catch (const KRLException& exception) {
        EXPECT_EQ(exception.name(), "UnrecognizedSelector");
        EXPECT_THAT(exception.reason(), testing::HasSubstr("_initWithDevice:"));
    }
}

TEST_F(PhoneObject, HasNoDelegate) {
    EXPECT_EQ(phone->delegate(), nullptr);
    phone->setDelegate(std::make_shared<int>(1));
    EXPECT_EQ(phone->delegate(), nullptr);
}

TEST_F(PhoneObject, StartsAndEndsNoFileServiceItself) {
    phone->_startFileService();
    phone->_endFileService();
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(record()->openCount, 0);
}

// ---------------------------------------------------------------------------- forwarding

TEST_F(PhoneObject, OpensAndCloses) {
    EXPECT_EQ(phone->open(), nullptr);
    EXPECT_EQ(record()->openCount, 1);
    EXPECT_TRUE(fake.phone().isConnected());
    phone->close();
    EXPECT_EQ(record()->openCount, 0);
    EXPECT_FALSE(fake.phone().isConnected());
}

TEST_F(PhoneObject, BeginsAndEndsASyncWithOneAndZero) {
    EXPECT_EQ(phone->endSync(), 0);
    EXPECT_EQ(KRTErrorGetCode(), 0);
    EXPECT_TRUE(KRTError());
    KRTErrorClear();
    EXPECT_EQ(phone->open(), nullptr);
    EXPECT_EQ(phone->beginSync(), 1);
    EXPECT_NE(record()->notificationProxy, nullptr);
    EXPECT_EQ(phone->endSync(), 1);
    EXPECT_EQ(record()->notificationProxy, nullptr);
}

TEST_F(PhoneObject, ABeginThatFailsAnswersZero) {
    fake.fail("AMDeviceStartSession", 4711);
    EXPECT_EQ(KRTPhone::_phoneWithPhoneRef(KRTPhoneWithDevice(fake.phone().device()))->beginSync(),
              0);
}

TEST_F(PhoneObject, InformationIsACopyOfWhatWasReadLast) {
    fake.phone().name("My Phone");
    phone->updateInformation();
    const auto information = phone->phoneInformation();
    EXPECT_EQ(text(CFDictionaryGetValue(information.get(), KRTPhoneNameKey)), "My Phone");
    fake.phone().name("Renamed");
    phone->updateInformation();
    EXPECT_EQ(text(CFDictionaryGetValue(information.get(), KRTPhoneNameKey)), "My Phone");
    EXPECT_EQ(text(CFDictionaryGetValue(phone->phoneInformation().get(), KRTPhoneNameKey)),
              "Renamed");
}

TEST_F(PhoneObject, InformationIsNullBeforeItIsRead) {
    const auto fresh = KRTPhone::_phoneWithPhoneRef(KRTPhoneWithDevice(fake.phone().device()));
    EXPECT_EQ(fresh->phoneInformation(), nullptr);
    EXPECT_EQ(fresh->phoneFirmwareVersion(), 1014);
    EXPECT_EQ(fresh->postEvilUpdate(), 0);
}

TEST_F(PhoneObject, KnowsTheFirmware) {
    EXPECT_EQ(phone->phoneFirmwareVersion(), 1011);
    EXPECT_EQ(phone->postEvilUpdate(), 1);
    fake.phone().firmware("1.1.2");
    phone->updateInformation();
    EXPECT_EQ(phone->phoneFirmwareVersion(), 1012);
    EXPECT_EQ(phone->postEvilUpdate(), 0);
}

// ---------------------------------------------------------------------------- files

TEST_F(PhoneObject, WritesAndReadsAFile) {
    const std::string bytes = "some bytes";
    const auto data = krl::cf::adopt(CFDataCreate(
        nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    EXPECT_EQ(phone->writeData(data.get(), CFSTR("/DCIM/file")), nullptr);
    EXPECT_EQ(fake.phone().contents("/DCIM/file"), bytes);

    uint32_t size = 0;
    EXPECT_EQ(phone->size(&size, CFSTR("/DCIM/file")), nullptr);
    EXPECT_EQ(size, bytes.size());

    CFRef<CFMutableDataRef> read;
    EXPECT_EQ(phone->readFileAtPath(CFSTR("/DCIM/file"), &read), nullptr);
    EXPECT_TRUE(CFEqual(read.get(), data.get()));
}

TEST_F(PhoneObject, AnEmptyFileReadsAsEmptyDataWithoutAnError) {
    fake.phone().file("/DCIM/empty");
    CFRef<CFMutableDataRef> read;
    EXPECT_EQ(phone->readFileAtPath(CFSTR("/DCIM/empty"), &read), nullptr);
    ASSERT_TRUE(read);
    EXPECT_EQ(CFDataGetLength(read.get()), 0);
}

TEST_F(PhoneObject, WithoutASizeNothingIsHandedOut) {
    auto read = krl::cf::adopt(CFDataCreateMutable(nullptr, 0));
    const CFMutableDataRef before = read.get();
    EXPECT_NE(phone->readFileAtPath(CFSTR("/no such file"), &read), nullptr);
    EXPECT_EQ(read.get(), before);
}

TEST_F(PhoneObject, AFailedReadLeavesTheDataOfTheFilesSizeInZeros) {
    fake.phone().file("/DCIM/file", "12345");
    fake.fail("AFCFileRefRead", 4711);
    CFRef<CFMutableDataRef> read;
    const auto error = phone->readFileAtPath(CFSTR("/DCIM/file"), &read);
    ASSERT_TRUE(error);
    EXPECT_EQ(CFErrorGetCode(error.get()), 4711);
    ASSERT_TRUE(read);
    ASSERT_EQ(CFDataGetLength(read.get()), 5);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(read.get())), 5),
              std::string(5, '\0'));
}

TEST_F(PhoneObject, DataIsNotCutWhenFewerBytesCome) {
    fake.phone().file("/DCIM/file", "12345").readAtMost(2);
    CFRef<CFMutableDataRef> read;
    EXPECT_EQ(phone->readFileAtPath(CFSTR("/DCIM/file"), &read), nullptr);
    ASSERT_EQ(CFDataGetLength(read.get()), 5);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(read.get())), 5),
              std::string("12\0\0\0", 5));
}

TEST_F(PhoneObject, WritingNoDataMakesAnEmptyFile) {
    EXPECT_EQ(phone->writeData(nullptr, CFSTR("/DCIM/empty")), nullptr);
    EXPECT_EQ(fake.phone().contents("/DCIM/empty"), "");
}

TEST_F(PhoneObject, RenamesRemovesListsAndCreates) {
    fake.phone().file("/DCIM/old", "bytes");
    EXPECT_EQ(phone->renameFileAtPath(CFSTR("/DCIM/old"), CFSTR("/DCIM/new")), nullptr);
    EXPECT_EQ(phone->createDirectoryAtPath(CFSTR("/DCIM/folder")), nullptr);
    EXPECT_THAT(texts(phone->listDirectoryAtPath(CFSTR("/DCIM")).get()),
                testing::UnorderedElementsAre("new", "folder"));
    EXPECT_EQ(phone->removeObjectAtPath(CFSTR("/DCIM/new")), nullptr);
    EXPECT_THAT(texts(phone->listDirectoryAtPath(CFSTR("/DCIM")).get()), ElementsAre("folder"));
}

TEST_F(PhoneObject, PathsTravelAsUtf8) {
    const std::string path = "/DCIM/Gl\xC3\xB6"
                             "ckchen \xF0\x9F\x8E\xB5";
    fake.phone().file(path, "ding");
    uint32_t size = 0;
    EXPECT_EQ(phone->size(&size, str(path).get()), nullptr);
    EXPECT_EQ(size, 4U);
}

TEST_F(PhoneObject, AListThatFailsIsNullWithTheReasonInTheRecordAlone) {
    EXPECT_EQ(phone->listDirectoryAtPath(CFSTR("/no such folder")), nullptr);
    EXPECT_EQ(KRTErrorGetCode(), kAFCObjectNotFound);
}

// ---------------------------------------------------------------------------- failures

struct FailingCase {
    std::string name;
    std::string function; ///< the call to the phone that fails
    std::function<CFRef<CFErrorRef>(KRTPhone&)> method;
};

class PhoneObjectFailure : public PhoneObject, public testing::WithParamInterface<FailingCase> {};

uint32_t ignoredSize;
CFRef<CFMutableDataRef> ignoredData;

const FailingCase kFailures[] = {
    {"open", "AMDeviceConnect", [](KRTPhone& phone) { return phone.open(); }},
    {"size", "AFCFileInfoOpen",
     [](KRTPhone& phone) { return phone.size(&ignoredSize, CFSTR("/DCIM/file")); }},
    {"readFileAtPath", "AFCFileRefOpen",
     [](KRTPhone& phone) { return phone.readFileAtPath(CFSTR("/DCIM/file"), &ignoredData); }},
    {"writeData", "AFCFileRefWrite",
     [](KRTPhone& phone) {
         const UInt8 byte = 1;
         return phone.writeData(krl::cf::adopt(CFDataCreate(nullptr, &byte, 1)).get(),
                                CFSTR("/DCIM/file"));
     }},
    {"renameFileAtPath", "AFCRenamePath",
     [](KRTPhone& phone) {
         return phone.renameFileAtPath(CFSTR("/DCIM/file"), CFSTR("/DCIM/other"));
     }},
    {"removeObjectAtPath", "AFCRemovePath",
     [](KRTPhone& phone) { return phone.removeObjectAtPath(CFSTR("/DCIM/file")); }},
    {"createDirectoryAtPath", "AFCDirectoryCreate",
     [](KRTPhone& phone) { return phone.createDirectoryAtPath(CFSTR("/DCIM/folder")); }},
};

TEST_P(PhoneObjectFailure, IsAnErrorObjectOfTheRecordWhichIsNotCleared) {
    fake.phone().file("/DCIM/file", "bytes");
    fake.fail(GetParam().function, 4711);
    // The domain of a phone's errors is fixed, whatever the variable says.
    KRTErrorDomain = CFSTR("com.korvane.vesk.unzipFailed");

    const auto error = GetParam().method(*phone);

    ASSERT_TRUE(error);
    EXPECT_EQ(errorText(error.get()), recordedErrorText("com.korvane.vesk"));
    EXPECT_EQ(CFErrorGetCode(error.get()), 4711);
    EXPECT_EQ(KRTErrorGetCode(), 4711);
    EXPECT_STREQ(KRTErrorGetFile(), "KRTPhoneInternal");
    ignoredData.reset();
}

TEST_P(PhoneObjectFailure, ShowsAnEarlierErrorThatIsStillRecorded) {
    fake.phone().file("/DCIM/file", "bytes");
    fake.fail(GetParam().function, 4711);
    KRTErrorSet(12, "earlier", 34);
    EXPECT_EQ(errorText(GetParam().method(*phone).get()), "com.korvane.vesk 34 earlier:12");
    ignoredData.reset();
}

TEST_P(PhoneObjectFailure, IsNoneAfterASuccess) {
    fake.phone().file("/DCIM/file", "bytes");
    KRTErrorSet(12, "earlier", 34);
    EXPECT_EQ(GetParam().method(*phone), nullptr);
    ignoredData.reset();
}

INSTANTIATE_TEST_SUITE_P(Methods, PhoneObjectFailure, testing::ValuesIn(kFailures),
                         [](const auto& failing) { return failing.param.name; });

TEST_F(PhoneObject, AnErrorWithoutAModuleHasAnEmptyFile) {
    fake.fail("AMDeviceConnect", 4711);
    KRTErrorSet(12, nullptr, 34);
    EXPECT_EQ(errorText(phone->open().get()), "com.korvane.vesk 34 :12");
}

TEST_F(PhoneObject, PathsThatAreNoneFailAndDoNotCrash) {
    const UniChar lone[] = {'/', 0xD800};
    const UniChar zero[] = {'/', 'a', 0, 'b'};
    const auto loneSurrogate = krl::cf::adopt(CFStringCreateWithCharacters(nullptr, lone, 2));
    const auto withZero = krl::cf::adopt(CFStringCreateWithCharacters(nullptr, zero, 4));
    for (const CFStringRef path : {CFStringRef{}, loneSurrogate.get(), withZero.get()}) {
        uint32_t size = 0;
        CFRef<CFMutableDataRef> read;
        EXPECT_NE(phone->size(&size, path), nullptr);
        EXPECT_NE(phone->readFileAtPath(path, &read), nullptr);
        EXPECT_NE(phone->writeData(nullptr, path), nullptr);
        EXPECT_NE(phone->renameFileAtPath(path, path), nullptr);
        EXPECT_NE(phone->removeObjectAtPath(path), nullptr);
        EXPECT_NE(phone->createDirectoryAtPath(path), nullptr);
        EXPECT_EQ(phone->listDirectoryAtPath(path), nullptr);
    }
}

// ---------------------------------------------------------------------------- its ringtone manager

TEST_F(PhoneObject, GivesTheSameRingtoneManagerEachTime) {
    const auto tones = phone->ringtoneManager();
    ASSERT_NE(tones, nullptr);
    EXPECT_EQ(phone->ringtoneManager(), tones);
}

TEST_F(PhoneObject, ItsRingtoneManagerHasAStoreRecordOfItsOwn) {
    phone->ringtoneManager();
    EXPECT_EQ(record()->ringtoneManager, nullptr) << "the record's own one is not made";
    const KRTRingtoneManagerRef own = KRTPhoneGetRingtoneManager(record());
    phone->ringtoneManager();
    EXPECT_EQ(KRTPhoneGetRingtoneManager(record()), own);
}

TEST_F(PhoneObject, ARingtoneManagerThatGoesMakesThePhoneForgetItsStoreRecord) {
    const KRTRingtoneManagerRef own = KRTPhoneGetRingtoneManager(record());
    auto tones =
        KRTRingtoneManager::_initWithRingtoneManagerRef(KRTRingtoneManagerForPhone(record()));
    tones.reset();
    EXPECT_EQ(record()->ringtoneManager, nullptr);
    KRTRingtoneManagerRelease(own); // nobody else has it any more
}

TEST_F(PhoneObject, ARingtoneManagerMayOutliveThePhone) {
    putRingtones(fake.phone(), {{"AAAA.m4r", "Bells"}});
    const auto tones = phone->ringtoneManager();
    phone.reset();
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_NE(tones->ringtoneForName(CFSTR("Bells")), nullptr);
    tones->rebuildRingtoneListFromOriginal();
    EXPECT_EQ(KRTErrorGetCode(), 0) << "there is no device to open";
    EXPECT_TRUE(KRTError());
    EXPECT_EQ(tones->ringtoneForName(CFSTR("Bells")), nullptr);
}

// ---------------------------------------------------------------------------- the record's life

TEST_F(PhoneObject, ReleasesTheRecordWhenItGoes) {
    EXPECT_EQ(fake.phone().references(), 1);
    EXPECT_EQ(phone->open(), nullptr);
    fake.clearCalls();
    phone.reset();
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease")) << "nothing is closed";
}

TEST_F(PhoneObject, ARecordThatWasReleasedIsInertUntilTheObjectGoes) {
    phone->ringtoneManager();
    KRTPhoneGetRingtoneManager(record());

    KRTPhoneRelease(record());

    EXPECT_EQ(fake.phone().references(), 0) << "the device is released at once";
    EXPECT_EQ(phone->_rawDevice(), nullptr);
    EXPECT_EQ(phone->phoneInformation(), nullptr);
    EXPECT_EQ(record()->ringtoneManager, nullptr);
    EXPECT_EQ(phone->phoneFirmwareVersion(), 1014);
    const auto error = phone->open();
    EXPECT_EQ(errorText(error.get()), recordedErrorText());
    EXPECT_EQ(KRTErrorGetCode(), 0);
    EXPECT_EQ(phone->listDirectoryAtPath(CFSTR("/")), nullptr);
    EXPECT_EQ(phone->beginSync(), 0);
    fake.clearCalls();
    phone.reset(); // its own release frees the memory and nothing else
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneObject, NoRecordGetsTheAddressOfAReleasedOneWhileTheObjectIsThere) {
    const KRTPhoneRef gone = record();
    KRTPhoneRelease(gone);
    std::vector<KRTPhoneRef> others;
    for (int i = 0; i < 1000; ++i) {
        others.push_back(KRTPhoneWithDevice(fake.phone().device()));
        EXPECT_NE(others.back(), gone);
    }
    for (const KRTPhoneRef other : others) {
        KRTPhoneRelease(other);
    }
}

TEST_F(PhoneObject, TwoObjectsOfOneRecordReleaseItOnce) {
    const auto second = KRTPhone::_phoneWithPhoneRef(record());
    phone.reset();
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_EQ(second->_rawDevice(), nullptr);
}

} // namespace
