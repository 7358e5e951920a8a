// Codes of the store that need a platform function to fail which hardly ever does, or one below the
// store that keeps its own reason to itself.
#include "tests/library/store/StoreTest.h"
#include "tests/library/store/WrappedCalls.h"

namespace {

class PlatformFailure : public StoreTest {
protected:
    PlatformFailure() { WrappedCalls::reset(); }

    ~PlatformFailure() override { WrappedCalls::reset(); }

    void expectRecorded(int code) {
        EXPECT_EQ(recordedCode(), code);
        EXPECT_STREQ(KRTErrorGetFile(), "KRTRingtoneManagerInternal");
    }

    int parse(const CFRef<CFMutableDictionaryRef>& list) {
        return KRTRingtoneManagerGeneratorParseDictionary(manager, list.get(), catalogue.get(),
                                                          baseNames.get());
    }

    CFRef<CFMutableDictionaryRef> catalogue = emptyDictionary();
    CFRef<CFMutableArrayRef> baseNames = arrayOf({});
};

// ---------------------------------------------------------------------------- memory

TEST_F(PlatformFailure, NoStoreRecordIsMadeWithoutMemory) {
    WrappedCalls::failMallocFrom = 1;
    KRTRingtoneManagerRef record = KRTRingtoneManagerForPhone(phone);
    WrappedCalls::failMallocFrom = 0;
    EXPECT_EQ(record, nullptr);
}

TEST_F(PlatformFailure, ACatalogueThatMemoryCannotHoldFailsTheLoadWithCode2) {
    putCatalogue({});
    fake.phone().fileInfo(kCatalogue, {{"st_size", "12345678"}});
    openPhone(10);
    WrappedCalls::failMallocFrom = 12345678;
    EXPECT_FALSE(load());
    expectRecorded(2);
    EXPECT_EQ(fake.countOf("AFCFileRefRead"), 0);
    EXPECT_EQ(counts(), (Counts{9, 1})) << "closed once, after one size query";
}

TEST_F(PlatformFailure, EntriesThatMemoryCannotHoldFailTheLoadWithCode2) {
    std::vector<std::pair<std::string, Tone>> entries;
    for (int i = 0; i < 1000; ++i) {
        entries.emplace_back(std::to_string(i) + ".m4r", companionOf("tone"));
    }
    putCatalogue(entries);
    openPhone(10);
    WrappedCalls::failNewFrom = 1000 * sizeof(void*);
    const auto list = load();
    WrappedCalls::failNewFrom = 0;
    EXPECT_FALSE(list);
    expectRecorded(2);
    EXPECT_EQ(counts(), (Counts{8, 1})) << "closed once, after a size query and a read";
}

TEST_F(PlatformFailure, TheBytesOfACatalogueAreHeldOnce) {
    putCatalogue({{"AAAA.m4r", companionOf("tone")}});
    EXPECT_TRUE(load());
    EXPECT_EQ(WrappedCalls::bytesCopied, 0u);
}

TEST_F(PlatformFailure, AListedNameThatNoFileCanHaveIsLeftAlone) {
    WrappedCalls::withoutPhone = true;
    WrappedCalls::listedNames = {"",          ".", "..",       "../../DCIM/IMG_0001.JPG",
                                 "sub/x.m4r", "/", "stray.m4r"};
    KRTRingtoneManagerCleanupPhoneDirectories(manager, arrayOf({}).get());
    EXPECT_THAT(WrappedCalls::removedPaths, ElementsAre(kFolder + "/stray.m4r"));
}

TEST_F(PlatformFailure, AListThatMemoryCannotHoldFailsTheParseWithCode0) {
    std::vector<Tone> tones;
    for (int i = 0; i < 1000; ++i) {
        tones.push_back(newTone("tone " + std::to_string(i), "m4r"));
    }
    const auto list = listOf(tones);
    WrappedCalls::failNewFrom = 1000 * sizeof(void*);
    const int result = parse(list);
    WrappedCalls::failNewFrom = 0;
    EXPECT_EQ(result, 0);
    expectRecorded(0);
    EXPECT_EQ(CFDictionaryGetCount(catalogue.get()), 0);
}

struct ContainerRow {
    const char* name;
    int nth;
};

void PrintTo(const ContainerRow& row, std::ostream* out) {
    *out << row.name;
}

class MissingContainers : public PlatformFailure,
                          public ::testing::WithParamInterface<ContainerRow> {};

TEST_P(MissingContainers, FailTheGenerationOnTheOlderLayoutWithCode2) {
    setFirmware("1.1.1");
    CFMutableDictionaryRef newCatalogue = nullptr;
    CFMutableDictionaryRef renames = nullptr;
    WrappedCalls::failNthDictionary = GetParam().nth;
    EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, nullptr, nullptr, nullptr, &newCatalogue,
                                              &renames),
              0);
    expectRecorded(2);
    EXPECT_EQ(newCatalogue, nullptr);
    EXPECT_EQ(renames, nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, MissingContainers,
                         ::testing::Values(ContainerRow{"Catalogue", 1},
                                           ContainerRow{"Renames", 2}),
                         [](const auto& row) { return row.param.name; });

// ---------------------------------------------------------------------------- paths

struct PathRow {
    const char* name;
    int* failing;
    int nth;
    int code;
};

void PrintTo(const PathRow& row, std::ostream* out) {
    *out << row.name;
}

class PathSplitting : public PlatformFailure, public ::testing::WithParamInterface<PathRow> {};

TEST_P(PathSplitting, FailsTheParseWithItsCode) {
    const auto list = listOf({putTone("A", "AAAA.m4r")});
    *GetParam().failing = GetParam().nth;
    EXPECT_EQ(parse(list), 0);
    expectRecorded(GetParam().code);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(CFDictionaryGetCount(catalogue.get()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, PathSplitting,
    ::testing::Values(PathRow{"WithoutExtension", &WrappedCalls::failNthURLStripping, 1, -3},
                      PathRow{"FileName", &WrappedCalls::failNthLastComponent, 1, -4},
                      PathRow{"BaseName", &WrappedCalls::failNthLastComponent, 2, -5}),
    [](const auto& row) { return row.param.name; });

// ---------------------------------------------------------------------------- the phone, silently

TEST_F(PlatformFailure, APhoneThatDoesNotOpenFailsTheLoadWithCode0) {
    WrappedCalls::failPhoneOpen = true;
    EXPECT_FALSE(load());
    expectRecorded(0);
}

TEST_F(PlatformFailure, ACatalogueThatIsNotReadFailsTheLoadWithCode2) {
    putCatalogue({});
    WrappedCalls::failRead = true;
    EXPECT_FALSE(load());
    expectRecorded(2);
}

TEST_F(PlatformFailure, APhoneThatDoesNotOpenFailsTheSubmitWithCode0) {
    WrappedCalls::failPhoneOpen = true;
    EXPECT_EQ(submit({}), 0);
    expectRecorded(0);
}

TEST_F(PlatformFailure, AServiceThatDoesNotStartFailsTheSubmitWithCode1) {
    openPhone(3);
    WrappedCalls::failServiceStart = true;
    EXPECT_EQ(submit({}), 0);
    expectRecorded(1);
    EXPECT_EQ(counts(), (Counts{3, 1})) << "opened and closed";
}

TEST_F(PlatformFailure, APlaceholderThatIsNotWrittenFailsTheSubmitWithCode2) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone tone = putTone("A", base + ".mp3").with("LocalPath", "/a");
    openPhone();
    WrappedCalls::failWrite = true;
    // The creation of the folder that is there would be the first error.
    Reports reports;
    reports.answer = [](size_t, const std::string&) {
        KRTErrorClear();
        return true;
    };
    reportTo(reports);
    EXPECT_EQ(submit({}, {}, {tone}), 0);
    expectRecorded(2);
}

TEST_F(PlatformFailure, AnUploadThatIsNotWrittenFailsTheSubmitWithCode5) {
    openPhone();
    WrappedCalls::failWrite = true;
    EXPECT_EQ(submit({toneWithSource("A", "m4r")}), 0);
    expectRecorded(5);
}

TEST_F(PlatformFailure, ACatalogueThatIsNotWrittenFailsNothing) {
    openPhone();
    WrappedCalls::failWrite = true;
    EXPECT_EQ(submit({}), 1);
    EXPECT_EQ(recordedCode(), std::nullopt);
}

} // namespace
