#include <CoreFoundation/CFURL.h>

#include "corefoundation/values/CFStringInternal.h"

#include <CoreFoundation/CFRef.h>
#include <cstring>

/// The string is ASCII: a path in its escaped form, after the scheme when it is absolute.
struct __CFURL {
    CFObjectHeader header;
    krl::cf::CFRef<CFStringRef> string;
    bool isDirectory;
};

namespace krl::cf {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kFileScheme = "file://";

void finalizeURL(CFTypeRef object) {
    mutableRecordOf<__CFURL>(object).~__CFURL();
}

CFStringRef stringOf(CFTypeRef object) {
    return recordOf<__CFURL>(object).string.get();
}

bool equalURLs(CFTypeRef left, CFTypeRef right) {
    return CFEqual(stringOf(left), stringOf(right));
}

CFHashCode hashURL(CFTypeRef object) {
    return CFHash(stringOf(object));
}

CFStringRef copyURLDescription(CFTypeRef object) {
    return CFStringCreateCopy(nullptr, stringOf(object));
}

// ---------------------------------------------------------------------------- escaping

bool isPlain(char byte) {
    const bool letterOrDigit = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                               (byte >= '0' && byte <= '9');
    return letterOrDigit || "-._~!$&'()*+,:@=/"sv.find(byte) != std::string_view::npos;
}

std::string escape(std::string_view path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char byte : path) {
        if (isPlain(byte)) {
            escaped += byte;
        } else {
            const auto value = static_cast<unsigned char>(byte);
            escaped += '%';
            escaped += kDigits[value >> 4];
            escaped += kDigits[value & 0x0F];
        }
    }
    return escaped;
}

int hexValue(char digit) {
    return digit <= '9' ? digit - '0' : digit - 'A' + 10;
}

/// Undoes escape.
std::string unescape(std::string_view escaped) {
    std::string path;
    for (size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '%') {
            path += static_cast<char>(hexValue(escaped[i + 1]) << 4 | hexValue(escaped[i + 2]));
            i += 2;
        } else {
            path += escaped[i];
        }
    }
    return path;
}

// ---------------------------------------------------------------------------- escaped paths

/// Without slashes at the end, but the root stays.
std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path;
}

/// The escaped path without the slash of a folder.
std::string_view pathOf(CFURLRef url) {
    std::string_view path = Text(url->string.get()).narrow();
    if (path.starts_with(kFileScheme)) {
        path.remove_prefix(kFileScheme.size());
    }
    return withoutTrailingSlashes(path);
}

/// Where the last component begins.
size_t lastComponentStart(std::string_view path) {
    return path == "/" ? 0 : path.rfind('/') + 1; // npos + 1 is 0
}

/// Where the dot stands that begins an extension, or npos: the last one of the last component,
/// unless it is the component's first or last character.
size_t extensionDot(std::string_view path) {
    const size_t dot = path.rfind('.');
    const bool inside =
        dot != std::string_view::npos && dot > lastComponentStart(path) && dot + 1 < path.size();
    return inside ? dot : std::string_view::npos;
}

CFURLRef createURL(std::string_view escapedPath, bool isDirectory) {
    std::string string(withoutTrailingSlashes(escapedPath));
    if (isDirectory && string != "/") {
        string += '/';
    }
    if (string.starts_with('/')) {
        string.insert(0, kFileScheme);
    }
    return createObject<__CFURL>(kURLTypeID, 0, adopt(createStringFromUtf8(string)), isDirectory);
}

/// Whether a text after a dot is not taken for an extension: it has a space or a mark that turns
/// the direction of writing, with which a name can hide what it ends in.
bool isNoExtension(const Text& text) {
    for (CFIndex i = 0; i < text.length(); ++i) {
        const UniChar unit = text[i];
        const bool directionMark = unit == 0x061C || unit == 0x200E || unit == 0x200F ||
                                   (unit >= 0x202A && unit <= 0x202E) ||
                                   (unit >= 0x2066 && unit <= 0x2069);
        if (unit == ' ' || directionMark) {
            return true;
        }
    }
    return false;
}

} // namespace

constinit const ClassTable kURLClass{"CFURL", finalizeURL, equalURLs, hashURL, copyURLDescription};

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFURLGetTypeID() noexcept {
    return kURLTypeID;
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory) {
    std::string path;
    if (pathStyle != kCFURLPOSIXPathStyle || !appendUtf8(path, Text(filePath)) || path.empty()) {
        return nullptr;
    }
    return createURL(escape(path), isDirectory);
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory) {
    auto path =
        adopt(CFStringCreateWithBytes(nullptr, buffer, bufLen, kCFStringEncodingUTF8, false));
    if (!path) {
        return nullptr;
    }
    return CFURLCreateWithFileSystemPath(allocator, path.get(), kCFURLPOSIXPathStyle, isDirectory);
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle pathStyle) {
    if (pathStyle != kCFURLPOSIXPathStyle) {
        return nullptr;
    }
    return createStringFromUtf8(unescape(pathOf(url)));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex maxBufLen) {
    const std::string path = unescape(pathOf(url));
    const bool hasZero = path.find('\0') != std::string::npos;
    if (hasZero || static_cast<CFIndex>(path.size()) >= maxBufLen) {
        return false;
    }
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return true;
}

CFStringRef CFURLGetString(CFURLRef url) noexcept {
    return url->string.get();
}

CFStringRef CFURLCopyPath(CFURLRef url) {
    std::string path(pathOf(url));
    if (url->isDirectory && path != "/") {
        path += '/';
    }
    return createStringFromUtf8(path);
}

Boolean CFURLHasDirectoryPath(CFURLRef url) noexcept {
    return url->isDirectory;
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    const std::string_view path = pathOf(url);
    return createStringFromUtf8(unescape(path.substr(lastComponentStart(path))));
}

CFStringRef CFURLCopyPathExtension(CFURLRef url) {
    const std::string_view path = pathOf(url);
    const size_t dot = extensionDot(path);
    if (dot == std::string_view::npos) {
        return nullptr;
    }
    auto extension = adopt(createStringFromUtf8(unescape(path.substr(dot + 1))));
    return isNoExtension(Text(extension.get())) ? nullptr : extension.leak();
}

CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef, CFURLRef url) {
    const std::string_view path = pathOf(url);
    return createURL(path.substr(0, extensionDot(path)), url->isDirectory);
}

CFURLRef CFURLCreateCopyAppendingPathExtension(CFAllocatorRef, CFURLRef url,
                                               CFStringRef extension) {
    std::string suffix;
    if (!appendUtf8(suffix, Text(extension))) {
        return nullptr;
    }
    return createURL(std::string(pathOf(url)) + '.' + escape(suffix), url->isDirectory);
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef, CFURLRef url,
                                               CFStringRef pathComponent, Boolean isDirectory) {
    std::string component;
    if (!appendUtf8(component, Text(pathComponent))) {
        return nullptr;
    }
    std::string path(pathOf(url));
    if (!path.ends_with('/')) {
        path += '/';
    }
    return createURL(path + escape(component), isDirectory);
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
    const std::string_view path = pathOf(url);
    const std::string_view component = path.substr(lastComponentStart(path));
    const std::string_view folder = path.substr(0, lastComponentStart(path));
    if (component == "/") {
        return createURL("/..", true);
    }
    if (component == ".") {
        return createURL(std::string(folder) + "..", true);
    }
    if (component == "..") {
        return createURL(std::string(path) + "/..", true);
    }
    return createURL(folder.empty() ? "." : folder, true);
}
