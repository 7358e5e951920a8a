#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <vector>

/// Functions of the system that the linker leads to the test.
struct LinkedFunctions {
    /// The next allocation fails, once.
    static void failNextAllocation();

    struct CreatedArray {
        CFMutableArrayRef array;
        CFAllocatorRef allocator;
        CFIndex capacity;
        const CFArrayCallBacks* callBacks;
    };

    /// The mutable arrays made since the last call.
    static std::vector<CreatedArray> takeCreatedArrays();
};
