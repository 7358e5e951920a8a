/*
 * Text that comes from a phone, shown on a terminal: whoever has named the phone or a ringtone must
 * not move the cursor, change colours or turn the order of what is shown.
 */
#ifndef EXAMPLES_TEXT_H
#define EXAMPLES_TEXT_H

#include <CoreFoundation/CoreFoundation.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>

/* The bytes of what a terminal could act on where UTF-8 text goes on; 0 when it is harmless. */
static inline size_t harmfulBytes(const unsigned char* at) {
    if (at[0] < 0x20 || at[0] == 0x7F) {
        return 1; /* control characters, delete */
    }
    if (at[0] == 0xC2 && at[1] >= 0x80 && at[1] <= 0x9F) {
        return 2; /* the other control characters */
    }
    if (at[0] == 0xE2 && at[1] == 0x80 &&
        ((at[2] >= 0x8B && at[2] <= 0x8F) || (at[2] >= 0xA8 && at[2] <= 0xAE))) {
        return 3; /* zero widths, directions, line separators */
    }
    return at[0] == 0xE2 && at[1] == 0x81 && at[2] >= 0xA0 && at[2] <= 0xAF ? 3 : 0;
}

/* Makes UTF-8 text harmless where it stands: a question mark for each such character. */
static inline const char* harmless(char* text) {
    const unsigned char* from = (const unsigned char*)text;
    char* to = text;
    while (*from != 0) {
        const size_t harmful = harmfulBytes(from);
        *to++ = harmful > 0 ? '?' : (char)*from;
        from += harmful > 0 ? harmful : 1;
    }
    *to = '\0';
    return text;
}

/* A CFString as harmless UTF-8 in a buffer; "?" when it is something else or too long. */
static inline const char* shown(CFTypeRef object, char* buffer, CFIndex size) {
    if (object == NULL || CFGetTypeID(object) != CFStringGetTypeID() ||
        !CFStringGetCString((CFStringRef)object, buffer, size, kCFStringEncodingUTF8)) {
        snprintf(buffer, (size_t)size, "?");
    }
    return harmless(buffer);
}

#endif
