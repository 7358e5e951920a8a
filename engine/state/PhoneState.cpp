#include "engine/state/PhoneState.h"

#include "engine/errors/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

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

} // namespace

PhoneState readRingtones(OpenPhone& phone) {
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
