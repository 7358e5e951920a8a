/// Which phones are plugged in, the tunnels to them, and who wants to hear of changes.
#pragma once

#include "virtualphone/phone/Phone.h"
#include "virtualphone/wire/Channel.h"
#include "virtualphone/wire/Faults.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace virtualphone {

/// A phone as the mux describes it.
struct Attachment {
    uint32_t id;
    std::string udid;
    bool isPod;
};

/// Told of changes one after the other; must not wait, nor call the table.
class AttachmentListener {
public:
    virtual void attached(const Attachment& attachment) = 0;
    virtual void detached(uint32_t id) = 0;
    virtual void paired(uint32_t id) = 0;

protected:
    ~AttachmentListener() = default;
};

class DeviceTable {
public:
    /// Throws std::invalid_argument when a phone of this UDID is there already.
    uint32_t plug(std::shared_ptr<Phone> phone);

    /// Closes the tunnels and waits until their services have let go, then tells the listeners.
    bool unplug(uint32_t id);

    /// 0 when it is not plugged in.
    uint32_t idOf(const Phone& phone) const;

    /// UDID of a phone that is plugged in, or an empty string.
    std::string udidOf(uint32_t id) const;

    std::vector<Attachment> attachments() const;

    /// Tells a listener of all phones that are there, and from then on of every change.
    void addListener(AttachmentListener& listener);
    void removeListener(AttachmentListener& listener);
    size_t listenerCount() const;

    /// Tells the listeners that a pair record was saved; nothing happens for an unknown id.
    void announcePaired(uint32_t id);

    /// Why a connect is refused: the mux's Result numbers.
    enum class Refusal : uint32_t { None = 0, NoSuchDevice = 2, ConnectionRefused = 3 };

    struct Tunnel {
        Refusal refusal;
        std::shared_ptr<Phone> phone;
        Service service;
    };

    /// Makes this channel a tunnel to a port, which ends with the phone's unplugging.
    Tunnel open(uint32_t id, uint16_t port, Channel& channel);
    void close(uint32_t id, Channel& channel);

private:
    struct Device {
        std::shared_ptr<Phone> phone;
        std::set<Channel*> tunnels;
        bool isLeaving = false;
    };

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<uint32_t, Device> devices_;
    std::set<AttachmentListener*> listeners_;
    uint32_t lastId_ = 0;
};

} // namespace virtualphone
