// The question and the answer over real session buses, between processes. All cases run at the same
// time, each on a bus of its own: each takes its 6 seconds.

#include "tests/support/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace krl::testing {
namespace {

using vesk::testing::VeskProcess;
using vesk::testing::VeskResult;

struct Case {
    const char* name;
    std::vector<std::string> pongs;
    bool isValid;
};

const Case kCases[] = {
    {"no pong", {}, false},
    {"no information", {"-:none"}, false},
    {"2.01", {"-:number:2.01"}, false},
    {"2.01 as a string", {"-:string:2.01"}, false},
    {"2.02", {"-:number:2.02"}, true},
    {"2.5 as a string", {"-:string:2.5"}, true},
    {"no number", {"-:string:newest"}, false},
    {"old, then new", {"-:number:1.5", "-:number:2.5"}, true},
    {"new, then old", {"-:number:2.5", "-:number:1.5", "-:none"}, true},
    {"another object", {"com.example.Other:number:2.5"}, false},
    {"no object", {":number:2.5"}, false},
};

/// A validating process, the plug-in's stand-in and their bus.
struct Exchange {
    explicit Exchange(const Case& row)
        : standIn(row.pongs, {.environment = bus.environment(), .program = KRL_PLUGIN_STAND_IN}) {
        standIn.waitForText("listening");
        validator = std::make_unique<VeskProcess>(
            std::vector<std::string>{KRL_LIBRARY, "validate"},
            VeskProcess::Options{.environment = bus.environment(), .program = KRL_STARTUP_PROBE});
    }

    PrivateBus bus;
    VeskProcess standIn;
    std::unique_ptr<VeskProcess> validator;
};

TEST(Validator, AnswersByThePongsAndTakesTheWholeSixSeconds) {
    std::vector<std::unique_ptr<Exchange>> exchanges;
    for (const Case& row : kCases) {
        exchanges.push_back(std::make_unique<Exchange>(row));
    }
    VeskProcess withoutBus({KRL_LIBRARY, "validate"},
                           {.environment = kNoBus, .program = KRL_STARTUP_PROBE});
    for (size_t i = 0; i < exchanges.size(); ++i) {
        SCOPED_TRACE(kCases[i].name);
        const VeskResult answer = exchanges[i]->validator->wait();
        EXPECT_EQ(answer.out, kCases[i].isValid ? "validate=1 whole=1\n" : "validate=0 whole=1\n");
        EXPECT_EQ(answer.err, "");
        const VeskResult standIn = exchanges[i]->standIn.wait();
        EXPECT_EQ(standIn.out,
                  "listening\nping com.QuellmarSW.HarlixSupport without information\n");
    }
    EXPECT_EQ(withoutBus.wait().out, "validate=0 whole=1\n");
}

} // namespace
} // namespace krl::testing
