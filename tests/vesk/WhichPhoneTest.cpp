// --udid: by which words a phone is meant.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using testing::SizeIs;

namespace vesk::testing {
namespace {

std::string udid(const std::string& beginning) {
    return beginning + std::string(40 - beginning.size(), '0');
}

class WhichPhone : public VeskTest {
protected:
    void SetUp() override {
        options.name = "Kitchen";
        options.udid = udid("abcd1");
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    }

    void plugInAnother(const std::string& folder, const std::string& name,
                       const std::string& beginning) {
        virtualphone::PhoneOptions other{.root = temporaryFolder() / folder};
        other.name = name;
        other.udid = udid(beginning);
        bus().plug(std::make_shared<virtualphone::Phone>(other));
    }

    /// The UDID of the phone that is meant.
    static std::string meant(const std::string& text) {
        const VeskResult result = vesk({"info", "--udid", text, "--json"});
        EXPECT_THAT(result, ExitsWith(ExitCode::Success));
        return result.exitCode == 0 ? result.json().at("udid").get<std::string>() : "";
    }
};

} // namespace

TEST_F(WhichPhone, TheBeginningOfAUdidMeansThePhone) {
    plugInAnother("other", "Office", "abce");
    EXPECT_EQ(meant("abcd"), udid("abcd1"));
    EXPECT_EQ(meant("ABCE00"), udid("abce"));
    EXPECT_EQ(meant(udid("abce")), udid("abce"));
}

TEST_F(WhichPhone, WhatIsAttachedIsFoundWithoutWaitingForMore) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(vesk({"info", "--wait", "0"}), ExitsWith(ExitCode::Success));
        EXPECT_THAT(vesk({"info", "--wait", "0", "--udid", udid("abcd1")}),
                    ExitsWith(ExitCode::Success));
        EXPECT_THAT(vesk({"info", "--wait", "0", "--udid", "Kitchen"}),
                    ExitsWith(ExitCode::Success));
    }
}

TEST_F(WhichPhone, ANameMeansThePhoneExactOrElseInAnyCase) {
    plugInAnother("other", "Büro", "abce");
    EXPECT_EQ(meant("Kitchen"), udid("abcd1"));
    EXPECT_EQ(meant("BÜRO"), udid("abce"));
    plugInAnother("third", "kitchen", "abcf");
    EXPECT_EQ(meant("Kitchen"), udid("abcd1"));
    EXPECT_EQ(meant("kitchen"), udid("abcf"));
}

TEST_F(WhichPhone, AUdidGoesBeforeAName) {
    plugInAnother("other", "abcd", "eeee");
    EXPECT_EQ(meant("abcd"), udid("abcd1"));
    plugInAnother("third", udid("abcd1"), "ffff");
    EXPECT_EQ(meant(udid("abcd1")), udid("abcd1"));
}

TEST_F(WhichPhone, WhatMeansSeveralIsRefusedWithTheirUdids) {
    plugInAnother("other", "kitchen", "abcd2");
    for (const char* text : {"abcd", "KITCHEN"}) {
        const VeskResult result = vesk({"list", "--udid", text});
        EXPECT_THAT(result, ExitsWith(ExitCode::SeveralPhones));
        EXPECT_THAT(result.err,
                    AllOf(HasSubstr(udid("abcd1")), HasSubstr(udid("abcd2")), HasSubstr("--udid")));
    }
}

TEST_F(WhichPhone, WhatMeansNoneIsRefusedWithWhatIsAttached) {
    for (const char* text : {"abc", "Kitche", "0000"}) {
        const VeskResult result = vesk({"list", "--udid", text, "--wait", "0.2"});
        EXPECT_THAT(result, ExitsWith(ExitCode::NoPhone));
        EXPECT_THAT(result.err, AllOf(HasSubstr(text), HasSubstr(udid("abcd1"))));
    }
    EXPECT_THAT(vesk({"devices", "--udid", "nobody"}), ExitsWith(ExitCode::NoPhone));
}

TEST_F(WhichPhone, APhoneThatComesLaterIsWaitedFor) {
    VeskProcess process({"list", "--udid", "Late", "--wait", "60"});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.service == "lockdown"; }));
    plugInAnother("late", "Late", "1234");
    EXPECT_THAT(process.wait(), ExitsWith(ExitCode::Success));
}

TEST_F(WhichPhone, EveryCommandUnderstandsIt) {
    plugInAnother("other", "Office", "1234");
    const auto devices = vesk({"devices", "--udid", "kitchen", "--json"}).json().at("devices");
    ASSERT_THAT(devices, SizeIs(1));
    EXPECT_EQ(devices.at(0).at("udid"), udid("abcd1"));
    const auto phones = vesk({"doctor", "--udid", "abcd", "--json"}).json().at("phones");
    ASSERT_THAT(phones, SizeIs(1));
    EXPECT_EQ(phones.at(0).at("udid"), udid("abcd1"));
    ASSERT_THAT(vesk({"remove", "Marimba", "--udid", "Kitchen"}), ExitsWith(ExitCode::Success));
    const auto history = vesk({"history", "--udid", "abcd", "--json"}).json();
    EXPECT_EQ(history.at("udid"), udid("abcd1"));
    EXPECT_THAT(history.at("jobs"), SizeIs(1));
    EXPECT_EQ(vesk({"pair", "--udid", "Kitchen", "--json"}).json().at("phone").at("udid"),
              udid("abcd1"));
}

TEST_F(WhichPhone, ANameThatIsToldOverASessionAloneIsAskedForThere) {
    // UDID, class, name: the third is what is not told without a session.
    const std::string withoutName = "lockdown/GetValue#3=error:GetProhibited";
    phone().faults().add(virtualphone::parseFault(withoutName));
    EXPECT_EQ(meant("Kitchen"), udid("abcd1"));
    phone().faults().clear();
    phone().faults().add(virtualphone::parseFault(withoutName));
    log().clear();
    const auto devices = vesk({"devices", "--udid", "abcd", "--json"}).json().at("devices");
    EXPECT_THAT(devices, SizeIs(1));
    EXPECT_TRUE(
        log().entries([](const auto& entry) { return entry.request == "StartSession"; }).empty())
        << "a UDID needs no name";
}

} // namespace vesk::testing
