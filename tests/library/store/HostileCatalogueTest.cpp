// Catalogues that no writer of ours has left: nothing crashes, and what is sound stays.
#include "tests/library/store/StoreTest.h"

#include <algorithm>

namespace {

const std::vector<std::string> kOddFileNames = {
    "x",
    "m4r",
    ".m4r",
    "..",
    ".",
    "...",
    "a.",
    "a..m4r",
    "a b c.m4r",
    "a.m 4r",
    "a:b.m4r",
    "a/b.m4r",
    "/etc/passwd",
    "../../escape.m4r",
    "../iTunes/Ringtones.plist",
    "%2e%2e%2fx.m4r",
    "%s%n%@.m4r",
    "tab\there.m4r",
    "line\nbreak.m4r",
    "\x1B[31mred.m4r",
    "\xC3\xA9t\xC3\xA9.mp3",
    "e\xCC\x81t\xC3\xA9.mp3",
    "\xF0\x9F\x8E\xB5.m4r",
    "\xE2\x80\xAEgnp.m4r",
    "#?;=&<>'\".wav",
    "LONGNAMEm4r",
    std::string(3000, 'n') + ".m4r",
    std::string(3000, 'n') + ".mp3",
};

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// An entry for each way to be odd.
std::vector<Tone> oddEntries() {
    const Tone sound = companionOf("sound").with("LocalPath", "/s");
    std::vector<Tone> entries = {Tone(), Tone().with("Name", "only a name")};
    const auto nested = emptyDictionary();
    CFDictionarySetValue(nested.get(), CFSTR("deep"), CFSTR("value"));
    const auto list = arrayOf({"a", "b"});
    const auto wholeNumber = number(42);
    const std::vector<CFTypeRef> wrongTypes = {nested.get(), list.get(), wholeNumber.get(),
                                               kCFBooleanFalse, CFSTR("")};
    for (const char* key : {"Name", "GUID", "FileType", "FileSize", "LocalPath", "RemotePath",
                            "LocalData", "NeedsSync", "TrackID"}) {
        entries.push_back(Tone(textsOf(sound.get())).without(key));
        for (const CFTypeRef wrong : wrongTypes) {
            entries.push_back(Tone(textsOf(sound.get())).withObject(key, wrong));
        }
    }
    for (const std::string& name :
         {std::string("\x1B]0;title\x07"), std::string(5000, 'x'), std::string("a\nb"),
          std::string("\xF0\x9F\x8E\xB5"), std::string("%s%n%@"), std::string("../..")}) {
        entries.push_back(Tone(textsOf(sound.get())).with("Name", name).with("GUID", name));
    }
    return entries;
}

class HostileCatalogues : public StoreTest, public ::testing::WithParamInterface<const char*> {
protected:
    HostileCatalogues() { setFirmware(GetParam()); }

    /// File names may hold an escape character, which our writer never writes.
    void putOddCatalogue(std::vector<std::pair<std::string, Tone>> entries) {
        constexpr std::string_view kEscape = "\x1B";
        constexpr std::string_view kStandIn = "\xEE\x80\x9B";
        for (auto& [fileName, entry] : entries) {
            fileName = replaced(fileName, kEscape, kStandIn);
        }
        putCatalogue(entries);
        putCatalogueBytes(replaced(fake.phone().contents(kCatalogue), kStandIn, kEscape));
    }

    /// Loads the phone's list and submits it as it is, with one ringtone more.
    void loadAndSubmit() {
        const auto list = load();
        ASSERT_TRUE(list);
        for (const auto& [name, tone] : pairsIn(list.get())) {
            ASSERT_NE(cast<CFDictionaryRef>(tone), nullptr);
            EXPECT_EQ(textOf(valueOf(cast<CFDictionaryRef>(tone), "Name")), name);
        }
        const auto added = listOf({toneWithSource("added here", "mp3", "music")});
        openPhone();
        const int result =
            KRTRingtoneManagerSubmitChanges(manager, added.get(), listOf({}).get(), list.get());
        ASSERT_THAT(result, AnyOf(0, 1));
        if (result == 1) {
            EXPECT_THAT(keysOf(load().get()), Contains("added here"));
        } else {
            EXPECT_NE(recordedCode(), std::nullopt);
        }
        expectRemovable(list.get());
    }

    /// All that was loaded can be taken off again.
    void expectRemovable(CFDictionaryRef list) {
        while (counts().open > 0) {
            KRTPhoneClose(phone);
        }
        openPhone();
        EXPECT_EQ(
            KRTRingtoneManagerSubmitChanges(manager, listOf({}).get(), list, listOf({}).get()), 1);
        EXPECT_THAT(loaded(), IsEmpty());
    }
};

TEST_P(HostileCatalogues, WithOddFileNames) {
    for (const std::string& fileName : kOddFileNames) {
        SCOPED_TRACE(fileName);
        fake.phone().file(kFolder + "/" + fileName, "music");
        putOddCatalogue({{fileName, companionOf("A").with("LocalPath", "/a")}});
        loadAndSubmit();
    }
}

TEST_P(HostileCatalogues, WithControlCharactersInANameAreWrittenBackAsXML) {
    fake.phone().file(kFolder + "/AAAA.m4r", "music");
    putCatalogue({{"AAAA.m4r", companionOf("A").with("LocalPath", "/a")}});
    putCatalogueBytes(replaced(fake.phone().contents(kCatalogue), "<string>A<",
                               std::string("<string>\x1B&#7;\0<", 15)));
    const auto list = load();
    openPhone();
    ASSERT_EQ(
        KRTRingtoneManagerSubmitChanges(manager, listOf({}).get(), listOf({}).get(), list.get()),
        1);
    const std::string& written = fake.phone().contents(kCatalogue);
    EXPECT_TRUE(std::all_of(written.begin(), written.end(), [](char character) {
        return static_cast<unsigned char>(character) >= ' ' || character == '\t' ||
               character == '\n';
    }));
    EXPECT_THAT(keysOf(load().get()), Contains("\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"));
}

TEST_P(HostileCatalogues, WithAllOddFileNamesAtOnce) {
    std::vector<std::pair<std::string, Tone>> entries;
    for (const std::string& fileName : kOddFileNames) {
        fake.phone().file(kFolder + "/" + fileName, "music");
        entries.emplace_back(fileName, companionOf("tone of " + fileName).with("LocalPath", "/a"));
    }
    putOddCatalogue(entries);
    loadAndSubmit();
}

TEST_P(HostileCatalogues, WithAnEmptyFileName) {
    fake.phone().directory(kFolder);
    putCatalogue({{"", companionOf("A").with("LocalPath", "/a")}});
    loadAndSubmit();
}

TEST_P(HostileCatalogues, WithOddEntries) {
    for (const Tone& entry : oddEntries()) {
        for (const char* fileName : {"AAAA.m4r", "AAAA.mp3", "Long name.m4r", "Long name.mp3"}) {
            SCOPED_TRACE(std::string(fileName) + " " +
                         textOf(adopt(CFCopyDescription(entry.get())).get()));
            fake.phone().file(kFolder + "/" + fileName, "music");
            putCatalogue({{fileName, entry}});
            KRTErrorClear();
            loadAndSubmit();
        }
    }
}

TEST_P(HostileCatalogues, WithAllOddEntriesAtOnceAndSharedGUIDs) {
    std::vector<std::pair<std::string, Tone>> entries;
    int i = 0;
    for (const Tone& entry : oddEntries()) {
        const std::string fileName =
            std::string("T") + std::to_string(100 + i) + (i % 2 == 0 ? ".m4r" : ".mp3");
        fake.phone().file(kFolder + "/" + fileName, "music");
        entries.emplace_back(fileName, entry);
        ++i;
    }
    putCatalogue(entries);
    loadAndSubmit();
}

INSTANTIATE_TEST_SUITE_P(Firmware, HostileCatalogues, ::testing::Values("1.0.0", "1.1.1", "1.1.3"));

TEST(HostileNames, AZeroInAFileNameDoesNotReachAnotherFile) {
    Store store;
    store.fake.phone().file(kFolder + "/ABCD.m4r", "music");
    // Ends for the phone after "ABCD.m4r", were it handed on.
    const UniChar name[] = {'A', 'B', 'C', 'D', '.', 'm', '4', 'r', 0, '.', 'm', '4', 'r'};
    const auto path = adopt(CFStringCreateMutableCopy(nullptr, 0, string(kFolder + "/").get()));
    CFStringAppendCharacters(path.get(), name, 13);
    const Tone tone = newTone("A", "m4r").withObject("RemotePath", path.get());
    EXPECT_EQ(store.sync({}, {tone}), 1);
    EXPECT_THAT(store.fake.callsOf("AFCRemovePath"),
                ElementsAre("AFCRemovePath null", "AFCRemovePath " + kFolder + "/ABCD.m4r"))
        << "the second is the cleanup's";
}

} // namespace
