// Any bytes as the information of a plug-in in binary form: a string is found in them or none is.

#include "library/startup/BinaryPropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const auto data = krl::cf::adopt(CFDataCreate(nullptr, bytes, static_cast<CFIndex>(size)));
    const auto found =
        krl::plugin::stringInBinaryPropertyList(data.get(), CFSTR("CFBundleVersion"));
    if (found && static_cast<size_t>(CFStringGetLength(found.get())) > size) {
        std::abort(); // a string is no longer than the file that it stands in
    }
    return 0;
}
