#include "virtualphone/wire/Faults.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace virtualphone {

namespace {

constexpr std::array<std::string_view, 4> kServiceNames = {"usbmux", "lockdown", "afc",
                                                           "notification_proxy"};

enum class Argument { None, Number, Name };

// Services an action is possible on, as bits.
constexpr unsigned kUsbmux = 1U << static_cast<unsigned>(Service::Usbmux);
constexpr unsigned kLockdown = 1U << static_cast<unsigned>(Service::Lockdown);
constexpr unsigned kAfc = 1U << static_cast<unsigned>(Service::Afc);
constexpr unsigned kProxy = 1U << static_cast<unsigned>(Service::NotificationProxy);
constexpr unsigned kAll = kUsbmux | kLockdown | kAfc | kProxy;

struct ActionWord {
    std::string_view word;
    FaultAction action;
    Argument argument;
    unsigned services;
};

constexpr ActionWord kActions[] = {
    {"status", FaultAction::Status, Argument::Number, kAfc | kUsbmux},
    {"error", FaultAction::Error, Argument::Name, kLockdown},
    {"drop", FaultAction::Drop, Argument::None, kAll},
    {"silent", FaultAction::Silent, Argument::None, kAll},
    {"unplug", FaultAction::Unplug, Argument::None, kLockdown | kAfc | kProxy},
    {"drop-unanswered", FaultAction::DropUnanswered, Argument::None, kAll},
    {"drop-after-answer", FaultAction::DropAfterAnswer, Argument::None, kAll},
    {"delay", FaultAction::Delay, Argument::Number, kAll},
    {"cut", FaultAction::CutReply, Argument::None, kAll},
    {"stall", FaultAction::StallReply, Argument::None, kAll},
    {"drip", FaultAction::DripReply, Argument::Number, kAll},
    {"short", FaultAction::ShortReply, Argument::None, kAll},
    {"long", FaultAction::LongReply, Argument::None, kAll},
    {"garbled", FaultAction::GarbledReply, Argument::None, kAll},
    {"bad-magic", FaultAction::BadMagic, Argument::None, kAfc | kUsbmux},
    {"wrong-number", FaultAction::WrongNumber, Argument::None, kAfc | kUsbmux | kLockdown},
    {"wrong-operation", FaultAction::WrongOperation, Argument::None, kAll},
    {"tiny-length", FaultAction::TinyLength, Argument::None, kAll},
    {"huge-length", FaultAction::HugeLength, Argument::None, kAll},
};

const ActionWord& wordOf(FaultAction action) {
    return *std::find_if(std::begin(kActions), std::end(kActions),
                         [&](const ActionWord& word) { return word.action == action; });
}

[[noreturn]] void refuse(std::string_view text, const std::string& why) {
    throw std::invalid_argument("fault '" + std::string(text) + "': " + why +
                                "; the form is SERVICE[/REQUEST][#N[+]]=ACTION, for example "
                                "afc/Write#3=status:18");
}

std::optional<uint64_t> numberIn(std::string_view text) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

size_t indexOf(Service service) {
    return static_cast<size_t>(service);
}

// Takes what follows the separator off the text; none when it does not stand there.
std::optional<std::string_view> splitOff(std::string_view& text, char separator) {
    const size_t at = text.find(separator);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view rest = text.substr(at + 1);
    text = text.substr(0, at);
    return rest;
}

void readAction(std::string_view whole, std::string_view action, Fault& fault) {
    const std::optional<std::string_view> argument = splitOff(action, ':');
    const auto* const word =
        std::find_if(std::begin(kActions), std::end(kActions),
                     [&](const ActionWord& known) { return known.word == action; });
    if (word == std::end(kActions)) {
        refuse(whole, "there is no action '" + std::string(action) + "'");
    }
    fault.action = word->action;
    switch (word->argument) {
    case Argument::None:
        if (argument) {
            refuse(whole, "'" + std::string(action) + "' takes no value");
        }
        break;
    case Argument::Number: {
        const std::optional<uint64_t> number = numberIn(argument.value_or(""));
        if (!number) {
            refuse(whole, "'" + std::string(action) + "' needs a number, as in " +
                              std::string(action) + ":18");
        }
        fault.number = *number;
        break;
    }
    case Argument::Name:
        if (!argument || argument->empty()) {
            refuse(whole, "'error' needs a name, as in error:InvalidHostID");
        }
        fault.error = *argument;
        break;
    }
}

void checkFits(std::string_view whole, const Fault& fault) {
    const ActionWord& word = wordOf(fault.action);
    if ((word.services & (1U << indexOf(fault.service))) == 0) {
        refuse(whole, "'" + std::string(word.word) + "' is not possible on " +
                          std::string(serviceName(fault.service)));
    }
    if (fault.nth == 0) {
        refuse(whole, "requests are counted from 1");
    }
    constexpr uint64_t kLongestDelayMs = 86'400'000;
    const bool isPause =
        fault.action == FaultAction::Delay || fault.action == FaultAction::DripReply;
    if (isPause && fault.number > kLongestDelayMs) {
        refuse(whole, "a delay is a day at most");
    }
}

} // namespace

std::string_view serviceName(Service service) {
    return kServiceNames[indexOf(service)];
}

std::string_view actionName(FaultAction action) {
    return wordOf(action).word;
}

Fault parseFault(std::string_view text) {
    Fault fault;
    std::string_view where = text;
    const std::optional<std::string_view> action = splitOff(where, '=');
    if (!action) {
        refuse(text, "it names no action");
    }
    if (std::optional<std::string_view> count = splitOff(where, '#')) {
        if (count->ends_with('+')) {
            fault.andAllLater = true;
            count->remove_suffix(1);
        }
        const std::optional<uint64_t> nth = numberIn(*count);
        if (!nth || *nth > UINT32_MAX) {
            refuse(text, "'" + std::string(*count) + "' is no number of a request");
        }
        fault.nth = static_cast<uint32_t>(*nth);
    }
    if (const std::optional<std::string_view> request = splitOff(where, '/')) {
        fault.request = *request;
    }
    const auto service = std::find(kServiceNames.begin(), kServiceNames.end(), where);
    if (service == kServiceNames.end()) {
        refuse(text, "the services are usbmux, lockdown, afc and notification_proxy");
    }
    fault.service = static_cast<Service>(service - kServiceNames.begin());
    readAction(text, *action, fault);
    checkFits(text, fault);
    return fault;
}

Faults::Faults() : talking_(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (talking_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Faults::~Faults() {
    close(talking_);
}

void Faults::add(Fault fault) {
    checkFits(wordOf(fault.action).word, fault);
    const std::lock_guard lock(mutex_);
    armed_.push_back({std::move(fault)});
}

void Faults::failAfc(std::string request, uint64_t status, uint32_t nth) {
    add({.service = Service::Afc,
         .request = std::move(request),
         .nth = nth,
         .action = FaultAction::Status,
         .number = status});
}

void Faults::failLockdown(std::string request, std::string error, uint32_t nth) {
    add({.service = Service::Lockdown,
         .request = std::move(request),
         .nth = nth,
         .action = FaultAction::Error,
         .error = std::move(error)});
}

void Faults::dropAfterReceiving(Service service, uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    receiving_[indexOf(service)] = bytes;
}

void Faults::dropAfterSending(Service service, uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    sending_[indexOf(service)] = bytes;
}

void Faults::goSilent() {
    const std::lock_guard lock(mutex_);
    if (!isSilent_.exchange(true)) {
        uint64_t drained = 0;
        [[maybe_unused]] const ssize_t got = read(talking_, &drained, sizeof drained);
    }
}

void Faults::endSilence() {
    const std::lock_guard lock(mutex_);
    if (isSilent_.exchange(false)) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t put = write(talking_, &one, sizeof one);
    }
}

void Faults::clear() {
    endSilence();
    const std::lock_guard lock(mutex_);
    armed_.clear();
    receiving_ = {};
    sending_ = {};
}

std::optional<Fault> Faults::meet(Service service, std::string_view request) {
    const std::lock_guard lock(mutex_);
    std::optional<Fault> met;
    for (Armed& armed : armed_) {
        const Fault& fault = armed.fault;
        if (fault.service != service || (!fault.request.empty() && fault.request != request)) {
            continue;
        }
        ++armed.seen;
        const bool isMet = armed.seen == fault.nth || (fault.andAllLater && armed.seen > fault.nth);
        if (isMet && !met) {
            met = fault;
        }
    }
    std::erase_if(armed_, [](const Armed& armed) {
        return !armed.fault.andAllLater && armed.seen >= armed.fault.nth;
    });
    return met;
}

Faults::Allowance Faults::allowReceiving(Service service, size_t bytes) {
    return allow(receiving_, service, bytes);
}

Faults::Allowance Faults::allowSending(Service service, size_t bytes) {
    return allow(sending_, service, bytes);
}

Faults::Allowance Faults::allow(Budgets& budgets, Service service, size_t bytes) {
    const std::lock_guard lock(mutex_);
    std::optional<uint64_t>& budget = budgets[indexOf(service)];
    if (!budget) {
        return {bytes, false};
    }
    if (bytes < *budget) {
        *budget -= bytes;
        return {bytes, false};
    }
    const auto allowed = static_cast<size_t>(*budget);
    budget.reset();
    return {allowed, true};
}

} // namespace virtualphone
