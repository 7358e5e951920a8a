/**
 * @file
 * Texts: sequences of UTF-16 code units. ASCII texts take one byte a unit.
 *
 * All positions and lengths are in UTF-16 code units, all comparisons and searches are literal: a
 * precomposed letter is not its decomposed form.
 */
#ifndef COREFOUNDATION_CFSTRING_H
#define COREFOUNDATION_CFSTRING_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <stdarg.h>

/** Encodings: these two and no other. */
typedef UInt32 CFStringEncoding;

/** Numbers of the two encodings. */
enum { kCFStringEncodingASCII = 0x0600, kCFStringEncodingUTF8 = 0x08000100 };

/** How texts are compared: 0, or these together. */
typedef CFOptionFlags CFStringCompareFlags;

/** Ways to compare. */
enum {
    /** Letters that differ only in case are equal; full case folding, so sharp s equals "ss". */
    kCFCompareCaseInsensitive = 1,
    /** Runs of the digits 0 to 9 compare as numbers. */
    kCFCompareNumerically = 64
};

/** The record of a string; only the library and CFSTR look inside. */
struct __CFString {
    struct CFObjectHeader header; /**< as of every object */
    CFIndex length;               /**< in code units */
    const void* contents;         /**< ASCII or UTF-16 */
    CFIndex capacity;             /**< of contents, where it is the string's own */
};

/** Values of CFObjectHeader for CFSTR. */
enum { kCFStringConstantTypeID = 3, kCFStringConstantFlags = 0x0001 };

/**
 * CFSTR("text"): a constant string. ASCII only; anything else does not compile.
 *
 * The object is laid out by the compiler, so no code runs at start-up, and is immortal: retaining
 * and releasing it does nothing. In C++ it may initialise constants of any scope, in C it is for
 * use inside functions. Equal constants need not be one object: compare with CFEqual.
 */
#ifdef __cplusplus

namespace krl::cf::detail {

template <size_t N>
struct AsciiLiteral {
    char text[N]{};

    consteval AsciiLiteral(const char (&literal)[N]) {
        for (size_t i = 0; i < N; ++i) {
            if (static_cast<unsigned char>(literal[i]) >= 0x80) {
                throw "CFSTR takes ASCII only";
            }
            text[i] = literal[i];
        }
    }

    static constexpr CFIndex length = static_cast<CFIndex>(N - 1);
};

template <AsciiLiteral Literal>
inline constexpr __CFString constantString{
    {kCFStringConstantTypeID, kCFStringConstantFlags, 0}, Literal.length, Literal.text, 0};

} // namespace krl::cf::detail

/** A constant string of an ASCII literal, see above. */
#define CFSTR(cStr) (&::krl::cf::detail::constantString<"" cStr>)

#else

/* In UTF-8 every character beyond ASCII takes more bytes than it has UTF-16 code units. */
#define CFSTR(cStr)                                                                                \
    __extension__({                                                                                \
        _Static_assert(sizeof("" cStr) == sizeof(u"" cStr) / sizeof(*u""),                         \
                       "CFSTR takes ASCII only");                                                  \
        static const struct __CFString constantString = {                                          \
            {kCFStringConstantTypeID, kCFStringConstantFlags, 0}, sizeof("" cStr) - 1, cStr, 0};   \
        (CFStringRef) & constantString;                                                            \
    })

#endif

/** The type of texts. */
CF_EXPORT CFTypeID CFStringGetTypeID(void) CF_NOEXCEPT;

/**
 * @param cStr      zero-terminated, in the encoding. Read strictly: one byte that does not belong
 *                  there makes the whole text invalid. One leading UTF-8 byte order mark is
 *                  dropped.
 * @return NULL when the text is invalid or the encoding unknown.
 */
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* cStr,
                                                CFStringEncoding encoding);

/**
 * As CFStringCreateWithCString, of numBytes bytes, zeros included.
 * @param isExternalRepresentation  makes no difference for these encodings.
 */
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                              CFIndex numBytes, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);

/** Of code units, which may hold unpaired surrogates. */
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars,
                                                   CFIndex numChars);

/**
 * Formats as printf does: %d %i %u %x %X %o with h, hh, l, ll, z; %f %e %g; %c; %s (UTF-8, NULL
 * reads "(null)"); %p; %%; with flags, width and precision; and %@ for an object, which stands as
 * its description (a string as itself, NULL as "(null)"). Positions ("%1$@") are not known.
 * @param formatOptions  NULL.
 * @return NULL when the format holds anything else, or the text of a %s is not UTF-8.
 */
CF_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator,
                                               CFDictionaryRef formatOptions, CFStringRef format,
                                               ...);
/** As CFStringCreateWithFormat, of arguments that have been taken up. */
CF_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef allocator,
                                                           CFDictionaryRef formatOptions,
                                                           CFStringRef format, va_list arguments);

/** An immutable copy; the string itself, with one more reference, when it is immutable. */
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef string);
/** A part of a text. */
CF_EXPORT CFStringRef CFStringCreateWithSubstring(CFAllocatorRef allocator, CFStringRef string,
                                                  CFRange range);

/** An empty mutable string. @param maxLength a hint; the string may grow beyond it. */
CF_EXPORT CFMutableStringRef CFStringCreateMutable(CFAllocatorRef allocator, CFIndex maxLength);
/** A copy that can be changed. @param maxLength a hint, as above. */
CF_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maxLength,
                                                       CFStringRef string);

/** @param appendedString may be the string itself. */
CF_EXPORT void CFStringAppend(CFMutableStringRef string, CFStringRef appendedString);
/** Appends code units, which may hold unpaired surrogates. */
CF_EXPORT void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* chars,
                                        CFIndex numChars);
/** Appends nothing when cStr is invalid in the encoding. */
CF_EXPORT void CFStringAppendCString(CFMutableStringRef string, const char* cStr,
                                     CFStringEncoding encoding);
/** See CFStringCreateWithFormat. Appends nothing when that gives NULL. */
CF_EXPORT void CFStringAppendFormat(CFMutableStringRef string, CFDictionaryRef formatOptions,
                                    CFStringRef format, ...);

/** How many code units the text has. */
CF_EXPORT CFIndex CFStringGetLength(CFStringRef string) CF_NOEXCEPT;
/** One code unit. */
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex idx) CF_NOEXCEPT;
/** @param buffer room for range.length units. */
CF_EXPORT void CFStringGetCharacters(CFStringRef string, CFRange range,
                                     UniChar* buffer) CF_NOEXCEPT;

/**
 * Writes the whole text, zero-terminated.
 * @param buffer      room for bufferSize bytes.
 * @return false when the text with its zero does not fit, the encoding cannot express it (an
 *         unpaired surrogate, or beyond ASCII in ASCII) or is unknown. The buffer then holds an
 *         empty string if it has room for one.
 */
CF_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding) CF_NOEXCEPT;

/**
 * The text without a copy, zero-terminated, valid until the string changes or goes.
 * @return NULL when the text is not all ASCII, or the encoding unknown. A text with zeros inside is
 *         given all the same; it ends at the first for C.
 */
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef string,
                                            CFStringEncoding encoding) CF_NOEXCEPT;

/**
 * Writes as many whole characters of the range as fit, without a zero at the end.
 * @param lossByte    written for a character that the encoding cannot express; 0: stop before it.
 * @param isExternalRepresentation  makes no difference for these encodings.
 * @param buffer      may be NULL, to count only; maxBufLen then does not matter.
 * @param usedBufLen  may be NULL; receives the bytes written (or counted).
 * @return the number of code units converted.
 */
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                                   CFIndex maxBufLen, CFIndex* usedBufLen) CF_NOEXCEPT;

/** The most bytes that length code units can take, without a zero; kCFNotFound when the encoding is
 *  unknown. */
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length,
                                                    CFStringEncoding encoding) CF_NOEXCEPT;

/** By code unit; an empty prefix is no prefix: false. */
CF_EXPORT Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix) CF_NOEXCEPT;
/** By code unit; an empty suffix is no suffix: false. */
CF_EXPORT Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix) CF_NOEXCEPT;

/** Without options in the order of code units, so "Z" comes before "a". */
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2,
                                             CFStringCompareFlags compareOptions) CF_NOEXCEPT;

/**
 * The first place where stringToFind stands, by code unit.
 * @param compareOptions  0.
 * @return {kCFNotFound, 0} when there is none; an empty string is found nowhere.
 */
CF_EXPORT CFRange CFStringFind(CFStringRef string, CFStringRef stringToFind,
                               CFStringCompareFlags compareOptions) CF_NOEXCEPT;

/** An array of strings. n separators give n + 1 parts, empty ones included; an empty separator
 *  gives the whole string as the only part. */
CF_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef allocator,
                                                            CFStringRef string,
                                                            CFStringRef separatorString);
/** @param array of strings; an empty one gives an empty string. */
CF_EXPORT CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef array,
                                                       CFStringRef separatorString);

/** White space, a sign, white space, then ASCII digits up to the first other character; 0 when
 *  there are none; held within the 32-bit range. */
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef string) CF_NOEXCEPT;
/** Likewise, with fraction and exponent. */
CF_EXPORT double CFStringGetDoubleValue(CFStringRef string) CF_NOEXCEPT;

/** The language-independent case mappings. */
typedef const struct __CFLocale* CFLocaleRef;
/** @param locale NULL. */
CF_EXPORT void CFStringLowercase(CFMutableStringRef string, CFLocaleRef locale);
/** @param locale NULL. */
CF_EXPORT void CFStringUppercase(CFMutableStringRef string, CFLocaleRef locale);

#endif
