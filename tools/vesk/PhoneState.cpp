#include "PhoneState.h"

#include "Failure.h"

#include <fmt/format.h>

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
    for (const PhoneRingtone& ringtone : state.ringtones) {
        state.folder[ringtone.file] = ringtone.size;
    }
    std::vector<std::string> unknown;
    for (const std::string& file : names.value_or(std::vector<std::string>{})) {
        if (!state.folder.contains(file)) {
            unknown.push_back(file);
        }
    }
    const KeptConnected connected(session.phone(), unknown.size());
    for (const std::string& file : unknown) {
        if (const auto size = session.sizeOf(file)) {
            state.folder[file] = *size;
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
