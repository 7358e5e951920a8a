#include "engine/phones/Device.h"

#include "engine/values/Cf.h"

#include <fmt/format.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace krl::engine {
namespace {

std::string valueOf(const Device& device, CFStringRef key) {
    const auto value = cf::adopt(AMDeviceCopyValue(device.get(), nullptr, key));
    return cf::text(cf::cast<CFStringRef>(value.get()));
}

} // namespace

std::string DeviceDescription::label() const {
    if (name.empty()) {
        return udid.empty() ? "the device" : udid;
    }
    return udid.empty() ? fmt::format("\"{}\"", name) : fmt::format("\"{}\" ({})", name, udid);
}

bool isKnownFirmware(const std::string& firmware) {
    const auto isOf = [&](const std::string& line) {
        return firmware == line || firmware.starts_with(line + ".");
    };
    return isOf("1.0") || isOf("1.1");
}

int firmwareNumberOf(const std::string& firmware) {
    constexpr int kUnknown = 1014;
    int major = 0;
    int minor = 0;
    int patch = 0;
    const int found = std::sscanf(firmware.c_str(), "%3d.%3d.%3d", &major, &minor, &patch);
    return found < 2 ? kUnknown : major * 1000 + minor * 10 + patch;
}

bool sameUdid(const std::string& left, const std::string& right) {
    return ::strcasecmp(left.c_str(), right.c_str()) == 0;
}

bool isWholeUdid(const std::string& text) {
    constexpr size_t kDigits = 40;
    return text.size() == kDigits && std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isxdigit(c) != 0;
           });
}

std::string nameOf(const Device& device) {
    return valueOf(device, CFSTR("DeviceName"));
}

DeviceDescription describe(const Device& device) {
    DeviceDescription result;
    result.connectStatus = AMDeviceConnect(device.get());
    if (result.connectStatus != 0) {
        return result;
    }
    result.udid = valueOf(device, CFSTR("UniqueDeviceID"));
    if (!result.udid.empty()) {
        result.deviceClass = valueOf(device, CFSTR("DeviceClass"));
    }
    // One that does not get to say what it is has fallen silent; it is no other kind of device.
    result.reachable = !result.deviceClass.empty();
    if (result.reachable) {
        result.name = nameOf(device);
        result.firmware = valueOf(device, CFSTR("ProductVersion"));
        result.paired = AMDeviceIsPaired(device.get()) != 0;
    }
    AMDeviceDisconnect(device.get());
    return result;
}

} // namespace krl::engine
