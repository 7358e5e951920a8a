// Each exported function that has to do with a phone, with each of its calls to the phone failing,
// alone and with each later one.
#include "tests/library/sweep/Ledger.h"
#include "tests/library/sweep/Scenarios.h"

#include <fstream>
#include <set>

namespace krl::test {
namespace {

/// What the first call that is to fail answers, and the second.
constexpr int32_t kStatuses[] = {kStatus, kStatus + 1};

/// The calls that are to fail, counted from 1 among those that can.
using Faults = std::vector<int>;

/// What one run did.
struct Outcome {
    std::optional<int> result;
    std::optional<int> code;
    int line = 0;
    Counts counts = {};
    std::vector<std::string> calls;
    std::optional<size_t> callsAtFirstError;
    bool keptItsFirstError = true;
    size_t faultsMet = 0;

    bool failed() const { return result == 0; }

    /// To its caller, and to the phone.
    bool isLike(const Outcome& other) const {
        return result == other.result && code == other.code && line == other.line &&
               counts == other.counts && calls == other.calls;
    }

    /// Which of the calls was to fail.
    size_t indexOf(int fault) const {
        size_t index = 0;
        for (int seen = 0; index < calls.size(); ++index) {
            seen += canFail(calls[index]) ? 1 : 0;
            if (seen == fault) {
                break;
            }
        }
        return index;
    }

private:
    static bool canFail(const std::string& call) {
        return !call.starts_with("AMDeviceRetain") && !call.starts_with("AMDeviceRelease");
    }
};

/// Calls of which nobody asks how they went.
bool isNeverLookedAt(const std::string& call) {
    static const char* const kNames[] = {"AMDeviceDisconnect", "AFCConnectionClose",
                                         "AFCDirectoryClose",  "AFCFileRefClose",
                                         "AFCKeyValueClose",   "AMDShutdownNotificationProxy"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [&](const char* name) { return call.starts_with(name); });
}

/// A function, on a phone that is open so many times.
struct Row {
    const Scenario* scenario;
    int opensBefore;
    /// Of the calls that are the first to fail, every kShares-th from this one on: what takes long
    /// is shared out.
    int share;

    static constexpr int kShares = 4;
};

void PrintTo(const Row& row, std::ostream* out) {
    PrintTo(*row.scenario, out);
}

class Sweep {
public:
    explicit Sweep(const Row& row)
        : scenario_(*row.scenario), opensBefore_(row.opensBefore), share_(row.share) {}

    /// Runs without a fault, with each call failing, and with each later one failing too. How many
    /// met faults.
    int run() {
        healthy_ = runWith({});
        EXPECT_FALSE(healthy_.failed());
        int met = 0;
        for (int first = share_; !::testing::Test::HasFailure(); first += Row::kShares) {
            const Outcome alone = runWith({first});
            if (alone.faultsMet == 0) {
                EXPECT_TRUE(alone.isLike(healthy_));
                break;
            }
            expectNoEffectIfNobodyAsks(first, alone, healthy_);
            met += 1 + withEachLater(first, alone);
        }
        return met;
    }

private:
    int withEachLater(int first, const Outcome& alone) {
        int met = 0;
        for (int second = first + 1; !::testing::Test::HasFailure(); ++second) {
            const Outcome both = runWith({first, second});
            if (both.faultsMet < 2) {
                EXPECT_TRUE(both.isLike(alone));
                break;
            }
            expectNoEffectIfNobodyAsks(second, both, alone);
            ++met;
        }
        return met;
    }

    void expectNoEffectIfNobodyAsks(int fault, const Outcome& with, const Outcome& without) const {
        const std::string& call = with.calls.at(with.indexOf(fault));
        if (isNeverLookedAt(call)) {
            EXPECT_TRUE(with.isLike(without))
                << scenario_.function << ", fault " << fault << ", " << call;
        }
    }

    Outcome runWith(const Faults& faults) {
        const auto trace = ::testing::PrintToString(faults);
        SCOPED_TRACE("failing calls " + trace);
        World world;
        begin(world);
        for (size_t i = 0; i < faults.size(); ++i) {
            world.fake.failNthCall(faults[i], kStatuses[i]);
        }
        const Outcome outcome = call(world);
        expectWhatTheHeadersSay(outcome);
        if (outcome.result == 1 && scenario_.records == Records::failures && !faults.empty()) {
            EXPECT_EQ(outcome.counts, healthy_.counts);
        }
        expectTheStatusOfTheFailedCall(outcome, faults);
        if (outcome.failed() && world.fake.phone().hasFile(kCatalogue)) {
            EXPECT_EQ(world.fake.phone().contents(kCatalogue), oldCatalogue());
        }
        expectThatTheNextCallWorks(world);
        return outcome;
    }

    void begin(World& world) const {
        for (int i = 0; i < opensBefore_; ++i) {
            EXPECT_EQ(KRTPhoneOpen(world.phone), 1);
        }
        scenario_.prepare(world);
        EXPECT_FALSE(KRTError());
        world.fake.clearCalls();
    }

    Outcome call(World& world) const {
        Ledger ledger(world, scenario_.on == On::manager);
        Outcome outcome;
        outcome.result = scenario_.run(world);
        ledger.close();
        outcome.code = recordedCode();
        outcome.line = KRTErrorGetLine();
        outcome.counts = world.counts();
        outcome.calls = world.fake.calls();
        outcome.callsAtFirstError = ledger.callsAtFirstError();
        outcome.keptItsFirstError = ledger.keptItsFirstError();
        outcome.faultsMet = static_cast<size_t>(world.fake.faultsMet());
        ledger.expectToBeRight();
        return outcome;
    }

    void expectWhatTheHeadersSay(const Outcome& outcome) const {
        EXPECT_TRUE(!outcome.result || outcome.result == 0 || outcome.result == 1);
        const Records records = scenario_.records;
        if (records == Records::nothing) {
            EXPECT_EQ(outcome.code, std::nullopt);
        } else if (outcome.failed()) {
            EXPECT_NE(outcome.code, std::nullopt);
        } else if (records == Records::failures) {
            EXPECT_EQ(outcome.code, std::nullopt);
        }
        if (records != Records::ownAccount) {
            EXPECT_TRUE(outcome.keptItsFirstError);
        }
    }

    /// What is recorded right after a call that was made to fail is the status of that call.
    static void expectTheStatusOfTheFailedCall(const Outcome& outcome, const Faults& faults) {
        for (size_t i = 0; i < faults.size(); ++i) {
            const size_t index = outcome.indexOf(faults[i]);
            if (outcome.callsAtFirstError == index + 1 && !isNeverLookedAt(outcome.calls[index])) {
                const bool isAnswer = outcome.calls[index] == "AMDeviceIsPaired";
                EXPECT_EQ(outcome.code, isAnswer ? 0 : kStatuses[i]) << outcome.calls[index];
            }
        }
    }

    /// Whatever was left behind.
    void expectThatTheNextCallWorks(World& world) const {
        world.rest();
        begin(world);
        EXPECT_NE(scenario_.run(world), 0);
        if (scenario_.records == Records::failures) {
            EXPECT_EQ(recordedCode(), std::nullopt);
        }
    }

    const Scenario& scenario_;
    const int opensBefore_;
    const int share_;
    Outcome healthy_;
};

std::vector<Row> rows() {
    std::vector<Row> all;
    for (const Scenario& scenario : scenarios()) {
        const int fewest = scenario.on == On::openPhone ? 1 : 0;
        const int most = scenario.on == On::phone ? 2 : fewest;
        for (int opens = fewest; opens <= most; ++opens) {
            for (int share = 1; share <= Row::kShares; ++share) {
                all.push_back({&scenario, opens, share});
            }
        }
    }
    return all;
}

class CallSweep : public ::testing::TestWithParam<Row> {};

TEST_P(CallSweep, EndsAsDocumentedWhicheverCallsFail) {
    testing::internal::CaptureStderr(); // a phone that is not let in is told there
    const int met = Sweep(GetParam()).run();
    testing::internal::GetCapturedStderr();
    if (GetParam().scenario->on == On::nothing) {
        EXPECT_EQ(met, 0);
    } else if (GetParam().opensBefore == 0 && GetParam().share == 1) {
        EXPECT_GT(met, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Each, CallSweep, ::testing::ValuesIn(rows()), [](const auto& row) {
    return std::string(row.param.scenario->function) + "Opened" +
           std::to_string(row.param.opensBefore) + "Share" + std::to_string(row.param.share);
});

/// Names of the list of exported names that begin so, without the variables among them.
std::vector<std::string> exportedFunctionsOfPhones() {
    static const std::set<std::string> kVariables = {
        "KRTPhoneClassKey",  "KRTPhoneFreeSpaceKey", "KRTPhoneNameKey",
        "KRTPhoneNumberKey", "KRTPhoneSizeKey",      "KRTPhoneSupportedFormats"};
    std::ifstream list(KRL_EXPORTED_NAMES);
    std::vector<std::string> names;
    for (std::string line; std::getline(list, line);) {
        const bool isOfPhones = line.starts_with("KRTPhone") || line.starts_with("KRTGet") ||
                                line.starts_with("KRTRingtoneManager");
        const bool isOfC = line.find_first_of(":( ") == std::string::npos;
        if (isOfPhones && isOfC && kVariables.count(line) == 0) {
            names.push_back(line);
        }
    }
    return names;
}

TEST(CallSweepTable, HasEachExportedFunctionOfPhonesOnce) {
    std::vector<std::string> names;
    for (const Scenario& scenario : scenarios()) {
        names.emplace_back(scenario.function);
    }
    EXPECT_THAT(names, UnorderedElementsAreArray(exportedFunctionsOfPhones()));
}

} // namespace
} // namespace krl::test
