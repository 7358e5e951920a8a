#include "virtualphone/phone/DeviceValues.h"

#include "virtualphone/phone/Firmware.h"

#include <string_view>
#include <utility>

namespace virtualphone {

namespace {

// Hosts make a phone's certificate from its key. Nobody holds the private half of this one.
constexpr const char* kPublicKey = R"(-----BEGIN RSA PUBLIC KEY-----
MIIBCgKCAQEAxJHigAmo1ne7tQBE9JbCSWyIs5eakzhKBbFYU546WhoZgPiPI4dK
H8O/2bPZ/Z2i4H8Bsnz2ffNif0xP3ZW3QP3SGD1EPUrBVsykgtI0IjWf68CC33di
bXNXEjYUMO0s3a/xcxKrBg7o47w2L/+/Jxk7QteLhNN4XJbhiR+HlbizYYqlDeO/
7ApPYUQEiUbUKAUF+hN/ZsGle1XWS9TaZ8UUe+W85zT7+emZV2Gb6CTCn4Sza3Dr
PPFdzPZlAeV8LycF7amjN3yTVdh9t2sq8l6bsmAmtQbZFLCscgjt7YbFEGhyHyjz
u1dofjFTzeTN1rMDM9diQMH44pae9pyu3wIDAQAB
-----END RSA PUBLIC KEY-----
)";

Plist defaultDomain(const PhoneOptions& options) {
    const bool isPhone = options.deviceClass != "iPod";
    Plist values = newDictionary();
    setItem(values, "DeviceName", options.name);
    setItem(values, "DeviceClass", options.deviceClass);
    if (!options.firmware.empty()) {
        setItem(values, "ProductVersion", options.firmware);
    }
    if (const auto build = buildVersion(options.firmware, isPhone); !build.empty()) {
        setItem(values, "BuildVersion", std::string(build));
    }
    setItem(values, "ProductType", isPhone ? "iPhone1,1" : "iPod1,1");
    setItem(values, "ModelNumber", isPhone ? "MA712" : "MA623");
    setItem(values, "UniqueDeviceID", options.udid);
    // Of the form that they have, and different from phone to phone.
    setItem(values, "SerialNumber", "VP" + options.udid.substr(0, 9));
    std::string wifi = "00";
    for (size_t i = 0; i < 10; i += 2) {
        wifi += ":" + options.udid.substr(i, 2);
    }
    setItem(values, "WiFiAddress", wifi);
    setItem(values, "ActivationState", "Activated");
    setItem(values, "PasswordProtected", newBoolean(options.passwordProtected));
    setItem(values, "DevicePublicKey", newData(kPublicKey));
    setItem(values, "TimeZone", "Europe/London");
    setItem(values, "ProtocolVersion", "1");
    return values;
}

Plist mediaLibraryDomain(const PhoneOptions& options) {
    constexpr uint64_t kFamily = 10001;
    Plist values = newDictionary();
    setItem(values, "FamilyID", newInteger(kFamily));
    setItem(values, "DBVersion", newInteger(isAtLeast(options.firmware, 2, 0) ? 3 : 2));
    setItem(values, "MinITunesVersion", isAtLeast(options.firmware, 1, 1) ? "7.4" : "7.3");
    setItem(values, "ConnectedBus", "USB");
    setItem(values, "SupportsVideo", newBoolean(true));
    Plist codecs = newDictionary();
    for (const char* const codec : {"AAC", "AIFF", "AppleLossless", "MP3", "WAV"}) {
        setItem(codecs, codec, newBoolean(true));
    }
    setItem(values, "AudioCodecs", std::move(codecs));
    return values;
}

} // namespace

DeviceValues::DeviceValues(const PhoneOptions& options) {
    domains_[""] = defaultDomain(options);
    domains_["com.apple.mobile.iTunes"] = mediaLibraryDomain(options);
}

Plist DeviceValues::copy(const std::string& domain, const std::string& key) const {
    const std::lock_guard lock(mutex_);
    const auto found = domains_.find(domain);
    const plist_t value = found == domains_.end() ? nullptr : itemOf(found->second, key);
    return Plist(value == nullptr ? nullptr : plist_copy(value));
}

Plist DeviceValues::copyAll(const std::string& domain) const {
    const std::lock_guard lock(mutex_);
    const auto found = domains_.find(domain);
    return found == domains_.end() ? newDictionary() : Plist(plist_copy(found->second.get()));
}

bool DeviceValues::isWritable(const std::string& domain, const std::string& key) {
    return !domain.empty() || key == "DeviceName" || key == "TimeZone";
}

void DeviceValues::set(const std::string& domain, const std::string& key, Plist value) {
    const std::lock_guard lock(mutex_);
    Plist& values = domains_[domain];
    if (!values) {
        values = newDictionary();
    }
    setItem(values, key, std::move(value));
}

void DeviceValues::remove(const std::string& domain, const std::string& key) {
    const std::lock_guard lock(mutex_);
    if (const auto found = domains_.find(domain); found != domains_.end()) {
        plist_dict_remove_item(found->second.get(), key.c_str());
    }
}

} // namespace virtualphone
