/**
 * @file
 * Start-up: the application's first call.
 *
 * KRTVeskInit finds out whether phones can be reached and sees to it that the support plug-in
 * "HarlixSupport.bundle" is in the user's plug-in folder of the desktop media library,
 * "Library/iTunes/iTunes Plug-ins" in the home folder, in the version that this library needs or a
 * later one. Whether the plug-in is running as well is another question: see KRTPluginValidator.h.
 *
 * These functions report nothing to the error record. Call them on the main thread.
 */
#ifndef KRLVESK_KRTVESK_H
#define KRLVESK_KRTVESK_H

#include <KRLVesk/KRLBase.h>

KRL_BEGIN_C

/** 1 once start-up has found the device layer usable; 0 before. */
extern KRL_EXPORT signed char KRTVeskOpen;

/**
 * Checks the device layer and installs the plug-in when it is missing or out of date, which takes
 * as long as "/usr/bin/unzip" takes to unpack it. An out-of-date plug-in is removed first, so that
 * none is left when unpacking fails. The program runs as a child of a child of this process, which
 * may do with SIGCHLD whatever it likes.
 *
 * Versions are compared part by part, each on its own: an installed 2.0.0 is out of date when 1.2.0
 * is needed.
 *
 * @return 1 when the plug-in was current, 2 when it was installed now; 0 when the device layer is
 *         missing, in which case the plug-in is left alone, or when the plug-in could not be
 *         installed. KRTVeskOpen tells the two apart: with 1, phones can be used all the same.
 *         KRTErrorDomain then says why the plug-in could not be installed, and keeps saying so
 *         after a later success: "com.korvane.vesk.unzipNotFound": there is no unzip;
 *         "com.korvane.vesk.unzipFailed": unzip failed, for instance because the folder cannot be
 *         written; what it had to say is on standard error;
 *         "com.korvane.vesk.noPathFilePath": the plug-in's archive is missing from the library's
 *         resources.
 */
KRL_EXPORT int KRTVeskInit(void);

/** Checks the device layer alone. Returns the new value of KRTVeskOpen. */
KRL_EXPORT bool KRTVeskInitLight(void);

/** The value of KRTVeskOpen. */
KRL_EXPORT signed char KRTVeskIsValid(void);

KRL_END_C

#endif
