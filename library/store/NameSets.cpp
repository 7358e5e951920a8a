#include "library/store/NameSets.h"

#include <KRLVesk/KRTRingtoneManager.h>

namespace krl::ringtones {
namespace {

template <typename Function>
void forEachName(CFArrayRef names, Function function) {
    const CFIndex count = CFArrayGetCount(names);
    for (CFIndex i = 0; i < count; ++i) {
        const auto name = cf::cast<CFStringRef>(CFArrayGetValueAtIndex(names, i));
        if (name != nullptr) {
            function(name);
        }
    }
}

} // namespace

NameSet::NameSet(CFArrayRef names) {
    forEachName(names, [this](CFStringRef name) { add(name); });
}

void NameSet::add(CFStringRef name) {
    names_.insert(cf::retain(name));
}

bool NameSet::contains(CFTypeRef name) const {
    return names_.contains(cf::retain(name));
}

BaseNames::BaseNames(CFArrayRef names) {
    forEachName(names, [this](CFStringRef name) { append(name); });
}

void BaseNames::append(CFStringRef name) {
    const auto place = list_.insert(list_.end(), cf::retain(name));
    places_[*place].push_back(place);
}

void BaseNames::removeFirst(CFStringRef name) {
    const auto found = places_.find(cf::retain(name));
    if (found == places_.end()) {
        return;
    }
    list_.erase(found->second.front());
    found->second.pop_front();
    if (found->second.empty()) {
        places_.erase(found);
    }
}

cf::CFRef<CFStringRef> BaseNames::drawUnused() const {
    auto name = cf::adopt(KRTRingtoneManagerGenerateHash());
    while (contains(name.get())) {
        name = cf::adopt(KRTRingtoneManagerGenerateHash());
    }
    return name;
}

void BaseNames::storeInto(CFMutableArrayRef names) const {
    CFArrayRemoveAllValues(names);
    for (const Name& name : list_) {
        CFArrayAppendValue(names, name.get());
    }
}

} // namespace krl::ringtones
