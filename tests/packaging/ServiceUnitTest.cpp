// The service that runs vesk watch --sync, as systemd reads it.
#include "tests/support/Process.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using testing::HasSubstr;
using testing::IsEmpty;
using virtualphone::testing::isInstalled;
using virtualphone::testing::Outcome;
using virtualphone::testing::run;

namespace {

namespace fs = std::filesystem;

std::string textOf(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class ServiceUnit : public ::testing::Test {
protected:
    void SetUp() override {
        if (!isInstalled("systemd-analyze")) {
            GTEST_SKIP() << "systemd-analyze is not installed";
        }
    }

    /// The unit with the program as it was built, and some text replaced by other.
    Outcome verified(const std::string& replaced = {}, const std::string& by = {}) const {
        std::string unit = textOf(KRL_SERVICE_UNIT);
        const std::string program = "@VESK_PROGRAM@";
        unit.replace(unit.find(program), program.size(), KRL_VESK);
        if (!replaced.empty()) {
            unit.replace(unit.find(replaced), replaced.size(), by);
        }
        const fs::path file = folder_.path() / "vesk-watch@.service";
        std::ofstream(file) << unit;
        return run({"env", "XDG_RUNTIME_DIR=" + folder_.path().string(), "systemd-analyze",
                    "--user", "--recursive-errors=no", "verify", file.string()});
    }

private:
    virtualphone::testing::TemporaryFolder folder_;
};

} // namespace

TEST_F(ServiceUnit, SystemdHasNothingToSayOfIt) {
    const Outcome outcome = verified();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, IsEmpty());
}

TEST_F(ServiceUnit, SystemdWouldSayWhatIsWrong) {
    EXPECT_THAT(verified("NoNewPrivileges=", "NoMorePrivileges=").output,
                HasSubstr("NoMorePrivileges"));
    EXPECT_NE(verified(KRL_VESK, "/no/such/vesk").status, 0);
}
