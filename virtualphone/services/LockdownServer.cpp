#include "virtualphone/services/LockdownServer.h"

#include "virtualphone/phone/Firmware.h"
#include "virtualphone/phone/PairRecords.h"
#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/services/Handshake.h"
#include "virtualphone/services/ReplyFaults.h"
#include "virtualphone/wire/FramedList.h"

#include <algorithm>
#include <map>
#include <utility>

namespace virtualphone {

namespace {

const std::map<std::string, Service>& services() {
    static const std::map<std::string, Service> known = {
        {"com.apple.afc", Service::Afc},
        {"com.apple.mobile.notification_proxy", Service::NotificationProxy},
    };
    return known;
}

std::string textOf(const Plist& request, const char* key) {
    return stringOf(itemOf(request, key)).value_or("");
}

// What a request is about: of these, the first that it has.
std::string subjectOf(const Plist& request) {
    for (const char* const key : {"Key", "Service", "HostID", "SessionID"}) {
        if (std::string text = textOf(request, key); !text.empty()) {
            return text;
        }
    }
    const plist_t record = itemOf(request, "PairRecord");
    return isDictionary(record) ? stringOf(plist_dict_get_item(record, "HostID")).value_or("") : "";
}

// The HostID of the pair record in a request, or the name of what is wrong with it.
struct HostOrError {
    std::string host;
    std::string error;
};

HostOrError hostIn(const Plist& request, bool withCertificates) {
    const plist_t record = itemOf(request, "PairRecord");
    if (!isDictionary(record)) {
        return {"", "MissingPairRecord"};
    }
    const auto itemOfRecord = [&](const char* key) { return plist_dict_get_item(record, key); };
    const std::string host = stringOf(itemOfRecord("HostID")).value_or("");
    if (host.empty()) {
        return {"", "MissingHostID"};
    }
    const char* const certificates[] = {"DeviceCertificate", "HostCertificate", "RootCertificate"};
    const bool isComplete =
        std::all_of(std::begin(certificates), std::end(certificates),
                    [&](const char* key) { return dataOf(itemOfRecord(key)).has_value(); });
    if (withCertificates && !isComplete) {
        return {"", "InvalidPairRecord"};
    }
    return {host, ""};
}

} // namespace

LockdownServer::LockdownServer(const Client& client)
    : client_(client), channel_(client.channel), phone_(client.phone),
      responder_(client, Service::Lockdown, spoilFramed) {}

void LockdownServer::run() {
    while (!isOver_ && waitForRequest()) {
        const Plist request = receiveDictionary(channel_);
        if (!request || !serve(request)) {
            return;
        }
    }
}

bool LockdownServer::waitForRequest() {
    const std::chrono::milliseconds idle = phone_.options.lockdownIdleTimeout;
    const std::chrono::milliseconds most = idle.count() == 0 ? std::chrono::milliseconds(-1) : idle;
    return channel_.waitForInput(most) && channel_.skipFarewell() && channel_.waitForInput(most);
}

bool LockdownServer::serve(const Plist& request) {
    const std::string name = textOf(request, "Request");
    Exchange exchange{request, newDictionary(), responder_.newEntry(name)};
    exchange.entry.name = subjectOf(request);
    exchange.entry.domain = textOf(request, "Domain");
    if (!responder_.begin(exchange.entry)) {
        return false;
    }
    const std::string error = carryOut(name, exchange);
    return answer(exchange, error) && changeEncryption() && !isOver_;
}

// Right behind the answers that start and stop a session.
bool LockdownServer::changeEncryption() {
    if (wantsEncryption_ == channel_.isEncrypted()) {
        return true;
    }
    if (!wantsEncryption_) {
        channel_.endEncryption();
        return true;
    }
    return shakeHands(client_, responder_, phone_.hosts.certificates(sessionHost_));
}

std::string LockdownServer::carryOut(const std::string& name, Exchange& exchange) {
    setItem(exchange.reply, "Request", name);
    if (const std::optional<std::string> wanted = responder_.wantedError()) {
        return *wanted;
    }
    const Handler handler = handlerOf(name);
    return handler == nullptr ? "UnknownRequest" : (this->*handler)(exchange);
}

LockdownServer::Handler LockdownServer::handlerOf(const std::string& request) {
    static const std::map<std::string, Handler> handlers = {
        {"QueryType", &LockdownServer::queryType},
        {"GetValue", &LockdownServer::getValue},
        {"SetValue", &LockdownServer::setValue},
        {"RemoveValue", &LockdownServer::removeValue},
        {"ValidatePair", &LockdownServer::validatePair},
        {"Pair", &LockdownServer::pair},
        {"Unpair", &LockdownServer::unpair},
        {"StartSession", &LockdownServer::startSession},
        {"StopSession", &LockdownServer::stopSession},
        {"StartService", &LockdownServer::startService},
        {"Goodbye", &LockdownServer::goodbye},
    };
    const auto found = handlers.find(request);
    return found == handlers.end() ? nullptr : found->second;
}

bool LockdownServer::answer(Exchange& exchange, const std::string& error) {
    // From 5.0 on an answer without an error is what says success.
    if (!isAtLeast(phone_.options.firmware, 5, 0)) {
        setItem(exchange.reply, "Result", error.empty() ? "Success" : "Failure");
    }
    if (!error.empty()) {
        setItem(exchange.reply, "Error", error);
        exchange.entry.error = error;
    }
    if (responder_.hasMet(FaultAction::WrongNumber)) {
        setItem(exchange.reply, "Request", "AnotherRequest");
    }
    if (responder_.hasMet(FaultAction::WrongOperation)) {
        exchange.reply = newArray();
    }
    Packet packet = framed(exchange.reply, phone_.options.binaryReplies);
    return responder_.answer(std::move(exchange.entry), packet);
}

std::string LockdownServer::queryType(Exchange& exchange) {
    setItem(exchange.reply, "Type", "com.apple.mobile.lockdown");
    return "";
}

std::string LockdownServer::getValue(Exchange& exchange) {
    const std::string domain = textOf(exchange.request, "Domain");
    const std::string key = textOf(exchange.request, "Key");
    if (!domain.empty()) {
        setItem(exchange.reply, "Domain", domain);
    }
    if (!key.empty()) {
        setItem(exchange.reply, "Key", key);
    }
    Plist value = key.empty() ? phone_.values.copyAll(domain) : phone_.values.copy(domain, key);
    if (!value) {
        return "MissingValue";
    }
    setItem(exchange.reply, "Value", std::move(value));
    return "";
}

std::string LockdownServer::checkWritable(Exchange& exchange, std::string& domain,
                                          std::string& key) const {
    domain = textOf(exchange.request, "Domain");
    key = textOf(exchange.request, "Key");
    if (session_.empty()) {
        return "SessionInactive";
    }
    if (key.empty()) {
        return "MissingKey";
    }
    return DeviceValues::isWritable(domain, key) ? "" : "SetProhibited";
}

std::string LockdownServer::setValue(Exchange& exchange) {
    std::string domain;
    std::string key;
    if (std::string error = checkWritable(exchange, domain, key); !error.empty()) {
        return error;
    }
    const plist_t value = itemOf(exchange.request, "Value");
    if (value == nullptr) {
        return "MissingValue";
    }
    phone_.values.set(domain, key, Plist(plist_copy(value)));
    return "";
}

std::string LockdownServer::removeValue(Exchange& exchange) {
    std::string domain;
    std::string key;
    if (std::string error = checkWritable(exchange, domain, key); !error.empty()) {
        return error;
    }
    phone_.values.remove(domain, key);
    return "";
}

std::string LockdownServer::validatePair(Exchange& exchange) {
    auto [host, error] = hostIn(exchange.request, /*withCertificates=*/false);
    if (!error.empty()) {
        return error;
    }
    if (!phone_.hosts.contains(host)) {
        return "InvalidHostID";
    }
    isValidated_ = true;
    return "";
}

std::string LockdownServer::pair(Exchange& exchange) {
    auto [host, error] = hostIn(exchange.request, /*withCertificates=*/true);
    if (!error.empty()) {
        return error;
    }
    if (phone_.options.passwordProtected) {
        return "PasswordProtected";
    }
    HostCertificates certificates = certificatesIn(itemOf(exchange.request, "PairRecord"));
    if (phone_.sessionKeys && !phone_.sessionKeys->canKnow(certificates)) {
        return "InvalidPairRecord";
    }
    phone_.hosts.add(host, std::move(certificates));
    isValidated_ = true;
    return "";
}

std::string LockdownServer::unpair(Exchange& exchange) {
    auto [host, error] = hostIn(exchange.request, /*withCertificates=*/false);
    if (!error.empty()) {
        return error;
    }
    if (!phone_.hosts.contains(host)) {
        return "InvalidHostID";
    }
    phone_.hosts.remove(host);
    isValidated_ = false;
    return "";
}

std::string LockdownServer::startSession(Exchange& exchange) {
    const std::string host = textOf(exchange.request, "HostID");
    if (host.empty()) {
        return "MissingHostID";
    }
    if (!session_.empty()) {
        return "SessionActive";
    }
    const bool mayStart = isValidated_ || !phone_.options.sessionNeedsValidation;
    if (!mayStart || !phone_.hosts.contains(host)) {
        return "InvalidHostID";
    }
    session_ = phone_.newSessionId();
    setItem(exchange.reply, "SessionID", session_);
    sessionHost_ = host;
    wantsEncryption_ = phone_.sessionKeys != nullptr;
    setItem(exchange.reply, "EnableSessionSSL", newBoolean(wantsEncryption_));
    return "";
}

std::string LockdownServer::stopSession(Exchange& exchange) {
    const std::string id = textOf(exchange.request, "SessionID");
    if (id.empty()) {
        return "MissingSessionID";
    }
    if (session_.empty()) {
        return "SessionInactive";
    }
    if (id != session_) {
        return "InvalidSessionID";
    }
    session_.clear();
    wantsEncryption_ = false;
    return "";
}

std::string LockdownServer::startService(Exchange& exchange) {
    const std::string name = textOf(exchange.request, "Service");
    if (name.empty()) {
        return "MissingService";
    }
    if (session_.empty()) {
        return "SessionInactive";
    }
    const auto service = services().find(name);
    if (service == services().end()) {
        return "InvalidService";
    }
    const std::optional<uint16_t> port = phone_.ports.open(service->second);
    if (!port) {
        return "ServiceLimit";
    }
    exchange.entry.port = *port;
    setItem(exchange.reply, "Service", name);
    setItem(exchange.reply, "Port", newInteger(*port));
    if (phone_.hasSecureServices()) {
        setItem(exchange.reply, "EnableServiceSSL", newBoolean(true));
    }
    return "";
}

std::string LockdownServer::goodbye(Exchange&) {
    isOver_ = true;
    return "";
}

} // namespace virtualphone
