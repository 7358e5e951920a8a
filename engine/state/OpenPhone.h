#pragma once

#include "engine/errors/Failure.h"
#include "engine/phones/PhoneChoice.h"
#include "engine/phones/PhoneWatch.h"
#include "engine/state/Catalogue.h"
#include "engine/state/KeptOpen.h"
#include "engine/state/PhoneRingtone.h"

#include <KRLVesk/KRLVesk.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

inline constexpr char kControlFolder[] = "/iTunes_Control";
inline constexpr char kRingtonesFolder[] = "/iTunes_Control/Ringtones";
inline constexpr char kCatalogueFolder[] = "/iTunes_Control/iTunes";
inline constexpr char kCataloguePath[] = "/iTunes_Control/iTunes/Ringtones.plist";

/// More than this of a catalogue is not read, whatever size the phone says it has: one of ten
/// thousand ringtones takes some megabytes, and one that is cut off is no property list.
inline constexpr uint32_t kMostCatalogueBytes = 64 * 1024 * 1024;

/// What a phone says of itself over a session.
struct PhoneFacts {
    std::string udid;
    std::string name;
    std::string deviceClass;
    std::string firmware;
    int firmwareNumber = 0;
    bool olderLayout = false; ///< the firmware wants placeholders and the slot order
    std::optional<uint64_t> freeBytes;

    /// How to call it in a message.
    std::string label() const;
};

/// Work on one phone through the library. Each function clears the library's error record first and
/// throws a Failure with its reason.
class OpenPhone {
public:
    /// With the phone that is meant.
    explicit OpenPhone(const PhoneRequest& request);
    OpenPhone(const OpenPhone&) = delete;
    OpenPhone& operator=(const OpenPhone&) = delete;

    /// Keeps the phone connected from now on, whatever is done with it.
    void keepOpen() { open_.open(); }

    /// Makes sure that the connection still stands. The library takes a file that it cannot ask for
    /// for one that is not there: over a lost connection, ringtones seem to be gone.
    /// @throw Failure when it does not
    void requireConnection();

    /// Whether somebody else holds the phone's sync lock.
    bool isBeingSynced();

    /// Disconnects: the next call connects anew.
    void disconnect() { open_.close(); }

    /// The phone's facts as they were when it was found.
    PhoneFacts facts();

    /// Reads the phone's ringtones anew: the ones that the library sees. Pending edits of the
    /// working list are dropped.
    std::vector<PhoneRingtone> ringtones();

    /// The catalogue's bytes, not more than kMostCatalogueBytes; none when the phone has no
    /// catalogue.
    std::optional<std::string> catalogueFile();

    /// Names in the ringtone folder; none when there is no folder.
    std::optional<std::vector<std::string>> folderNames();

    bool hasFolder(const std::string& path);

    /// Size of a file in the ringtone folder; none when it is not there.
    std::optional<uint64_t> sizeOf(const std::string& file);

    /// Whether the phone was pulled out.
    bool isGone() { return watch_.isGone(); }

    KRTPhone& phone() const { return *watch_.phone(); }

    /// The working list, which is read from the phone when it is first asked for.
    KRTRingtoneManager& tones();

    std::string label() const { return chosen_.description.label(); }

    /// The failure of a call that reads: the phone is gone, or `what` could not be done.
    Failure readFailure(const std::string& what);

private:
    /// The manager takes over what is attached from the discovery, which is to last until then.
    OpenPhone(Discovery&& discovery, const PhoneRequest& request);

    KRTPhone& findPhone();
    void requireThatItOpens();
    std::optional<uint32_t> sizeAt(const std::string& path);

    AttachedDevice chosen_;
    PhoneWatch watch_;
    KeptOpen open_;
    std::shared_ptr<KRTRingtoneManager> tones_;
};

/// The key of a catalogue's entry under which is written down what its ringtone was made of. The
/// phone does not look at it.
const CFStringRef kSourceKey = CFSTR("SourceDigest");

// The keys of the change lists that a working list generates.
const CFStringRef kAddedList = CFSTR("added");
const CFStringRef kRemovedList = CFSTR("removed");
const CFStringRef kUnchangedList = CFSTR("unchanged");

/// The ringtone of an entry of one of its lists.
PhoneRingtone ringtoneOf(CFDictionaryRef entry);

/// The ringtones of a list of the library; none when it is null, because the phone's could not be
/// read.
std::optional<std::vector<PhoneRingtone>> ringtonesOf(CFDictionaryRef list);

} // namespace krl::engine
