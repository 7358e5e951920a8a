#include "engine/state/PhoneState.h"

#include "engine/errors/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace krl::engine {
namespace {

std::vector<std::string> sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

void readFolder(OpenPhone& phone, PhoneState& state) {
    const auto names = phone.folderNames();
    state.folderExists = names.has_value();
    std::map<std::string, uint64_t> sizes;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        sizes[ringtone.file] = ringtone.size;
    }
    state.names = names.value_or(std::vector<std::string>{});
    for (const std::string& file : state.names) {
        const auto known = sizes.find(file);
        const auto size = known != sizes.end() ? known->second : phone.sizeOf(file);
        if (size) {
            state.folder.push_back({file, *size});
        }
    }
}

/// The files of entries that the library should have seen and has not, whether or not they are there.
std::vector<std::string> passedOver(const PhoneState& state) {
    std::set<std::string> files;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        files.insert(ringtone.file);
    }
    const std::set<std::string> names = namesOf(state.ringtones);
    std::vector<std::string> passed;
    for (const CatalogueEntry& entry : state.catalogue.entries) {
        // Of several with one name it sees one.
        const bool isVisible = !entry.malformed && !entry.isPlaceholder() && entry.hasPlainFile() &&
                               !entry.name.empty() && !names.contains(entry.name);
        if (isVisible && !files.contains(entry.file)) {
            passed.push_back(entry.file);
        }
    }
    return passed;
}

/// Whether the library has seen all that is there. It takes a file whose size the phone does not tell
/// for one that is not there, and says nothing.
bool isWhole(OpenPhone& phone, const PhoneState& state) {
    const std::vector<std::string> passed = passedOver(state);
    if (passed.empty()) {
        return true;
    }
    const auto listed = phone.folderNames().value_or(std::vector<std::string>{});
    const std::set<std::string> names(listed.begin(), listed.end());
    return std::none_of(passed.begin(), passed.end(), [&](const std::string& file) {
        return names.contains(file) && phone.sizeOf(file).has_value();
    });
}

PhoneState readOnce(OpenPhone& phone) {
    PhoneState state;
    state.facts = phone.facts();
    state.catalogueFile = phone.catalogueFile();
    if (state.catalogueFile) {
        state.catalogue = readCatalogue(*state.catalogueFile);
    }
    if (!state.catalogueIsUnreadable()) {
        state.ringtones = phone.ringtones();
    }
    return state;
}

} // namespace

PhoneState readRingtones(OpenPhone& phone) {
    PhoneState state = readOnce(phone);
    if (!isWhole(phone, state)) {
        state = readOnce(phone);
        if (!isWhole(phone, state)) {
            throw phone.readFailure("the ringtones cannot be read");
        }
    }
    return state;
}

PhoneState readEverything(OpenPhone& phone) {
    PhoneState state = readRingtones(phone);
    if (!state.catalogueFile) {
        for (const char* folder : {kControlFolder, kCatalogueFolder}) {
            if (!phone.hasFolder(folder)) {
                state.missingFolders.emplace_back(folder);
            }
        }
    }
    readFolder(phone, state);
    return state;
}

void requireReadableCatalogue(const PhoneState& state) {
    if (state.catalogueIsUnreadable()) {
        throw Failure(
            FailureKind::CatalogueUnreadable,
            fmt::format("the ringtone catalogue of {} ({}) cannot be read as a property "
                        "list with \"Ringtones\"",
                        state.facts.label(), kCataloguePath),
            "\"vesk rebuild\" makes a new one that lists the ringtone files again, and so "
            "do add, remove and sync with --rebuild. With --force they delete every "
            "ringtone file on the phone instead; copies are kept (vesk undo). Nothing "
            "was changed on the phone.");
    }
}

bool isAsRead(OpenPhone& phone, const PhoneState& state) {
    return phone.catalogueFile() == state.catalogueFile &&
           sorted(phone.folderNames().value_or(std::vector<std::string>{})) == sorted(state.names);
}

} // namespace krl::engine
