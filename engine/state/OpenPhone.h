#pragma once

#include "engine/errors/Failure.h"
#include "engine/phones/PhoneChoice.h"
#include "engine/phones/PhoneWatch.h"
#include "engine/plan/Plan.h"
#include "engine/state/Catalogue.h"

#include <KRLVesk/KRLVesk.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vesk {

inline constexpr char kRingtonesFolder[] = "/iTunes_Control/Ringtones";
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
class Session {
public:
    /// With the phone that the options choose.
    explicit Session(const Options& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Keeps the phone connected for so many file operations more than were said before. Each of
    /// them takes one open back, so that without this the phone reconnects for each, and gives up
    /// the sync lock.
    void expectOperations(size_t count);

    /// Makes sure that the connection still stands. The library takes a file that it cannot ask for
    /// for one that is not there: over a lost connection, ringtones seem to be gone.
    /// @throw Failure when it does not
    void requireConnection();

    /// Disconnects: the next call connects anew.
    void disconnect();

    /// The phone's facts as they were when it was found.
    PhoneFacts facts();

    /// Reads the phone's ringtones anew: the ones that the library sees. Pending edits of the
    /// working list are dropped.
    /// @param catalogueEntries  how many there are about
    std::vector<PhoneRingtone> ringtones(size_t catalogueEntries);

    /// The catalogue's bytes, not more than kMostCatalogueBytes; none when the phone has no
    /// catalogue.
    std::optional<std::string> catalogueFile();

    /// Names in the ringtone folder; none when there is no folder.
    std::optional<std::vector<std::string>> folderNames();

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
    Session(Discovery&& discovery, const Options& options);

    void findPhone();
    void requireThatItOpens();
    std::optional<uint32_t> sizeAt(const std::string& path);

    AttachedDevice chosen_;
    PhoneWatch watch_;
    std::shared_ptr<KRTRingtoneManager> tones_;
    size_t opens_ = 0;
};

// The keys of the change lists that a working list generates.
const CFStringRef kAddedList = CFSTR("added");
const CFStringRef kRemovedList = CFSTR("removed");
const CFStringRef kUnchangedList = CFSTR("unchanged");

/// A list of the working list: none when it is not there, because the phone's could not be read.
std::optional<std::vector<PhoneRingtone>> ringtonesIn(CFDictionaryRef changeLists, CFStringRef key);

/// The ringtone of this name, or null.
const PhoneRingtone* findRingtone(const std::vector<PhoneRingtone>& ringtones,
                                  const std::string& name);

} // namespace vesk
