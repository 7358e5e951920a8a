#pragma once

#include "engine/state/PhoneState.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// One change on the phone.
struct Operation {
    enum class Kind {
        RemoveCatalogue, ///< the old one cannot be loaded
        CreateFolder,    ///< file, a whole path
        Rename,          ///< file becomes newFile
        Upload,          ///< source goes to file
        Placeholder,     ///< an empty file for a ringtone of another type
        Remove,          ///< the file of a removed ringtone, or its placeholder
        WriteCatalogue,
        DeleteStray ///< a file that the new catalogue does not account for
    };
    Kind kind = Kind::Upload;
    std::string file = {};
    std::string newFile = {};
    std::string name = {};   ///< of the ringtone; empty where there is none
    std::string source = {}; ///< on this computer
    uint64_t bytes = 0;

    friend bool operator==(const Operation&, const Operation&) = default;
};

/// "rename", "upload" and so on.
const char* operationName(Operation::Kind kind);

/// A ringtone that the phone has, but that the library does not see.
struct HiddenRingtone {
    std::string name;
    std::string file;

    friend bool operator==(const HiddenRingtone&, const HiddenRingtone&) = default;
};

/// What a sync does, found out by letting the library do it without the phone.
struct Plan {
    std::vector<Operation> operations; ///< in the order in which they happen
    size_t moved = 0;                  ///< ringtones that get another file name
    uint64_t uploadBytes = 0;
    uint64_t spaceNeeded = 0; ///< most space that it takes at any moment beyond what is taken

    std::vector<std::string> strays;    ///< files that will be deleted and that no catalogue lists
    std::vector<std::string> lost;      ///< names that should stay or come, but would not be there
    std::vector<HiddenRingtone> hidden; ///< deleted or emptied although nobody asked for it

    std::map<std::string, uint64_t> afterwards; ///< names on the phone and their sizes
    std::string catalogue;                      ///< the new catalogue's bytes
    bool changesAnything = false;

    size_t count(Operation::Kind kind) const;
};

/// The lists of the working list that a sync is made from.
struct ChangeLists {
    CFDictionaryRef added = nullptr;
    CFDictionaryRef removed = nullptr;
    CFDictionaryRef unchanged = nullptr; ///< null: the phone's list cannot be loaded
};

/// Lets the library carry the lists out over a picture of the phone, and notes what it does.
/// Nothing is written on the phone, and nothing read from it that `before` has.
/// @throw Failure when the library gives up
Plan rehearse(OpenPhone& phone, const PhoneState& before, const ChangeLists& lists);

/// What is done before the library's part, under its lock: the catalogue's folder is made where it
/// is missing, and a catalogue that cannot be loaded is removed, as there is no sync with it.
/// @return why it failed, after which the rest is not to be done
krl::cf::CFRef<CFErrorRef> makeReady(OpenPhone& phone, const PhoneState& before,
                                     bool dropsCatalogue);

} // namespace krl::engine
