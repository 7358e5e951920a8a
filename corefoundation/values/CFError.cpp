#include <CoreFoundation/CFError.h>

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>

struct __CFError {
    CFObjectHeader header;
    krl::cf::CFRef<CFStringRef> domain;
    CFIndex code;
    krl::cf::CFRef<CFDictionaryRef> userInfo;
};

namespace krl::cf {
namespace {

void finalizeError(CFTypeRef object) {
    auto& error = mutableRecordOf<__CFError>(object);
    error.~__CFError();
}

bool equalErrors(CFTypeRef left, CFTypeRef right) {
    const auto& one = recordOf<__CFError>(left);
    const auto& other = recordOf<__CFError>(right);
    return one.code == other.code && CFEqual(one.domain.get(), other.domain.get()) &&
           CFEqual(one.userInfo.get(), other.userInfo.get());
}

CFHashCode hashError(CFTypeRef object) {
    const auto& error = recordOf<__CFError>(object);
    return CFHash(error.domain.get()) + static_cast<CFHashCode>(error.code);
}

CFStringRef copyErrorDescription(CFTypeRef object) {
    const auto& error = recordOf<__CFError>(object);
    return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("Error %ld of %@ %@"), error.code,
                                    error.domain.get(), error.userInfo.get());
}

} // namespace

constinit const ClassTable kErrorClass{"CFError", finalizeError, equalErrors, hashError,
                                       copyErrorDescription};

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFErrorGetTypeID() noexcept {
    return kErrorTypeID;
}

CFErrorRef CFErrorCreate(CFAllocatorRef, CFErrorDomain domain, CFIndex code,
                         CFDictionaryRef userInfo) {
    auto information =
        userInfo != nullptr
            ? adopt(CFDictionaryCreateCopy(nullptr, userInfo))
            : adopt(CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                       &kCFTypeDictionaryValueCallBacks));
    return createObject<__CFError>(kErrorTypeID, 0, adopt(CFStringCreateCopy(nullptr, domain)),
                                   code, std::move(information));
}

CFErrorDomain CFErrorGetDomain(CFErrorRef error) noexcept {
    return error->domain.get();
}

CFIndex CFErrorGetCode(CFErrorRef error) noexcept {
    return error->code;
}

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error) {
    return CFRef(error->userInfo).leak();
}
