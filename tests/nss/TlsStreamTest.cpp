// Both sides of a stream in one thread, with a pipe of bytes each way between them.

#include "tests/nss/Identity.h"

#include "nss/TlsStream.h"

#include <nss.h>
#include <secerr.h>
#include <ssl.h>
#include <sslerr.h>

#include <cerrno>
#include <deque>
#include <optional>

namespace krl::nss::testing {
namespace {

// One direction: bytes that were sent and not yet received.
struct Pipe {
    std::deque<std::byte> bytes;
    size_t room = SIZE_MAX; ///< how many it takes before the sender has to wait
    bool hasEnded = false;
};

class PipeEnd final : public Transport {
public:
    PipeEnd(Pipe& in, Pipe& out) : in_(in), out_(out) {}

    ssize_t receive(std::span<std::byte> target) override {
        if (in_.bytes.empty() && !in_.hasEnded) {
            errno = EAGAIN;
            return -1;
        }
        const size_t count = std::min(target.size(), in_.bytes.size());
        const auto end = in_.bytes.begin() + static_cast<ptrdiff_t>(count);
        std::copy(in_.bytes.begin(), end, target.begin());
        in_.bytes.erase(in_.bytes.begin(), end);
        return static_cast<ssize_t>(count);
    }

    ssize_t send(std::span<const std::byte> bytes) override {
        const size_t count =
            std::min(bytes.size(), out_.room - std::min(out_.room, out_.bytes.size()));
        if (count == 0) {
            errno = EAGAIN;
            return -1;
        }
        out_.bytes.insert(out_.bytes.end(), bytes.begin(),
                          bytes.begin() + static_cast<ptrdiff_t>(count));
        return static_cast<ssize_t>(count);
    }

private:
    Pipe& in_;
    Pipe& out_;
};

StreamSetup setupOf(const Identity& identity, const Identity& peer, uint16_t least,
                    uint16_t highest) {
    StreamSetup setup;
    setup.leastVersion = least;
    setup.highestVersion = highest;
    setup.withModernSuites = highest > 0x0300;
    setup.certificate = parseCertificate(identity.certificatePem);
    setup.key = parsePrivateKey(identity.keyPem);
    setup.peerKeyBits = kEarlyBits;
    setup.check = [&peer](const CERTCertificate& shown) -> PRErrorCode {
        return haveSameKey(&shown, parseCertificate(peer.certificatePem).get())
                   ? 0
                   : SEC_ERROR_UNTRUSTED_CERT;
    };
    return setup;
}

class Streams : public ::testing::Test {
protected:
    void make(StreamSetup host, StreamSetup phone) {
        client_ = TlsStream::client(phoneToHostEnd_, {std::move(host)});
        server_ = TlsStream::server(hostToPhoneEnd_, {std::move(phone)});
        ASSERT_NE(client_, nullptr);
        ASSERT_NE(server_, nullptr);
    }

    void make(uint16_t clientLeast, uint16_t clientHighest, uint16_t serverLeast,
              uint16_t serverHighest) {
        make(setupOf(hostIdentity(), phoneIdentity(), clientLeast, clientHighest),
             setupOf(phoneIdentity(), hostIdentity(), serverLeast, serverHighest));
    }

    // Until both are done or one cannot go on.
    void shakeHands() {
        client = server = TlsStep::WantsToReceive;
        for (int turn = 0; turn < 1000 && isUnderWay(client, server); ++turn) {
            if (client != TlsStep::Done) {
                client = client_->handshake();
            }
            if (server != TlsStep::Done && server != TlsStep::Failed) {
                server = server_->handshake();
            }
        }
    }

    static bool isUnderWay(TlsStep one, TlsStep other) {
        const auto waits = [](TlsStep step) {
            return step == TlsStep::WantsToReceive || step == TlsStep::WantsToSend;
        };
        return waits(one) || (waits(other) && one == TlsStep::Done);
    }

    // Sends a text one way and returns what came.
    static std::string carry(TlsStream& from, TlsStream& to, const std::string& text) {
        std::span<const std::byte> rest = std::as_bytes(std::span(text));
        std::string came;
        for (int turn = 0; turn < 1000 && came.size() < text.size(); ++turn) {
            size_t count = 0;
            if (!rest.empty() && from.send(rest, count) == TlsStep::Done) {
                rest = rest.subspan(count);
            }
            from.flush();
            std::array<std::byte, 999> part;
            while (to.receive(part, count) == TlsStep::Done) {
                came.append(reinterpret_cast<const char*>(part.data()), count);
            }
        }
        return came;
    }

    Pipe hostToPhone_;
    Pipe phoneToHost_;
    PipeEnd phoneToHostEnd_{phoneToHost_, hostToPhone_};
    PipeEnd hostToPhoneEnd_{hostToPhone_, phoneToHost_};
    std::unique_ptr<TlsStream> client_;
    std::unique_ptr<TlsStream> server_;
    TlsStep client = TlsStep::Failed;
    TlsStep server = TlsStep::Failed;
};

struct Versions {
    uint16_t clientLeast, clientHighest, serverLeast, serverHighest;
    const char* outcome; ///< null: they have none in common
};

class VersionsOf : public Streams, public ::testing::WithParamInterface<Versions> {};

TEST_P(VersionsOf, BothSidesMeetAtTheHighestInCommon) {
    const Versions& v = GetParam();
    make(v.clientLeast, v.clientHighest, v.serverLeast, v.serverHighest);
    shakeHands();
    if (v.outcome == nullptr) {
        EXPECT_NE(client, TlsStep::Done);
        EXPECT_NE(server, TlsStep::Done);
        return;
    }
    ASSERT_EQ(client, TlsStep::Done) << PR_ErrorToName(client_->error());
    ASSERT_EQ(server, TlsStep::Done) << PR_ErrorToName(server_->error());
    EXPECT_TRUE(client_->description().starts_with(v.outcome)) << client_->description();
    EXPECT_EQ(server_->description(), client_->description());
    const std::string text(100'000, 'x');
    EXPECT_EQ(carry(*client_, *server_, text), text);
    EXPECT_EQ(carry(*server_, *client_, "answer"), "answer");
}

INSTANTIATE_TEST_SUITE_P(All, VersionsOf,
                         ::testing::Values(Versions{0x0300, 0x0300, 0x0300, 0x0300, "SSL 3.0"},
                                           Versions{0x0300, 0x0303, 0x0300, 0x0300,
                                                    "SSL 3.0, TLS_RSA_WITH_AES_128_CBC_SHA"},
                                           Versions{0x0300, 0x0303, 0x0301, 0x0301, "TLS 1.0"},
                                           Versions{0x0300, 0x0303, 0x0301, 0x0303, "TLS 1.2"},
                                           Versions{0x0301, 0x0303, 0x0300, 0x0300, nullptr},
                                           Versions{0x0300, 0x0300, 0x0301, 0x0303, nullptr}));

// What a careful administrator sets, for the whole process.
class StrictBars {
public:
    StrictBars() {
        NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, kVersion);
        NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, kBits);
        setSuites(SSL_NOT_ALLOWED);
    }

    ~StrictBars() {
        NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, 1);
        NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 1023);
        setSuites(SSL_ALLOWED);
    }

    StrictBars(const StrictBars&) = delete;
    StrictBars& operator=(const StrictBars&) = delete;

    static bool versionsAreUp() {
        PRInt32 least = 0;
        PRInt32 suite = SSL_ALLOWED;
        NSS_OptionGet(NSS_TLS_VERSION_MIN_POLICY, &least);
        SSL_CipherPolicyGet(kOldSuites[0], &suite);
        return least == kVersion && suite == SSL_NOT_ALLOWED;
    }

    static bool keysAreUp() {
        PRInt32 least = 0;
        NSS_OptionGet(NSS_RSA_MIN_KEY_SIZE, &least);
        return least == kBits;
    }

private:
    static constexpr PRInt32 kVersion = 0x0303;
    static constexpr PRInt32 kBits = 2048;

    static void setSuites(PRInt32 policy) {
        for (const int suite : kOldSuites) {
            SSL_CipherPolicySet(suite, policy);
        }
    }
};

TEST_F(Streams, OfSsl3LeaveTheBarsForVersionsUpWhileTheyShakeHands) {
    ASSERT_TRUE(start());
    const StrictBars strict;
    make(0x0300, 0x0300, 0x0300, 0x0300);
    EXPECT_TRUE(StrictBars::versionsAreUp());
    EXPECT_TRUE(StrictBars::keysAreUp());
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    EXPECT_TRUE(StrictBars::versionsAreUp());
    EXPECT_FALSE(StrictBars::keysAreUp()) << "the phone's key is short";
    shakeHands();
    EXPECT_EQ(client, TlsStep::Done);
    EXPECT_EQ(server, TlsStep::Done);
    EXPECT_TRUE(StrictBars::versionsAreUp());
    EXPECT_TRUE(StrictBars::keysAreUp());
}

TEST_F(Streams, GiveTheBarForKeysBackWhenTheirHandshakeFailsOrIsGivenUp) {
    ASSERT_TRUE(start());
    const StrictBars strict;
    make(0x0300, 0x0300, 0x0300, 0x0300);
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    phoneToHost_.hasEnded = true;
    EXPECT_EQ(client_->handshake(), TlsStep::Ended);
    EXPECT_TRUE(StrictBars::keysAreUp());
    phoneToHost_ = {};
    make(0x0300, 0x0300, 0x0300, 0x0300);
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    client_.reset();
    EXPECT_TRUE(StrictBars::keysAreUp());
}

TEST_F(Streams, TheHelloOfSsl3OffersSsl3AndItsSuitesAndNothingElse) {
    ASSERT_TRUE(start());
    make(0x0300, 0x0300, 0x0300, 0x0300);
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    std::vector<int> hello;
    for (const std::byte byte : hostToPhone_.bytes) {
        hello.push_back(std::to_integer<int>(byte));
    }
    constexpr size_t kRandomBytes = 32;
    constexpr size_t kVersion = 9; // behind the record's header and the message's
    constexpr size_t kSuites = kVersion + 2 + kRandomBytes + 1;
    ASSERT_GT(hello.size(), kSuites);
    EXPECT_EQ(std::vector<int>(hello.begin(), hello.begin() + 3), (std::vector<int>{22, 3, 0}));
    EXPECT_EQ(hello[kVersion] << 8 | hello[kVersion + 1], 0x0300);
    // 00FF says that no new handshake will be asked for. Behind the suites: one compression, none;
    // and no extensions.
    EXPECT_EQ(std::vector<int>(hello.begin() + kSuites, hello.end()),
              (std::vector<int>{0, 8, 0x00, 0xFF, 0x00, 0x2F, 0x00, 0x0A, 0x00, 0x05, 1, 0}));
}

TEST_F(Streams, ARefusedServerCertificateEndsTheHandshakeWithTheReasonGiven) {
    StreamSetup host = setupOf(hostIdentity(), phoneIdentity(), 0x0300, 0x0300);
    host.check = [](const CERTCertificate&) -> PRErrorCode {
        return SEC_ERROR_EXPIRED_CERTIFICATE;
    };
    make(std::move(host), setupOf(phoneIdentity(), hostIdentity(), 0x0300, 0x0300));
    shakeHands();
    EXPECT_EQ(client, TlsStep::Failed);
    EXPECT_EQ(client_->error(), SEC_ERROR_EXPIRED_CERTIFICATE);
    EXPECT_NE(server, TlsStep::Done);
}

TEST_F(Streams, ARefusedClientCertificateEndsTheHandshake) {
    for (const uint16_t version : {uint16_t{0x0300}, uint16_t{0x0301}, uint16_t{0x0303}}) {
        make(setupOf(phoneIdentity(), phoneIdentity(), version, version),
             setupOf(phoneIdentity(), hostIdentity(), version, version));
        shakeHands();
        EXPECT_EQ(server_->error(), SEC_ERROR_UNTRUSTED_CERT);
        EXPECT_EQ(client, TlsStep::Failed);
        EXPECT_TRUE(client_->error() == SSL_ERROR_CERTIFICATE_UNKNOWN_ALERT ||
                    client_->error() == SSL_ERROR_ACCESS_DENIED_ALERT)
            << PR_ErrorToName(client_->error());
        hostToPhone_ = {};
        phoneToHost_ = {};
    }
}

TEST_F(Streams, AClientWithoutACertificateIsRefused) {
    for (const uint16_t version : {uint16_t{0x0300}, uint16_t{0x0303}}) {
        StreamSetup host = setupOf(hostIdentity(), phoneIdentity(), version, version);
        host.certificate.reset();
        host.key.reset();
        make(std::move(host), setupOf(phoneIdentity(), hostIdentity(), version, version));
        shakeHands();
        EXPECT_EQ(client, TlsStep::Failed);
        EXPECT_EQ(server, TlsStep::Failed);
    }
}

TEST_F(Streams, AFullTransportIsWaitedForAndNothingIsLost) {
    make(0x0300, 0x0300, 0x0300, 0x0300);
    shakeHands();
    ASSERT_EQ(client, TlsStep::Done);
    hostToPhone_.room = 1000;
    const std::string text(50'000, 'y');
    EXPECT_EQ(carry(*client_, *server_, text), text);
}

TEST_F(Streams, AHandshakeGoesThroughANarrowTransport) {
    make(0x0300, 0x0300, 0x0300, 0x0300);
    hostToPhone_.room = 7;
    phoneToHost_.room = 7;
    shakeHands();
    EXPECT_EQ(client, TlsStep::Done);
    EXPECT_EQ(server, TlsStep::Done);
}

TEST_F(Streams, TheEndIsSaidAndHeard) {
    make(0x0300, 0x0300, 0x0300, 0x0300);
    shakeHands();
    ASSERT_EQ(client, TlsStep::Done);
    server_.reset();
    std::array<std::byte, 10> target;
    size_t received = 0;
    EXPECT_EQ(client_->receive(target, received), TlsStep::Ended);
}

TEST_F(Streams, AnEndOrNonsenseInTheMiddleOfAHandshakeIsNoSuccess) {
    make(0x0300, 0x0303, 0x0300, 0x0303);
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    phoneToHost_.hasEnded = true;
    EXPECT_EQ(client_->handshake(), TlsStep::Ended);

    hostToPhone_ = {};
    phoneToHost_ = {};
    make(0x0300, 0x0303, 0x0300, 0x0303);
    EXPECT_EQ(client_->handshake(), TlsStep::WantsToReceive);
    const std::string nonsense = "HTTP/1.1 400 Bad Request\r\n\r\n";
    for (const char c : nonsense) {
        phoneToHost_.bytes.push_back(static_cast<std::byte>(c));
    }
    EXPECT_EQ(client_->handshake(), TlsStep::Failed);
}

} // namespace
} // namespace krl::nss::testing
