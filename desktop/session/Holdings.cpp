#include "desktop/session/Holdings.h"

#include "engine/values/Text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace krl::desktop {

PlacePointer newPlace(const std::string& name, std::string key) {
    std::string order(std::strxfrm(nullptr, name.c_str(), 0) + 1, '\0');
    std::strxfrm(order.data(), name.c_str(), order.size());
    order.pop_back();
    return std::make_shared<const Place>(Place{std::move(order), std::move(key)});
}

bool standsBefore(const PlacePointer& left, const PlacePointer& right) {
    return *left < *right;
}

std::string phoneKey(const std::string& name) {
    return '#' + name;
}

Holdings::Holdings(PhoneReading reading) : reading_(std::move(reading)) {
    for (const engine::PhoneRingtone& ringtone : reading_.ringtones) {
        Entry entry{&ringtone, newPlace(ringtone.name, phoneKey(ringtone.name))};
        places_.push_back(entry.place);
        byName_.emplace(ringtone.name, std::move(entry));
        byComposedName_[engine::composed(ringtone.name)].push_back(&ringtone);
    }
    std::sort(places_.begin(), places_.end(), standsBefore);
}

const engine::PhoneRingtone* Holdings::find(const std::string& name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second.ringtone;
}

const std::vector<const engine::PhoneRingtone*>&
Holdings::likeNamed(const std::string& name) const {
    static const std::vector<const engine::PhoneRingtone*> none;
    const auto found = byComposedName_.find(name);
    return found == byComposedName_.end() ? none : found->second;
}

PlacePointer Holdings::placeOf(const std::string& name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second.place;
}

} // namespace krl::desktop
