// The store: what is on the phone, what is to be on it, and the way from one to the other.
//
// Whatever reports a failure stands in this file, so that the module's name and a line tell the
// place. The steps that report nothing of their own have files beside it.
#include "library/store/KRTRingtoneManagerInternal.h"

#include "library/errors/ErrorReport.h"
#include "library/firmware111/LayoutCheck.h"
#include "library/store/CatalogueFile.h"
#include "library/store/Cleanup.h"
#include "library/store/Dictionaries.h"
#include "library/store/Moves.h"
#include "library/store/NameSets.h"
#include "library/store/Names.h"
#include "library/store/SourceFile.h"

#include <new>

using namespace krl::ringtones;
using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;

namespace {

constexpr krl::ErrorReporter reportError{"KRTRingtoneManagerInternal"};

// Codes of this module. One number means different things in different steps.

// Loading.
constexpr int kPhoneNotOpened = 0;
constexpr int kCatalogueNotRead = 2;
constexpr int kNoRingtonesKey = 4;

// Splitting the path of a file on the phone.
constexpr int kRemotePathIsNoString = -1;
constexpr int kNoURLOfPath = -2;
constexpr int kNoURLWithoutExtension = -3;
constexpr int kNoFileName = -4;
constexpr int kNoBaseName = -5;

// In every step.
constexpr int kNoMemory = 0;

// Generating. What was reported below stays, since the first error does.
constexpr int kUnchangedNotParsed = 0;
constexpr int kAddedNotParsed = 1;
constexpr int kNoContainer = 2;
constexpr int kTooManyEntries = 2;
constexpr int kNotFixed = 3;
constexpr int kNoLayoutFound = 0;

// Submitting.
constexpr int kListMissing = 1;
constexpr int kNotGenerated = 0;
constexpr int kNoFileService = 1;
constexpr int kCompanionNotWritten = 2;
constexpr int kUploadNotWritten = 5;

bool failed(int code, int line = __builtin_LINE()) {
    reportError(code, line);
    return false;
}

/// What an action on the store comes to. One for which there is not memory enough fails.
template <typename Action>
int succeeds(const Action& action) {
    try {
        return action() ? 1 : 0;
    } catch (const std::bad_alloc&) {
        reportError(kNoMemory);
        return 0;
    }
}

/// Asks for a file's size. That it is not there is no failure here, so nothing stays recorded.
bool isFileThere(KRTPhoneRef phone, CFStringRef path, uint32_t* sizeBytes) {
    if (KRTPhoneSizeOfFileAtPath(phone, orNull(utf8(path)), sizeBytes) == 1) {
        return true;
    }
    KRTErrorClear();
    return false;
}

// ---------------------------------------------------------------------------- reading

void addLoadedEntry(KRTPhoneRef phone, CFStringRef fileName, CFDictionaryRef entry,
                    CFMutableDictionaryRef list) {
    // Contract: two keys and "m4r" make a companion, whatever the keys are. A ringtone with nothing
    // but a name and a GUID is taken for one, and its file goes at the next submit.
    // [Loading.AnyTwoKeysMakeACompanion]
    if (isCompanion(fileName, entry)) {
        return;
    }
    if (!isPlainFileName(fileName)) {
        return;
    }
    const auto tone = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, entry));
    const auto path = ringtonePath(fileName);
    uint32_t sizeBytes = 0;
    if (!isFileThere(phone, path.get(), &sizeBytes)) {
        return;
    }
    // Contract: three characters, so that an aiff file has the type "iff".
    // [FileTypes.AreTheLastThreeCharactersOfTheFileName]
    CFDictionarySetValue(tone.get(), kFileTypeKey, lastThreeCharacters(fileName).get());
    CFDictionarySetValue(tone.get(), KRTRemotePath, path.get());
    const int64_t size = sizeBytes;
    CFDictionarySetValue(tone.get(), KRTFileSize,
                         adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &size)).get());

    const auto name = cast<CFStringRef>(CFDictionaryGetValue(entry, KRTRingtoneName));
    if (name != nullptr) {
        CFDictionarySetValue(list, name, tone.get());
    }
}

/// The list of an open phone; null when it cannot be had.
CFRef<CFMutableDictionaryRef> loadFromOpenPhone(KRTPhoneRef phone) {
    auto list = makeDictionary();
    uint32_t sizeBytes = 0;
    if (!isFileThere(phone, KRTRingtonePath, &sizeBytes)) {
        return list;
    }
    auto bytes = readCatalogue(phone, sizeBytes);
    if (!bytes) {
        reportError(kCatalogueNotRead);
        return {};
    }
    // Contract: what cannot be parsed counts as empty.
    // [NoPropertyList.GivesAnEmptyListAndRecordsNothing]
    const auto root = parseCatalogue(bytes.get());
    bytes.reset();
    if (!root) {
        return list;
    }
    const CFTypeRef ringtones = ringtonesOf(root.get());
    if (ringtones == nullptr) {
        reportError(kNoRingtonesKey);
        return {};
    }
    const auto entries = cast<CFDictionaryRef>(ringtones);
    // Not a list of those that fit: the next sync would delete the files of all others.
    if (entries != nullptr && CFDictionaryGetCount(entries) > kMostEntries) {
        reportError(kCatalogueNotRead);
        return {};
    }
    for (const Pair& pair : pairsOf(entries)) {
        const auto entry = cast<CFDictionaryRef>(pair.value);
        if (entry != nullptr) {
            addLoadedEntry(phone, static_cast<CFStringRef>(pair.key), entry, list.get());
        }
    }
    return list;
}

CFMutableDictionaryRef load(KRTPhoneRef phone) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(kPhoneNotOpened);
        return nullptr;
    }
    CFRef<CFMutableDictionaryRef> list;
    try {
        list = loadFromOpenPhone(phone);
    } catch (const std::bad_alloc&) {
        reportError(kCatalogueNotRead);
    }
    KRTPhoneClose(phone);
    return list.leak();
}

// ---------------------------------------------------------------------------- the new catalogue

/// Firmware 1.0.2 to 1.1.1 wants companions, and names that its dictionaries cope with.
bool hasOlderLayout(KRTPhoneRef phone) {
    return KRTPhonePostUpdate(phone) == 1;
}

/// The entry as the catalogue has it: without what is only true on this side.
CFRef<CFMutableDictionaryRef> catalogueEntryOf(CFDictionaryRef tone) {
    auto entry = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, tone));
    for (const CFStringRef key : {kFileTypeKey, KRTFileSize, KRTRemotePath, kNeedsSyncKey}) {
        CFDictionaryRemoveValue(entry.get(), key);
    }
    return entry;
}

CFRef<CFDictionaryRef> companionEntryOf(CFDictionaryRef tone) {
    const auto companion = makeDictionary();
    for (const CFStringRef key : {KRTRingtoneName, KRTFileKey}) {
        CFDictionarySetValue(companion.get(), key, CFDictionaryGetValue(tone, key));
    }
    return companion;
}

/// The parts of the name of a file on the phone.
bool splitRemotePath(CFStringRef path, CFRef<CFStringRef>& fileName, CFRef<CFStringRef>& baseName) {
    if (path == nullptr) {
        return failed(kRemotePathIsNoString);
    }
    const auto url = krl::cf::fileURL(path);
    if (!url) {
        return failed(kNoURLOfPath);
    }
    const auto stripped = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    if (!stripped) {
        return failed(kNoURLWithoutExtension);
    }
    fileName = adopt(CFURLCopyLastPathComponent(url.get()));
    if (!fileName) {
        return failed(kNoFileName);
    }
    baseName = adopt(CFURLCopyLastPathComponent(stripped.get()));
    return baseName ? true : failed(kNoBaseName);
}

/// Puts entries into a catalogue that is being made.
struct Generation {
    KRTPhoneRef phone;
    bool olderLayout;
    CFMutableDictionaryRef catalogue;
    BaseNames& baseNames;

    void place(CFDictionaryRef tone, CFStringRef fileName, CFStringRef baseName,
               CFStringRef fileType) const {
        CFDictionarySetValue(catalogue, fileName, catalogueEntryOf(tone).get());
        baseNames.append(baseName);
        // Contract: what counts is the entry's file type, not the file's extension. An m4r file
        // whose entry has no type is given a companion of its own name, which takes its entry's
        // place. [Companions.DependOnTheEntrysFileTypeNotOnTheFilesExtension]
        if (olderLayout && !isM4R(fileType)) {
            CFDictionarySetValue(catalogue, companionName(baseName).get(),
                                 companionEntryOf(tone).get());
        }
    }

    bool placeFileOnPhone(CFDictionaryRef tone, CFStringRef fileType) const {
        const auto path = cast<CFStringRef>(CFDictionaryGetValue(tone, KRTRemotePath));
        CFRef<CFStringRef> fileName;
        CFRef<CFStringRef> baseName;
        if (!splitRemotePath(path, fileName, baseName)) {
            return false;
        }
        uint32_t sizeBytes = 0;
        if (isStraightPath(path) && isFileThere(phone, path, &sizeBytes)) {
            place(tone, fileName.get(), baseName.get(), fileType);
        }
        return true;
    }

    void placeNewFile(CFDictionaryRef tone, CFStringRef fileType) const {
        const auto baseName = baseNames.drawUnused();
        if (fileType != nullptr && CFEqual(fileType, CFSTR("hrlx"))) {
            fileType = kM4R;
        }
        place(tone, joinName(baseName.get(), fileType).get(), baseName.get(), fileType);
    }
};

bool parse(const Generation& generation, CFDictionaryRef list) {
    for (const Pair& pair : pairsOf(list)) {
        const auto tone = cast<CFDictionaryRef>(pair.value);
        if (tone == nullptr) {
            continue;
        }
        const auto fileType = cast<CFStringRef>(CFDictionaryGetValue(tone, kFileTypeKey));
        if (!CFDictionaryContainsKey(tone, KRTRemotePath)) {
            generation.placeNewFile(tone, fileType);
        } else if (!generation.placeFileOnPhone(tone, fileType)) {
            return false;
        }
    }
    return true;
}

/// Moves entries until the firmware copes with the catalogue.
bool fix(CFMutableDictionaryRef catalogue, BaseNames& baseNames, CFMutableDictionaryRef renames,
         CFDictionaryRef unchanged) {
    constexpr int kMostAttempts = 10000;
    krl::LayoutCheck check(catalogue);
    const Layout layout{catalogue, check, baseNames, renames, unchanged};
    bool hasMoved = true;
    // An attempt that has moved nothing has drawn nothing either: all that are left would be the
    // same again.
    for (int attempt = 0; attempt < kMostAttempts && hasMoved; ++attempt) {
        const krl::LayoutCheck::Names misplaced = check.namesInTheWay();
        if (misplaced.empty()) {
            return true;
        }
        hasMoved = false;
        for (const auto& fileName : misplaced) {
            hasMoved = moveEntry(layout, fileName.get()) || hasMoved;
        }
    }
    return failed(kNoLayoutFound);
}

struct Generated {
    CFRef<CFMutableDictionaryRef> catalogue = makeDictionary();
    CFRef<CFMutableDictionaryRef> renames = makeDictionary();
};

bool generate(KRTPhoneRef phone, CFDictionaryRef added, CFDictionaryRef unchanged,
              const Generated& result) {
    // Contract: every generation draws the same sequence of names.
    // [Generation.TwoGenerationsWithTheSameListsGiveTheSameNames]
    srandom(0);
    BaseNames baseNames;
    const Generation generation{phone, hasOlderLayout(phone), result.catalogue.get(), baseNames};
    // The unchanged ones first, so that their names are in use before any is drawn.
    if (!parse(generation, unchanged)) {
        return failed(kUnchangedNotParsed);
    }
    if (!parse(generation, added)) {
        return failed(kAddedNotParsed);
    }
    // What could not be read back is not written in the first place.
    if (result.catalogue && CFDictionaryGetCount(result.catalogue.get()) > kMostEntries) {
        return failed(kTooManyEntries);
    }
    if (!generation.olderLayout) {
        return true;
    }
    if (!result.catalogue || !result.renames) {
        return failed(kNoContainer);
    }
    return fix(result.catalogue.get(), baseNames, result.renames.get(), unchanged) ||
           failed(kNotFixed);
}

bool parseInto(KRTPhoneRef phone, CFDictionaryRef list, CFMutableDictionaryRef catalogue,
               CFMutableArrayRef baseNames) {
    BaseNames names(baseNames);
    const bool isParsed = parse({phone, hasOlderLayout(phone), catalogue, names}, list);
    names.storeInto(baseNames);
    return isParsed;
}

bool fixWith(CFMutableDictionaryRef catalogue, CFMutableArrayRef baseNames,
             CFMutableDictionaryRef renames, CFDictionaryRef unchanged) {
    BaseNames names(baseNames);
    const bool isFixed = fix(catalogue, names, renames, unchanged);
    names.storeInto(baseNames);
    return isFixed;
}

// ---------------------------------------------------------------------------- writing

struct Changes {
    CFDictionaryRef added;
    CFDictionaryRef removed;
    CFDictionaryRef unchanged;
};

uint32_t countOf(CFDictionaryRef list) {
    return static_cast<uint32_t>(CFDictionaryGetCount(list));
}

/// One submit under way.
class Submission {
public:
    Submission(KRTRingtoneManagerRef manager, const Changes& changes)
        : manager_(*manager), phone_(manager->phone), changes_(changes) {}

    bool run();

private:
    bool report(int32_t mode, int32_t status, uint32_t max, uint32_t value,
                const char* message = nullptr) const {
        return manager_.statusFunction == nullptr ||
               manager_.statusFunction(mode, status, max, value, message, manager_.statusContext);
    }

    void renameMovedFiles();
    void renameMovedFile(CFDictionaryRef entry, CFDictionaryRef toneByGUID);
    bool uploadFiles();
    bool upload(CFStringRef fileName, CFDictionaryRef entry);
    bool uploadBytes(CFStringRef fileName, CFDictionaryRef entry);
    bool isOnPhone(CFDictionaryRef entry) const;
    bool writeFile(CFStringRef fileName, const void* bytes, CFIndex count);
    void removeFiles() const;
    void removeFile(CFDictionaryRef tone) const;

    const __KRTRingtoneManager& manager_;
    const KRTPhoneRef phone_;
    const Changes changes_;
    const Generated generated_;
    bool olderLayout_ = false;
    NameSet unchangedNames_;
    NameSet kept_; ///< file names that stay in the ringtone folder
    uint32_t uploadsBegun_ = 0;
    /// The last answer to a report before the removals. Contract: only the last one counts; a false
    /// one is forgotten when another report follows before it is looked at.
    // [SubmitReports.AFalseAnswerBeforeTheUploadsIsForgottenWhenAnUploadFollows]
    bool goOn_ = true;
};

bool Submission::run() {
    olderLayout_ = hasOlderLayout(phone_);
    if (changes_.unchanged == nullptr) {
        return failed(kListMissing);
    }
    if (changes_.added == nullptr) {
        return failed(kListMissing);
    }
    if (changes_.removed == nullptr) {
        return failed(kListMissing);
    }
    unchangedNames_ = NameSet(adopt(CFGetAllKeys(changes_.unchanged)).get());
    if (!generate(phone_, changes_.added, changes_.unchanged, generated_)) {
        return failed(kNotGenerated);
    }
    if (KRTPhoneOpen(phone_) != 1) {
        return failed(kPhoneNotOpened);
    }
    if (KRTPhoneStartFileService(phone_) != 1) {
        return failed(kNoFileService);
    }
    KRTPhoneCreateDirectoryAtPath(phone_, kRingtonesFolder);

    goOn_ = report(0, 0, 0, 0);
    renameMovedFiles();
    goOn_ = report(4, 0, 0, 0);
    if (!uploadFiles()) {
        return false;
    }
    if (!goOn_) {
        // Contract: cancelling is success, and leaves everything as it is at this moment: files
        // that were moved and uploaded, the old catalogue, and the phone open with its file
        // service. [SubmitReports.CancellingClosesNothing]
        return true;
    }
    removeFiles();
    // Contract: a catalogue that cannot be written fails nothing, and the cleanup follows.
    // [Submit.TheCleanupFollowsAFailedWriteOfTheCatalogue]
    writeCatalogue(phone_, generated_.catalogue.get());
    cleanUpRingtonesFolder(phone_, kept_);
    KRTPhoneEndFileService(phone_);
    KRTPhoneClose(phone_);
    return true;
}

void Submission::renameMovedFiles() {
    const auto toneByGUID = makeDictionary();
    for (const Pair& pair : pairsOf(changes_.unchanged)) {
        if (const auto tone = cast<CFDictionaryRef>(pair.value)) {
            CFDictionaryAddValue(toneByGUID.get(), CFDictionaryGetValue(tone, KRTFileKey), tone);
        }
    }
    for (const Pair& pair : pairsOf(generated_.catalogue.get())) {
        renameMovedFile(static_cast<CFDictionaryRef>(pair.value), toneByGUID.get());
        goOn_ = report(0, 0, 0, 0);
    }
}

void Submission::renameMovedFile(CFDictionaryRef entry, CFDictionaryRef toneByGUID) {
    const CFTypeRef guid = CFDictionaryGetValue(entry, KRTFileKey);
    const auto record =
        static_cast<CFDictionaryRef>(CFDictionaryGetValue(generated_.renames.get(), guid));
    if (record == nullptr) {
        return;
    }
    const auto newName =
        joinName(static_cast<CFStringRef>(CFDictionaryGetValue(record, kNewBaseName)),
                 static_cast<CFStringRef>(CFDictionaryGetValue(record, kNewExtension)));
    const auto tone = static_cast<CFDictionaryRef>(CFDictionaryGetValue(toneByGUID, guid));
    const auto oldPath =
        tone != nullptr ? cast<CFStringRef>(CFDictionaryGetValue(tone, KRTRemotePath)) : nullptr;
    if (oldPath != nullptr) {
        // Contract: a companion has the GUID of its ringtone, so the file is moved once for each of
        // the two. The second time it is gone, which fails and stays in the error record.
        // [Submit.TheRenameOfAMovedRingtoneIsTriedForItsCompanionToo]
        KRTPhoneRenameObjectAtPath(phone_, orNull(utf8(oldPath)),
                                   orNull(utf8(ringtonePath(newName.get()).get())));
    }
    kept_.add(newName.get());
}

/// False after a failure. A cancelled pass ends early with the go-on flag false.
bool Submission::uploadFiles() {
    for (const Pair& pair : pairsOf(generated_.catalogue.get())) {
        const auto fileName = static_cast<CFStringRef>(pair.key);
        const auto entry = static_cast<CFDictionaryRef>(pair.value);
        if (kept_.contains(fileName)) {
            continue;
        }
        if (isCompanion(fileName, entry)) {
            // Contract: companion files are written anew each time, also while the go-on flag is
            // false. [Submit.PlaceholdersAreWrittenAnewEachTime]
            if (!writeFile(fileName, nullptr, 0)) {
                return failed(kCompanionNotWritten);
            }
        } else if (isOnPhone(entry)) {
            kept_.add(fileName);
        } else if (!upload(fileName, entry)) {
            return false;
        } else if (!goOn_) {
            return true;
        }
    }
    return true;
}

bool Submission::isOnPhone(CFDictionaryRef entry) const {
    const CFTypeRef name = CFDictionaryGetValue(entry, KRTRingtoneName);
    return cast<CFStringRef>(CFDictionaryGetValue(entry, KRTLocalPath)) == nullptr ||
           (name != nullptr && unchangedNames_.contains(name));
}

bool Submission::upload(CFStringRef fileName, CFDictionaryRef entry) {
    const auto name = cast<CFStringRef>(CFDictionaryGetValue(entry, KRTRingtoneName));
    const auto message = name != nullptr ? utf8(name) : std::nullopt;
    const uint32_t max = countOf(changes_.added);
    goOn_ = report(5, 1, max, uploadsBegun_, orNull(message));
    ++uploadsBegun_;
    if (!goOn_) {
        return true;
    }
    if (!uploadBytes(fileName, entry)) {
        return false;
    }
    goOn_ = report(5, 0, max, uploadsBegun_);
    return true;
}

bool Submission::uploadBytes(CFStringRef fileName, CFDictionaryRef entry) {
    const SourceFile source = readSource(entry);
    if (source.errorCode != 0) {
        return failed(source.errorCode);
    }
    // Contract: a ringtone for which its function has no bytes is passed over. The catalogue lists
    // it all the same, and a file that stands under its name is not kept.
    // [NoData.PassesTheUploadOverListsTheRingtoneAndDoesNotKeepItsFile]
    if (!source.bytes) {
        return true;
    }
    return writeFile(fileName, CFDataGetBytePtr(source.bytes.get()),
                     CFDataGetLength(source.bytes.get())) ||
           failed(kUploadNotWritten);
}

/// Writes a file of the ringtone folder, which is kept then.
bool Submission::writeFile(CFStringRef fileName, const void* bytes, CFIndex count) {
    const auto path = isPlainFileName(fileName) ? utf8(ringtonePath(fileName).get()) : std::nullopt;
    if (!path || KRTPhoneWriteDataToFileAtPath(phone_, path->c_str(), bytes,
                                               static_cast<uintptr_t>(count)) != 1) {
        return false;
    }
    kept_.add(fileName);
    return true;
}

/// What is answered to these reports does not matter: the removals cannot be cancelled.
void Submission::removeFiles() const {
    report(3, 0, 0, 0);
    uint32_t index = 0;
    for (const Pair& pair : pairsOf(changes_.removed)) {
        report(3, 1, countOf(changes_.removed), index++);
        if (const auto tone = cast<CFDictionaryRef>(pair.value)) {
            removeFile(tone);
        }
    }
    report(3, 0, 0, 0);
}

void Submission::removeFile(CFDictionaryRef tone) const {
    const auto path = cast<CFStringRef>(CFDictionaryGetValue(tone, KRTRemotePath));
    if (path == nullptr || CFStringGetLength(path) == 0 || !isStraightPath(path)) {
        return;
    }
    const FileName file = splitPath(path);
    // A name that was drawn for a new ringtone can be the old name of this one.
    if (!kept_.contains(file.whole.get())) {
        KRTPhoneRemoveObjectAtPath(phone_, orNull(utf8(path)));
    }
    // Contract: whether the companion goes does not depend on whether the ringtone's own file went.
    // [Submit.TheCompanionGoesAlsoWhenTheRingtonesOwnFileIsKept]
    const bool hasCompanion =
        olderLayout_ && !isM4R(cast<CFStringRef>(CFDictionaryGetValue(tone, kFileTypeKey)));
    const auto companion = companionName(file.base.get());
    if (hasCompanion && !kept_.contains(companion.get())) {
        KRTPhoneRemoveObjectAtPath(phone_, orNull(utf8(ringtonePath(companion.get()).get())));
    }
}

} // namespace

// ---------------------------------------------------------------------------- the interface

CFMutableDictionaryRef KRTRingtoneManagerLoadCurrentRingtoneList(KRTRingtoneManagerRef manager) {
    return load(manager->phone);
}

int KRTRingtoneManagerGeneratePList(KRTRingtoneManagerRef manager, CFDictionaryRef added,
                                    CFDictionaryRef /*removed*/, CFDictionaryRef unchanged,
                                    CFMutableDictionaryRef* catalogue,
                                    CFMutableDictionaryRef* renames) {
    return succeeds([&] {
        Generated result;
        if (!generate(manager->phone, added, unchanged, result)) {
            return false;
        }
        *catalogue = result.catalogue.leak();
        *renames = result.renames.leak();
        return true;
    });
}

int KRTRingtoneManagerGeneratorParseDictionary(KRTRingtoneManagerRef manager, CFDictionaryRef list,
                                               CFMutableDictionaryRef catalogue,
                                               CFMutableArrayRef baseNames) {
    return succeeds([&] { return parseInto(manager->phone, list, catalogue, baseNames); });
}

int KRTRingtoneManagerFixResultDictionary(CFMutableDictionaryRef catalogue,
                                          CFMutableArrayRef baseNames,
                                          CFMutableDictionaryRef renames,
                                          CFDictionaryRef unchanged) {
    return succeeds([&] { return fixWith(catalogue, baseNames, renames, unchanged); });
}

CFMutableArrayRef KRTRingtoneManagerIsValidFor111(CFDictionaryRef catalogue) {
    return krl::namesInTheWay(catalogue).leak();
}

int KRTRingtoneManagerSubmitChanges(KRTRingtoneManagerRef manager, CFDictionaryRef added,
                                    CFDictionaryRef removed, CFDictionaryRef unchanged) {
    if (succeeds([&] { return Submission(manager, {added, removed, unchanged}).run(); })) {
        return 1;
    }
    // Contract: every failure takes one open of the phone back, also one that comes before the
    // submit has opened it, and none ends the file service.
    // [SubmitFailure.OfTheGenerationDoesNothingOnThePhoneAndTakesOneOpenBack]
    KRTPhoneClose(manager->phone);
    return 0;
}
