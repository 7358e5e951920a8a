/// The notification proxy on one connection.
#pragma once

#include "virtualphone/services/Responder.h"
#include "virtualphone/wire/PropertyList.h"

#include <string>

namespace virtualphone {

class NotificationProxyServer {
public:
    explicit NotificationProxyServer(const Client& client);
    ~NotificationProxyServer();
    NotificationProxyServer(const NotificationProxyServer&) = delete;
    NotificationProxyServer& operator=(const NotificationProxyServer&) = delete;

    /// Serves until the connection ends.
    void run();

private:
    bool serve(const Plist& command);
    bool shutDown(LogEntry entry);
    void relay(const std::string& name);

    Channel& channel_;
    PhoneState& phone_;
    Responder responder_;
};

} // namespace virtualphone
