// The working list. The sync stands in KRTRingtoneManagerSync.cpp.
#include <KRLVesk/KRTRingtoneManager.h>

#include "library/objects/ChangeObservers.h"
#include "library/objects/RebuildRule.h"
#include "library/objects/WorkingList.h"
#include "library/phone/RecordLifetime.h"
#include "library/store/Dictionaries.h"
#include "library/store/KRTRingtoneManagerInternal.h"
#include "library/store/Names.h"

#include <array>
#include <utility>

using namespace krl::ringtones;
using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;
using krl::cf::retain;

namespace {

const CFStringRef kRemoveWatchKey = CFSTR("RemoveWatch");

/// Firmware from 1.1.3 on, and unknown firmware, is newer than this.
constexpr int kLastVersionWithoutConversion = 1012;

bool isM4RFile(CFTypeRef path) {
    const auto text = cast<CFStringRef>(path);
    return text != nullptr && isM4R(splitPath(text).extension.get());
}

/// The whole path without its extension.
CFRef<CFStringRef> withoutExtension(CFStringRef path) {
    const auto url = krl::cf::fileURL(path);
    if (!url) {
        return retain(path);
    }
    const auto stripped = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    return adopt(CFURLCopyFileSystemPath(stripped.get(), kCFURLPOSIXPathStyle));
}

/// A ringtone of the list under this key and any extension.
Record recordUnderFileKey(const List& list, CFStringRef fileKey) {
    for (const Pair& pair : pairsOf(list.get())) {
        const auto key = cast<CFStringRef>(pair.key);
        if (key != nullptr && CFEqual(withoutExtension(key).get(), fileKey)) {
            return recordOf(pair.value);
        }
    }
    return nullptr;
}

/// A ringtone of this name. Lists are keyed by name, so nothing is walked through.
Record recordNamed(const List& list, CFStringRef name) {
    const Record record = recordIn(list, name);
    const CFTypeRef recordName = nameOf(record);
    return recordName != nullptr && CFEqual(recordName, name) ? record : nullptr;
}

CFComparisonResult compareWithoutCase(const void* name, const void* other, void*) {
    return CFStringCompare(static_cast<CFStringRef>(name), static_cast<CFStringRef>(other),
                           kCFCompareCaseInsensitive);
}

/// An entry of a catalogue as a ringtone of the working list.
CFRef<CFMutableDictionaryRef> ringtoneFromEntry(CFDictionaryRef entry, CFStringRef fileName) {
    auto ringtone = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, entry));
    if (!CFDictionaryContainsKey(ringtone.get(), KRTRemotePath)) {
        CFDictionarySetValue(ringtone.get(), KRTRemotePath, ringtonePath(fileName).get());
    }
    if (!CFDictionaryContainsKey(ringtone.get(), kFileTypeKey)) {
        // Contract: the whole extension, where loading takes the last three characters.
        // [ListModel.MergingAddsPathAndTheWholeExtension]
        CFDictionarySetValue(ringtone.get(), kFileTypeKey, splitPath(fileName).extension.get());
    }
    return ringtone;
}

CFArrayRef createSupportedFormats() {
    std::array<const void*, 7> formats = {CFSTR("m4a"), CFSTR("m4p"), CFSTR("mp3"), CFSTR("m4r"),
                                          CFSTR("wav"), CFSTR("aif"), CFSTR("aiff")};
    return CFArrayCreate(nullptr, formats.data(), formats.size(), &kCFTypeArrayCallBacks);
}

} // namespace

KRTRingtoneManagerDelegate::~KRTRingtoneManagerDelegate() = default;

KRTRingtoneManager::KRTRingtoneManager(KRTRingtoneManagerRef managerRef)
    : _removedList(makeList()), _addedList(makeList()), _manager(managerRef),
      observers_(std::make_unique<ChangeObservers>()) {
    krl::phone::addObject(_manager->phone);
}

// _initWithRingtoneManagerRef:
std::shared_ptr<KRTRingtoneManager>
KRTRingtoneManager::_initWithRingtoneManagerRef(KRTRingtoneManagerRef managerRef) {
    if (managerRef == nullptr) {
        return nullptr;
    }
    if (KRTPhoneSupportedFormats == nullptr) {
        KRTPhoneSupportedFormats = createSupportedFormats();
    }
    std::shared_ptr<KRTRingtoneManager> manager(new KRTRingtoneManager(managerRef));
    manager->rebuildRingtoneListFromOriginal();
    return manager;
}

// dealloc
KRTRingtoneManager::~KRTRingtoneManager() {
    const KRTPhoneRef phone = _manager->phone;
    krl::phone::releaseStore(_manager, KRTRingtoneManagerRelease);
    krl::phone::dropObject(phone);
}

// ---------------------------------------------------------------------------- the phone's list

// _loadRingtoneList
void KRTRingtoneManager::_loadRingtoneList() {
    _remotePlist = adopt(KRTRingtoneManagerLoadCurrentRingtoneList(_manager));
}

// rebuildRingtoneListFromOriginal
void KRTRingtoneManager::rebuildRingtoneListFromOriginal() {
    const bool wasPending = countOf(_addedList) != 0 || countOf(_removedList) != 0;
    _loadRingtoneList();
    removeAllFrom(_addedList);
    removeAllFrom(_unchangedList);
    removeAllFrom(_removedList);
    _unchangedList = copyOf(_remotePlist);

    bool needsConversion = false;
    if (KRTPhoneFirmwareVersion(_manager->phone) > kLastVersionWithoutConversion) {
        for (const Pair& pair : pairsOf(_unchangedList.get())) {
            const auto type = cast<CFStringRef>(valueOf(recordOf(pair.value), kFileTypeKey));
            if (!isM4R(type)) {
                // Contract: once it is true it stays so.
                // [ListModel.ConversionOnceNeededStaysNeeded]
                _needsConversionFor113 = true;
                needsConversion = true;
                break;
            }
        }
    }
    const auto hasProblems = [this] {
        const auto problems = isValidDictionaryFor111(_remotePlist.get());
        return problems && CFArrayGetCount(problems.get()) > 0;
    };
    if (const auto updated = updatedAfterRebuild(hasProblems, wasPending, needsConversion)) {
        setRingtonesUpdated(*updated);
    }
}

// needsConversionFor113
bool KRTRingtoneManager::needsConversionFor113() const {
    return _needsConversionFor113;
}

// updateRingtoneListFromList:
void KRTRingtoneManager::updateRingtoneListFromList(CFDictionaryRef catalogue) {
    const auto entries = cast<CFDictionaryRef>(valueOf(catalogue, KRTRingtoneKeyName));
    const List names = makeList();
    for (const Pair& pair : pairsOf(entries)) {
        const auto fileName = cast<CFStringRef>(pair.key);
        const auto entry = cast<CFDictionaryRef>(pair.value);
        const CFTypeRef name = nameOf(entry);
        if (fileName == nullptr || name == nullptr) {
            continue;
        }
        putInto(names, name, name);
        if (has(_removedList, name)) {
            continue;
        }
        if (has(_addedList, name)) {
            // Contract: asked by name and moved by file name. A ringtone that is called like a file
            // is moved, and lost below unless an entry has that name.
            // [ListModel.MergingAsksByNameAndMovesByFileKeySoThatARingtoneNamedLikeAFileIsLost]
            putInto(_unchangedList, fileName, recordIn(_addedList, fileName));
            removeFrom(_addedList, fileName);
        } else if (!has(_unchangedList, name) && isPlainFileName(fileName)) {
            putInto(_unchangedList, name, ringtoneFromEntry(entry, fileName).get());
        }
    }
    for (const Pair& pair : pairsOf(_unchangedList.get())) {
        if (!has(names, pair.key)) {
            removeFrom(_unchangedList, pair.key);
        }
    }
    setRingtonesUpdated(countOf(_removedList) != 0 || countOf(_addedList) != 0);
}

// isValidDictionaryFor111:
CFRef<CFArrayRef> KRTRingtoneManager::isValidDictionaryFor111(CFDictionaryRef) const {
    // Contract: this object checks nothing. The catalogue is checked when it is generated.
    // [ListModel.TheLayoutCheckOfTheObjectFindsNothing]
    return nullptr;
}

// ---------------------------------------------------------------------------- looking

// currentRingtonesManaged
CFRef<CFArrayRef> KRTRingtoneManager::currentRingtonesManaged() const {
    auto records = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const List& list : {_unchangedList, _addedList}) {
        for (const Pair& pair : pairsOf(list.get())) {
            CFArrayAppendValue(records.get(), pair.value);
        }
    }
    return records;
}

// currentRingtonesManagedByNameOnly
CFRef<CFArrayRef> KRTRingtoneManager::currentRingtonesManagedByNameOnly() const {
    const auto names = adopt(CFArrayCreateMutable(
        nullptr, countOf(_unchangedList) + countOf(_addedList), &kCFTypeArrayCallBacks));
    for (const List& list : {_unchangedList, _addedList}) {
        for (const Pair& pair : pairsOf(list.get())) {
            if (const auto name = cast<CFStringRef>(nameOf(recordOf(pair.value)))) {
                CFArrayAppendValue(names.get(), name);
            }
        }
    }
    CFArraySortValues(names.get(), CFRangeMake(0, CFArrayGetCount(names.get())), compareWithoutCase,
                      nullptr);
    return adopt(CFArrayCreateCopy(nullptr, names.get()));
}

// ringtoneForName:
CFRef<CFMutableDictionaryRef> KRTRingtoneManager::ringtoneForName(CFStringRef name) const {
    const Record kept = recordNamed(_unchangedList, name);
    return retain(kept != nullptr ? kept : recordNamed(_addedList, name));
}

// ringtoneForFileKey:
CFRef<CFMutableDictionaryRef> KRTRingtoneManager::ringtoneForFileKey(CFStringRef key) const {
    const Record kept = recordUnderFileKey(_unchangedList, key);
    return retain(kept != nullptr ? kept : recordUnderFileKey(_addedList, key));
}

// ---------------------------------------------------------------------------- editing

// compareList:
void KRTRingtoneManager::compareList(CFDictionaryRef wanted) {
    _collapsingUpdates = true;
    rebuildRingtoneListFromOriginal();
    bool isChanged = false;
    for (const Pair& pair : pairsOf(wanted)) {
        const Record ringtone = recordOf(pair.value);
        if (ringtone != nullptr && !has(_unchangedList, nameOf(ringtone))) {
            addRingtone(ringtone);
            isChanged = true;
        }
    }
    for (const Pair& pair : pairsOf(_remotePlist.get())) {
        const CFTypeRef name = nameOf(recordOf(pair.value));
        if (wanted != nullptr && CFDictionaryContainsKey(wanted, name)) {
            continue;
        }
        const Record kept = recordIn(_unchangedList, name);
        // Contract: an m4r file that did not come from this computer stays, wanted or not.
        // [ListModel.ComparingKeepsAnUnwantedM4RThatDidNotComeFromThisComputer]
        if (!isM4RFile(valueOf(kept, KRTRemotePath)) || valueOf(kept, KRTLocalPath) != nullptr) {
            removeRingtone(kept);
            isChanged = true;
        }
    }
    _collapsingUpdates = false;
    setRingtonesUpdated(isChanged);
}

// addRingtone:
void KRTRingtoneManager::addRingtone(CFMutableDictionaryRef ringtone) {
    const auto name = retain(nameOf(ringtone));
    if (!name) {
        return;
    }
    const auto added = retain(ringtone);
    removeFrom(_addedList, name.get());
    if (const auto kept = retain(recordIn(_unchangedList, name.get()))) {
        removeRingtone(kept.get());
    }
    if (const Record removed = recordIn(_removedList, name.get())) {
        CFDictionarySetValue(removed, kRemoveWatchKey, kCFBooleanTrue);
    }
    putInto(_addedList, name.get(), added.get());
    if (!_collapsingUpdates) {
        setRingtonesUpdated(true);
    }
}

// removeRingtone:
void KRTRingtoneManager::removeRingtone(CFMutableDictionaryRef ringtone) {
    const auto name = retain(nameOf(ringtone));
    // Contract: a ringtone that was replaced is in both lists, and stays to be added.
    // [ListModel.AReplacedRingtoneCannotBeTakenOutOfTheAddedListAgain]
    if (has(_removedList, name.get())) {
        return;
    }
    const auto removed = retain(ringtone);
    // Contract: a removal by comparison leaves the added ringtones alone.
    // [ListModel.ComparingLeavesTheAddedListAloneWhenItRemoves]
    if (!_collapsingUpdates) {
        removeFrom(_addedList, name.get());
    }
    if (has(_unchangedList, name.get())) {
        removeFrom(_unchangedList, name.get());
        // Contract: what is kept is what the caller passed, not what the list held.
        // [ListModel.RemovingKeepsTheRecordThatWasPassedIn]
        putInto(_removedList, name.get(), removed.get());
    }
    if (!_collapsingUpdates) {
        setRingtonesUpdated(countOf(_addedList) != 0 || countOf(_removedList) != 0);
    }
}

// removeAllRingtones
void KRTRingtoneManager::removeAllRingtones() {
    for (const Pair& pair : pairsOf(_unchangedList.get())) {
        putInto(_removedList, pair.key, pair.value);
    }
    removeAllFrom(_unchangedList);
    removeAllFrom(_addedList);
    // Contract: true also when there was nothing to remove.
    // [ListModel.RemovingAllSaysTrueEvenWithNothingToRemove]
    setRingtonesUpdated(true);
}

// ---------------------------------------------------------------------------- "ringtonesUpdated"

// setRingtonesUpdated:
void KRTRingtoneManager::setRingtonesUpdated(bool ringtonesUpdated) {
    // Contract: observers are told also when the value stays the same.
    // [ListModel.SettingTheFlagNotifiesAlsoWithoutAChange]
    observers_->around([this, ringtonesUpdated] { _ringtonesChanged = ringtonesUpdated; });
}

// ringtonesUpdated
bool KRTRingtoneManager::ringtonesUpdated() const {
    return _ringtonesChanged;
}

uint64_t KRTRingtoneManager::addRingtonesUpdatedObserver(std::function<void()> willChange,
                                                         std::function<void()> didChange) {
    return observers_->add(std::move(willChange), std::move(didChange));
}

void KRTRingtoneManager::removeRingtonesUpdatedObserver(uint64_t observer) {
    observers_->remove(observer);
}
