/** Trees of objects as XML documents. */
#ifndef COREFOUNDATION_CFPROPERTYLIST_H
#define COREFOUNDATION_CFPROPERTYLIST_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>

/** How much of a tree that is read can be changed. */
enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,         /**< arrays and dictionaries */
    kCFPropertyListMutableContainersAndLeaves = 2 /**< strings (not keys) and data too */
};

typedef CFIndex CFPropertyListFormat;

enum { kCFPropertyListXMLFormat_v1_0 = 100 };

/**
 * Reads an XML document. Dictionaries enumerate in the order of the document; of a repeated key the
 * last value counts, at the place of the first.
 *
 * @param mutabilityOption  one of the three above.
 * @param errorString       may be NULL; receives NULL, or on failure a text that the caller
 *                          releases.
 * @return NULL for anything but a well-formed document nested no deeper than 512 elements. Binary
 *         and old-style text property lists are not read.
 */
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                            CFDataRef xmlData,
                                                            CFOptionFlags mutabilityOption,
                                                            CFStringRef* errorString) CF_NOEXCEPT;

/**
 * Writes a tree as an XML document in UTF-8, keys in the order of their UTF-16 code units: equal
 * trees give equal bytes.
 * @return NULL when the tree is not valid, see CFPropertyListIsValid.
 */
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                CFPropertyListRef propertyList) CF_NOEXCEPT;

/**
 * Whether a tree can be written: strings without unpaired surrogates, numbers, booleans, dates,
 * data, arrays, and dictionaries with string keys, nested no deeper than 512.
 * @param propertyList  may be NULL, which is not valid.
 * @param format        kCFPropertyListXMLFormat_v1_0; nothing is valid in another.
 */
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                        CFPropertyListFormat format) CF_NOEXCEPT;

#endif
