#include "engine/safe/ContentStore.h"

#include "tests/engine/FaultyDisk.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace krl::engine::testing {
namespace {

namespace fs = std::filesystem;

class Contents : public ::testing::Test {
protected:
    fs::path path() const { return temporary_.path() / "contents"; }

    ContentStore store() { return ContentStore(path(), disk_); }

    fs::path local(const std::string& bytes) const {
        const fs::path file = temporary_.path() / "local";
        std::ofstream(file, std::ios::binary) << bytes;
        return file;
    }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(path())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    QuickDisk disk_;
    virtualphone::testing::TemporaryFolder temporary_;
};

} // namespace

TEST(Digests, AreThoseOfTheStandard) {
    EXPECT_EQ(digestOf("").hex(),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf("abc").hex(),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq").hex(),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(digestOf(std::string(1000000, 'a')).hex(),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Digests, DoNotDependOnThePieces) {
    for (size_t length = 0; length < 200; ++length) {
        const std::string bytes(length, 'b');
        for (size_t piece = 1; piece < 70; piece += 7) {
            Sha256 sha;
            for (size_t at = 0; at < length; at += piece) {
                sha.add(std::string_view(bytes).substr(at, piece));
            }
            ASSERT_EQ(sha.digest(), digestOf(bytes)) << length << " in pieces of " << piece;
        }
    }
}

TEST(Digests, AreReadFromTheirDigitsAlone) {
    const std::string hex = digestOf("abc").hex();
    EXPECT_EQ(Digest::parse(hex), digestOf("abc"));
    EXPECT_FALSE(Digest::parse(hex + "0"));
    EXPECT_FALSE(Digest::parse(hex.substr(1)));
    EXPECT_FALSE(Digest::parse("../../../../../../../../../../../../../../../etc/passwd/../../x"));
    EXPECT_FALSE(Digest::parse(std::string(64, 'A')));
}

TEST_F(Contents, AreGivenBack) {
    ContentStore contents = store();
    const Content content = contents.put("some bytes");
    EXPECT_EQ(content.size, 10U);
    EXPECT_TRUE(contents.has(content));
    EXPECT_EQ(contents.bytes(content.digest), "some bytes");
}

TEST_F(Contents, OfTheSameBytesAreOne) {
    ContentStore contents = store();
    EXPECT_EQ(contents.put("same"), contents.put("same"));
    ContentStore::Incoming incoming(contents);
    incoming.add("sa");
    incoming.add("me");
    EXPECT_EQ(incoming.keep().digest, digestOf("same"));
    EXPECT_THAT(names().size(), 1U) << "what is there is not written again";
}

TEST_F(Contents, ThatAreNotKeptLeaveNothing) {
    ContentStore contents = store();
    for (const size_t length : {size_t{10}, size_t{2000000}}) {
        ContentStore::Incoming incoming(contents);
        incoming.add(std::string(length, 'h'));
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Contents, AreTakenFromFiles) {
    ContentStore contents = store();
    const std::string bytes(3000000, 'x');
    EXPECT_EQ(contents.putFile(local(bytes)), (Content{digestOf(bytes), bytes.size()}));
    EXPECT_EQ(contents.putFile(local("")).digest, digestOf(""));
    EXPECT_THROW(contents.putFile(path() / "missing"), Failure);
}

TEST_F(Contents, ThatWereAwaitedAreTakenForWhatTheyAre) {
    constexpr size_t kLength = 1'500'000; // more than is held in memory
    std::string awaited;
    for (size_t i = 0; i < kLength; ++i) {
        awaited += static_cast<char>(i * 31 % 251);
    }
    const auto changedAt = [&](size_t place) {
        std::string other = awaited;
        other[place] = static_cast<char>(other[place] + 1);
        return other;
    };
    const std::vector<std::string> coming{awaited,
                                          changedAt(0),
                                          changedAt(40'000),
                                          changedAt(kLength - 1),
                                          awaited.substr(0, kLength - 1),
                                          awaited.substr(0, 5),
                                          "",
                                          awaited + "more"};
    for (const std::string& bytes : coming) {
        for (const size_t pieceBytes : {size_t{1'000}, size_t{65'536}, kLength + 10}) {
            SCOPED_TRACE(::testing::Message() << bytes.size() << " in pieces of " << pieceBytes);
            fs::remove_all(path());
            ContentStore contents = store();
            ContentStore::Incoming incoming(contents, contents.put(awaited));
            for (size_t at = 0; at < bytes.size(); at += pieceBytes) {
                incoming.add(std::string_view(bytes).substr(at, pieceBytes));
            }
            const Content content = incoming.keep();
            EXPECT_EQ(content, (Content{digestOf(bytes), bytes.size()}));
            EXPECT_TRUE(contents.bytes(content.digest) == bytes);
        }
    }
}

TEST_F(Contents, ThatWereAwaitedAreTakenAlsoWhereTheCopyIsGoneOrDamaged) {
    const std::string bytes(100'000, 'z');
    for (const bool isGone : {true, false}) {
        ContentStore contents = store();
        const Content content = contents.put(bytes);
        const fs::path copy = path() / content.digest.hex();
        if (isGone) {
            fs::remove(copy);
        } else {
            std::ofstream(copy, std::ios::binary) << std::string(99'999, 'z') << '!';
        }
        ContentStore::Incoming incoming(contents, content);
        incoming.add(bytes);
        EXPECT_EQ(incoming.keep(), content);
        EXPECT_TRUE(contents.bytes(content.digest) == bytes);
    }
}

TEST_F(Contents, OfFilesWhoseDigestsAreKnownAreTheirs) {
    ContentStore contents = store();
    ContentDigests digests(path().parent_path() / "digests");
    for (const char* const bytes : {"first", "other", "other", "first"}) {
        const Content content = contents.putFile(local(bytes), digests);
        EXPECT_EQ(content.digest, digestOf(bytes));
        EXPECT_EQ(contents.bytes(content.digest), bytes);
    }
    EXPECT_THROW(contents.putFile(path() / "missing", digests), Failure);
}

TEST_F(Contents, ThatAreDamagedAreNotGivenBackAndAreTakenAnew) {
    ContentStore contents = store();
    const Content content = contents.put("some bytes");
    std::ofstream(path() / content.digest.hex(), std::ios::binary) << "same bytes";
    ASSERT_TRUE(contents.has(content)) << "nobody has looked yet";
    EXPECT_THROW(contents.bytes(content.digest), Failure);
    EXPECT_FALSE(contents.has(content));
    contents.put("some bytes");
    EXPECT_EQ(contents.bytes(content.digest), "some bytes");
}

TEST_F(Contents, ThatAreCutOffAreTakenAnew) {
    ContentStore contents = store();
    const Content content = contents.put("some bytes");
    fs::resize_file(path() / content.digest.hex(), 4);
    EXPECT_FALSE(contents.has(content));
    contents.put("some bytes");
    EXPECT_EQ(contents.bytes(content.digest), "some bytes");
}

TEST_F(Contents, ThatNobodyNeedsAreDropped) {
    ContentStore contents = store();
    const Content kept = contents.put("kept");
    contents.put("dropped");
    std::ofstream(path() / "incoming-1-1") << "of a broken run";
    std::ofstream(path() / "somebody's notes") << "not ours";
    contents.dropAllBut({kept.digest});
    EXPECT_THAT(names(), UnorderedElementsAre(kept.digest.hex(), "somebody's notes"));
}

TEST_F(Contents, HaveTheirNamesOnlyWhole) {
    const fs::path file = local(std::string(1200000, 'y'));
    const auto work = [&](Disk& disk) {
        ContentStore contents(path(), disk);
        contents.put("one");
        contents.putFile(file);
        contents.settle();
    };
    int n = 1;
    while (isKilledAt(n, work)) {
        ContentStore contents = store();
        for (const std::string& name : names()) {
            if (const auto digest = Digest::parse(name)) {
                EXPECT_NO_THROW(contents.bytes(*digest)) << "killed before call " << n;
            }
        }
        std::filesystem::remove_all(path());
        ++n;
    }
    EXPECT_GT(n, 8);
}

TEST_F(Contents, ThatFindNoRoomAreRefusedAndLeaveNothing) {
    const fs::path file = local(std::string(1200000, 'y'));
    bool failed = true;
    for (int n = 1; failed; ++n) {
        std::filesystem::remove_all(path());
        FaultyDisk disk(n, FaultyDisk::Fault::Full);
        bool thrown = false;
        try {
            ContentStore contents(path(), disk);
            contents.put("one");
            contents.putFile(file);
            contents.settle();
        } catch (const Failure& failure) {
            thrown = true;
            EXPECT_EQ(failure.kind(), FailureKind::CannotKeep);
        }
        failed = disk.hasFailed();
        if (!thrown) {
            // A copy that cannot be shared is made.
            EXPECT_EQ(store().bytes(digestOf(std::string(1200000, 'y'))).size(), 1200000U);
        }
    }
}

} // namespace krl::engine::testing
