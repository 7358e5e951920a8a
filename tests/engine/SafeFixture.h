/// A scripted phone and a safe in a temporary folder.
#pragma once

#include "engine/restore/Restorer.h"
#include "engine/state/OpenPhone.h"
#include "tests/engine/FaultyDisk.h"
#include "tests/support/FakeMobileDevice.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <optional>
#include <string>

namespace krl::engine::testing {

/// The ringtone side of a phone as it lies there.
struct PhoneSide {
    std::optional<std::string> catalogue;
    std::map<std::string, std::string> files;

    friend bool operator==(const PhoneSide&, const PhoneSide&) = default;
};

inline void PrintTo(const PhoneSide& side, std::ostream* out) {
    *out << "catalogue " << ::testing::PrintToString(side.catalogue) << ", files "
         << ::testing::PrintToString(side.files);
}

class SafeTest : public ::testing::Test {
protected:
    SafeTest() { setenv("XDG_STATE_HOME", state_.path().c_str(), 1); }

    test::FakeMobileDevice& fake() { return fake_; }

    am_device* device() { return fake_.phone().device(); }

    /// Where the safe is.
    std::filesystem::path folder() const { return state_.path() / "krlvesk"; }

    Disk& disk() { return disk_; }

    /// Makes the phone hold exactly this.
    void put(const PhoneSide& side) {
        for (const std::string& name : fake_.phone().names(kRingtonesFolder)) {
            fake_.phone().remove(ringtonePath(name));
        }
        for (const auto& [name, contents] : side.files) {
            fake_.phone().file(ringtonePath(name), contents);
        }
        if (side.catalogue) {
            fake_.phone().file(kCataloguePath, *side.catalogue);
        } else if (fake_.phone().hasFile(kCataloguePath)) {
            fake_.phone().remove(kCataloguePath);
        }
    }

    PhoneSide side() {
        PhoneSide side;
        if (fake_.phone().hasFile(kCataloguePath)) {
            side.catalogue = fake_.phone().contents(kCataloguePath);
        }
        for (const std::string& name : fake_.phone().names(kRingtonesFolder)) {
            side.files[name] = fake_.phone().contents(ringtonePath(name));
        }
        return side;
    }

    /// The phone as it is now, in the safe.
    Snapshot look() {
        PhoneSafe safe(kUdid, folder(), disk());
        PhoneFiles files(device());
        return Restorer(files, safe, {}).look();
    }

    /// Brings the phone to a state, beginning with a look at it.
    void restore(const Snapshot& target, const OwnContents& own) {
        PhoneSafe safe(kUdid, folder(), disk());
        PhoneFiles files(device());
        Restorer restorer(files, safe, {});
        restorer.look();
        const RestorePlan plan = restorer.plan(target, own);
        ASSERT_FALSE(plan.isBlocked());
        restorer.carryOut(plan, target);
    }

    static constexpr char kUdid[] = "0123456789abcdef";

private:
    virtualphone::testing::TemporaryFolder state_;
    test::FakeMobileDevice fake_;
    QuickDisk disk_;
};

} // namespace krl::engine::testing
