#include "tests/library/sweep/Scenarios.h"

namespace krl::test {
namespace {

using Result = std::optional<int>;

constexpr Result kNoResult = std::nullopt;

Result had(bool isThere) {
    return isThere ? 1 : 0;
}

// ---------------------------------------------------------------------------- how it begins

void asItIs(World&) {}

void oneFile(World& world) {
    world.fake.phone().file("/R/a", "contents").remove("/R/b").remove("/new");
}

/// One ringtone that must move, one that goes.
void ringtones(World& world) {
    for (const std::string& name : world.filesOnPhone()) {
        world.fake.phone().remove(kFolder + "/" + name);
    }
    world.putTone("moved", "Long name.m4r");
    world.putTone("old", "OLDA.mp3");
    world.putCatalogueBytes(oldCatalogue());
}

void openSync(World& world) {
    const bool isOpen = world.phone->openCount > 0;
    EXPECT_EQ(KRTPhoneOpen(world.phone), 1);
    EXPECT_EQ(KRTPhoneBeginSync(world.phone), 1);
    if (isOpen) {
        EXPECT_EQ(KRTPhoneOpen(world.phone), 1); // begin has closed it once
    }
}

void oneOpen(World& world) {
    EXPECT_EQ(KRTPhoneOpen(world.phone), 1);
}

void oneOpenWithoutService(World& world) {
    oneOpen(world);
    oneOpen(world);
    KRTPhoneEndFileService(world.phone);
}

void delegate(World& world) {
    world.delegate = world.addDelegate();
}

void listedPhone(World& world) {
    KRTPhoneManagerPhoneConnectedNotification(world.device());
}

void search(World&) {
    KRTPhoneManagerBeginSearch();
}

// ---------------------------------------------------------------------------- lists

CFRef<CFMutableDictionaryRef> unchanged() {
    return listOf({toneOnPhone("moved", "Long name.m4r").with("LocalPath", "/m")});
}

CFRef<CFMutableDictionaryRef> removed() {
    return listOf({toneOnPhone("old", "OLDA.mp3")});
}

CFRef<CFMutableDictionaryRef> added(World& world) {
    return listOf({world.toneWithSource("new", "wav")});
}

/// A catalogue that firmware 1.1.1 does not cope with.
CFRef<CFMutableDictionaryRef> unfitCatalogue() {
    return catalogueOf({{"Long name.m4r", newTone("moved", "m4r").with("LocalPath", "/m")}});
}

// ---------------------------------------------------------------------------- the calls

Result submit(World& world) {
    return KRTRingtoneManagerSubmitChanges(world.manager, added(world).get(), removed().get(),
                                           unchanged().get());
}

Result generate(World& world) {
    CFRef<CFMutableDictionaryRef> catalogue;
    CFRef<CFMutableDictionaryRef> renames;
    const int result =
        KRTRingtoneManagerGeneratePList(world.manager, added(world).get(), removed().get(),
                                        unchanged().get(), catalogue.receive(), renames.receive());
    EXPECT_EQ(static_cast<bool>(catalogue), result == 1);
    EXPECT_EQ(static_cast<bool>(renames), result == 1);
    return result;
}

Result parse(World& world) {
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({});
    return KRTRingtoneManagerGeneratorParseDictionary(world.manager, unchanged().get(),
                                                      catalogue.get(), baseNames.get());
}

Result fix(World&) {
    const auto catalogue = unfitCatalogue();
    const auto baseNames = arrayOf({"Long name"});
    const auto renames = emptyDictionary();
    const int result = KRTRingtoneManagerFixResultDictionary(catalogue.get(), baseNames.get(),
                                                             renames.get(), unchanged().get());
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 1);
    return result;
}

Result readFile(World& world) {
    char buffer[8];
    uint32_t length = sizeof buffer;
    return KRTPhoneReadFileAtPath(world.phone, "/R/a", buffer, &length);
}

Result sizeOfFile(World& world) {
    uint32_t size = 0;
    return KRTPhoneSizeOfFileAtPath(world.phone, "/R/a", &size);
}

Result makeAndReleasePhone(World& world) {
    const KRTPhoneRef phone = KRTPhoneWithDevice(world.device());
    KRTPhoneRelease(phone);
    return had(phone != nullptr);
}

/// The phone's own record stays where it is.
Result makeAndReleaseStore(World& world) {
    const KRTRingtoneManagerRef own = world.phone->ringtoneManager;
    const KRTRingtoneManagerRef made = KRTRingtoneManagerForPhone(world.phone);
    KRTRingtoneManagerRelease(made);
    world.phone->ringtoneManager = own;
    return had(made != nullptr);
}

Result registerDataFunction(World&) {
    return had(
        KRTRingtoneManagerRegisterDataFunction([](CFURLRef) -> CFDataRef { return nullptr; }) != 0);
}

Result subscribe(World&) {
    return had(KRTPhoneManagerBeginSearch() == 0);
}

Result phonesAndBack(World&) {
    const CFArrayRef phones = KRTPhoneManagerGetPhones();
    KRTPhoneManagerReleasePhoneList(phones);
    return had(phones != nullptr);
}

#define KRL_WITHOUT_RESULT(call)                                                                   \
    [](World& world) -> Result {                                                                   \
        static_cast<void>(world);                                                                  \
        call;                                                                                      \
        return kNoResult;                                                                          \
    }
#define KRL_WITH_RESULT(call)                                                                      \
    [](World& world) -> Result {                                                                   \
        static_cast<void>(world);                                                                  \
        return call;                                                                               \
    }

} // namespace

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.function;
}

const std::string& oldCatalogue() {
    static const std::string kBytes = [] {
        const auto entries =
            catalogueOf({{"Long name.m4r", newTone("moved", "m4r").with("LocalPath", "/m")},
                         {"OLDA.mp3", newTone("old", "mp3")},
                         {"GONE.m4r", newTone("gone", "m4r")}});
        const Tone root = Tone().withObject("Ringtones", entries.get());
        const auto bytes = adopt(CFPropertyListCreateXMLData(nullptr, root.get()));
        return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.get())),
                           static_cast<size_t>(CFDataGetLength(bytes.get())));
    }();
    return kBytes;
}

const std::vector<Scenario>& scenarios() {
    // clang-format off
    static const std::vector<Scenario> kAll = {
        // one phone
        {"KRTPhoneWithDevice", On::nothing, Records::nothing, asItIs, makeAndReleasePhone},
        {"KRTPhoneRelease", On::nothing, Records::nothing, asItIs, makeAndReleasePhone},
        {"KRTPhoneRawDevice", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(KRTPhoneRawDevice(world.phone) == world.device()))},
        {"KRTPhoneGetPhoneInformation", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(bool(adopt(KRTPhoneGetPhoneInformation(world.phone)))))},
        {"KRTPhoneGetRingtoneManager", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(KRTPhoneGetRingtoneManager(world.phone) == world.manager))},
        {"KRTPhoneFirmwareVersion", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(KRTPhoneFirmwareVersion(world.phone) == 1011))},
        {"KRTPhonePostUpdate", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(KRTPhonePostUpdate(world.phone))},
        {"KRTPhoneUpdateInformation", On::phone, Records::ownAccount, asItIs, KRL_WITHOUT_RESULT(KRTPhoneUpdateInformation(world.phone))},
        {"KRTPhoneOpen", On::phone, Records::failures, asItIs, KRL_WITH_RESULT(KRTPhoneOpen(world.phone))},
        {"KRTPhoneClose", On::phone, Records::nothing, oneOpen, KRL_WITHOUT_RESULT(KRTPhoneClose(world.phone))},
        {"KRTPhoneStartFileService", On::phone, Records::failures, oneOpenWithoutService, KRL_WITH_RESULT(KRTPhoneStartFileService(world.phone))},
        {"KRTPhoneEndFileService", On::phone, Records::nothing, oneOpen, KRL_WITHOUT_RESULT(KRTPhoneEndFileService(world.phone))},
        {"KRTPhoneBeginSync", On::phone, Records::failures, oneOpen, KRL_WITH_RESULT(KRTPhoneBeginSync(world.phone))},
        {"KRTPhoneEndSync", On::phone, Records::failures, openSync, KRL_WITH_RESULT(KRTPhoneEndSync(world.phone))},
        {"KRTPhoneCreateDirectoryAtPath", On::phone, Records::failures, oneFile, KRL_WITH_RESULT(KRTPhoneCreateDirectoryAtPath(world.phone, "/new"))},
        {"KRTPhoneListDirectoryAtPath", On::phone, Records::failures, oneFile, KRL_WITH_RESULT(had(bool(adopt(KRTPhoneListDirectoryAtPath(world.phone, "/R")))))},
        {"KRTPhoneRemoveObjectAtPath", On::phone, Records::failures, oneFile, KRL_WITH_RESULT(KRTPhoneRemoveObjectAtPath(world.phone, "/R/a"))},
        {"KRTPhoneRenameObjectAtPath", On::phone, Records::failures, oneFile, KRL_WITH_RESULT(KRTPhoneRenameObjectAtPath(world.phone, "/R/a", "/R/b"))},
        {"KRTPhoneWriteDataToFileAtPath", On::phone, Records::failures, oneFile, KRL_WITH_RESULT(KRTPhoneWriteDataToFileAtPath(world.phone, "/R/a", "bytes", 5))},
        {"KRTPhoneReadFileAtPath", On::phone, Records::failures, oneFile, readFile},
        {"KRTPhoneSizeOfFileAtPath", On::phone, Records::failures, oneFile, sizeOfFile},

        // its store
        {"KRTRingtoneManagerForPhone", On::nothing, Records::nothing, asItIs, makeAndReleaseStore},
        {"KRTRingtoneManagerRelease", On::nothing, Records::nothing, asItIs, makeAndReleaseStore},
        {"KRTRingtoneManagerRegisterDataFunction", On::nothing, Records::nothing, asItIs, registerDataFunction},
        {"KRTRingtoneManagerSetStatusResponder", On::nothing, Records::nothing, asItIs, KRL_WITHOUT_RESULT(KRTRingtoneManagerSetStatusResponder(world.manager, nullptr, nullptr))},
        {"KRTRingtoneManagerFindToneForGUID", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(KRTRingtoneManagerFindToneForGUID(removed().get(), string(guidOf("old")).get()) != nullptr))},
        {"KRTRingtoneManagerGenerateHash", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(bool(adopt(KRTRingtoneManagerGenerateHash()))))},
        {"KRTRingtoneManagerIsValidFor111", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(had(bool(adopt(KRTRingtoneManagerIsValidFor111(unfitCatalogue().get())))))},
        {"KRTRingtoneManagerFixResultDictionary", On::nothing, Records::nothing, asItIs, fix},
        {"KRTRingtoneManagerLoadCurrentRingtoneList", On::phone, Records::ownAccount, ringtones, KRL_WITH_RESULT(had(bool(world.load())))},
        {"KRTRingtoneManagerGeneratorParseDictionary", On::phone, Records::ownAccount, ringtones, parse},
        {"KRTRingtoneManagerGeneratePList", On::phone, Records::ownAccount, ringtones, generate},
        {"KRTRingtoneManagerSubmitChanges", On::openPhone, Records::stepsBorne, ringtones, submit},
        {"KRTRingtoneManagerCleanupPhoneDirectories", On::phone, Records::ownAccount, ringtones, KRL_WITHOUT_RESULT(KRTRingtoneManagerCleanupPhoneDirectories(world.manager, arrayOf({"OLDA.mp3"}).get()))},

        // the phone manager
        {"KRTPhoneManagerInit", On::nothing, Records::nothing, asItIs, KRL_WITH_RESULT(KRTPhoneManagerInit())},
        {"KRTPhoneManagerShutdown", On::nothing, Records::nothing, listedPhone, KRL_WITHOUT_RESULT(KRTPhoneManagerShutdown())},
        {"KRTGetConnectedPhoneCount", On::nothing, Records::nothing, listedPhone, KRL_WITH_RESULT(KRTGetConnectedPhoneCount())},
        {"KRTPhoneManagerGetPhones", On::nothing, Records::nothing, listedPhone, phonesAndBack},
        {"KRTPhoneManagerReleasePhoneList", On::nothing, Records::nothing, listedPhone, phonesAndBack},
        {"KRTPhoneManagerPhoneForInfo", On::nothing, Records::nothing, listedPhone, KRL_WITH_RESULT(had(KRTPhoneManagerPhoneForInfo(nullptr) == nullptr))},
        {"KRTPhoneManagerPhoneForDevice", On::nothing, Records::nothing, listedPhone, KRL_WITH_RESULT(had(KRTPhoneManagerPhoneForDevice(world.device()) != nullptr))},
        {"KRTPhoneManagerAddDelegate", On::manager, Records::nothing, asItIs, KRL_WITH_RESULT(had(world.addDelegate() != nullptr))},
        {"KRTPhoneManagerRemoveDelegate", On::manager, Records::nothing, delegate, KRL_WITHOUT_RESULT(KRTPhoneManagerRemoveDelegate(world.delegate))},
        {"KRTPhoneManagerBeginSearch", On::manager, Records::nothing, asItIs, subscribe},
        {"KRTPhoneManagerEndSearch", On::manager, Records::nothing, search, KRL_WITHOUT_RESULT(KRTPhoneManagerEndSearch())},
        {"KRTPhoneManagerPhoneConnectedNotification", On::manager, Records::ownAccount, delegate, KRL_WITHOUT_RESULT(KRTPhoneManagerPhoneConnectedNotification(world.device()))},
        {"KRTPhoneManagerPhoneDisconnectedNotification", On::nothing, Records::nothing, listedPhone, KRL_WITHOUT_RESULT(KRTPhoneManagerPhoneDisconnectedNotification(world.device()))},
    };
    // clang-format on
    return kAll;
}

} // namespace krl::test
