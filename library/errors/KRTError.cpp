#include <KRLVesk/KRTError.h>

int32_t __krt_error_line = 0;
const char* __krt_error_file = nullptr;
int32_t __krt_error_code = 0;

constinit CFStringRef KRTErrorDomain = CFSTR("com.korvane.vesk");

void KRTErrorSet(int line, const char* file, int code) {
    if (__krt_error_line != 0 || __krt_error_file != nullptr) {
        return;
    }
    __krt_error_line = line;
    __krt_error_file = file;
    __krt_error_code = code;
}

// Contract: a record that was set with line 0 or a negative line reads as no error here and still
// keeps later failures out. [ErrorRecord.LineZeroWithAFileReadsAsNoErrorAndKeepsLaterFailuresOut]
bool KRTError(void) {
    return __krt_error_line > 0;
}

int KRTErrorGetLine(void) {
    return __krt_error_line;
}

const char* KRTErrorGetFile(void) {
    return __krt_error_file;
}

int KRTErrorGetCode(void) {
    return __krt_error_code;
}

void KRTErrorClear(void) {
    __krt_error_line = 0;
    __krt_error_file = nullptr;
    __krt_error_code = 0;
}
