#include "virtualphone/services/Responder.h"

#include "virtualphone/phone/PhoneState.h"

#include <span>
#include <utility>

namespace virtualphone {

Responder::Responder(const Client& client, Service service, Spoil spoil)
    : channel_(client.channel), log_(client.log), faults_(client.phone.faults), service_(service),
      connection_(client.connection), phone_(client.phone.options.udid),
      latency_(client.phone.options.replyLatency), pullOut_(client.pullOut), spoil_(spoil) {}

Responder::Responder(Channel& channel, RequestLog& log, uint64_t connection, Faults& faults,
                     Spoil spoil)
    : channel_(channel), log_(log), faults_(faults), service_(Service::Usbmux),
      connection_(connection), latency_(0), spoil_(spoil) {}

LogEntry Responder::newEntry(std::string_view request) const {
    LogEntry entry;
    entry.phone = phone_;
    entry.service = serviceName(service_);
    entry.connection = connection_;
    entry.request = request;
    return entry;
}

bool Responder::begin(const LogEntry& entry) {
    fault_ = faults_.meet(service_, entry.request);
    if (!fault_) {
        return true;
    }
    // Earlier answers are on their way, whatever happens now.
    channel_.flush();
    switch (fault_->action) {
    case FaultAction::Drop:
        record(entry);
        channel_.shutDown();
        return false;
    case FaultAction::Silent:
        record(entry);
        channel_.waitForEnd();
        return false;
    case FaultAction::Unplug:
        record(entry);
        pullOut_();
        channel_.waitForEnd();
        return false;
    default:
        return true;
    }
}

std::optional<uint64_t> Responder::wantedStatus() const {
    return hasMet(FaultAction::Status) ? std::optional(fault_->number) : std::nullopt;
}

std::optional<std::string> Responder::wantedError() const {
    return hasMet(FaultAction::Error) ? std::optional(fault_->error) : std::nullopt;
}

void Responder::record(LogEntry entry) const {
    if (fault_) {
        entry.fault = actionName(fault_->action);
    }
    log_.add(std::move(entry));
}

bool Responder::thinkFirst() const {
    if (latency_.count() > 0 && !channel_.pause(latency_)) {
        return false;
    }
    if (hasMet(FaultAction::Delay) && !channel_.pause(std::chrono::milliseconds(fault_->number))) {
        return false;
    }
    if (hasMet(FaultAction::DropUnanswered)) {
        channel_.shutDown();
        return false;
    }
    return !faults_.isSilent() || channel_.waitFor(faults_.talkingDescriptor());
}

bool Responder::send(Packet& packet) const {
    if (!fault_) {
        // Only clients of the file service send requests ahead.
        return service_ == Service::Afc ? channel_.writeSoon(packet) : channel_.write(packet);
    }
    const std::span<const char> half = std::span<const char>(packet).first(packet.size() / 2);
    switch (fault_->action) {
    case FaultAction::CutReply:
        channel_.write(half);
        channel_.shutDown();
        return false;
    case FaultAction::StallReply:
        channel_.write(half);
        channel_.waitForEnd();
        return false;
    case FaultAction::DripReply:
        return drip(packet);
    case FaultAction::DropAfterAnswer:
        channel_.write(packet);
        channel_.shutDown();
        return false;
    default:
        spoil_(packet, fault_->action);
        return channel_.write(packet);
    }
}

bool Responder::drip(const Packet& packet) const {
    for (const char& byte : packet) {
        if (!channel_.pause(std::chrono::milliseconds(fault_->number)) ||
            !channel_.write(std::span(&byte, 1))) {
            return false;
        }
    }
    return true;
}

bool Responder::answer(LogEntry entry, Packet& packet) {
    record(std::move(entry));
    return thinkFirst() && send(packet);
}

void Responder::abandon(LogEntry entry) {
    entry.fault = "interrupted";
    log_.add(std::move(entry));
}

bool Responder::finish(LogEntry entry) {
    record(std::move(entry));
    if (hasMet(FaultAction::DropUnanswered) || hasMet(FaultAction::DropAfterAnswer)) {
        channel_.shutDown();
        return false;
    }
    return true;
}

} // namespace virtualphone
