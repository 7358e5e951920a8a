#include "virtualphone/bus/Bus.h"

#include "virtualphone/bus/DeviceTable.h"
#include "virtualphone/bus/MuxServer.h"
#include "virtualphone/phone/PairRecords.h"
#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/wire/Channel.h"
#include "virtualphone/wire/UniqueFd.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace virtualphone {

namespace {

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

std::filesystem::path newPrivateFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "virtualphone-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        fail(errno, "cannot make the folder " + name);
    }
    return name;
}

sockaddr_un addressOf(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    if (text.size() >= sizeof address.sun_path) {
        throw std::invalid_argument("the socket's path is longer than " +
                                    std::to_string(sizeof address.sun_path - 1) +
                                    " bytes: " + text);
    }
    std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
    return address;
}

UniqueFd newSocket() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        fail(errno, "socket");
    }
    return socket;
}

// A socket that a bus has left behind when it was killed.
void removeStale(const std::filesystem::path& path, const sockaddr_un& address) {
    if (!std::filesystem::is_socket(std::filesystem::symlink_status(path))) {
        return;
    }
    const UniqueFd probe = newSocket();
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(probe.get(), generic, sizeof address) == 0) {
        fail(EADDRINUSE, "another program listens on the socket " + path.string());
    }
    if (errno == ECONNREFUSED) {
        std::filesystem::remove(path);
    }
}

UniqueFd listenOn(const std::filesystem::path& path) {
    const sockaddr_un address = addressOf(path);
    removeStale(path, address);
    UniqueFd socket = newSocket();
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(socket.get(), generic, sizeof address) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        fail(errno, "cannot listen on the socket " + path.string());
    }
    return socket;
}

UniqueFd newWakeup() {
    UniqueFd wakeup(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wakeup) {
        fail(errno, "eventfd");
    }
    return wakeup;
}

} // namespace

class BusState {
public:
    explicit BusState(const std::filesystem::path& path);
    ~BusState();

    uint32_t plug(std::shared_ptr<Phone> phone);
    size_t connectionCount() const;
    bool waitForConnections(size_t atMost, std::chrono::milliseconds timeout) const;

    const std::filesystem::path privateFolder; // empty: the socket stands elsewhere
    const std::filesystem::path socketPath;
    RequestLog log;
    Faults faults;
    DeviceTable devices;
    PairRecords records;

private:
    // A client's socket, with the thread that serves it.
    struct Conversation {
        uint64_t number = 0;
        std::optional<Channel> channel; // none once it is closed
        std::thread thread;
    };

    void acceptClients();
    void acceptOne();
    void serve(Conversation& conversation);
    void joinFinished();
    void pullOut(uint32_t id);
    std::vector<uint32_t> takePulledOut();
    void wake() const;

    UniqueFd listener_;
    UniqueFd wakeup_;
    const BusParts parts_;

    mutable std::mutex mutex_;
    mutable std::condition_variable closed_;
    std::list<Conversation> conversations_;
    size_t open_ = 0;
    uint64_t lastNumber_ = 0;
    std::vector<uint32_t> pulledOut_;
    bool isStopping_ = false;
    std::thread acceptor_;
};

BusState::BusState(const std::filesystem::path& path)
    : privateFolder(path.empty() ? newPrivateFolder() : std::filesystem::path()),
      socketPath(path.empty() ? privateFolder / "usbmuxd" : std::filesystem::absolute(path)),
      listener_(listenOn(socketPath)),
      wakeup_(newWakeup()), parts_{devices, records, log, faults,
                                   [this](uint32_t id) { pullOut(id); }},
      acceptor_([this] { acceptClients(); }) {}

BusState::~BusState() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    wake();
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (Conversation& conversation : conversations_) {
            if (conversation.channel) {
                conversation.channel->cut();
            }
        }
    }
    for (Conversation& conversation : conversations_) {
        conversation.thread.join();
    }
    std::error_code ignored;
    std::filesystem::remove(socketPath, ignored);
    if (!privateFolder.empty()) {
        std::filesystem::remove(privateFolder, ignored);
    }
}

void BusState::wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(wakeup_.get(), &one, sizeof one);
}

void BusState::acceptClients() {
    while (true) {
        pollfd waiting[] = {{.fd = wakeup_.get(), .events = POLLIN, .revents = 0},
                            {.fd = listener_.get(), .events = POLLIN, .revents = 0}};
        poll(waiting, 2, -1);
        if (waiting[0].revents != 0) {
            uint64_t drained = 0;
            [[maybe_unused]] const ssize_t got = read(wakeup_.get(), &drained, sizeof drained);
            for (const uint32_t id : takePulledOut()) {
                devices.unplug(id);
            }
            const std::lock_guard lock(mutex_);
            if (isStopping_) {
                return;
            }
        }
        if (waiting[1].revents != 0) {
            acceptOne();
        }
    }
}

void BusState::acceptOne() {
    joinFinished();
    UniqueFd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) {
        // Out of descriptors, most likely: leave the processor to those who can free some.
        pollfd waiting{.fd = wakeup_.get(), .events = POLLIN, .revents = 0};
        constexpr int kRestMs = 20;
        poll(&waiting, 1, kRestMs);
        return;
    }
    const std::lock_guard lock(mutex_);
    Conversation& conversation = conversations_.emplace_back();
    conversation.number = ++lastNumber_;
    conversation.channel.emplace(std::move(socket));
    ++open_;
    try {
        conversation.thread = std::thread([this, &conversation] { serve(conversation); });
    } catch (const std::system_error&) {
        conversations_.pop_back(); // no thread to be had: the client is turned away
        --open_;
    }
}

void BusState::serve(Conversation& conversation) {
    MuxServer(*conversation.channel, parts_, conversation.number).run();
    const std::lock_guard lock(mutex_);
    conversation.channel.reset();
    --open_;
    closed_.notify_all();
}

void BusState::joinFinished() {
    std::list<Conversation> finished;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = conversations_.begin(); next != conversations_.end();) {
            const auto current = next++;
            if (!current->channel) {
                finished.splice(finished.end(), conversations_, current);
            }
        }
    }
    for (Conversation& conversation : finished) {
        conversation.thread.join();
    }
}

void BusState::pullOut(uint32_t id) {
    {
        const std::lock_guard lock(mutex_);
        pulledOut_.push_back(id);
    }
    wake();
}

std::vector<uint32_t> BusState::takePulledOut() {
    const std::lock_guard lock(mutex_);
    return std::exchange(pulledOut_, {});
}

uint32_t BusState::plug(std::shared_ptr<Phone> phone) {
    PhoneState& state = phone->state();
    if (state.isFirstPlugging() && state.options.paired) {
        std::optional<std::string> record = records.read(phone->udid());
        if (!record) {
            record = newPairRecord(state.sessionKeys.get());
            records.save(phone->udid(), *record);
        }
        state.hosts.add(hostIdOf(*record), certificatesOf(*record));
    }
    return devices.plug(std::move(phone));
}

size_t BusState::connectionCount() const {
    const std::lock_guard lock(mutex_);
    return open_;
}

bool BusState::waitForConnections(size_t atMost, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return closed_.wait_for(lock, timeout, [&] { return open_ <= atMost; });
}

Bus::Bus(const std::filesystem::path& socketPath)
    : state_(std::make_unique<BusState>(socketPath)) {}

Bus::~Bus() = default;

const std::filesystem::path& Bus::socketPath() const {
    return state_->socketPath;
}

std::string Bus::environmentValue() const {
    return "UNIX:" + state_->socketPath.string();
}

uint32_t Bus::plug(std::shared_ptr<Phone> phone) {
    return state_->plug(std::move(phone));
}

bool Bus::unplug(uint32_t deviceId) {
    return state_->devices.unplug(deviceId);
}

uint32_t Bus::deviceId(const Phone& phone) const {
    return state_->devices.idOf(phone);
}

RequestLog& Bus::log() {
    return state_->log;
}

Faults& Bus::faults() {
    return state_->faults;
}

const std::string& Bus::systemBuid() const {
    return hostSystemBuid();
}

const std::string& Bus::hostId() const {
    return hostHostId();
}

bool Bus::hasPairRecord(const std::string& udid) const {
    return state_->records.read(udid).has_value();
}

void Bus::deletePairRecord(const std::string& udid) {
    state_->records.remove(udid);
}

size_t Bus::connectionCount() const {
    return state_->connectionCount();
}

bool Bus::waitForConnections(size_t atMost, std::chrono::milliseconds timeout) const {
    return state_->waitForConnections(atMost, timeout);
}

} // namespace virtualphone
