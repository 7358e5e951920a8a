/// What goes wrong on a phone or on the bus, settable at any moment.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace virtualphone {

enum class Service { Usbmux, Lockdown, Afc, NotificationProxy };

/// "usbmux", "lockdown", "afc", "notification_proxy".
std::string_view serviceName(Service service);

/// What happens to the request that a fault meets. In brackets its word in the text form.
enum class FaultAction {
    // Not carried out:
    Status, ///< file service: answered with this status; usbmux: with this Result [status:N]
    Error,  ///< lockdown: answered with this error name [error:NAME]
    Drop,   ///< the connection is closed unanswered [drop]
    Silent, ///< never answered; the connection is not read any more either [silent]
    Unplug, ///< the phone is pulled out [unplug]
    // Carried out:
    DropUnanswered,  ///< closed instead of the answer [drop-unanswered]
    DropAfterAnswer, ///< closed right after the answer [drop-after-answer]
    Delay,           ///< answered this many milliseconds later [delay:MS]
    CutReply,        ///< half of the answer, then closed [cut]
    StallReply,      ///< half of the answer, then silence [stall]
    DripReply,       ///< byte after byte, so many milliseconds apart [drip:MS]
    ShortReply,      ///< an answer without its last bytes, its length adjusted to that [short]
    LongReply,       ///< an answer with 8 bytes too many, its length adjusted to that [long]
    GarbledReply,    ///< all bytes after the length scrambled [garbled]
    BadMagic,        ///< file service: wrong magic; usbmux: wrong version [bad-magic]
    WrongNumber,     ///< file service: number of another request; usbmux: another tag;
                     ///< lockdown: "Request" of another name [wrong-number]
    WrongOperation,  ///< an answer of another kind than the request has [wrong-operation]
    TinyLength,      ///< a length below the least there can be [tiny-length]
    HugeLength,      ///< a length beyond all reason [huge-length]
};

/// The word of an action in the text form, which is also what the log says.
std::string_view actionName(FaultAction action);

/// "afc/Write#3=status:18": the third write from now on is answered with status 18.
struct Fault {
    Service service = Service::Afc;
    std::string request{};    ///< name as in the log; empty: each request of the service
    uint32_t nth = 1;         ///< counted from the moment the fault is added, 1 is the next
    bool andAllLater = false; ///< met by every later one too, not by the n-th alone
    FaultAction action = FaultAction::Drop;
    uint64_t number = 0; ///< the status, or the milliseconds of Delay and DripReply
    std::string error{}; ///< the lockdown error name
};

/// Reads a fault's text form: SERVICE[/REQUEST][#N[+]]=ACTION, with "+" for "and all later ones".
/// Throws std::invalid_argument with a message for a person.
Fault parseFault(std::string_view text);

class Faults {
public:
    Faults();
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    void add(Fault fault);

    /// The n-th file-service request from now on of that name (as in the log) gets this status.
    void failAfc(std::string request, uint64_t status, uint32_t nth = 1);

    /// The n-th lockdown request from now on of that name gets this error.
    void failLockdown(std::string request, std::string error, uint32_t nth = 1);

    /// Closes the connection on which the service has received this many bytes from now on, all its
    /// connections counted together, in the middle of whatever travels just then. Once. A request
    /// that is complete by then is carried out and not answered.
    void dropAfterReceiving(Service service, uint64_t bytes);

    /// The same for bytes that the service sends.
    void dropAfterSending(Service service, uint64_t bytes);

    /// The phone stops talking: requests are still taken and carried out, one a connection, but no
    /// answer leaves until endSilence. The bus goes on answering.
    void goSilent();
    void endSilence();

    /// Takes back everything above; connections that a fault has silenced stay so.
    void clear();

    // For the services.

    /// Counts a request; returns the fault that it meets, if any.
    std::optional<Fault> meet(Service service, std::string_view request);

    struct Allowance {
        size_t bytes; ///< that may travel
        bool isLast;  ///< the connection is to be closed after them
    };

    Allowance allowReceiving(Service service, size_t bytes);
    Allowance allowSending(Service service, size_t bytes);

    bool isSilent() const { return isSilent_; }

    /// A descriptor that is readable while the phone is not silent.
    int talkingDescriptor() const { return talking_; }

private:
    struct Armed {
        Fault fault;
        uint32_t seen = 0;
    };

    using Budgets = std::array<std::optional<uint64_t>, 4>;

    Allowance allow(Budgets& budgets, Service service, size_t bytes);

    std::mutex mutex_;
    std::vector<Armed> armed_;
    Budgets receiving_;
    Budgets sending_;
    std::atomic<bool> isSilent_ = false;
    int talking_;
};

} // namespace virtualphone
