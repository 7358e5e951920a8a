// Listings that came from the phone whole and are handed out item by item.
#pragma once

#include "mobiledevice/provider/devices/Handles.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace krl::provider {

/// The names in a directory. Strings live as long as the object.
class Directory final : public Object {
public:
    /// Of names that are each ended by a zero; null if the bytes are anything else.
    static std::shared_ptr<Directory> parse(std::vector<char> bytes);

    /// Null at the end.
    char* next();

private:
    explicit Directory(std::vector<char> bytes);

    std::vector<char> bytes_;
    size_t position_ = 0;
};

/// Keys, each with its value. Strings live as long as the object.
class KeyValues final : public Object {
public:
    /// Of keys and values in turn, each ended by a zero; null if the bytes are anything else.
    static std::shared_ptr<KeyValues> parse(std::vector<char> bytes);

    /// Null and null at the end.
    std::pair<char*, char*> next();

private:
    explicit KeyValues(std::vector<char> bytes);

    std::vector<char> bytes_;
    size_t position_ = 0;
};

} // namespace krl::provider
