// No path leads out of the media partition.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <memory>
#include <string>
#include <vector>

namespace virtualphone::testing {
namespace {

class Confinement : public VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        std::ofstream(outside("secret")) << "secret";
        std::filesystem::create_directory(outside("folder"));
        std::filesystem::create_directory(onDisk("/in"));
        put("/in/file", "inside");
        afc_ = std::make_unique<AfcWire>(bus(), id());

        const auto link = [&](const std::string& target, std::string_view path) {
            std::filesystem::create_symlink(target, onDisk(path));
        };
        link("../secret", "/relative");
        link("../../secret", "/in/deeper");
        link(outside("secret").string(), "/absolute");
        link("relative", "/chain");
        link("in/deeper", "/chain2");
        link("..", "/up");
        link("/", "/slash");
        link("loop", "/loop");
        link("in/file", "/good");
        link("../good", "/in/goodchain");
    }

    /// Beside the phone's folder.
    std::filesystem::path outside(const std::string& name) const {
        return temporaryFolder() / name;
    }

    uint64_t statusOf(uint64_t operation, const std::string& arguments) {
        const AfcReply reply = afc_->ask(operation, arguments);
        return reply.header.operation == afc::kStatus ? reply.value() : uint64_t{afc::kSuccess};
    }

    uint64_t openStatus(uint64_t mode, const std::string& path) {
        return statusOf(afc::kOpen, u64(mode) + pathArgument(path));
    }

    /// What a test may not change.
    void TearDown() override {
        std::ifstream file(outside("secret"));
        std::string text;
        file >> text;
        EXPECT_EQ(text, "secret");
        size_t count = 0;
        for ([[maybe_unused]] const auto& entry :
             std::filesystem::directory_iterator(temporaryFolder())) {
            ++count;
        }
        EXPECT_EQ(count, 3U) << "secret, folder and the phone";
        EXPECT_TRUE(std::filesystem::is_empty(outside("folder")));
    }

    AfcWire& afc() { return *afc_; }

    const std::vector<std::string> ways = {
        "/../secret",     "../secret",    "/in/../../secret",  "/in/../../../etc/passwd",
        "/relative",      "/in/deeper",   "/absolute",         "/chain",
        "/chain2",        "/up/secret",   "/slash/etc/passwd", "/in/../up/secret",
        "/./.././secret", "//..//secret",
    };

private:
    std::unique_ptr<AfcWire> afc_;
};

TEST_F(Confinement, NothingOutsideIsOpened) {
    for (const std::string& path : ways) {
        for (uint64_t mode = afc::kModeRead; mode <= afc::kModeReadAppend; ++mode) {
            EXPECT_EQ(openStatus(mode, path), afc::kPermissionDenied) << path << " mode " << mode;
        }
        EXPECT_EQ(statusOf(afc::kTruncatePath, u64(0) + pathArgument(path)), afc::kPermissionDenied)
            << path;
    }
}

TEST_F(Confinement, NothingOutsideIsListed) {
    for (const char* const path :
         {"/..", "/up", "/slash", "/slash/etc", "/in/../..", "/up/folder"}) {
        EXPECT_EQ(statusOf(afc::kReadDirectory, pathArgument(path)), afc::kPermissionDenied)
            << path;
    }
}

TEST_F(Confinement, NothingOutsideIsMadeRenamedOrRemoved) {
    for (const char* const folder : {"/..", "/up", "/slash/tmp", "/in/../.."}) {
        const std::string path = std::string(folder) + "/new";
        const std::string victim = std::string(folder) + "/secret";
        EXPECT_EQ(openStatus(afc::kModeWrite, path), afc::kPermissionDenied);
        EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument(path)), afc::kPermissionDenied);
        EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument(victim)), afc::kPermissionDenied);
        EXPECT_EQ(statusOf(afc::kFileInfo, pathArgument(victim)), afc::kPermissionDenied);
        EXPECT_EQ(statusOf(afc::kRename, pathArgument("/in/file") + pathArgument(path)),
                  afc::kPermissionDenied);
        EXPECT_EQ(statusOf(afc::kRename, pathArgument(victim) + pathArgument("/stolen")),
                  afc::kPermissionDenied);
        for (const uint64_t kind : {uint64_t{afc::kHardLink}, uint64_t{afc::kSymbolicLink}}) {
            EXPECT_EQ(
                statusOf(afc::kMakeLink, u64(kind) + pathArgument("/in/file") + pathArgument(path)),
                afc::kPermissionDenied);
        }
        EXPECT_EQ(statusOf(afc::kMakeLink,
                           u64(afc::kHardLink) + pathArgument(victim) + pathArgument("/stolen")),
                  afc::kPermissionDenied);
    }
    EXPECT_EQ(contents("/in/file"), "inside");
}

TEST_F(Confinement, TheFolderAboveCannotBeNamed) {
    EXPECT_EQ(statusOf(afc::kFileInfo, pathArgument("/..")), afc::kPermissionDenied);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/..")), afc::kInvalidArgument);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/..")), afc::kInvalidArgument);
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/..") + pathArgument("/x")),
              afc::kInvalidArgument);
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/in") + pathArgument("/..")),
              afc::kInvalidArgument);
}

TEST_F(Confinement, InfoRemoveAndRenameActOnALinkItself) {
    const AfcReply info = afc().ask(afc::kFileInfo, pathArgument("/absolute"));
    EXPECT_EQ(pairsIn(info.payload).at("st_ifmt"), "S_IFLNK");
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/absolute") + pathArgument("/moved")),
              afc::kSuccess);
    EXPECT_TRUE(std::filesystem::is_symlink(onDisk("/moved")));
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/moved")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/up")), afc::kSuccess);
    EXPECT_FALSE(exists("/up"));
}

TEST_F(Confinement, LinksThatStayInsideAreFollowed) {
    EXPECT_EQ(afc().read(afc().open("/good", afc::kModeRead), 100), "inside");
    EXPECT_EQ(afc().read(afc().open("/in/goodchain", afc::kModeRead), 100), "inside");
    EXPECT_EQ(afc().read(afc().open("/in/../in/./file", afc::kModeRead), 100), "inside");
}

TEST_F(Confinement, ALoopOfLinksIsAnErrorAndNotAHang) {
    EXPECT_EQ(openStatus(afc::kModeRead, "/loop"), afc::kUnknownError);
    EXPECT_EQ(openStatus(afc::kModeReadWrite, "/loop"), afc::kUnknownError);
}

TEST_F(Confinement, ALinkMadeOverTheWireLeadsNowhereEither) {
    EXPECT_EQ(statusOf(afc::kMakeLink,
                       u64(afc::kSymbolicLink) + pathArgument("/etc") + pathArgument("/etc")),
              afc::kSuccess);
    EXPECT_EQ(openStatus(afc::kModeRead, "/etc/passwd"), afc::kPermissionDenied);
    EXPECT_EQ(statusOf(afc::kReadDirectory, pathArgument("/etc")), afc::kPermissionDenied);
}

TEST_F(Confinement, TheKernelsOwnLinksAreNotFollowed) {
    std::filesystem::create_symlink("/proc/self/root", onDisk("/proc"));
    EXPECT_EQ(openStatus(afc::kModeRead, "/proc/etc/passwd"), afc::kPermissionDenied);
}

class ConfinementWithParents : public Confinement {
protected:
    ConfinementWithParents() {
        options.makeDirectoryMakesParents = true;
        options.makeDirectoryAcceptsExisting = true;
    }
};

TEST_F(ConfinementWithParents, NoParentsAreMadeOutside) {
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/up/a/b")), afc::kPermissionDenied);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/slash/tmp/a/b")),
              afc::kPermissionDenied);
    EXPECT_NE(statusOf(afc::kMakeDirectory, pathArgument("/in/../../a/b")), afc::kSuccess);
}

} // namespace
} // namespace virtualphone::testing
