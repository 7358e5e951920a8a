#include "tests/library/discovery/LinkedFunctions.h"

#include <cstddef>
#include <utility>

namespace {

bool failsNextAllocation = false;
std::vector<LinkedFunctions::CreatedArray> createdArrays;

} // namespace

void LinkedFunctions::failNextAllocation() {
    failsNextAllocation = true;
}

std::vector<LinkedFunctions::CreatedArray> LinkedFunctions::takeCreatedArrays() {
    return std::exchange(createdArrays, {});
}

// Visible, as shared libraries call functions of these names, too.
#pragma GCC visibility push(default)
extern "C" {
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);
CFMutableArrayRef __real_CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                              const CFArrayCallBacks* callBacks);
CFMutableArrayRef __wrap_CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                              const CFArrayCallBacks* callBacks);

void* __wrap_malloc(size_t size) {
    return std::exchange(failsNextAllocation, false) ? nullptr : __real_malloc(size);
}

CFMutableArrayRef __wrap_CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                              const CFArrayCallBacks* callBacks) {
    const CFMutableArrayRef array = __real_CFArrayCreateMutable(allocator, capacity, callBacks);
    createdArrays.push_back({array, allocator, capacity, callBacks});
    return array;
}
}
#pragma GCC visibility pop
