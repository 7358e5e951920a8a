/// One conversation on the mux socket: questions, a listener, or a tunnel to a phone's service.
#pragma once

#include "virtualphone/bus/DeviceTable.h"
#include "virtualphone/phone/PairRecords.h"
#include "virtualphone/services/Responder.h"
#include "virtualphone/wire/PropertyList.h"

#include <cstdint>
#include <functional>
#include <string>

namespace virtualphone {

/// What the conversations of a bus share.
struct BusParts {
    DeviceTable& devices;
    PairRecords& records;
    RequestLog& log;
    Faults& faults;
    /// Has a phone pulled out, soon and by another thread.
    std::function<void(uint32_t id)> pullOut;
};

class MuxServer final : private AttachmentListener {
public:
    MuxServer(Channel& channel, const BusParts& bus, uint64_t connection);
    MuxServer(const MuxServer&) = delete;
    MuxServer& operator=(const MuxServer&) = delete;

    /// Serves until the connection ends.
    void run();

private:
    struct Message {
        uint32_t version = 0;
        uint32_t tag = 0;
        Plist body; ///< null when it is no dictionary in a property list message
    };

    /// A request, its answer as far as it stands, and its line in the log.
    struct Exchange {
        const Message& message;
        Plist reply;
        LogEntry entry;
    };

    /// Returns the answer's Result number; an answer that is filled in goes out instead.
    using Handler = uint32_t (MuxServer::*)(Exchange& exchange);

    static Handler handlerOf(const std::string& request);

    bool receive(Message& message);
    bool serve(const Message& message);
    bool refuseVersion(const Message& message);
    bool answer(Exchange& exchange, uint32_t result);
    void describe(Exchange& exchange) const;

    uint32_t listDevices(Exchange& exchange);
    uint32_t listen(Exchange& exchange);
    uint32_t connect(Exchange& exchange);
    uint32_t readBuid(Exchange& exchange);
    uint32_t readPairRecord(Exchange& exchange);
    uint32_t savePairRecord(Exchange& exchange);
    uint32_t deletePairRecord(Exchange& exchange);
    uint32_t listListeners(Exchange& exchange);

    void serveListener();
    void serveTunnel();

    void attached(const Attachment& attachment) override;
    void detached(uint32_t id) override;
    void paired(uint32_t id) override;
    void announce(const Plist& news);

    Channel& channel_;
    const BusParts& bus_;
    const uint64_t connection_;
    Responder responder_;

    // What the conversation turns into once the answer has left.
    bool isListener_ = false;
    uint32_t tunnelDevice_ = 0;
    DeviceTable::Tunnel tunnel_{};
};

} // namespace virtualphone
