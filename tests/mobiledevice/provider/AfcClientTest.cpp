#include "mobiledevice/provider/services/AfcClient.h"

#include "mobiledevice/provider/devices/AfcLists.h"
#include "tests/mobiledevice/provider/AfcReplies.h"
#include "tests/mobiledevice/provider/SocketPair.h"
#include "tests/support/SomeBytes.h"

#include <MobileDevice/MobileDevice.h>
#include <sys/ioctl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace krl::provider::testing {
namespace {

using krl::test::someBytes;

using namespace std::string_literals;

std::span<std::byte> writable(std::string& text) {
    return std::as_writable_bytes(std::span(text));
}

std::span<const std::byte> readable(const std::string& text) {
    return std::as_bytes(std::span(text));
}

std::string texts(const std::vector<char>& bytes) {
    return {bytes.begin(), bytes.end()};
}

// ------------------------------------------------------------------ what is asked

struct AskCase {
    const char* name;
    std::function<int32_t(AfcClient&)> call;
    uint64_t operation;
    std::string arguments;
    std::string payload;
    AfcMessage reply;
};

void PrintTo(const AskCase& askCase, std::ostream* stream) {
    *stream << askCase.name;
}

const AskCase kAskCases[] = {
    {"MakeDirectory", [](AfcClient& c) { return c.makeDirectory("/a"); }, 0x09, "/a\0"s, "",
     afcStatus(1, 0)},
    {"RemovePath", [](AfcClient& c) { return c.removePath("/a b"); }, 0x08, "/a b\0"s, "",
     afcStatus(1, 0)},
    {"RenamePath", [](AfcClient& c) { return c.renamePath("/a", "/bc"); }, 0x18, "/a\0/bc\0"s, "",
     afcStatus(1, 0)},
    {"ReadDirectory",
     [](AfcClient& c) {
         std::vector<char> names;
         const int32_t status = c.readDirectory("/", names);
         EXPECT_EQ(texts(names), ".\0..\0x\0"s);
         return status;
     },
     0x03, "/\0"s, "", afcData(1, ".\0..\0x\0"s)},
    {"FileInfo",
     [](AfcClient& c) {
         std::vector<char> pairs;
         const int32_t status = c.fileInfo("/f", pairs);
         EXPECT_EQ(texts(pairs), "st_size\0"
                                 "12\0"s);
         return status;
     },
     0x0A, "/f\0"s, "",
     afcData(1, "st_size\0"
                "12\0"s)},
    {"DeviceInfo",
     [](AfcClient& c) {
         std::vector<char> pairs;
         const int32_t status = c.deviceInfo(pairs);
         EXPECT_TRUE(pairs.empty());
         return status;
     },
     0x0B, "", "", afcData(1, "")},
    {"OpenFile",
     [](AfcClient& c) {
         uint64_t file = 0;
         const int32_t status = c.openFile("/f", 2, file);
         EXPECT_EQ(file, 0x1122334455667788u);
         return status;
     },
     0x0D, afcWord(2) + "/f\0"s, "", afcOpened(1, 0x1122334455667788)},
    {"CloseFile", [](AfcClient& c) { return c.closeFile(77); }, 0x14, afcWord(77), "",
     afcStatus(1, 0)},
    {"LockFile", [](AfcClient& c) { return c.lockFile(77, afc::Lock::Exclusive); }, 0x1B,
     afcWord(77) + afcWord(6), "", afcStatus(1, 0)},
    {"UnlockFile", [](AfcClient& c) { return c.lockFile(77, afc::Lock::Unlock); }, 0x1B,
     afcWord(77) + afcWord(12), "", afcStatus(1, 0)},
    {"ReadFile",
     [](AfcClient& c) {
         std::string target(5, '-');
         size_t received = 0;
         const int32_t status = c.readFile(77, writable(target), received);
         EXPECT_EQ(received, 5u);
         EXPECT_EQ(target, "hello");
         return status;
     },
     0x0F, afcWord(77) + afcWord(5), "", afcData(1, "hello")},
    {"ReadNothing",
     [](AfcClient& c) {
         size_t received = 1;
         const int32_t status = c.readFile(77, {}, received);
         EXPECT_EQ(received, 0u);
         return status;
     },
     0x0F, afcWord(77) + afcWord(0), "", afcData(1, "")},
    {"WriteFile", [](AfcClient& c) { return c.writeFile(77, readable("hello")); }, 0x10,
     afcWord(77), "hello", afcStatus(1, 0)},
    {"WriteNothing", [](AfcClient& c) { return c.writeFile(77, {}); }, 0x10, afcWord(77), "",
     afcStatus(1, 0)},
};

class AfcAsk : public ::testing::TestWithParam<AskCase> {};

TEST_P(AfcAsk, SendsExactlyThisRequestAndTakesItsReply) {
    SocketPair pair;
    AfcClient client(pair.channel());
    pair.say(GetParam().reply.bytes());
    EXPECT_EQ(GetParam().call(client), 0);

    const AskCase& asked = GetParam();
    const uint64_t thisLength = 40 + asked.arguments.size();
    const AfcMessage expected{.entireLength = thisLength + asked.payload.size(),
                              .thisLength = thisLength,
                              .number = 1,
                              .operation = asked.operation,
                              .body = asked.arguments + asked.payload};
    EXPECT_EQ(pair.hear(expected.entireLength), expected.bytes());
    EXPECT_FALSE(pair.hearsSomething(std::chrono::milliseconds(0)));
}

// ------------------------------------------------------------------ failures of every request

struct Request {
    const char* name;
    std::function<int32_t(AfcClient&)> call;
    AfcMessage goodReply;
};

void PrintTo(const Request& request, std::ostream* stream) {
    *stream << request.name;
}

int32_t readTen(AfcClient& client) {
    std::string target(10, '-');
    size_t received = 0;
    return client.readFile(7, writable(target), received);
}

int32_t list(AfcClient& client) {
    std::vector<char> names;
    const int32_t status = client.readDirectory("/", names);
    return status == 0 && !Directory::parse(names) ? int32_t{kAFCBadReply} : status;
}

int32_t open(AfcClient& client) {
    uint64_t file = 99;
    const int32_t status = client.openFile("/f", 1, file);
    if (status != 0) {
        EXPECT_EQ(file, 99u);
    }
    return status;
}

const Request kRequests[] = {
    {"Remove", [](AfcClient& c) { return c.removePath("/f"); }, afcStatus(1, 0)},
    {"Write", [](AfcClient& c) { return c.writeFile(7, readable("hello")); }, afcStatus(1, 0)},
    {"Open", open, afcOpened(1, 5)},
    {"Read", readTen, afcData(1, "0123456789")},
    {"List", list, afcData(1, "a\0bc\0"s)},
};

class AfcRequest : public ::testing::TestWithParam<Request> {
protected:
    void expectEnded() {
        EXPECT_EQ(client.removePath("/x"), kAFCNotConnected);
        EXPECT_EQ(GetParam().call(client), kAFCNotConnected);
    }

    SocketPair pair;
    AfcClient client{pair.channel()};
};

TEST_P(AfcRequest, SucceedsWithItsGoodReply) {
    pair.say(GetParam().goodReply.bytes());
    EXPECT_EQ(GetParam().call(client), 0);
}

TEST_P(AfcRequest, PassesEveryStatusOfThePhoneThroughAndGoesOn) {
    for (uint64_t status = 1; status <= 23; ++status) {
        pair.say(afcStatus(status, status).bytes());
        EXPECT_EQ(GetParam().call(client), static_cast<int32_t>(status));
    }
    AfcMessage reply = GetParam().goodReply;
    reply.number = 24;
    pair.say(reply.bytes());
    EXPECT_EQ(GetParam().call(client), 0);
}

TEST_P(AfcRequest, EndsWhenThePhoneIsSilent) {
    const ShortTimeout timeout(30);
    EXPECT_EQ(GetParam().call(client), kAFCTimedOut);
    // The reply that comes late is not taken for that of the next request.
    pair.say(GetParam().goodReply.bytes());
    expectEnded();
}

TEST_P(AfcRequest, EndsWhenTheReplyStopsHalfWay) {
    const ShortTimeout timeout(30);
    const std::string reply = GetParam().goodReply.bytes();
    pair.say(reply.substr(0, reply.size() - 1));
    EXPECT_EQ(GetParam().call(client), kAFCTimedOut);
    expectEnded();
}

TEST_P(AfcRequest, NeverSucceedsWithAReplyCutAnywhere) {
    const std::string reply = GetParam().goodReply.bytes();
    for (size_t length = 0; length < reply.size(); ++length) {
        SCOPED_TRACE(length);
        SocketPair cut;
        AfcClient cutClient(cut.channel());
        cut.say(reply.substr(0, length));
        cut.endSaying();
        EXPECT_EQ(GetParam().call(cutClient), kAFCNotConnected);
        EXPECT_EQ(GetParam().call(cutClient), kAFCNotConnected);
    }
}

TEST_P(AfcRequest, EndsWhenThePhoneIsGone) {
    pair.closePeer();
    EXPECT_EQ(GetParam().call(client), kAFCNotConnected);
    expectEnded();
}

TEST_P(AfcRequest, RefusesAReplyWhoseHeaderHasAnyBitFlipped) {
    const std::string reply = GetParam().goodReply.bytes();
    const std::string more(1 << 17, '\0'); // whatever length the header now gives
    for (size_t bit = 0; bit < 40 * 8; ++bit) {
        SCOPED_TRACE(bit);
        std::string flipped = reply;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        SocketPair garbled;
        AfcClient garbledClient(garbled.channel());
        std::thread speaker([&] {
            garbled.say(flipped + more);
            garbled.endSaying();
        });
        EXPECT_NE(GetParam().call(garbledClient), 0);
        garbledClient.shutdown();
        speaker.join();
    }
}

struct BadReply {
    const char* name;
    std::function<AfcMessage(AfcMessage)> spoil; // of the good reply
};

const BadReply kBadReplies[] = {
    {"wrong magic",
     [](AfcMessage m) {
         m.magic = "CFA6LPAB";
         return m;
     }},
    {"number of the next request",
     [](AfcMessage m) {
         m.number = 2;
         return m;
     }},
    {"number 0",
     [](AfcMessage m) {
         m.number = 0;
         return m;
     }},
    {"arguments shorter than a header",
     [](AfcMessage m) {
         m.thisLength = 39;
         return m;
     }},
    {"arguments beyond the end",
     [](AfcMessage m) {
         m.thisLength = m.entireLength + 1;
         return m;
     }},
    {"entire length shorter than a header",
     [](AfcMessage m) {
         m.entireLength = m.thisLength = 39;
         return m;
     }},
    {"all lengths 0",
     [](AfcMessage m) {
         m.entireLength = m.thisLength = 0;
         return m;
     }},
    {"entire length beyond reason",
     [](AfcMessage m) {
         m.entireLength = uint64_t{1} << 40;
         return m;
     }},
    {"greatest length",
     [](AfcMessage m) {
         m.entireLength = UINT64_MAX;
         return m;
     }},
    {"both lengths greatest",
     [](AfcMessage m) {
         m.entireLength = m.thisLength = UINT64_MAX;
         return m;
     }},
    {"unknown operation",
     [](AfcMessage m) {
         m.operation = 0x77;
         return m;
     }},
    {"operation 0",
     [](AfcMessage m) {
         m.operation = 0;
         return m;
     }},
    {"the request sent back",
     [](AfcMessage m) {
         m.operation = 0x08;
         return m;
     }},
    {"a file position", [](AfcMessage m) { return afcWordReply(0x13, m.number, 0); }},
    {"a status without a word",
     [](AfcMessage m) {
         m = afcStatus(m.number, 0);
         m.entireLength = m.thisLength = 40;
         m.body.clear();
         return m;
     }},
    {"a status with two words",
     [](AfcMessage m) {
         m = afcStatus(m.number, 0);
         m.entireLength = m.thisLength = 56;
         m.body += afcWord(0);
         return m;
     }},
    {"a status as payload",
     [](AfcMessage m) {
         m = afcStatus(m.number, 0);
         m.thisLength = 40;
         return m;
     }},
    {"a status of 2^31", [](AfcMessage m) { return afcStatus(m.number, uint64_t{1} << 31); }},
    {"a status whose low half is 0",
     [](AfcMessage m) { return afcStatus(m.number, uint64_t{1} << 32); }},
    {"a status of -1", [](AfcMessage m) { return afcStatus(m.number, UINT64_MAX); }},
    {"data as arguments",
     [](AfcMessage m) {
         m = afcData(m.number, afcWord(0));
         m.thisLength = 48;
         return m;
     }},
    {"data where none belongs or too much of it",
     [](AfcMessage m) { return afcData(m.number, std::string(17 * 1024 * 1024, 'x')); }},
};

TEST_P(AfcRequest, RefusesEveryReplyThatIsNotOfItsForm) {
    for (const BadReply& bad : kBadReplies) {
        SCOPED_TRACE(bad.name);
        SocketPair spoilt;
        AfcClient spoiltClient(spoilt.channel());
        std::thread speaker([&] { spoilt.say(bad.spoil(GetParam().goodReply).bytes()); });
        EXPECT_EQ(GetParam().call(spoiltClient), kAFCBadReply);
        EXPECT_EQ(GetParam().call(spoiltClient), kAFCNotConnected);
        speaker.join();
    }
}

TEST_P(AfcRequest, RefusesTheGoodReplyOfEveryOtherKindOfRequest) {
    for (const Request& other : kRequests) {
        if (other.goodReply.operation == GetParam().goodReply.operation) {
            continue;
        }
        SCOPED_TRACE(other.name);
        SocketPair mixed;
        AfcClient mixedClient(mixed.channel());
        mixed.say(other.goodReply.bytes());
        EXPECT_EQ(GetParam().call(mixedClient), kAFCBadReply);
        EXPECT_EQ(GetParam().call(mixedClient), kAFCNotConnected);
    }
}

INSTANTIATE_TEST_SUITE_P(Provider, AfcAsk, ::testing::ValuesIn(kAskCases),
                         [](const auto& param) { return param.param.name; });
INSTANTIATE_TEST_SUITE_P(Provider, AfcRequest, ::testing::ValuesIn(kRequests),
                         [](const auto& param) { return param.param.name; });

TEST(AfcRefusal, NoMoreDataIsTakenThanWasAskedFor) {
    SocketPair pair;
    AfcClient client(pair.channel());
    pair.say(afcData(1, "0123456789+").bytes());
    EXPECT_EQ(readTen(client), kAFCBadReply);
}

TEST(AfcRefusal, SuccessAloneDoesNotAnswerARequestForSomething) {
    for (const auto& call : {std::function(readTen), std::function(list), std::function(open)}) {
        SocketPair pair;
        AfcClient client(pair.channel());
        pair.say(afcStatus(1, 0).bytes());
        EXPECT_EQ(call(client), kAFCBadReply);
        EXPECT_EQ(call(client), kAFCNotConnected);
    }
}

// ------------------------------------------------------------------ reads and writes in pieces

// A phone on a thread of its own that answers each request as a function says.
class AfcPeer {
public:
    struct Asked {
        uint64_t number;
        uint64_t operation;
        std::string body;
    };

    using Answer = std::function<std::string(const Asked&)>;

    AfcPeer(SocketPair& pair, Answer answer) : pair_(pair), answer_(std::move(answer)) {}

    AfcPeer(const AfcPeer&) = delete;
    AfcPeer& operator=(const AfcPeer&) = delete;

    ~AfcPeer() {
        pair_.channel()->shutdown();
        thread_.join();
    }

    static bool hearRequest(const SocketPair& pair, Asked& asked) {
        const std::string header = pair.hear(40);
        if (header.size() < 40) {
            return false;
        }
        asked = {afcWordAt(header, 24), afcWordAt(header, 32),
                 pair.hear(afcWordAt(header, 8) - 40)};
        return true;
    }

private:
    void serve() {
        for (Asked asked{}; hearRequest(pair_, asked);) {
            pair_.say(answer_(asked));
        }
    }

    SocketPair& pair_;
    Answer answer_;
    std::thread thread_{[this] { serve(); }};
};

class AfcPieces : public ::testing::TestWithParam<size_t> {};

TEST_P(AfcPieces, AWriteTravelsInPiecesOfAtMost64KiB) {
    const std::string contents = someBytes(GetParam());
    std::string written;
    size_t requests = 0;
    SocketPair pair;
    AfcClient client(pair.channel());
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            EXPECT_EQ(asked.operation, 0x10u);
            EXPECT_EQ(afcWordAt(asked.body, 0), 7u);
            EXPECT_LE(asked.body.size(), 8 + 65536u);
            written += asked.body.substr(8);
            ++requests;
            return afcStatus(asked.number, 0).bytes();
        });
        EXPECT_EQ(client.writeFile(7, readable(contents)), 0);
    }
    EXPECT_TRUE(written == contents);
    EXPECT_EQ(requests, std::max<size_t>(1, (contents.size() + 65535) / 65536));
}

TEST_P(AfcPieces, AReadAsksForPiecesOfAtMost64KiB) {
    const std::string contents = someBytes(GetParam());
    size_t position = 0;
    size_t requests = 0;
    SocketPair pair;
    AfcClient client(pair.channel());
    std::string target(contents.size(), '\0');
    size_t received = 0;
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            EXPECT_EQ(asked.operation, 0x0Fu);
            const uint64_t size = afcWordAt(asked.body, 8);
            EXPECT_LE(size, 65536u);
            const std::string piece = contents.substr(position, size);
            position += piece.size();
            ++requests;
            return afcData(asked.number, piece).bytes();
        });
        EXPECT_EQ(client.readFile(7, writable(target), received), 0);
    }
    EXPECT_EQ(received, contents.size());
    EXPECT_TRUE(target == contents);
    // Not one more: the end of the file is not asked for when the size is known.
    EXPECT_EQ(requests, std::max<size_t>(1, (contents.size() + 65535) / 65536));
}

INSTANTIATE_TEST_SUITE_P(Sizes, AfcPieces,
                         ::testing::Values(0, 1, 65535, 65536, 65537, 8 * 65536, 8 * 65536 + 1,
                                           16 * 65536, 17 * 65536, 4194304, 4194305));

TEST(AfcRead, AcceptsFewerThanAskedAndGoesOnUntilNothingComes) {
    const std::string contents = someBytes(1000);
    size_t position = 0;
    size_t requests = 0;
    SocketPair pair;
    AfcClient client(pair.channel());
    std::string target(2000, '\0');
    size_t received = 0;
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            EXPECT_EQ(afcWordAt(asked.body, 8), 2000 - position);
            const std::string piece = contents.substr(position, 300);
            position += piece.size();
            ++requests;
            return afcData(asked.number, piece).bytes();
        });
        EXPECT_EQ(client.readFile(7, writable(target), received), 0);
    }
    EXPECT_EQ(received, 1000u);
    EXPECT_EQ(target.substr(0, 1000), contents);
    EXPECT_EQ(requests, 5u); // 300, 300, 300, 100, 0
}

TEST(AfcRead, AFailureLeavesWhatWasGood) {
    SocketPair pair;
    AfcClient client(pair.channel());
    pair.say(afcData(1, "01234").bytes() + afcStatus(2, 20).bytes());
    std::string target(10, '-');
    size_t received = 99;
    EXPECT_EQ(client.readFile(7, writable(target), received), 20);
    EXPECT_EQ(received, 5u);
    EXPECT_EQ(target.substr(0, 5), "01234");
}

TEST(AfcRead, SeveralPiecesButNoMoreThanEightAreUnanswered) {
    const std::string contents = someBytes(40 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    size_t most = 0;
    std::thread phone([&] {
        // Answers nothing before the client has stopped asking.
        for (size_t pieces = 0; pieces < 40;) {
            std::vector<uint64_t> unanswered;
            AfcPeer::Asked asked{};
            while (pieces + unanswered.size() < 40 &&
                   pair.hearsSomething(std::chrono::milliseconds(200)) &&
                   AfcPeer::hearRequest(pair, asked)) {
                unanswered.push_back(asked.number);
            }
            most = std::max(most, unanswered.size());
            for (const uint64_t number : unanswered) {
                pair.say(afcData(number, contents.substr(pieces++ * 65536, 65536)).bytes());
            }
        }
    });
    std::string target(contents.size(), '\0');
    size_t received = 0;
    EXPECT_EQ(client.readFile(7, writable(target), received), 0);
    phone.join();
    EXPECT_EQ(received, contents.size());
    EXPECT_TRUE(target == contents);
    EXPECT_LE(most, 8u);
    EXPECT_GT(most, 1u);
}

TEST(AfcRead, AfterAShortPieceNothingIsAskedForBeforeTheOthersAreAnswered) {
    for (const bool isTheEnd : {true, false}) {
        SCOPED_TRACE(isTheEnd);
        const std::string contents = someBytes(isTheEnd ? 250'000 : 1'000'000);
        size_t position = 0;
        size_t requests = 0;
        SocketPair pair;
        AfcClient client(pair.channel());
        std::string target(40 * 65536, '\0');
        size_t received = 0;
        {
            const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
                // The fourth is short, at the end or not.
                const size_t most = ++requests == 4 ? 50'000 : 65536;
                const std::string piece = contents.substr(position, most);
                position += piece.size();
                return afcData(asked.number, piece).bytes();
            });
            EXPECT_EQ(client.readFile(7, writable(target), received), 0);
        }
        EXPECT_EQ(received, contents.size());
        EXPECT_TRUE(target.starts_with(contents));
        if (isTheEnd) {
            EXPECT_EQ(requests, 8u);
        }
    }
}

TEST(AfcRead, AFailureAmongSeveralPiecesLeavesWhatWasGoodAndTheConnectionUsable) {
    const std::string contents = someBytes(8 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
        const bool isRead = asked.operation == 0x0F;
        const auto position = static_cast<size_t>(asked.number - 1) * 65536;
        return (isRead && asked.number != 3
                    ? afcData(asked.number, contents.substr(position, 65536))
                    : afcStatus(asked.number, isRead ? 20 : 0))
            .bytes();
    });
    std::string target(contents.size(), '\0');
    size_t received = 0;
    EXPECT_EQ(client.readFile(7, writable(target), received), 20);
    EXPECT_EQ(received, size_t{2} * 65536);
    EXPECT_TRUE(target.starts_with(contents.substr(0, received)));
    EXPECT_EQ(client.closeFile(7), 0);
}

TEST(AfcWrite, SeveralPiecesButNoMoreThanSixtyFourAreUnanswered) {
    const std::string contents = someBytes(200 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    std::vector<uint64_t> unanswered;
    size_t most = 0;
    std::thread phone([&] {
        // Answers nothing before the client has stopped asking.
        for (uint64_t pieces = 0; pieces < 200;) {
            AfcPeer::Asked asked{};
            while (pieces < 200 && pair.hearsSomething(std::chrono::milliseconds(200)) &&
                   AfcPeer::hearRequest(pair, asked)) {
                unanswered.push_back(asked.number);
                ++pieces;
            }
            most = std::max(most, unanswered.size());
            for (const uint64_t number : unanswered) {
                pair.say(afcStatus(number, 0).bytes());
            }
            unanswered.clear();
        }
    });
    EXPECT_EQ(client.writeFile(7, readable(contents)), 0);
    phone.join();
    EXPECT_LE(most, 64u);
    EXPECT_GT(most, 1u);
}

/// Waits for a condition; false when it does not come.
bool isSoon(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(AfcWrite, AnswersAreTakenWhileMostIsStillToGo) {
    const std::string contents = someBytes(64 * 65536);
    const auto count = std::make_shared<TransferCount>();
    SocketPair pair;
    AfcClient client(pair.channel(), count);
    uint64_t answered = 0;
    const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
        // Takes no more before the client has counted what was answered.
        EXPECT_TRUE(isSoon([&] { return count->bytes() >= answered; })) << "piece " << asked.number;
        answered += 65536;
        return afcStatus(asked.number, 0).bytes();
    });
    EXPECT_EQ(client.writeFile(7, readable(contents)), 0);
    EXPECT_EQ(count->bytes(), contents.size());
}

TEST(AfcWrite, ARefusalThatHasComeEndsTheWriteWithTheBurst) {
    const std::string contents = someBytes(64 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    uint64_t pieces = 0;
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            if (++pieces == 2) {
                // The first answer, a refusal, is taken before there is room for another burst.
                EXPECT_TRUE(isSoon([&] {
                    int unread = 1;
                    ::ioctl(pair.peer(), TIOCOUTQ, &unread);
                    return unread == 0;
                }));
            }
            return afcStatus(asked.number, pieces == 1 ? 18 : 0).bytes();
        });
        EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCNoSpaceLeft);
        EXPECT_EQ(pieces, 16u);
        EXPECT_EQ(client.closeFile(7), 0);
    }
}

// The piece that the phone refuses, counted from 1.
class AfcFailingPiece : public ::testing::TestWithParam<uint64_t> {};

TEST_P(AfcFailingPiece, FailsTheWriteAndLeavesTheConnectionUsable) {
    const std::string contents = someBytes(200 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    uint64_t pieces = 0;
    const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
        pieces += asked.operation == 0x10 ? 1 : 0;
        return afcStatus(asked.number,
                         asked.operation == 0x10 && asked.number == GetParam() ? 18 : 0)
            .bytes();
    });
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCNoSpaceLeft);
    EXPECT_LE(pieces, GetParam() + 64); // nothing more is sent once the failure is known
    EXPECT_EQ(client.closeFile(7), 0);
    EXPECT_EQ(client.removePath("/f"), 0);
}

TEST_P(AfcFailingPiece, TheFirstFailureIsTheOneReported) {
    const std::string contents = someBytes(200 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
        const uint64_t status = asked.number < GetParam() ? 0 : asked.number == GetParam() ? 18 : 7;
        return afcStatus(asked.number, status).bytes();
    });
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCNoSpaceLeft);
}

TEST_P(AfcFailingPiece, AnyBadReplyAmongManyFailsTheWrite) {
    const std::string contents = someBytes(200 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            return afcStatus(asked.number == GetParam() ? asked.number + 1 : asked.number, 0)
                .bytes();
        });
        EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCBadReply);
        EXPECT_EQ(client.closeFile(7), kAFCNotConnected);
    }
}

INSTANTIATE_TEST_SUITE_P(Pieces, AfcFailingPiece,
                         ::testing::Values(1, 2, 15, 16, 17, 63, 64, 65, 80, 199, 200));

TEST(AfcWrite, APhoneThatStopsTakingFailsTheWrite) {
    const ShortTimeout timeout(50);
    const std::string contents = someBytes(200 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCTimedOut);
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCNotConnected);
}

TEST(AfcWrite, APhoneThatTakesAllButAnswersNotAllFailsTheWrite) {
    const ShortTimeout timeout(50);
    SocketPair pair;
    AfcClient client(pair.channel());
    pair.say(afcStatus(1, 0).bytes() + afcStatus(2, 0).bytes());
    const std::string contents = someBytes(2 * 65536 + 1);
    std::thread phone([&] { pair.hear(contents.size() + size_t{3} * 48); });
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCTimedOut);
    phone.join();
}

TEST(AfcWrite, APhoneThatAnswersAllInAdvanceAndTakesNothingFailsTheWrite) {
    const std::string contents = someBytes(64 * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    for (uint64_t number = 1; number <= 200; ++number) {
        pair.say(afcStatus(number, 0).bytes());
    }
    EXPECT_EQ(client.writeFile(7, readable(contents)), kAFCBadReply);
    EXPECT_EQ(client.closeFile(7), kAFCNotConnected);
}

TEST(AfcNumbers, CountUpFromOneOnEachConnection) {
    SocketPair pair;
    AfcClient client(pair.channel());
    std::vector<uint64_t> numbers;
    {
        const AfcPeer peer(pair, [&](const AfcPeer::Asked& asked) {
            numbers.push_back(asked.number);
            return afcStatus(asked.number, 0).bytes();
        });
        EXPECT_EQ(client.removePath("/a"), 0);
        EXPECT_EQ(client.writeFile(7, readable(someBytes(3 * 65536))), 0);
        EXPECT_EQ(client.closeFile(7), 0);
    }
    EXPECT_EQ(numbers, (std::vector<uint64_t>{1, 2, 3, 4, 5}));
}

} // namespace
} // namespace krl::provider::testing
