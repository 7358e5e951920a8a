// A whole life of ringtones on each generation of firmware.
#include "VeskTest.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

namespace vesk::testing {
namespace {

struct Firmware {
    const char* version;
    bool placeholders;
};

void PrintTo(const Firmware& firmware, std::ostream* out) {
    *out << firmware.version;
}

class EachFirmware : public VeskTest, public ::testing::WithParamInterface<Firmware> {
protected:
    void SetUp() override {
        options.firmware = GetParam().version;
        plugIn();
    }

    /** A dry run and then the deed; both must say and do the same. */
    VeskResult dryThenReal(const std::vector<std::string>& arguments) {
        std::vector<std::string> dry = arguments;
        dry.insert(dry.end(), {"--dry-run", "--json"});
        const auto before = everything();
        const VeskResult planned = vesk(dry);
        EXPECT_THAT(planned, ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before) << "a dry run changed the phone";
        EXPECT_EQ(planned.json().at("result"), "dry-run");

        std::vector<std::string> real = arguments;
        real.push_back("--json");
        log().clear();
        VeskResult done = vesk(real);
        EXPECT_THAT(done, ExitsWith(ExitCode::Success));
        EXPECT_EQ(done.json().at("result"), "done");
        EXPECT_EQ(changesInLog(), changesIn(planned.json().at("operations")));
        EXPECT_EQ(done.json().at("operations"), planned.json().at("operations"));
        return done;
    }

    std::size_t filesOfType(const std::string& type) const {
        std::size_t count = 0;
        for (const std::string& name : ringtoneFolder()) {
            count += name.ends_with(type) ? 1U : 0U;
        }
        return count;
    }
};

} // namespace

TEST_P(EachFirmware, AddListRemoveAndSyncDoWhatTheDryRunSaid) {
    const std::size_t placeholders = GetParam().placeholders ? 1 : 0;

    dryThenReal({"add", local("bells.mp3"), local("harp.m4r")});
    EXPECT_THAT(listedNames(), UnorderedElementsAre("bells", "harp"));
    EXPECT_EQ(filesOfType(".mp3"), 1U);
    EXPECT_EQ(filesOfType(".m4r"), 1 + placeholders);

    dryThenReal({"add", local("tick.wav"), "--name", "Tick Tock"});
    EXPECT_THAT(listedNames(), UnorderedElementsAre("bells", "harp", "Tick Tock"));
    EXPECT_EQ(filesOfType(".m4r"), 1 + 2 * placeholders);

    dryThenReal({"remove", "bells"});
    EXPECT_THAT(listedNames(), UnorderedElementsAre("harp", "Tick Tock"));
    EXPECT_EQ(filesOfType(".mp3"), 0U);
    EXPECT_EQ(filesOfType(".m4r"), 1 + placeholders);

    // The folder holds bells, harp and tick: "Tick Tock" goes, "harp" stays.
    log().clear();
    dryThenReal({"sync", localFolder()});
    EXPECT_THAT(listedNames(), UnorderedElementsAre("bells", "harp", "tick"));
    EXPECT_EQ(filesOfType(".m4r"), 1 + 2 * placeholders);

    log().clear();
    const VeskResult again = vesk({"sync", localFolder(), "--json"});
    EXPECT_EQ(again.json().at("result"), "nothing-to-do");
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_P(EachFirmware, SyncReplacesWhatHasAnotherSizeAndKeepsTheRest) {
    local("a.m4r", "first");
    local("b.mp3", "stays");
    ASSERT_THAT(vesk({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    local("a.m4r", "the second one");
    const nlohmann::json result = dryThenReal({"sync", localFolder()}).json();
    std::vector<std::string> uploaded;
    for (const auto& operation : result.at("operations")) {
        if (operation.at("operation") == "upload") {
            uploaded.push_back(operation.at("ringtone"));
        }
    }
    EXPECT_THAT(uploaded, ElementsAre("a"));
    const nlohmann::json list = vesk({"list", "--json"}).json();
    for (const auto& ringtone : list.at("ringtones")) {
        const std::string path =
            std::string(kFolder) + "/" + ringtone.at("file").get<std::string>();
        EXPECT_EQ(contents(path), ringtone.at("name") == "a" ? "the second one" : "stays");
    }
}

TEST_P(EachFirmware, StraysAreNamedBeforeTheyAreDeleted) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    put(std::string(kFolder) + "/notes.txt", "keep me?");
    const VeskResult dry = vesk({"add", local("harp.m4r"), "--dry-run"});
    EXPECT_THAT(dry.err, AllOf(HasSubstr("warning"), HasSubstr("notes.txt")));
    EXPECT_THAT(ringtoneFolder(), Contains("notes.txt"));
    dryThenReal({"add", local("harp.m4r")});
    EXPECT_THAT(ringtoneFolder(), Not(Contains("notes.txt")));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "harp"));
}

TEST_P(EachFirmware, AnEmptyFolderRemovesEverythingOnlyWithYes) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    std::filesystem::create_directories(localFolder());
    const auto before = everything();
    const VeskResult refused = vesk({"sync", localFolder()});
    EXPECT_THAT(refused, ExitsWith(ExitCode::NeedsYes));
    EXPECT_THAT(refused.err, AllOf(HasSubstr("--yes"), HasSubstr("1 ringtone")));
    EXPECT_EQ(everything(), before);
    dryThenReal({"sync", localFolder(), "--yes"});
    EXPECT_THAT(listedNames(), IsEmpty());
    EXPECT_THAT(ringtoneFolder(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, EachFirmware,
                         ::testing::Values(Firmware{"1.0.0", false}, Firmware{"1.0.2", true},
                                           Firmware{"1.1.1", true}, Firmware{"1.1.2", false},
                                           Firmware{"1.1.3", false}));

} // namespace vesk::testing
