/// Lockdown on one connection: values, pairing, sessions, services.
#pragma once

#include "virtualphone/services/Responder.h"
#include "virtualphone/wire/PropertyList.h"

#include <string>

namespace virtualphone {

class LockdownServer {
public:
    explicit LockdownServer(const Client& client);

    /// Serves until the connection ends.
    void run();

private:
    /// A request, its answer as far as it stands, and its line in the log.
    struct Exchange {
        const Plist& request;
        Plist reply;
        LogEntry entry;
    };

    /// Returns the error's name, or an empty string for success.
    using Handler = std::string (LockdownServer::*)(Exchange& exchange);

    static Handler handlerOf(const std::string& request);

    bool waitForRequest();
    bool serve(const Plist& request);
    std::string carryOut(const std::string& name, Exchange& exchange);
    bool answer(Exchange& exchange, const std::string& error);
    bool changeEncryption();

    std::string queryType(Exchange& exchange);
    std::string getValue(Exchange& exchange);
    std::string setValue(Exchange& exchange);
    std::string removeValue(Exchange& exchange);
    std::string validatePair(Exchange& exchange);
    std::string pair(Exchange& exchange);
    std::string unpair(Exchange& exchange);
    std::string startSession(Exchange& exchange);
    std::string stopSession(Exchange& exchange);
    std::string startService(Exchange& exchange);
    std::string goodbye(Exchange& exchange);

    std::string checkWritable(Exchange& exchange, std::string& domain, std::string& key) const;

    const Client& client_;
    Channel& channel_;
    PhoneState& phone_;
    Responder responder_;
    bool isValidated_ = false; // a trusted host has shown its pair record on this connection
    std::string session_;      // empty: none
    std::string sessionHost_;
    bool wantsEncryption_ = false; // for what follows the answer that is on its way
    bool isOver_ = false;
};

} // namespace virtualphone
