#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <string>

// The support plug-in: where it is, which version it has, and which one is needed.
namespace krl::plugin {

/// The user's folders that lead to the plug-in's own, each in the one before.
struct Folders {
    std::string library; ///< "Library/iTunes" in the home folder
    std::string plugins; ///< "Library/iTunes/iTunes Plug-ins"
};

Folders folders();

/// What the plug-in is called in its folder.
inline constexpr char kBundleName[] = "HarlixSupport.bundle";

/// What unpacks the plug-in's archive.
inline constexpr char kUnpacker[] = "/usr/bin/unzip";

/// Where the plug-in is, or would be.
std::string installedPath();

struct Version {
    int major = 0;
    int minor = 0;
    int patch = 0;
};

/// Whether no part of the installed version is below the same part of the required one.
bool isCurrent(const Version& installed, const Version& required);

/// The version of the plug-in at a path, 0.0.0 when it does not say. Its information may be an XML
/// or a binary property list.
Version versionOfPlugin(const std::string& path);

/// The version that the library of a piece of code needs, from its resources; 0.0.0 when these do
/// not say.
///
/// @param code  the address of a function in the library
Version requiredVersion(const void* code);

/// The archive among the resources of that library; empty when it is not there.
std::string archivePath(const void* code);

/// Whether what a running plug-in says of itself, which may be null, is a version above 2.01.
bool isRecentEnough(CFDictionaryRef pongInfo);

} // namespace krl::plugin
