#include "library/startup/KRTVeskInternal.h"

#include "library/startup/SupportPlugin.h"
#include "library/system/Files.h"
#include "library/system/FrameworkLoader.h"
#include "library/system/HomeFolder.h"
#include "library/system/Programs.h"

#include <KRLVesk/KRTError.h>
#include <MobileDevice/MobileDevice.h>

#include <string>

signed char KRTVeskOpen = 0;

namespace {

namespace plugin = krl::plugin;

constexpr char kDeviceFramework[] = "/System/Library/PrivateFrameworks/MobileDevice.framework";

/// The library's own resources are those of the library that this is in.
const void* ownCode() {
    return reinterpret_cast<const void*>(&_install_support_plugin);
}

bool loadDeviceFramework() noexcept {
    return krl::system::loadFramework(kDeviceFramework);
}

bool hasDeviceFunctions() {
    return AMDeviceConnect != nullptr;
}

int failInstallation(CFStringRef domain) {
    // Contract: nothing ever puts the domain back, also not a later success.
    // [StartUp.TheDomainOfAFailureStaysAfterALaterSuccess]
    KRTErrorDomain = domain;
    return 0;
}

int installFromArchive() {
    const std::string archive = plugin::archivePath(ownCode());
    if (archive.empty()) {
        return failInstallation(CFSTR("com.korvane.vesk.noPathFilePath"));
    }
    if (perform_unzip(archive.c_str(), plugin::folders().plugins.c_str()) != 1) {
        return 0;
    }
    KRTVeskOpen = 1;
    return 2;
}

} // namespace

int KRTVeskInit() {
    if (!loadDeviceFramework()) {
        KRTVeskOpen = 0;
    }
    // Contract: without the device functions the flag is not cleared here. One that an earlier
    // start-up had set stays, where the framework itself could be loaded.
    // [StartUp.FlagGoesByTheFunctionsAndIsClearedOnlyWhenLoadingFailsToo]
    if (!hasDeviceFunctions()) {
        return 0;
    }
    KRTVeskOpen = 1;
    return _install_support_plugin();
}

bool KRTVeskInitLight() {
    const bool loaded = loadDeviceFramework();
    if (hasDeviceFunctions()) {
        KRTVeskOpen = 1;
    } else if (!loaded) {
        KRTVeskOpen = 0;
    }
    return KRTVeskOpen != 0;
}

signed char KRTVeskIsValid() {
    return KRTVeskOpen;
}

int _install_support_plugin() noexcept {
    const plugin::Version required = plugin::requiredVersion(ownCode());
    const std::string installed = plugin::installedPath();
    if (krl::system::exists(installed) &&
        plugin::isCurrent(plugin::versionOfPlugin(installed), required)) {
        return 1;
    }
    return installFromArchive();
}

int perform_unzip(const char* zipPath, const char* destinationFolder) noexcept {
    if (!krl::system::programs().isThere(plugin::kUnpacker)) {
        return failInstallation(CFSTR("com.korvane.vesk.unzipNotFound"));
    }
    // Contract: the old plug-in goes first. When unpacking fails there is none.
    // [StartUp.TheOldPluginIsGoneAndTheFoldersAreThereWhenTheUnpackerRuns]
    krl::system::removeAll(std::string(destinationFolder) + "/" + plugin::kBundleName);
    // Contract: always the home folder's, whichever folder is unpacked into; one level each.
    // [StartUp.UnpackingElsewhereMakesTheHomeFoldersAllTheSame]
    const plugin::Folders folders = plugin::folders();
    krl::system::completeHomeFolder();
    krl::system::makeFolder(folders.library);
    krl::system::makeFolder(folders.plugins);
    if (krl::system::programs().run(plugin::kUnpacker,
                                    {"-qq", "-d", destinationFolder, "-o", zipPath}) != 0) {
        return failInstallation(CFSTR("com.korvane.vesk.unzipFailed"));
    }
    return 1;
}
