#pragma once

#include "engine/errors/Failure.h"
#include "engine/phones/Device.h"

#include <MobileDevice/MobileDevice.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krl::engine {

/// A call of the file service that failed.
class PhoneFileFailure : public Failure {
public:
    PhoneFileFailure(FailureKind kind, const std::string& sentence, const std::string& advice,
                     int32_t status)
        : Failure(kind, sentence, advice), status_(status) {}

    int32_t status() const { return status_; }

private:
    int32_t status_;
};

/// A phone's files over a connection of their own, which knows names of any bytes. Beside the
/// library's: that one's counts, its sync lock and its lists stay as they are.
class PhoneFiles {
public:
    /// The device's lockdown connection is made anew and left standing, since it may be the
    /// library's too.
    /// @throw PhoneFileFailure
    explicit PhoneFiles(am_device* device);
    ~PhoneFiles();
    PhoneFiles(const PhoneFiles&) = delete;
    PhoneFiles& operator=(const PhoneFiles&) = delete;

    struct Information {
        uint64_t size = 0;
        bool isRegular = false;
        std::string modified; ///< as the phone writes it; early ones say nothing
    };

    using Take = std::function<void(std::string_view)>;

    // All of these throw PhoneFileFailure.

    /// Names in a folder; none when there is no such folder.
    std::optional<std::vector<std::string>> list(const std::string& folder);

    /// Nothing when there is no such file.
    std::optional<Information> information(const std::string& path);

    /// Gives a file piece by piece, to its end. The phone is asked for little in vain where it is as
    /// long as it is said to be.
    /// @return whether there is one
    bool read(const std::string& path, const Take& take,
              std::optional<uint64_t> size = std::nullopt);

    /// Makes a file, or empties one that is there, and has it filled piece by piece.
    void write(const std::string& path, const std::function<void(const Take& put)>& fill);

    /// Renames; a file of the new name is replaced.
    void rename(const std::string& from, const std::string& to);

    void remove(const std::string& path);
    void makeFolder(const std::string& path);

    /// Free bytes of the phone; none when it does not say.
    std::optional<uint64_t> freeBytes();

    /// All bytes of the phone, free or taken; none when it does not say.
    std::optional<uint64_t> totalBytes();

    /// Whether anything has been sent that changes the phone.
    bool hasChanged() const { return hasChanged_; }

private:
    std::optional<uint64_t> deviceNumber(const char* key);
    void require(int32_t status, const std::string& what) const;
    void requireChange(int32_t status, const std::string& what);

    Device device_;
    afc_connection* files_ = nullptr;
    std::unique_ptr<char[]> piece_; ///< what is read comes here; made once
    bool hasChanged_ = false;
};

} // namespace krl::engine
