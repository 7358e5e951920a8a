#include "engine/state/PhoneRingtone.h"

namespace krl::engine {

std::set<std::string> namesOf(const std::vector<PhoneRingtone>& ringtones) {
    std::set<std::string> names;
    for (const PhoneRingtone& ringtone : ringtones) {
        names.insert(ringtone.name);
    }
    return names;
}

std::map<std::string, uint64_t> namesAndSizes(const std::vector<PhoneRingtone>& ringtones) {
    std::map<std::string, uint64_t> result;
    for (const PhoneRingtone& ringtone : ringtones) {
        result[ringtone.name] = ringtone.size;
    }
    return result;
}

} // namespace krl::engine
