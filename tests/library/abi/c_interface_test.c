/* The procedural interface as a program in C sees it: links against the library alone, without a
 * phone. */
#include <KRLVesk/KRLVesk.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static void errorRecordIsReadThroughItsVariables(void) {
    KRTErrorClear();
    KRTErrorSet(12, "here", 34);
    CHECK(KRTError());
    CHECK(__krt_error_line == 12 && __krt_error_code == 34);
    CHECK(strcmp(KRTErrorGetFile(), "here") == 0);
    KRTErrorClear();
    CHECK(!KRTError() && __krt_error_file == NULL);
}

static void constantsAreStrings(void) {
    CHECK(CFEqual(KRTRingtoneName, CFSTR("Name")));
    CHECK(CFEqual(KRTFileKey, CFSTR("GUID")));
    CHECK(CFEqual(KRTRingtonesPath, CFSTR("/iTunes_Control/Ringtones")));
    CHECK(CFEqual(KRTRingtonePath, CFSTR("/iTunes_Control/iTunes/Ringtones.plist")));
    CHECK(CFEqual(KRTErrorDomain, CFSTR("com.korvane.vesk")));
    CHECK(KRTPhoneSupportedFormats == NULL);
}

static void slotTableReplacesTheValueOfAnEqualKey(void) {
    const void* key = NULL;
    const void* value = NULL;
    KRTDictionary* table = KRTDictionaryWithCapacity(10);
    KRTDictionarySetObjectForKey(table, CFSTR("first"), CFSTR("ABCD.m4r"));
    KRTDictionarySetObjectForKey(table, CFSTR("second"), CFSTR("ABCD.m4r"));
    CHECK(KRTDictionaryGetCount(table) == 1);
    KRTDictionaryGetKeysAndValues(table, &key, &value);
    CHECK(CFEqual((CFTypeRef)key, CFSTR("ABCD.m4r")));
    CHECK(CFEqual((CFTypeRef)value, CFSTR("second")));
    KRTDictionaryRelease(table);
}

static CFDataRef noBytes(CFURLRef source) {
    (void)source;
    return NULL;
}

static void aRegisteredDataFunctionHasANumber(void) {
    const int64_t number = KRTRingtoneManagerRegisterDataFunction(noBytes);
    CHECK(number != 0);
    CHECK(KRTRingtoneManagerRegisterDataFunction(noBytes) == number);
    CHECK(KRTRingtoneManagerRegisterDataFunction(NULL) == 0);
}

static void aPhoneWithoutADeviceDoesNotOpen(void) {
    if (AMDeviceConnect == NULL) {
        return; /* no provider beside the library */
    }
    KRTErrorClear();
    KRTPhoneRef phone = KRTPhoneWithDevice(NULL);
    CHECK(phone != NULL);
    CHECK(KRTPhoneOpen(phone) == 0);
    CHECK(KRTError() && KRTErrorGetCode() == 0);
    KRTPhoneRelease(phone);
    KRTErrorClear();
}

static void countWithoutAManagerIsMinusOne(void) {
    CHECK(KRTGetConnectedPhoneCount() == -1);
    CHECK(KRTPhoneManagerInit() == 1);
    CHECK(KRTGetConnectedPhoneCount() == 0);
    KRTPhoneManagerShutdown();
    CHECK(KRTGetConnectedPhoneCount() == -1);
}

int main(void) {
    errorRecordIsReadThroughItsVariables();
    constantsAreStrings();
    slotTableReplacesTheValueOfAnEqualKey();
    aRegisteredDataFunctionHasANumber();
    aPhoneWithoutADeviceDoesNotOpen();
    countWithoutAManagerIsMinusOne();
    return failures == 0 ? 0 : 1;
}
