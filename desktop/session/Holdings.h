#pragma once

#include "desktop/bridge/PhoneWork.h"

#include <compare>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace krl::desktop {

/// Where a row stands among the others.
struct Place {
    std::string order; ///< made of a name, so that names stand as a person looks them up
    std::string key;   ///< of the row

    friend auto operator<=>(const Place&, const Place&) = default;
};

/// Shared, because lists of them are: what does not change place is not copied.
using PlacePointer = std::shared_ptr<const Place>;

PlacePointer newPlace(const std::string& name, std::string key);

/// Whether a row stands before another.
bool standsBefore(const PlacePointer& left, const PlacePointer& right);

/// The key of the row about a ringtone of the phone. Of one name, the phone's comes before a song's.
std::string phoneKey(const std::string& name);

/// What a phone holds as it was read, and all that it takes to look things up in it: made once, where
/// it was read, so that nothing has to go through all of it any more.
class Holdings {
public:
    explicit Holdings(PhoneReading reading);

    const PhoneReading& reading() const { return reading_; }

    /// Null when there is none of this name.
    const engine::PhoneRingtone* find(const std::string& name) const;

    /// Those whose names look like this one.
    /// @param name  in normal form C
    const std::vector<const engine::PhoneRingtone*>& likeNamed(const std::string& name) const;

    /// Where the row about a ringtone stands; null when there is none of this name.
    PlacePointer placeOf(const std::string& name) const;

    /// Of all of them, sorted.
    const std::vector<PlacePointer>& places() const { return places_; }

private:
    struct Entry {
        const engine::PhoneRingtone* ringtone;
        PlacePointer place;
    };

    PhoneReading reading_;
    std::unordered_map<std::string, Entry> byName_;
    std::unordered_map<std::string, std::vector<const engine::PhoneRingtone*>> byComposedName_;
    std::vector<PlacePointer> places_;
};

} // namespace krl::desktop
