#include "engine/state/OpenPhone.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"
#include "engine/state/SyncLock.h"

#include <fmt/format.h>

#include <algorithm>

namespace krl::engine {
namespace {

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// The name of a placeholder for a file, formed as the library forms it.
std::string placeholderOf(const std::string& file) {
    const auto url = cf::adopt(CFURLCreateWithFileSystemPath(
        nullptr, cf::string(file).get(), kCFURLPOSIXPathStyle, /*isDirectory=*/false));
    if (!url) {
        return {};
    }
    const auto base = cf::adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    const auto name = cf::adopt(CFURLCopyLastPathComponent(base.get()));
    return cf::text(name.get()) + ".m4r";
}

} // namespace

std::string PhoneFacts::label() const {
    return fmt::format("\"{}\" (firmware {})", name, firmware.empty() ? "unknown" : firmware);
}

PhoneRingtone ringtoneOf(CFDictionaryRef entry) {
    PhoneRingtone ringtone;
    ringtone.name = cf::textAt(entry, KRTRingtoneName);
    ringtone.guid = cf::textAt(entry, KRTFileKey);
    ringtone.type = cf::textAt(entry, CFSTR("FileType"));
    ringtone.file = lastComponent(cf::textAt(entry, KRTRemotePath));
    ringtone.placeholder = placeholderOf(ringtone.file);
    ringtone.size = static_cast<uint64_t>(cf::numberAt(entry, KRTFileSize).value_or(0));
    ringtone.source = cf::textAt(entry, kSourceKey);
    return ringtone;
}

std::optional<std::vector<PhoneRingtone>> ringtonesOf(CFDictionaryRef list) {
    if (list == nullptr) {
        return std::nullopt;
    }
    std::vector<PhoneRingtone> result;
    for (const auto& [name, entry] : cf::pairs(list)) {
        result.push_back(ringtoneOf(cf::cast<CFDictionaryRef>(entry)));
    }
    return result;
}

OpenPhone::OpenPhone(const PhoneRequest& request) : OpenPhone(Discovery(), request) {}

OpenPhone::OpenPhone(Discovery&& discovery, const PhoneRequest& request)
    : chosen_(choosePhone(discovery, request)), watch_(chosen_.device.get()), open_(findPhone()) {}

KRTPhone& OpenPhone::findPhone() {
    constexpr std::chrono::seconds kLongest{10};
    const auto end = std::chrono::steady_clock::now() + kLongest;
    KRTErrorClear();
    while (!watch_.phone() && std::chrono::steady_clock::now() < end) {
        watch_.wait(std::chrono::milliseconds{100});
        // The manager does not tell of a phone that does not open. Something did not: this one? If
        // it opens now, that was a hiccup.
        if (!watch_.phone() && KRTError()) {
            while (!watch_.phone() && watch_.wait(std::chrono::milliseconds{0})) {
                // What else has arrived meanwhile.
            }
            if (!watch_.phone()) {
                requireThatItOpens();
                watch_.lookAnew();
            }
        }
    }
    if (!watch_.phone()) {
        throw readFailure("the phone is not found any more");
    }
    return phone();
}

void OpenPhone::requireThatItOpens() {
    KRTErrorClear();
    const auto phone = KRTPhone::_phoneWithPhoneRef(KRTPhoneWithDevice(chosen_.device.get()));
    if (!phone || phone->open()) {
        throw readFailure("the phone cannot be opened");
    }
    phone->close();
}

Failure OpenPhone::readFailure(const std::string& what) {
    const std::string reason = lastFailureText();
    if (isGone()) {
        return {FailureKind::PhoneGone, fmt::format("{} was pulled out: {}", label(), what),
                "Nothing was changed on the phone. Plug it in and run the same command again."};
    }
    return {FailureKind::CannotOpen, fmt::format("{} on {}: {}", what, label(), reason),
            "Nothing was changed on the phone. Unlock it, plug it in again, or pair it anew "
            "(vesk pair), and try once more. \"vesk doctor\" looks for the reason."};
}

PhoneFacts OpenPhone::facts() {
    const auto information = phone().phoneInformation();
    const auto values = cf::dictionaryAt(information.get(), CFSTR("PhoneVersions"));
    PhoneFacts facts;
    facts.name = cf::textAt(information.get(), KRTPhoneNameKey);
    facts.deviceClass = cf::textAt(information.get(), KRTPhoneClassKey);
    facts.udid = cf::textAt(values, CFSTR("UniqueDeviceID"));
    facts.firmware = cf::textAt(values, CFSTR("ProductVersion"));
    facts.firmwareNumber = phone().phoneFirmwareVersion();
    facts.olderLayout = phone().postEvilUpdate() == 1;
    if (const auto free = cf::numberAt(information.get(), KRTPhoneFreeSpaceKey)) {
        facts.freeBytes = static_cast<uint64_t>(*free);
    }
    // A firmware that is not known is taken for a current one: on an older phone that would be the
    // wrong catalogue.
    if (facts.firmware.empty()) {
        throw readFailure("the phone's values cannot be read");
    }
    return facts;
}

KRTRingtoneManager& OpenPhone::tones() {
    if (!tones_) {
        tones_ = phone().ringtoneManager();
    }
    return *tones_;
}

std::vector<PhoneRingtone> OpenPhone::ringtones() {
    keepOpen();
    KRTErrorClear();
    if (tones_) {
        tones_->rebuildRingtoneListFromOriginal();
    }
    const auto read =
        ringtonesOf(cf::dictionaryAt(tones().generateChangeLists().get(), kUnchangedList));
    if (!read) {
        throw readFailure("the ringtones cannot be read");
    }
    requireConnection();
    return *read;
}

std::optional<uint32_t> OpenPhone::sizeAt(const std::string& path) {
    keepOpen();
    KRTErrorClear();
    uint32_t size = 0;
    const auto error = phone().size(&size, cf::string(path).get());
    if (!error) {
        return size;
    }
    if (CFErrorGetCode(error.get()) != kAFCObjectNotFound) {
        throw readFailure(fmt::format("\"{}\" cannot be looked at", path));
    }
    return std::nullopt;
}

void OpenPhone::requireConnection() {
    sizeAt(kCataloguePath);
}

bool OpenPhone::isBeingSynced() {
    keepOpen();
    afc_connection* const files = layer::connectionOf(phone()._rawDevice());
    return files != nullptr && trySyncLock(files) == kAFCWouldBlock;
}

std::optional<uint64_t> OpenPhone::sizeOf(const std::string& file) {
    return sizeAt(fmt::format("{}/{}", kRingtonesFolder, file));
}

bool OpenPhone::hasFolder(const std::string& path) {
    return sizeAt(path).has_value();
}

std::optional<std::string> OpenPhone::catalogueFile() {
    const auto size = sizeAt(kCataloguePath);
    if (!size) {
        return std::nullopt;
    }
    keepOpen();
    KRTErrorClear();
    uint32_t length = std::min(*size, kMostCatalogueBytes);
    std::string bytes(length, '\0');
    // The object's method does not say how many bytes there were.
    if (KRTPhoneReadFileAtPath(phone()._phoneRef(), kCataloguePath, bytes.data(), &length) != 1) {
        throw readFailure("the ringtone catalogue cannot be read");
    }
    bytes.resize(std::min<size_t>(length, bytes.size()));
    return bytes;
}

std::optional<std::vector<std::string>> OpenPhone::folderNames() {
    keepOpen();
    KRTErrorClear();
    const auto names = phone().listDirectoryAtPath(cf::string(kRingtonesFolder).get());
    if (!names) {
        if (KRTErrorGetCode() == kAFCObjectNotFound) {
            return std::nullopt;
        }
        throw readFailure("the ringtone folder cannot be listed");
    }
    std::vector<std::string> result;
    for (CFIndex i = 0; i < CFArrayGetCount(names.get()); ++i) {
        result.push_back(cf::text(cf::cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i))));
    }
    return result;
}

} // namespace krl::engine
