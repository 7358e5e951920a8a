#include "mobiledevice/provider/devices/Handles.h"

#include <utility>

namespace krl::provider {

Handles::Id Handles::add(std::shared_ptr<Object> object, Id owner) {
    const std::lock_guard lock(mutex_);
    if (owner != 0 && !entries_.contains(owner)) {
        return 0;
    }
    const Id id = ++lastId_;
    entries_.emplace(id, Entry{std::move(object), owner, 1, {}});
    if (owner != 0) {
        entries_.at(owner).owned.insert(id);
    }
    return id;
}

std::shared_ptr<Object> Handles::objectOf(Id id) const {
    const auto entry = entries_.find(id);
    return entry == entries_.end() ? nullptr : entry->second.object;
}

void Handles::remove(Id id, std::vector<Entry>& removed) {
    auto node = entries_.extract(id);
    Entry& entry = node.mapped();
    if (const auto owner = entries_.find(entry.owner); owner != entries_.end()) {
        owner->second.owned.erase(id);
    }
    for (const Id owned : entry.owned) {
        remove(owned, removed);
    }
    removed.push_back(std::move(entry));
}

Handles& handles() {
    static Handles& processWide = *new Handles;
    return processWide;
}

} // namespace krl::provider
