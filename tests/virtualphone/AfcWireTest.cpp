// The file service, byte by byte: every operation, its answers and its refusals.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

namespace virtualphone::testing {
namespace {

using nlohmann::json;

class AfcWireTest : public VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        afc_ = std::make_unique<AfcWire>(bus(), id());
    }

    AfcWire& afc() { return *afc_; }

    AfcReply ask(uint64_t operation, const std::string& arguments,
                 const std::string& payload = {}) {
        return afc().ask(operation, arguments, payload);
    }

    uint64_t statusOf(uint64_t operation, const std::string& arguments,
                      const std::string& payload = {}) {
        const AfcReply reply = ask(operation, arguments, payload);
        EXPECT_EQ(reply.header.operation, afc::kStatus);
        return reply.value();
    }

    std::vector<std::string> list(std::string_view path) {
        const AfcReply reply = ask(afc::kReadDirectory, pathArgument(path));
        EXPECT_EQ(reply.header.operation, afc::kData);
        std::vector<std::string> names;
        for (size_t at = 0; at < reply.payload.size();) {
            names.emplace_back(reply.payload.c_str() + at);
            at += names.back().size() + 1;
        }
        return names;
    }

    json info(std::string_view path) {
        return pairsIn(ask(afc::kFileInfo, pathArgument(path)).payload);
    }

    /// Connects again, after the phone was replugged.
    void reconnect() { afc_ = std::make_unique<AfcWire>(bus(), id()); }

private:
    std::unique_ptr<AfcWire> afc_;
};

TEST_F(AfcWireTest, AStatusIsOneArgumentAndHasNoPayload) {
    const AfcReply reply = ask(afc::kMakeDirectory, pathArgument("/new"));
    EXPECT_EQ(reply.header.entireLength, 48U);
    EXPECT_EQ(reply.header.thisLength, 48U);
    EXPECT_TRUE(reply.isStatus(afc::kSuccess));
}

TEST_F(AfcWireTest, DataIsPayloadAndMayBeEmpty) {
    put("/empty", "");
    const uint64_t file = afc().open("/empty", afc::kModeRead);
    const AfcReply reply = ask(afc::kRead, u64(file) + u64(100));
    EXPECT_EQ(reply.header.operation, afc::kData);
    EXPECT_EQ(reply.header.thisLength, 40U);
    EXPECT_EQ(reply.header.entireLength, 40U);
    put("/five", "12345");
    const uint64_t other = afc().open("/five", afc::kModeRead);
    const AfcReply five = ask(afc::kRead, u64(other) + u64(100));
    EXPECT_EQ(five.header.thisLength, 40U);
    EXPECT_EQ(five.header.entireLength, 45U);
}

TEST_F(AfcWireTest, DirectoriesListAllNamesWithTheTwoDots) {
    put("/folder/a.m4r", "x");
    put("/folder/.hidden", "x");
    std::filesystem::create_directory(onDisk("/folder/sub"));
    EXPECT_THAT(list("/folder"),
                ::testing::UnorderedElementsAre(".", "..", "a.m4r", ".hidden", "sub"));
    EXPECT_THAT(list("/"), ::testing::IsSupersetOf({".", "..", "folder", "iTunes_Control"}));
    EXPECT_EQ(statusOf(afc::kReadDirectory, pathArgument("/nosuch")), afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kReadDirectory, pathArgument("/folder/a.m4r")), afc::kReadError);
}

TEST_F(AfcWireTest, NamesThatAreNotUtf8AreDeliveredAsTheyAre) {
    const std::string name = "bad\xff\xfe.mp3";
    put("/folder/" + name, "x");
    EXPECT_THAT(list("/folder"), ::testing::UnorderedElementsAre(".", "..", name));
    EXPECT_EQ(info("/folder/" + name).at("st_size"), "1");
}

TEST_F(AfcWireTest, ALargeDirectoryComesWhole) {
    std::filesystem::create_directory(onDisk("/many"));
    constexpr size_t kCount = 5000;
    for (size_t i = 0; i < kCount; ++i) {
        put("/many/" + std::to_string(i), "");
    }
    EXPECT_EQ(list("/many").size(), kCount + 2);
}

TEST_F(AfcWireTest, FileInfoTellsSizesLinksAndKinds) {
    put("/file", std::string(5000, 'x'));
    std::filesystem::create_symlink("file", onDisk("/link"));
    std::filesystem::create_directory(onDisk("/folder"));
    mkfifo(onDisk("/pipe").c_str(), 0600);

    const json file = info("/file");
    EXPECT_EQ(file.at("st_size"), "5000");
    EXPECT_EQ(file.at("st_ifmt"), "S_IFREG");
    EXPECT_EQ(file.at("st_nlink"), "1");
    EXPECT_TRUE(file.contains("st_blocks"));
    EXPECT_FALSE(file.contains("st_mtime")) << "came with later firmware";
    EXPECT_FALSE(file.contains("LinkTarget"));
    const json link = info("/link");
    EXPECT_EQ(link.at("st_ifmt"), "S_IFLNK");
    EXPECT_EQ(link.at("LinkTarget"), "file");
    EXPECT_EQ(info("/folder").at("st_ifmt"), "S_IFDIR");
    EXPECT_EQ(info("/").at("st_ifmt"), "S_IFDIR");
    EXPECT_EQ(info("/pipe").at("st_ifmt"), "S_IFIFO");
    EXPECT_EQ(statusOf(afc::kFileInfo, pathArgument("/nosuch")), afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kFileInfo, pathArgument("")), afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kFileInfo, pathArgument("/file/below")), afc::kReadError);
}

TEST_F(AfcWireTest, DeviceInfoHasModelAndSpace) {
    const json device = pairsIn(ask(afc::kDeviceInfo, "").payload);
    EXPECT_EQ(device.at("Model"), "iPhone1,1");
    EXPECT_EQ(device.at("FSBlockSize"), "4096");
    EXPECT_GT(std::stoull(device.at("FSTotalBytes").get<std::string>()), 0U);
    EXPECT_GE(std::stoull(device.at("FSTotalBytes").get<std::string>()),
              std::stoull(device.at("FSFreeBytes").get<std::string>()));
}

TEST_F(AfcWireTest, OpenModes) {
    const struct {
        uint64_t mode;
        bool creates;
        bool empties;
        bool reads;
        bool writes;
        bool appends;
    } rows[] = {
        {afc::kModeRead, false, false, true, false, false},
        {afc::kModeReadWrite, true, false, true, true, false},
        {afc::kModeWrite, true, true, false, true, false},
        {afc::kModeReadWriteTruncate, true, true, true, true, false},
        {afc::kModeAppend, true, false, false, true, true},
        {afc::kModeReadAppend, true, false, true, true, true},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        const std::string missing = "/missing" + std::to_string(row.mode);
        const AfcReply made = ask(afc::kOpen, u64(row.mode) + pathArgument(missing));
        EXPECT_EQ(made.header.operation == afc::kOpened, row.creates);
        EXPECT_EQ(exists(missing), row.creates);
        if (!row.creates) {
            EXPECT_TRUE(made.isStatus(afc::kObjectNotFound));
        }

        put("/there", "0123456789");
        const uint64_t file = afc().open("/there", row.mode);
        EXPECT_EQ(contents("/there"), row.empties ? "" : "0123456789");
        const AfcReply read = ask(afc::kRead, u64(file) + u64(4));
        if (row.reads) {
            EXPECT_EQ(read.payload, row.empties ? "" : "0123");
        } else {
            EXPECT_TRUE(read.isStatus(afc::kInvalidArgument));
        }
        ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(0));
        EXPECT_EQ(afc().write(file, "AB"),
                  row.writes ? uint64_t{afc::kSuccess} : uint64_t{afc::kInvalidArgument});
        if (row.appends) {
            EXPECT_EQ(contents("/there"), "0123456789AB");
        } else if (row.writes) {
            EXPECT_EQ(contents("/there"), row.empties ? "AB" : "AB23456789");
        }
        afc().close(file);
    }
}

TEST_F(AfcWireTest, WhatCannotBeOpened) {
    std::filesystem::create_directory(onDisk("/folder"));
    mkfifo(onDisk("/pipe").c_str(), 0600);
    const auto openStatus = [&](uint64_t mode, std::string_view path) {
        return statusOf(afc::kOpen, u64(mode) + pathArgument(path));
    };
    EXPECT_EQ(openStatus(0, "/new"), afc::kInvalidArgument);
    EXPECT_EQ(openStatus(7, "/new"), afc::kInvalidArgument);
    EXPECT_EQ(openStatus(afc::kModeRead, "/folder"), afc::kObjectIsDirectory);
    EXPECT_EQ(openStatus(afc::kModeWrite, "/folder"), afc::kObjectIsDirectory);
    EXPECT_EQ(openStatus(afc::kModeRead, "/pipe"), afc::kNotSupported);
    EXPECT_EQ(openStatus(afc::kModeReadWrite, "/nosuch/file"), afc::kObjectNotFound);
    EXPECT_EQ(openStatus(afc::kModeRead, ""), afc::kObjectNotFound);
    EXPECT_EQ(openStatus(afc::kModeRead, "/" + std::string(300, 'x')), afc::kInvalidArgument);
    EXPECT_EQ(openStatus(afc::kModeRead, "/" + std::string(5000, 'x')), afc::kInvalidArgument);
    EXPECT_FALSE(exists("/new"));
}

TEST_F(AfcWireTest, WritingAndReadingGoOnWhereTheyStopped) {
    const uint64_t file = afc().open("/f", afc::kModeReadWriteTruncate);
    EXPECT_EQ(afc().write(file, "abc"), afc::kSuccess);
    EXPECT_EQ(afc().write(file, "def"), afc::kSuccess);
    EXPECT_EQ(afc().write(file, ""), afc::kSuccess);
    EXPECT_EQ(contents("/f"), "abcdef");
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(1));
    EXPECT_EQ(afc().read(file, 2), "bc");
    EXPECT_EQ(afc().read(file, 100), "def");
    EXPECT_EQ(afc().read(file, 100), "");
}

TEST_F(AfcWireTest, LargeWritesInOneRequestArriveWhole) {
    std::string bytes(5'000'001, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    }
    const uint64_t file = afc().open("/large", afc::kModeReadWriteTruncate);
    EXPECT_EQ(afc().write(file, bytes), afc::kSuccess);
    EXPECT_EQ(contents("/large"), bytes);
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(0));
    EXPECT_EQ(afc().read(file, bytes.size()), bytes);
}

TEST_F(AfcWireTest, ReadsOfAbsurdSizeBringWhatThereIs) {
    put("/f", "abc");
    const uint64_t file = afc().open("/f", afc::kModeRead);
    EXPECT_EQ(afc().read(file, UINT64_MAX), "abc");
}

TEST_F(AfcWireTest, SeekAndTell) {
    put("/f", "0123456789");
    const uint64_t file = afc().open("/f", afc::kModeRead);
    const auto seek = [&](uint64_t whence, int64_t offset) {
        return statusOf(afc::kSeek, u64(file) + u64(whence) + u64(static_cast<uint64_t>(offset)));
    };
    const auto tell = [&] {
        const AfcReply reply = ask(afc::kTell, u64(file));
        EXPECT_EQ(reply.header.operation, afc::kPosition);
        return reply.value();
    };
    EXPECT_EQ(tell(), 0U);
    EXPECT_EQ(seek(afc::kFromStart, 4), afc::kSuccess);
    EXPECT_EQ(tell(), 4U);
    EXPECT_EQ(seek(afc::kFromHere, -3), afc::kSuccess);
    EXPECT_EQ(tell(), 1U);
    EXPECT_EQ(seek(afc::kFromEnd, -2), afc::kSuccess);
    EXPECT_EQ(tell(), 8U);
    EXPECT_EQ(seek(afc::kFromStart, -1), afc::kInvalidArgument);
    EXPECT_EQ(seek(3, 0), afc::kInvalidArgument);
    EXPECT_EQ(tell(), 8U);
}

TEST_F(AfcWireTest, SizesAreSetByHandleAndByPath) {
    put("/f", "0123456789");
    const uint64_t file = afc().open("/f", afc::kModeReadWrite);
    EXPECT_EQ(statusOf(afc::kSetSize, u64(file) + u64(4)), afc::kSuccess);
    EXPECT_EQ(contents("/f"), "0123");
    EXPECT_EQ(statusOf(afc::kTruncatePath, u64(2) + pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(contents("/f"), "01");
    EXPECT_EQ(statusOf(afc::kSetSize, u64(file) + u64(3)), afc::kSuccess);
    EXPECT_EQ(contents("/f"), (std::string{'0', '1', '\0'}));
    EXPECT_EQ(statusOf(afc::kSetSize, u64(file) + u64(UINT64_MAX)), afc::kTooMuchData);
    EXPECT_EQ(statusOf(afc::kTruncatePath, u64(2) + pathArgument("/nosuch")), afc::kObjectNotFound);
    const uint64_t reader = afc().open("/f", afc::kModeRead);
    EXPECT_EQ(statusOf(afc::kSetSize, u64(reader) + u64(0)), afc::kInvalidArgument);
}

TEST_F(AfcWireTest, DirectoriesAreMadeOneByOne) {
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/a")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/a/b/")), afc::kSuccess);
    EXPECT_TRUE(std::filesystem::is_directory(onDisk("/a/b")));
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/a")), afc::kObjectExists);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/")), afc::kObjectExists);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/x/y")), afc::kObjectNotFound);
}

class LaterFolders : public AfcWireTest {
protected:
    LaterFolders() {
        options.makeDirectoryMakesParents = true;
        options.makeDirectoryAcceptsExisting = true;
    }
};

TEST_F(LaterFolders, AreMadeWithParentsAndMayExist) {
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/x/y/z")), afc::kSuccess);
    EXPECT_TRUE(std::filesystem::is_directory(onDisk("/x/y/z")));
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/x/y/z")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/")), afc::kSuccess);
    put("/file", "");
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/file")), afc::kObjectExists);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/file/below")), afc::kObjectExists);
}

TEST_F(AfcWireTest, RemovingTakesFilesLinksAndEmptyDirectories) {
    put("/folder/file", "x");
    std::filesystem::create_directory_symlink("folder", onDisk("/link"));
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/folder")), afc::kUnknownError);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/link")), afc::kSuccess);
    EXPECT_TRUE(exists("/folder/file")) << "the link goes, not what it leads to";
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/folder/file")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/folder/file")), afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/folder")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/")), afc::kPermissionDenied);
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/iTunes_Control/.")), afc::kInvalidArgument);
}

TEST_F(AfcWireTest, RenamingReplacesAFile) {
    put("/a", "new");
    put("/b", "old");
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/a") + pathArgument("/b")), afc::kSuccess);
    EXPECT_FALSE(exists("/a"));
    EXPECT_EQ(contents("/b"), "new");
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/a") + pathArgument("/b")),
              afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/b") + pathArgument("/no/b")),
              afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/") + pathArgument("/c")),
              afc::kPermissionDenied);
    EXPECT_EQ(contents("/b"), "new");
}

TEST_F(AfcWireTest, LinksOfBothKinds) {
    put("/a", "x");
    const auto link = [&](uint64_t kind, const char* target, const char* path) {
        return statusOf(afc::kMakeLink, u64(kind) + pathArgument(target) + pathArgument(path));
    };
    EXPECT_EQ(link(afc::kHardLink, "/a", "/hard"), afc::kSuccess);
    EXPECT_EQ(info("/hard").at("st_nlink"), "2");
    EXPECT_EQ(link(afc::kSymbolicLink, "a", "/soft"), afc::kSuccess);
    EXPECT_EQ(info("/soft").at("LinkTarget"), "a");
    EXPECT_EQ(link(afc::kSymbolicLink, "a", "/soft"), afc::kObjectExists);
    EXPECT_EQ(link(afc::kHardLink, "/nosuch", "/other"), afc::kObjectNotFound);
    EXPECT_EQ(link(3, "/a", "/other"), afc::kInvalidArgument);
}

TEST_F(AfcWireTest, HandlesBelongToTheirConnection) {
    AfcWire other(bus(), id());
    const uint64_t file = afc().open("/f", afc::kModeReadWrite);
    EXPECT_EQ(other.write(file, "x"), afc::kInvalidArgument);
    EXPECT_EQ(afc().write(file, "x"), afc::kSuccess);
    EXPECT_EQ(afc().close(file), afc::kSuccess);
    EXPECT_EQ(afc().close(file), afc::kInvalidArgument);
    for (const uint64_t operation : {afc::kTell, afc::kClose}) {
        EXPECT_EQ(statusOf(operation, u64(file)), afc::kInvalidArgument);
    }
    for (const uint64_t operation : {afc::kRead, afc::kSetSize, afc::kLock}) {
        EXPECT_EQ(statusOf(operation, u64(file) + u64(afc::kLockShared)), afc::kInvalidArgument);
    }
}

TEST_F(AfcWireTest, HandleNumbersOnlyGoUp) {
    const uint64_t first = afc().open("/f", afc::kModeReadWrite);
    afc().close(first);
    EXPECT_GT(afc().open("/f", afc::kModeReadWrite), first);
}

class ReusedHandles : public AfcWireTest {
protected:
    ReusedHandles() { options.reuseFileHandles = true; }
};

TEST_F(ReusedHandles, AreTheLowestThatAreFree) {
    const uint64_t first = afc().open("/f", afc::kModeReadWrite);
    const uint64_t second = afc().open("/f", afc::kModeReadWrite);
    EXPECT_NE(first, second);
    afc().close(first);
    EXPECT_EQ(afc().open("/f", afc::kModeReadWrite), first);
}

TEST_F(AfcWireTest, TooManyOpenFilesIsNoResources) {
    uint64_t opened = 0;
    AfcReply reply;
    do {
        reply = ask(afc::kOpen, u64(afc::kModeReadWrite) + pathArgument("/f"));
        ++opened;
    } while (reply.header.operation == afc::kOpened && opened < 10000);
    EXPECT_TRUE(reply.isStatus(afc::kNoResources));
    EXPECT_GT(opened, 100U);
    EXPECT_EQ(afc().close(1), afc::kSuccess);
    EXPECT_EQ(ask(afc::kOpen, u64(afc::kModeReadWrite) + pathArgument("/f")).header.operation,
              afc::kOpened);
}

TEST_F(AfcWireTest, AnExclusiveLockExcludesAllOthers) {
    AfcWire other(bus(), id());
    const uint64_t mine = afc().open("/lock", afc::kModeReadWrite);
    const uint64_t theirs = other.open("/lock", afc::kModeReadWrite);
    EXPECT_EQ(afc().lock(mine, afc::kLockExclusive), afc::kSuccess);
    EXPECT_EQ(afc().lock(mine, afc::kLockExclusive), afc::kSuccess) << "again is no conflict";
    EXPECT_EQ(other.lock(theirs, afc::kLockExclusive), afc::kWouldBlock);
    EXPECT_EQ(other.lock(theirs, afc::kLockShared), afc::kWouldBlock);
    EXPECT_EQ(afc().lock(mine, afc::kUnlock), afc::kSuccess);
    EXPECT_EQ(other.lock(theirs, afc::kLockExclusive), afc::kSuccess);
}

TEST_F(AfcWireTest, SharedLocksExcludeExclusiveOnesOnly) {
    const uint64_t first = afc().open("/lock", afc::kModeReadWrite);
    const uint64_t second = afc().open("/lock", afc::kModeReadWrite);
    EXPECT_EQ(afc().lock(first, afc::kLockShared), afc::kSuccess);
    EXPECT_EQ(afc().lock(second, afc::kLockShared), afc::kSuccess);
    EXPECT_EQ(afc().lock(second, afc::kLockExclusive), afc::kWouldBlock);
}

TEST_F(AfcWireTest, TwoHandlesOfOneConnectionConflict) {
    const uint64_t first = afc().open("/lock", afc::kModeReadWrite);
    const uint64_t second = afc().open("/lock", afc::kModeReadWrite);
    EXPECT_EQ(afc().lock(first, afc::kLockExclusive), afc::kSuccess);
    EXPECT_EQ(afc().lock(second, afc::kLockExclusive), afc::kWouldBlock);
    EXPECT_EQ(afc().close(first), afc::kSuccess) << "closing gives the lock back";
    EXPECT_EQ(afc().lock(second, afc::kLockExclusive), afc::kSuccess);
}

TEST_F(AfcWireTest, LosingTheConnectionFreesItsLocks) {
    {
        AfcWire other(bus(), id());
        const uint64_t theirs = other.open("/lock", afc::kModeReadWrite);
        ASSERT_EQ(other.lock(theirs, afc::kLockExclusive), afc::kSuccess);
    }
    ASSERT_TRUE(bus().waitForConnections(1));
    EXPECT_EQ(afc().lock(afc().open("/lock", afc::kModeReadWrite), afc::kLockExclusive),
              afc::kSuccess);
}

TEST_F(AfcWireTest, UnpluggingFreesLocks) {
    ASSERT_EQ(afc().lock(afc().open("/lock", afc::kModeReadWrite), afc::kLockExclusive),
              afc::kSuccess);
    replug();
    reconnect();
    EXPECT_EQ(afc().lock(afc().open("/lock", afc::kModeReadWrite), afc::kLockExclusive),
              afc::kSuccess);
}

TEST_F(AfcWireTest, LocksThatWouldWaitAreRefused) {
    const uint64_t file = afc().open("/lock", afc::kModeReadWrite);
    for (const uint64_t kind : std::initializer_list<uint64_t>{0, 1, 2, 4, 7, 8, 100}) {
        EXPECT_EQ(afc().lock(file, kind), afc::kInvalidArgument) << kind;
    }
}

TEST_F(AfcWireTest, ThePhoneItselfCanHoldTheSyncLock) {
    const uint64_t file = afc().open("/com.apple.itunes.lock_sync", afc::kModeReadWrite);
    EXPECT_TRUE(phone().holdSyncLock());
    EXPECT_TRUE(phone().holdSyncLock());
    EXPECT_EQ(afc().lock(file, afc::kLockExclusive), afc::kWouldBlock);
    phone().releaseSyncLock();
    EXPECT_EQ(afc().lock(file, afc::kLockExclusive), afc::kSuccess);
    EXPECT_FALSE(phone().holdSyncLock()) << "a client has it";
}

TEST_F(AfcWireTest, UnknownOperationsAreStatusSix) {
    const uint64_t unknown[] = {0x00, 0x01, 0x02, 0x04, 0x05, 0x06, 0x0C, 0x0E,  0x16,
                                0x17, 0x19, 0x1A, 0x1D, 0x1F, 0x20, 0x28, 0x7FFF};
    for (const uint64_t operation : unknown) {
        EXPECT_EQ(statusOf(operation, u64(1)), afc::kUnknownPacketType) << operation;
    }
    EXPECT_EQ(statusOf(0x06, pathArgument("/f"), "payload"), afc::kUnknownPacketType);
    EXPECT_EQ(statusOf(UINT64_MAX, ""), afc::kUnknownPacketType);
}

TEST_F(AfcWireTest, OperationsOfLaterFirmwareAreUnknown) {
    put("/f", "x");
    EXPECT_EQ(statusOf(afc::kSetModificationTime, u64(1) + pathArgument("/f")),
              afc::kUnknownPacketType);
    EXPECT_EQ(statusOf(afc::kRemovePathAndContents, pathArgument("/f")), afc::kUnknownPacketType);
    EXPECT_TRUE(exists("/f"));
}

class MuchLaterFirmware : public AfcWireTest {
protected:
    MuchLaterFirmware() { options.firmware = "6.1"; }
};

TEST_F(MuchLaterFirmware, KnowsTimesAndRemovesFolders) {
    put("/folder/sub/file", "x");
    std::filesystem::create_directory_symlink(temporaryFolder(), onDisk("/folder/out"));
    put("/f", "x");
    EXPECT_EQ(
        statusOf(afc::kSetModificationTime, u64(1'200'000'000'123'456'789) + pathArgument("/f")),
        afc::kSuccess);
    EXPECT_EQ(info("/f").at("st_mtime"), "1200000000123456789");
    EXPECT_TRUE(info("/f").contains("st_birthtime"));
    EXPECT_EQ(statusOf(afc::kRemovePathAndContents, pathArgument("/folder")), afc::kSuccess);
    EXPECT_FALSE(exists("/folder"));
    EXPECT_TRUE(std::filesystem::exists(temporaryFolder())) << "links are removed, not followed";
    EXPECT_EQ(statusOf(afc::kRemovePathAndContents, pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(statusOf(afc::kRemovePathAndContents, pathArgument("/f")), afc::kObjectNotFound);
    EXPECT_EQ(statusOf(afc::kRemovePathAndContents, pathArgument("/")), afc::kPermissionDenied);
}

TEST_F(AfcWireTest, MissingArgumentsAreInvalid) {
    for (const uint64_t operation :
         {afc::kReadDirectory, afc::kTruncatePath, afc::kRemovePath, afc::kMakeDirectory,
          afc::kFileInfo, afc::kOpen, afc::kRead, afc::kWrite, afc::kSeek, afc::kTell, afc::kClose,
          afc::kSetSize, afc::kRename, afc::kLock, afc::kMakeLink}) {
        EXPECT_EQ(statusOf(operation, ""), afc::kInvalidArgument) << operation;
        EXPECT_EQ(statusOf(operation, "/path without NUL"), afc::kInvalidArgument) << operation;
    }
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/f")), afc::kInvalidArgument);
    EXPECT_EQ(statusOf(afc::kWrite, "1234567", "payload"), afc::kInvalidArgument);
}

TEST_F(AfcWireTest, ARefusedWriteIsDrainedBeforeItsAnswer) {
    EXPECT_EQ(statusOf(afc::kWrite, u64(99), std::string(3'000'000, 'x')), afc::kInvalidArgument);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/d")), afc::kSuccess) << "still in step";
}

TEST_F(AfcWireTest, RequestsSentAheadAreAnsweredInOrder) {
    const uint64_t file = afc().open("/f", afc::kModeWrite);
    std::string packets;
    for (const char c : std::string("abcdefgh")) {
        packets += afc().packet(afc::kWrite, u64(file), std::string(1000, c));
    }
    ASSERT_TRUE(afc().socket.send(packets));
    for (uint64_t number = afc().lastNumber - 7; number <= afc().lastNumber; ++number) {
        const std::optional<AfcReply> reply = afc().receive();
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->header.number, number);
        EXPECT_TRUE(reply->isStatus(afc::kSuccess));
    }
    EXPECT_EQ(contents("/f").size(), 8000U);
}

TEST_F(AfcWireTest, RequestsInSmallPiecesAreUnderstood) {
    for (const char byte : afc().packet(afc::kMakeDirectory, pathArgument("/slow"))) {
        ASSERT_TRUE(afc().socket.send(std::string(1, byte)));
    }
    EXPECT_TRUE(afc().receive()->isStatus(afc::kSuccess));
}

TEST_F(AfcWireTest, RequestsAreLoggedWithArgumentsAndStatus) {
    const uint64_t file = afc().open("/f", afc::kModeReadWrite);
    afc().write(file, "abc");
    afc().lock(file, afc::kLockExclusive);
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(1));
    ask(afc::kRename, pathArgument("/nosuch") + pathArgument("/other"));
    const auto entries =
        log().entries([](const LogEntry& entry) { return entry.service == "afc"; });
    ASSERT_EQ(entries.size(), 5U);
    EXPECT_EQ(entries[0].request, "Open");
    EXPECT_EQ(entries[0].path, "/f");
    EXPECT_EQ(entries[0].mode, uint64_t{afc::kModeReadWrite});
    EXPECT_EQ(entries[0].handle, file);
    EXPECT_EQ(entries[0].status, 0U);
    EXPECT_EQ(entries[1].request, "Write");
    EXPECT_EQ(entries[1].handle, file);
    EXPECT_EQ(entries[1].size, 3U);
    EXPECT_EQ(entries[2].request, "Lock");
    EXPECT_EQ(entries[2].mode, uint64_t{afc::kLockExclusive});
    EXPECT_EQ(entries[3].request, "Seek");
    EXPECT_EQ(entries[3].offset, 1);
    EXPECT_EQ(entries[4].request, "Rename");
    EXPECT_EQ(entries[4].path, "/nosuch");
    EXPECT_EQ(entries[4].newPath, "/other");
    EXPECT_EQ(entries[4].status, uint64_t{afc::kObjectNotFound});
    for (const LogEntry& entry : entries) {
        EXPECT_EQ(entry.phone, phone().udid());
    }
}

class EarlyReads : public AfcWireTest {
protected:
    EarlyReads() { options.soundReadBytes = 65536; }
};

TEST_F(EarlyReads, ThatAskForTooMuchBringWrongBytes) {
    put("/f", "abc");
    const uint64_t file = afc().open("/f", afc::kModeRead);
    EXPECT_EQ(afc().read(file, 65536), "abc");
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(0));
    const std::string wrong = afc().read(file, 65537);
    EXPECT_EQ(wrong.size(), 3U);
    EXPECT_NE(wrong, "abc");
}

class SmallDisk : public AfcWireTest {
protected:
    SmallDisk() {
        options.freeBytes = 1000;
        options.totalBytes = 5000;
    }

    std::string freeBytes() {
        return pairsIn(ask(afc::kDeviceInfo, "").payload).at("FSFreeBytes").get<std::string>();
    }
};

TEST_F(SmallDisk, AnswersItsSizes) {
    EXPECT_EQ(freeBytes(), "1000");
    EXPECT_EQ(pairsIn(ask(afc::kDeviceInfo, "").payload).at("FSTotalBytes"), "5000");
}

TEST_F(SmallDisk, WritesWhatFitsAndSaysThatItIsFull) {
    const uint64_t file = afc().open("/f", afc::kModeWrite);
    EXPECT_EQ(afc().write(file, std::string(600, 'a')), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "400");
    EXPECT_EQ(afc().write(file, std::string(600, 'b')), afc::kNoSpaceLeft);
    EXPECT_EQ(contents("/f").size(), 1000U);
    EXPECT_EQ(freeBytes(), "0");
    EXPECT_EQ(afc().write(file, "c"), afc::kNoSpaceLeft);
    EXPECT_EQ(statusOf(afc::kMakeDirectory, pathArgument("/d")), afc::kSuccess);
}

TEST_F(SmallDisk, CountsGrowthAndNotOverwriting) {
    put("/old", std::string(500, 'x'));
    const uint64_t file = afc().open("/old", afc::kModeReadWrite);
    EXPECT_EQ(afc().write(file, std::string(500, 'y')), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "1000");
    EXPECT_EQ(afc().write(file, std::string(1, 'y')), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "999");
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(2000));
    EXPECT_EQ(afc().write(file, "beyond"), afc::kNoSpaceLeft) << "holes take space too";
    EXPECT_EQ(freeBytes(), "999");
}

TEST_F(SmallDisk, GivesSpaceBack) {
    const uint64_t file = afc().open("/f", afc::kModeWrite);
    afc().write(file, std::string(1000, 'a'));
    EXPECT_EQ(statusOf(afc::kSetSize, u64(file) + u64(900)), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "100");
    EXPECT_EQ(statusOf(afc::kSetSize, u64(file) + u64(1001)), afc::kNoSpaceLeft);
    EXPECT_EQ(statusOf(afc::kTruncatePath, u64(800) + pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "200");
    const uint64_t other = afc().open("/g", afc::kModeWrite);
    afc().write(other, std::string(50, 'a'));
    EXPECT_EQ(freeBytes(), "150");
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/g") + pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "950") << "the replaced file is gone";
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/f") + pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "950");
    EXPECT_EQ(statusOf(afc::kRename, pathArgument("/nosuch") + pathArgument("/f")),
              afc::kObjectNotFound);
    EXPECT_EQ(freeBytes(), "950");
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/f")), afc::kSuccess);
    EXPECT_EQ(freeBytes(), "1000");
    EXPECT_EQ(statusOf(afc::kRemovePath, pathArgument("/iTunes_Control")), afc::kUnknownError);
    EXPECT_EQ(freeBytes(), "1000");
}

TEST_F(SmallDisk, EmptyingAFileOnOpeningGivesItsSpaceBack) {
    afc().write(afc().open("/f", afc::kModeWrite), std::string(700, 'a'));
    afc().open("/f", afc::kModeWrite);
    EXPECT_EQ(freeBytes(), "1000");
}

TEST_F(SmallDisk, CanBeFilledAndEmptiedAtRunTime) {
    phone().setFreeBytes(3);
    EXPECT_EQ(afc().write(afc().open("/f", afc::kModeWrite), "abcd"), afc::kNoSpaceLeft);
    EXPECT_EQ(contents("/f"), "abc");
    phone().setFreeBytes(100);
    EXPECT_EQ(phone().freeBytes(), 100U);
    EXPECT_EQ(afc().write(afc().open("/f", afc::kModeWrite), "abcd"), afc::kSuccess);
}

class SlowLink : public AfcWireTest {
protected:
    static constexpr uint64_t kSpeed = 400'000;

    SlowLink() { options.linkBytesPerSecond = kSpeed; }

    static std::chrono::duration<double> timed(const std::function<void()>& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::steady_clock::now() - start;
    }
};

TEST_F(SlowLink, ContentsTakeAtLeastTheirTime) {
    const std::string bytes(kSpeed / 10, 'x');
    const uint64_t file = afc().open("/f", afc::kModeReadWrite);
    EXPECT_GE(timed([&] { afc().write(file, bytes); }).count(), 0.1);
    ask(afc::kSeek, u64(file) + u64(afc::kFromStart) + u64(0));
    EXPECT_GE(timed([&] { EXPECT_EQ(afc().read(file, bytes.size()), bytes); }).count(), 0.1);
}

TEST_F(SlowLink, IsSharedByAllConnections) {
    AfcWire other(bus(), id());
    const uint64_t mine = afc().open("/f", afc::kModeWrite);
    const uint64_t theirs = other.open("/g", afc::kModeWrite);
    const std::string bytes(kSpeed / 20, 'x');
    EXPECT_GE(timed([&] {
                  afc().socket.send(afc().packet(afc::kWrite, u64(mine), bytes));
                  other.socket.send(other.packet(afc::kWrite, u64(theirs), bytes));
                  EXPECT_TRUE(afc().receive()->isStatus(afc::kSuccess));
                  EXPECT_TRUE(other.receive()->isStatus(afc::kSuccess));
              }).count(),
              0.1);
}

class CrawlingLink : public AfcWireTest {
protected:
    CrawlingLink() { options.linkBytesPerSecond = 2000; }
};

TEST_F(CrawlingLink, UnpluggingDoesNotWaitForTheTransfer) {
    const uint64_t file = afc().open("/f", afc::kModeWrite);
    // Most of a minute at this speed.
    const std::string packet = afc().packet(afc::kWrite, u64(file), std::string(100'000, 'x'));
    ASSERT_TRUE(afc().socket.send(packet));
    while (contents("/f").empty()) { // the test's own time limit ends this
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(bus().unplug(id()));
    EXPECT_TRUE(afc().socket.isClosed());
    EXPECT_LT(contents("/f").size(), 100'000U);
    EXPECT_TRUE(log().waitFor([](const LogEntry& entry) {
        return entry.request == "Write" && entry.fault == "interrupted";
    }));
}

class ThinkingPhone : public AfcWireTest {
protected:
    ThinkingPhone() { options.replyLatency = std::chrono::milliseconds(20); }
};

TEST_F(ThinkingPhone, TakesItsTimeBeforeEachAnswer) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) {
        list("/");
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

} // namespace
} // namespace virtualphone::testing
