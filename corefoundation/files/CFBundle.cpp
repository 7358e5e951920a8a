#include <CoreFoundation/CFBundle.h>

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>
#include <climits>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>

struct __CFBundle {
    CFObjectHeader header;
    krl::cf::CFRef<CFURLRef> url;
};

namespace krl::cf {
namespace {

namespace fs = std::filesystem;

void finalizeBundle(CFTypeRef object) {
    mutableRecordOf<__CFBundle>(object).~__CFBundle();
}

bool getStatus(CFURLRef url, struct stat& status) {
    UInt8 path[PATH_MAX];
    return CFURLGetFileSystemRepresentation(url, true, path, sizeof path) &&
           stat(reinterpret_cast<const char*>(path), &status) == 0;
}

bool isFolder(CFURLRef url) {
    struct stat status {};

    return getStatus(url, status) && S_ISDIR(status.st_mode);
}

bool isThere(CFURLRef url) {
    struct stat status {};

    return getStatus(url, status);
}

CFRef<CFURLRef> folderURL(const std::string& path) {
    return adopt(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
        true));
}

/// The file that holds the code; empty when that cannot be told.
fs::path fileOfCode(const void* code) {
    Dl_info info{};
    std::error_code failure;
    if (dladdr(code, &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    return fs::canonical(info.dli_fname, failure);
}

/// "Name" of libName.so, libName.so.1 and Name.
std::string bareName(const fs::path& file) {
    std::string name = file.filename().string();
    if (const size_t suffix = name.find(".so"); suffix != std::string::npos && suffix > 0) {
        name.resize(suffix);
        if (name.starts_with("lib")) {
            name.erase(0, 3);
        }
    }
    return name;
}

CFRef<CFURLRef> childURL(CFURLRef folder, CFStringRef name, bool isDirectory) {
    return adopt(CFURLCreateCopyAppendingPathComponent(nullptr, folder, name, isDirectory));
}

} // namespace

constinit const ClassTable kBundleClass{"CFBundle", finalizeBundle, nullptr, nullptr, nullptr};

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFBundleGetTypeID() noexcept {
    return kBundleTypeID;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL) noexcept {
    if (!isFolder(bundleURL)) {
        return nullptr;
    }
    return createObject<__CFBundle>(kBundleTypeID, 0, retain(bundleURL));
}

CFBundleRef CFBundleCreateWithCode(CFAllocatorRef allocator, const void* code) noexcept {
    const fs::path file = fileOfCode(code);
    if (file.empty()) {
        return nullptr;
    }
    const auto url = folderURL((file.parent_path() / (bareName(file) + ".resources")).string());
    return url ? CFBundleCreate(allocator, url.get()) : nullptr;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) noexcept {
    return retain(bundle->url.get()).leak();
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName) noexcept {
    CFRef<CFURLRef> folder = bundle->url;
    if (subDirName != nullptr) {
        folder = childURL(folder.get(), subDirName, true);
    }
    const CFRef<CFStringRef> name =
        resourceType == nullptr ? retain(resourceName)
                                : adopt(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@.%@"),
                                                                 resourceName, resourceType));
    CFRef<CFURLRef> url = folder ? childURL(folder.get(), name.get(), false) : nullptr;
    return url && isThere(url.get()) ? url.leak() : nullptr;
}
