#include "mobiledevice/provider/wire/Mux.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <usbmuxd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace krl::provider::mux {

namespace {

using OwnedText = std::unique_ptr<char, decltype(&std::free)>;

// libusbmuxd waits with select(), which ends the process when it meets a descriptor beyond the
// set's size. Such a number comes only when all smaller ones are taken; a few are left over for
// other threads that open something meanwhile.
constexpr int kSelectableDescriptors = FD_SETSIZE - 16;

// Whether libusbmuxd can be called without harm now.
bool isUsable() {
    const UniqueDescriptor lowestFree(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return lowestFree && lowestFree.get() < kSelectableDescriptors;
}

// libusbmuxd says this program's name in its messages, and keeps it when it writes the first one,
// without a lock: until a call has succeeded, each is alone.
std::mutex firstCall;
std::atomic<bool> isFirstCallOver = false;

/// What the call returns, a negative number for failure; -1 when it cannot be made.
template <typename Call>
int callMux(Call call) {
    if (!isUsable()) {
        return -1;
    }
    std::unique_lock alone(firstCall, std::defer_lock);
    if (!isFirstCallOver) {
        alone.lock();
    }
    const int result = call();
    if (result >= 0) {
        isFirstCallOver = true;
    }
    return result;
}

} // namespace

UniqueDescriptor connect(uint32_t muxId, uint16_t port) {
    UniqueDescriptor tunnel(callMux([&] { return usbmuxd_connect(muxId, port); }));
    if (tunnel) {
        // A child process that inherited the tunnel would keep the phone's locks.
        ::fcntl(tunnel.get(), F_SETFD, FD_CLOEXEC);
    }
    return tunnel;
}

std::optional<std::vector<std::byte>> readPairRecord(const std::string& udid) {
    char* data = nullptr;
    uint32_t size = 0;
    if (callMux([&] { return usbmuxd_read_pair_record(udid.c_str(), &data, &size); }) != 0) {
        return std::nullopt;
    }
    const OwnedText owned(data, &std::free);
    const auto* bytes = reinterpret_cast<const std::byte*>(owned.get());
    return bytes == nullptr
               ? std::nullopt
               : std::optional<std::vector<std::byte>>(std::in_place, bytes, bytes + size);
}

bool savePairRecord(uint32_t muxId, const std::string& udid, const std::string& contents) {
    return callMux([&] {
               return usbmuxd_save_pair_record_with_device_id(
                   udid.c_str(), muxId, contents.data(), static_cast<uint32_t>(contents.size()));
           }) == 0;
}

bool deletePairRecord(const std::string& udid) {
    return callMux([&] { return usbmuxd_delete_pair_record(udid.c_str()); }) == 0;
}

std::optional<std::string> readSystemBuid() {
    char* buid = nullptr;
    if (callMux([&] { return usbmuxd_read_buid(&buid); }) != 0) {
        return std::nullopt;
    }
    const OwnedText owned(buid, &std::free);
    return owned ? std::optional<std::string>(owned.get()) : std::nullopt;
}

} // namespace krl::provider::mux
