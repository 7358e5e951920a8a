#include "tags/AudioFacts.h"

#include <gtest/gtest.h>

using namespace krl::tags;

namespace {

AudioFacts someFacts() {
    return {.container = "MPEG-4",
            .codec = "AAC-LC",
            .channels = 2,
            .sampleRate = 44100,
            .bits = 16,
            .kilobits = 128,
            .lengthMs = 30000,
            .encrypted = true,
            .title = "Glöckchen \"1\"",
            .artist = "me",
            .pictureBytes = 50'000'000};
}

} // namespace

TEST(AudioFactsAsText, ComeBackAsTheyWere) {
    EXPECT_EQ(decodedFacts(encoded(someFacts())), someFacts());
    EXPECT_EQ(decodedFacts(encoded({})), AudioFacts{});
}

TEST(AudioFactsAsText, WhatIsNoneOfThemIsNone) {
    for (const char* text : {"", "{", "[]", "null", "{}", "{\"container\": 1}"}) {
        EXPECT_EQ(decodedFacts(text), std::nullopt) << text;
    }
    std::string wrong = encoded(someFacts());
    wrong.replace(wrong.find("44100"), 5, "\"abc\"");
    EXPECT_EQ(decodedFacts(wrong), std::nullopt);
}

TEST(AudioFactsAsText, TitlesThatAreTooLongAreLeftOut) {
    AudioFacts facts = someFacts();
    facts.title = std::string(4097, 'a');
    facts.artist = std::string(4096, '\x01');
    const std::string text = encoded(facts);
    EXPECT_LE(text.size(), kLongestFacts);
    EXPECT_EQ(decodedFacts(text)->title, "");
    EXPECT_EQ(decodedFacts(text)->artist, facts.artist);
}
