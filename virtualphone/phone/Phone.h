/// One phone: what outlives its connections.
#pragma once

#include "virtualphone/phone/PhoneOptions.h"
#include "virtualphone/wire/Faults.h"

#include <memory>
#include <string>
#include <vector>

namespace virtualphone {

class PhoneState;

class Phone {
public:
    /// Makes the folder and what a fresh phone has in it, if they are missing.
    explicit Phone(PhoneOptions options);
    ~Phone();
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    /// As given, with the UDID filled in.
    const PhoneOptions& options() const;
    const std::string& udid() const;

    Faults& faults();

    /// Posts a notification on the phone: clients that observe it are told.
    void post(const std::string& notification);

    /// Holds the sync lock as the desktop media library does during a sync of its own: an exclusive
    /// lock on "/com.apple.itunes.lock_sync". Holding it twice is holding it once.
    ///
    /// @return false when a client holds the lock.
    bool holdSyncLock();
    void releaseSyncLock();

    /// Sets the free space, enforced from now on.
    void setFreeBytes(uint64_t bytes);

    /// What the phone answers for its free space.
    uint64_t freeBytes() const;

    /// Ringtones that would not play, judged by the program ffprobe, which is never asked otherwise.
    /// Throws std::runtime_error when it is not there.
    std::vector<Unplayable> wouldNotPlay();

    /// Whether the phone trusts this host; what pairing and unpairing change.
    bool trusts(const std::string& hostId) const;
    /// A host trusted in this way has no certificate, which encrypted sessions ask for.
    void trust(const std::string& hostId);

    /// Forgets every host: the computer's pair records are refused from now on.
    void forgetHosts();

    /// For the bus and the services.
    PhoneState& state() { return *state_; }

private:
    std::unique_ptr<PhoneState> state_;
};

} // namespace virtualphone
