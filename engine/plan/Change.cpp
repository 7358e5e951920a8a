#include "engine/plan/Change.h"

#include "engine/errors/Failure.h"
#include "engine/plan/Rehearsal.h"

#include <map>

namespace krl::engine {
namespace {

cf::CFRef<CFStringRef> newGuid() {
    const auto uuid = cf::adopt(CFUUIDCreate(nullptr));
    return cf::adopt(CFUUIDCreateString(nullptr, uuid.get()));
}

cf::CFRef<CFMutableDictionaryRef> newEntry(const LocalRingtone& ringtone,
                                           const cf::CFRef<CFStringRef>& guid = newGuid()) {
    auto entry = cf::dictionary();
    CFDictionarySetValue(entry.get(), KRTFileKey, guid.get());
    CFDictionarySetValue(entry.get(), KRTRingtoneName, cf::string(ringtone.name).get());
    CFDictionarySetValue(entry.get(), KRTLocalPath, cf::string(ringtone.path).get());
    CFDictionarySetValue(entry.get(), CFSTR("FileType"), cf::string(ringtone.type).get());
    CFDictionarySetValue(entry.get(), KRTFileSize,
                         cf::number(static_cast<int64_t>(ringtone.size)).get());
    if (ringtone.source) {
        CFDictionarySetValue(entry.get(), kSourceKey,
                             cf::string(sourceText(*ringtone.source, ringtone.size)).get());
    }
    return entry;
}

/// The ringtone of that name in the working list.
std::optional<PhoneRingtone> named(KRTRingtoneManager& tones, const std::string& name) {
    const auto entry = tones.ringtoneForName(cf::string(name).get());
    return entry ? std::optional(ringtoneOf(entry.get())) : std::nullopt;
}

/// The library's own comparison, and what it leaves out.
void compareWith(OpenPhone& phone, const PhoneState& state,
                 const std::vector<LocalRingtone>& wanted) {
    phone.keepOpen();
    KRTRingtoneManager& tones = phone.tones();
    // The comparison loads the phone's list once more, with a question for each file.
    Rehearsal known(state);
    const layer::Redirection redirection(phone.phone()._rawDevice(), known);
    const auto list = cf::dictionary();
    for (const LocalRingtone& ringtone : wanted) {
        CFDictionarySetValue(list.get(), cf::string(ringtone.name).get(), newEntry(ringtone).get());
    }
    KRTErrorClear();
    tones.compareList(list.get());
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

/// The names that a change gives to ringtones which stay on the phone.
std::vector<std::pair<std::string, std::string>> renamedIn(const PhoneState& state,
                                                           CFDictionaryRef unchanged) {
    std::map<std::string, std::string> nameOf;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        nameOf[ringtone.file] = ringtone.name;
    }
    std::vector<std::pair<std::string, std::string>> renamed;
    for (const PhoneRingtone& ringtone :
         ringtonesOf(unchanged).value_or(std::vector<PhoneRingtone>{})) {
        const auto before = nameOf.find(ringtone.file);
        if (before != nameOf.end() && before->second != ringtone.name) {
            renamed.emplace_back(before->second, ringtone.name);
        }
    }
    return renamed;
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

void replaceRingtones(KRTRingtoneManager& tones, const std::vector<LocalRingtone>& replacements) {
    for (const LocalRingtone& ringtone : replacements) {
        const auto old = named(tones, ringtone.name);
        if (old && isMadeOf(*old, ringtone)) {
            continue;
        }
        const bool hasGuid = old && !old->guid.empty();
        const auto guid = hasGuid ? cf::string(old->guid) : newGuid();
        tones.addRingtone(newEntry(ringtone, guid).get());
    }
}

// The list is merged with a catalogue in which the ringtone has the new name: the library drops what
// the catalogue does not name, without taking it for removed, and takes what it names as on the phone.
void renameRingtone(KRTRingtoneManager& tones, const std::string& from, const std::string& to) {
    const auto entries = cf::dictionary();
    const auto managed = tones.currentRingtonesManaged();
    for (CFIndex i = 0; i < CFArrayGetCount(managed.get()); ++i) {
        const auto ringtone =
            static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(managed.get(), i));
        const std::string path = cf::textAt(ringtone, KRTRemotePath);
        const auto entry = cf::adopt(CFDictionaryCreateMutableCopy(nullptr, 0, ringtone));
        if (cf::textAt(ringtone, KRTRingtoneName) == from) {
            CFDictionarySetValue(entry.get(), KRTRingtoneName, cf::string(to).get());
        }
        CFDictionarySetValue(entries.get(), cf::string(path.substr(path.rfind('/') + 1)).get(),
                             entry.get());
    }
    const auto catalogue = cf::dictionary();
    CFDictionarySetValue(catalogue.get(), KRTRingtoneKeyName, entries.get());
    tones.updateRingtoneListFromList(catalogue.get());
}

bool isMadeOf(const PhoneRingtone& there, const LocalRingtone& wanted) {
    return wanted.source && there.source == sourceText(*wanted.source, there.size);
}

bool isSame(const PhoneRingtone& there, const LocalRingtone& wanted) {
    return wanted.source && !there.source.empty() ? isMadeOf(there, wanted)
                                                  : there.size == wanted.size;
}

void makeHold(OpenPhone& phone, const PhoneState& state, const std::vector<LocalRingtone>& wanted,
              Others others) {
    if (others == Others::Go) {
        compareWith(phone, state, wanted);
    }
    // A comparison tells ringtones apart by name alone.
    KRTRingtoneManager& tones = phone.tones();
    for (const LocalRingtone& ringtone : wanted) {
        const auto there = named(tones, ringtone.name);
        if (!there || !isSame(*there, ringtone)) {
            addRingtones(tones, {ringtone});
        }
    }
}

PreparedChange prepare(OpenPhone& phone, const PhoneState& state) {
    const auto changes = phone.tones().generateChangeLists();
    const ChangeLists lists{cf::dictionaryAt(changes.get(), kAddedList),
                            cf::dictionaryAt(changes.get(), kRemovedList),
                            cf::dictionaryAt(changes.get(), kUnchangedList)};
    if (lists.unchanged == nullptr && !state.catalogueIsUnreadable()) {
        throw phone.readFailure("the ringtones cannot be read");
    }
    PreparedChange prepared;
    for (const auto& [name, entry] : cf::pairs(lists.added)) {
        prepared.added.insert(cf::text(cf::cast<CFStringRef>(name)));
    }
    for (const auto& [name, entry] : cf::pairs(lists.removed)) {
        prepared.removed.insert(cf::text(cf::cast<CFStringRef>(name)));
    }
    prepared.renamed = renamedIn(state, lists.unchanged);
    prepared.plan = rehearse(phone, state, lists);
    return prepared;
}

} // namespace krl::engine
