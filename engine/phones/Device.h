#pragma once

#include <MobileDevice/MobileDevice.h>

#include <cstdint>
#include <string>
#include <utility>

namespace krl::engine {

/// One reference on a device.
class Device {
public:
    explicit Device(am_device* device) : device_(AMDeviceRetain(device)) {}

    Device(const Device& other) : Device(other.device_) {}

    Device& operator=(const Device& other) {
        Device copy(other);
        std::swap(device_, copy.device_);
        return *this;
    }

    ~Device() { AMDeviceRelease(device_); }

    am_device* get() const { return device_; }

    friend bool operator==(const Device& left, const Device& right) {
        return left.device_ == right.device_;
    }

private:
    am_device* device_;
};

/// What a device says of itself without a session, paired or not.
struct DeviceDescription {
    bool reachable = false; ///< it says what it is; otherwise at most its UDID is known
    int32_t connectStatus = 0;
    bool paired = false;
    std::string udid;
    std::string name;
    std::string deviceClass;
    std::string firmware;

    bool isIphone() const { return deviceClass == "iPhone"; }

    /// How to call it in a message: its name and UDID as far as they are known.
    std::string label() const;
};

/// A connection to a device for the length of a scope.
class Connection {
public:
    explicit Connection(const Device& device)
        : device_(device), status_(AMDeviceConnect(device.get())) {}

    ~Connection() {
        if (status_ == 0) {
            AMDeviceDisconnect(device_.get());
        }
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int32_t status() const { return status_; }

private:
    Device device_;
    int32_t status_;
};

/// A firmware's number as the library has it: 1011 for "1.1.1"; 1014 for what is no version.
int firmwareNumberOf(const std::string& firmware);

/// Whether custom ringtones are known to work on a firmware: 1.0.x and 1.1.x.
bool isKnownFirmware(const std::string& firmware);

/// UDIDs are hexadecimal digits of either case.
bool sameUdid(const std::string& left, const std::string& right);

/// Whether a text can be nothing but a whole UDID of the phones that there were: 40 such digits.
bool isWholeUdid(const std::string& text);

/// The name of a connected device; empty when it does not tell.
std::string nameOf(const Device& device);

/// Connects, asks, disconnects. A device that is silent takes one deadline, not one a value.
DeviceDescription describe(const Device& device);

} // namespace krl::engine
