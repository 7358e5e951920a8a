/* Must not compile, neither as C nor as C++. */
#include <CoreFoundation/CoreFoundation.h>

CFStringRef coffee(void);

CFStringRef coffee(void) {
    return CFSTR("café");
}
