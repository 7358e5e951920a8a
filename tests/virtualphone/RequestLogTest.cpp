// The log on its own.

#include "virtualphone/services/RequestLog.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <nlohmann/json.hpp>

#include <thread>

namespace virtualphone::testing {
namespace {

using nlohmann::json;

LogEntry entryNamed(const std::string& request) {
    LogEntry entry;
    entry.request = request;
    return entry;
}

std::function<bool(const LogEntry&)> isNamed(const std::string& request) {
    return [request](const LogEntry& entry) { return entry.request == request; };
}

TEST(RequestLogTest, EntriesAreNumberedInOrder) {
    RequestLog log;
    log.add(entryNamed("a"));
    log.add(entryNamed("b"));
    log.clear();
    log.add(entryNamed("c"));
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].request, "c");
    EXPECT_EQ(entries[0].number, 3U) << "clearing starts nothing again";
}

TEST(RequestLogTest, KeepsTheLatestWhenLimited) {
    RequestLog log;
    for (const char* const name : {"a", "b", "c"}) {
        log.add(entryNamed(name));
    }
    log.keepAtMost(2);
    EXPECT_EQ(log.entries().front().request, "b");
    log.add(entryNamed("d"));
    EXPECT_EQ(log.entries().front().request, "c");
    log.keepAtMost(0);
    log.add(entryNamed("e"));
    EXPECT_TRUE(log.entries().empty());
}

TEST(RequestLogTest, EntriesCanBeChosen) {
    RequestLog log;
    for (const char* const name : {"a", "b", "a"}) {
        log.add(entryNamed(name));
    }
    EXPECT_EQ(log.entries(isNamed("a")).size(), 2U);
}

TEST(RequestLogTest, WaitsForWhatIsThereAndForWhatComes) {
    RequestLog log;
    log.add(entryNamed("there"));
    EXPECT_TRUE(log.waitFor(isNamed("there"), std::chrono::milliseconds(0)));
    EXPECT_FALSE(log.waitFor(isNamed("never"), std::chrono::milliseconds(1)));
    std::thread writer([&] {
        log.add(entryNamed("other"));
        log.add(entryNamed("late"));
    });
    const auto late = log.waitFor(isNamed("late"));
    writer.join();
    ASSERT_TRUE(late);
    EXPECT_EQ(late->request, "late");
}

TEST(RequestLogTest, ALineIsOneObjectOfTheFieldsThereAre) {
    LogEntry entry = entryNamed("Open");
    entry.number = 7;
    entry.time = std::chrono::microseconds(1'500'000);
    entry.phone = "udid";
    entry.service = "afc";
    entry.connection = 3;
    entry.path = "/a \"quoted\"\nname";
    entry.mode = 2;
    entry.handle = 1;
    entry.status = 0;
    const std::string line = entry.toJson();
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(json::parse(line), (json{{"number", 7},
                                       {"time", 1.5},
                                       {"phone", "udid"},
                                       {"service", "afc"},
                                       {"connection", 3},
                                       {"request", "Open"},
                                       {"path", "/a \"quoted\"\nname"},
                                       {"mode", 2},
                                       {"handle", 1},
                                       {"status", 0}}));
}

TEST(RequestLogTest, NamesThatAreNotUtf8StillMakeALine) {
    LogEntry entry = entryNamed("Open");
    entry.path = "/bad\xff";
    EXPECT_EQ(json::parse(entry.toJson()).at("path"), "/bad\xef\xbf\xbd");
}

TEST(RequestLogTest, TheFileHasEachEntryAtOnce) {
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.path() / "log";
    std::ofstream(file) << "old\n";
    RequestLog log;
    log.keepAtMost(0);
    log.add(entryNamed("before"));
    log.writeTo(file);
    log.add(entryNamed("a"));
    log.add(entryNamed("b"));
    std::ifstream lines(file);
    std::string line;
    std::vector<std::string> names;
    while (std::getline(lines, line)) {
        names.push_back(json::parse(line).at("request"));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
}

TEST(RequestLogTest, AFileThatCannotBeWrittenIsAnError) {
    RequestLog log;
    EXPECT_THROW(log.writeTo("/nosuch/folder/log"), std::system_error);
}

} // namespace
} // namespace virtualphone::testing
