// A whole life of ringtones on each generation of firmware.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

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

    size_t filesOfType(const std::string& type) const {
        size_t count = 0;
        for (const std::string& name : ringtoneFolder()) {
            count += name.ends_with(type) ? 1U : 0U;
        }
        return count;
    }
};

} // namespace

TEST_P(EachFirmware, AddListRemoveAndSyncDoWhatTheDryRunSaid) {
    const size_t placeholders = GetParam().placeholders ? 1 : 0;

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

TEST_P(EachFirmware, AllIsRemovedOnlyWithYes) {
    ASSERT_THAT(vesk({"add", local("bells.mp3"), local("harp.m4r")}), ExitsWith(ExitCode::Success));
    const auto before = everything();
    const VeskResult refused = vesk({"remove", "--all"});
    EXPECT_THAT(refused, ExitsWith(ExitCode::NeedsYes));
    EXPECT_THAT(refused.err, AllOf(HasSubstr("--yes"), HasSubstr("all 2 ringtones")));
    EXPECT_EQ(everything(), before);
    dryThenReal({"remove", "--all", "--yes"});
    EXPECT_THAT(ringtoneFolder(), IsEmpty());
    EXPECT_EQ(vesk({"remove", "--all", "--json"}).json().at("result"), "nothing-to-do");
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("bells", "harp"));
}

TEST_F(VeskTest, MixedRingtonesOn111AreAcceptedByTheCheckAfterEachSync) {
    options.firmware = "1.1.1";
    plugIn();
    const auto isAccepted = [this] {
        return vesk({"check", onDisk(kCatalogue), "--json"}).json().at("accepted").get<bool>();
    };
    std::vector<std::string> arguments = {"add"};
    std::set<std::string> names;
    int number = 10;
    for (const char* type : {"wav", "m4r", "m4r", "wav", "aif", "mp3", "aif", "m4r", "mp3", "m4r",
                             "mp3", "aif", "aif", "aif"}) {
        const std::string name = "tone " + std::to_string(number++);
        arguments.push_back(local(name + "." + type, name));
        names.insert(name);
    }
    ASSERT_THAT(vesk(arguments), ExitsWith(ExitCode::Success));
    EXPECT_TRUE(isAccepted());
    ASSERT_THAT(vesk({"add", local("one more.mp3")}), ExitsWith(ExitCode::Success));
    EXPECT_TRUE(isAccepted());
    ASSERT_THAT(vesk({"remove", "one more"}), ExitsWith(ExitCode::Success));
    EXPECT_TRUE(isAccepted());
    EXPECT_EQ(listedNames(), names);
}

INSTANTIATE_TEST_SUITE_P(Table, EachFirmware,
                         ::testing::Values(Firmware{"1.0.0", false}, Firmware{"1.0.2", true},
                                           Firmware{"1.1.1", true}, Firmware{"1.1.2", false},
                                           Firmware{"1.1.3", false}));

/// A phone that was updated from firmware with placeholders to firmware without.
class Updated : public VeskTest {
protected:
    void SetUp() override {
        options.firmware = "1.1.1";
        plugIn();
        local("bells.mp3", "the bells");
        local("tick.wav", "the tick");
        local("harp.m4r", "the harp");
        ASSERT_THAT(vesk({"sync", localFolder()}), ExitsWith(ExitCode::Success));
        ASSERT_EQ(ringtoneFolder().size(), 5U) << "two placeholders";
        put(std::string(kFolder) + "/notes.txt", "stray");
        bus().unplug(id());
        options.firmware = "1.1.3";
        plugIn();
    }

    void expectConverted(const std::map<std::string, std::string>& wanted) {
        std::map<std::string, std::string> now;
        std::set<std::string> files;
        const nlohmann::json list = vesk({"list", "--json"}).json();
        for (const auto& ringtone : list.at("ringtones")) {
            const auto file = ringtone.at("file").get<std::string>();
            now[ringtone.at("name").get<std::string>()] =
                contents(std::string(kFolder) + "/" + file);
            files.insert(file);
        }
        EXPECT_EQ(now, wanted);
        EXPECT_EQ(ringtoneFolder(), files) << "no placeholders, no stray files";
        size_t entries = 0;
        const std::string catalogue = contents(kCatalogue);
        for (auto at = catalogue.find("<key>GUID</key>"); at != std::string::npos;
             at = catalogue.find("<key>GUID</key>", at + 1)) {
            ++entries;
        }
        EXPECT_EQ(entries, wanted.size());
    }
};

TEST_F(Updated, ASyncOfTheSameFolderConvertsTheListAndLosesNothing) {
    log().clear();
    const VeskResult sync = vesk({"sync", localFolder(), "--json"});
    EXPECT_THAT(sync, ExitsWith(ExitCode::Success));
    EXPECT_EQ(sync.json().at("result"), "done");
    EXPECT_EQ(sync.json().at("uploadBytes"), 0);
    EXPECT_EQ(changesInLog(), changesIn(sync.json().at("operations")));
    EXPECT_THAT(sync.err, AllOf(HasSubstr("1 file in"), HasSubstr("notes.txt")));
    expectConverted({{"bells", "the bells"}, {"tick", "the tick"}, {"harp", "the harp"}});
    EXPECT_EQ(vesk({"sync", localFolder(), "--json"}).json().at("result"), "nothing-to-do");
}

TEST_F(Updated, AnAddedRingtoneConvertsItToo) {
    EXPECT_THAT(vesk({"add", local("horn.aiff", "the horn")}), ExitsWith(ExitCode::Success));
    expectConverted(
        {{"bells", "the bells"}, {"tick", "the tick"}, {"harp", "the harp"}, {"horn", "the horn"}});
}

TEST_F(Updated, ARemovalConvertsItToo) {
    EXPECT_THAT(vesk({"remove", "tick"}), ExitsWith(ExitCode::Success));
    expectConverted({{"bells", "the bells"}, {"harp", "the harp"}});
}

} // namespace vesk::testing
