#include "corefoundation/events/DistributedMessage.h"

#include "corefoundation/events/DistributedWire.h"
#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/CFStringInternal.h"

#include <CoreFoundation/CFValues.h>

#include <cstring>
#include <memory>

namespace krl::cf {
namespace {

struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

// ---------------------------------------------------------------------------- objects

std::optional<InfoValue> travellingNumber(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &value);
        return value;
    }
    int64_t value = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    if (isBeyondSigned(number)) {
        return static_cast<uint64_t>(value);
    }
    return value;
}

std::optional<InfoValue> travellingValue(CFTypeRef value) {
    if (const auto string = cast<CFStringRef>(value)) {
        return travellingText(string);
    }
    if (const auto number = cast<CFNumberRef>(value)) {
        return travellingNumber(number);
    }
    if (const auto boolean = cast<CFBooleanRef>(value)) {
        return CFBooleanGetValue(boolean) != 0;
    }
    return {};
}

CFRef<CFTypeRef> objectOf(const std::string& text) {
    return adopt<CFTypeRef>(createStringFromUtf8(text));
}

CFRef<CFTypeRef> objectOf(int64_t number) {
    return adopt<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberSInt64Type, &number));
}

CFRef<CFTypeRef> objectOf(uint64_t number) {
    return adopt<CFTypeRef>(createUnsignedNumber(number));
}

CFRef<CFTypeRef> objectOf(double number) {
    return adopt<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberDoubleType, &number));
}

CFRef<CFTypeRef> objectOf(bool boolean) {
    return retain<CFTypeRef>(boolean ? kCFBooleanTrue : kCFBooleanFalse);
}

// ---------------------------------------------------------------------------- messages

int append(sd_bus_message* message, const std::string& text) {
    return sd_bus_message_append(message, "v", "s", text.c_str());
}

int append(sd_bus_message* message, int64_t number) {
    return sd_bus_message_append(message, "v", "x", number);
}

int append(sd_bus_message* message, uint64_t number) {
    return sd_bus_message_append(message, "v", "t", number);
}

int append(sd_bus_message* message, double number) {
    return sd_bus_message_append(message, "v", "d", number);
}

int append(sd_bus_message* message, bool boolean) {
    return sd_bus_message_append(message, "v", "b", static_cast<int>(boolean));
}

int appendEntry(sd_bus_message* message, const std::pair<std::string, InfoValue>& entry) {
    int status = sd_bus_message_open_container(message, 'e', "sv");
    if (status >= 0) {
        status = sd_bus_message_append(message, "s", entry.first.c_str());
    }
    if (status >= 0) {
        status =
            std::visit([&](const auto& value) { return append(message, value); }, entry.second);
    }
    return status < 0 ? status : sd_bus_message_close_container(message);
}

int appendInfo(sd_bus_message* message, const Info& info) {
    int status = sd_bus_message_open_container(message, 'a', "{sv}");
    for (auto entry = info.begin(); status >= 0 && entry != info.end(); ++entry) {
        status = appendEntry(message, *entry);
    }
    return status < 0 ? status : sd_bus_message_close_container(message);
}

/// Reads a value of one basic type, which `Read` holds on the bus. @return whether it was there.
template <typename Read, typename Value>
bool readAs(sd_bus_message* message, char type, std::optional<InfoValue>& value) {
    Read read{};
    if (sd_bus_message_read_basic(message, type, &read) <= 0) {
        return false;
    }
    value = InfoValue{static_cast<Value>(read)};
    return true;
}

/// Reads a value, which stays empty when its type is unknown. @return false: malformed.
bool readBasic(sd_bus_message* message, char type, std::optional<InfoValue>& value) {
    switch (type) {
    case 's':
        return readAs<const char*, std::string>(message, type, value);
    case 'b':
        return readAs<int, bool>(message, type, value);
    case 'y':
        return readAs<uint8_t, int64_t>(message, type, value);
    case 'n':
        return readAs<int16_t, int64_t>(message, type, value);
    case 'q':
        return readAs<uint16_t, int64_t>(message, type, value);
    case 'i':
        return readAs<int32_t, int64_t>(message, type, value);
    case 'u':
        return readAs<uint32_t, int64_t>(message, type, value);
    case 'x':
        return readAs<int64_t, int64_t>(message, type, value);
    case 't':
        return readAs<uint64_t, uint64_t>(message, type, value);
    case 'd':
        return readAs<double, double>(message, type, value);
    default:
        return sd_bus_message_skip(message, std::string(1, type).c_str()) >= 0;
    }
}

bool readVariant(sd_bus_message* message, std::optional<InfoValue>& value) {
    const char* contents = nullptr;
    char type = 0;
    if (sd_bus_message_peek_type(message, &type, &contents) <= 0) {
        return false;
    }
    if (std::strlen(contents) != 1) {
        return sd_bus_message_skip(message, "v") >= 0;
    }
    return sd_bus_message_enter_container(message, 'v', contents) > 0 &&
           readBasic(message, *contents, value) && sd_bus_message_exit_container(message) >= 0;
}

bool readEntry(sd_bus_message* message, Info& info) {
    const char* key = nullptr;
    std::optional<InfoValue> value;
    if (sd_bus_message_read(message, "s", &key) <= 0 || !readVariant(message, value)) {
        return false;
    }
    if (value) {
        info.emplace_back(key, std::move(*value));
    }
    return sd_bus_message_exit_container(message) >= 0;
}

bool readInfo(sd_bus_message* message, Info& info) {
    if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) {
        return false;
    }
    for (;;) {
        const int entered = sd_bus_message_enter_container(message, 'e', "sv");
        if (entered <= 0) {
            return entered == 0;
        }
        if (!readEntry(message, info)) {
            return false;
        }
    }
}

} // namespace

std::optional<std::string> travellingText(CFStringRef string) {
    std::string text;
    if (!appendUtf8(text, Text(string)) || text.find('\0') != std::string::npos) {
        return {};
    }
    return text;
}

Info travellingInfo(CFDictionaryRef userInfo) {
    Info info;
    for (const Pair& pair : pairsOf(userInfo)) {
        const auto keyString = cast<CFStringRef>(pair.key);
        const auto key = keyString != nullptr ? travellingText(keyString) : std::nullopt;
        auto value = travellingValue(pair.value);
        if (key && value) {
            info.emplace_back(*key, std::move(*value));
        }
    }
    return info;
}

CFRef<CFDictionaryRef> dictionaryOf(const Info& info) {
    if (info.empty()) {
        return nullptr;
    }
    auto dictionary = makeDictionary();
    for (const auto& [key, value] : info) {
        const CFRef<CFTypeRef> object =
            std::visit([](const auto& plain) { return objectOf(plain); }, value);
        CFDictionarySetValue(dictionary.get(), objectOf(key).get(), object.get());
    }
    return dictionary;
}

int sendNotification(sd_bus* bus, const DistributedNotification& notification) {
    sd_bus_message* made = nullptr;
    int status =
        sd_bus_message_new_signal(bus, &made, wire::kPath, wire::kInterface, wire::kMember);
    const Message message(made);
    if (status >= 0) {
        status = sd_bus_message_append(made, "ss", notification.name.c_str(),
                                       notification.object.c_str());
    }
    if (status >= 0) {
        status = appendInfo(made, notification.userInfo);
    }
    return status < 0 ? status : sd_bus_send(bus, made, nullptr);
}

std::optional<DistributedNotification> readNotification(sd_bus_message* message) {
    const char* name = nullptr;
    const char* object = nullptr;
    if (sd_bus_message_has_signature(message, wire::kSignature) <= 0 ||
        sd_bus_message_read(message, "ss", &name, &object) <= 0) {
        return {};
    }
    DistributedNotification notification{name, object, {}};
    if (!readInfo(message, notification.userInfo)) {
        return {};
    }
    return notification;
}

} // namespace krl::cf
