// The functions of MobileDevice.h: handles and pointers are checked here, the work is done below.

#include "mobiledevice/provider/devices/AfcConnection.h"
#include "mobiledevice/provider/devices/AfcLists.h"
#include "mobiledevice/provider/devices/Device.h"
#include "mobiledevice/provider/devices/DeviceHub.h"
#include "mobiledevice/provider/devices/DeviceReference.h"
#include "mobiledevice/provider/devices/Handles.h"
#include "mobiledevice/provider/devices/Service.h"
#include "mobiledevice/provider/devices/Subscription.h"
#include "mobiledevice/provider/wire/CallTimeout.h"
#include "mobiledevice/provider/wire/PlistObjects.h"

#include <CoreFoundation/CFText.h>
#include <MobileDevice/Provider.h>

#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace krl::provider {
namespace {

using cf::utf8;

// No exception leaves a function of the table; the only ones there are say that memory is out.
template <typename Result, typename Body>
Result guarded(Result failure, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception&) {
        return failure;
    }
}

template <typename Body>
int32_t withDevice(am_device* handle, Body body) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto device = handles().find<Device>(handle);
        return device ? body(*device) : int32_t{kAMDInvalidHandle};
    });
}

template <typename Body>
int32_t withConnection(afc_connection* handle, Body body) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto connection = handles().find<AfcConnection>(handle);
        return connection ? connection->exchange(body) : int32_t{kAFCNotConnected};
    });
}

// Gives a new object to the caller as a handle that belongs to an owner.
template <typename Opaque>
bool handOut(std::shared_ptr<Object> object, const void* owner, Opaque** place) {
    const Handles::Id id = handles().add(std::move(object), reinterpret_cast<Handles::Id>(owner));
    if (id != 0) {
        *place = toHandle<Opaque>(id);
    }
    return id != 0;
}

// ------------------------------------------------------------------ devices

int32_t subscribe(am_device_notification_callback callback, uint32_t, uint32_t, void*,
                  am_device_notification** notification) {
    if (callback == nullptr || notification == nullptr) {
        return kAMDInvalidHandle;
    }
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto subscription = std::make_shared<Subscription>(callback);
        am_device_notification* handle = nullptr;
        handOut(subscription, nullptr, &handle);
        subscription->schedule(handle);
        if (const int32_t status = deviceHub().add(subscription)) {
            handles().take<Subscription>(handle);
            subscription->end();
            return status;
        }
        *notification = handle;
        return 0;
    });
}

int32_t waitForAttached(am_device_notification* notification, uint32_t timeoutMs) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        if (!handles().find<Subscription>(notification)) {
            return kAMDInvalidHandle;
        }
        return deviceHub().waitForAttached(timeoutMs == 0 ? callTimeout()
                                                          : std::chrono::milliseconds(timeoutMs));
    });
}

int32_t shutdownNotificationProxy(void* handle) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        if (const auto subscription = handles().take<Subscription>(handle)) {
            deviceHub().remove(subscription);
            subscription->end();
            return 0;
        }
        if (const auto service = handles().take<Service>(handle)) {
            return service->shutdownProxy();
        }
        return kAMDInvalidHandle;
    });
}

am_device* retain(am_device* device) {
    return guarded<am_device*>(nullptr, [&] { return retainDevice(device); });
}

void release(am_device* device) {
    guarded<int32_t>(0, [&] {
        releaseDevice(device);
        return 0;
    });
}

int32_t connect(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.connect(); });
}

int32_t disconnect(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.disconnect(); });
}

int32_t isPaired(am_device* device) {
    return guarded<int32_t>(0, [&] {
        const auto phone = handles().find<Device>(device);
        return phone && phone->isPaired() ? 1 : 0;
    });
}

int32_t validatePairing(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.validatePairing(); });
}

int32_t pair(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.pair(); });
}

int32_t unpair(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.unpair(); });
}

int32_t checkSessionSupport() {
    return guarded<int32_t>(kAMDNoResources, [] { return sessionSupport(); });
}

int32_t startSession(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.startSession(); });
}

int32_t stopSession(am_device* device) {
    return withDevice(device, [](Device& phone) { return phone.stopSession(); });
}

int32_t startService(am_device* device, CFStringRef serviceName, am_service** service, uint32_t*) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto phone = handles().find<Device>(device);
        const std::optional<std::string> name = utf8(serviceName);
        if (!phone || !name || service == nullptr) {
            return kAMDInvalidHandle;
        }
        ServiceAddress address;
        if (const int32_t status = phone->startService(*name, address)) {
            return status;
        }
        const auto deviceId = reinterpret_cast<Handles::Id>(device);
        const bool done =
            handOut(std::make_shared<Service>(phone, deviceId, address), device, service);
        return done ? 0 : kAMDInvalidHandle;
    });
}

CFTypeRef copyValue(am_device* device, CFStringRef domain, CFStringRef key) {
    return guarded<CFTypeRef>(nullptr, [&]() -> CFTypeRef {
        const auto phone = handles().find<Device>(device);
        const std::optional<std::string> domainText = utf8(domain);
        const std::optional<std::string> keyText = utf8(key);
        const bool expressible = domainText.has_value() == (domain != nullptr) &&
                                 keyText.has_value() == (key != nullptr);
        PlistRef answer;
        if (!phone || !expressible || phone->getValue(domainText, keyText, answer) != 0) {
            return nullptr;
        }
        return objectsOf(plist_dict_get_item(answer.get(), "Value")).leak();
    });
}

int32_t postNotification(am_service* proxy, CFStringRef name, CFTypeRef) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto service = handles().find<Service>(proxy);
        const std::optional<std::string> text = utf8(name);
        if (!service || !text) {
            return kAMDInvalidHandle;
        }
        return service->post(*text);
    });
}

int32_t cancelCalls(am_device* device) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        if (device != nullptr) {
            return withDevice(device, [](Device& phone) {
                phone.cancelCalls();
                return 0;
            });
        }
        for (const auto& phone : handles().all<Device>()) {
            phone->cancelCalls();
        }
        deviceHub().cancelWaits();
        return 0;
    });
}

uint64_t getTransferredBytes(am_device* device) {
    return guarded<uint64_t>(0, [&]() -> uint64_t {
        const auto phone = handles().find<Device>(device);
        return phone ? phone->transferCount()->bytes() : 0;
    });
}

// ------------------------------------------------------------------ file service

// What a device's status is called among those of the file service.
int32_t fileStatus(int32_t status) {
    switch (status) {
    case kAMDNotConnected:
    case kAMDNoMuxDaemon:
        return kAFCNotConnected;
    case kAMDTimedOut:
        return kAFCTimedOut;
    default:
        return status;
    }
}

int32_t connectionOpen(am_service* service, uint32_t, afc_connection** connection) {
    if (connection == nullptr) {
        return kAFCInvalidArgument;
    }
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto taken = handles().take<Service>(service);
        if (!taken) {
            return kAFCNotConnected;
        }
        std::shared_ptr<Channel> channel;
        if (const int32_t status = taken->openChannel(channel)) {
            return fileStatus(status);
        }
        const bool done = handOut(
            std::make_shared<AfcConnection>(std::move(channel), taken->device().transferCount()),
            toHandle<am_device>(taken->deviceId()), connection);
        return done ? 0 : kAFCNotConnected;
    });
}

int32_t connectionClose(afc_connection* connection) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto closed = handles().take<AfcConnection>(connection);
        if (!closed) {
            return kAFCNotConnected;
        }
        closed->close();
        return 0;
    });
}

template <typename Body>
int32_t withPath(afc_connection* connection, const char* path, Body body) {
    return withConnection(connection, [&](AfcClient& client) -> int32_t {
        return path == nullptr ? int32_t{kAFCInvalidArgument} : body(client);
    });
}

// Fetches a listing with one request and gives it to the caller as an iterator.
template <typename List, typename Opaque, typename Request>
int32_t openList(afc_connection* connection, Opaque** place, Request request) {
    return withConnection(connection, [&](AfcClient& client) -> int32_t {
        std::vector<char> bytes;
        if (place == nullptr) {
            return kAFCInvalidArgument;
        }
        if (const int32_t status = request(client, bytes)) {
            return status;
        }
        std::shared_ptr<List> list = List::parse(std::move(bytes));
        if (!list) {
            client.shutdown();
            return kAFCBadReply;
        }
        return handOut(std::move(list), connection, place) ? 0 : kAFCNotConnected;
    });
}

template <typename List>
int32_t closeList(const void* handle) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        return handles().take<List>(handle) ? 0 : kAFCInvalidArgument;
    });
}

int32_t directoryCreate(afc_connection* connection, const char* path) {
    return withPath(connection, path,
                    [&](AfcClient& client) { return client.makeDirectory(path); });
}

int32_t directoryOpen(afc_connection* connection, const char* path, afc_directory** directory) {
    return openList<Directory>(connection, directory,
                               [&](AfcClient& client, std::vector<char>& bytes) -> int32_t {
                                   return path == nullptr ? int32_t{kAFCInvalidArgument}
                                                          : client.readDirectory(path, bytes);
                               });
}

int32_t directoryRead(afc_connection*, afc_directory* directory, char** name) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto list = handles().find<Directory>(directory);
        if (!list || name == nullptr) {
            return kAFCInvalidArgument;
        }
        *name = list->next();
        return 0;
    });
}

int32_t directoryClose(afc_connection*, afc_directory* directory) {
    return closeList<Directory>(directory);
}

int32_t removePath(afc_connection* connection, const char* path) {
    return withPath(connection, path, [&](AfcClient& client) { return client.removePath(path); });
}

int32_t renamePath(afc_connection* connection, const char* oldPath, const char* newPath) {
    return withPath(connection, oldPath, [&](AfcClient& client) -> int32_t {
        return newPath == nullptr ? int32_t{kAFCInvalidArgument}
                                  : client.renamePath(oldPath, newPath);
    });
}

int32_t fileOpen(afc_connection* connection, const char* path, uint64_t mode, afc_file_ref* file) {
    return withPath(connection, path, [&](AfcClient& client) -> int32_t {
        return file == nullptr ? int32_t{kAFCInvalidArgument} : client.openFile(path, mode, *file);
    });
}

int32_t fileRead(afc_connection* connection, afc_file_ref file, void* buffer, uint32_t* length) {
    if (length == nullptr || (buffer == nullptr && *length > 0)) {
        return kAFCInvalidArgument;
    }
    const std::span target(static_cast<std::byte*>(buffer), *length);
    size_t received = 0;
    const int32_t status = withConnection(
        connection, [&](AfcClient& client) { return client.readFile(file, target, received); });
    *length = static_cast<uint32_t>(received);
    return status;
}

int32_t fileWrite(afc_connection* connection, afc_file_ref file, const void* bytes,
                  uint32_t count) {
    if (bytes == nullptr && count > 0) {
        return kAFCInvalidArgument;
    }
    return withConnection(connection, [&](AfcClient& client) {
        return client.writeFile(file, std::span(static_cast<const std::byte*>(bytes), count));
    });
}

int32_t fileClose(afc_connection* connection, afc_file_ref file) {
    return withConnection(connection, [&](AfcClient& client) { return client.closeFile(file); });
}

int32_t fileLock(afc_connection* connection, afc_file_ref file) {
    return withConnection(
        connection, [&](AfcClient& client) { return client.lockFile(file, afc::Lock::Exclusive); });
}

int32_t fileUnlock(afc_connection* connection, afc_file_ref file) {
    return withConnection(
        connection, [&](AfcClient& client) { return client.lockFile(file, afc::Lock::Unlock); });
}

int32_t fileInfoOpen(afc_connection* connection, const char* path, afc_dictionary** info) {
    return openList<KeyValues>(
        connection, info, [&](AfcClient& client, std::vector<char>& bytes) -> int32_t {
            return path == nullptr ? int32_t{kAFCInvalidArgument} : client.fileInfo(path, bytes);
        });
}

int32_t deviceInfoOpen(afc_connection* connection, afc_dictionary** info) {
    return openList<KeyValues>(connection, info, [](AfcClient& client, std::vector<char>& bytes) {
        return client.deviceInfo(bytes);
    });
}

int32_t keyValueRead(afc_dictionary* info, char** key, char** value) {
    return guarded<int32_t>(kAMDNoResources, [&]() -> int32_t {
        const auto list = handles().find<KeyValues>(info);
        if (!list || key == nullptr || value == nullptr) {
            return kAFCInvalidArgument;
        }
        std::tie(*key, *value) = list->next();
        return 0;
    });
}

int32_t keyValueClose(afc_dictionary* info) {
    return closeList<KeyValues>(info);
}

const MobileDeviceTable kTable{
    .version = MOBILEDEVICE_PROVIDER_VERSION,
    .size = sizeof(MobileDeviceTable),
    .AMDeviceNotificationSubscribe = subscribe,
    .AMDShutdownNotificationProxy = shutdownNotificationProxy,
    .AMDeviceRetain = retain,
    .AMDeviceRelease = release,
    .AMDeviceConnect = connect,
    .AMDeviceDisconnect = disconnect,
    .AMDeviceIsPaired = isPaired,
    .AMDeviceValidatePairing = validatePairing,
    .AMDeviceStartSession = startSession,
    .AMDeviceStopSession = stopSession,
    .AMDeviceStartService = startService,
    .AMDeviceCopyValue = copyValue,
    .AMDPostNotification = postNotification,
    .AFCConnectionOpen = connectionOpen,
    .AFCConnectionClose = connectionClose,
    .AFCDirectoryCreate = directoryCreate,
    .AFCDirectoryOpen = directoryOpen,
    .AFCDirectoryRead = directoryRead,
    .AFCDirectoryClose = directoryClose,
    .AFCRemovePath = removePath,
    .AFCRenamePath = renamePath,
    .AFCFileRefOpen = fileOpen,
    .AFCFileRefRead = fileRead,
    .AFCFileRefWrite = fileWrite,
    .AFCFileRefClose = fileClose,
    .AFCFileRefLock = fileLock,
    .AFCFileRefUnlock = fileUnlock,
    .AFCFileInfoOpen = fileInfoOpen,
    .AFCDeviceInfoOpen = deviceInfoOpen,
    .AFCKeyValueRead = keyValueRead,
    .AFCKeyValueClose = keyValueClose,
    .AMDeviceSetCallTimeout = setCallTimeout,
    .AMDevicePair = pair,
    .AMDeviceUnpair = unpair,
    .AMDeviceCheckSessionSupport = checkSessionSupport,
    .AMDeviceCancelCalls = cancelCalls,
    .AMDeviceGetTransferredBytes = getTransferredBytes,
    .AMDeviceWaitForAttached = waitForAttached,
};

} // namespace
} // namespace krl::provider

const MobileDeviceTable* MobileDeviceProviderTable() {
    return &krl::provider::kTable;
}
