// Functions that the store calls, wrapped by the linker: to let one fail that otherwise never does,
// and to count what calls cost. Only calls from the code under test and from the tests go through
// here, not those within libKRLCoreFoundation.so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct WrappedCalls {
    /// Everything as without the wrapping.
    static void reset();

    // ------------------------------------------------------------ failures

    /// The n-th call from now gives null; 0: none does.
    static int failNthURLStripping;
    static int failNthLastComponent;
    static int failNthDictionary;
    /// Allocations of at least this many bytes fail; 0: none does.
    static size_t failMallocFrom;
    static size_t failNewFrom;

    /// Phone functions that give 0 and do nothing else, not even report.
    static bool failPhoneOpen;
    static bool failServiceStart;
    static bool failRead;
    static bool failWrite;

    // ------------------------------------------------------------ cost

    /// Phone functions succeed without a phone: every file is there, a listing has listingCount
    /// names.
    static bool withoutPhone;
    static int listingCount;
    static std::vector<std::string> listedNames;  ///< in the listing too
    static std::vector<std::string> removedPaths; ///< while there is no phone

    /// Hashes and comparisons that were asked for, and the lengths of arrays that were searched.
    static uint64_t cost;
    static int tonesSearched;    ///< calls of KRTRingtoneManagerFindToneForGUID
    static uint64_t bytesCopied; ///< by CFDataCreate
};
