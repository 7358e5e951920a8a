#pragma once

#include <KRLVesk/KRTVesk.h>

// Exhausted memory ends the process in these: no exception may reach an application in C.
extern "C" {

/// Installs the support plug-in unless the installed one is current. Returns 1 when it was, 2 when
/// it was installed now, 0 when it could not be, which KRTErrorDomain explains.
int _install_support_plugin(void) noexcept;

/// Puts what the archive holds in the place of the plug-in in a folder. The home folder's plug-in
/// folder is made if need be, whichever folder is given. Returns 1, or 0 with KRTErrorDomain set.
int perform_unzip(const char* zipPath, const char* destinationFolder) noexcept;
}
