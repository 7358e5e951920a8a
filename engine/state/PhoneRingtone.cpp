#include "engine/state/PhoneRingtone.h"

namespace krl::engine {

std::set<std::string> namesOf(const std::vector<PhoneRingtone>& ringtones) {
    std::set<std::string> names;
    for (const PhoneRingtone& ringtone : ringtones) {
        names.insert(ringtone.name);
    }
    return names;
}

} // namespace krl::engine
