#pragma once

#include "Catalogue.h"
#include "Cf.h"
#include "Failure.h"
#include "PhoneChoice.h"
#include "Plan.h"

#include <KRLVesk/KRLVesk.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vesk {

inline constexpr char kRingtonesFolder[] = "/iTunes_Control/Ringtones";
inline constexpr char kCataloguePath[] = "/iTunes_Control/iTunes/Ringtones.plist";

/// What a phone says of itself over a session.
struct PhoneFacts {
    std::string udid;
    std::string name;
    std::string deviceClass;
    std::string firmware;
    int firmwareNumber = 0;
    bool olderLayout = false; ///< the firmware wants placeholders and the slot order
    std::optional<std::uint64_t> freeBytes;

    /// How to call it in a message.
    std::string label() const;
};

/// The ringtones that the library sees on a phone.
struct PhoneRingtones {
    cf::CFRef<CFMutableDictionaryRef> entries; ///< name to entry, as the library wants them back
    std::vector<PhoneRingtone> list;           ///< in the same order

    const PhoneRingtone* find(const std::string& name) const;
    std::vector<std::string> names() const;
};

/// Keeps a phone connected over so many file operations. Each of them takes one open back, so that
/// without this the phone reconnects for each.
class KeptConnected {
public:
    KeptConnected(KRTPhoneRef phone, std::size_t operations);
    ~KeptConnected();
    KeptConnected(const KeptConnected&) = delete;
    KeptConnected& operator=(const KeptConnected&) = delete;

private:
    KRTPhoneRef phone_;
    std::size_t opens_ = 0;
};

/// Work on one phone through the library. Each function clears the library's error record first and
/// throws a Failure with its reason.
class Session {
public:
    /// @param discovery  asked whether the phone is still there when a call fails
    Session(AttachedDevice chosen, Discovery& discovery);

    /// Reads the phone's facts anew.
    PhoneFacts facts();

    /// @param catalogueEntries  how many there are about, see KeptConnected
    PhoneRingtones ringtones(std::size_t catalogueEntries);

    /// The catalogue's bytes; none when the phone has no catalogue.
    std::optional<std::string> catalogueFile();

    /// Names in the ringtone folder; none when there is no folder.
    std::optional<std::vector<std::string>> folderNames();

    /// Size of a file in the ringtone folder; none when it is not there.
    std::optional<std::uint64_t> sizeOf(const std::string& file);

    /// Whether the phone was pulled out.
    bool isGone() { return discovery_.isGone(chosen_.device); }

    KRTPhoneRef phone() const { return phone_.get(); }

    KRTRingtoneManagerRef store() const { return KRTPhoneGetRingtoneManager(phone_.get()); }

    std::string label() const { return chosen_.description.label(); }

    /// The failure of a call that reads: the phone is gone, or `what` could not be done.
    Failure readFailure(const std::string& what);

private:
    struct ReleasePhone {
        void operator()(KRTPhoneRef phone) const { KRTPhoneRelease(phone); }
    };

    std::optional<std::uint32_t> sizeAt(const std::string& path);

    AttachedDevice chosen_;
    Discovery& discovery_;
    std::unique_ptr<__KRTPhone, ReleasePhone> phone_;
};

} // namespace vesk
