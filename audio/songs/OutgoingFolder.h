#pragma once

#include <filesystem>
#include <string>

namespace krl::audio {

/// A folder for ringtones on their way to a phone, which the library reads from files. It goes with
/// this object; one that a program left behind when it ended goes with the next one.
class OutgoingFolder {
public:
    /// @throw Failure when there is no place for it
    OutgoingFolder();

    ~OutgoingFolder();

    OutgoingFolder(const OutgoingFolder&) = delete;
    OutgoingFolder& operator=(const OutgoingFolder&) = delete;

    /// Puts a ringtone into a file.
    /// @return its absolute path
    /// @throw Failure when it cannot be written
    std::string put(const std::string& name, const std::string& bytes);

private:
    std::filesystem::path path_;
    int lock_ = -1; ///< held for as long as the folder is in use
};

} // namespace krl::audio
