// How often a locale is loaded, counted by standing in for the function that does it.
#include "engine/values/Text.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <locale.h>

#include <atomic>

namespace {

std::atomic<size_t> loadedLocales{0};

} // namespace

extern "C" __attribute__((visibility("default"))) locale_t newlocale(int mask, const char* name,
                                                                     locale_t base) noexcept {
    static const auto original =
        reinterpret_cast<decltype(&newlocale)>(dlsym(RTLD_NEXT, "newlocale"));
    ++loadedLocales;
    return original(mask, name, base);
}

TEST(TextLocale, IsLoadedOnceForAllTexts) {
    krl::engine::displayWidth("着信音");
    const size_t before = loadedLocales;
    EXPECT_GT(before, 0U);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(krl::engine::displayWidth("着信音"), 6U);
        EXPECT_EQ(krl::engine::fitted("着信音", 4), "着…");
        EXPECT_EQ(krl::engine::closeNames("GLÖCKCHEN", {"Glöckchen"}).size(), 1U);
    }
    EXPECT_EQ(loadedLocales, before);
}

TEST(TextLocale, IsNotLeftToTheThread) {
    const locale_t before = uselocale(nullptr);
    krl::engine::displayWidth("着信音");
    EXPECT_EQ(uselocale(nullptr), before);
}
