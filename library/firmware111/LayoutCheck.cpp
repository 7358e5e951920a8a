#include "library/firmware111/LayoutCheck.h"

#include "library/firmware111/FileNames.h"

#include <CoreFoundation/CFValues.h>

#include <algorithm>
#include <utility>

namespace krl {

using cf::adopt;
using cf::cast;
using cf::CFRef;

namespace {

/// In UTF-16 units. Longer names take no part in the rule about GUIDs.
constexpr CFIndex kLongestShortName = 8;

constexpr uint32_t kNoGUID = UINT32_MAX;

bool isShort(CFStringRef name) {
    return CFStringGetLength(name) <= kLongestShortName;
}

/// For how many entries the firmware's table is made.
KRTWord capacityFor(CFDictionaryRef catalogue) {
    constexpr CFIndex kSmallestCapacity = 10;
    return std::max(CFDictionaryGetCount(catalogue), kSmallestCapacity);
}

} // namespace

LayoutCheck::LayoutCheck(CFDictionaryRef catalogue)
    : catalogue_(catalogue), order_(capacityFor(catalogue)) {}

// ---------------------------------------------------------------------------- changes

void LayoutCheck::readAnew() {
    const std::vector<cf::Pair> pairs = cf::pairsOf(catalogue_);
    order_ = SlotOrder(capacityFor(catalogue_));
    entries_.clear();
    entries_.reserve(pairs.size());
    indices_.clear();
    indices_.reserve(pairs.size());
    guids_.clear();
    groups_.clear();
    touched_.clear();
    isTouched_.clear();
    listed_.clear();
    isOdd_ = false;
    for (const auto& [key, value] : pairs) {
        if (key != nullptr && value != nullptr) {
            append(key, value);
        }
    }
    isOdd_ = indices_.size() != pairs.size();
    isStale_ = false;
}

void LayoutCheck::append(CFTypeRef key, CFTypeRef entry) {
    const auto index = static_cast<uint32_t>(entries_.size());
    const auto [place, isNew] = indices_.try_emplace(cf::retain(key), index);
    if (!isNew) {
        leave(place->second);
        takePart(place->second, entry);
        return;
    }
    entries_.push_back({place->first, kNoGUID, 0, false, false, {}, {}});
    order_.append(index, CFHash(key));
    takePart(index, entry);
}

/// Gives an entry its part in the rules.
void LayoutCheck::takePart(uint32_t index, CFTypeRef entry) {
    const auto name = cast<CFStringRef>(entries_[index].key.get());
    if (name == nullptr) {
        return;
    }
    if (isShort(name)) {
        const uint32_t guid = indexOfGUID(entry);
        entries_[index].guid = guid;
        if (guid != kNoGUID) {
            entries_[index].placeInGroup = static_cast<uint32_t>(groups_[guid].size());
            groups_[guid].push_back(index);
            touchGroupOf(index);
        }
    } else if (CFStringHasSuffix(name, CFSTR("m4r"))) {
        entries_[index].reported = cf::retain(name);
        putInTheWay(index);
    }
}

/// Takes an entry out of what it had a part in.
void LayoutCheck::leave(uint32_t index) {
    Entry& entry = entries_[index];
    entry.isInTheWay = false;
    if (entry.guid != kNoGUID) {
        touchGroupOf(index);
        std::vector<uint32_t>& group = groups_[entry.guid];
        group[entry.placeInGroup] = group.back();
        entries_[group.back()].placeInGroup = entry.placeInGroup;
        group.pop_back();
        entry.guid = kNoGUID;
    }
}

void LayoutCheck::entryTaken(CFStringRef name) {
    isStale_ = isStale_ || isOdd_;
    if (isStale_) {
        return;
    }
    const auto found = indices_.find(cf::retain<CFTypeRef>(name));
    if (found == indices_.end()) {
        return;
    }
    const uint32_t index = found->second;
    leave(index);
    moved_.clear();
    isStale_ = !order_.remove(index, moved_);
    std::for_each(moved_.begin(), moved_.end(), [this](uint32_t other) { touchGroupOf(other); });
    entries_[index] = {{}, kNoGUID, 0, false, entries_[index].isListed, {}, {}};
    indices_.erase(found);
}

void LayoutCheck::entryPut(CFStringRef name, CFTypeRef entry) {
    isStale_ = isStale_ || isOdd_ || indices_.size() + 1 >= order_.slotCount();
    if (!isStale_) {
        append(name, entry);
    }
    // Those that are gone are cleared away at times.
    isStale_ = isStale_ || entries_.size() > 2 * indices_.size() + 1000;
}

// ---------------------------------------------------------------------------- the rules

/// Equal GUIDs have the same index.
uint32_t LayoutCheck::indexOfGUID(CFTypeRef entry) {
    const auto values = cast<CFDictionaryRef>(entry);
    const void* const guid =
        values != nullptr ? CFDictionaryGetValue(values, CFSTR("GUID")) : nullptr;
    if (guid == nullptr) {
        return kNoGUID;
    }
    const auto next = static_cast<uint32_t>(groups_.size());
    const auto [place, isNew] = guids_.try_emplace(cf::retain(guid), next);
    if (isNew) {
        groups_.emplace_back();
        isTouched_.push_back(false);
    }
    return place->second;
}

void LayoutCheck::touchGroupOf(uint32_t index) {
    const uint32_t guid = entries_[index].guid;
    if (guid != kNoGUID && !isTouched_[guid]) {
        isTouched_[guid] = true;
        touched_.push_back(guid);
    }
}

/// Of the entries of one GUID the first with an extension must be the m4r one, if any follows.
void LayoutCheck::judgeGroup(uint32_t guid) {
    const std::vector<uint32_t>& group = groups_[guid];
    isTouched_[guid] = false;
    CFRef<CFStringRef> firstExtension;
    uint32_t firstSlot = UINT32_MAX;
    if (group.size() > 1) {
        for (const uint32_t index : group) {
            const uint32_t slot = order_.slotOf(index);
            if (slot >= firstSlot) {
                continue;
            }
            auto extension = fileNameExtension(cast<CFStringRef>(entries_[index].key.get()));
            if (extension) {
                firstExtension = std::move(extension);
                firstSlot = slot;
            }
        }
    }
    const bool isInOrder = !firstExtension || CFEqual(firstExtension.get(), CFSTR("m4r"));
    for (const uint32_t index : group) {
        const bool follows = order_.slotOf(index) > firstSlot;
        judge(index, !isInOrder && follows ? firstExtension.get() : nullptr);
    }
}

/// @param firstExtension  the extension that stands in this entry's way; null when none does
void LayoutCheck::judge(uint32_t index, CFStringRef firstExtension) {
    Entry& entry = entries_[index];
    entry.isInTheWay = false;
    if (firstExtension == nullptr) {
        return;
    }
    if (!entry.extension || !CFEqual(entry.extension.get(), firstExtension)) {
        // Contract: what is reported is this entry's base name with the first entry's extension,
        // which need not be a name of the catalogue.
        // [LayoutCheck.WhatIsReturnedIsTheLaterBaseWithTheFirstExtension]
        entry.extension = cf::retain(firstExtension);
        entry.reported =
            nameWithExtension(cast<CFStringRef>(entry.key.get()), entry.extension.get());
    }
    if (entry.reported) {
        putInTheWay(index);
    }
}

void LayoutCheck::putInTheWay(uint32_t index) {
    Entry& entry = entries_[index];
    entry.isInTheWay = true;
    if (!entry.isListed) {
        entry.isListed = true;
        listed_.push_back(index);
    }
}

LayoutCheck::Names LayoutCheck::namesInTheWay() {
    // With another number of entries the firmware's table may have other slots.
    if (isStale_ || order_.slotCount() != SlotOrder::slotCountFor(capacityFor(catalogue_))) {
        readAnew();
    }
    for (const uint32_t guid : touched_) {
        judgeGroup(guid);
    }
    touched_.clear();
    std::erase_if(listed_, [this](uint32_t index) {
        Entry& entry = entries_[index];
        entry.isListed = entry.isInTheWay;
        return !entry.isInTheWay;
    });
    std::sort(listed_.begin(), listed_.end(), [this](uint32_t one, uint32_t other) {
        return order_.slotOf(one) < order_.slotOf(other);
    });
    Names names;
    names.reserve(listed_.size());
    for (const uint32_t index : listed_) {
        names.push_back(entries_[index].reported);
    }
    return names;
}

CFRef<CFMutableArrayRef> namesInTheWay(CFDictionaryRef catalogue) noexcept {
    const LayoutCheck::Names names = LayoutCheck(catalogue).namesInTheWay();
    if (names.empty()) {
        return {};
    }
    auto array = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const auto& name : names) {
        CFArrayAppendValue(array.get(), name.get());
    }
    return array;
}

} // namespace krl
