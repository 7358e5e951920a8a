#pragma once

#include "engine/state/PhoneState.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace krl::engine {

/// A phone's ringtone folder and catalogue in memory: what is there, where it comes from, and how
/// much room that takes.
class PhonePicture {
public:
    struct File {
        std::string origin; ///< enough to tell whether it is the right ringtone
        uint64_t size = 0;
    };

    explicit PhonePicture(const PhoneState& phone);

    /// The origin of a file that was on the phone under this name.
    static std::string onPhone(const std::string& file) { return "phone:" + file; }

    /// The file of this name, or null.
    const File* find(const std::string& file) const;

    /// The names as a phone lists them: those that were there first keep their order.
    std::vector<std::string> names() const;

    /// Makes an empty file, or empties the one that is there.
    void create(const std::string& file, const std::string& origin);
    void grow(const std::string& file, uint64_t bytes);
    void rename(const std::string& from, const std::string& to);
    void remove(const std::string& file);

    const std::optional<std::string>& catalogue() const { return catalogue_; }

    void createCatalogue();
    void growCatalogue(std::string_view bytes);
    void removeCatalogue();

    bool folderExists() const { return folderExists_; }

    void createFolder() { folderExists_ = true; }

    /// Most space that was taken at any moment beyond what was taken at first.
    uint64_t mostSpace() const { return mostSpace_; }

private:
    void take(int64_t bytes);

    std::map<std::string, File> files_;
    std::vector<std::string> order_;
    std::set<std::string> listed_; ///< names in order_
    std::optional<std::string> catalogue_;
    bool folderExists_;
    int64_t taken_ = 0;
    uint64_t mostSpace_ = 0;
};

} // namespace krl::engine
