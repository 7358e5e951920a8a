// Whether firmware 1.1.1 copes with a catalogue.
#pragma once

#include "library/firmware111/ObjectKeys.h"
#include "library/firmware111/SlotOrder.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <vector>

namespace krl {

/// Finds what firmware 1.1.1 stumbles over in a catalogue (file name to entry), and again after
/// entries have moved: that costs what the moves have touched, not the whole catalogue.
///
/// The catalogue is lent, and whoever changes it says so. Exhausted memory ends the process: no
/// catalogue may pass unchecked.
class LayoutCheck {
public:
    explicit LayoutCheck(CFDictionaryRef catalogue);

    using Names = std::vector<cf::CFRef<CFStringRef>>;

    /// The names in the way, in the order in which the firmware meets their entries; perhaps more
    /// than once, and perhaps names that the catalogue does not have.
    Names namesInTheWay();

    /// The catalogue no longer has this name.
    void entryTaken(CFStringRef name);

    /// The catalogue has this entry under this name now: in the name's place when it had it before,
    /// else at the end.
    void entryPut(CFStringRef name, CFTypeRef entry);

private:
    struct Entry {
        cf::CFRef<CFTypeRef> key;
        uint32_t guid;         ///< index of its GUID when it takes part in the rule about them
        uint32_t placeInGroup; ///< of that GUID's entries
        bool isInTheWay;
        bool isListed;                    ///< stands in listed_
        cf::CFRef<CFStringRef> reported;  ///< what is told when it is in the way
        cf::CFRef<CFStringRef> extension; ///< the one that the name told was given
    };

    void readAnew();
    void append(CFTypeRef key, CFTypeRef entry);
    void takePart(uint32_t index, CFTypeRef entry);
    void leave(uint32_t index);
    uint32_t indexOfGUID(CFTypeRef entry);
    void touchGroupOf(uint32_t index);
    void judgeGroup(uint32_t guid);
    void judge(uint32_t index, CFStringRef firstExtension);
    void putInTheWay(uint32_t index);

    const CFDictionaryRef catalogue_;
    /// What follows has to be read from the catalogue anew before it is true.
    bool isStale_ = true;
    /// The catalogue has a key without a value, or keys that are equal only to us: rare enough to be
    /// read anew after each change.
    bool isOdd_ = false;
    SlotOrder order_;
    std::vector<Entry> entries_;  ///< in the order of insertion; one that is gone has no key
    ObjectMap<uint32_t> indices_; ///< by name
    ObjectMap<uint32_t> guids_;   ///< GUID to index
    std::vector<std::vector<uint32_t>> groups_; ///< by GUID, the entries that have it
    std::vector<uint32_t> touched_;             ///< GUIDs whose entries are to be judged anew
    std::vector<bool> isTouched_;
    std::vector<uint32_t> listed_; ///< all that are in the way, and perhaps some that no longer are
    std::vector<uint32_t> moved_;
};

/// The names of a catalogue that are in the way; null when there are none.
cf::CFRef<CFMutableArrayRef> namesInTheWay(CFDictionaryRef catalogue) noexcept;

} // namespace krl
