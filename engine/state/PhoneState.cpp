#include "engine/state/PhoneState.h"

#include "engine/errors/Failure.h"

#include <fmt/format.h>

#include <map>

namespace vesk {
namespace {

Failure catalogueUnreadable(const PhoneFacts& facts) {
    return {ExitCode::CatalogueUnreadable,
            fmt::format("the ringtone catalogue of {} ({}) cannot be read as a property list with "
                        "\"Ringtones\"",
                        facts.label(), kCataloguePath),
            "Writing now would delete every ringtone file on the phone. Save that file and the "
            "folder \"/iTunes_Control/Ringtones\" first; then repeat add, remove or sync with "
            "--force. Nothing was changed on the phone."};
}

void readFolder(Session& session, PhoneState& state) {
    const auto names = session.folderNames();
    state.folderExists = names.has_value();
    std::map<std::string, uint64_t> sizes;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        sizes[ringtone.file] = ringtone.size;
    }
    for (const std::string& file : names.value_or(std::vector<std::string>{})) {
        const auto known = sizes.find(file);
        const auto size = known != sizes.end() ? known->second : session.sizeOf(file);
        if (size) {
            state.folder.push_back({file, *size});
        }
    }
}

} // namespace

PhoneState readRingtones(Session& session, bool tolerateUnreadable) {
    PhoneState state;
    state.facts = session.facts();
    state.catalogueFile = session.catalogueFile();
    if (state.catalogueFile) {
        state.catalogue = readCatalogue(*state.catalogueFile);
    }
    if (!state.catalogueIsUnreadable()) {
        state.ringtones = session.ringtones(state.catalogue.entries.size());
    } else if (!tolerateUnreadable) {
        throw catalogueUnreadable(state.facts);
    }
    return state;
}

PhoneState readEverything(Session& session, bool tolerateUnreadable) {
    PhoneState state = readRingtones(session, tolerateUnreadable);
    readFolder(session, state);
    return state;
}

} // namespace vesk
