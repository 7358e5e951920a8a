// The loader, with the real shared objects in folders of their own, each in a process of its own.

#include "tests/support/VirtualPhoneFixture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace krl::provider::testing {
namespace {

namespace fs = std::filesystem;

class Loader : public ::testing::Test {
protected:
    // With what it looks for in its own folder.
    Loader() {
        copyTo(KRL_LIBRARY, "");
        copyTo(KRL_COREFOUNDATION, "");
    }

    // Puts a shared object where the library stands, or in a folder there.
    void copyTo(const std::string& file, const std::string& place) {
        const fs::path target = folder_.path() / place;
        fs::create_directories(
            target.has_filename() && place.ends_with(".so") ? target.parent_path() : target);
        fs::copy(file, place.ends_with(".so") ? target : target / fs::path(file).filename());
    }

    // What the probe says after loading the library.
    std::string probe(const std::string& program = KRL_PROBE) {
        const std::string command =
            program + " " + (folder_.path() / fs::path(KRL_LIBRARY).filename()).string();
        const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
        std::array<char, 256> line{};
        return pipe && std::fgets(line.data(), line.size(), pipe.get()) ? line.data() : "";
    }

    const fs::path& folder() const { return folder_.path(); }

private:
    virtualphone::testing::TemporaryFolder folder_;
};

constexpr const char* kAll = "assigned 38 of 38, connect says 64\n";
constexpr const char* kNone = "assigned 0 of 38\n";

TEST_F(Loader, FillsAllFunctionsFromTheProviderBesideTheLibrary) {
    copyTo(KRL_PROVIDER, "");
    EXPECT_EQ(probe(), kAll);
}

TEST_F(Loader, FillsAllFunctionsFromTheFolderBelow) {
    copyTo(KRL_PROVIDER, "KRLVesk/MobileDevice.so");
    EXPECT_EQ(probe(), kAll);
}

TEST_F(Loader, LeavesAllFunctionsNullWithoutAProvider) {
    EXPECT_EQ(probe(), kNone);
}

TEST_F(Loader, LeavesAllFunctionsNullWhenTheProviderIsNoLibrary) {
    std::ofstream(folder() / "MobileDevice.so") << "not a shared object";
    EXPECT_EQ(probe(), kNone);
}

TEST_F(Loader, LooksBelowWhenTheOneBesideIsOfNoUse) {
    std::ofstream(folder() / "MobileDevice.so") << "not a shared object";
    copyTo(KRL_PROVIDER, "KRLVesk/MobileDevice.so");
    EXPECT_EQ(probe(), kAll);
}

// Providers that are whole but for one thing, which the name tells.
class UnfitProvider : public Loader, public ::testing::WithParamInterface<const char*> {};

TEST_P(UnfitProvider, IsRefused) {
    copyTo(KRL_UNFIT_PROVIDERS + std::string("/UnfitProvider") + GetParam() + ".so",
           "MobileDevice.so");
    EXPECT_EQ(probe(), kNone);
}

INSTANTIATE_TEST_SUITE_P(Provider, UnfitProvider,
                         ::testing::Values("LaterVersion", "EarlierVersion", "SmallerTable",
                                           "LargerTable", "NoTable", "NoTableFunction",
                                           "MissingFunction"),
                         [](const auto& param) { return std::string(param.param); });

TEST_F(Loader, TakesAProviderWithoutTheOptionalFunction) {
    copyTo(KRL_UNFIT_PROVIDERS + std::string("/UnfitProviderMissingOptionalFunction.so"),
           "MobileDevice.so");
    EXPECT_EQ(probe(), "assigned 37 of 38, connect says 4711\n");
}

TEST_F(Loader, LeavesFunctionsOfTheApplicationsOwnAloneAndFillsNone) {
    copyTo(KRL_PROVIDER, "");
    // The own variables of the library are hidden by those of the program; none of them is filled.
    EXPECT_EQ(probe(KRL_PREASSIGNED_PROBE), "assigned 0 of 38, connect says 815\n");
}

TEST_F(Loader, ReadsNothingFromTheEnvironment) {
    copyTo(KRL_PROVIDER, "elsewhere/MobileDevice.so");
    const std::string elsewhere = (folder() / "elsewhere").string();
    ::setenv("MOBILEDEVICE_PROVIDER", elsewhere.c_str(), 1);
    EXPECT_EQ(probe("cd " + elsewhere + " && " KRL_PROBE), kNone);
    ::unsetenv("MOBILEDEVICE_PROVIDER");
}

TEST(ProviderObject, ExportsExactlyOneFunction) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(
        ::popen("nm --dynamic --defined-only --format=posix " KRL_PROVIDER, "r"), ::pclose);
    ASSERT_TRUE(pipe);
    std::string names;
    std::array<char, 256> line{};
    while (std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
        const std::string text = line.data();
        names += text.substr(0, text.find(' ')) + "\n";
    }
    EXPECT_EQ(names, "MobileDeviceProviderTable\n");
}

} // namespace
} // namespace krl::provider::testing
