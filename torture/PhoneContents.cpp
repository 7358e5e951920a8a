#include "torture/PhoneContents.h"

#include "plist/Bounded.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

namespace torture {
namespace {

namespace fs = std::filesystem;

constexpr char kFolder[] = "iTunes_Control/Ringtones/";
constexpr char kCatalogue[] = "iTunes_Control/iTunes/Ringtones.plist";

std::string textAt(plist_t dictionary, const char* key) {
    char* text = nullptr;
    plist_t const node = plist_dict_get_item(dictionary, key);
    if (node != nullptr && plist_get_node_type(node) == PLIST_STRING) {
        plist_get_string_val(node, &text);
    }
    const std::string result = text == nullptr ? "" : text;
    std::free(text);
    return result;
}

} // namespace

Files filesOf(const fs::path& root) {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) {
            std::ifstream file(entry.path(), std::ios::binary);
            files[fs::relative(entry.path(), root).string()] = {
                std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        }
    }
    return files;
}

void putFiles(const fs::path& root, const Files& files) {
    fs::remove_all(root);
    fs::create_directories(root);
    for (const auto& [name, bytes] : files) {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name, std::ios::binary) << bytes;
    }
}

Ringtones ringtonesOf(const Files& files) {
    Ringtones result;
    const auto catalogue = files.find(kCatalogue);
    std::set<std::string> listed;
    if (catalogue != files.end()) {
        const krl::plist::Owned root = krl::plist::readBounded(catalogue->second);
        plist_t const entries =
            root == nullptr ? nullptr : plist_dict_get_item(root.get(), "Ringtones");
        result.isReadable = entries != nullptr && plist_get_node_type(entries) == PLIST_DICT;
        plist_dict_iter iterator = nullptr;
        if (result.isReadable) {
            plist_dict_new_iter(entries, &iterator);
        }
        char* key = nullptr;
        plist_t entry = nullptr;
        while (iterator != nullptr) {
            plist_dict_next_item(entries, iterator, &key, &entry);
            if (entry == nullptr) {
                break;
            }
            const std::string file = key;
            std::free(key);
            listed.insert(file);
            constexpr uint32_t kOnlyNameAndGuid = 2;
            if (file.ends_with("m4r") && plist_dict_get_size(entry) == kOnlyNameAndGuid) {
                continue; // a placeholder
            }
            const auto sound = files.find(kFolder + file);
            result.sounds[textAt(entry, "Name")] = sound == files.end() ? "" : sound->second;
        }
        std::free(iterator);
    }
    for (const auto& [path, bytes] : files) {
        if (path.starts_with(kFolder) && !bytes.empty() &&
            !listed.contains(path.substr(sizeof kFolder - 1))) {
            result.unlisted.push_back(path);
        }
    }
    return result;
}

void putRingtone(const fs::path& root, const std::string& name, const std::string& sound) {
    constexpr char kFile[] = "ZZZZ.m4r";
    std::ofstream(root / kFolder / kFile, std::ios::binary) << sound;
    const Files files = filesOf(root);
    const krl::plist::Owned list = krl::plist::readBounded(files.at(kCatalogue));
    plist_t const entry = plist_new_dict();
    plist_dict_set_item(entry, "Name", plist_new_string(name.c_str()));
    plist_dict_set_item(entry, "GUID", plist_new_string("Z"));
    plist_dict_set_item(entry, "TrackID", plist_new_uint(7));
    plist_dict_set_item(plist_dict_get_item(list.get(), "Ringtones"), kFile, entry);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(list.get(), &xml, &length);
    std::ofstream(root / (std::string(kCatalogue) + ".new"), std::ios::binary).write(xml, length);
    std::free(xml);
    fs::rename(root / (std::string(kCatalogue) + ".new"), root / kCatalogue);
}

} // namespace torture
