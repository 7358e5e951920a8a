#include "virtualphone/services/Handshake.h"

#include "virtualphone/phone/PhoneState.h"

#include <algorithm>
#include <string>
#include <utility>

namespace virtualphone {

namespace {

// The connection's own bytes, the phone's first words spoilt as a fault wants it.
class HandshakeBytes final : public RawStream {
public:
    HandshakeBytes(Channel& channel, const Responder& responder)
        : channel_(channel), isCut_(responder.hasMet(FaultAction::CutReply)),
          isStalled_(responder.hasMet(FaultAction::StallReply)),
          isGarbled_(responder.hasMet(FaultAction::GarbledReply)) {}

    size_t receive(std::span<char> target) override { return channel_.receiveRaw(target); }

    bool send(std::span<const char> bytes) override {
        if (isCut_ || isStalled_) {
            channel_.sendRaw(bytes.first(bytes.size() / 2));
            return end();
        }
        if (std::exchange(isGarbled_, false)) {
            constexpr char kScramble = 0x5A;
            std::string scrambled(bytes.begin(), bytes.end());
            std::transform(scrambled.begin(), scrambled.end(), scrambled.begin(),
                           [](char c) { return static_cast<char>(c ^ kScramble); });
            return channel_.sendRaw(scrambled);
        }
        return channel_.sendRaw(bytes);
    }

private:
    bool end() {
        if (isStalled_) {
            channel_.waitForEnd();
        }
        channel_.shutDown();
        return false;
    }

    Channel& channel_;
    const bool isCut_;
    const bool isStalled_;
    bool isGarbled_;
};

} // namespace

bool shakeHands(const Client& client, Responder& responder, std::vector<HostCertificates> hosts) {
    LogEntry entry = responder.newEntry("Handshake");
    if (!responder.begin(entry) || !responder.thinkFirst()) {
        return false;
    }
    std::unique_ptr<EncryptedStream> stream = client.phone.sessionKeys->accept(
        std::make_unique<HandshakeBytes>(client.channel, responder), std::move(hosts));
    const bool isDone = stream && stream->handshake();
    (isDone ? entry.name : entry.error) = stream ? stream->outcome() : "NSS refuses the setup";
    responder.finish(std::move(entry));
    if (isDone) {
        client.channel.encrypt(std::move(stream));
    }
    return isDone;
}

} // namespace virtualphone
