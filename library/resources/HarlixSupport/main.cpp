// The support plug-in's program: answers the question whether the plug-in is there with its
// version. It starts from wherever its bundle was unpacked, so it needs nothing but the system's
// libraries.

#include "corefoundation/events/DistributedWire.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <poll.h>
#include <string_view>
#include <systemd/sd-bus.h>

namespace {

namespace wire = krl::cf::wire;

constexpr char kVersion[] = HARLIX_SUPPORT_VERSION;
constexpr char kPing[] = "com.QuellmarSW.HarlixSupport.Ping";
constexpr char kPong[] = "com.QuellmarSW.HarlixSupport.Pong";
constexpr char kObject[] = "com.QuellmarSW.HarlixSupport";

constexpr int kStopped = 0;
constexpr int kNoBus = 1;
constexpr int kUsage = 2;

constexpr char kHelp[] =
    R"(usage: HarlixSupport [--help | --version]

Tells ringtone applications that the support plug-in is there, and in which
version: answers each ping that comes over the session bus with a pong. Runs
until SIGINT (Ctrl-C), SIGTERM or SIGHUP. Writes no files and touches no phone.

Exit codes: 0 stopped by a signal, 1 no session bus or the bus went away,
2 the command line is wrong.
)";

struct BusUnref {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};

using Bus = std::unique_ptr<sd_bus, BusUnref>;

volatile std::sig_atomic_t isStopping = 0;

void stop(int /*signal*/) {
    isStopping = 1;
}

/// Lets the signals that stop the program through only while it waits for the bus, so that none is
/// missed in between. Returns the mask to wait with.
sigset_t handleStopSignals() {
    struct sigaction action = {};
    action.sa_handler = stop;
    sigset_t blocked;
    sigset_t waiting;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
        sigaddset(&blocked, signal);
    }
    sigprocmask(SIG_BLOCK, &blocked, &waiting);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigdelset(&waiting, signal);
    }
    return waiting;
}

int sendPong(sd_bus* bus) {
    return sd_bus_emit_signal(bus, wire::kPath, wire::kInterface, wire::kMember, wire::kSignature,
                              kPong, kObject, 1, "version", "s", kVersion);
}

bool isPing(sd_bus_message* message) {
    const char* name = nullptr;
    const char* object = nullptr;
    return sd_bus_message_has_signature(message, wire::kSignature) > 0 &&
           sd_bus_message_read(message, "ss", &name, &object) > 0 &&
           std::strcmp(name, kPing) == 0 && std::strcmp(object, kObject) == 0;
}

int handleNotification(sd_bus_message* message, void*, sd_bus_error*) {
    return isPing(message) ? sendPong(sd_bus_message_get_bus(message)) : 0;
}

/// Returns null, with the reason on standard error, when there is no session bus.
Bus listen() {
    sd_bus* opened = nullptr;
    int status = sd_bus_open_user(&opened);
    Bus bus(opened);
    if (status >= 0) {
        status = sd_bus_match_signal(bus.get(), nullptr, nullptr, wire::kPath, wire::kInterface,
                                     wire::kMember, handleNotification, nullptr);
    }
    if (status < 0) {
        std::fprintf(stderr, "HarlixSupport: no session bus: %s\n", std::strerror(-status));
        bus.reset();
    }
    return bus;
}

/// Waits for the bus, or a signal.
void wait(sd_bus* bus, const sigset_t& signalMask) {
    pollfd descriptor{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
    ppoll(&descriptor, 1, nullptr, &signalMask);
}

int serve(sd_bus* bus, const sigset_t& signalMask) {
    while (isStopping == 0) {
        const int status = sd_bus_process(bus, nullptr);
        if (status < 0) {
            std::fprintf(stderr, "HarlixSupport: the session bus went away: %s\n",
                         std::strerror(-status));
            return kNoBus;
        }
        if (status == 0) {
            wait(bus, signalMask);
        }
    }
    return kStopped;
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view option = argc == 2 ? argv[1] : "";
    if (option == "--help") {
        std::fputs(kHelp, stdout);
        return kStopped;
    }
    if (option == "--version") {
        std::printf("HarlixSupport %s\n", kVersion);
        return kStopped;
    }
    if (argc > 1) {
        std::fputs(kHelp, stderr);
        return kUsage;
    }
    const sigset_t signalMask = handleStopSignals();
    const Bus bus = listen();
    if (!bus) {
        return kNoBus;
    }
    std::printf("HarlixSupport %s answers on the session bus until it is stopped.\n", kVersion);
    std::fflush(stdout);
    return serve(bus.get(), signalMask);
}
