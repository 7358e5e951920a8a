// Any bytes as a property list: read or refused, and what was read can be written and read again.

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

krl::cf::CFRef<CFPropertyListRef> parse(CFDataRef data) {
    return krl::cf::adopt(CFPropertyListCreateFromXMLData(
        nullptr, data, kCFPropertyListMutableContainersAndLeaves, nullptr));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const auto data = krl::cf::adopt(CFDataCreate(nullptr, bytes, static_cast<CFIndex>(size)));
    const auto first = parse(data.get());
    if (!first) {
        return 0;
    }
    const auto written = krl::cf::adopt(CFPropertyListCreateXMLData(nullptr, first.get()));
    if (!written) {
        std::abort(); // whatever could be read can be written
    }
    if (!parse(written.get())) {
        std::abort(); // and what was written can be read
    }
    return 0;
}
