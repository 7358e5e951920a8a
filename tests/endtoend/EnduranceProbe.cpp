// endurance_probe FILE COUNT: adds a ringtone with the contents of FILE to the phone that is there
// and removes it again, COUNT times, and prints the blocks of memory and the descriptors in use after
// a tenth of that and at the end.

#include "tests/endtoend/Lists.h"
#include "tests/endtoend/Probe.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

namespace {

/// Blocks that are allocated. What the C library says of its heap counts what it holds back for the
/// next one, too.
std::atomic<long> blocks{0};

} // namespace

extern "C" {

void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void __libc_free(void* block);

void* malloc(size_t bytes) {
    ++blocks;
    return __libc_malloc(bytes);
}

void* calloc(size_t count, size_t bytes) {
    ++blocks;
    return __libc_calloc(count, bytes);
}

void* realloc(void* block, size_t bytes) {
    blocks += block == nullptr ? 1 : 0;
    return __libc_realloc(block, bytes);
}

void free(void* block) {
    blocks -= block == nullptr ? 0 : 1;
    __libc_free(block);
}

} // extern "C"

namespace {

KRTPhoneRef arrived = nullptr;

long descriptorsInUse() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

bool sync(const krl::test::List& added, const krl::test::List& removed,
          const krl::test::List& unchanged) {
    const auto store = KRTPhoneGetRingtoneManager(arrived);
    const bool submitted =
        KRTPhoneOpen(arrived) == 1 && KRTPhoneBeginSync(arrived) == 1 &&
        KRTRingtoneManagerSubmitChanges(store, added.get(), removed.get(), unchanged.get()) == 1;
    const bool ended = KRTPhoneEndSync(arrived) == 1;
    KRTPhoneClose(arrived);
    KRTErrorClear();
    return submitted && ended;
}

bool addAndRemove(const std::string& file) {
    const auto none = krl::test::emptyList();
    const auto added = krl::test::emptyList();
    krl::test::addNew(added, "tone", file);
    if (!sync(added, none, none)) {
        return false;
    }
    const auto there = krl::cf::adopt(
        KRTRingtoneManagerLoadCurrentRingtoneList(KRTPhoneGetRingtoneManager(arrived)));
    return CFDictionaryGetCount(there.get()) == 1 && sync(none, there, none);
}

} // namespace

int main(int, char** argv) {
    const std::string file = argv[1];
    const int count = std::atoi(argv[2]);
    arrived = krl::test::awaitPhone();
    if (arrived == nullptr) {
        return 2;
    }
    for (int i = 1; i <= count; ++i) {
        if (!addAndRemove(file)) {
            std::fprintf(stderr, "sync %d: %d\n", i, KRTErrorGetCode());
            return 3;
        }
        if (i == count / 10 || i == count) {
            std::printf("%ld %ld\n", blocks.load(), descriptorsInUse());
        }
    }
    return 0;
}
