#include "nss/Runtime.h"

#include "nss/TlsStream.h"

#include <nss.h>
#include <ssl.h>
#include <sslproto.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

namespace krl::nss {

namespace {

constexpr int kLeastRsaBits = 512;

struct Bars {
    PRInt32 leastVersion = 0;
    PRInt32 leastRsaBits = 0;
    std::array<PRInt32, std::size(kOldSuites) + std::size(kModernSuites)> suites{};
};

template <typename Visit>
void forEachSuite(Visit visit) {
    size_t index = 0;
    for (const int suite : kOldSuites) {
        visit(suite, index++);
    }
    for (const int suite : kModernSuites) {
        visit(suite, index++);
    }
}

Bars currentBars() {
    Bars bars;
    NSS_OptionGet(NSS_TLS_VERSION_MIN_POLICY, &bars.leastVersion);
    NSS_OptionGet(NSS_RSA_MIN_KEY_SIZE, &bars.leastRsaBits);
    forEachSuite([&](int suite, size_t index) { SSL_CipherPolicyGet(suite, &bars.suites[index]); });
    return bars;
}

void set(const Bars& bars) {
    NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, bars.leastVersion);
    NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, bars.leastRsaBits);
    forEachSuite([&](int suite, size_t index) { SSL_CipherPolicySet(suite, bars.suites[index]); });
}

Bars loweredBars() {
    Bars bars{SSL_LIBRARY_VERSION_3_0, kLeastRsaBits, {}};
    bars.suites.fill(SSL_ALLOWED);
    return bars;
}

std::mutex barsMutex;
int holders = 0;
Bars barsBefore;

// Takes what a client writes and has nothing to say to it.
class Sink final : public Transport {
public:
    ssize_t receive(std::span<std::byte>) override {
        errno = EAGAIN;
        return -1;
    }

    ssize_t send(std::span<const std::byte> bytes) override {
        written.insert(written.end(), bytes.begin(), bytes.end());
        return static_cast<ssize_t>(bytes.size());
    }

    std::vector<std::byte> written;
};

bool writesSsl3Hello() {
    const OldProtocols allowed;
    Sink sink;
    ClientSetup setup;
    setup.leastVersion = SSL_LIBRARY_VERSION_3_0;
    setup.highestVersion = SSL_LIBRARY_VERSION_3_0;
    const auto stream = TlsStream::client(sink, std::move(setup));
    if (!stream || stream->handshake() != TlsStep::WantsToReceive) {
        return false;
    }
    // A record of a handshake (22) of version 3.0, in it a hello (1) of version 3.0.
    constexpr size_t kRecordHeader = 5;
    constexpr size_t kMessageHeader = 4;
    const auto at = [&](size_t index) {
        return index < sink.written.size() ? std::to_integer<int>(sink.written[index]) : -1;
    };
    return at(0) == 22 && at(1) == 3 && at(2) == 0 && at(kRecordHeader) == 1 &&
           at(kRecordHeader + kMessageHeader) == 3 && at(kRecordHeader + kMessageHeader + 1) == 0;
}

} // namespace

bool start() {
    // For libraries that share a process: an application may initialise NSS before or after. Its
    // own shutdown, however, ends NSS for everybody.
    constexpr PRUint32 kFlags = NSS_INIT_READONLY | NSS_INIT_NOCERTDB | NSS_INIT_NOMODDB |
                                NSS_INIT_FORCEOPEN | NSS_INIT_NOROOTINIT | NSS_INIT_OPTIMIZESPACE;
    static std::mutex mutex;
    static const NSSInitContext* context = nullptr;
    const std::lock_guard lock(mutex);
    if (context == nullptr || NSS_IsInitialized() == PR_FALSE) {
        context = NSS_InitContext("", "", "", "", nullptr, kFlags);
    }
    return context != nullptr;
}

OldProtocols::OldProtocols() {
    const std::lock_guard lock(barsMutex);
    if (holders++ == 0) {
        barsBefore = currentBars();
        set(loweredBars());
    }
}

OldProtocols::~OldProtocols() {
    const std::lock_guard lock(barsMutex);
    if (--holders == 0) {
        set(barsBefore);
    }
}

bool speaksSsl3() {
    static const bool speaks = writesSsl3Hello();
    return speaks;
}

} // namespace krl::nss
