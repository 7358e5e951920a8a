// Listening to a mux daemon that says whatever a test wants.

#include "mobiledevice/provider/wire/MuxListener.h"

#include "tests/mobiledevice/provider/Descriptors.h"
#include "tests/mobiledevice/provider/Peer.h"
#include "tests/mobiledevice/provider/PlistMessages.h"

#include "tests/support/TemporaryFolder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace krl::provider::testing {
namespace {

constexpr std::chrono::seconds kLimit{30};

// ------------------------------------------------------------------ messages

std::string headerOf(uint32_t length, uint32_t version = 1, uint32_t message = 8) {
    std::string bytes;
    for (const uint32_t field : {length, version, message, uint32_t{0}}) {
        for (const int shift : {0, 8, 16, 24}) {
            bytes.push_back(static_cast<char>(field >> shift));
        }
    }
    return bytes;
}

std::string muxFramed(const std::string& body, uint32_t version = 1, uint32_t message = 8) {
    return headerOf(static_cast<uint32_t>(16 + body.size()), version, message) + body;
}

using Entries = std::vector<std::pair<std::string, std::string>>;

std::string muxMessage(const Entries& entries) {
    return muxFramed(xmlDocument(xmlDictionary(entries)));
}

std::string integer(uint64_t value) {
    return "<integer>" + std::to_string(value) + "</integer>";
}

std::string result(uint64_t number) {
    return muxMessage({{"MessageType", xmlString("Result")}, {"Number", integer(number)}});
}

std::string attachedWith(const std::string& id, const Entries& properties) {
    return muxMessage({{"MessageType", xmlString("Attached")},
                       {"DeviceID", id},
                       {"Properties", xmlDictionary(properties)}});
}

std::string attached(uint32_t id, const std::string& serialNumber,
                     const std::string& connection = "USB") {
    return attachedWith(integer(id), {{"ConnectionType", xmlString(connection)},
                                      {"SerialNumber", xmlString(serialNumber)}});
}

std::string repeated(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string news(const std::string& type, uint32_t id) {
    return muxMessage({{"MessageType", xmlString(type)}, {"DeviceID", integer(id)}});
}

std::string detached(uint32_t id) {
    return news("Detached", id);
}

// ------------------------------------------------------------------ the two sides

/// Writes down what it hears: "+1 udid" and "-1".
class Notes final : public MuxAudience {
public:
    void attached(uint32_t muxId, const std::string& udid) noexcept override {
        add(std::string("+").append(std::to_string(muxId)).append(" ").append(udid));
    }

    void detached(uint32_t muxId) noexcept override {
        add(std::string("-").append(std::to_string(muxId)));
    }

    /// What has been heard once it is that much; all there is if that does not come about.
    std::vector<std::string> await(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kLimit, [&] { return lines_.size() >= count; });
        return lines_;
    }

    std::vector<std::string> all() { return await(0); }

private:
    void add(const std::string& line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

class Daemon {
public:
    /// Listens on the last of the addresses.
    explicit Daemon(const std::string& setting) {
        SocketAddress address = muxAddresses(setting).back();
        socket_ = UniqueDescriptor(
            ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        auto* generic = reinterpret_cast<sockaddr*>(&address.storage);
        const int yes = 1;
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (::bind(socket_.get(), generic, address.size) != 0 ||
            ::listen(socket_.get(), SOMAXCONN) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }

    Peer accept() const {
        pollfd entry{socket_.get(), POLLIN, 0};
        ::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(kLimit).count()));
        UniqueDescriptor accepted(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!accepted) {
            throw std::runtime_error("nobody connects");
        }
        return Peer(std::move(accepted));
    }

private:
    UniqueDescriptor socket_;
};

struct Request {
    std::string header;
    PlistRef body;
};

Request heardRequest(const Peer& peer) {
    Request request{peer.hear(16), nullptr};
    if (request.header.size() == 16) {
        const auto length =
            static_cast<uint8_t>(request.header[0]) + 256 * static_cast<uint8_t>(request.header[1]);
        const std::string body = peer.hear(static_cast<size_t>(length) - 16);
        request.body = parseDictionary(std::as_bytes(std::span(body)));
    }
    return request;
}

bool becomesSo(const std::function<bool()>& isSo) {
    const auto limit = std::chrono::steady_clock::now() + kLimit;
    while (!isSo()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool isEnded(const Peer& peer) {
    return peer.hearsSomething(kLimit) && peer.hear(1).empty();
}

using Threads = std::set<long>;

Threads threads() {
    Threads found;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        found.insert(std::stol(task.path().filename()));
    }
    return found;
}

// The threads of a process without a listener. A sanitizer's own, which wakes up now and then, comes
// with the first that is begun.
Threads threadsBefore() {
    std::thread([] {}).join();
    return threads();
}

// How often the threads that have come since, which is the listener's alone, have gone to sleep.
long sleepsOfNewThreads(const Threads& known) {
    long sleeps = 0;
    for (const long thread : threads()) {
        if (known.contains(thread)) {
            continue;
        }
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
        std::string word;
        while (status >> word && word != "voluntary_ctxt_switches:") {
        }
        long count = 0;
        status >> count;
        sleeps += count;
    }
    return sleeps;
}

class Listening : public ::testing::Test {
protected:
    void begin() { listener.emplace(setting, notes); }

    void end() { listener.reset(); }

    /// The next connection, which has asked and has its consent.
    Peer acceptAndConsent() {
        Peer peer = daemon->accept();
        EXPECT_EQ(stringAt(heardRequest(peer).body, "MessageType"), "Listen");
        peer.say(result(0));
        return peer;
    }

    /// The daemon goes, its socket with it.
    void stopDaemon() {
        daemon.reset();
        std::filesystem::remove(folder.path() / "socket");
    }

    /// Another one, whose queue nobody is in.
    void renewDaemon() {
        stopDaemon();
        daemon.emplace(setting);
    }

    /// Whether the listener's thread stops waking up, and then does not for some time.
    bool fallsAsleep() {
        constexpr std::chrono::seconds kSleep{3};
        long before = -1;
        return becomesSo([&] {
            const long now = sleepsOfNewThreads(known);
            const bool isAsleep = now == before;
            before = now;
            if (!isAsleep) {
                std::this_thread::sleep_for(kSleep);
            }
            return isAsleep;
        });
    }

    const Threads known = threadsBefore();
    virtualphone::testing::TemporaryFolder folder;
    const std::string setting = "UNIX:" + (folder.path() / "socket").string();
    std::optional<Daemon> daemon{std::in_place, setting};
    Notes notes;
    std::optional<MuxListener> listener;
};

// ------------------------------------------------------------------ news

TEST_F(Listening, AsksOnce) {
    begin();
    const Peer peer = daemon->accept();
    const Request request = heardRequest(peer);
    EXPECT_EQ(request.header.substr(4, 8), headerOf(0).substr(4, 8));
    EXPECT_EQ(stringAt(request.body, "MessageType"), "Listen");
    EXPECT_FALSE(peer.hearsSomething(std::chrono::milliseconds(0)));
}

TEST_F(Listening, TellsOfArrivalsAndRemovalsInOrder) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one") + attached(2, "two") + detached(1) + attached(3, "one"));
    EXPECT_EQ(notes.await(4), (Lines{"+1 one", "+2 two", "-1", "+3 one"}));
}

TEST_F(Listening, TellsOfPhonesOnUsbOnly) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "air", "Network") + detached(1) + attached(2, "cable"));
    EXPECT_EQ(notes.await(1), Lines{"+2 cable"});
}

TEST_F(Listening, TellsOfEachPluggingOnce) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one") + attached(1, "other") + detached(1) + detached(1) +
             attached(2, "two"));
    EXPECT_EQ(notes.await(3), (Lines{"+1 one", "-1", "+2 two"}));
}

TEST_F(Listening, WritesTheNumbersOfLaterModelsWithAHyphen) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "0123456789abcdef01234567") + attached(2, std::string(40, 'a')));
    EXPECT_EQ(notes.await(2),
              (Lines{"+1 01234567-89abcdef01234567", "+2 " + std::string(40, 'a')}));
}

TEST_F(Listening, PutsAMessageTogetherFromItsBytes) {
    begin();
    const Peer peer = daemon->accept();
    heardRequest(peer);
    for (const char byte : result(0) + attached(1, "one")) {
        peer.say(std::string(1, byte));
    }
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, ReadsBinaryPropertyListsToo) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(muxFramed(binary(attached(1, "one").substr(16))));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, PassesOverWhatIsNotAboutAPhone) {
    const Entries properties = {{"ConnectionType", xmlString("USB")},
                                {"SerialNumber", xmlString("x")}};
    begin();
    const Peer peer = acceptAndConsent();
    for (const std::string& message :
         {news("Paired", 1),
          news("Unheard", 1),
          muxMessage({}),
          result(0),
          result(1),
          muxMessage({{"MessageType", integer(1)}}),
          muxMessage({{"Deep", repeated("<array>", 500) + repeated("</array>", 500)}}),
          detached(1),
          news("Attached", 1),
          muxMessage({{"MessageType", xmlString("Detached")}}),
          muxMessage(
              {{"MessageType", xmlString("Attached")}, {"Properties", xmlDictionary(properties)}}),
          muxMessage({{"MessageType", xmlString("Attached")},
                      {"DeviceID", integer(1)},
                      {"Properties", xmlString("USB")}}),
          attachedWith(integer(0), properties),
          attachedWith(integer(0x100000001), properties),
          attachedWith(xmlString("1"), properties),
          attachedWith(integer(1), {}),
          attachedWith(integer(1), {properties[0]}),
          attachedWith(integer(1), {properties[1]}),
          attachedWith(integer(1), {properties[0], {"SerialNumber", integer(5)}}),
          attachedWith(integer(1), {{"ConnectionType", integer(5)}, properties[1]})}) {
        peer.say(message);
    }
    peer.say(attached(0xFFFFFFFF, "last"));
    EXPECT_EQ(notes.await(1), Lines{"+4294967295 last"});
}

// ------------------------------------------------------------------ hostile daemons

struct Bytes {
    const char* name;
    std::string bytes;
};

void PrintTo(const Bytes& bytes, std::ostream* stream) {
    *stream << bytes.name;
}

class Nonsense : public Listening, public ::testing::WithParamInterface<Bytes> {};

TEST_P(Nonsense, EndsTheConnectionAndItsPhones) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
    peer.say(GetParam().bytes + attached(2, "two"));
    EXPECT_TRUE(isEnded(peer));
    EXPECT_EQ(notes.await(2), (Lines{"+1 one", "-1"}));
}

INSTANTIATE_TEST_SUITE_P(
    Messages, Nonsense,
    ::testing::Values(
        Bytes{"TooDeep",
              muxMessage({{"Deep", repeated("<array>", 4000) + repeated("</array>", 4000)}})},
        Bytes{"Garbage", std::string("\xDE\xAD\xBE\xEF no message of any kind \0\1\2", 32)},
        Bytes{"LengthZero", headerOf(0)}, Bytes{"LengthBelowTheHeaders", headerOf(15)},
        Bytes{"NoBody", headerOf(16)}, Bytes{"HugeLength", headerOf(0xFFFFFFFF)},
        Bytes{"LengthBeyondTheLimit", headerOf(64 * 1024 + 1)},
        Bytes{"BinaryVersion", muxFramed(std::string("\1\0\0\0", 4), 0, 5)},
        Bytes{"LaterVersion", muxFramed(attached(3, "x").substr(16), 2)},
        Bytes{"AnotherKindOfMessage", muxFramed(attached(3, "x").substr(16), 1, 7)},
        Bytes{"BodyOfGarbage", muxFramed("no property list")},
        Bytes{"BodyCutOff", muxFramed(attached(3, "x").substr(16, 200))},
        Bytes{"BodyOfAnArray", muxFramed(xmlDocument("<array/>"))},
        Bytes{"BodyOfAString", muxFramed(xmlDocument(xmlString("Attached")))},
        Bytes{"BrokenBinaryList", muxFramed("bplist00" + std::string(40, '\xFF'))},
        Bytes{"DeepNesting",
              muxFramed(xmlDocument(repeated("<array>", 4000) + repeated("</array>", 4000)))}),
    [](const auto& param) { return param.param.name; });

class NoConsent : public Listening, public ::testing::WithParamInterface<Bytes> {};

TEST_P(NoConsent, EndsTheConnectionBeforeAnyNews) {
    begin();
    const Peer peer = daemon->accept();
    heardRequest(peer);
    peer.say(GetParam().bytes + attached(1, "one"));
    EXPECT_TRUE(isEnded(peer));
    end();
    EXPECT_EQ(notes.all(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(
    Answers, NoConsent,
    ::testing::Values(Bytes{"BadCommand", result(1)}, Bytes{"BadVersion", result(6)},
                      Bytes{"BeyondAllNumbers", result(0x100000000)},
                      Bytes{"BadVersionInBinary", muxFramed(std::string("\6\0\0\0", 4), 0, 1)},
                      Bytes{"DoneInBinary", muxFramed(std::string("\0\0\0\0", 4), 0, 1)},
                      Bytes{"NoNumber", muxMessage({{"MessageType", xmlString("Result")}})},
                      Bytes{"ATextForANumber", muxMessage({{"MessageType", xmlString("Result")},
                                                           {"Number", xmlString("0")}})},
                      Bytes{"AnotherMessage", news("Paired", 0)},
                      Bytes{"NewsAtOnce", attached(2, "two")},
                      Bytes{"Garbage", "HTTP/1.1 400 Bad Request\r\n"}),
    [](const auto& param) { return param.param.name; });

TEST_F(Listening, SurvivesAnEndAtAnyByte) {
    const std::string conversation = result(0) + attached(1, "one") + detached(1);
    for (size_t length = 0; length < conversation.size(); ++length) {
        SCOPED_TRACE(length);
        renewDaemon();
        Notes heard;
        const MuxListener cut(setting, heard);
        Peer peer = daemon->accept();
        heardRequest(peer);
        peer.say(conversation.substr(0, length));
        peer.endSaying();
        EXPECT_TRUE(isEnded(peer));
        const bool hasArrived = length >= conversation.size() - detached(1).size();
        EXPECT_EQ(heard.await(hasArrived ? 2 : 0), hasArrived ? (Lines{"+1 one", "-1"}) : Lines{});
    }
}

// ------------------------------------------------------------------ daemons that come and go

TEST_F(Listening, LosesThePhonesOfADaemonThatGoesAndFindsThemAgain) {
    begin();
    {
        const Peer peer = acceptAndConsent();
        peer.say(attached(1, "one") + attached(2, "two"));
        notes.await(2);
        stopDaemon();
    }
    EXPECT_EQ(notes.await(4), (Lines{"+1 one", "+2 two", "-1", "-2"}));
    daemon.emplace(setting);
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(5).back(), "+1 one");
}

TEST_F(Listening, WaitsForADaemonThatIsNotThereYet) {
    stopDaemon();
    begin();
    daemon.emplace(setting);
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, TriesAgainAfterEachOfSeveralHiccups) {
    begin();
    for (int i = 0; i < 4; ++i) {
        daemon->accept(); // and closed
    }
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, NeverWakesUpWhileThereIsNoDaemon) {
    stopDaemon();
    begin();
    EXPECT_TRUE(fallsAsleep());
    daemon.emplace(setting);
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, NeverWakesUpWhileNothingHappens) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
    EXPECT_TRUE(fallsAsleep());
}

TEST_F(Listening, FindsADaemonWhoseFolderIsNotThereYet) {
    const std::filesystem::path place = folder.path() / "some" / "folder";
    const std::string later = "UNIX:" + (place / "socket").string();
    MuxListener listening(later, notes);
    EXPECT_TRUE(fallsAsleep());
    std::filesystem::create_directories(place);
    EXPECT_TRUE(fallsAsleep());
    daemon.emplace(later);
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

// A stale socket that nobody listens on yet.
TEST_F(Listening, FindsADaemonThatTakesTheSocketAnew) {
    daemon.reset();
    begin();
    EXPECT_TRUE(fallsAsleep());
    renewDaemon();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

TEST_F(Listening, TriesAgainAfterNonsense) {
    begin();
    {
        const Peer peer = daemon->accept();
        heardRequest(peer);
        peer.say(result(1));
        EXPECT_TRUE(isEnded(peer));
    }
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    EXPECT_EQ(notes.await(1), Lines{"+1 one"});
}

// ------------------------------------------------------------------ the network

class OnTheNetwork : public Listening, public ::testing::WithParamInterface<const char*> {
protected:
    /// A port of this host's that nobody listens on.
    std::optional<std::string> freePlace() const {
        SocketAddress address = muxAddresses(std::string(GetParam()) + ":1").back();
        const UniqueDescriptor socket(
            ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
        auto* generic = reinterpret_cast<sockaddr*>(&address.storage);
        // The port stands at the same place for both versions.
        auto* place = reinterpret_cast<sockaddr_in*>(&address.storage);
        place->sin_port = 0;
        if (!socket || ::bind(socket.get(), generic, address.size) != 0 ||
            ::getsockname(socket.get(), generic, &address.size) != 0) {
            return std::nullopt;
        }
        return std::string(GetParam()) + ":" + std::to_string(ntohs(place->sin_port));
    }
};

TEST_P(OnTheNetwork, ADaemonIsHeardAsWell) {
    const std::optional<std::string> place = freePlace();
    if (!place) {
        GTEST_SKIP() << GetParam() << " is not to be had here";
    }
    MuxListener remote(*place, notes); // refused at first
    daemon.emplace(*place);
    {
        const Peer peer = acceptAndConsent();
        peer.say(attached(1, "far"));
        EXPECT_EQ(notes.await(1), Lines{"+1 far"});
    }
    EXPECT_EQ(notes.await(2).back(), "-1");
}

INSTANTIATE_TEST_SUITE_P(Hosts, OnTheNetwork, ::testing::Values("127.0.0.1", "[::1]", "localhost"),
                         [](const auto& param) {
                             const std::string host = param.param;
                             return host == "127.0.0.1" ? "IPv4"
                                    : host == "[::1]"   ? "IPv6"
                                                        : "Name";
                         });

// ------------------------------------------------------------------ ending

// Each of these hangs if the end does not reach that wait.

TEST_F(Listening, EndsWhileNobodyIsThere) {
    stopDaemon();
    begin();
    end();
    EXPECT_EQ(notes.all(), Lines{});
}

TEST_F(Listening, EndsWhileTheAnswerIsAwaited) {
    begin();
    const Peer peer = daemon->accept();
    heardRequest(peer);
    end();
    EXPECT_TRUE(isEnded(peer));
}

TEST_F(Listening, EndsWhileNewsAreAwaited) {
    begin();
    const Peer peer = acceptAndConsent();
    peer.say(attached(1, "one"));
    notes.await(1);
    end();
    EXPECT_TRUE(isEnded(peer));
}

TEST_F(Listening, EndsInTheMiddleOfAMessage) {
    for (const size_t length : {size_t{7}, size_t{40}}) {
        begin();
        const Peer peer = acceptAndConsent();
        peer.say(attached(1, "one").substr(0, length));
        end();
        EXPECT_TRUE(isEnded(peer));
    }
}

TEST_F(Listening, EndsBetweenTwoTries) {
    begin();
    {
        const Peer peer = acceptAndConsent();
        peer.say(attached(1, "one"));
        notes.await(1);
    }
    EXPECT_EQ(notes.await(2).back(), "-1"); // a pause begins
    end();
}

TEST_F(Listening, EndsWhileTheDaemonTalksWithoutEnd) {
    begin();
    const Peer peer = acceptAndConsent();
    std::thread talker([&] {
        while (!peer.hearsSomething(std::chrono::milliseconds(0))) {
            peer.say(attached(1, "one") + detached(1));
        }
    });
    notes.await(10);
    end();
    talker.join();
}

// The number of connections to a port that are not made yet.
size_t unansweredTo(uint16_t port) {
    constexpr const char* kSynSent = "02";
    char digits[5];
    std::snprintf(digits, sizeof digits, "%04X", port);
    std::ifstream table("/proc/self/net/tcp");
    std::string line;
    size_t count = 0;
    while (std::getline(table, line)) {
        std::istringstream columns(line);
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        columns >> number >> local >> remote >> state;
        count += state == kSynSent && remote.ends_with(std::string(":") + digits) ? 1U : 0U;
    }
    return count;
}

TEST_F(Listening, EndsWhileItConnects) {
    // Fills the queue of a daemon that accepts nobody, until a connection stays unanswered.
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const UniqueDescriptor busy(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(busy.get(), generic, size), 0);
    ASSERT_EQ(::listen(busy.get(), 0), 0);
    ASSERT_EQ(::getsockname(busy.get(), generic, &size), 0);
    const uint16_t port = ntohs(address.sin_port);
    std::vector<UniqueDescriptor> queue;
    const auto joinQueue = [&] {
        queue.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        ::connect(queue.back().get(), generic, size);
        pollfd entry{queue.back().get(), POLLOUT, 0};
        return ::poll(&entry, 1, 100) == 0;
    };
    while (!joinQueue()) {
        ASSERT_LT(queue.size(), 10U);
    }
    const size_t before = unansweredTo(port);
    ASSERT_GT(before, 0U);
    MuxListener remote("127.0.0.1:" + std::to_string(port), notes);
    EXPECT_TRUE(becomesSo([&] { return unansweredTo(port) > before; }));
}

// ------------------------------------------------------------------ descriptors

TEST_F(Listening, LeavesNoDescriptorHoweverOftenItBeginsAndEnds) {
    const size_t before = openDescriptors();
    for (int i = 0; i < 200; ++i) {
        SCOPED_TRACE(i);
        renewDaemon();
        begin();
        const int stage = i % 4;
        if (stage > 0) {
            std::optional<Peer> peer(daemon->accept());
            if (stage > 1) {
                peer->say(result(0) + attached(1, "one"));
            }
            if (stage > 2) {
                peer.reset(); // both end at once
            }
            end();
        }
        end();
        ASSERT_EQ(openDescriptors(), before);
    }
}

TEST_F(Listening, WatchesForADaemonOnlyWhereNoneIs) {
    begin();
    std::optional<Peer> peer = acceptAndConsent();
    EXPECT_FALSE(isWatchingFiles());
    stopDaemon();
    peer.reset();
    EXPECT_TRUE(becomesSo(isWatchingFiles));
}

TEST_F(Listening, LeavesChildrenNoDescriptor) {
    const int before = inheritableDescriptors();
    begin();
    const Peer peer = acceptAndConsent();
    EXPECT_EQ(inheritableDescriptors(), before);
}

} // namespace
} // namespace krl::provider::testing
