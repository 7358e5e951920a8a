/// A virtual phone, a folder of ringtone files, and vesk run on them.
#pragma once

#include "tests/support/VeskProcess.h"

#include "tests/support/VirtualPhoneFixture.h"

#include "vesk/invocation/ExitCodes.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vesk::testing {

// What most tests compare with.
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

/// One entry of a catalogue put onto a phone.
struct Listed {
    std::string file;
    std::string name;
    std::string guid;
    std::vector<std::string> moreKeys = {"TrackID"}; ///< besides "Name" and "GUID"
};

/// The text of a catalogue.
std::string catalogueText(const std::vector<Listed>& entries);

class VeskTest : public virtualphone::testing::VirtualPhoneTest {
protected:
    /// What vesk keeps from one run to the next is kept for one test.
    VeskTest() {
        setenv("XDG_STATE_HOME", (temporaryFolder() / "state").c_str(), 1);
        setenv("XDG_CACHE_HOME", (temporaryFolder() / "cache").c_str(), 1);
    }

    ~VeskTest() override {
        unsetenv("XDG_STATE_HOME");
        unsetenv("XDG_CACHE_HOME");
    }

    /// No phone yet: set options, then plug it in.
    void SetUp() override {}

    void plugIn() { VirtualPhoneTest::SetUp(); }

    /// Runs vesk with its output in pipes.
    static VeskResult vesk(const std::vector<std::string>& arguments) {
        return VeskProcess(arguments).wait();
    }

    /// Makes a file on this computer and returns its path.
    std::string local(const std::string& name, const std::string& contents = "sound") const;

    /// The folder of the files that local() makes.
    std::string localFolder() const;

    /// Puts a catalogue onto the phone, and files with sound for its entries.
    void putRingtones(const std::vector<Listed>& entries);

    /// Every file on the phone with its contents.
    std::map<std::string, std::string> everything() const;

    std::set<std::string> ringtoneFolder() const;

    /// Names that vesk list shows.
    static std::set<std::string> listedNames();

    /// What changed files or folders on the phone, from its log since the last clear: "rename A B",
    /// "write FILE BYTES", "remove FILE", "folder PATH".
    std::vector<std::string> changesInLog();

    /// The same from the operations that vesk said.
    static std::vector<std::string> changesIn(const nlohmann::json& operations);

    /// A dry run and then the deed; both must say and do the same.
    VeskResult dryThenReal(const std::vector<std::string>& arguments);
};

MATCHER_P(ExitsWith, code, "") {
    return arg.exitCode == static_cast<int>(code);
}

inline constexpr char kFolder[] = "/iTunes_Control/Ringtones";
inline constexpr char kCatalogue[] = "/iTunes_Control/iTunes/Ringtones.plist";

} // namespace vesk::testing
