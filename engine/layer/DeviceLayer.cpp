#include "engine/layer/DeviceLayer.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace krl::engine {
namespace {

/// The provider's own functions.
struct Provider {
    decltype(::AMDeviceStartService) startService = nullptr;
    decltype(::AFCConnectionOpen) openConnection = nullptr;
    decltype(::AFCConnectionClose) closeConnection = nullptr;
    decltype(::AFCDirectoryCreate) createDirectory = nullptr;
    decltype(::AFCDirectoryOpen) openDirectory = nullptr;
    decltype(::AFCDirectoryRead) readDirectory = nullptr;
    decltype(::AFCDirectoryClose) closeDirectory = nullptr;
    decltype(::AFCRemovePath) removePath = nullptr;
    decltype(::AFCRenamePath) renamePath = nullptr;
    decltype(::AFCFileRefOpen) openFile = nullptr;
    decltype(::AFCFileRefRead) readFile = nullptr;
    decltype(::AFCFileRefWrite) writeFile = nullptr;
    decltype(::AFCFileRefClose) closeFile = nullptr;
    decltype(::AFCFileRefLock) lockFile = nullptr;
    decltype(::AFCFileRefUnlock) unlockFile = nullptr;
    decltype(::AFCFileInfoOpen) fileInfo = nullptr;
    decltype(::AFCDeviceInfoOpen) deviceInfo = nullptr;
    decltype(::AFCKeyValueRead) readKeyValue = nullptr;
    decltype(::AFCKeyValueClose) closeKeyValue = nullptr;
};

Provider provider;

/// Names or values that are read one after the other, made here.
struct Made {
    std::vector<std::string> texts;
    size_t next = 0;
};

/// Whose connection is whose, and who wants to know.
class Registry {
public:
    void serviceStarted(am_service* service, am_device* device) {
        const std::lock_guard lock(mutex_);
        services_[service] = device;
    }

    /// The device of a service, whose handle is used up now.
    am_device* takeService(am_service* service) {
        const std::lock_guard lock(mutex_);
        const auto found = services_.find(service);
        am_device* const device = found == services_.end() ? nullptr : found->second;
        services_.erase(service);
        return device;
    }

    void connectionOpened(afc_connection* files, am_device* device) {
        const std::lock_guard lock(mutex_);
        connections_[files] = device;
        last_[device] = files;
    }

    void connectionClosed(afc_connection* files) {
        const std::lock_guard lock(mutex_);
        connections_.erase(files);
        std::erase_if(last_, [&](const auto& last) { return last.second == files; });
    }

    afc_connection* connectionOf(am_device* device) {
        const std::lock_guard lock(mutex_);
        const auto found = last_.find(device);
        return found == last_.end() ? nullptr : found->second;
    }

    void redirect(am_device* device, FileCalls* calls) {
        const std::lock_guard lock(mutex_);
        calls_[device] = calls;
    }

    void listen(am_device* device, std::function<void(size_t)> told) {
        const std::lock_guard lock(mutex_);
        listeners_[device] = std::move(told);
    }

    /// Tells the listener and says where the call goes.
    FileCalls& calls(afc_connection* files, size_t opensTaken) {
        std::function<void(size_t)> told;
        FileCalls* calls = &plain_;
        {
            const std::lock_guard lock(mutex_);
            const auto device = connections_.find(files);
            if (device != connections_.end()) {
                const auto listener = listeners_.find(device->second);
                told = listener == listeners_.end() ? nullptr : listener->second;
                const auto redirected = calls_.find(device->second);
                calls = redirected == calls_.end() || redirected->second == nullptr
                            ? calls
                            : redirected->second;
            }
        }
        if (told && opensTaken > 0) {
            told(opensTaken);
        }
        return *calls;
    }

    template <typename Handle>
    Handle* make(std::vector<std::string> texts) {
        auto made = std::make_unique<Made>(Made{std::move(texts)});
        auto* const handle = reinterpret_cast<Handle*>(made.get());
        const std::lock_guard lock(mutex_);
        made_[handle] = std::move(made);
        return handle;
    }

    Made* made(const void* handle) {
        const std::lock_guard lock(mutex_);
        const auto found = made_.find(handle);
        return found == made_.end() ? nullptr : found->second.get();
    }

    bool drop(const void* handle) {
        const std::lock_guard lock(mutex_);
        return made_.erase(handle) > 0;
    }

private:
    std::mutex mutex_;
    std::map<am_service*, am_device*> services_;
    std::map<afc_connection*, am_device*> connections_;
    std::map<am_device*, afc_connection*> last_; ///< the one opened last of each
    std::map<am_device*, FileCalls*> calls_;
    std::map<am_device*, std::function<void(size_t)>> listeners_;
    std::map<const void*, std::unique_ptr<Made>> made_;
    FileCalls plain_;
};

Registry& registry() {
    static Registry registry;
    return registry;
}

// An operation takes one open back, and one that cannot list a directory another one.
constexpr size_t kOne = 1;
constexpr size_t kOneOrTwo = 2;

int32_t startService(am_device* device, CFStringRef name, am_service** service, uint32_t* unused) {
    const int32_t status = provider.startService(device, name, service, unused);
    // Others are opened by other calls, which would not take their handles back off.
    const bool isFileService = CFEqual(name, CFSTR("com.apple.afc"));
    if (status == 0 && service != nullptr && isFileService) {
        registry().serviceStarted(*service, device);
    }
    return status;
}

int32_t openConnection(am_service* service, uint32_t timeout, afc_connection** files) {
    am_device* const device = registry().takeService(service);
    const int32_t status = provider.openConnection(service, timeout, files);
    if (status == 0 && files != nullptr) {
        registry().connectionOpened(*files, device);
    }
    return status;
}

int32_t closeConnection(afc_connection* files) {
    registry().connectionClosed(files);
    return provider.closeConnection(files);
}

int32_t createDirectory(afc_connection* files, const char* path) {
    return registry().calls(files, kOne).createDirectory(files, path);
}

int32_t openDirectory(afc_connection* files, const char* path, afc_directory** directory) {
    return registry().calls(files, kOneOrTwo).openDirectory(files, path, directory);
}

int32_t readDirectory(afc_connection* files, afc_directory* directory, char** name) {
    Made* const made = registry().made(directory);
    if (made == nullptr) {
        return provider.readDirectory(files, directory, name);
    }
    *name = made->next < made->texts.size() ? made->texts[made->next++].data() : nullptr;
    return 0;
}

int32_t closeDirectory(afc_connection* files, afc_directory* directory) {
    return registry().drop(directory) ? 0 : provider.closeDirectory(files, directory);
}

int32_t removePath(afc_connection* files, const char* path) {
    return registry().calls(files, kOne).removePath(files, path);
}

int32_t renamePath(afc_connection* files, const char* from, const char* to) {
    return registry().calls(files, kOne).renamePath(files, from, to);
}

int32_t openFile(afc_connection* files, const char* path, uint64_t mode, afc_file_ref* file) {
    return registry().calls(files, kOne).openFile(files, path, mode, file);
}

int32_t readFile(afc_connection* files, afc_file_ref file, void* buffer, uint32_t* length) {
    return registry().calls(files, 0).readFile(files, file, buffer, length);
}

int32_t writeFile(afc_connection* files, afc_file_ref file, const void* bytes, uint32_t count) {
    return registry().calls(files, 0).writeFile(files, file, bytes, count);
}

int32_t closeFile(afc_connection* files, afc_file_ref file) {
    return registry().calls(files, 0).closeFile(files, file);
}

int32_t lockFile(afc_connection* files, afc_file_ref file) {
    return registry().calls(files, 0).lockFile(files, file);
}

int32_t unlockFile(afc_connection* files, afc_file_ref file) {
    registry().calls(files, kOne);
    return provider.unlockFile(files, file);
}

int32_t fileInfo(afc_connection* files, const char* path, afc_dictionary** info) {
    return registry().calls(files, kOne).fileInfo(files, path, info);
}

int32_t deviceInfo(afc_connection* files, afc_dictionary** info) {
    registry().calls(files, kOne);
    return provider.deviceInfo(files, info);
}

int32_t readKeyValue(afc_dictionary* info, char** key, char** value) {
    Made* const made = registry().made(info);
    if (made == nullptr) {
        return provider.readKeyValue(info, key, value);
    }
    const bool hasMore = made->next + 1 < made->texts.size();
    *key = hasMore ? made->texts[made->next].data() : nullptr;
    *value = hasMore ? made->texts[made->next + 1].data() : nullptr;
    made->next += 2;
    return 0;
}

int32_t closeKeyValue(afc_dictionary* info) {
    return registry().drop(info) ? 0 : provider.closeKeyValue(info);
}

} // namespace

int32_t FileCalls::createDirectory(afc_connection* files, const char* path) {
    return provider.createDirectory(files, path);
}

int32_t FileCalls::openDirectory(afc_connection* files, const char* path,
                                 afc_directory** directory) {
    return provider.openDirectory(files, path, directory);
}

int32_t FileCalls::removePath(afc_connection* files, const char* path) {
    return provider.removePath(files, path);
}

int32_t FileCalls::renamePath(afc_connection* files, const char* from, const char* to) {
    return provider.renamePath(files, from, to);
}

int32_t FileCalls::openFile(afc_connection* files, const char* path, uint64_t mode,
                            afc_file_ref* file) {
    return provider.openFile(files, path, mode, file);
}

int32_t FileCalls::readFile(afc_connection* files, afc_file_ref file, void* buffer,
                            uint32_t* length) {
    return provider.readFile(files, file, buffer, length);
}

int32_t FileCalls::writeFile(afc_connection* files, afc_file_ref file, const void* bytes,
                             uint32_t count) {
    return provider.writeFile(files, file, bytes, count);
}

int32_t FileCalls::closeFile(afc_connection* files, afc_file_ref file) {
    return provider.closeFile(files, file);
}

int32_t FileCalls::lockFile(afc_connection* files, afc_file_ref file) {
    return provider.lockFile(files, file);
}

int32_t FileCalls::fileInfo(afc_connection* files, const char* path, afc_dictionary** info) {
    return provider.fileInfo(files, path, info);
}

namespace layer {
namespace {

template <typename Function>
void put(Function& variable, Function& below, Function above) {
    below = variable;
    variable = above;
}

} // namespace

void lay() {
    static const bool laid = [] {
        if (AMDeviceStartService == nullptr) {
            return false;
        }
        put(AMDeviceStartService, provider.startService, &startService);
        put(AFCConnectionOpen, provider.openConnection, &openConnection);
        put(AFCConnectionClose, provider.closeConnection, &closeConnection);
        put(AFCDirectoryCreate, provider.createDirectory, &createDirectory);
        put(AFCDirectoryOpen, provider.openDirectory, &openDirectory);
        put(AFCDirectoryRead, provider.readDirectory, &readDirectory);
        put(AFCDirectoryClose, provider.closeDirectory, &closeDirectory);
        put(AFCRemovePath, provider.removePath, &removePath);
        put(AFCRenamePath, provider.renamePath, &renamePath);
        put(AFCFileRefOpen, provider.openFile, &openFile);
        put(AFCFileRefRead, provider.readFile, &readFile);
        put(AFCFileRefWrite, provider.writeFile, &writeFile);
        put(AFCFileRefClose, provider.closeFile, &closeFile);
        put(AFCFileRefLock, provider.lockFile, &lockFile);
        put(AFCFileRefUnlock, provider.unlockFile, &unlockFile);
        put(AFCFileInfoOpen, provider.fileInfo, &fileInfo);
        put(AFCDeviceInfoOpen, provider.deviceInfo, &deviceInfo);
        put(AFCKeyValueRead, provider.readKeyValue, &readKeyValue);
        put(AFCKeyValueClose, provider.closeKeyValue, &closeKeyValue);
        return true;
    }();
    static_cast<void>(laid);
}

afc_connection* connectionOf(am_device* device) {
    return registry().connectionOf(device);
}

afc_directory* makeDirectory(std::vector<std::string> names) {
    return registry().make<afc_directory>(std::move(names));
}

afc_dictionary* makeFileInfo(uint64_t sizeBytes) {
    return registry().make<afc_dictionary>({"st_size", std::to_string(sizeBytes)});
}

FileAnswer askForFile(afc_connection* files, const char* path) {
    afc_dictionary* info = nullptr;
    FileAnswer answer{provider.fileInfo(files, path, &info)};
    if (answer.status != 0) {
        return answer;
    }
    char* key = nullptr;
    char* value = nullptr;
    while (provider.readKeyValue(info, &key, &value) == 0 && key != nullptr && value != nullptr) {
        if (std::strcmp(key, "st_size") == 0) {
            // As the library reads it: a C integer of 32 bits.
            answer.sizeBytes = static_cast<uint32_t>(std::strtol(value, nullptr, 0));
            break;
        }
    }
    provider.closeKeyValue(info);
    return answer;
}

Redirection::Redirection(am_device* device, FileCalls& calls) : device_(device) {
    registry().redirect(device, &calls);
}

Redirection::~Redirection() {
    registry().redirect(device_, nullptr);
}

Listener::Listener(am_device* device, std::function<void(size_t opensTaken)> told)
    : device_(device) {
    registry().listen(device, std::move(told));
}

Listener::~Listener() {
    registry().listen(device_, nullptr);
}

} // namespace layer
} // namespace krl::engine
