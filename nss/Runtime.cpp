#include "nss/Runtime.h"

#include "nss/TlsStream.h"

#include <nss.h>
#include <ssl.h>
#include <sslproto.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace krl::nss {

namespace {

constexpr int kLeastRsaBits = 512;

// One of NSS's settings of the process, lowered while anybody needs it low.
class Bar {
public:
    using Get = SECStatus (*)(PRInt32 name, PRInt32* value);
    using Set = SECStatus (*)(PRInt32 name, PRInt32 value);

    Bar(Get get, Set set, PRInt32 name, PRInt32 lowered)
        : get_(get), set_(set), name_(name), lowered_(lowered) {}

    void lower() {
        const std::lock_guard lock(mutex_);
        if (holders_++ == 0) {
            before_ = current();
            set_(name_, lowered_);
        }
    }

    void raise() {
        const std::lock_guard lock(mutex_);
        if (--holders_ == 0 && current() == lowered_) {
            set_(name_, before_);
        }
    }

    // Where it stands when nobody needs it low.
    PRInt32 usual() const {
        const std::lock_guard lock(mutex_);
        return holders_ > 0 ? before_ : current();
    }

private:
    PRInt32 current() const {
        PRInt32 value = 0;
        get_(name_, &value);
        return value;
    }

    const Get get_;
    const Set set_;
    const PRInt32 name_;
    const PRInt32 lowered_;
    mutable std::mutex mutex_;
    int holders_ = 0;
    PRInt32 before_ = 0;
};

std::deque<Bar>& protocolBars() {
    static std::deque<Bar> bars = [] {
        std::deque<Bar> made;
        made.emplace_back(NSS_OptionGet, NSS_OptionSet, NSS_TLS_VERSION_MIN_POLICY,
                          SSL_LIBRARY_VERSION_3_0);
        const auto add = [&made](int suite) {
            made.emplace_back(SSL_CipherPolicyGet, SSL_CipherPolicySet, suite, SSL_ALLOWED);
        };
        std::ranges::for_each(kOldSuites, add);
        std::ranges::for_each(kModernSuites, add);
        return made;
    }();
    return bars;
}

Bar& keyBar() {
    static Bar bar(NSS_OptionGet, NSS_OptionSet, NSS_RSA_MIN_KEY_SIZE, kLeastRsaBits);
    return bar;
}

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
    for (Bar& bar : protocolBars()) {
        bar.lower();
    }
}

OldProtocols::~OldProtocols() {
    for (Bar& bar : protocolBars()) {
        bar.raise();
    }
}

ShortKeys::ShortKeys(int bits) : isNeeded_(bits < keyBar().usual()) {
    if (isNeeded_) {
        keyBar().lower();
    }
}

ShortKeys::~ShortKeys() {
    if (isNeeded_) {
        keyBar().raise();
    }
}

bool speaksSsl3() {
    static const bool speaks = writesSsl3Hello();
    return speaks;
}

} // namespace krl::nss
