/**
 * Own extension: objects to and from the nodes of libplist. For sources that are built with
 * libplist; CoreFoundation.h does not include this.
 */
#ifndef COREFOUNDATION_CFPROPERTYLISTPLIST_H
#define COREFOUNDATION_CFPROPERTYLISTPLIST_H

#include <CoreFoundation/CFBase.h>
#include <plist/plist.h>

/**
 * A tree of objects with a node's contents; containers and leaves are mutable, keys are not. The
 * caller releases it.
 * @param node  stays the caller's; may be NULL.
 * @return NULL for NULL, for a node of a type that has no object (UID, pointer), for text that is
 *         not UTF-8, and for trees nested deeper than 512.
 */
CF_EXPORT CFTypeRef CFPropertyListCreateFromPlistNode(plist_t node) CF_NOEXCEPT;

/**
 * A tree of nodes with an object's contents, which the caller frees with plist_free. Dictionaries
 * keep their order.
 * @param propertyList  may be NULL.
 * @return NULL for anything that CFPropertyListIsValid refuses, and for strings with zeros inside,
 *         which a node cannot hold.
 */
CF_EXPORT plist_t CFPropertyListCreatePlistNode(CFTypeRef propertyList) CF_NOEXCEPT;

#endif
