#include "virtualphone/phone/Phone.h"

#include "virtualphone/phone/PhoneState.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace virtualphone {

namespace {

constexpr size_t kUdidLength = 40;

bool isUdid(const std::string& text) {
    return text.size() == kUdidLength &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

// 40 digits that depend on every byte of the folder's path (FNV-1a, once a group of digits).
std::string derivedUdid(const std::string& folder) {
    constexpr uint64_t kOffset = 0xcbf29ce484222325;
    constexpr uint64_t kPrime = 0x100000001b3;
    std::string udid;
    for (uint64_t group = 0; udid.size() < kUdidLength; ++group) {
        uint64_t hash = (kOffset ^ group) * kPrime;
        for (const char c : folder) {
            hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
        }
        char digits[17];
        std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
        udid += digits;
    }
    return udid.substr(0, kUdidLength);
}

// Length of the UTF-8 sequence that starts here, or 0.
size_t sequenceLength(const std::string& text, size_t at) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byteAt(at);
    const size_t length = lead < 0x80                   ? 1
                          : lead >= 0xC2 && lead < 0xE0 ? 2
                          : lead >= 0xE0 && lead < 0xF0 ? 3
                          : lead >= 0xF0 && lead < 0xF5 ? 4
                                                        : 0;
    if (length == 0 || at + length > text.size()) {
        return 0;
    }
    for (size_t i = at + 1; i < at + length; ++i) {
        if ((byteAt(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

void checkText(const char* what, const std::string& text) {
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = sequenceLength(text, at);
        if (length == 0 || text[at] == '\0') {
            throw std::invalid_argument(std::string("the phone's ") + what +
                                        " is not UTF-8 text: " + text);
        }
        at += length;
    }
}

PhoneOptions complete(PhoneOptions options) {
    if (options.root.empty()) {
        throw std::invalid_argument("a phone needs a folder for its media partition");
    }
    checkText("name", options.name);
    checkText("firmware", options.firmware);
    checkText("class", options.deviceClass);
    options.root = std::filesystem::absolute(options.root).lexically_normal();
    // A fresh phone has no ringtone folder and no catalogue.
    std::filesystem::create_directories(options.root / "iTunes_Control" / "iTunes");
    if (options.udid.empty()) {
        options.udid = derivedUdid(options.root.string());
    } else if (!isUdid(options.udid)) {
        throw std::invalid_argument("a UDID has 40 hexadecimal digits: " + options.udid);
    }
    return options;
}

} // namespace

Phone::Phone(PhoneOptions options)
    : state_(std::make_unique<PhoneState>(complete(std::move(options)))) {}

Phone::~Phone() = default;

const PhoneOptions& Phone::options() const {
    return state_->options;
}

const std::string& Phone::udid() const {
    return state_->options.udid;
}

Faults& Phone::faults() {
    return state_->faults;
}

void Phone::post(const std::string& notification) {
    state_->notifications.post(notification);
}

bool Phone::holdSyncLock() {
    return state_->holdSyncLock();
}

void Phone::releaseSyncLock() {
    state_->releaseSyncLock();
}

void Phone::setFreeBytes(uint64_t bytes) {
    state_->media.setFreeBytes(bytes);
}

uint64_t Phone::freeBytes() const {
    return state_->media.freeBytes();
}

std::vector<Unplayable> Phone::wouldNotPlay() {
    return unplayableIn(state_->media, state_->options.firmware);
}

bool Phone::trusts(const std::string& hostId) const {
    return state_->hosts.contains(hostId);
}

void Phone::trust(const std::string& hostId) {
    state_->hosts.add(hostId, {});
}

void Phone::forgetHosts() {
    state_->hosts.clear();
}

} // namespace virtualphone
