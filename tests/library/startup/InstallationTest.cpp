// The real library in a folder of its own, with the real unpacker and archive, for a user whose
// home is a temporary folder; each time in a process of its own.

#include "tests/library/startup/BinaryPlist.h"
#include "tests/support/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <unistd.h>

namespace krl::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using vesk::testing::VeskProcess;
using vesk::testing::VeskResult;

constexpr char kAtFirst[] = "com.korvane.vesk";
constexpr char kUnzipFailed[] = "com.korvane.vesk.unzipFailed";
constexpr char kNoArchive[] = "com.korvane.vesk.noPathFilePath";

std::string informationWith(const std::string& key, const std::string& version) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>)" + key +
           "</key><string>" + version + "</string></dict></plist>";
}

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string said(const char* call, int result, int open, const std::string& domain) {
    return std::string(call) + "=" + std::to_string(result) + " open=" + std::to_string(open) +
           " domain=" + domain + "\n";
}

class Installation : public ::testing::Test {
protected:
    Installation() { copyLibrary("lib"); }

    /// The library with its resources in a folder of this name.
    void copyLibrary(const std::string& name) {
        libraryFolder_ = temporary_.path() / name;
        fs::create_directories(libraryFolder_);
        fs::copy_file(KRL_LIBRARY, library());
        fs::copy(KRL_SHIPPED_RESOURCES, resources());
    }

    fs::path library() const { return libraryFolder_ / "libKRLVesk.so"; }

    fs::path resources() const { return libraryFolder_ / "KRLVesk.resources"; }

    fs::path home() const { return temporary_.path() / homeName; }

    fs::path plugins() const { return home() / "Library/iTunes/iTunes Plug-ins"; }

    fs::path bundle() const { return plugins() / "HarlixSupport.bundle"; }

    fs::path temporary() const { return temporary_.path(); }

    void require(const std::string& version) {
        write(resources() / "Info.plist", informationWith("HxSupportVersionNumber", version));
    }

    /// A plug-in with nothing but a version and a file to know it by.
    void putInstalled(const std::string& version) {
        write(bundle() / "Contents/Info.plist", informationWith("CFBundleVersion", version));
        write(bundle() / "mine", "mine");
    }

    /// The plug-in that was put there is still there.
    bool isUntouched() const { return fs::exists(bundle() / "mine"); }

    /// The one from the archive is there, and nothing of another.
    bool isUnpacked() const {
        return fs::exists(bundle() / "Contents/Info.plist") &&
               access((bundle() / "Contents/Linux/HarlixSupport").c_str(), X_OK) == 0 &&
               !isUntouched();
    }

    VeskResult probe(std::vector<std::string> calls) const {
        fs::create_directories(home());
        calls.insert(calls.begin(), library().string());
        return VeskProcess(calls, {.environment = {{"HOME", home().string()}},
                                   .program = KRL_STARTUP_PROBE})
            .wait();
    }

    std::string homeName = "home";

private:
    TemporaryFolder temporary_;
    fs::path libraryFolder_;
};

TEST_F(Installation, UnpacksAPluginThatIsAbsent) {
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
}

TEST_F(Installation, UnpacksAlsoInAnApplicationThatIgnoresItsChildren) {
    EXPECT_EQ(probe({"ignore", "connect", "init", "init"}).out,
              said("init", 2, 1, kAtFirst) + said("init", 1, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
}

TEST_F(Installation, LeavesAPluginThatItHasUnpackedBefore) {
    EXPECT_EQ(probe({"connect", "init", "init"}).out,
              said("init", 2, 1, kAtFirst) + said("init", 1, 1, kAtFirst));
}

TEST_F(Installation, WithoutTheDeviceFunctionsThePluginIsNotTouched) {
    EXPECT_EQ(probe({"init", "light", "valid"}).out, said("init", 0, 0, kAtFirst) +
                                                         said("light", 0, 0, kAtFirst) +
                                                         said("valid", 0, 0, kAtFirst));
    EXPECT_TRUE(fs::is_empty(home()));
}

TEST_F(Installation, AMissingFrameworkFolderClearsTheFlagUntilTheFunctionsAreThere) {
    EXPECT_EQ(
        probe({"connect", "light", "disconnect", "light", "connect", "light", "disconnect", "init"})
            .out,
        said("light", 1, 1, kAtFirst) + said("light", 0, 0, kAtFirst) +
            said("light", 1, 1, kAtFirst) + said("init", 0, 0, kAtFirst));
}

TEST_F(Installation, LightStartUpDoesNoPluginWork) {
    EXPECT_EQ(probe({"connect", "light", "valid"}).out,
              said("light", 1, 1, kAtFirst) + said("valid", 1, 1, kAtFirst));
    EXPECT_TRUE(fs::is_empty(home()));
}

struct Versions {
    const char* required;
    const char* installed;
    bool isCurrent;
};

const Versions kVersions[] = {
    {"2.1", "2.1", true},        {"2.1", "2.1.0", true},
    {"2.1", "2.2", true},        {"2.1", "3.1", true},
    {"1.0.5", "1.1.0", false}, // patch 0 < 5
    {"1.2.0", "2.0.0", false}, // minor 0 < 2
    {"2.1", "1.9.9", false},     {"2.1.3", "2.1.2", false},
    {"2.1.3", "2.1.3.9", false}, // four parts: no patch
    {"2.1.3.4", "2.1", true},    {"2", "2", true},
    {"2.1", "2", false},         {"2.1", "", false},
    {"2.1", "new", false},       {"", "0.0", true},
};

TEST_F(Installation, ComparesVersionsPartByPart) {
    for (const Versions& row : kVersions) {
        SCOPED_TRACE(std::string("required ") + row.required + ", installed " + row.installed);
        require(row.required);
        fs::remove_all(home());
        putInstalled(row.installed);
        EXPECT_EQ(probe({"connect", "init"}).out, said("init", row.isCurrent ? 1 : 2, 1, kAtFirst));
        EXPECT_EQ(isUntouched(), row.isCurrent);
        EXPECT_EQ(isUnpacked(), !row.isCurrent);
    }
}

TEST_F(Installation, WithoutARequiredVersionAnyPluginIsCurrentAndAnAbsentOneIsInstalled) {
    write(resources() / "Info.plist", "no property list");
    putInstalled("0.0");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 1, 1, kAtFirst));
    fs::remove_all(home());
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    fs::remove(resources() / "Info.plist");
    putInstalled("0.0");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 1, 1, kAtFirst));
}

TEST_F(Installation, AnInstalledVersionThatCannotBeReadCountsAsNone) {
    putInstalled("9.9.9");
    write(bundle() / "Contents/Info.plist", "<plist><array/></plist>");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
}

TEST_F(Installation, AnInstalledVersionMayStandInABinaryPropertyList) {
    require("2.1");
    for (const bool isCurrent : {true, false}) {
        putInstalled("");
        write(bundle() / "Contents/Info.plist",
              binaryOf(informationPlist("CFBundleVersion", isCurrent ? "3.1" : "1.9")));
        EXPECT_EQ(probe({"connect", "init"}).out, said("init", isCurrent ? 1 : 2, 1, kAtFirst));
        EXPECT_EQ(isUntouched(), isCurrent);
    }
}

TEST_F(Installation, AFileInThePluginsPlaceIsReplaced) {
    write(bundle(), "a file");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
}

TEST_F(Installation, OfALinkInThePluginsPlaceTheLinkAloneIsRemoved) {
    write(temporary() / "elsewhere/Contents/Info.plist", informationWith("CFBundleVersion", "1.0"));
    fs::create_directories(plugins());
    fs::create_symlink(temporary() / "elsewhere", bundle());
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
    EXPECT_FALSE(fs::is_symlink(bundle()));
    EXPECT_TRUE(fs::exists(temporary() / "elsewhere/Contents/Info.plist"));
}

TEST_F(Installation, OtherPluginsStay) {
    write(plugins() / "Other.bundle/Contents/Info.plist", "other");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 2, 1, kAtFirst));
    EXPECT_TRUE(fs::exists(plugins() / "Other.bundle/Contents/Info.plist"));
}

TEST_F(Installation, PathsMayHaveSpacesAndAnyLetters) {
    copyLibrary("Bücher & [Töne] 日本 \"x\" $HOME; *");
    homeName = "Jörg Müller's [home] ✓ $(x) *";
    EXPECT_EQ(probe({"connect", "init", "init"}).out,
              said("init", 2, 1, kAtFirst) + said("init", 1, 1, kAtFirst));
    EXPECT_TRUE(isUnpacked());
}

TEST_F(Installation, ResourcesAreFoundThroughALinkToTheLibrary) {
    const fs::path link = temporary() / "link.so";
    fs::create_symlink(library(), link);
    fs::create_directories(home());
    const VeskResult result =
        VeskProcess({link.string(), "connect", "init"},
                    {.environment = {{"HOME", home().string()}}, .program = KRL_STARTUP_PROBE})
            .wait();
    EXPECT_EQ(result.out, said("init", 2, 1, kAtFirst));
}

TEST_F(Installation, AMissingArchiveHasItsOwnDomainAndTheOldPluginStays) {
    fs::remove(resources() / "HarlixSupport.zip");
    putInstalled("1.0");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 0, 1, kNoArchive));
    EXPECT_TRUE(isUntouched());
}

TEST_F(Installation, WithoutResourcesAnAbsentPluginCannotBeInstalled) {
    fs::remove_all(resources());
    EXPECT_EQ(probe({"connect", "init", "valid"}).out,
              said("init", 0, 1, kNoArchive) + said("valid", 1, 1, kNoArchive));
}

TEST_F(Installation, ABrokenArchiveFailsAndLeavesNoPlugin) {
    write(resources() / "HarlixSupport.zip", "this is no archive");
    putInstalled("1.0");
    const VeskResult result = probe({"connect", "init", "valid"});
    EXPECT_EQ(result.out, said("init", 0, 1, kUnzipFailed) + said("valid", 1, 1, kUnzipFailed));
    EXPECT_FALSE(fs::exists(bundle()));
    EXPECT_THAT(result.err, HasSubstr("HarlixSupport.zip"));
}

TEST_F(Installation, AFolderWithoutPermissionFails) {
    fs::create_directories(plugins());
    fs::permissions(plugins(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(probe({"obey", "connect", "init"}).out, said("init", 0, 1, kUnzipFailed));
    fs::permissions(plugins(), fs::perms::owner_all);
    EXPECT_TRUE(fs::is_empty(plugins()));
}

TEST_F(Installation, AFileInAFoldersPlaceFails) {
    write(home() / "Library", "a file");
    EXPECT_EQ(probe({"connect", "init"}).out, said("init", 0, 1, kUnzipFailed));
    EXPECT_TRUE(fs::is_regular_file(home() / "Library"));
}

} // namespace
} // namespace krl::testing
