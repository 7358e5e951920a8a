// What the tests of the store share: a fake phone with a store, and words for ringtones, catalogues
// and reports.
#pragma once

#include "library/phone/KRTPhoneInternal.h"
#include "library/store/KRTRingtoneManagerInternal.h"
#include "tests/support/FakeMobileDevice.h"
#include "tests/support/PhoneCounts.h"
#include "tests/support/TemporaryFolder.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>
#include <KRLVesk/KRTError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;
using krl::test::Counts;
using krl::test::FakeMobileDevice;
using krl::test::FakePhone;
using krl::test::kStatus;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

inline const std::string kFolder = "/iTunes_Control/Ringtones";
inline const std::string kCatalogue = "/iTunes_Control/iTunes/Ringtones.plist";

// ---------------------------------------------------------------------------- values

inline CFRef<CFStringRef> string(std::string_view text) {
    return krl::cf::stringOf(text);
}

inline CFRef<CFNumberRef> number(int64_t value) {
    return adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

/// A string as it is; anything else as its description, null as "".
inline std::string textOf(CFTypeRef value) {
    if (value == nullptr) {
        return {};
    }
    CFRef<CFStringRef> text = krl::cf::retain(cast<CFStringRef>(value));
    if (const auto wholeNumber = cast<CFNumberRef>(value)) {
        int64_t integer = 0;
        CFNumberGetValue(wholeNumber, kCFNumberSInt64Type, &integer);
        return std::to_string(integer);
    }
    if (!text) {
        text = adopt(CFCopyDescription(value));
    }
    const CFIndex room =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(text.get()), kCFStringEncodingUTF8) + 1;
    std::string bytes(static_cast<size_t>(room), '\0');
    CFIndex used = 0;
    CFStringGetBytes(text.get(), CFRangeMake(0, CFStringGetLength(text.get())),
                     kCFStringEncodingUTF8, '?', false, reinterpret_cast<UInt8*>(bytes.data()),
                     room, &used);
    bytes.resize(static_cast<size_t>(used));
    return bytes;
}

inline std::vector<std::string> textsOf(CFArrayRef array) {
    std::vector<std::string> texts;
    for (CFIndex i = 0; array != nullptr && i < CFArrayGetCount(array); ++i) {
        texts.push_back(textOf(CFArrayGetValueAtIndex(array, i)));
    }
    return texts;
}

inline CFRef<CFMutableArrayRef> arrayOf(const std::vector<std::string>& texts) {
    auto array = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const std::string& text : texts) {
        CFArrayAppendValue(array.get(), string(text).get());
    }
    return array;
}

inline CFRef<CFMutableDictionaryRef> emptyDictionary() {
    return krl::cf::makeDictionary();
}

inline CFTypeRef valueOf(CFDictionaryRef dictionary, std::string_view key) {
    return dictionary != nullptr ? CFDictionaryGetValue(dictionary, string(key).get()) : nullptr;
}

template <typename Dictionary>
CFDictionaryRef dictionaryAt(const Dictionary& dictionary, std::string_view key) {
    return cast<CFDictionaryRef>(valueOf(dictionary.get(), key));
}

/// A dictionary with string keys as a map of texts.
using Texts = std::map<std::string, std::string>;

inline std::vector<std::pair<std::string, CFTypeRef>> pairsIn(CFDictionaryRef dictionary) {
    std::vector<std::pair<std::string, CFTypeRef>> pairs;
    for (const auto& [key, value] : krl::cf::pairsOf(dictionary)) {
        pairs.emplace_back(textOf(key), value);
    }
    return pairs;
}

inline Texts textsOf(CFDictionaryRef dictionary) {
    Texts texts;
    for (const auto& [key, value] : pairsIn(dictionary)) {
        texts[key] = textOf(value);
    }
    return texts;
}

/// A dictionary of dictionaries, in its order: a catalogue, a rename table, a ringtone list.
using Table = std::vector<std::pair<std::string, Texts>>;

inline Table tableOf(CFDictionaryRef dictionary) {
    Table table;
    for (const auto& [key, value] : pairsIn(dictionary)) {
        const auto entry = cast<CFDictionaryRef>(value);
        table.emplace_back(key, entry != nullptr ? textsOf(entry) : Texts{{"not", "an entry"}});
    }
    return table;
}

inline std::vector<std::string> keysOf(CFDictionaryRef dictionary) {
    std::vector<std::string> keys;
    for (const auto& pair : pairsIn(dictionary)) {
        keys.push_back(pair.first);
    }
    return keys;
}

// ---------------------------------------------------------------------------- ringtones

/// One ringtone, or one entry of a catalogue.
class Tone {
public:
    Tone() = default;

    explicit Tone(const Texts& texts) {
        for (const auto& [key, value] : texts) {
            with(key, value);
        }
    }

    Tone& with(std::string_view key, std::string_view text) {
        return withObject(key, string(text).get());
    }

    Tone& withObject(std::string_view key, CFTypeRef value) {
        CFDictionarySetValue(values_.get(), string(key).get(), value);
        return *this;
    }

    Tone& without(std::string_view key) {
        CFDictionaryRemoveValue(values_.get(), string(key).get());
        return *this;
    }

    CFMutableDictionaryRef get() const { return values_.get(); }

private:
    CFRef<CFMutableDictionaryRef> values_ = emptyDictionary();
};

inline std::string guidOf(std::string_view name) {
    return "guid-" + std::string(name);
}

/// A new ringtone, without a source file.
inline Tone newTone(std::string_view name, std::string_view fileType) {
    return Tone().with("Name", name).with("GUID", guidOf(name)).with("FileType", fileType);
}

/// A ringtone as the loader gives it.
inline Tone toneOnPhone(std::string_view name, std::string_view fileName) {
    return newTone(name, fileName.substr(fileName.size() < 3 ? 0 : fileName.size() - 3))
        .withObject("FileSize", number(1).get())
        .with("RemotePath", kFolder + "/" + std::string(fileName));
}

/// A ringtone list: name to ringtone.
inline CFRef<CFMutableDictionaryRef> listOf(const std::vector<Tone>& tones) {
    auto list = emptyDictionary();
    for (const Tone& tone : tones) {
        CFDictionarySetValue(list.get(), valueOf(tone.get(), "Name"), tone.get());
    }
    return list;
}

/// A catalogue: file name to entry.
inline CFRef<CFMutableDictionaryRef>
catalogueOf(const std::vector<std::pair<std::string, Tone>>& entries) {
    auto catalogue = emptyDictionary();
    for (const auto& [fileName, entry] : entries) {
        CFDictionarySetValue(catalogue.get(), string(fileName).get(), entry.get());
    }
    return catalogue;
}

/// An entry of exactly "Name" and "GUID".
inline Tone companionOf(std::string_view name) {
    return Tone().with("Name", name).with("GUID", guidOf(name));
}

/// Whether firmware 1.1.1 meets the file with this extension before its companion, when the
/// catalogue has nothing else.
inline bool isMetFirst(const std::string& base, const std::string& extension) {
    const auto catalogue = catalogueOf(
        {{base + "." + extension, companionOf("x")}, {base + ".m4r", companionOf("x")}});
    return bool(adopt(KRTRingtoneManagerIsValidFor111(catalogue.get())));
}

/// The first base name of a row AAAA, BAAA, CAAA, ... whose mp3 file is met first, or is not.
inline std::string baseThatMeets(bool mp3First) {
    for (char c = 'A'; c <= 'R'; ++c) {
        std::string base = {c, 'A', 'A', 'A'};
        if (isMetFirst(base, "mp3") == mp3First) {
            return base;
        }
    }
    throw std::logic_error("no base name with this order");
}

/// An extension with which this base name is met before its companion.
inline std::string extensionMetFirst(const std::string& base) {
    for (const char* extension : {"mp3", "wav", "aif", "m4a", "m4p"}) {
        if (isMetFirst(base, extension)) {
            return extension;
        }
    }
    throw std::logic_error("no extension with this order");
}

/// The names that every generation draws, in turn.
inline const std::vector<std::string> kFirstNames = {"BQJH", "FHKM", "PBON", "OHFE",
                                                     "GAQK", "RIPP", "IIIN", "BBFA"};

// ---------------------------------------------------------------------------- files

/// Files on this computer that go with their owner.
class LocalFiles {
public:
    /// Writes a file and returns its path.
    std::string file(const std::string& name, std::string_view contents) const {
        const std::filesystem::path path = folder_.path() / name;
        std::ofstream(path, std::ios::binary) << contents;
        return path;
    }

    std::string path(const std::string& name) const { return folder_.path() / name; }

private:
    virtualphone::testing::TemporaryFolder folder_;
};

// ---------------------------------------------------------------------------- reports

/// Records the reports of a submit, "mode status max value", with the message behind it, and
/// answers.
struct Reports {
    std::vector<std::string> lines;
    /// Called with the report's index and line.
    std::function<bool(size_t, const std::string&)> answer = [](size_t, const std::string&) {
        return true;
    };

    static bool receive(int32_t mode, int32_t status, uint32_t max, uint32_t value,
                        const char* message, void* context) {
        auto& self = *static_cast<Reports*>(context);
        std::string line = std::to_string(mode) + " " + std::to_string(status) + " " +
                           std::to_string(max) + " " + std::to_string(value);
        if (message != nullptr) {
            line += std::string(" ") + message;
        }
        self.lines.push_back(line);
        return self.answer(self.lines.size() - 1, line);
    }
};

// ---------------------------------------------------------------------------- the phone

/// The recorded code; nothing when the record is empty.
inline std::optional<int> recordedCode() {
    return KRTError() ? std::optional(KRTErrorGetCode()) : std::nullopt;
}

/// A fake phone with its record, known and closed as after its arrival, and its store.
class Store {
public:
    explicit Store(std::string_view firmware = "1.1.3") {
        KRTErrorClear();
        phone = KRTPhoneWithDevice(fake.phone().device());
        manager = KRTPhoneGetRingtoneManager(phone);
        setFirmware(firmware);
    }

    ~Store() {
        fake.onCall(nullptr);
        KRTPhoneRelease(phone);
        KRTErrorClear();
    }

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    void setFirmware(std::string_view version) {
        fake.phone().firmware(version);
        KRTPhoneUpdateInformation(phone);
        fake.clearCalls();
    }

    Counts counts() const { return {phone->openCount, phone->fileServiceCount}; }

    /// Opens the phone as the caller of a submit does, and forgets the calls.
    void openPhone(int times = 1) {
        for (int i = 0; i < times; ++i) {
            if (KRTPhoneOpen(phone) != 1) {
                throw std::logic_error("the phone does not open");
            }
        }
        fake.clearCalls();
    }

    /// Puts a file into the ringtone folder and gives its ringtone as the loader would.
    Tone putTone(std::string_view name, const std::string& fileName,
                 std::string contents = "bytes") {
        fake.phone().file(kFolder + "/" + fileName, std::move(contents));
        return toneOnPhone(name, fileName);
    }

    void putCatalogueBytes(std::string bytes) { fake.phone().file(kCatalogue, std::move(bytes)); }

    void putRoot(CFTypeRef root) {
        const auto bytes = adopt(CFPropertyListCreateXMLData(nullptr, root));
        if (!bytes) {
            throw std::logic_error("no property list");
        }
        putCatalogueBytes(std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.get())),
                                      static_cast<size_t>(CFDataGetLength(bytes.get()))));
    }

    void putCatalogue(const std::vector<std::pair<std::string, Tone>>& entries) {
        const Tone root = Tone().withObject("Ringtones", catalogueOf(entries).get());
        putRoot(root.get());
    }

    /// The catalogue on the phone, its keys in the order of the file.
    Table writtenCatalogue() {
        const std::string& bytes = fake.phone().contents(kCatalogue);
        const auto data = adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size())));
        const auto root = adopt(CFPropertyListCreateFromXMLData(nullptr, data.get(), 0, nullptr));
        const auto dictionary = cast<CFDictionaryRef>(root.get());
        const auto ringtones = cast<CFDictionaryRef>(valueOf(dictionary, "Ringtones"));
        if (ringtones == nullptr || CFDictionaryGetCount(dictionary) != 1) {
            throw std::logic_error("no catalogue of one key");
        }
        return tableOf(ringtones);
    }

    /// The names in the ringtone folder.
    std::vector<std::string> filesOnPhone() { return fake.phone().names(kFolder); }

    const std::string& contentsOnPhone(const std::string& fileName) {
        return fake.phone().contents(kFolder + "/" + fileName);
    }

    CFRef<CFMutableDictionaryRef> load() {
        return adopt(KRTRingtoneManagerLoadCurrentRingtoneList(manager));
    }

    /// The phone's ringtones, which must load.
    Table loaded() {
        const auto list = load();
        if (!list) {
            ADD_FAILURE() << "the list does not load, code " << KRTErrorGetCode();
            return {};
        }
        return tableOf(list.get());
    }

    int submit(const std::vector<Tone>& added, const std::vector<Tone>& removed = {},
               const std::vector<Tone>& unchanged = {}) {
        return KRTRingtoneManagerSubmitChanges(manager, listOf(added).get(), listOf(removed).get(),
                                               listOf(unchanged).get());
    }

    /// The whole sync of a caller: open, submit, close.
    int sync(const std::vector<Tone>& added, const std::vector<Tone>& removed = {},
             const std::vector<Tone>& unchanged = {}) {
        openPhone();
        const int result = submit(added, removed, unchanged);
        KRTPhoneClose(phone);
        return result;
    }

    void reportTo(Reports& reports) {
        KRTRingtoneManagerSetStatusResponder(manager, Reports::receive, &reports);
    }

    /// A new ringtone with a source file on this computer.
    Tone toneWithSource(std::string_view name, std::string_view fileType,
                        std::string_view contents = "source bytes") {
        return newTone(name, fileType)
            .with("LocalPath",
                  computer.file(std::string(name) + "." + std::string(fileType), contents));
    }

    LocalFiles computer;
    FakeMobileDevice fake;
    KRTPhoneRef phone = nullptr;
    KRTRingtoneManagerRef manager = nullptr;
};

class StoreTest : public ::testing::Test, protected Store {};
