/// A phone on a bus of its own, in a temporary folder, where clients in this process find it.
#pragma once

#include "tests/support/TemporaryFolder.h"
#include "virtualphone/VirtualPhone.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

namespace virtualphone::testing {

/// Points USBMUXD_SOCKET_ADDRESS at a bus; puts back what was there. Set it up before threads.
class SocketEnvironment {
public:
    explicit SocketEnvironment(const Bus& bus) {
        if (const char* old = std::getenv(kName)) {
            old_ = old;
            wasSet_ = true;
        }
        setenv(kName, bus.environmentValue().c_str(), 1);
    }

    ~SocketEnvironment() {
        if (wasSet_) {
            setenv(kName, old_.c_str(), 1);
        } else {
            unsetenv(kName);
        }
    }

    SocketEnvironment(const SocketEnvironment&) = delete;
    SocketEnvironment& operator=(const SocketEnvironment&) = delete;

private:
    static constexpr const char* kName = "USBMUXD_SOCKET_ADDRESS";
    std::string old_;
    bool wasSet_ = false;
};

/// One healthy phone of firmware 1.1.1, plugged in. Change options before SetUp in a derived
/// fixture's constructor, or make further phones with makePhone.
class VirtualPhoneTest : public ::testing::Test {
private:
    TemporaryFolder folder_;

protected:
    PhoneOptions options{.root = folder_.path() / "phone"};

    void SetUp() override {
        phone_ = std::make_shared<Phone>(options);
        id_ = bus_.plug(phone_);
    }

    /// Another phone with a folder of its own, not plugged in.
    std::shared_ptr<Phone> makePhone(const std::string& name, PhoneOptions other = {}) {
        other.root = folder_.path() / name;
        other.name = name;
        return std::make_shared<Phone>(other);
    }

    /// The phone that was plugged in by SetUp, and its DeviceID.
    Phone& phone() { return *phone_; }

    std::shared_ptr<Phone> phonePointer() { return phone_; }

    uint32_t id() const { return id_; }

    Bus& bus() { return bus_; }

    RequestLog& log() { return bus_.log(); }

    /// Where a path of the phone is on this computer.
    std::filesystem::path onDisk(std::string_view phonePath) const {
        while (phonePath.starts_with('/')) {
            phonePath.remove_prefix(1);
        }
        return options.root / phonePath;
    }

    /// Puts a file onto the phone behind the services' back, with its folders.
    void put(std::string_view phonePath, std::string_view contents) {
        const std::filesystem::path path = onDisk(phonePath);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contents;
    }

    /// The contents of a file on the phone; empty when there is none.
    std::string contents(std::string_view phonePath) const {
        std::ifstream file(onDisk(phonePath), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    bool exists(std::string_view phonePath) const {
        return std::filesystem::exists(std::filesystem::symlink_status(onDisk(phonePath)));
    }

    /// Pulls the phone out and plugs it in again, under a new DeviceID.
    void replug() {
        bus_.unplug(id_);
        id_ = bus_.plug(phone_);
    }

    const std::filesystem::path& temporaryFolder() const { return folder_.path(); }

private:
    Bus bus_;
    SocketEnvironment environment_{bus_};
    std::shared_ptr<Phone> phone_;
    uint32_t id_ = 0;
};

} // namespace virtualphone::testing
