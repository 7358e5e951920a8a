// What reaches the phone of a sync that leaves its plan. The device layer's functions are replaced
// by ones that write down what they were called for.
#include "engine/sync/Guard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace krl::engine;

namespace {

using Kind = Operation::Kind;

std::vector<std::string>& reached() {
    static std::vector<std::string> calls;
    return calls;
}

int32_t removed(afc_connection* /*files*/, const char* path) {
    reached().push_back(std::string("remove ") + path);
    return 0;
}

int32_t renamed(afc_connection* /*files*/, const char* from, const char* to) {
    reached().push_back(std::string("rename ") + from + " " + to);
    return 0;
}

int32_t opened(afc_connection* /*files*/, const char* path, uint64_t /*mode*/, afc_file_ref* file) {
    reached().push_back(std::string("open ") + path);
    *file = 1;
    return 0;
}

int32_t written(afc_connection* /*files*/, afc_file_ref /*file*/, const void* bytes,
                uint32_t count) {
    reached().push_back("write " + std::string(static_cast<const char*>(bytes), count));
    return 0;
}

int32_t closed(afc_connection* /*files*/, afc_file_ref /*file*/) {
    return 0;
}

constexpr char kFolder[] = "/iTunes_Control/Ringtones/";

class GuardTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        AFCRemovePath = removed;
        AFCRenamePath = renamed;
        AFCFileRefOpen = opened;
        AFCFileRefWrite = written;
        AFCFileRefClose = closed;
        layer::lay();
    }

    GuardTest() {
        reached().clear();
        before.folderExists = true;
        before.folder = {{"A.m4r", 5}, {"B.m4r", 7}};
    }

    void begin(std::vector<Operation> operations) {
        planned.operations = std::move(operations);
        guard.emplace(before, planned);
        guard->begin();
    }

    int32_t remove(const std::string& file) {
        return guard->removePath(nullptr, (kFolder + file).c_str());
    }

    int32_t rename(const std::string& from, const std::string& to) {
        return guard->renamePath(nullptr, (kFolder + from).c_str(), (kFolder + to).c_str());
    }

    /// Opens, writes and closes; the first status that is not 0.
    int32_t write(const std::string& path, const std::string& text) {
        afc_file_ref file = 0;
        int32_t status = guard->openFile(nullptr, path.c_str(), kAFCOpenWrite, &file);
        if (status == 0) {
            status =
                guard->writeFile(nullptr, file, text.data(), static_cast<uint32_t>(text.size()));
            guard->closeFile(nullptr, file);
        }
        return status;
    }

    PhoneState before;
    Plan planned;
    std::optional<Guard> guard;
};

} // namespace

TEST_F(GuardTest, ThePlansOperationsReachThePhone) {
    begin({{.kind = Kind::Rename, .file = "A.m4r", .newFile = "C.m4r"},
           {.kind = Kind::Remove, .file = "B.m4r"}});
    EXPECT_EQ(rename("A.m4r", "C.m4r"), 0);
    EXPECT_EQ(remove("B.m4r"), 0);
    EXPECT_THAT(reached(), ElementsAre("rename /iTunes_Control/Ringtones/A.m4r "
                                       "/iTunes_Control/Ringtones/C.m4r",
                                       "remove /iTunes_Control/Ringtones/B.m4r"));
    EXPECT_FALSE(guard->isStopped());
    EXPECT_TRUE(guard->hasChanged());
}

TEST_F(GuardTest, BeforeItBeginsNothingIsWritten) {
    planned.operations = {{.kind = Kind::Remove, .file = "A.m4r"}};
    guard.emplace(before, planned);
    EXPECT_NE(remove("A.m4r"), 0);
    EXPECT_NE(rename("A.m4r", "C.m4r"), 0);
    EXPECT_NE(write(kFolder + std::string("A.m4r"), "x"), 0);
    EXPECT_NE(guard->createDirectory(nullptr, "/iTunes_Control/Ringtones"), 0);
    EXPECT_THAT(reached(), IsEmpty());
}

TEST_F(GuardTest, AnotherOperationStopsTheSyncAndReachesNothing) {
    begin({{.kind = Kind::Remove, .file = "A.m4r"}});
    EXPECT_NE(remove("B.m4r"), 0);
    EXPECT_TRUE(guard->isStopped());
    EXPECT_THAT(guard->reason(), HasSubstr("\"remove B.m4r\" is not what was planned"));
    EXPECT_NE(remove("A.m4r"), 0) << "what is right comes too late";
    EXPECT_THAT(reached(), IsEmpty());
    EXPECT_FALSE(guard->hasChanged());
}

TEST_F(GuardTest, OnceItIsCancelledNothingReachesThePhone) {
    begin({{.kind = Kind::Remove, .file = "A.m4r"}, {.kind = Kind::Remove, .file = "B.m4r"}});
    EXPECT_EQ(remove("A.m4r"), 0);
    guard->cancel();
    EXPECT_NE(remove("B.m4r"), 0);
    EXPECT_TRUE(guard->isStopped());
    EXPECT_THAT(reached(), ElementsAre("remove /iTunes_Control/Ringtones/A.m4r"));
}

TEST_F(GuardTest, OneOperationMoreStopsTheSync) {
    begin({{.kind = Kind::Remove, .file = "A.m4r"}});
    EXPECT_EQ(remove("A.m4r"), 0);
    EXPECT_NE(remove("B.m4r"), 0);
    EXPECT_TRUE(guard->isStopped());
    EXPECT_THAT(reached(), ElementsAre("remove /iTunes_Control/Ringtones/A.m4r"));
}

TEST_F(GuardTest, AFileOfMoreOrFewerBytesStopsTheSync) {
    const std::string path = kFolder + std::string("N.m4r");
    begin({{.kind = Kind::Upload, .file = "N.m4r", .bytes = 3}});
    EXPECT_NE(write(path, "four"), 0);
    EXPECT_TRUE(guard->isStopped());
    EXPECT_THAT(reached(), ElementsAre("open " + path));
    begin({{.kind = Kind::Upload, .file = "N.m4r", .bytes = 3}});
    EXPECT_EQ(write(path, "two"), 0);
    EXPECT_FALSE(guard->isStopped());
    begin({{.kind = Kind::Upload, .file = "N.m4r", .bytes = 3}});
    write(path, "2.");
    EXPECT_TRUE(guard->isStopped());
}

TEST_F(GuardTest, AnotherCatalogueIsNotWritten) {
    planned.catalogue = "the planned one";
    begin({{.kind = Kind::WriteCatalogue, .bytes = 15}});
    EXPECT_NE(write(kCataloguePath, "another one ..."), 0);
    EXPECT_TRUE(guard->isStopped());
    EXPECT_THAT(reached(), IsEmpty()) << "opening it would have emptied the old one";
    EXPECT_FALSE(guard->hasChanged());
    begin({{.kind = Kind::WriteCatalogue, .bytes = 15}});
    EXPECT_EQ(write(kCataloguePath, "the planned one"), 0);
    EXPECT_THAT(reached(),
                ElementsAre(std::string("open ") + kCataloguePath, "write the planned one"));
}
