// The slot table against std::unordered_map with the same hash and the same equality.

#include "bench/Comparison.h"

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRTDictionary.h>

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace bench {
namespace {

struct Hash {
    size_t operator()(const void* key) const { return CFHash(key); }
};

struct Equal {
    bool operator()(const void* left, const void* right) const {
        return left == right || CFEqual(left, right);
    }
};

using Keys = std::vector<krl::cf::CFRef<CFStringRef>>;

std::shared_ptr<Keys> fileNames(int count) {
    auto keys = std::make_shared<Keys>();
    for (int i = 0; i < count; ++i) {
        keys->push_back(krl::cf::adopt(
            CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%c%c%c%c.m4r"), 'A' + i % 18,
                                     'A' + i / 18 % 18, 'A' + i / 324 % 18, 'A' + i / 5832 % 18)));
    }
    return keys;
}

void walkSlots(KRTDictionary* table, size_t count) {
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    KRTDictionaryGetKeysAndValues(table, keys.data(), values.data());
    benchmark::DoNotOptimize(keys.data());
}

constexpr size_t kGrowing = 10;

/// @param room  how many keys there is room for at first
void fillSlotTable(benchmark::State& state, const Keys& keys, size_t room) {
    for (auto _ : state) {
        KRTDictionary* table = KRTDictionaryWithCapacity(static_cast<KRTWord>(room));
        for (const auto& key : keys) {
            KRTDictionarySetObjectForKey(table, key.get(), key.get());
        }
        walkSlots(table, keys.size());
        KRTDictionaryRelease(table);
    }
}

void fillUnorderedMap(benchmark::State& state, const Keys& keys, size_t room) {
    for (auto _ : state) {
        std::unordered_map<const void*, const void*, Hash, Equal> table;
        table.reserve(room);
        for (const auto& key : keys) {
            table.insert_or_assign(key.get(), key.get());
        }
        std::vector<const void*> walked;
        walked.reserve(table.size());
        for (const auto& [key, value] : table) {
            walked.push_back(key);
        }
        benchmark::DoNotOptimize(walked.data());
    }
}

void compareFilling(const std::string& title, const std::shared_ptr<Keys>& keys, size_t room) {
    compare(
        {.title = "slot table, " + title,
         .ours = [keys, room](benchmark::State& state) { fillSlotTable(state, *keys, room); },
         .peer = [keys, room](benchmark::State& state) { fillUnorderedMap(state, *keys, room); }},
        "fill and walk; peer std::unordered_map, same hash");
}

} // namespace

void registerSlotTable() {
    for (const int count : {100, 10000}) {
        const std::shared_ptr<Keys> keys = fileNames(count);
        // With room for all, as the layout check makes it, and grown key by key.
        compareFilling(std::to_string(count), keys, keys->size());
        compareFilling(std::to_string(count) + " grown", keys, kGrowing);
    }
}

} // namespace bench
