// Ringtones that get another name or another file, on each generation of firmware.
#include "tests/vesk/VeskTest.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using testing::AnyOf;
using testing::EndsWith;

namespace vesk::testing {
namespace {

class Renaming : public VeskTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        options.name = "My Phone";
        options.firmware = GetParam();
        plugIn();
        ASSERT_THAT(vesk({"add", local("bells.mp3", "the bells"), local("harp.m4r", "the harp"),
                          local("tick.wav", "the tick"), "--no-backup"}),
                    ExitsWith(ExitCode::Success));
    }

    /// Everything but the file that every sync locks.
    std::map<std::string, std::string> everything() const {
        auto all = VeskTest::everything();
        all.erase(onDisk("/com.apple.itunes.lock_sync").string());
        return all;
    }

    struct Tone {
        std::string guid;
        std::string file;
        std::string contents;

        friend bool operator==(const Tone&, const Tone&) = default;
    };

    /// What the phone's catalogue lists, as a load of it says.
    std::map<std::string, Tone> tones() const {
        std::map<std::string, Tone> tones;
        const nlohmann::json list = vesk({"list", "--json"}).json();
        for (const auto& one : list.at("ringtones")) {
            const auto file = one.at("file").get<std::string>();
            tones[one.at("name").get<std::string>()] = {
                one.at("guid").get<std::string>(), file,
                contents(std::string(kFolder) + "/" + file)};
        }
        return tones;
    }

    /// How often a text stands in the catalogue.
    size_t inCatalogue(const std::string& text) const {
        const std::string catalogue = contents(kCatalogue);
        size_t count = 0;
        for (auto at = catalogue.find(text); at != std::string::npos;
             at = catalogue.find(text, at + 1)) {
            ++count;
        }
        return count;
    }

    bool hasPlaceholders() const {
        return options.firmware == "1.0.2" || options.firmware == "1.1.1";
    }

    std::string other(const std::string& name, const std::string& contents) const {
        const std::filesystem::path folder = temporaryFolder() / "other";
        std::filesystem::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << contents;
        return (folder / name).string();
    }

    bool isAcceptedBy111() {
        return vesk({"check", onDisk(kCatalogue), "--json"}).json().at("accepted").get<bool>();
    }
};

} // namespace

TEST_P(Renaming, KeepsFileAndGuidAndSendsNoFile) {
    const auto before = tones();
    const nlohmann::json result = dryThenReal({"rename", "bells", "Die Glöckchen"}).json();
    EXPECT_EQ(result.at("result"), "done");
    EXPECT_EQ(result.at("uploadBytes"), 0);
    EXPECT_EQ(result.at("renamed"), (nlohmann::json{{{"from", "bells"}, {"to", "Die Glöckchen"}}}));
    auto wanted = before;
    auto node = wanted.extract("bells");
    node.key() = "Die Glöckchen";
    wanted.insert(std::move(node));
    EXPECT_EQ(tones(), wanted);
    EXPECT_EQ(inCatalogue(">bells<"), 0U);
    EXPECT_EQ(inCatalogue(">Die Glöckchen<"), hasPlaceholders() ? 2U : 1U)
        << "its own entry and that of its placeholder";
    EXPECT_EQ(ringtoneFolder().size(), hasPlaceholders() ? 5U : 3U);
    EXPECT_TRUE(!hasPlaceholders() || isAcceptedBy111());
}

TEST_P(Renaming, EachOfManyInTurnKeepsAllTheOthers) {
    std::vector<std::string> add{"add", "--no-backup"};
    for (int i = 10; i < 24; ++i) {
        add.push_back(local(fmt::format("tone {}.{}", i, i % 3 == 0 ? "m4r" : "mp3"),
                            fmt::format("sound {}", i)));
    }
    ASSERT_THAT(vesk(add), ExitsWith(ExitCode::Success));
    const auto contentsByGuid = [&] {
        std::map<std::string, std::string> result;
        for (const auto& [name, tone] : tones()) {
            result[tone.guid] = tone.contents;
        }
        return result;
    };
    const auto before = contentsByGuid();
    for (int i = 10; i < 24; i += 2) {
        ASSERT_THAT(vesk({"rename", fmt::format("tone {}", i), fmt::format("{} renamed", i)}),
                    ExitsWith(ExitCode::Success));
        ASSERT_EQ(contentsByGuid(), before);
        ASSERT_TRUE(!hasPlaceholders() || isAcceptedBy111());
    }
    EXPECT_EQ(tones().count("10 renamed"), 1U);
}

TEST_P(Renaming, IsUndoneByteForByteAndStandsInTheHistory) {
    const auto before = everything();
    ASSERT_THAT(vesk({"rename", "tick", "Tick Tock"}), ExitsWith(ExitCode::Success));
    const nlohmann::json job = vesk({"history", "--json"}).json().at("jobs").at(0);
    EXPECT_EQ(job.at("command"), "rename");
    EXPECT_EQ(job.at("changes").at("renamed"),
              (nlohmann::json{{{"from", "tick"}, {"to", "Tick Tock"}}}));
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_P(Renaming, ThatIsBrokenOffIsPutRightByTheNextJob) {
    const auto before = tones();
    for (const char* fault : {"afc/Open#1=unplug", "afc/Write#1=unplug"}) {
        SCOPED_TRACE(fault);
        phone().faults().add(virtualphone::parseFault(fault));
        vesk({"rename", "bells", "Other"});
        phone().faults().clear();
        replug();
        ASSERT_THAT(vesk({"rename", "harp", "Harp 2"}), ExitsWith(ExitCode::Success));
        ASSERT_THAT(vesk({"rename", "Harp 2", "harp"}), ExitsWith(ExitCode::Success));
        for (const auto& [name, tone] : tones()) {
            EXPECT_THAT(name, AnyOf(std::string("bells"), std::string("harp"), std::string("tick"),
                                    std::string("Other")));
            EXPECT_EQ(tone.contents, before.at(name == "Other" ? "bells" : name).contents);
        }
        ASSERT_EQ(tones().size(), 3U);
        if (tones().contains("Other")) {
            ASSERT_THAT(vesk({"rename", "Other", "bells"}), ExitsWith(ExitCode::Success));
        }
    }
}

TEST_P(Renaming, RefusesWhatCannotBe) {
    const auto before = everything();
    const VeskResult taken = vesk({"rename", "bells", "harp"});
    EXPECT_THAT(taken, ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(taken.err, HasSubstr("already has \"harp\""));
    const VeskResult missing = vesk({"rename", "bell", "x"});
    EXPECT_THAT(missing, ExitsWith(ExitCode::NameNotFound));
    EXPECT_THAT(missing.err, HasSubstr("did you mean \"bells\""));
    EXPECT_THAT(vesk({"rename", "bells", "a\x01z"}), ExitsWith(ExitCode::BadName));
    EXPECT_THAT(vesk({"rename", "bells", ""}), ExitsWith(ExitCode::BadName));
    EXPECT_THAT(vesk({"rename", "bells"}), ExitsWith(ExitCode::Usage));
    EXPECT_THAT(vesk({"rename", "bells", "a", "b"}), ExitsWith(ExitCode::Usage));
    EXPECT_EQ(vesk({"rename", "bells", "bells", "--json"}).json().at("result"), "nothing-to-do");
    EXPECT_EQ(everything(), before);
}

TEST_P(Renaming, OfOneThatOnlyCaseTellsFromAnotherIsNoRenamingOfThatOne) {
    const auto before = tones();
    ASSERT_THAT(vesk({"rename", "bells", "HARP"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(tones().at("HARP"), before.at("bells"));
    EXPECT_EQ(tones().at("harp"), before.at("harp"));
}

TEST_P(Renaming, PutsAPhoneRightFirstThatWouldLoseRingtones) {
    putRingtones({{"KDAQ.m4r", "Twin", "1"}, {"QJHE.m4r", "Twin", "2"}, {"BQJH.m4r", "C", "3"}});
    const VeskResult result = vesk({"rename", "C", "D"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ElementsAre("D", "Twin", "Twin (2)"));
    EXPECT_EQ(tones().at("D").guid, "3");
}

TEST_P(Renaming, AReplacementKeepsNameAndGuidAndNothingOfTheOldFile) {
    const auto before = tones();
    const nlohmann::json result =
        dryThenReal({"replace", "bells", other("new.m4r", "new bells")}).json();
    EXPECT_EQ(result.at("result"), "done");
    const auto after = tones();
    ASSERT_EQ(after.size(), 3U);
    EXPECT_EQ(after.at("bells").guid, before.at("bells").guid);
    EXPECT_EQ(after.at("bells").contents, "new bells");
    EXPECT_THAT(after.at("bells").file, EndsWith(".m4r"));
    EXPECT_THAT(ringtoneFolder(), Not(Contains(before.at("bells").file)));
    EXPECT_EQ(after.at("harp").contents, "the harp");
    EXPECT_EQ(after.at("tick").contents, "the tick");
    EXPECT_EQ(ringtoneFolder().size(), hasPlaceholders() ? 4U : 3U);
    EXPECT_TRUE(!hasPlaceholders() || isAcceptedBy111());
}

TEST_P(Renaming, AReplacementByAFileOfTheSameSizeAndTypeIsMadeToo) {
    const auto before = tones();
    const VeskResult result = vesk({"replace", "bells", other("new.mp3", "THE BELLS")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("1 replaced"));
    EXPECT_EQ(tones().at("bells").contents, "THE BELLS");
    EXPECT_EQ(tones().at("bells").guid, before.at("bells").guid);
}

TEST_P(Renaming, AReplacementIsUndoneByteForByte) {
    const auto before = everything();
    ASSERT_THAT(vesk({"replace", "tick", other("new.wav", "tock")}), ExitsWith(ExitCode::Success));
    const nlohmann::json job = vesk({"history", "--json"}).json().at("jobs").at(0);
    EXPECT_EQ(job.at("command"), "replace");
    EXPECT_EQ(job.at("changes").at("replaced"), nlohmann::json({"tick"}));
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_P(Renaming, AReplacementNeedsARingtoneAndAFile) {
    const auto before = everything();
    const VeskResult missing = vesk({"replace", "bell", other("new.m4r", "x")});
    EXPECT_THAT(missing, ExitsWith(ExitCode::NameNotFound));
    EXPECT_THAT(missing.err, HasSubstr("did you mean \"bells\""));
    EXPECT_THAT(vesk({"replace", "bells", "/nowhere.m4r"}), ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(vesk({"replace", "bells", other("new.ogg", "x")}),
                ExitsWith(ExitCode::UnsupportedType));
    EXPECT_THAT(vesk({"replace", "bells"}), ExitsWith(ExitCode::Usage));
    EXPECT_EQ(everything(), before);
}

INSTANTIATE_TEST_SUITE_P(Firmware, Renaming, ::testing::Values("1.0.0", "1.0.2", "1.1.1", "1.1.4"));

} // namespace vesk::testing
