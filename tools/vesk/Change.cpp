#include "Change.h"

#include "Failure.h"
#include "Status.h"

#include <set>

namespace vesk {
namespace {

cf::CFRef<CFMutableDictionaryRef> newEntry(const LocalRingtone& ringtone) {
    const auto uuid = cf::adopt(CFUUIDCreate(nullptr));
    const auto guid = cf::adopt(CFUUIDCreateString(nullptr, uuid.get()));
    auto entry = cf::dictionary();
    CFDictionarySetValue(entry.get(), KRTFileKey, guid.get());
    CFDictionarySetValue(entry.get(), KRTRingtoneName, cf::string(ringtone.name).get());
    CFDictionarySetValue(entry.get(), KRTLocalPath, cf::string(ringtone.path).get());
    CFDictionarySetValue(entry.get(), CFSTR("FileType"), cf::string(ringtone.type).get());
    CFDictionarySetValue(entry.get(), KRTFileSize,
                         cf::number(static_cast<std::int64_t>(ringtone.size)).get());
    return entry;
}

void sortRingtones(const PhoneState& state, const Change& change, PreparedChange& prepared,
                   PlanInput& input) {
    const std::set<std::string> removed(change.removed.begin(), change.removed.end());
    prepared.added = cf::dictionary();
    prepared.removed = cf::dictionary();
    prepared.unchanged = cf::dictionary();
    const auto entries = cf::pairs(state.ringtones.entries.get());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const PhoneRingtone& ringtone = state.ringtones.list[i];
        const bool goes = removed.contains(ringtone.name);
        CFDictionarySetValue(goes ? prepared.removed.get() : prepared.unchanged.get(),
                             entries[i].first, entries[i].second);
        (goes ? input.removed : input.unchanged).push_back(ringtone);
        if (!goes) {
            prepared.wanted[ringtone.name] = ringtone.size;
        }
    }
    for (const LocalRingtone& ringtone : change.added) {
        CFDictionarySetValue(prepared.added.get(), cf::string(ringtone.name).get(),
                             newEntry(ringtone).get());
        input.added.push_back({ringtone.name, ringtone.path, ringtone.size});
        prepared.wanted[ringtone.name] = ringtone.size;
    }
}

void generate(Session& session, const PreparedChange& prepared, const PhoneState& state,
              PlanInput& input) {
    const KeptConnected connected(session.phone(), input.unchanged.size());
    KRTErrorClear();
    CFMutableDictionaryRef rawCatalogue = nullptr;
    CFMutableDictionaryRef rawRenames = nullptr;
    if (KRTRingtoneManagerGeneratePList(session.store(), prepared.added.get(),
                                        prepared.removed.get(), prepared.unchanged.get(),
                                        &rawCatalogue, &rawRenames) != 1) {
        throw session.readFailure("the new catalogue cannot be worked out");
    }
    const auto catalogue = cf::adopt(rawCatalogue);
    const auto renames = cf::adopt(rawRenames);
    input.newCatalogue = catalogueEntries(catalogue.get());
    for (const auto& [key, value] : cf::pairs(renames.get())) {
        const auto record = cf::cast<CFDictionaryRef>(value);
        input.moves[cf::text(cf::cast<CFStringRef>(key))] =
            cf::textAt(record, CFSTR("new")) + "." + cf::textAt(record, CFSTR("fileType"));
    }
    const std::string bytes = catalogueBytes(catalogue.get());
    const bool bothEmpty = !state.catalogueFile && input.newCatalogue.empty();
    input.newCatalogueBytes = bytes.size();
    input.oldCatalogueBytes = state.catalogueFile.value_or("").size();
    input.sameCatalogue = bothEmpty || state.catalogueFile == bytes;
}

} // namespace

PreparedChange prepare(Session& session, const PhoneState& state, const Change& change) {
    PreparedChange prepared;
    PlanInput input;
    sortRingtones(state, change, prepared, input);
    generate(session, prepared, state, input);
    input.oldCatalogue = state.catalogue.entries;
    input.folderExists = state.folderExists;
    input.folder = state.folder;
    input.olderLayout = state.facts.olderLayout;
    prepared.plan = makePlan(input);
    return prepared;
}

} // namespace vesk
