/**
 * @file
 * The error record: why the last failing call failed.
 *
 * There is one record for the whole process. It keeps the first failure until KRTErrorClear, so
 * that the lowest layer's reason survives the reports of the layers above it; nothing else clears
 * it after a success. Call KRTErrorClear before an action whose failure you want to show. It is not
 * synchronised.
 */
#ifndef KRLVESK_KRTERROR_H
#define KRLVESK_KRTERROR_H

#include <KRLVesk/KRLBase.h>

KRL_BEGIN_C

/** Source line of the first failure since the last clear; 0 when there is none. */
extern KRL_EXPORT int32_t __krt_error_line;
/** Name of the module that reported it, a string with static lifetime; NULL when there is none. */
extern KRL_EXPORT const char* __krt_error_file;
/** Its code: a status of the device layer, or a small number of this library. 0 is a code too. */
extern KRL_EXPORT int32_t __krt_error_code;

/** Domain of error objects; "com.korvane.vesk" unless the plug-in could not be installed. */
extern KRL_EXPORT CFStringRef KRTErrorDomain;

/**
 * Records a failure, unless the record holds one already (its line is not 0 or its file not NULL).
 *
 * @param line  source line of the report
 * @param file  name of the reporting module, a string with static lifetime: it is not copied
 * @param code  the failure's code
 */
KRL_EXPORT void KRTErrorSet(int line, const char* file, int code);

/** Whether a failure is recorded: true when the stored line is greater than 0. */
KRL_EXPORT bool KRTError(void);

/** The stored line, 0 when there is none. */
KRL_EXPORT int KRTErrorGetLine(void);

/** The stored module name, or NULL. Not to be freed. */
KRL_EXPORT const char* KRTErrorGetFile(void);

/** The stored code. Not a test for failure: 0 is a valid code. */
KRL_EXPORT int KRTErrorGetCode(void);

/**
 * A status of the device layer in words, for people who look for a fault: "object exists", "timed out:
 * the phone does not answer". In English, without a point at the end. From any thread.
 *
 * The code of the record is such a status unless the function that failed says what it means; its own
 * small numbers are not told apart here.
 *
 * @return a string with static lifetime; NULL for 0, which is success, and for numbers without a name
 */
KRL_EXPORT const char* KRTErrorTextForStatus(int32_t status);

/** Empties the record: line 0, file NULL, code 0. */
KRL_EXPORT void KRTErrorClear(void);

KRL_END_C

#endif
