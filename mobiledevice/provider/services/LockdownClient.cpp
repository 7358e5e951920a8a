#include "mobiledevice/provider/services/LockdownClient.h"

#include "mobiledevice/provider/services/LockdownErrors.h"

#include <MobileDevice/MobileDevice.h>

#include <limits>
#include <utility>

namespace krl::provider {

namespace {

PlistRef newRequest(const char* name) {
    PlistRef request = newDictionary();
    setString(request, "Label", "KRLVesk");
    setString(request, "Request", name);
    return request;
}

// Early firmware says "Success" or "Failure" in every answer; later firmware names an error or
// says nothing. Nothing for an answer that is neither.
std::optional<int32_t> outcome(const PlistRef& answer) {
    const std::optional<std::string> result = stringAt(answer, "Result");
    if (hasKey(answer, "Result") && result != "Success" && result != "Failure") {
        return std::nullopt;
    }
    if (hasKey(answer, "Error") || result == "Failure") {
        return lockdownErrorNumber(stringAt(answer, "Error").value_or(""));
    }
    return 0;
}

bool isAnswerTo(const PlistRef& request, std::initializer_list<const char*> echoes,
                const PlistRef& answer) {
    if (stringAt(answer, "Request") != stringAt(request, "Request")) {
        return false;
    }
    for (const char* key : echoes) {
        if (hasKey(answer, key) && stringAt(answer, key) != stringAt(request, key)) {
            return false;
        }
    }
    return true;
}

} // namespace

LockdownClient::LockdownClient(std::shared_ptr<Channel> channel,
                               std::unique_ptr<SessionSecurity> security)
    : messenger_(std::move(channel)), security_(std::move(security)) {}

int32_t LockdownClient::validatePair(const PairRecord& record) {
    PlistRef answer;
    return exchangeRecord(newRequest("ValidatePair"), record, answer);
}

int32_t LockdownClient::pair(PairRecord& record) {
    const PlistRef request = newRequest("Pair");
    PlistRef options = newDictionary();
    plist_dict_set_item(options.get(), "ExtendedPairingErrors", plist_new_bool(1));
    plist_dict_set_item(request.get(), "PairingOptions", options.release());
    PlistRef answer;
    if (const int32_t status = exchangeRecord(request, record, answer)) {
        return status;
    }
    if (const auto bag = dataAt(answer, "EscrowBag")) {
        record.setData("EscrowBag", *bag);
    }
    return 0;
}

int32_t LockdownClient::unpair(const PairRecord& record) {
    PlistRef answer;
    return exchangeRecord(newRequest("Unpair"), record, answer);
}

int32_t LockdownClient::exchangeRecord(const PlistRef& request, const PairRecord& record,
                                       PlistRef& answer) {
    plist_dict_set_item(request.get(), "PairRecord", record.shownToPhone().release());
    setString(request, "ProtocolVersion", "2");
    return exchange(request, {}, answer);
}

SessionStart LockdownClient::startSession(const PairRecord& record,
                                          const std::optional<std::string>& systemBuid,
                                          Protocol protocol) {
    const PlistRef request = newRequest("StartSession");
    setString(request, "HostID", record.hostId());
    if (systemBuid) {
        setString(request, "SystemBUID", *systemBuid);
    }
    PlistRef answer;
    if (const int32_t status = exchange(request, {}, answer)) {
        return {status};
    }
    std::optional<std::string> sessionId = stringAt(answer, "SessionID");
    const std::optional<bool> wantsSecurity = booleanAt(answer, "EnableSessionSSL");
    if (!sessionId || sessionId->empty() ||
        (hasKey(answer, "EnableSessionSSL") && !wantsSecurity)) {
        return {messenger_.badReply()};
    }
    if (wantsSecurity.value_or(false)) {
        if (const int32_t status = security_->begin(messenger_.channel(), record, protocol)) {
            // The phone waits for an encrypted stream now; nothing else can be said to it.
            shutdown();
            return {status, /*isEncrypted=*/true};
        }
    }
    sessionId_ = std::move(sessionId);
    secure_ = wantsSecurity.value_or(false);
    return {0, secure_};
}

int32_t LockdownClient::stopSession() {
    if (!sessionId_) {
        return kAMDNoSession;
    }
    const PlistRef request = newRequest("StopSession");
    setString(request, "SessionID", *sessionId_);
    PlistRef answer;
    if (const int32_t status = exchange(request, {}, answer)) {
        return status;
    }
    sessionId_.reset();
    if (std::exchange(secure_, false)) {
        security_->end(messenger_.channel());
    }
    return 0;
}

int32_t LockdownClient::startService(const std::string& name, ServiceAddress& address) {
    const PlistRef request = newRequest("StartService");
    setString(request, "Service", name);
    PlistRef answer;
    if (const int32_t status = exchange(request, {"Service"}, answer)) {
        return status;
    }
    const uint64_t number = unsignedAt(answer, "Port").value_or(0);
    if (number == 0 || number > std::numeric_limits<uint16_t>::max()) {
        return messenger_.badReply();
    }
    const std::optional<bool> isSecure = booleanAt(answer, "EnableServiceSSL");
    if (hasKey(answer, "EnableServiceSSL") && !isSecure) {
        return messenger_.badReply();
    }
    address = {static_cast<uint16_t>(number), isSecure.value_or(false)};
    return 0;
}

int32_t LockdownClient::getValue(const std::optional<std::string>& domain,
                                 const std::optional<std::string>& key, PlistRef& answer) {
    const PlistRef request = newRequest("GetValue");
    if (domain) {
        setString(request, "Domain", *domain);
    }
    if (key) {
        setString(request, "Key", *key);
    }
    return exchange(request, {"Domain", "Key"}, answer);
}

void LockdownClient::shutdown() noexcept {
    messenger_.channel().shutdown();
}

int32_t LockdownClient::exchange(const PlistRef& request, std::initializer_list<const char*> echoes,
                                 PlistRef& answer) {
    if (const int32_t status = messenger_.send(request)) {
        return status;
    }
    if (const int32_t status = messenger_.receive(answer)) {
        return status;
    }
    const std::optional<int32_t> result = outcome(answer);
    if (!result || !isAnswerTo(request, echoes, answer)) {
        return messenger_.badReply();
    }
    return *result;
}

} // namespace krl::provider
