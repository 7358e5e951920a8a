#include "library/errors/ErrorObject.h"

#include <KRLVesk/KRTError.h>

namespace krl {

using cf::adopt;
using cf::CFRef;

namespace {

CFRef<CFStringRef> textOf(const char* text) {
    if (text != nullptr) {
        if (auto string = adopt(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8))) {
            return string;
        }
    }
    return cf::retain(CFSTR(""));
}

} // namespace

CFRef<CFErrorRef> makeErrorObject(CFStringRef domain, int code, const char* file, int line) {
    const auto lineNumber = adopt(CFNumberCreate(nullptr, kCFNumberIntType, &line));
    const auto fileName = textOf(file);
    const void* keys[] = {CFSTR("file"), CFSTR("line")};
    const void* values[] = {fileName.get(), lineNumber.get()};
    const auto userInfo =
        adopt(CFDictionaryCreate(nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks,
                                 &kCFTypeDictionaryValueCallBacks));
    return adopt(CFErrorCreate(nullptr, domain, code, userInfo.get()));
}

CFRef<CFErrorRef> errorObjectFromRecord(CFStringRef domain) {
    return makeErrorObject(domain, KRTErrorGetCode(), KRTErrorGetFile(), KRTErrorGetLine());
}

} // namespace krl
