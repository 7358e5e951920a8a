#include "library/store/Cleanup.h"

#include "library/store/KRTRingtoneManagerInternal.h"
#include "library/store/Names.h"

namespace krl::ringtones {

void cleanUpRingtonesFolder(KRTPhoneRef phone, const NameSet& kept) {
    const auto names = cf::adopt(KRTPhoneListDirectoryAtPath(phone, kRingtonesFolder));
    if (!names) {
        return;
    }
    const CFIndex count = CFArrayGetCount(names.get());
    for (CFIndex i = 0; i < count; ++i) {
        const auto name = static_cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i));
        // A name that leads elsewhere is not one of this folder's, whoever lists it.
        //
        // Contract: what the catalogue says does not matter, only whether the name is kept, letter
        // for letter. A phone that lists decomposed accents loses files with composed ones.
        // [Cleanup.AFileWhoseNameDiffersOnlyInLetterCaseIsDeleted]
        if (isPlainFileName(name) && !kept.contains(name)) {
            KRTPhoneRemoveObjectAtPath(phone, orNull(utf8(ringtonePath(name).get())));
        }
    }
}

} // namespace krl::ringtones

void KRTRingtoneManagerCleanupPhoneDirectories(KRTRingtoneManagerRef manager,
                                               CFArrayRef keptNames) {
    krl::ringtones::cleanUpRingtonesFolder(manager->phone, krl::ringtones::NameSet(keptNames));
}
