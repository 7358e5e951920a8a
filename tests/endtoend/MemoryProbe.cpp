// memory_probe FILE COUNT: syncs COUNT new ringtones, each with the contents of FILE, onto the
// phone that is there, and prints by how many KiB the peak of its memory rose above what it had
// before.

#include "tests/endtoend/Lists.h"
#include "tests/endtoend/Probe.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

KRTPhoneRef arrived = nullptr;

/// In KiB: "VmRSS:", memory now, or "VmHWM:", its peak.
long memory(const std::string& which) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == which) {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return -1;
}

bool sync(const krl::test::List& added) {
    const auto removed = krl::test::emptyList();
    const auto store = KRTPhoneGetRingtoneManager(arrived);
    const auto unchanged = krl::cf::adopt(KRTRingtoneManagerLoadCurrentRingtoneList(store));
    const bool submitted =
        KRTPhoneOpen(arrived) == 1 && KRTPhoneBeginSync(arrived) == 1 &&
        KRTRingtoneManagerSubmitChanges(store, added.get(), removed.get(), unchanged.get()) == 1;
    return KRTPhoneEndSync(arrived) == 1 && submitted;
}

} // namespace

int main(int, char** argv) {
    const std::string file = argv[1];
    const int count = std::atoi(argv[2]);
    arrived = krl::test::awaitPhone();
    if (arrived == nullptr) {
        return 2;
    }
    const long before = memory("VmRSS:");
    const auto added = krl::test::emptyList();
    for (int i = 0; i < count; ++i) {
        krl::test::addNew(added, "tone " + std::to_string(i), file);
    }
    if (!sync(added)) {
        return 3;
    }
    std::printf("%ld\n", memory("VmHWM:") - before);
    return 0;
}
