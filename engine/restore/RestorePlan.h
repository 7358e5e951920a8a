#pragma once

#include "engine/safe/Snapshot.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// One step towards another state of a phone.
struct RestoreStep {
    enum class Kind {
        CreateFolder,
        Move,           ///< file becomes newFile
        Upload,         ///< content goes to file, which is not there yet
        PlaceCatalogue, ///< file becomes the catalogue
        RemoveCatalogue,
        Remove,
        RemoveFolder
    };
    Kind kind = Kind::Upload;
    std::string file = {}; ///< in the ringtone folder
    std::string newFile = {};
    std::optional<Content> content = {};

    friend bool operator==(const RestoreStep&, const RestoreStep&) = default;
};

/// "move", "upload" and so on.
const char* stepName(RestoreStep::Kind kind);

/// What of a phone is ours to change: what a state of ours had, or what a job of ours left
/// unfinished.
struct OwnContents {
    std::set<Digest> files;
    std::set<Digest> catalogues;
    bool everything = false; ///< somebody has said so

    void add(const Snapshot& snapshot);
};

/// How a phone comes from one state into another.
struct RestorePlan {
    std::vector<RestoreStep> steps;
    uint64_t uploadBytes = 0;
    uint64_t spaceNeeded = 0; ///< bytes that are taken up at the worst moment beyond those now
    std::optional<uint64_t> freeBytes; ///< of the phone, when it was asked and says it
    std::vector<std::string> inTheWay; ///< files of others under names that are needed
    bool catalogueInTheWay = false;    ///< it is neither the wanted one nor ours
    std::vector<std::string> left;     ///< files of others that stay

    bool isBlocked() const { return catalogueInTheWay || !inTheWay.empty(); }

    bool hasRoom() const { return !freeBytes || spaceNeeded <= *freeBytes; }
};

/// Works out the steps. What is right stays, what has only moved is renamed, what is missing is
/// uploaded: under a free name first, so that a name has its content whole or not at all. The
/// catalogue comes after all that it lists, and what nobody needs any more goes after that.
///
/// Steps that were broken off are taken up by planning anew: what has come so far is found again by
/// its content, under whatever name.
///
/// @param roomFirst  what nobody needs goes before anything is uploaded, because there is no room
RestorePlan planRestore(const Snapshot& now, const Snapshot& target, OwnContents own,
                        bool roomFirst);

/// Whether a file is one that an upload of ours has left unfinished.
bool isTemporary(const std::string& name);

} // namespace krl::engine
