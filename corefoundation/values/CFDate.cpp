#include <CoreFoundation/CFDate.h>

#include "corefoundation/values/CFDateInternal.h"
#include "corefoundation/values/CFRuntime.h"
#include "corefoundation/values/GregorianDate.h"

#include <cmath>
#include <ctime>

struct __CFDate {
    CFObjectHeader header;
    CFAbsoluteTime time;
};

namespace krl::cf {
namespace {

CFAbsoluteTime timeOf(CFTypeRef object) {
    return recordOf<__CFDate>(object).time;
}

bool equalDates(CFTypeRef left, CFTypeRef right) {
    return timeOf(left) == timeOf(right);
}

CFHashCode hashDate(CFTypeRef object) {
    constexpr double kLimit = 9e18; // what fits into 64 bits, with room for rounding
    const double seconds = std::floor(timeOf(object));
    if (!(std::fabs(seconds) < kLimit)) {
        return 0;
    }
    return static_cast<CFHashCode>(static_cast<int64_t>(static_cast<float>(seconds)));
}

CFStringRef copyDateDescription(CFTypeRef object) {
    return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%s"),
                                    formatDate(timeOf(object)).c_str());
}

} // namespace

constinit const ClassTable kDateClass{"CFDate", nullptr, equalDates, hashDate, copyDateDescription};

CFDateRef createDate(CFAbsoluteTime at) {
    return createObject<__CFDate>(kDateTypeID, 0, at);
}

} // namespace krl::cf

using namespace krl::cf;

const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

CFAbsoluteTime CFAbsoluteTimeGetCurrent() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) - kCFAbsoluteTimeIntervalSince1970 +
           static_cast<double>(now.tv_nsec) / 1e9;
}

CFTypeID CFDateGetTypeID() noexcept {
    return kDateTypeID;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime at) {
    return createDate(at);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) noexcept {
    return date->time;
}

CFComparisonResult CFDateCompare(CFDateRef date, CFDateRef otherDate, void*) noexcept {
    if (date->time < otherDate->time) {
        return kCFCompareLessThan;
    }
    return date->time > otherDate->time ? kCFCompareGreaterThan : kCFCompareEqualTo;
}
