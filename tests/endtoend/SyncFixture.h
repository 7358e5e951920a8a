// A phone found over the mux socket by the library that users get, and whole syncs on it.
#pragma once

#include "tests/endtoend/Lists.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <plist/plist.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace krl::test {

/// File name to the keys of its entry, as the catalogue on the phone has it; read with libplist,
/// not with what wrote it.
using Catalogue = std::map<std::string, std::map<std::string, std::string>>;

inline Catalogue readCatalogue(const std::string& xml) {
    Catalogue catalogue;
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    const std::unique_ptr<void, void (*)(void*)> owner(root, plist_free);
    plist_t ringtones = root != nullptr ? plist_dict_get_item(root, "Ringtones") : nullptr;
    if (ringtones == nullptr) {
        ADD_FAILURE() << "not a catalogue:\n" << xml;
        return catalogue;
    }
    const auto forEach = [](plist_t dictionary, auto visit) {
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(dictionary, &iterator);
        const std::unique_ptr<void, void (*)(void*)> iteratorOwner(iterator, std::free);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(dictionary, iterator, &key, &value);
            if (value == nullptr) {
                return;
            }
            visit(std::string(key), value);
            std::free(key);
        }
    };
    forEach(ringtones, [&](const std::string& fileName, plist_t entry) {
        forEach(entry, [&](const std::string& key, plist_t value) {
            char* string = nullptr;
            plist_get_string_val(value, &string);
            catalogue[fileName][key] = string != nullptr ? string : "";
            std::free(string);
        });
    });
    return catalogue;
}

/// Lets phones come and go until something holds; false when it takes far too long.
template <typename Condition>
bool runUntil(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
    }
    return true;
}

class SyncTest : public virtualphone::testing::VirtualPhoneTest {
protected:
    static constexpr const char* kFolder = "/iTunes_Control/Ringtones";
    static constexpr const char* kCatalogue = "/iTunes_Control/iTunes/Ringtones.plist";

    void SetUp() override {
        VirtualPhoneTest::SetUp();
        KRTErrorClear();
        ASSERT_NE(AMDeviceConnect, nullptr) << "the provider was not loaded";
        KRTPhoneManagerInit();
        delegate_ = KRTPhoneManagerAddDelegate(this, phoneConnected, phoneRemoved);
        ASSERT_TRUE(runUntil([this] { return krtPhone_ != nullptr; })) << "no phone arrived";
    }

    void TearDown() override {
        KRTPhoneManagerRemoveDelegate(delegate_);
        KRTPhoneManagerShutdown();
        AMDeviceSetCallTimeout(0);
        KRTErrorClear();
    }

    KRTPhoneRef krtPhone() { return krtPhone_; }

    KRTRingtoneManagerRef store() { return KRTPhoneGetRingtoneManager(krtPhone_); }

    bool hasPhone() const { return krtPhone_ != nullptr; }

    /// A file on this computer.
    std::filesystem::path sourceFile(const std::string& name, const std::string& bytes) {
        const std::filesystem::path path = temporaryFolder() / "sources" / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    List load() { return cf::adopt(KRTRingtoneManagerLoadCurrentRingtoneList(store())); }

    /// Opens the phone, takes the lock, submits, gives both back. The result of the submit.
    int sync(const List& added, const List& removed, const List& unchanged) {
        if (KRTPhoneOpen(krtPhone_) != 1) {
            return 0;
        }
        KRTPhoneBeginSync(krtPhone_);
        const int result =
            KRTRingtoneManagerSubmitChanges(store(), added.get(), removed.get(), unchanged.get());
        KRTPhoneEndSync(krtPhone_);
        KRTPhoneClose(krtPhone_);
        return result;
    }

    int syncAdding(const List& added) { return sync(added, emptyList(), load()); }

    std::set<std::string> filesOnPhone() const {
        std::set<std::string> names;
        if (std::filesystem::is_directory(onDisk(kFolder))) {
            for (const auto& entry : std::filesystem::directory_iterator(onDisk(kFolder))) {
                names.insert(entry.path().filename().string());
            }
        }
        return names;
    }

    Catalogue catalogueOnPhone() const { return readCatalogue(contents(kCatalogue)); }

    /// The names that the library shows, in no order.
    std::set<std::string> loadedNames() {
        std::set<std::string> names;
        const List list = load();
        if (!list) {
            ADD_FAILURE() << "the list was not loaded: " << KRTErrorGetCode();
            return names;
        }
        const auto keys = cf::adopt(CFGetAllKeys(list.get()));
        for (CFIndex i = 0; i < CFArrayGetCount(keys.get()); ++i) {
            char name[256] = {};
            CFStringGetCString(static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i)),
                               name, sizeof name, kCFStringEncodingUTF8);
            names.insert(name);
        }
        return names;
    }

private:
    static void phoneConnected(void* context, KRTPhoneRef phone) {
        static_cast<SyncTest*>(context)->krtPhone_ = phone;
    }

    static void phoneRemoved(void* context, KRTPhoneRef phone) {
        auto* self = static_cast<SyncTest*>(context);
        if (self->krtPhone_ == phone) {
            self->krtPhone_ = nullptr;
        }
    }

    KRTPhoneManagerDelegateRef delegate_ = nullptr;
    KRTPhoneRef krtPhone_ = nullptr;
};

} // namespace krl::test
