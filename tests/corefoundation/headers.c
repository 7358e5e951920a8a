/* The headers as a C program sees them. */

#include <CoreFoundation/CoreFoundation.h>

/* Called by a test; returns how many of the checks hold. */
int checksThatHoldInC(void);

static CFStringRef constantOfAFunction(void) {
    return CFSTR("constant");
}

int checksThatHoldInC(void) {
    CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    int held = 0;
    CFDictionarySetValue(dictionary, constantOfAFunction(), kCFBooleanTrue);
    held += CFDictionaryGetValue(dictionary, CFSTR("con"
                                                   "stant")) == kCFBooleanTrue;
    CFRelease(dictionary);

    held += CFStringGetLength(CFSTR("abc")) == 3;
    held += constantOfAFunction() == CFRetain(constantOfAFunction());
    CFRelease(constantOfAFunction());
    CFRelease(constantOfAFunction());
    held += CFEqual(constantOfAFunction(), CFSTR("constant"));
    held += CFRangeMake(1, 2).length == 2;
    return held;
}
