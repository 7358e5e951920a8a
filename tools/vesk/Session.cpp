#include "Session.h"

#include "Failure.h"
#include "Status.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// The name of a placeholder for a file, formed as the library forms it.
std::string companionOf(const std::string& file) {
    const auto url = cf::adopt(CFURLCreateWithFileSystemPath(
        nullptr, cf::string(file).get(), kCFURLPOSIXPathStyle, /*isDirectory=*/false));
    if (!url) {
        return {};
    }
    const auto base = cf::adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    const auto name = cf::adopt(CFURLCopyLastPathComponent(base.get()));
    return cf::text(name.get()) + ".m4r";
}

PhoneRingtone phoneRingtone(const std::string& name, CFDictionaryRef entry) {
    PhoneRingtone ringtone;
    ringtone.name = name;
    ringtone.guid = cf::textAt(entry, KRTFileKey);
    ringtone.type = cf::textAt(entry, CFSTR("FileType"));
    ringtone.file = lastComponent(cf::textAt(entry, KRTRemotePath));
    ringtone.companion = companionOf(ringtone.file);
    ringtone.size = static_cast<std::uint64_t>(cf::numberAt(entry, KRTFileSize).value_or(0));
    return ringtone;
}

} // namespace

std::string PhoneFacts::label() const {
    return fmt::format("\"{}\" (firmware {})", name, firmware.empty() ? "unknown" : firmware);
}

const PhoneRingtone* PhoneRingtones::find(const std::string& name) const {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const PhoneRingtone& one) { return one.name == name; });
    return found == list.end() ? nullptr : &*found;
}

std::vector<std::string> PhoneRingtones::names() const {
    std::vector<std::string> result;
    std::transform(list.begin(), list.end(), std::back_inserter(result),
                   [](const PhoneRingtone& one) { return one.name; });
    return result;
}

KeptConnected::KeptConnected(KRTPhoneRef phone, std::size_t operations) : phone_(phone) {
    // What stands in the way of opening is the operations' to say.
    while (opens_ < operations && KRTPhoneOpen(phone_) == 1) {
        ++opens_;
    }
}

KeptConnected::~KeptConnected() {
    // As many as are left; closing a closed phone does nothing.
    for (; opens_ > 0; --opens_) {
        KRTPhoneClose(phone_);
    }
}

Session::Session(AttachedDevice chosen, Discovery& discovery)
    : chosen_(std::move(chosen)), discovery_(discovery),
      phone_(KRTPhoneWithDevice(chosen_.device.get())) {
    if (!phone_) {
        throw std::bad_alloc();
    }
}

Failure Session::readFailure(const std::string& what) {
    const std::string reason = lastFailureText();
    if (isGone()) {
        return {ExitCode::PhoneGone, fmt::format("{} was pulled out: {}", label(), what),
                "Nothing was changed on the phone. Plug it in and run the same command again."};
    }
    return {ExitCode::CannotOpen, fmt::format("{} on {}: {}", what, label(), reason),
            "Nothing was changed on the phone. Unlock it, plug it in again, or pair it anew "
            "(vesk pair), and try once more. \"vesk doctor\" looks for the reason."};
}

PhoneFacts Session::facts() {
    KRTErrorClear();
    KRTPhoneUpdateInformation(phone());
    const auto information = cf::adopt(KRTPhoneGetPhoneInformation(phone()));
    const auto values =
        cf::cast<CFDictionaryRef>(CFDictionaryGetValue(information.get(), CFSTR("PhoneVersions")));
    PhoneFacts facts;
    facts.name = cf::textAt(information.get(), KRTPhoneNameKey);
    facts.deviceClass = cf::textAt(information.get(), KRTPhoneClassKey);
    facts.udid = cf::textAt(values, CFSTR("UniqueDeviceID"));
    facts.firmware = cf::textAt(values, CFSTR("ProductVersion"));
    facts.firmwareNumber = KRTPhoneFirmwareVersion(phone());
    facts.olderLayout = KRTPhonePostUpdate(phone()) == 1;
    if (const auto free = cf::numberAt(information.get(), KRTPhoneFreeSpaceKey)) {
        facts.freeBytes = static_cast<std::uint64_t>(*free);
    }
    // A firmware that is not known is taken for a current one: on an older phone that would be the
    // wrong catalogue.
    if (facts.firmware.empty()) {
        throw readFailure("the phone's values cannot be read");
    }
    return facts;
}

PhoneRingtones Session::ringtones(std::size_t catalogueEntries) {
    constexpr std::size_t kCatalogueOperations = 2;
    const KeptConnected connected(phone(), catalogueEntries + kCatalogueOperations);
    KRTErrorClear();
    PhoneRingtones result;
    result.entries = cf::adopt(KRTRingtoneManagerLoadCurrentRingtoneList(store()));
    if (!result.entries) {
        throw readFailure("the ringtones cannot be read");
    }
    for (const auto& [key, value] : cf::pairs(result.entries.get())) {
        result.list.push_back(
            phoneRingtone(cf::text(cf::cast<CFStringRef>(key)), cf::cast<CFDictionaryRef>(value)));
    }
    return result;
}

std::optional<std::uint32_t> Session::sizeAt(const std::string& path) {
    KRTErrorClear();
    std::uint32_t size = 0;
    if (KRTPhoneSizeOfFileAtPath(phone(), path.c_str(), &size) == 1) {
        return size;
    }
    if (KRTErrorGetCode() != kAFCObjectNotFound) {
        throw readFailure(fmt::format("\"{}\" cannot be looked at", path));
    }
    return std::nullopt;
}

std::optional<std::uint64_t> Session::sizeOf(const std::string& file) {
    return sizeAt(fmt::format("{}/{}", kRingtonesFolder, file));
}

std::optional<std::string> Session::catalogueFile() {
    const KeptConnected connected(phone(), 2);
    const auto size = sizeAt(kCataloguePath);
    if (!size) {
        return std::nullopt;
    }
    KRTErrorClear();
    std::string bytes(*size, '\0');
    std::uint32_t length = *size;
    if (KRTPhoneReadFileAtPath(phone(), kCataloguePath, bytes.data(), &length) != 1) {
        throw readFailure("the ringtone catalogue cannot be read");
    }
    bytes.resize(std::min<std::size_t>(length, bytes.size()));
    return bytes;
}

std::optional<std::vector<std::string>> Session::folderNames() {
    KRTErrorClear();
    const auto names = cf::adopt(KRTPhoneListDirectoryAtPath(phone(), kRingtonesFolder));
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

} // namespace vesk
