#include "virtualphone/services/NotificationProxyServer.h"

#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/services/ReplyFaults.h"
#include "virtualphone/wire/FramedList.h"

#include <utility>

namespace virtualphone {

NotificationProxyServer::NotificationProxyServer(const Client& client)
    : channel_(client.channel), phone_(client.phone),
      responder_(client, Service::NotificationProxy, spoilFramed) {}

NotificationProxyServer::~NotificationProxyServer() {
    phone_.notifications.forget(this);
}

void NotificationProxyServer::run() {
    while (true) {
        const Plist command = receiveDictionary(channel_);
        if (!command || !serve(command)) {
            return;
        }
    }
}

bool NotificationProxyServer::serve(const Plist& command) {
    const std::string request = stringOf(itemOf(command, "Command")).value_or("");
    const std::string name = stringOf(itemOf(command, "Name")).value_or("");
    LogEntry entry = responder_.newEntry(request);
    entry.name = name;
    if (!responder_.begin(entry)) {
        return false;
    }
    if (request == "Shutdown") {
        return shutDown(std::move(entry));
    }
    if (request == "ObserveNotification") {
        phone_.notifications.observe(this, name,
                                     [this](const std::string& posted) { relay(posted); });
    }
    // Whoever is told of a post finds it in the log, whoever finds an observer there can rely on
    // it.
    const bool goesOn = responder_.finish(std::move(entry));
    if (request == "PostNotification") {
        phone_.notifications.post(name);
    }
    return goesOn;
}

bool NotificationProxyServer::shutDown(LogEntry entry) {
    phone_.notifications.forget(this); // from here on nothing is sent but the answer
    Plist reply = newDictionary();
    setItem(reply, "Command", "ProxyDeath");
    if (responder_.hasMet(FaultAction::WrongOperation)) {
        reply = newArray();
    }
    Packet packet = framed(reply, phone_.options.binaryReplies);
    responder_.answer(std::move(entry), packet);
    return false;
}

// On the thread of whoever posts.
void NotificationProxyServer::relay(const std::string& name) {
    if (phone_.faults.isSilent()) {
        return;
    }
    const Plist message = newDictionary();
    setItem(message, "Command", "RelayNotification");
    setItem(message, "Name", name);
    channel_.sendNow(framed(message, phone_.options.binaryReplies));
}

} // namespace virtualphone
