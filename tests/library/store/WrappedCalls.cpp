#include "tests/library/store/WrappedCalls.h"

#include <KRLVesk/KRTPhone.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <cstdlib>
#include <new>

int WrappedCalls::failNthURLStripping;
int WrappedCalls::failNthLastComponent;
int WrappedCalls::failNthDictionary;
size_t WrappedCalls::failMallocFrom;
size_t WrappedCalls::failNewFrom;
bool WrappedCalls::failPhoneOpen;
bool WrappedCalls::failServiceStart;
bool WrappedCalls::failRead;
bool WrappedCalls::failWrite;
bool WrappedCalls::withoutPhone;
int WrappedCalls::listingCount;
uint64_t WrappedCalls::cost;
int WrappedCalls::tonesSearched;
uint64_t WrappedCalls::bytesCopied;
std::vector<std::string> WrappedCalls::listedNames;
std::vector<std::string> WrappedCalls::removedPaths;

void WrappedCalls::reset() {
    failNthURLStripping = 0;
    failNthLastComponent = 0;
    failNthDictionary = 0;
    failMallocFrom = 0;
    failNewFrom = 0;
    failPhoneOpen = false;
    failServiceStart = false;
    failRead = false;
    failWrite = false;
    withoutPhone = false;
    listingCount = 0;
    cost = 0;
    tonesSearched = 0;
    bytesCopied = 0;
    listedNames.clear();
    removedPaths.clear();
}

namespace {

/// Counts down to the call that fails.
bool isTheOne(int& left) {
    return left > 0 && --left == 0;
}

bool isTooBig(size_t bytes, size_t limit) {
    return limit > 0 && bytes >= limit;
}

} // namespace

// Visible, since the linker wraps the calls of shared libraries by name too.
#pragma GCC visibility push(default)

extern "C" {

// ---------------------------------------------------------------------------- memory

void* __real_malloc(size_t bytes);

void* __wrap_malloc(size_t bytes) {
    return isTooBig(bytes, WrappedCalls::failMallocFrom) ? nullptr : __real_malloc(bytes);
}

// operator new(size_t)
void* __real__Znwm(size_t bytes);

void* __wrap__Znwm(size_t bytes) {
    if (isTooBig(bytes, WrappedCalls::failNewFrom)) {
        throw std::bad_alloc();
    }
    return __real__Znwm(bytes);
}

// ---------------------------------------------------------------------------- CoreFoundation

CFURLRef __real_CFURLCreateCopyDeletingPathExtension(CFAllocatorRef allocator, CFURLRef url);

CFURLRef __wrap_CFURLCreateCopyDeletingPathExtension(CFAllocatorRef allocator, CFURLRef url) {
    return isTheOne(WrappedCalls::failNthURLStripping)
               ? nullptr
               : __real_CFURLCreateCopyDeletingPathExtension(allocator, url);
}

CFStringRef __real_CFURLCopyLastPathComponent(CFURLRef url);

CFStringRef __wrap_CFURLCopyLastPathComponent(CFURLRef url) {
    return isTheOne(WrappedCalls::failNthLastComponent) ? nullptr
                                                        : __real_CFURLCopyLastPathComponent(url);
}

CFMutableDictionaryRef
__real_CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                 const CFDictionaryValueCallBacks* valueCallBacks);

CFMutableDictionaryRef
__wrap_CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return isTheOne(WrappedCalls::failNthDictionary)
               ? nullptr
               : __real_CFDictionaryCreateMutable(allocator, capacity, keyCallBacks,
                                                  valueCallBacks);
}

CFDataRef __real_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

CFDataRef __wrap_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
    WrappedCalls::bytesCopied += static_cast<uint64_t>(length);
    return __real_CFDataCreate(allocator, bytes, length);
}

CFHashCode __real_CFHash(CFTypeRef object);

CFHashCode __wrap_CFHash(CFTypeRef object) {
    ++WrappedCalls::cost;
    return __real_CFHash(object);
}

Boolean __real_CFEqual(CFTypeRef one, CFTypeRef other);

Boolean __wrap_CFEqual(CFTypeRef one, CFTypeRef other) {
    ++WrappedCalls::cost;
    return __real_CFEqual(one, other);
}

Boolean __real_CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value);

Boolean __wrap_CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value) {
    WrappedCalls::cost += static_cast<uint64_t>(range.length);
    return __real_CFArrayContainsValue(array, range, value);
}

CFIndex __real_CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value);

CFIndex __wrap_CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value) {
    WrappedCalls::cost += static_cast<uint64_t>(range.length);
    return __real_CFArrayGetFirstIndexOfValue(array, range, value);
}

void __real_CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);

void __wrap_CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index) {
    WrappedCalls::cost += static_cast<uint64_t>(CFArrayGetCount(array) - index);
    __real_CFArrayRemoveValueAtIndex(array, index);
}

CFDictionaryRef __real_KRTRingtoneManagerFindToneForGUID(CFDictionaryRef list, CFStringRef guid);

CFDictionaryRef __wrap_KRTRingtoneManagerFindToneForGUID(CFDictionaryRef list, CFStringRef guid) {
    ++WrappedCalls::tonesSearched;
    return __real_KRTRingtoneManagerFindToneForGUID(list, guid);
}

// ---------------------------------------------------------------------------- the phone

int __real_KRTPhoneOpen(KRTPhoneRef phone);

int __wrap_KRTPhoneOpen(KRTPhoneRef phone) {
    if (WrappedCalls::failPhoneOpen) {
        return 0;
    }
    return WrappedCalls::withoutPhone ? 1 : __real_KRTPhoneOpen(phone);
}

int __real_KRTPhoneStartFileService(KRTPhoneRef phone);

int __wrap_KRTPhoneStartFileService(KRTPhoneRef phone) {
    if (WrappedCalls::failServiceStart) {
        return 0;
    }
    return WrappedCalls::withoutPhone ? 1 : __real_KRTPhoneStartFileService(phone);
}

int __real_KRTPhoneReadFileAtPath(KRTPhoneRef phone, const char* path, void* buffer,
                                  uint32_t* length);

int __wrap_KRTPhoneReadFileAtPath(KRTPhoneRef phone, const char* path, void* buffer,
                                  uint32_t* length) {
    return WrappedCalls::failRead ? 0 : __real_KRTPhoneReadFileAtPath(phone, path, buffer, length);
}

int __real_KRTPhoneWriteDataToFileAtPath(KRTPhoneRef phone, const char* path, const void* bytes,
                                         uintptr_t count);

int __wrap_KRTPhoneWriteDataToFileAtPath(KRTPhoneRef phone, const char* path, const void* bytes,
                                         uintptr_t count) {
    if (WrappedCalls::failWrite) {
        return 0;
    }
    return WrappedCalls::withoutPhone
               ? 1
               : __real_KRTPhoneWriteDataToFileAtPath(phone, path, bytes, count);
}

int __real_KRTPhoneSizeOfFileAtPath(KRTPhoneRef phone, const char* path, uint32_t* size);

int __wrap_KRTPhoneSizeOfFileAtPath(KRTPhoneRef phone, const char* path, uint32_t* size) {
    if (WrappedCalls::withoutPhone) {
        *size = 0;
        return 1;
    }
    return __real_KRTPhoneSizeOfFileAtPath(phone, path, size);
}

int __real_KRTPhoneRenameObjectAtPath(KRTPhoneRef phone, const char* from, const char* to);

int __wrap_KRTPhoneRenameObjectAtPath(KRTPhoneRef phone, const char* from, const char* to) {
    return WrappedCalls::withoutPhone ? 1 : __real_KRTPhoneRenameObjectAtPath(phone, from, to);
}

int __real_KRTPhoneRemoveObjectAtPath(KRTPhoneRef phone, const char* path);

int __wrap_KRTPhoneRemoveObjectAtPath(KRTPhoneRef phone, const char* path) {
    if (WrappedCalls::withoutPhone) {
        WrappedCalls::removedPaths.emplace_back(path != nullptr ? path : "null");
        return 1;
    }
    return __real_KRTPhoneRemoveObjectAtPath(phone, path);
}

int __real_KRTPhoneCreateDirectoryAtPath(KRTPhoneRef phone, const char* path);

int __wrap_KRTPhoneCreateDirectoryAtPath(KRTPhoneRef phone, const char* path) {
    return WrappedCalls::withoutPhone ? 1 : __real_KRTPhoneCreateDirectoryAtPath(phone, path);
}

CFMutableArrayRef __real_KRTPhoneListDirectoryAtPath(KRTPhoneRef phone, const char* path);

CFMutableArrayRef __wrap_KRTPhoneListDirectoryAtPath(KRTPhoneRef phone, const char* path) {
    if (!WrappedCalls::withoutPhone) {
        return __real_KRTPhoneListDirectoryAtPath(phone, path);
    }
    CFMutableArrayRef names = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    for (int i = 0; i < WrappedCalls::listingCount; ++i) {
        const CFStringRef name =
            CFStringCreateWithFormat(nullptr, nullptr, CFSTR("stray %d.m4r"), i);
        CFArrayAppendValue(names, name);
        CFRelease(name);
    }
    for (const std::string& text : WrappedCalls::listedNames) {
        const CFStringRef name =
            CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8);
        CFArrayAppendValue(names, name);
        CFRelease(name);
    }
    return names;
}

} // extern "C"

#pragma GCC visibility pop
