#include "engine/plan/Change.h"

#include "engine/errors/Failure.h"
#include "engine/plan/Rehearsal.h"

#include <map>

namespace krl::engine {
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
    if (ringtone.source) {
        CFDictionarySetValue(entry.get(), kSourceKey,
                             cf::string(sourceText(*ringtone.source, ringtone.size)).get());
    }
    return entry;
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

bool isSame(const PhoneRingtone& there, const LocalRingtone& wanted) {
    return wanted.source && !there.source.empty()
               ? there.source == sourceText(*wanted.source, there.size)
               : there.size == wanted.size;
}

void makeHold(OpenPhone& phone, const PhoneState& state, const std::vector<LocalRingtone>& wanted,
              Others others) {
    std::map<std::string, const PhoneRingtone*> there;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        there[ringtone.name] = &ringtone;
    }
    std::vector<LocalRingtone> added;
    std::vector<LocalRingtone> replaced;
    for (const LocalRingtone& ringtone : wanted) {
        const auto now = there.find(ringtone.name);
        if (now == there.end()) {
            added.push_back(ringtone);
        } else if (!isSame(*now->second, ringtone)) {
            replaced.push_back(ringtone);
        }
    }
    KRTRingtoneManager& tones = phone.tones();
    if (others == Others::Stay) {
        addRingtones(tones, added);
    } else {
        compareWith(phone, state, wanted);
    }
    // A comparison tells ringtones apart by name alone.
    addRingtones(tones, replaced);
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
    prepared.plan = rehearse(phone, state, lists);
    return prepared;
}

} // namespace krl::engine
