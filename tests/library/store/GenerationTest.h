// Generation of catalogues, for the tests of its parts.
#pragma once

#include "tests/library/store/StoreTest.h"

struct Generated {
    CFRef<CFMutableDictionaryRef> catalogue;
    CFRef<CFMutableDictionaryRef> renames;
};

class Generation : public StoreTest {
protected:
    /// A generation that must succeed.
    Generated generate(const std::vector<Tone>& added, const std::vector<Tone>& unchanged) {
        Generated generated;
        EXPECT_EQ(KRTRingtoneManagerGeneratePList(
                      manager, listOf(added).get(), nullptr, listOf(unchanged).get(),
                      generated.catalogue.receive(), generated.renames.receive()),
                  1)
            << "code " << KRTErrorGetCode();
        return generated;
    }
};
