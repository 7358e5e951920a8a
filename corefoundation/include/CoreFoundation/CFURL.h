/**
 * @file
 * Locations of files and folders. A URL holds a path in its escaped form ("%20" for a space); its
 * components come back unescaped.
 */
#ifndef COREFOUNDATION_CFURL_H
#define COREFOUNDATION_CFURL_H

#include <CoreFoundation/CFBase.h>

/** How a path is written. */
typedef CFIndex CFURLPathStyle;

/** With slashes; there is no other. */
enum { kCFURLPOSIXPathStyle = 0 };

/** A location. */
typedef const struct __CFURL* CFURLRef;

/** The type of URLs. */
CF_EXPORT CFTypeID CFURLGetTypeID(void) CF_NOEXCEPT;

/**
 * @param filePath     absolute, or relative (it then stays relative). Trailing slashes are dropped;
 *                     ".", ".." and doubled slashes inside are kept.
 * @param pathStyle    kCFURLPOSIXPathStyle.
 * @param isDirectory  whether the URL's path ends in a slash.
 * @return NULL for an empty path, one that is no Unicode text (an unpaired surrogate), and any
 *         other style.
 */
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                                 CFURLPathStyle pathStyle, Boolean isDirectory);

/** As CFURLCreateWithFileSystemPath with the style POSIX.
 *  @param buffer bufLen bytes of UTF-8; NULL is returned when they are none. */
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                           const UInt8* buffer, CFIndex bufLen,
                                                           Boolean isDirectory);

/** The unescaped path, without a trailing slash. NULL for a style other than POSIX. */
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle pathStyle);
/** The path for the functions of the system: UTF-8, zero-terminated.
 *  @param resolveAgainstBase makes no difference: relative paths are relative to the working
 *  folder.
 *  @return false when it does not fit. */
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                   UInt8* buffer, CFIndex maxBufLen);

/** The whole URL: "file:///a%20b" for an absolute path, the escaped path for a relative one. */
CF_EXPORT CFStringRef CFURLGetString(CFURLRef url) CF_NOEXCEPT;
/** The escaped path, with the slash at its end that a folder has. */
CF_EXPORT CFStringRef CFURLCopyPath(CFURLRef url);
/** Whether the path ends in a slash. */
CF_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef url) CF_NOEXCEPT;

/** The text after the last slash; "/" for the root. */
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/** The text after the last dot of the last component. NULL when there is no dot, when it is the
 *  first or the last character, or when a space or a direction mark follows it. */
CF_EXPORT CFStringRef CFURLCopyPathExtension(CFURLRef url);

/** Without the last dot of the last component and what follows it, whatever that is; the URL as it
 *  is when that dot is the first or the last character, or when there is none. */
CF_EXPORT CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef allocator, CFURLRef url);
/** With a dot and the extension after the last component. */
CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathExtension(CFAllocatorRef allocator, CFURLRef url,
                                                         CFStringRef extension);
/** With one slash and the component after the path. */
CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                                         CFStringRef pathComponent,
                                                         Boolean isDirectory);
/** The folder that the last component stands in; "./" for a relative path of one component. */
CF_EXPORT CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);

#endif
