#pragma once

#include "engine/state/Catalogue.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vesk {

/// A ringtone that is on the phone.
struct PhoneRingtone {
    std::string name;
    std::string guid;
    std::string type;      ///< as the library says it: the last three characters of the file name
    std::string file;      ///< in the ringtone folder
    std::string companion; ///< the name that its placeholder has or would have
    uint64_t size = 0;
};

/// A ringtone that is to go there.
struct NewRingtone {
    std::string name;
    std::string path; ///< on this computer
    uint64_t size = 0;
};

/// One change on the phone.
struct Operation {
    enum class Kind {
        RemoveCatalogue, ///< the old one cannot be loaded
        CreateFolder,
        Rename,      ///< file becomes newFile
        Upload,      ///< source goes to file
        Placeholder, ///< an empty file for a ringtone of another type
        Remove,      ///< the file of a removed ringtone, or its placeholder
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

/// A file in the phone's ringtone folder.
struct FolderFile {
    std::string name;
    uint64_t size = 0;
};

/// What a sync starts from and what the library would make of it.
struct PlanInput {
    std::vector<NewRingtone> added;
    std::vector<PhoneRingtone> removed;
    std::vector<PhoneRingtone> unchanged;

    std::vector<CatalogueEntry> oldCatalogue; ///< as it is on the phone
    std::vector<CatalogueEntry> newCatalogue; ///< as the library generates it
    std::map<std::string, std::string> moves; ///< GUID to the new file name, likewise

    bool dropsCatalogue = false; ///< the old one cannot be loaded and goes before all else
    bool folderExists = true;
    std::vector<FolderFile> folder; ///< in the order in which the phone lists it
    bool olderLayout = false;       ///< the firmware wants placeholders
    uint64_t oldCatalogueBytes = 0;
    uint64_t newCatalogueBytes = 0;
    bool sameCatalogue = false; ///< old and new are equal byte for byte
};

/// A ringtone that the phone has, but that the library does not see.
struct HiddenRingtone {
    std::string name;
    std::string file;

    friend bool operator==(const HiddenRingtone&, const HiddenRingtone&) = default;
};

/// What a sync does, found out by going through it without a phone.
struct Plan {
    std::vector<Operation> operations; ///< in the order in which they happen
    size_t moved = 0;                  ///< ringtones that get another file name
    uint64_t uploadBytes = 0;
    uint64_t spaceNeeded = 0; ///< most space that it takes at any moment beyond what is taken

    std::vector<std::string> strays;    ///< files that will be deleted and that no catalogue lists
    std::vector<std::string> lost;      ///< names that should stay or come, but would not be there
    std::vector<HiddenRingtone> hidden; ///< deleted or emptied although nobody asked for it

    size_t count(Operation::Kind kind) const;
    bool changesAnything = false;
};

Plan makePlan(const PlanInput& input);

} // namespace vesk
