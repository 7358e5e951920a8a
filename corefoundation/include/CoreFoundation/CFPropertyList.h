/**
 * @file
 * Trees of objects as XML documents.
 */
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

/** How a property list is written down. */
typedef CFIndex CFPropertyListFormat;

/** As XML; there is no other. */
enum { kCFPropertyListXMLFormat_v1_0 = 100 };

/**
 * Reads an XML document. Dictionaries enumerate in the order of the document; of a repeated key the
 * last value counts, at the place of the first.
 *
 * The document is in the encoding that its byte order mark tells (UTF-8, UTF-16, UTF-32), else in
 * the one that its declaration names: UTF-8, US-ASCII (read as ISO-8859-1), ISO-8859-n (also called
 * latin1, l1, iso_8859-1:1987 and the like) or windows-125n; else in UTF-8. Strings and keys come
 * out exactly as they stand in the document: line ends and white space are kept, a byte order mark
 * at their start too.
 *
 * What is read although XML would not allow it, because the platform reads it:
 *  - anything behind the root element is passed over;
 *  - the element plist may be missing; then the object is the root;
 *  - declaration and document types may stand anywhere before the root, and several times; of what a
 *    declaration or another instruction says, only the encoding is looked at. Its value may stand
 *    without quotes (which then says nothing), and with blanks round the "=" it is not seen;
 *  - texts may hold control characters, as such or as references ("&#0;" too), and "]]>";
 *  - comments and instructions may hold bytes that are no characters.
 *
 * Whatever else is not well-formed is refused: attributes, which mean nothing, must be quoted and
 * different from each other, and may hold ">". A document type with declarations of its own is
 * refused, so that there are no entities but lt, gt, amp, apos, quot and numbers.
 *
 * @param mutabilityOption  one of the three above.
 * @param errorString       may be NULL; receives NULL, or on failure a text that the caller
 *                          releases: "No property list: memory has run out" when it has, NULL when
 *                          it has for the text too.
 * @return NULL for anything but such a document, nested no deeper than 512 elements, and also when
 *         memory runs out anywhere in reading it. Binary and old-style text property lists are not read.
 */
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                            CFDataRef xmlData,
                                                            CFOptionFlags mutabilityOption,
                                                            CFStringRef* errorString) CF_NOEXCEPT;

/**
 * Writes a tree as an XML document in UTF-8. Dictionaries keep their own order, so that what reads
 * the document back enumerates as the tree did; whoever wants sorted keys adds them sorted. (The
 * platform sorts.)
 *
 * Control characters, which XML cannot hold (all but tab, line feed and carriage return), are
 * written as U+FFFD, in strings and keys alike, so that every reader takes the document. (The
 * platform writes them as they are; U+FFFE and U+FFFF are written so here, too.)
 * @return NULL when the tree is not valid, see CFPropertyListIsValid.
 */
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                CFPropertyListRef propertyList);

/**
 * Whether a tree can be written: strings without unpaired surrogates, numbers, booleans, dates,
 * data, arrays, and dictionaries with string keys, nested no deeper than 512.
 * @param propertyList  may be NULL, which is not valid.
 * @param format        kCFPropertyListXMLFormat_v1_0; nothing is valid in another.
 */
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                        CFPropertyListFormat format) CF_NOEXCEPT;

#endif
