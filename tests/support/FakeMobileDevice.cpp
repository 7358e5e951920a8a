#include "tests/support/FakeMobileDevice.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace krl::test {
namespace {

/// The text as a phone would get it.
std::string textOf(CFStringRef string) {
    return cf::utf8(string).value();
}

std::string parentOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string childrenPrefix(const std::string& directory) {
    return directory == "/" ? directory : directory + "/";
}

} // namespace

// ---------------------------------------------------------------------------- FakePhone

FakePhone::FakePhone(std::string label) : label_(std::move(label)) {
    nodes_["/"] = {true, 0, {}};
    directory("/iTunes_Control/iTunes").directory("/DCIM");
    name("Test Phone").deviceClass("iPhone").firmware("1.1.1");
    value("UniqueDeviceID", "00000000000000000000000000000000000000" + label_);
    value("com.apple.mobile.iTunes", "iTunesVersion", cf::stringOf("7.4").get());
    deviceInfo({{"Model", "M68AP"},
                {"FSTotalBytes", "7634264064"},
                {"FSFreeBytes", "4294967296"},
                {"FSBlockSize", "4096"}});
}

FakePhone& FakePhone::value(const std::string& key, std::string_view text) {
    return value("", key, cf::stringOf(text).get());
}

FakePhone& FakePhone::value(const std::string& domain, const std::string& key, CFTypeRef object) {
    withoutValue(key, domain);
    domains_[domain].emplace_back(key, cf::retain(object));
    return *this;
}

FakePhone& FakePhone::withoutValue(const std::string& key, const std::string& domain) {
    std::erase_if(domains_[domain], [&](const auto& value) { return value.first == key; });
    return *this;
}

FakePhone& FakePhone::withoutDomain(const std::string& domain) {
    domains_.erase(domain);
    return *this;
}

FakePhone& FakePhone::paired(bool isPaired) {
    return pairedAnswer(isPaired ? 1 : 0);
}

FakePhone& FakePhone::pairedAnswer(int32_t answer) {
    pairedAnswer_ = answer;
    return *this;
}

FakePhone& FakePhone::lockHeldElsewhere(const std::string& path, bool held) {
    heldElsewhere_[path] = held;
    return *this;
}

FakePhone& FakePhone::freeSpace(uint64_t bytes) {
    for (InfoPair& pair : deviceInfo_) {
        if (pair.key == "FSFreeBytes") {
            pair.value = std::to_string(bytes);
        }
    }
    return *this;
}

FakePhone& FakePhone::deviceInfo(InfoPairs pairs) {
    deviceInfo_ = std::move(pairs);
    return *this;
}

FakePhone& FakePhone::fileInfo(const std::string& path, InfoPairs pairs) {
    fileInfo_[path] = std::move(pairs);
    return *this;
}

FakePhone& FakePhone::readAtMost(uint32_t bytes) {
    readAtMost_ = bytes;
    return *this;
}

FakePhone& FakePhone::file(const std::string& path, std::string contents) {
    directory(parentOf(path));
    add(path, /*isDirectory=*/false, std::move(contents));
    return *this;
}

FakePhone& FakePhone::directory(const std::string& path) {
    if (find(path) == nullptr) {
        directory(parentOf(path));
        add(path, /*isDirectory=*/true, {});
    }
    return *this;
}

FakePhone& FakePhone::remove(const std::string& path) {
    nodes_.erase(path);
    return *this;
}

bool FakePhone::hasFile(const std::string& path) const {
    const Node* node = find(path);
    return node != nullptr && !node->isDirectory;
}

bool FakePhone::hasDirectory(const std::string& path) const {
    const Node* node = find(path);
    return node != nullptr && node->isDirectory;
}

const std::string& FakePhone::contents(const std::string& path) const {
    return nodes_.at(path).contents;
}

std::vector<std::string> FakePhone::names(const std::string& directory) const {
    const std::string prefix = childrenPrefix(directory);
    std::vector<std::pair<uint64_t, std::string>> children;
    for (auto at = nodes_.lower_bound(prefix); at != nodes_.end(); ++at) {
        if (at->first.compare(0, prefix.size(), prefix) != 0) {
            break;
        }
        std::string name = at->first.substr(prefix.size());
        if (!name.empty() && name.find('/') == std::string::npos) {
            children.emplace_back(at->second.serial, std::move(name));
        }
    }
    std::sort(children.begin(), children.end());
    std::vector<std::string> names;
    for (auto& child : children) {
        names.push_back(std::move(child.second));
    }
    return names;
}

FakePhone::Node* FakePhone::find(const std::string& path) {
    const auto at = nodes_.find(path);
    return at == nodes_.end() ? nullptr : &at->second;
}

const FakePhone::Node* FakePhone::find(const std::string& path) const {
    const auto at = nodes_.find(path);
    return at == nodes_.end() ? nullptr : &at->second;
}

bool FakePhone::hasParent(const std::string& path) const {
    return !path.empty() && path.front() == '/' && hasDirectory(parentOf(path));
}

void FakePhone::add(const std::string& path, bool isDirectory, std::string contents) {
    nodes_.insert_or_assign(path, Node{isDirectory, nextSerial_++, std::move(contents)});
}

void FakePhone::rename(const std::string& from, const std::string& to) {
    std::map<std::string, Node> moved;
    const std::string prefix = childrenPrefix(from);
    for (auto at = nodes_.begin(); at != nodes_.end();) {
        const bool below = at->first.compare(0, prefix.size(), prefix) == 0;
        if (below || at->first == from) {
            moved[to + at->first.substr(from.size())] = std::move(at->second);
            at = nodes_.erase(at);
        } else {
            ++at;
        }
    }
    for (auto& [path, node] : moved) {
        nodes_.insert_or_assign(path, std::move(node));
    }
}

bool FakePhone::isEmptyDirectory(const std::string& path) const {
    return hasDirectory(path) && names(path).empty();
}

CFTypeRef FakePhone::copyValue(const std::string& domain, CFStringRef key) const {
    const auto at = domains_.find(domain);
    if (at == domains_.end()) {
        return nullptr;
    }
    if (key == nullptr) {
        auto all = cf::makeDictionary();
        for (const auto& [name, object] : at->second) {
            CFDictionarySetValue(all.get(), cf::stringOf(name).get(), object.get());
        }
        return all.leak();
    }
    const std::string wanted = textOf(key);
    for (const auto& [name, object] : at->second) {
        if (name == wanted) {
            return CFRetain(object.get());
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------------------- handles

namespace {

struct Subscription {
    am_device_notification_callback callback;
    bool isOpen = true;
};

struct Service {
    FakePhone* phone;
    std::string name;
    bool isOpen = true;
};

struct Connection {
    FakePhone* phone;
    int number;
    bool isOpen = true;
    bool isDead = false; // the phone was pulled out
};

struct Directory {
    Connection* connection;
    std::vector<std::string> names;
    size_t next = 0;
    bool isOpen = true;
};

struct KeyValues {
    Connection* connection;
    InfoPairs pairs;
    size_t next = 0;
    bool isOpen = true;
};

struct File {
    uint64_t number;
    Connection* connection;
    std::string path;
    uint64_t mode;
    size_t position = 0;
    bool isOpen = true;
};

// Handles live as long as the fake, so that one that is used after its end is told apart for sure.
template <typename T>
using Pool = std::vector<std::unique_ptr<T>>;

template <typename T>
T* lookUp(const Pool<T>& pool, const void* handle) {
    // The latest first: it is the one that is mostly asked for.
    const auto at = std::find_if(pool.rbegin(), pool.rend(),
                                 [&](const auto& item) { return item.get() == handle; });
    return at == pool.rend() ? nullptr : at->get();
}

template <typename T>
int countOpen(const Pool<T>& pool) {
    return static_cast<int>(
        std::count_if(pool.begin(), pool.end(), [](const auto& item) { return item->isOpen; }));
}

template <typename T, typename... Arguments>
T* make(Pool<T>& pool, Arguments&&... arguments) {
    pool.push_back(std::make_unique<T>(T{std::forward<Arguments>(arguments)...}));
    return pool.back().get();
}

} // namespace

struct FakeMobileDevice::State {
    Pool<FakePhone> phones;
    Pool<Subscription> subscriptions;
    Pool<Service> services;
    Pool<Connection> connections;
    Pool<Directory> directories;
    Pool<KeyValues> keyValues;
    Pool<File> files;
};

// ---------------------------------------------------------------------------- the functions

// What the function variables point to.
struct FakeFunctions {
    using State = FakeMobileDevice::State;

    static FakeMobileDevice* current;

    static State& state() { return *current->state_; }

    // ------------------------------------------------------------ recording and faults

    // Records a call; a fault's status when it is to fail.
    static std::optional<int32_t> enter(std::string_view function, const std::string& arguments,
                                        const FakePhone* phone) {
        std::string line(function);
        if (!arguments.empty()) {
            line += " " + arguments;
        }
        if (phone != nullptr && phone != state().phones.front().get()) {
            line += " [" + phone->label_ + "]";
        }
        current->calls_.push_back(line);
        if (current->observer_) {
            // A copy, as the observer may replace itself.
            const auto observer = current->observer_;
            observer(line);
        }
        return faultOf(function);
    }

    static bool canFail(std::string_view function) {
        return function != "AMDeviceRetain" && function != "AMDeviceRelease" &&
               function != "AMDeviceSetCallTimeout";
    }

    static std::optional<int32_t> faultOf(std::string_view function) {
        if (!canFail(function)) {
            return std::nullopt;
        }
        std::optional<int32_t> status;
        for (auto& fault : current->faults_) {
            if (!fault.function.empty() && fault.function != function) {
                continue;
            }
            ++fault.seen;
            if (!status && fault.seen >= fault.first && fault.seen <= fault.last) {
                status = fault.status;
            }
        }
        current->faultsMet_ += status ? 1 : 0;
        return status;
    }

    static std::string word(const char* text) { return text == nullptr ? "null" : text; }

    static std::string word(CFStringRef text) { return text == nullptr ? "*" : textOf(text); }

    // ------------------------------------------------------------ looking handles up

    // A listing or a list of pairs, null when there is none: closed once, and what is scripted told.
    template <typename List>
    static int32_t closeOnce(List* list, std::optional<int32_t> fault) {
        if (list == nullptr) {
            return kAFCInvalidArgument;
        }
        if (!std::exchange(list->isOpen, false)) {
            ++current->doubleCloses_;
            return kAFCInvalidArgument;
        }
        return fault.value_or(kAFCSuccess);
    }

    static FakePhone* phoneOf(const am_device* device) { return lookUp(state().phones, device); }

    static std::string deviceNote(const am_device* device) {
        if (device == nullptr) {
            return "null";
        }
        return phoneOf(device) == nullptr ? "unknown" : "";
    }

    // The arguments of a function that takes a device first, for the record.
    static std::string withDevice(const am_device* device, const std::string& arguments = {}) {
        const std::string note = deviceNote(device);
        return note.empty() || arguments.empty() ? note + arguments : note + " " + arguments;
    }

    static Connection* connectionOf(const afc_connection* handle) {
        return lookUp(state().connections, handle);
    }

    static const FakePhone* phoneOf(const afc_connection* handle) {
        const Connection* connection = connectionOf(handle);
        return connection == nullptr ? nullptr : connection->phone;
    }

    // The arguments of a file-service function, for the record.
    static std::string onConnection(const afc_connection* handle, const std::string& arguments) {
        const Connection* connection = connectionOf(handle);
        if (handle == nullptr) {
            return arguments + " (null connection)";
        }
        if (connection == nullptr) {
            return arguments + " (unknown connection)";
        }
        return connection->isOpen ? arguments : arguments + " (closed connection)";
    }

    static int32_t statusOf(const Connection* connection) {
        return connection != nullptr && connection->isOpen && !connection->isDead
                   ? kAFCSuccess
                   : kAFCNotConnected;
    }

    static std::optional<int32_t> enterFileCall(std::string_view function,
                                                const afc_connection* handle,
                                                const std::string& arguments) {
        const auto fault = enter(function, onConnection(handle, arguments), phoneOf(handle));
        if (fault) {
            return fault;
        }
        const int32_t status = statusOf(connectionOf(handle));
        return status == kAFCSuccess ? std::nullopt : std::optional(status);
    }

    // An open file, and only on the connection that it was opened on.
    static File* fileOf(const afc_connection* handle, afc_file_ref number) {
        if (number < 1 || number > state().files.size()) {
            return nullptr;
        }
        File* file = state().files[number - 1].get();
        return file->isOpen && file->connection == connectionOf(handle) ? file : nullptr;
    }

    static void closeFile(File& file) {
        file.isOpen = false;
        auto& holders = file.connection->phone->lockHolders_;
        const auto holder = holders.find(file.path);
        if (holder != holders.end() && holder->second == file.number) {
            holders.erase(holder);
        }
    }

    // ------------------------------------------------------------ devices

    static int32_t notificationSubscribe(am_device_notification_callback callback, uint32_t,
                                         uint32_t, void*, am_device_notification** notification) {
        if (const auto fault = enter("AMDeviceNotificationSubscribe", "", nullptr)) {
            return *fault;
        }
        if (callback == nullptr || notification == nullptr) {
            return kFakeBadHandle;
        }
        *notification =
            reinterpret_cast<am_device_notification*>(make(state().subscriptions, callback));
        return 0;
    }

    static int32_t shutdownNotificationProxy(void* handle) {
        Subscription* subscription = lookUp(state().subscriptions, handle);
        Service* service = lookUp(state().services, handle);
        const char* kind = handle == nullptr         ? "null"
                           : subscription != nullptr ? "subscription"
                           : service != nullptr      ? "proxy"
                                                     : "unknown";
        const auto fault = enter("AMDShutdownNotificationProxy", kind,
                                 service == nullptr ? nullptr : service->phone);
        bool* isOpen = subscription != nullptr ? &subscription->isOpen
                       : service != nullptr    ? &service->isOpen
                                               : nullptr;
        if (isOpen == nullptr) {
            return kFakeBadHandle;
        }
        if (!*isOpen) {
            ++current->doubleCloses_;
            return kFakeBadHandle;
        }
        *isOpen = false;
        return fault.value_or(0);
    }

    static am_device* retain(am_device* device) {
        FakePhone* phone = phoneOf(device);
        enter("AMDeviceRetain", deviceNote(device), phone);
        if (phone != nullptr) {
            ++phone->references_;
        }
        return device;
    }

    static void release(am_device* device) {
        FakePhone* phone = phoneOf(device);
        enter("AMDeviceRelease", deviceNote(device), phone);
        if (phone != nullptr) {
            --phone->references_;
        }
    }

    // What all functions that talk to the phone's own connection have in common.
    static std::optional<int32_t> enterDeviceCall(std::string_view function,
                                                  const am_device* device,
                                                  const std::string& arguments = {}) {
        const FakePhone* phone = phoneOf(device);
        if (const auto fault = enter(function, withDevice(device, arguments), phone)) {
            return fault;
        }
        if (phone == nullptr) {
            return kFakeBadHandle;
        }
        return phone->reachable_ ? std::nullopt : std::optional<int32_t>(kFakeNotConnected);
    }

    static int32_t connect(am_device* device) {
        if (const auto failed = enterDeviceCall("AMDeviceConnect", device)) {
            return *failed;
        }
        phoneOf(device)->connected_ = true;
        phoneOf(device)->validated_ = false;
        phoneOf(device)->inSession_ = false;
        return 0;
    }

    static int32_t disconnect(am_device* device) {
        FakePhone* phone = phoneOf(device);
        const auto failed = enterDeviceCall("AMDeviceDisconnect", device);
        if (phone == nullptr) {
            return *failed;
        }
        const bool wasConnected = std::exchange(phone->connected_, false);
        phone->inSession_ = false;
        return failed.value_or(wasConnected ? 0 : kFakeNotConnected);
    }

    static int32_t isPaired(am_device* device) {
        const FakePhone* phone = phoneOf(device);
        const auto fault = enter("AMDeviceIsPaired", deviceNote(device), phone);
        return fault || phone == nullptr ? 0 : phone->pairedAnswer_;
    }

    static int32_t validatePairing(am_device* device) {
        if (const auto failed = enterDeviceCall("AMDeviceValidatePairing", device)) {
            return *failed;
        }
        FakePhone* phone = phoneOf(device);
        if (!phone->connected_) {
            return kFakeNotConnected;
        }
        phone->validated_ = phone->pairedAnswer_ != 0;
        return phone->validated_ ? 0 : kFakeNotPaired;
    }

    static int32_t startSession(am_device* device) {
        if (const auto failed = enterDeviceCall("AMDeviceStartSession", device)) {
            return *failed;
        }
        FakePhone* phone = phoneOf(device);
        if (!phone->connected_) {
            return kFakeNotConnected;
        }
        if (!phone->validated_) {
            return kFakeNotPaired;
        }
        return std::exchange(phone->inSession_, true) ? kFakeSessionActive : 0;
    }

    static int32_t stopSession(am_device* device) {
        if (const auto failed = enterDeviceCall("AMDeviceStopSession", device)) {
            return *failed;
        }
        FakePhone* phone = phoneOf(device);
        return std::exchange(phone->inSession_, false) ? 0 : kFakeSessionInactive;
    }

    static int32_t startService(am_device* device, CFStringRef name, am_service** service,
                                uint32_t* unused) {
        const std::string note = unused == nullptr ? "" : " (unused argument)";
        if (const auto failed =
                enterDeviceCall("AMDeviceStartService", device, word(name) + note)) {
            return *failed;
        }
        FakePhone* phone = phoneOf(device);
        if (!phone->inSession_) {
            return kFakeSessionInactive;
        }
        *service = reinterpret_cast<am_service*>(make(state().services, phone, word(name)));
        return 0;
    }

    static CFTypeRef copyValue(am_device* device, CFStringRef domain, CFStringRef key) {
        const auto failed =
            enterDeviceCall("AMDeviceCopyValue", device, word(domain) + " " + word(key));
        if (failed || !phoneOf(device)->connected_) {
            return nullptr;
        }
        return phoneOf(device)->copyValue(domain == nullptr ? "" : textOf(domain), key);
    }

    static int32_t postNotification(am_service* proxy, CFStringRef name, CFTypeRef userInfo) {
        const Service* service = lookUp(state().services, proxy);
        std::string arguments = word(name);
        if (service == nullptr) {
            arguments += proxy == nullptr ? " (null proxy)" : " (unknown proxy)";
        } else if (!service->isOpen) {
            arguments += " (closed proxy)";
        }
        if (userInfo != nullptr) {
            arguments += " (user information)";
        }
        const auto fault =
            enter("AMDPostNotification", arguments, service == nullptr ? nullptr : service->phone);
        if (fault) {
            return *fault;
        }
        if (service == nullptr || !service->isOpen) {
            return kFakeBadHandle;
        }
        return service->phone->reachable_ ? 0 : kFakeNotConnected;
    }

    static void setCallTimeout(uint32_t timeoutMs) {
        enter("AMDeviceSetCallTimeout", std::to_string(timeoutMs), nullptr);
    }

    // ------------------------------------------------------------ file connections

    static int32_t connectionOpen(am_service* handle, uint32_t timeout,
                                  afc_connection** connection) {
        Service* service = lookUp(state().services, handle);
        std::string note = handle == nullptr ? "null" : service == nullptr ? "unknown" : "";
        if (timeout != 0) {
            note += "(timeout " + std::to_string(timeout) + ")";
        }
        const auto fault =
            enter("AFCConnectionOpen", note, service == nullptr ? nullptr : service->phone);
        if (fault) {
            return *fault;
        }
        if (service == nullptr || !service->isOpen) {
            return kAFCInvalidArgument;
        }
        if (!service->phone->reachable_) {
            return kAFCNotConnected;
        }
        service->isOpen = false; // it belongs to the file connection now
        const int number = static_cast<int>(state().connections.size()) + 1;
        *connection =
            reinterpret_cast<afc_connection*>(make(state().connections, service->phone, number));
        return kAFCSuccess;
    }

    static int32_t connectionClose(afc_connection* handle) {
        Connection* connection = connectionOf(handle);
        const std::string note = handle == nullptr       ? "null"
                                 : connection == nullptr ? "unknown"
                                 : connection->isOpen
                                     ? std::to_string(connection->number)
                                     : "closed " + std::to_string(connection->number);
        const auto fault = enter("AFCConnectionClose", note, phoneOf(handle));
        if (connection == nullptr) {
            return kAFCNotConnected;
        }
        if (!connection->isOpen) {
            ++current->doubleCloses_;
            return kAFCNotConnected;
        }
        connection->isOpen = false;
        for (const auto& file : state().files) {
            if (file->isOpen && file->connection == connection) {
                closeFile(*file);
            }
        }
        return fault.value_or(connection->isDead ? kAFCNotConnected : kAFCSuccess);
    }

    // ------------------------------------------------------------ paths

    static int32_t directoryCreate(afc_connection* handle, const char* path) {
        if (const auto failed = enterFileCall("AFCDirectoryCreate", handle, word(path))) {
            return *failed;
        }
        if (path == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        if (phone.find(path) != nullptr) {
            return kAFCObjectExists;
        }
        if (!phone.hasParent(path)) {
            return kAFCObjectNotFound;
        }
        phone.add(path, /*isDirectory=*/true, {});
        return kAFCSuccess;
    }

    static int32_t directoryOpen(afc_connection* handle, const char* path,
                                 afc_directory** directory) {
        if (const auto failed = enterFileCall("AFCDirectoryOpen", handle, word(path))) {
            return *failed;
        }
        if (path == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        if (!phone.hasDirectory(path)) {
            return phone.hasFile(path) ? 4 : kAFCObjectNotFound;
        }
        std::vector<std::string> names = phone.names(path);
        names.insert(names.begin(), {".", ".."});
        *directory = reinterpret_cast<afc_directory*>(
            make(state().directories, connectionOf(handle), std::move(names)));
        return kAFCSuccess;
    }

    static int32_t directoryRead(afc_connection* handle, afc_directory* directory, char** name) {
        const auto failed = enterFileCall("AFCDirectoryRead", handle, "");
        Directory* open = lookUp(state().directories, directory);
        if (open != nullptr && !open->connection->isOpen) {
            return kAFCInvalidArgument; // gone with its connection
        }
        if (failed) {
            return *failed;
        }
        if (open == nullptr || !open->isOpen) {
            return kAFCInvalidArgument;
        }
        *name = open->next < open->names.size() ? open->names[open->next].data() : nullptr;
        ++open->next;
        return kAFCSuccess;
    }

    static int32_t directoryClose(afc_connection* handle, afc_directory* directory) {
        const auto fault = enter("AFCDirectoryClose", onConnection(handle, ""), phoneOf(handle));
        return closeOnce(lookUp(state().directories, directory), fault);
    }

    static int32_t removePath(afc_connection* handle, const char* path) {
        if (const auto failed = enterFileCall("AFCRemovePath", handle, word(path))) {
            return *failed;
        }
        if (path == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        if (phone.find(path) == nullptr) {
            return kAFCObjectNotFound;
        }
        if (!phone.hasFile(path) && !phone.isEmptyDirectory(path)) {
            return kAFCUnknownError;
        }
        phone.remove(path);
        return kAFCSuccess;
    }

    static int32_t renamePath(afc_connection* handle, const char* oldPath, const char* newPath) {
        if (const auto failed =
                enterFileCall("AFCRenamePath", handle, word(oldPath) + " " + word(newPath))) {
            return *failed;
        }
        if (oldPath == nullptr || newPath == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        if (phone.find(oldPath) == nullptr || !phone.hasParent(newPath)) {
            return kAFCObjectNotFound;
        }
        if (phone.hasDirectory(newPath)) {
            return kAFCObjectIsDirectory;
        }
        phone.rename(oldPath, newPath);
        return kAFCSuccess;
    }

    // ------------------------------------------------------------ files

    static int32_t fileOpen(afc_connection* handle, const char* path, uint64_t mode,
                            afc_file_ref* file) {
        if (const auto failed =
                enterFileCall("AFCFileRefOpen", handle, word(path) + " " + std::to_string(mode))) {
            return *failed;
        }
        if (path == nullptr || mode < kAFCOpenRead || mode > kAFCOpenWrite) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        if (phone.hasDirectory(path)) {
            return kAFCObjectIsDirectory;
        }
        if (!phone.hasFile(path)) {
            if (mode == kAFCOpenRead || !phone.hasParent(path)) {
                return kAFCObjectNotFound;
            }
            phone.add(path, /*isDirectory=*/false, {});
        } else if (mode == kAFCOpenWrite) {
            phone.find(path)->contents.clear();
        }
        const uint64_t number = state().files.size() + 1;
        make(state().files, number, connectionOf(handle), std::string(path), mode);
        *file = number;
        return kAFCSuccess;
    }

    static int32_t fileRead(afc_connection* handle, afc_file_ref number, void* buffer,
                            uint32_t* length) {
        const uint32_t wanted = *length;
        const auto failed = enterFileCall("AFCFileRefRead", handle,
                                          std::to_string(number) + " " + std::to_string(wanted));
        *length = 0;
        if (failed) {
            return *failed;
        }
        File* file = fileOf(handle, number);
        if (file == nullptr || file->mode == kAFCOpenWrite) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *file->connection->phone;
        const FakePhone::Node* node = phone.find(file->path);
        if (node == nullptr) {
            return kAFCObjectNotFound;
        }
        const size_t left = node->contents.size() - std::min(file->position, node->contents.size());
        const size_t count = std::min({left, size_t{wanted}, size_t{phone.readAtMost_}});
        std::memcpy(buffer, node->contents.data() + file->position, count);
        file->position += count;
        *length = static_cast<uint32_t>(count);
        return kAFCSuccess;
    }

    static int32_t fileWrite(afc_connection* handle, afc_file_ref number, const void* bytes,
                             uint32_t count) {
        current->writes_.push_back({bytes, count});
        if (const auto failed = enterFileCall(
                "AFCFileRefWrite", handle, std::to_string(number) + " " + std::to_string(count))) {
            return *failed;
        }
        File* file = fileOf(handle, number);
        if (file == nullptr || file->mode == kAFCOpenRead) {
            return kAFCInvalidArgument;
        }
        FakePhone::Node* node = file->connection->phone->find(file->path);
        if (node == nullptr) {
            return kAFCObjectNotFound;
        }
        std::string& contents = node->contents;
        contents.resize(std::max(contents.size(), file->position + count));
        std::memcpy(contents.data() + file->position, bytes, count);
        file->position += count;
        return kAFCSuccess;
    }

    static int32_t fileClose(afc_connection* handle, afc_file_ref number) {
        const auto failed = enterFileCall("AFCFileRefClose", handle, std::to_string(number));
        File* file = fileOf(handle, number);
        if (file == nullptr) {
            return failed.value_or(kAFCInvalidArgument);
        }
        closeFile(*file);
        return failed.value_or(kAFCSuccess);
    }

    static int32_t fileLock(afc_connection* handle, afc_file_ref number) {
        if (const auto failed = enterFileCall("AFCFileRefLock", handle, std::to_string(number))) {
            return *failed;
        }
        const File* file = fileOf(handle, number);
        if (file == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *file->connection->phone;
        if (phone.heldElsewhere_[file->path]) {
            return kAFCWouldBlock;
        }
        const auto [holder, isNew] = phone.lockHolders_.emplace(file->path, number);
        return isNew || holder->second == number ? kAFCSuccess : kAFCWouldBlock;
    }

    static int32_t fileUnlock(afc_connection* handle, afc_file_ref number) {
        if (const auto failed = enterFileCall("AFCFileRefUnlock", handle, std::to_string(number))) {
            return *failed;
        }
        const File* file = fileOf(handle, number);
        if (file == nullptr) {
            return kAFCInvalidArgument;
        }
        auto& holders = file->connection->phone->lockHolders_;
        const auto holder = holders.find(file->path);
        if (holder != holders.end() && holder->second == number) {
            holders.erase(holder);
        }
        return kAFCSuccess;
    }

    // ------------------------------------------------------------ key-value pairs

    static int32_t fileInfoOpen(afc_connection* handle, const char* path, afc_dictionary** info) {
        if (const auto failed = enterFileCall("AFCFileInfoOpen", handle, word(path))) {
            return *failed;
        }
        if (path == nullptr) {
            return kAFCInvalidArgument;
        }
        FakePhone& phone = *connectionOf(handle)->phone;
        const auto scripted = phone.fileInfo_.find(path);
        if (scripted != phone.fileInfo_.end()) {
            *info = openKeyValues(handle, scripted->second);
            return kAFCSuccess;
        }
        const FakePhone::Node* node = phone.find(path);
        if (node == nullptr) {
            return kAFCObjectNotFound;
        }
        *info = openKeyValues(handle, {{"st_ifmt", node->isDirectory ? "S_IFDIR" : "S_IFREG"},
                                       {"st_blocks", "0"},
                                       {"st_size", std::to_string(node->contents.size())},
                                       {"st_nlink", "1"}});
        return kAFCSuccess;
    }

    static int32_t deviceInfoOpen(afc_connection* handle, afc_dictionary** info) {
        if (const auto failed = enterFileCall("AFCDeviceInfoOpen", handle, "")) {
            return *failed;
        }
        *info = openKeyValues(handle, connectionOf(handle)->phone->deviceInfo_);
        return kAFCSuccess;
    }

    static afc_dictionary* openKeyValues(const afc_connection* handle, InfoPairs pairs) {
        return reinterpret_cast<afc_dictionary*>(
            make(state().keyValues, connectionOf(handle), std::move(pairs)));
    }

    static int32_t keyValueRead(afc_dictionary* info, char** key, char** value) {
        if (const auto fault = enter("AFCKeyValueRead", "", nullptr)) {
            return *fault;
        }
        KeyValues* open = lookUp(state().keyValues, info);
        if (open == nullptr || !open->isOpen || !open->connection->isOpen) {
            return kAFCInvalidArgument;
        }
        *key = nullptr;
        *value = nullptr;
        if (open->next < open->pairs.size()) {
            InfoPair& pair = open->pairs[open->next++];
            *key = pair.key ? pair.key->data() : nullptr;
            *value = pair.value ? pair.value->data() : nullptr;
        }
        return kAFCSuccess;
    }

    static int32_t keyValueClose(afc_dictionary* info) {
        const auto fault = enter("AFCKeyValueClose", "", nullptr);
        return closeOnce(lookUp(state().keyValues, info), fault);
    }

    // ------------------------------------------------------------ events

    static void notifyAll(FakePhone& phone, uint32_t message) {
        // By index: a callback may subscribe anew or unsubscribe.
        for (size_t i = 0; i < state().subscriptions.size(); ++i) {
            const Subscription& subscription = *state().subscriptions[i];
            if (subscription.isOpen) {
                am_device_notification_info info{phone.device(), message};
                subscription.callback(&info);
            }
        }
    }

    static void pull(FakePhone& phone) {
        phone.reachable_ = false;
        phone.connected_ = false;
        phone.validated_ = false;
        phone.inSession_ = false;
        for (const auto& connection : state().connections) {
            if (connection->phone == &phone) {
                connection->isDead = true;
            }
        }
        phone.lockHolders_.clear();
    }
};

FakeMobileDevice* FakeFunctions::current = nullptr;

// ---------------------------------------------------------------------------- FakeMobileDevice

namespace {

// One row for each function variable: its name, and how it is filled and emptied.
struct Variable {
    std::string_view name;
    void (*fill)();
    void (*clear)();
};

#define KRL_FAKE(variable, function)                                                               \
    {                                                                                              \
#variable, [] { variable = FakeFunctions::function; }, [] { variable = nullptr; }          \
    }

const Variable kVariables[] = {
    KRL_FAKE(AMDeviceNotificationSubscribe, notificationSubscribe),
    KRL_FAKE(AMDShutdownNotificationProxy, shutdownNotificationProxy),
    KRL_FAKE(AMDeviceRetain, retain),
    KRL_FAKE(AMDeviceRelease, release),
    KRL_FAKE(AMDeviceConnect, connect),
    KRL_FAKE(AMDeviceDisconnect, disconnect),
    KRL_FAKE(AMDeviceIsPaired, isPaired),
    KRL_FAKE(AMDeviceValidatePairing, validatePairing),
    KRL_FAKE(AMDeviceStartSession, startSession),
    KRL_FAKE(AMDeviceStopSession, stopSession),
    KRL_FAKE(AMDeviceStartService, startService),
    KRL_FAKE(AMDeviceCopyValue, copyValue),
    KRL_FAKE(AMDPostNotification, postNotification),
    KRL_FAKE(AMDeviceSetCallTimeout, setCallTimeout),
    KRL_FAKE(AFCConnectionOpen, connectionOpen),
    KRL_FAKE(AFCConnectionClose, connectionClose),
    KRL_FAKE(AFCDirectoryCreate, directoryCreate),
    KRL_FAKE(AFCDirectoryOpen, directoryOpen),
    KRL_FAKE(AFCDirectoryRead, directoryRead),
    KRL_FAKE(AFCDirectoryClose, directoryClose),
    KRL_FAKE(AFCRemovePath, removePath),
    KRL_FAKE(AFCRenamePath, renamePath),
    KRL_FAKE(AFCFileRefOpen, fileOpen),
    KRL_FAKE(AFCFileRefRead, fileRead),
    KRL_FAKE(AFCFileRefWrite, fileWrite),
    KRL_FAKE(AFCFileRefClose, fileClose),
    KRL_FAKE(AFCFileRefLock, fileLock),
    KRL_FAKE(AFCFileRefUnlock, fileUnlock),
    KRL_FAKE(AFCFileInfoOpen, fileInfoOpen),
    KRL_FAKE(AFCDeviceInfoOpen, deviceInfoOpen),
    KRL_FAKE(AFCKeyValueRead, keyValueRead),
    KRL_FAKE(AFCKeyValueClose, keyValueClose),
};

#undef KRL_FAKE

bool isFunction(std::string_view name) {
    return std::any_of(std::begin(kVariables), std::end(kVariables),
                       [&](const Variable& variable) { return variable.name == name; });
}

} // namespace

FakeMobileDevice::FakeMobileDevice() : state_(std::make_unique<State>()) {
    if (FakeFunctions::current != nullptr) {
        throw std::logic_error("there is a FakeMobileDevice already");
    }
    state_->phones.push_back(std::make_unique<FakePhone>("1"));
    FakeFunctions::current = this;
    fill();
}

FakeMobileDevice::~FakeMobileDevice() {
    for (const Variable& variable : kVariables) {
        variable.clear();
    }
    FakeFunctions::current = nullptr;
}

void FakeMobileDevice::fill() {
    for (const Variable& variable : kVariables) {
        variable.fill();
    }
}

FakePhone& FakeMobileDevice::phone() {
    return *state_->phones.front();
}

FakePhone& FakeMobileDevice::addPhone(const std::string& label) {
    state_->phones.push_back(std::make_unique<FakePhone>(label));
    return *state_->phones.back();
}

void FakeMobileDevice::attach(FakePhone& phone) {
    phone.reachable_ = true;
    phone.isWaiting_ = live().subscriptions == 0;
    if (!phone.isWaiting_) {
        notify(phone, kAMDeviceMessageConnected);
    }
}

void FakeMobileDevice::detach(FakePhone& phone) {
    pull(phone);
    phone.isWaiting_ = false;
    notify(phone, kAMDeviceMessageDisconnected);
}

void FakeMobileDevice::pull(FakePhone& phone) {
    FakeFunctions::pull(phone);
}

void FakeMobileDevice::deliverArrivals() {
    for (size_t i = 0; i < state_->phones.size(); ++i) {
        FakePhone& phone = *state_->phones[i];
        if (std::exchange(phone.isWaiting_, false)) {
            notify(phone, kAMDeviceMessageConnected);
        }
    }
}

void FakeMobileDevice::notify(FakePhone& phone, uint32_t message) {
    FakeFunctions::notifyAll(phone, message);
}

void FakeMobileDevice::failNth(std::string_view function, int n, int32_t status) {
    addFault(function, n, n, status);
}

void FakeMobileDevice::failFirst(std::string_view function, int count, int32_t status) {
    addFault(function, 1, count, status);
}

void FakeMobileDevice::failFrom(std::string_view function, int n, int32_t status) {
    addFault(function, n, INT32_MAX, status);
}

void FakeMobileDevice::failNthCall(int n, int32_t status) {
    faults_.push_back({"", n, n, status, 0});
}

void FakeMobileDevice::failFromCall(int n, int32_t status) {
    faults_.push_back({"", n, INT32_MAX, status, 0});
}

void FakeMobileDevice::clearFaults() {
    faults_.clear();
    faultsMet_ = 0;
}

void FakeMobileDevice::addFault(std::string_view function, int first, int last, int32_t status) {
    if (!isFunction(function) || !FakeFunctions::canFail(function)) {
        throw std::invalid_argument("no function that can fail: " + std::string(function));
    }
    faults_.push_back({std::string(function), first, last, status, 0});
}

std::vector<std::string>
FakeMobileDevice::callsOf(std::initializer_list<std::string_view> functions) const {
    for (const std::string_view function : functions) {
        if (!isFunction(function)) {
            throw std::invalid_argument("no function: " + std::string(function));
        }
    }
    std::vector<std::string> matching;
    for (const std::string& line : calls_) {
        const std::string_view name = std::string_view(line).substr(0, line.find(' '));
        if (std::find(functions.begin(), functions.end(), name) != functions.end()) {
            matching.push_back(line);
        }
    }
    return matching;
}

LiveHandles FakeMobileDevice::live() const {
    return {.fileConnections = countOpen(state_->connections),
            .files = countOpen(state_->files),
            .directories = countOpen(state_->directories),
            .keyValues = countOpen(state_->keyValues),
            .proxies = static_cast<int>(
                std::count_if(state_->services.begin(), state_->services.end(),
                              [](const auto& service) {
                                  return service->isOpen &&
                                         service->name == "com.apple.mobile.notification_proxy";
                              })),
            .subscriptions = countOpen(state_->subscriptions)};
}

} // namespace krl::test
