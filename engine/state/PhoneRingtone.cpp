#include "engine/state/PhoneRingtone.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

namespace krl::engine {

std::string sourceName(const Digest& digest) {
    return digest.hex().substr(0, digest.hex().size() / 2);
}

std::string sourceText(const Digest& digest, uint64_t size) {
    return fmt::format("{}-{}", sourceName(digest), size);
}

Spellings::Spellings(const std::vector<PhoneRingtone>& ringtones) {
    for (const PhoneRingtone& ringtone : ringtones) {
        names_.insert(ringtone.name);
        composed_.emplace(composed(ringtone.name), ringtone.name);
    }
}

std::optional<std::string> Spellings::of(const std::string& name) const {
    if (names_.contains(name)) {
        return name;
    }
    const auto alike = composed_.find(composed(name));
    return alike == composed_.end() ? std::nullopt : std::optional(alike->second);
}

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
