#include "tests/corefoundation/Support.h"
#include "tests/support/TemporaryFolder.h"

#include <CoreFoundation/CFValues.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace krl::cf::test {
namespace {

CFRef<CFURLRef> makeURL(std::string_view path, bool isDirectory = false) {
    return adopt(CFURLCreateWithFileSystemPath(nullptr, makeString(path).get(),
                                               kCFURLPOSIXPathStyle, isDirectory));
}

std::string pathOf(const CFRef<CFURLRef>& url) {
    return textOf(adopt(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle)).get());
}

std::string lastComponentOf(const CFRef<CFURLRef>& url) {
    return textOf(adopt(CFURLCopyLastPathComponent(url.get())).get());
}

Json derived(CFRef<CFURLRef> url) {
    return {{"file_system_path", pathOf(url)}, {"last_path_component", lastComponentOf(url)}};
}

Json extensionOf(const CFRef<CFURLRef>& url) {
    auto extension = adopt(CFURLCopyPathExtension(url.get()));
    return extension ? Json(textOf(extension.get())) : Json();
}

std::string representationOf(const CFRef<CFURLRef>& url) {
    UInt8 buffer[4096];
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, buffer, sizeof buffer));
    return reinterpret_cast<const char*>(buffer);
}

// ---------------------------------------------------------------------------- vectors

TEST(URLVectors, Paths) {
    int tested = 0;
    for (const Json& row : loadVectors("url.json", "vectors")) {
        if (row.contains("quirk")) {
            continue; // odd there, and asked for by nobody
        }
        SCOPED_TRACE(row.dump(-1, ' ', true));
        auto url = makeURL(row.at("path").get<std::string>(), row.at("is_directory"));
        const Json& expected = row.at("result");
        ASSERT_EQ(static_cast<bool>(url), !expected.is_null());
        ++tested;
        if (!url) {
            continue;
        }
        EXPECT_EQ(lastComponentOf(url), expected.at("last_path_component"));
        EXPECT_EQ(extensionOf(url), expected.at("path_extension"));
        EXPECT_EQ(pathOf(url), expected.at("file_system_path"));
        EXPECT_EQ(CFURLHasDirectoryPath(url.get()) != 0,
                  expected.at("has_directory_path").get<bool>());
        EXPECT_EQ(textOf(adopt(CFURLCopyPath(url.get())).get()),
                  expected.at("url_path_percent_encoded"));
        EXPECT_EQ(derived(adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()))),
                  expected.at("deleting_path_extension"));
        EXPECT_EQ(
            derived(adopt(CFURLCreateCopyAppendingPathExtension(nullptr, url.get(), CFSTR("mp3")))),
            expected.at("appending_path_extension_mp3"));
        EXPECT_EQ(derived(adopt(CFURLCreateCopyAppendingPathComponent(nullptr, url.get(),
                                                                      CFSTR("KDAQ.m4r"), false))),
                  expected.at("appending_path_component_KDAQ_m4r"));
        EXPECT_EQ(derived(adopt(CFURLCreateCopyDeletingLastPathComponent(nullptr, url.get()))),
                  expected.at("deleting_last_path_component"));
        if (expected.contains("absolute_string")) {
            EXPECT_EQ(textOf(CFURLGetString(url.get())), expected.at("absolute_string"));
        }
        EXPECT_EQ(asHex(representationOf(url)), expected.at("file_system_representation_hex"));
    }
    EXPECT_GT(tested, 60);
}

// ---------------------------------------------------------------------------- URLs

TEST(URL, OfAFileIsNullWhereThePathIs) {
    EXPECT_EQ(fileURL(nullptr), nullptr);
    EXPECT_EQ(fileURL(CFSTR("")), nullptr);
    const auto url = fileURL(CFSTR("/a b"));
    EXPECT_EQ(pathOf(url), "/a b");
    EXPECT_FALSE(CFURLHasDirectoryPath(url.get()));
}

TEST(URL, OfAnEmptyPathIsNull) {
    EXPECT_FALSE(makeURL(""));
}

TEST(URL, OfTextThatIsNoUnicodeIsNull) {
    const UniChar unpaired[] = {'/', 0xD83C};
    auto path = adopt(CFStringCreateWithCharacters(nullptr, unpaired, 2));
    EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, path.get(), kCFURLPOSIXPathStyle, false),
              nullptr);
    auto url = makeURL("/a");
    EXPECT_EQ(CFURLCreateCopyAppendingPathComponent(nullptr, url.get(), path.get(), false),
              nullptr);
    EXPECT_EQ(CFURLCreateCopyAppendingPathExtension(nullptr, url.get(), path.get()), nullptr);
}

TEST(URL, KnowsThePosixStyleOnly) {
    EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR("a"), 1, false), nullptr);
    EXPECT_EQ(CFURLCopyFileSystemPath(makeURL("a").get(), 1), nullptr);
}

TEST(URL, EveryCharacterOfANameComesBack) {
    std::string name;
    for (int byte = 1; byte < 128; ++byte) {
        name += static_cast<char>(byte);
    }
    name += "\xC3\xA9\xF0\x9F\x8E\xB5";
    std::erase(name, '/');
    EXPECT_EQ(lastComponentOf(makeURL("/a/" + name)), name);
    EXPECT_EQ(pathOf(makeURL(name)), name);
}

TEST(URL, RepresentationNeedsRoomForTheZero) {
    auto url = makeURL("/abc");
    UInt8 buffer[5];
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, buffer, 5));
    EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "/abc");
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.get(), true, buffer, 4));
}

TEST(URL, ANameWithAZeroHasNoRepresentation) {
    auto url = makeURL(std::string_view("/a\0b", 4));
    ASSERT_TRUE(url);
    UInt8 buffer[16];
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.get(), true, buffer, sizeof buffer));
}

TEST(URL, IsMadeOfARepresentation) {
    const std::string path = "/caf\xC3\xA9";
    auto url = adopt(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
        false));
    EXPECT_EQ(pathOf(url), path);
    EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(
                  nullptr, reinterpret_cast<const UInt8*>("\xFF"), 1, false),
              nullptr);
}

TEST(URL, EqualsAndHashesLikeItsString) {
    auto url = makeURL("/a b");
    EXPECT_TRUE(CFEqual(url.get(), makeURL("/a b").get()));
    EXPECT_FALSE(CFEqual(url.get(), makeURL("/a b", true).get()));
    EXPECT_EQ(CFHash(url.get()), CFHash(CFURLGetString(url.get())));
}

// ---------------------------------------------------------------------------- files

/// A folder of its own for each test.
class FileReading : public ::testing::Test {
protected:
    std::string pathOfFile(const std::string& name, const std::string& contents) const {
        const std::string path = folder_ + "/" + name;
        std::ofstream(path, std::ios::binary) << contents;
        return path;
    }

    struct Result {
        bool done;
        CFRef<CFDataRef> data;
        SInt32 errorCode;
    };

    static Result read(const std::string& path) {
        CFDataRef data = reinterpret_cast<CFDataRef>(&data); // must be overwritten
        SInt32 errorCode = -1;
        const bool done = CFURLCreateDataAndPropertiesFromResource(
            nullptr, makeURL(path).get(), &data, nullptr, nullptr, &errorCode);
        return {done, adopt(data), errorCode};
    }

    static void expectFailure(const std::string& path, int error) {
        const Result result = read(path);
        EXPECT_FALSE(result.done) << path;
        EXPECT_FALSE(result.data) << path;
        EXPECT_EQ(result.errorCode, error) << path;
    }

    const virtualphone::testing::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path().string();
};

TEST_F(FileReading, GivesTheWholeContents) {
    std::string contents;
    for (int i = 0; i < 100000; ++i) {
        contents += std::to_string(i);
    }
    for (const std::string& bytes : {std::string("a\0b", 3), contents}) {
        const Result result = read(pathOfFile("caf\xC3\xA9 %41", bytes));
        EXPECT_TRUE(result.done);
        EXPECT_EQ(result.errorCode, 0);
        ASSERT_TRUE(result.data);
        EXPECT_EQ(bytesOf(result.data.get()), bytes);
    }
}

TEST_F(FileReading, OfAnEmptyFileGivesEmptyData) {
    const Result result = read(pathOfFile("empty", ""));
    EXPECT_TRUE(result.done);
    ASSERT_TRUE(result.data);
    EXPECT_EQ(CFDataGetLength(result.data.get()), 0);
}

TEST_F(FileReading, WorksForFilesThatTellNoSize) {
    const Result result = read("/proc/self/status");
    EXPECT_TRUE(result.done);
    EXPECT_GT(CFDataGetLength(result.data.get()), 100);
}

TEST_F(FileReading, FailsWithTheSystemsErrorNumber) {
    expectFailure(folder_ + "/missing", ENOENT);
    expectFailure(folder_, EISDIR);
    expectFailure(folder_ + "/" + std::string(5000, 'x'), ENAMETOOLONG);
    expectFailure(pathOfFile("file", "a") + "/below", ENOTDIR);
    ASSERT_EQ(mkfifo((folder_ + "/pipe").c_str(), 0600), 0);
    expectFailure(folder_ + "/pipe", EINVAL);
}

TEST_F(FileReading, FailsForAFileThatMayNotBeRead) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may read every file";
    }
    const std::string path = pathOfFile("secret", "a");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    expectFailure(path, EACCES);
}

TEST_F(FileReading, NeedsNoneOfTheResults) {
    auto url = makeURL(pathOfFile("file", "a"));
    EXPECT_TRUE(CFURLCreateDataAndPropertiesFromResource(nullptr, url.get(), nullptr, nullptr,
                                                         nullptr, nullptr));
    CFDictionaryRef properties = CFDictionaryRef(1);
    EXPECT_TRUE(CFURLCreateDataAndPropertiesFromResource(nullptr, url.get(), nullptr, &properties,
                                                         nullptr, nullptr));
    EXPECT_EQ(properties, nullptr);
}

} // namespace
} // namespace krl::cf::test
