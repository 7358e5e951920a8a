#include "tags/AacProfile.h"

#include <gtest/gtest.h>

#include <string>

using krl::tags::factsOfStream;

namespace {

/// A descriptor with its size, which fits into seven bits.
std::string descriptor(char tag, const std::string& contents) {
    return std::string{tag, static_cast<char>(contents.size())} + contents;
}

std::string stream(char object, const std::string& configuration) {
    const std::string decoder =
        std::string(1, object) + std::string(12, '\0') + descriptor(5, configuration);
    return std::string(4, '\0') + descriptor(3, std::string(3, '\0') + descriptor(4, decoder));
}

struct Row {
    const char* rule;
    std::string stream;
    const char* codec;
};

} // namespace

TEST(AacProfile, IsWhatTheStreamSays) {
    const std::string longSizes = [] {
        // The same as "\x12\x10" below, with sizes of four bytes as some writers have them.
        const std::string configuration = std::string("\x05\x80\x80\x80\x02\x12\x10", 7);
        const std::string decoder = std::string("\x40", 1) + std::string(12, '\0') + configuration;
        return std::string(4, '\0') + std::string("\x03\x80\x80\x80\x1c", 5) +
               std::string(3, '\0') + std::string("\x04\x80\x80\x80\x14", 5) + decoder;
    }();
    const Row rows[] = {
        {"low complexity", stream(0x40, "\x12\x10"), "AAC-LC"},
        {"sizes of four bytes", longSizes, "AAC-LC"},
        {"spectral band replication first", stream(0x40, "\x2b\x92\x08"), "HE-AAC"},
        {"parametric stereo first", stream(0x40, "\xeb\x8a\x08"), "HE-AAC"},
        {"replication behind low complexity", stream(0x40, std::string("\x13\x90\x56\xe5\xa0", 5)),
         "HE-AAC"},
        {"said not to be there", stream(0x40, std::string("\x15\x88\x56\xe5\x00", 5)), "AAC-LC"},
        {"main profile", stream(0x40, "\x0a\x10"), "AAC of another profile"},
        {"MPEG-2 low complexity", stream(0x67, ""), "AAC-LC"},
        {"MP3 in an MPEG-4 file", stream(0x6B, ""), "MP3"},
        {"no configuration", std::string("\0\0\0\0\x03\x11\0\0\0\x04\x0d\x40", 12), "unknown"},
        {"another stream", stream(0x20, ""), "unknown"},
        {"nothing", "", "unknown"},
        {"a size without end", std::string("\0\0\0\0\x03\xff\xff\xff\xff\xff", 10), "unknown"},
        {"cut off", std::string("\0\0\0\0\x03\x20\0\0", 8), "unknown"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(factsOfStream(row.stream).codec, row.codec) << row.rule;
    }
}

TEST(AacProfile, ChannelsAreWhatTheStreamSays) {
    EXPECT_EQ(factsOfStream(stream(0x40, "\x12\x10")).channels, 2);
    EXPECT_EQ(factsOfStream(stream(0x40, "\x12\x30")).channels, 6);
    EXPECT_EQ(factsOfStream(stream(0x40, "\x12\x38")).channels, 8);
    EXPECT_EQ(factsOfStream(stream(0x40, std::string("\x12\x00", 2))).channels, 0);
    EXPECT_EQ(factsOfStream(stream(0x40, std::string("\x17\x80\x56\x22\x10", 5))).channels, 2)
        << "a rate of its own";
}
