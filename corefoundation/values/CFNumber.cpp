#include <CoreFoundation/CFNumber.h>

#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/Decimal.h"

#include <cmath>
#include <cstring>
#include <limits>

struct __CFBoolean {
    CFObjectHeader header;
    bool value;
};

namespace krl::cf {

union NumberValue {
    int64_t integer;
    uint64_t large; ///< with kUnsignedFlag: beyond what integer can hold
    double real;
};

} // namespace krl::cf

struct __CFNumber {
    CFObjectHeader header;
    CFNumberType type; ///< one of the fixed sizes
    krl::cf::NumberValue value;
};

namespace krl::cf {
namespace {

constexpr __CFBoolean kTrue{{kBooleanTypeID, kImmortalFlag, 0}, true};
constexpr __CFBoolean kFalse{{kBooleanTypeID, kImmortalFlag, 0}, false};
constexpr CFHashCode kHashFactor = 2654435761;

constexpr uint16_t kUnsignedFlag = kFirstTypeFlag;

CFHashCode hashBoolean(CFTypeRef object) {
    return recordOf<__CFBoolean>(object).value ? kHashFactor : 0;
}

CFStringRef copyBooleanDescription(CFTypeRef object) {
    return recordOf<__CFBoolean>(object).value ? CFSTR("true") : CFSTR("false");
}

bool isReal(const __CFNumber& number) {
    return number.type == kCFNumberFloat32Type || number.type == kCFNumberFloat64Type;
}

bool isLarge(const __CFNumber& number) {
    return (number.header.flags & kUnsignedFlag) != 0;
}

double asDouble(const __CFNumber& number) {
    if (isReal(number)) {
        return number.value.real;
    }
    return isLarge(number) ? static_cast<double>(number.value.large)
                           : static_cast<double>(number.value.integer);
}

/// Holds every 64-bit integer and every double exactly.
long double exactValue(const __CFNumber& number) {
    static_assert(std::numeric_limits<long double>::digits >= 64);
    if (isReal(number)) {
        return number.value.real;
    }
    return isLarge(number) ? static_cast<long double>(number.value.large)
                           : static_cast<long double>(number.value.integer);
}

/// Where a number belongs before its value counts: negative, not a number, zero or positive.
int rank(long double value) {
    if (std::isnan(value)) {
        return 1;
    }
    return std::signbit(value) ? 0 : 2;
}

CFComparisonResult compareNumbers(const __CFNumber& left, const __CFNumber& right) {
    const long double one = exactValue(left);
    const long double other = exactValue(right);
    if (rank(one) != rank(other)) {
        return rank(one) < rank(other) ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
    if (one < other) {
        return kCFCompareLessThan;
    }
    return one > other ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

bool equalNumbers(CFTypeRef left, CFTypeRef right) {
    return compareNumbers(recordOf<__CFNumber>(left), recordOf<__CFNumber>(right)) ==
           kCFCompareEqualTo;
}

/// Of numbers of equal value alike, whatever their type; the sign does not count.
CFHashCode hashDouble(double value) {
    constexpr double kTwoTo64 = 18446744073709551616.0;
    const double magnitude = std::fabs(value);
    if (!(magnitude < kTwoTo64)) {
        return 0;
    }
    const double whole = std::floor(magnitude + 0.5);
    const double fraction = magnitude - whole; // from -1 to 0.5
    // Beyond 2 to the 52nd adding a half may round the whole part up to 2 to the 64th.
    const CFHashCode hash = whole < kTwoTo64 ? kHashFactor * static_cast<CFHashCode>(whole) : 0;
    const double scaled = std::trunc(std::fabs(fraction) * kTwoTo64);
    const CFHashCode part = scaled < kTwoTo64 ? static_cast<CFHashCode>(scaled) : 0;
    return fraction < 0 ? hash - part : hash + part;
}

CFHashCode hashNumber(CFTypeRef object) {
    const auto& number = recordOf<__CFNumber>(object);
    if (number.type <= kCFNumberSInt32Type) {
        return static_cast<CFHashCode>(std::abs(number.value.integer)) * kHashFactor;
    }
    return hashDouble(asDouble(number));
}

CFStringRef copyNumberDescription(CFTypeRef object) {
    const auto& number = recordOf<__CFNumber>(object);
    if (isReal(number)) {
        return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%s"),
                                        shortestDecimal(number.value.real).c_str());
    }
    return isLarge(number)
               ? CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%llu"),
                                          static_cast<unsigned long long>(number.value.large))
               : CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%lld"),
                                          static_cast<long long>(number.value.integer));
}

/// The fixed size that a type of C has here, or 0 when the type is unknown.
CFNumberType fixedType(CFNumberType type) {
    switch (type) {
    case kCFNumberCharType:
        return kCFNumberSInt8Type;
    case kCFNumberShortType:
        return kCFNumberSInt16Type;
    case kCFNumberIntType:
        return kCFNumberSInt32Type;
    case kCFNumberLongType:
    case kCFNumberCFIndexType:
        return sizeof(long) == sizeof(int64_t) ? kCFNumberSInt64Type : kCFNumberSInt32Type;
    case kCFNumberLongLongType:
        return kCFNumberSInt64Type;
    case kCFNumberFloatType:
        return kCFNumberFloat32Type;
    case kCFNumberDoubleType:
        return kCFNumberFloat64Type;
    default:
        return type >= kCFNumberSInt8Type && type <= kCFNumberFloat64Type ? type : 0;
    }
}

/// Calls the function with a value of the fixed type's C++ type.
template <typename Function>
auto withValueOf(CFNumberType type, Function function) {
    switch (type) {
    case kCFNumberSInt8Type:
        return function(int8_t{});
    case kCFNumberSInt16Type:
        return function(int16_t{});
    case kCFNumberSInt32Type:
        return function(int32_t{});
    case kCFNumberSInt64Type:
        return function(int64_t{});
    case kCFNumberFloat32Type:
        return function(float{});
    default:
        return function(double{});
    }
}

template <typename Value>
Value convert(const __CFNumber& number) {
    if constexpr (std::is_floating_point_v<Value>) {
        return static_cast<Value>(asDouble(number));
    } else if (isReal(number)) {
        constexpr auto kLowest = static_cast<double>(std::numeric_limits<Value>::min());
        if (std::isnan(number.value.real)) {
            return 0;
        }
        if (number.value.real < kLowest) {
            return std::numeric_limits<Value>::min();
        }
        // The highest value may not be a double, but one more, the lowest's opposite, always is.
        return number.value.real >= -kLowest ? std::numeric_limits<Value>::max()
                                             : static_cast<Value>(number.value.real);
    } else {
        return static_cast<Value>(number.value.integer);
    }
}

__CFNumber* createNumber(CFNumberType type) {
    return createObject<__CFNumber>(kNumberTypeID, 0, type, NumberValue{.integer = 0});
}

} // namespace

constinit const ClassTable kBooleanClass{"CFBoolean", nullptr, nullptr, hashBoolean,
                                         copyBooleanDescription};
constinit const ClassTable kNumberClass{"CFNumber", nullptr, equalNumbers, hashNumber,
                                        copyNumberDescription};

CFNumberRef createInteger(int64_t value) {
    __CFNumber* number = createNumber(kCFNumberSInt64Type);
    number->value.integer = value;
    return number;
}

CFNumberRef createReal(double value) {
    __CFNumber* number = createNumber(kCFNumberFloat64Type);
    number->value.real = value;
    return number;
}

CFNumberRef createUnsignedNumber(uint64_t value) {
    __CFNumber* number = createNumber(kCFNumberSInt64Type);
    number->value.large = value;
    if (value > INT64_MAX) {
        number->header.flags = kUnsignedFlag;
    }
    return number;
}

bool isBeyondSigned(CFNumberRef number) {
    return isLarge(*number);
}

} // namespace krl::cf

using namespace krl::cf;

const CFBooleanRef kCFBooleanTrue = &kTrue;
const CFBooleanRef kCFBooleanFalse = &kFalse;

CFTypeID CFBooleanGetTypeID() noexcept {
    return kBooleanTypeID;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) noexcept {
    return boolean->value;
}

CFTypeID CFNumberGetTypeID() noexcept {
    return kNumberTypeID;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* valuePtr) {
    const CFNumberType fixed = fixedType(type);
    if (fixed == 0) {
        return nullptr;
    }
    __CFNumber* number = createNumber(fixed);
    withValueOf(fixed, [&](auto value) {
        std::memcpy(&value, valuePtr, sizeof value);
        if constexpr (std::is_floating_point_v<decltype(value)>) {
            number->value.real = static_cast<double>(value);
        } else {
            number->value.integer = value;
        }
    });
    return number;
}

CFNumberType CFNumberGetType(CFNumberRef number) noexcept {
    return number->type;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* valuePtr) noexcept {
    const CFNumberType fixed = fixedType(type);
    if (fixed == 0) {
        return false;
    }
    return withValueOf(fixed, [&](auto value) {
        value = convert<decltype(value)>(*number);
        std::memcpy(valuePtr, &value, sizeof value);
        const long double exact = exactValue(*number);
        const auto written = static_cast<long double>(value);
        return written == exact || (std::isnan(written) && std::isnan(exact));
    });
}

Boolean CFNumberIsFloatType(CFNumberRef number) noexcept {
    return isReal(*number);
}

CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void*) noexcept {
    return compareNumbers(*number, *otherNumber);
}
