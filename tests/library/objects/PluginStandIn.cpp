// plugin_stand_in PONG...: waits for a ping on the session bus, says so, and posts these pongs. A
// pong is OBJECT:KIND[:VALUE], with the kinds none, string and number; "-" stands for the plug-in's
// object. Speaks to the bus by itself, so that both sides cannot share a mistake.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <systemd/sd-bus.h>

namespace {

constexpr char kPath[] = "/CoreFoundation/DistributedNotification";
constexpr char kInterface[] = "CoreFoundation.DistributedNotification";
constexpr char kObject[] = "com.QuellmarSW.HarlixSupport";
constexpr char kPong[] = "com.QuellmarSW.HarlixSupport.Pong";

void require(int status, const char* what) {
    if (status < 0) {
        std::fprintf(stderr, "%s: %s\n", what, std::strerror(-status));
        std::exit(1);
    }
}

int sendPong(sd_bus* bus, const std::string& pong) {
    const auto first = pong.find(':');
    const auto second = pong.find(':', first + 1);
    const std::string object = pong.substr(0, first) == "-" ? kObject : pong.substr(0, first);
    const std::string kind = pong.substr(first + 1, second - first - 1);
    const std::string value = second == std::string::npos ? "" : pong.substr(second + 1);
    if (kind == "none") {
        return sd_bus_emit_signal(bus, kPath, kInterface, "Posted", "ssa{sv}", kPong,
                                  object.c_str(), 0);
    }
    if (kind == "string") {
        return sd_bus_emit_signal(bus, kPath, kInterface, "Posted", "ssa{sv}", kPong,
                                  object.c_str(), 1, "version", "s", value.c_str());
    }
    return sd_bus_emit_signal(bus, kPath, kInterface, "Posted", "ssa{sv}", kPong, object.c_str(), 1,
                              "version", "d", std::strtod(value.c_str(), nullptr));
}

int handle(sd_bus_message* message, void* pinged, sd_bus_error*) {
    const char* name = nullptr;
    const char* object = nullptr;
    require(sd_bus_message_read(message, "ss", &name, &object), "reading");
    require(sd_bus_message_enter_container(message, 'a', "{sv}"), "reading");
    if (std::strcmp(name, "com.QuellmarSW.HarlixSupport.Ping") == 0) {
        const bool isEmpty = sd_bus_message_at_end(message, 0) > 0;
        std::printf("ping %s %s\n", object, isEmpty ? "without information" : "with information");
        *static_cast<bool*>(pinged) = true;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    sd_bus* bus = nullptr;
    bool pinged = false;
    require(sd_bus_open_user(&bus), "opening the bus");
    require(
        sd_bus_match_signal(bus, nullptr, nullptr, kPath, kInterface, "Posted", handle, &pinged),
        "listening");
    std::puts("listening");
    std::fflush(stdout);
    while (!pinged) {
        const int status = sd_bus_process(bus, nullptr);
        require(status, "processing");
        if (status == 0) {
            require(sd_bus_wait(bus, UINT64_MAX), "waiting");
        }
    }
    for (int i = 1; i < argc; ++i) {
        require(sendPong(bus, argv[i]), "posting");
    }
    sd_bus_flush_close_unref(bus);
    return 0;
}
