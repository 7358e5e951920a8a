#include "library/startup/SupportPlugin.h"

#include "library/startup/BinaryPropertyList.h"
#include "library/system/HomeFolder.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>

#include <climits>

namespace krl::plugin {

using cf::adopt;
using cf::cast;
using cf::CFRef;

namespace {

constexpr double kHighestVersionTooOld = 2.01;

/// The string under a key of the dictionary in a property-list file; null when there is none.
CFRef<CFStringRef> stringIn(CFURLRef propertyList, CFStringRef key) {
    CFRef<CFDataRef> data;
    if (propertyList == nullptr ||
        !CFURLCreateDataAndPropertiesFromResource(nullptr, propertyList, data.receive(), nullptr,
                                                  nullptr, nullptr)) {
        return nullptr;
    }
    if (isBinaryPropertyList(data.get())) {
        return stringInBinaryPropertyList(data.get(), key);
    }
    const auto list = adopt(
        CFPropertyListCreateFromXMLData(nullptr, data.get(), kCFPropertyListImmutable, nullptr));
    const auto dictionary = cast<CFDictionaryRef>(list.get());
    return cf::retain(
        dictionary == nullptr ? nullptr : cast<CFStringRef>(CFDictionaryGetValue(dictionary, key)));
}

int partAt(CFArrayRef parts, CFIndex index) {
    return CFStringGetIntValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, index)));
}

/// Reads "1.2" and "1.2.3"; 0 for what is missing, no number or too much, and for a null string.
Version versionFrom(CFStringRef text) {
    if (text == nullptr) {
        return {};
    }
    const auto parts = adopt(CFStringCreateArrayBySeparatingStrings(nullptr, text, CFSTR(".")));
    const CFIndex count = CFArrayGetCount(parts.get());
    Version result;
    result.major = partAt(parts.get(), 0);
    result.minor = count >= 2 ? partAt(parts.get(), 1) : 0;
    // Contract: a patch counts only where there are exactly three parts; 1.2.3.4 has patch 0.
    // [Installation.ComparesVersionsPartByPart]
    result.patch = count == 3 ? partAt(parts.get(), 2) : 0;
    return result;
}

Version versionIn(CFURLRef propertyList, CFStringRef key) {
    return versionFrom(stringIn(propertyList, key).get());
}

CFRef<CFURLRef> resource(const void* code, CFStringRef name, CFStringRef type) {
    const auto bundle = adopt(CFBundleCreateWithCode(nullptr, code));
    return bundle ? adopt(CFBundleCopyResourceURL(bundle.get(), name, type, nullptr)) : nullptr;
}

/// What a value of any kind is as a number; 0 when it is none.
float floatValue(CFTypeRef value) {
    if (const auto string = cast<CFStringRef>(value)) {
        return static_cast<float>(CFStringGetDoubleValue(string));
    }
    float number = 0;
    if (const auto object = cast<CFNumberRef>(value)) {
        CFNumberGetValue(object, kCFNumberFloatType, &number);
    }
    return number;
}

} // namespace

Folders folders() {
    const std::string library = system::homeFolder() + "/Library/iTunes";
    return {library, library + "/iTunes Plug-ins"};
}

std::string installedPath() {
    return folders().plugins + "/" + kBundleName;
}

bool isCurrent(const Version& installed, const Version& required) {
    // Contract: each part on its own, not in order of significance; an installed 2.0.0 is out of
    // date where 1.2.0 is required. [Installation.ComparesVersionsPartByPart]
    return required.major <= installed.major && required.minor <= installed.minor &&
           required.patch <= installed.patch;
}

Version versionOfPlugin(const std::string& path) {
    const auto propertyList = cf::stringOf(path + "/Contents/Info.plist");
    return versionIn(cf::fileURL(propertyList.get()).get(), CFSTR("CFBundleVersion"));
}

Version requiredVersion(const void* code) {
    return versionIn(resource(code, CFSTR("Info"), CFSTR("plist")).get(),
                     CFSTR("HxSupportVersionNumber"));
}

std::string archivePath(const void* code) {
    UInt8 path[PATH_MAX];
    const auto url = resource(code, CFSTR("HarlixSupport"), CFSTR("zip"));
    if (!url || !CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path)) {
        return "";
    }
    return reinterpret_cast<const char*>(path);
}

bool isRecentEnough(CFDictionaryRef pongInfo) {
    const void* const value =
        pongInfo != nullptr ? CFDictionaryGetValue(pongInfo, CFSTR("version")) : nullptr;
    const float version = value != nullptr ? floatValue(value) : 1.0F;
    // Contract: single precision first, then double, and strictly above. 2.01 itself becomes
    // 2.00999999 and is too old.
    // [PongVersion.IsTakenInSinglePrecisionThenWidenedAndHasToBeAbove201]
    return static_cast<double>(version) > kHighestVersionTooOld;
}

} // namespace krl::plugin
