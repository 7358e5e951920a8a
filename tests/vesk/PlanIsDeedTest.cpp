// Random phones and random commands: what a dry run says is what happens on the phone, item by
// item.
#include "tests/vesk/VeskTest.h"

#include "engine/phones/MutedStandardError.h"
#include "vesk/commands/Commands.h"

#include <gmock/gmock.h>

#include <array>
#include <random>

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kShards = 8;
#ifdef __SANITIZE_ADDRESS__
constexpr unsigned kScenarios = 400;
#elif defined(__SANITIZE_THREAD__)
constexpr unsigned kScenarios = 400;
#else
constexpr unsigned kScenarios = 2000;
#endif

/// Draws; the same seed draws the same on every machine.
class Dice {
public:
    explicit Dice(uint64_t seed) : engine_(seed) {}

    /// Below the limit.
    size_t below(size_t limit) { return engine_() % limit; }

    /// So many times in a hundred.
    bool percent(size_t chance) { return below(100) < chance; }

    template <typename T, size_t N>
    const T& oneOf(const std::array<T, N>& list) {
        return list[below(N)];
    }

private:
    std::mt19937_64 engine_;
};

constexpr std::array kFirmwares{"1.0.0", "1.0.2", "1.1.1", "1.1.2", "1.1.3"};
constexpr std::array kTypes{"m4r", "m4r", "m4r", "mp3", "mp3", "m4a", "m4p", "wav", "aif", "aiff"};
constexpr std::array kNames{
    "Marimba",   "Harp",
    "Horn",      "Tick & Tock <1>",
    "Glöckchen", "Sunrise 🌅",
    "日本語",    "e\u0301",
    "\u00e9",    "  spaces  ",
    "a.b.c",     "'quoted' \"twice\"",
    "list",      "A very long name that goes on and on and on and on and on"};
constexpr std::array kBases{"KDAQ",     "BQJH",       "QJHE",  "AAAA",      "x",     "Longtone1",
                            "Longname", "a long one", "Glöck", "a.b.c.d.e", "🌅",     "UPPER",
                            "QQQQ",     "RRRR",       "IPHO",  ".hidden",   "ABCDE", "ABCDEFGH"};

std::string forXml(const std::string& text) {
    std::string result;
    for (const char character : text) {
        result += character == '&'   ? "&amp;"
                  : character == '<' ? "&lt;"
                                     : std::string(1, character);
    }
    return result;
}

/// A command line, less its options.
struct CommandLine {
    decltype(&runSync) run = runSync;
    std::vector<std::string> arguments;
    std::optional<std::string> name;
};

/// What came of a command.
struct Outcome {
    ExitCode code = ExitCode::Success;
    nlohmann::json document;

    nlohmann::json operations() const { return document.value("operations", nlohmann::json{}); }
};

bool isRefusal(ExitCode code) {
    return code != ExitCode::Success && code != ExitCode::NotAsWanted;
}

class PlanIsDeed : public VeskTest, public ::testing::WithParamInterface<unsigned> {
protected:
    /// A phone as other software, other firmware and accidents may have left it.
    void makePhone(Dice& dice, unsigned scenario) {
        options = {};
        options.root = temporaryFolder() / ("phone" + std::to_string(scenario));
        options.firmware = dice.oneOf(kFirmwares);
        virtualPhone_ = std::make_shared<virtualphone::Phone>(options);
        names_.clear();
        makeCatalogue(dice);
        for (size_t strays = dice.below(4); strays > 1; --strays) {
            put(onFolder(dice.oneOf(kBases) + std::string(dice.percent(50) ? ".m4r" : "")),
                dice.percent(30) ? "" : "stray");
        }
        virtualPhone_->setFreeBytes(uint64_t{1} << 30U);
        virtualPhoneId_ = bus().plug(virtualPhone_);
    }

    void makeCatalogue(Dice& dice) {
        if (dice.percent(10)) {
            return;
        }
        if (dice.percent(4)) {
            put(kCatalogue, dice.percent(50) ? "no property list" : "<plist><dict/></plist>");
            return;
        }
        std::string text = "<plist version=\"1.0\"><dict><key>Ringtones</key><dict>";
        for (size_t entries = dice.below(9); entries > 0; --entries) {
            text += entry(dice, "GUID" + std::to_string(dice.percent(15) ? 0 : entries));
        }
        put(kCatalogue, text + "</dict></dict></plist>");
    }

    /// An entry of the catalogue, with its file, and perhaps a placeholder.
    std::string entry(Dice& dice, const std::string& guid) {
        const std::string base = dice.oneOf(kBases);
        const std::string type = dice.oneOf(kTypes);
        const std::string name = dice.oneOf(kNames);
        const std::string file = base + "." + type;
        if (dice.percent(3)) {
            return "<key>" + file + "</key><string>damaged</string>";
        }
        if (!dice.percent(10)) {
            put(onFolder(file), dice.percent(5) ? "" : std::string(1 + dice.below(2000), 'p'));
        }
        names_.push_back(name);
        std::string keys = "<key>GUID</key><string>" + guid + "</string>";
        if (!dice.percent(3)) {
            keys += "<key>Name</key><string>" + forXml(name) + "</string>";
        }
        const std::string placeholderKeys = keys;
        if (!dice.percent(5)) {
            keys += "<key>LocalPath</key><string>/music/" + forXml(name) + "</string>";
        }
        if (dice.percent(50)) {
            keys += "<key>TrackID</key><integer>7</integer>";
        }
        std::string text = "<key>" + file + "</key><dict>" + keys + "</dict>";
        if (type != "m4r" && dice.percent(60)) {
            text += "<key>" + base + ".m4r</key><dict>" + placeholderKeys + "</dict>";
            if (dice.percent(90)) {
                put(onFolder(base + ".m4r"), "");
            }
        }
        return text;
    }

    static std::string onFolder(const std::string& file) {
        return std::string(kFolder) + "/" + file;
    }

    /// Files on this computer; none has another's name.
    std::vector<std::string> makeFiles(Dice& dice, const std::string& folder, size_t most) {
        fs::create_directories(folder);
        std::set<std::string> taken;
        std::vector<std::string> paths;
        for (size_t files = dice.below(most + 1); files > 0; --files) {
            const std::string name = dice.oneOf(kNames);
            if (taken.insert(name).second) {
                const fs::path path = fs::path(folder) / (name + "." + dice.oneOf(kTypes));
                std::ofstream(path, std::ios::binary) << std::string(1 + dice.below(3000), 'c');
                paths.push_back(path.string());
            }
        }
        return paths;
    }

    CommandLine makeCommand(Dice& dice, const std::string& folder) {
        const size_t kind = dice.below(4);
        if (kind == 0 && !names_.empty()) {
            std::set<std::string> removed;
            for (size_t names = 1 + dice.below(3); names > 0; --names) {
                removed.insert(names_[dice.below(names_.size())]);
            }
            return {runRemove, {removed.begin(), removed.end()}, {}};
        }
        const auto files = makeFiles(dice, folder, kind == 1 ? 3 : 8);
        if (kind == 1 && !files.empty()) {
            const bool named = files.size() == 1 && dice.percent(50);
            return {runAdd, files, named ? std::optional(std::string("Neu 🎵")) : std::nullopt};
        }
        return {runSync, {folder}, {}};
    }

    Outcome run(const CommandLine& line, bool dryRun, bool force) {
        Options asked;
        asked.json = true;
        asked.quiet = true;
        asked.dryRun = dryRun;
        asked.force = force;
        asked.yes = true;
        asked.noBackup = !isKept_;
        asked.rebuild = isRebuilt_;
        asked.phone.udid = virtualPhone_->udid();
        asked.arguments = line.arguments;
        asked.name = line.name;
        asked.recipe.treatment = krl::audio::Treatment::Unchecked; // the files hold no sound
        Outcome outcome;
        const MutedStandardError muted;
        ::testing::internal::CaptureStdout();
        Output output({.json = true, .quiet = true});
        try {
            outcome.code = line.run(asked, output);
        } catch (const Failure& failure) {
            outcome.code = exitCodeOf(failure.kind());
            message_ = failure.what();
        }
        output.flush();
        const std::string text = ::testing::internal::GetCapturedStdout();
        if (!text.empty()) {
            outcome.document = nlohmann::json::parse(text);
        }
        return outcome;
    }

    /// The command and what it changed on the phone.
    Outcome runWatched(const CommandLine& line, bool force, std::vector<std::string>& changes) {
        log().clear();
        const Outcome outcome = run(line, /*dryRun=*/false, force);
        changes = changesInLog();
        return outcome;
    }

    void expectRefused(const CommandLine& line, ExitCode code) {
        std::vector<std::string> changes;
        EXPECT_EQ(runWatched(line, false, changes).code, code) << message_;
        EXPECT_THAT(changes, IsEmpty()) << "refused, and yet something was written";
    }

    void expectPlanIsDeed(Dice& dice, const CommandLine& line) {
        bool force = false;
        Outcome planned = run(line, /*dryRun=*/true, force);
        if (isRefusal(planned.code)) {
            expectRefused(line, planned.code);
            const bool canBeForced = planned.code == ExitCode::CatalogueUnreadable ||
                                     planned.code == ExitCode::WouldLoseRingtones;
            if (!canBeForced) {
                return;
            }
            force = true;
            planned = run(line, /*dryRun=*/true, force);
            if (isRefusal(planned.code)) {
                return;
            }
        }
        ASSERT_EQ(planned.code, ExitCode::Success) << message_;
        const auto needed = planned.document.at("spaceNeeded").get<uint64_t>();
        if (needed > 0 && !force && dice.percent(25)) {
            virtualPhone_->setFreeBytes(needed - 1);
            expectRefused(line, ExitCode::NoSpace);
        }
        virtualPhone_->setFreeBytes(needed);
        std::vector<std::string> changes;
        const Outcome done = runWatched(line, force, changes);
        EXPECT_FALSE(isRefusal(done.code)) << message_;
        EXPECT_EQ(done.code, ExitCode::Success) << message_;
        EXPECT_EQ(changes, changesIn(planned.operations())) << planned.document.dump(1);
        if (done.code == ExitCode::Success) {
            ++carriedOut_;
            EXPECT_EQ(done.operations(), planned.operations());
            if (dice.percent(20)) {
                EXPECT_EQ(namesOnPhone(), planned.document.at("ringtones"));
            }
            expectNothingLeftToDo(line);
        }
    }

    /// As vesk list shows them.
    nlohmann::json namesOnPhone() {
        const Outcome list = run({runList, {}, {}}, /*dryRun=*/false, /*force=*/false);
        nlohmann::json names = nlohmann::json::array();
        for (const auto& ringtone : list.document.at("ringtones")) {
            names.push_back(ringtone.at("name"));
        }
        return names;
    }

    void expectNothingLeftToDo(const CommandLine& line) {
        if (line.run != runSync) {
            return;
        }
        std::vector<std::string> changes;
        const Outcome again = runWatched(line, /*force=*/false, changes);
        EXPECT_EQ(again.code, ExitCode::Success) << message_;
        EXPECT_THAT(changes, IsEmpty());
        EXPECT_EQ(again.document.value("result", ""), "nothing-to-do") << again.document.dump(1);
    }

    void removePhone() {
        bus().unplug(virtualPhoneId_);
        virtualPhone_.reset();
        fs::remove_all(options.root);
    }

    std::shared_ptr<virtualphone::Phone> virtualPhone_;
    uint32_t virtualPhoneId_ = 0;
    std::vector<std::string> names_; ///< that the catalogue has
    std::string message_;            ///< of the last failure
    bool isKept_ = false;            ///< the safe is at work, which takes its time
    bool isRebuilt_ = false;         ///< what is not listed is listed again
    unsigned carriedOut_ = 0;
};

} // namespace

TEST_P(PlanIsDeed, InRandomScenarios) {
    constexpr unsigned kEach = kScenarios / kShards;
    for (unsigned i = 0; i < kEach; ++i) {
        const unsigned seed = GetParam() * kEach + i;
        SCOPED_TRACE("seed " + std::to_string(seed));
        Dice dice(seed);
        isKept_ = seed % 10 == 0;
        isRebuilt_ = seed % 20 == 0;
        makePhone(dice, seed);
        const std::string folder = (temporaryFolder() / ("music" + std::to_string(seed))).string();
        expectPlanIsDeed(dice, makeCommand(dice, folder));
        removePhone();
        if (HasFailure()) {
            break;
        }
    }
    std::cout << kEach << " scenarios, " << carriedOut_ << " of them carried out\n";
    EXPECT_GT(carriedOut_, kEach / 2);
}

INSTANTIATE_TEST_SUITE_P(Shard, PlanIsDeed, ::testing::Range(0U, kShards));

} // namespace vesk::testing
