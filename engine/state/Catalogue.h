#pragma once

#include "engine/values/Cf.h"

#include <cstddef>
#include <string>
#include <vector>

namespace krl::engine {

/// One line of a ringtone catalogue.
struct CatalogueEntry {
    std::string file;
    std::string name;
    std::string guid;
    size_t keyCount = 0;
    bool hasLocalPath = false;
    bool malformed = false; ///< it is no dictionary; nothing is known but the file

    /// Whether the library takes it for the placeholder of another ringtone rather than a ringtone.
    bool isPlaceholder() const;

    /// Whether it is about a file in the ringtone folder. Any other key is damage, and may point
    /// anywhere on the phone.
    bool hasPlainFile() const;
};

/// A ringtone catalogue as it was read. Not usable when it is no XML property list with a
/// dictionary of entries under "Ringtones".
struct Catalogue {
    bool usable = false;
    std::vector<CatalogueEntry> entries;  ///< in the order of the document
    cf::CFRef<CFDictionaryRef> ringtones; ///< file name to entry
};

/// Reads a catalogue's bytes.
Catalogue readCatalogue(const std::string& bytes);

/// The keys of a catalogue that are not the name of one file.
std::vector<std::string> strangeKeys(const Catalogue& catalogue);

/// The entries of a dictionary from file name to entry, in its order.
std::vector<CatalogueEntry> catalogueEntries(CFDictionaryRef ringtones);

} // namespace krl::engine
