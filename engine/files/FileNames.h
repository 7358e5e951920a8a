#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace krl::engine {

/// Names for files on this computer, near to what a person calls their contents, that every file
/// system takes: those of other systems are stricter, and files travel.
class FileNames {
public:
    /// Nothing is given this name.
    void reserve(const std::string& name) { take(name); }

    /// A name that was not given away before, not even with other letters in upper case; of those
    /// that want the same one, the later get " (2)", " (3)" and so on.
    /// @param extension without the point; empty: none
    std::string give(std::string_view title, std::string_view extension);

private:
    bool take(const std::string& name);

    std::set<std::string> taken_;              ///< without case, as some file systems have it
    std::map<std::string, size_t> lastNumber_; ///< of those that want a taken name; likewise
};

/// A title as such a name without an extension: without characters that a file system or a terminal
/// takes for something else, without points and spaces at its ends, no longer than leaves room for a
/// number and an extension, and none that means a device.
std::string fileNameFor(std::string_view title);

} // namespace krl::engine
