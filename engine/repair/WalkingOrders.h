#pragma once

#include "engine/state/Catalogue.h"

#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// The files of a catalogue that firmware with placeholders might not find, because it comes upon the
/// ringtone before its placeholder: in the catalogue's order, sorted, or in that of the next load;
/// with a table that has room for all entries from the beginning, and with one that grows while they
/// are read.
std::set<std::string> filesAheadOfPlaceholders(const std::vector<CatalogueEntry>& entries);

} // namespace krl::engine
