// pair and unpair, and what devices says about pairing.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using virtualphone::parseFault;
using virtualphone::SessionKind;

namespace vesk::testing {
namespace {

class Pair : public VeskTest {
protected:
    Pair() {
        options.name = "My Phone";
        options.paired = false;
        options.session = SessionKind::Ssl3;
    }

    size_t requestsOf(const std::string& name) {
        return log()
            .entries([&](const virtualphone::LogEntry& entry) { return entry.request == name; })
            .size();
    }
};

} // namespace

TEST_F(Pair, MakesAPhoneUsableWhoseSessionsAreSsl3) {
    plugIn();
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::NotPaired));
    const VeskResult result = vesk({"pair"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, AllOf(HasSubstr("My Phone"), HasSubstr("is paired")));
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"add", local("a.m4r")}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (std::set<std::string>{"a"}));
}

TEST_F(Pair, SaysItInJson) {
    plugIn();
    const auto result = vesk({"pair", "--json"}).json();
    EXPECT_EQ(result.at("result"), "paired");
    EXPECT_EQ(result.at("phone").at("udid"), phone().udid());
    EXPECT_EQ(vesk({"pair", "--json"}).json().at("result"), "already-paired");
    EXPECT_EQ(vesk({"unpair", "--json"}).json().at("result"), "unpaired");
    EXPECT_EQ(vesk({"unpair", "--json"}).json().at("result"), "nothing-to-do");
}

TEST_F(Pair, DoesNothingWhenThePhoneKnowsThisComputer) {
    options.paired = true;
    plugIn();
    const VeskResult result = vesk({"pair"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("already"));
    EXPECT_EQ(requestsOf("Pair"), 0u);
}

TEST_F(Pair, MendsAPairingThatThePhoneHasForgotten) {
    options.paired = true;
    plugIn();
    phone().forgetHosts();
    EXPECT_THAT(vesk({"pair"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(requestsOf("Pair"), 1u);
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
}

TEST_F(Pair, MendsAPairingWhoseKeysThePhoneRefuses) {
    options.paired = true;
    plugIn();
    phone().trust(bus().hostId()); // known by name, but not by certificate any more
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::CannotOpen));
    EXPECT_THAT(vesk({"pair"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(requestsOf("Pair"), 1u);
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
}

TEST_F(Pair, ARefusalIsSaidAndKeepsNothing) {
    options.passwordProtected = true;
    plugIn();
    const VeskResult result = vesk({"pair"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PairingFailed));
    EXPECT_THAT(result.err, AllOf(HasSubstr("My Phone"), HasSubstr("PasswordProtected"),
                                  HasSubstr("nlock the phone")));
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
}

TEST_F(Pair, ADaemonThatKeepsNoRecordIsSaid) {
    plugIn();
    bus().faults().add(parseFault("usbmux/SavePairRecord=status:13"));
    const VeskResult result = vesk({"pair"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PairingFailed));
    EXPECT_THAT(result.err, HasSubstr("usbmuxd daemon does not save"));
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::NotPaired));
}

TEST_F(Pair, ChoosesBetweenPhonesByUdid) {
    plugIn();
    const auto other = makePhone("Other", {.paired = false, .session = SessionKind::Modern});
    bus().plug(other);
    EXPECT_THAT(vesk({"pair"}), ExitsWith(ExitCode::SeveralPhones));
    EXPECT_THAT(vesk({"pair", "--udid", other->udid()}), ExitsWith(ExitCode::Success));
    EXPECT_TRUE(bus().hasPairRecord(other->udid()));
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
}

TEST_F(Pair, NoPhoneIsAnErrorOfItsOwn) {
    EXPECT_THAT(vesk({"pair", "--wait", "0.1"}), ExitsWith(ExitCode::NoPhone));
    EXPECT_THAT(vesk({"unpair", "--wait", "0.1"}), ExitsWith(ExitCode::NoPhone));
}

TEST_F(Pair, ChangesNothingInThePhonesFolder) {
    plugIn();
    const auto before = everything();
    EXPECT_THAT(vesk({"pair"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"unpair"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Pair, UnpairingEndsItOnBothSides) {
    options.paired = true;
    plugIn();
    EXPECT_THAT(vesk({"unpair"}), ExitsWith(ExitCode::Success));
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    EXPECT_FALSE(phone().trusts(bus().hostId()));
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::NotPaired));
}

TEST_F(Pair, AnUnpairingThatThePhoneRefusesKeepsTheRecord) {
    options.paired = true;
    plugIn();
    phone().faults().add(parseFault("lockdown/Unpair=error:PasswordProtected"));
    EXPECT_THAT(vesk({"unpair"}), ExitsWith(ExitCode::PairingFailed));
    EXPECT_TRUE(bus().hasPairRecord(phone().udid()));
}

TEST_F(Pair, DevicesSaysWhatToDo) {
    plugIn();
    EXPECT_THAT(vesk({"devices"}).out, HasSubstr("not paired (vesk pair)"));
    const auto device = vesk({"devices", "--json"}).json().at("devices").at(0);
    EXPECT_EQ(device.at("hint"), "vesk pair --udid " + phone().udid());
    EXPECT_THAT(vesk({"pair"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"devices"}).out, Not(HasSubstr("vesk pair")));
    EXPECT_FALSE(vesk({"devices", "--json"}).json().at("devices").at(0).contains("hint"));
}

} // namespace vesk::testing
