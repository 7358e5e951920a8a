// startup_probe LIBRARY CALL...: loads the library, makes the calls and says, a line each, how they
// went.

#include <KRLVesk/KRLVesk.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <linux/capability.h>
#include <map>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

void* library = nullptr;

template <typename Type>
Type* named(const char* name) {
    void* const found = dlsym(library, name);
    if (found == nullptr) {
        std::fprintf(stderr, "%s is missing\n", name);
        std::exit(2);
    }
    return reinterpret_cast<Type*>(found);
}

int connectNothing(am_device* /*device*/) {
    return 1;
}

std::string domain() {
    char text[128] = "";
    CFStringGetCString(*named<CFStringRef>("KRTErrorDomain"), text, sizeof text,
                       kCFStringEncodingUTF8);
    return text;
}

void say(const char* call, int result) {
    std::printf("%s=%d open=%d domain=%s\n", call, result, *named<signed char>("KRTVeskOpen"),
                domain().c_str());
    std::fflush(stdout);
}

/// Root writes where nobody may; without these capabilities it is bound to permissions like others.
void obeyPermissions() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
        prctl(PR_CAPBSET_DROP, capability);
    }
    if (syscall(SYS_capget, &header, data) == 0) {
        data[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        data[0].permitted &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &header, data);
    }
}

void validate() {
    const auto begin = std::chrono::steady_clock::now();
    const bool valid = named<bool()>("KRTValidatePlugin")();
    const auto lasted = std::chrono::steady_clock::now() - begin;
    std::printf("validate=%d whole=%d\n", valid, lasted >= std::chrono::seconds(6));
}

const std::map<std::string, std::function<void()>> kCalls{
    {"connect", [] { *named<decltype(AMDeviceConnect)>("AMDeviceConnect") = connectNothing; }},
    {"disconnect", [] { *named<decltype(AMDeviceConnect)>("AMDeviceConnect") = nullptr; }},
    {"ignore", [] { std::signal(SIGCHLD, SIG_IGN); }},
    {"obey", obeyPermissions},
    {"init", [] { say("init", named<int()>("KRTVeskInit")()); }},
    {"light", [] { say("light", named<bool()>("KRTVeskInitLight")()); }},
    {"valid", [] { say("valid", named<signed char()>("KRTVeskIsValid")()); }},
    {"validate", validate},
};

} // namespace

int main(int argc, char** argv) {
    library = argc > 1 ? dlopen(argv[1], RTLD_NOW) : nullptr;
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    for (int i = 2; i < argc; ++i) {
        kCalls.at(argv[i])();
    }
    return 0;
}
