#include "mobiledevice/provider/services/NotificationProxyClient.h"

#include <utility>

namespace krl::provider {

namespace {

PlistRef newCommand(const char* name) {
    PlistRef command = newDictionary();
    setString(command, "Command", name);
    return command;
}

} // namespace

NotificationProxyClient::NotificationProxyClient(std::shared_ptr<Channel> channel)
    : messenger_(std::move(channel)) {}

int32_t NotificationProxyClient::post(const std::string& name) {
    const PlistRef command = newCommand("PostNotification");
    setString(command, "Name", name);
    return messenger_.send(command);
}

int32_t NotificationProxyClient::shutdown() {
    if (const int32_t status = messenger_.send(newCommand("Shutdown"))) {
        return status;
    }
    // Nothing was observed, so nothing is relayed: this is the only message there can be.
    PlistRef message;
    if (const int32_t status = messenger_.receive(message)) {
        return status;
    }
    return stringAt(message, "Command") == "ProxyDeath" ? 0 : messenger_.badReply();
}

} // namespace krl::provider
