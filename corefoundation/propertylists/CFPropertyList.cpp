#include <CoreFoundation/CFPropertyList.h>

#include "corefoundation/propertylists/PropertyListReader.h"
#include "corefoundation/propertylists/PropertyListWriter.h"
#include "corefoundation/propertylists/XMLEncoding.h"
#include "corefoundation/values/CFStringInternal.h"

#include <new>

namespace krl::cf {
namespace {

/// The tree that a document holds, or null with the reason in error. Memory that runs out is thrown.
CFRef<CFTypeRef> readDocument(std::string_view bytes, CFOptionFlags mutability,
                              std::string& error) {
    const auto document = convertToUtf8(bytes);
    if (!document) {
        error = "its encoding is not known";
        return nullptr;
    }
    return readPropertyList(document->text(), mutability, error);
}

/// Null when there is no memory for it either.
CFStringRef createReason(std::string_view error) {
    try {
        return createStringFromUtf8("No property list: " + std::string(error));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace
} // namespace krl::cf

using namespace krl::cf;

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef, CFDataRef xmlData,
                                                  CFOptionFlags mutabilityOption,
                                                  CFStringRef* errorString) noexcept {
    const std::string_view bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(xmlData)),
                                 static_cast<size_t>(CFDataGetLength(xmlData)));
    CFRef<CFTypeRef> tree;
    CFStringRef reason = nullptr;
    try {
        std::string error;
        tree = readDocument(bytes, mutabilityOption, error);
        reason = tree || errorString == nullptr ? nullptr : createReason(error);
    } catch (const std::bad_alloc&) {
        reason = errorString == nullptr ? nullptr : createReason("memory has run out");
    }
    if (errorString != nullptr) {
        *errorString = reason;
    }
    return tree.leak();
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef, CFPropertyListRef propertyList) {
    if (!isPropertyList(propertyList)) {
        return nullptr;
    }
    ByteBuffer xml;
    writePropertyList(xml, propertyList);
    return freeze(xml.takeIntoData());
}

Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                              CFPropertyListFormat format) noexcept {
    return format == kCFPropertyListXMLFormat_v1_0 && isPropertyList(propertyList);
}
