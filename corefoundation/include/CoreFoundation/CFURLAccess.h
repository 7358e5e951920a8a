/**
 * @file
 * Reading what a URL names.
 */
#ifndef COREFOUNDATION_CFURLACCESS_H
#define COREFOUNDATION_CFURLACCESS_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>

/**
 * Reads a whole file. Blocks as long as the file system takes.
 *
 * @param resourceData       may be NULL; receives the contents, which the caller releases. An empty
 *                           file gives empty data.
 * @param properties         NULL, or receives NULL: no properties are told.
 * @param desiredProperties  NULL.
 * @param errorCode          may be NULL; receives 0, or on failure the system's error number
 *                           (errno).
 * @return false on failure, with NULL for the data. Only files can be read, no folders, pipes or
 *         devices.
 */
CF_EXPORT Boolean CFURLCreateDataAndPropertiesFromResource(CFAllocatorRef allocator, CFURLRef url,
                                                           CFDataRef* resourceData,
                                                           CFDictionaryRef* properties,
                                                           CFArrayRef desiredProperties,
                                                           SInt32* errorCode);

#endif
