#include "engine/plan/Change.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"

#include <memory>

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
                         cf::number(static_cast<int64_t>(ringtone.size)).get());
    return entry;
}

/// Sorts the ringtones of the change lists into the change and the plan's input.
void sortRingtones(CFDictionaryRef changeLists, PreparedChange& prepared, PlanInput& input) {
    input.unchanged = ringtonesIn(changeLists, kUnchangedList).value_or(input.unchanged);
    input.removed = ringtonesIn(changeLists, kRemovedList).value_or(input.removed);
    for (const PhoneRingtone& ringtone : input.unchanged) {
        prepared.wanted[ringtone.name] = ringtone.size;
    }
    for (const PhoneRingtone& ringtone : input.removed) {
        prepared.removed.insert(ringtone.name);
    }
    for (const auto& [key, value] : cf::pairs(cf::dictionaryAt(changeLists, kAddedList))) {
        const auto entry = cf::cast<CFDictionaryRef>(value);
        const NewRingtone ringtone{
            cf::textAt(entry, KRTRingtoneName), cf::textAt(entry, KRTLocalPath),
            static_cast<uint64_t>(cf::numberAt(entry, KRTFileSize).value_or(0))};
        input.added.push_back(ringtone);
        prepared.added.insert(ringtone.name);
        prepared.wanted[ringtone.name] = ringtone.size;
    }
}

struct ReleaseStore {
    void operator()(KRTRingtoneManagerRef store) const { KRTRingtoneManagerRelease(store); }
};

void generate(Session& session, CFDictionaryRef changeLists, const PhoneState& state,
              PlanInput& input) {
    session.expectOperations(input.unchanged.size());
    KRTErrorClear();
    // No object says what a sync would write. The function behind the sync does, for a store record
    // of its own.
    const std::unique_ptr<__KRTRingtoneManager, ReleaseStore> store(
        KRTRingtoneManagerForPhone(session.phone()._phoneRef()));
    CFMutableDictionaryRef rawCatalogue = nullptr;
    CFMutableDictionaryRef rawRenames = nullptr;
    if (!store ||
        KRTRingtoneManagerGeneratePList(store.get(), cf::dictionaryAt(changeLists, kAddedList),
                                        cf::dictionaryAt(changeLists, kRemovedList),
                                        cf::dictionaryAt(changeLists, kUnchangedList),
                                        &rawCatalogue, &rawRenames) != 1) {
        throw session.readFailure("the new catalogue cannot be worked out");
    }
    const auto catalogue = cf::adopt(rawCatalogue);
    const auto renames = cf::adopt(rawRenames);
    session.requireConnection();
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

void addRingtones(KRTRingtoneManager& tones, const std::vector<LocalRingtone>& added) {
    for (const LocalRingtone& ringtone : added) {
        tones.addRingtone(newEntry(ringtone).get());
    }
}

void removeRingtones(KRTRingtoneManager& tones, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        tones.removeRingtone(tones.ringtoneForName(cf::string(name).get()).get());
    }
}

void makeHold(Session& session, const PhoneState& state, const std::vector<LocalRingtone>& wanted) {
    constexpr size_t kCatalogueOperations = 2;
    session.expectOperations(state.catalogue.entries.size() + kCatalogueOperations);
    KRTRingtoneManager& tones = session.tones();
    const auto list = cf::dictionary();
    for (const LocalRingtone& ringtone : wanted) {
        CFDictionarySetValue(list.get(), cf::string(ringtone.name).get(), newEntry(ringtone).get());
    }
    KRTErrorClear();
    tones.compareList(list.get());
    session.requireConnection();

    // It tells ringtones apart by name alone: one of another size is to be replaced.
    std::vector<LocalRingtone> replaced;
    for (const LocalRingtone& ringtone : wanted) {
        const auto now = tones.ringtoneForName(cf::string(ringtone.name).get());
        if (cf::numberAt(now.get(), KRTFileSize) != static_cast<int64_t>(ringtone.size)) {
            replaced.push_back(ringtone);
        }
    }
    addRingtones(tones, replaced);

    // It keeps m4r files that came from elsewhere, asked for or not.
    const auto managed = tones.currentRingtonesManaged();
    for (CFIndex i = 0; i < CFArrayGetCount(managed.get()); ++i) {
        const auto ringtone = static_cast<CFMutableDictionaryRef>(
            const_cast<void*>(CFArrayGetValueAtIndex(managed.get(), i)));
        if (!CFDictionaryContainsKey(list.get(), CFDictionaryGetValue(ringtone, KRTRingtoneName))) {
            tones.removeRingtone(ringtone);
        }
    }
}

PreparedChange prepare(Session& session, const PhoneState& state) {
    const auto changeLists = session.tones().generateChangeLists();
    PreparedChange prepared;
    PlanInput input;
    input.dropsCatalogue = cf::dictionaryAt(changeLists.get(), kUnchangedList) == nullptr;
    if (input.dropsCatalogue && !state.catalogueIsUnreadable()) {
        throw session.readFailure("the ringtones cannot be read");
    }
    sortRingtones(changeLists.get(), prepared, input);
    generate(session, changeLists.get(), state, input);
    input.oldCatalogue = state.catalogue.entries;
    input.folderExists = state.folderExists;
    input.folder = state.folder;
    input.olderLayout = state.facts.olderLayout;
    prepared.plan = makePlan(input);
    prepared.catalogueEntries = input.newCatalogue.size();
    return prepared;
}

} // namespace vesk
