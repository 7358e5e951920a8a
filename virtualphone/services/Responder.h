/// How every service deals with a request: faults, log, latency, answer.
#pragma once

#include "virtualphone/services/RequestLog.h"
#include "virtualphone/wire/Channel.h"
#include "virtualphone/wire/Faults.h"
#include "virtualphone/wire/Packet.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace virtualphone {

class PhoneState;

/// What a service is given for one connection.
struct Client {
    Channel& channel;
    PhoneState& phone;
    RequestLog& log;
    uint64_t connection;
    /// Has the phone pulled out, soon and by another thread.
    std::function<void()> pullOut;
};

class Responder {
public:
    using Spoil = void (*)(Packet& packet, FaultAction action);

    /// For a service of a phone.
    Responder(const Client& client, Service service, Spoil spoil);

    /// For the bus's own requests.
    Responder(Channel& channel, RequestLog& log, uint64_t connection, Faults& faults, Spoil spoil);

    /// An entry with everything filled in that does not depend on the request.
    LogEntry newEntry(std::string_view request) const;

    /// Counts the request and remembers the fault that it meets until it is answered. False when
    /// the fault keeps it from being carried out and answered at all; the connection is over then.
    bool begin(const LogEntry& entry);

    /// The status or error that a fault wants answered instead of carrying the request out.
    std::optional<uint64_t> wantedStatus() const;
    std::optional<std::string> wantedError() const;

    /// Whether a fault of this kind was met, for what is spoilt before it is encoded.
    bool hasMet(FaultAction action) const { return fault_ && fault_->action == action; }

    /// Thinks as long as the phone or a fault wants; false when the connection is over by then.
    bool thinkFirst() const;

    /// Logs the request, then answers it; false when the connection is over.
    bool answer(LogEntry entry, Packet& packet);

    /// Logs a request that has no answer; false when the connection is over.
    bool finish(LogEntry entry);

    /// Logs a request whose connection ended before all of it was there.
    void abandon(LogEntry entry);

private:
    void record(LogEntry entry) const;
    bool send(Packet& packet) const;
    bool drip(const Packet& packet) const;

    Channel& channel_;
    RequestLog& log_;
    Faults& faults_;
    const Service service_;
    const uint64_t connection_;
    const std::string phone_;
    const std::chrono::microseconds latency_;
    const std::function<void()> pullOut_;
    const Spoil spoil_;
    std::optional<Fault> fault_;
};

} // namespace virtualphone
