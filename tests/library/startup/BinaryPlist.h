/// Binary property lists as others write them.
#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace krl::testing {

struct FreePlist {
    void operator()(void* plist) const { plist_free(plist); }
};

using Plist = std::unique_ptr<void, FreePlist>;

inline std::string binaryOf(const Plist& plist) {
    char* bytes = nullptr;
    uint32_t size = 0;
    plist_to_bin(plist.get(), &bytes, &size);
    const std::string result(bytes, size);
    std::free(bytes);
    return result;
}

/// A dictionary of one string.
inline Plist informationPlist(const std::string& key, const std::string& value) {
    Plist dictionary(plist_new_dict());
    plist_dict_set_item(dictionary.get(), key.c_str(), plist_new_string(value.c_str()));
    return dictionary;
}

} // namespace krl::testing
