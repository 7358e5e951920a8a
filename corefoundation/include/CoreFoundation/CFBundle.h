/**
 * @file
 * Folders of resources that belong to a library or program.
 */
#ifndef COREFOUNDATION_CFBUNDLE_H
#define COREFOUNDATION_CFBUNDLE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

/** A folder of resources. */
typedef struct __CFBundle* CFBundleRef;

/** The type of bundles. */
CF_EXPORT CFTypeID CFBundleGetTypeID(void) CF_NOEXCEPT;

/** @return NULL when there is no folder. The caller releases it. */
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL) CF_NOEXCEPT;

/**
 * Own extension: the bundle of a piece of code, which is the folder beside the library or program
 * that the code is in: F/Name.resources for F/libName.so and for the program F/Name. Links to the
 * library or program are followed.
 *
 * @param code  the address of a function.
 * @return NULL when there is no such folder. The caller releases it.
 */
CF_EXPORT CFBundleRef CFBundleCreateWithCode(CFAllocatorRef allocator,
                                             const void* code) CF_NOEXCEPT;

/** The bundle's folder. The caller releases it. */
CF_EXPORT CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) CF_NOEXCEPT;

/**
 * A file or folder in the bundle's folder. Looks anew at each call.
 *
 * @param resourceName  its name, without the extension.
 * @param resourceType  its extension; NULL: it has none.
 * @param subDirName    the folder in the bundle that it is in; NULL: the bundle's own.
 * @return NULL when it is not there. The caller releases it.
 */
CF_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                           CFStringRef resourceType,
                                           CFStringRef subDirName) CF_NOEXCEPT;

#endif
