/// Ringtones, on a phone and in dictionaries, in short.
#pragma once

#include "tests/library/objects/Values.h"

#include <KRLVesk/KRTRingtoneManager.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace krl::test {

using Record = cf::CFRef<CFMutableDictionaryRef>;

/// What the application hands over.
struct Tone {
    std::string name;
    std::string localPath{};
    std::string fileType = "m4r";
    int64_t fileSize = -1; ///< none when negative
};

inline Record record(const Tone& tone) {
    auto made = dictionary();
    CFDictionarySetValue(made.get(), KRTRingtoneName, str(tone.name).get());
    CFDictionarySetValue(made.get(), KRTFileKey, str("GUID of " + tone.name).get());
    CFDictionarySetValue(made.get(), CFSTR("FileType"), str(tone.fileType).get());
    if (!tone.localPath.empty()) {
        CFDictionarySetValue(made.get(), KRTLocalPath, str(tone.localPath).get());
    }
    if (tone.fileSize >= 0) {
        CFDictionarySetValue(made.get(), KRTFileSize, number(tone.fileSize).get());
    }
    return made;
}

/// A list from name to ringtone.
inline Record listOf(const std::vector<Record>& records) {
    auto list = dictionary();
    for (const Record& each : records) {
        CFDictionarySetValue(list.get(), CFDictionaryGetValue(each.get(), KRTRingtoneName),
                             each.get());
    }
    return list;
}

inline std::string nameOf(CFTypeRef record) {
    return record == nullptr
               ? "(null)"
               : text(CFDictionaryGetValue(static_cast<CFDictionaryRef>(record), KRTRingtoneName));
}

inline std::string valueOf(const Record& record, CFStringRef key) {
    return text(CFDictionaryGetValue(record.get(), key));
}

/// An entry of the phone's catalogue.
struct Entry {
    std::string file;
    std::string name;
    std::string localPath{};
    /// More keys with string values. Without any, an m4r entry would be taken for a companion.
    std::vector<std::pair<std::string, std::string>> more = {{"TrackID", "1"}};
};

/// The entry with this name alone and the GUID that every entry has.
inline Entry companion(const std::string& file, const std::string& name) {
    return {file, name, {}, {}};
}

inline std::string catalogueOf(const std::vector<Entry>& entries) {
    std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)"
                      "<key>Ringtones</key><dict>";
    const auto add = [&xml](const std::string& key, const std::string& value) {
        xml += "<key>" + key + "</key><string>" + value + "</string>";
    };
    for (const Entry& entry : entries) {
        xml += "<key>" + entry.file + "</key><dict>";
        add("Name", entry.name);
        add("GUID", "GUID of " + entry.name);
        if (!entry.localPath.empty()) {
            add("LocalPath", entry.localPath);
        }
        for (const auto& [key, value] : entry.more) {
            add(key, value);
        }
        xml += "</dict>";
    }
    return xml + "</dict></dict></plist>";
}

/// A catalogue as a dictionary.
inline Record parsedCatalogue(const std::vector<Entry>& entries) {
    const std::string xml = catalogueOf(entries);
    const auto data = cf::adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(xml.data()),
                                             static_cast<CFIndex>(xml.size())));
    const CFPropertyListRef list = CFPropertyListCreateFromXMLData(
        nullptr, data.get(), kCFPropertyListMutableContainersAndLeaves, nullptr);
    return cf::adopt(static_cast<CFMutableDictionaryRef>(const_cast<void*>(list)));
}

inline const std::string kCataloguePath = "/iTunes_Control/iTunes/Ringtones.plist";
inline const std::string kFolder = "/iTunes_Control/Ringtones/";

/// Puts ringtones on a phone that has file() and directory(), with their files.
template <typename Phone>
void putRingtones(Phone& phone, const std::vector<Entry>& entries,
                  const std::string& contents = "sound") {
    phone.file(kCataloguePath, catalogueOf(entries));
    for (const Entry& entry : entries) {
        phone.file(kFolder + entry.file, contents);
    }
}

/// A file of this computer with a ringtone's bytes, removed with the test.
class SourceFile {
public:
    explicit SourceFile(const std::string& contents) {
        std::string name = (std::filesystem::temp_directory_path() / "ringtone-XXXXXX").string();
        const int descriptor = mkstemp(name.data());
        if (descriptor == -1) {
            throw std::runtime_error("cannot make a temporary file");
        }
        close(descriptor);
        path_ = name;
        std::ofstream(path_, std::ios::binary) << contents;
    }

    ~SourceFile() { std::filesystem::remove(path_); }

    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

} // namespace krl::test
