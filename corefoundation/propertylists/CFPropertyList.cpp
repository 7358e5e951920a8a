#include <CoreFoundation/CFPropertyList.h>

#include "corefoundation/propertylists/PlistNode.h"
#include "corefoundation/propertylists/PropertyListWriter.h"
#include "corefoundation/propertylists/XMLDocument.h"
#include "corefoundation/propertylists/XMLEncoding.h"

namespace krl::cf {
namespace {

/// The tree that a document holds, or null with the reason in error.
CFRef<CFTypeRef> readDocument(std::string_view bytes, CFOptionFlags mutability,
                              std::string& error) {
    const auto document = convertToUtf8(bytes);
    if (!document) {
        error = "its encoding is not known";
        return nullptr;
    }
    const CheckedDocument checked = checkDocument(document->text());
    if (!checked.error.empty()) {
        error = checked.error;
        return nullptr;
    }
    const PlistOwner node = parseXML(checked.text());
    auto tree = node != nullptr ? readPlistNode(node.get(), mutability, checked.placeholders)
                                : CFRef<CFTypeRef>();
    if (!tree) {
        error = "it cannot be read";
    }
    return tree;
}

} // namespace
} // namespace krl::cf

using namespace krl::cf;

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef, CFDataRef xmlData,
                                                  CFOptionFlags mutabilityOption,
                                                  CFStringRef* errorString) noexcept {
    const std::string_view bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(xmlData)),
                                 static_cast<size_t>(CFDataGetLength(xmlData)));
    std::string error;
    auto tree = readDocument(bytes, mutabilityOption, error);
    if (errorString != nullptr) {
        *errorString = tree ? nullptr
                            : CFStringCreateWithFormat(
                                  nullptr, nullptr, CFSTR("No property list: %s"), error.c_str());
    }
    return tree.leak();
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef, CFPropertyListRef propertyList) noexcept {
    if (!isPropertyList(propertyList)) {
        return nullptr;
    }
    const std::string xml = writePropertyList(propertyList);
    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(xml.data()),
                        static_cast<CFIndex>(xml.size()));
}

Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                              CFPropertyListFormat format) noexcept {
    return format == kCFPropertyListXMLFormat_v1_0 && isPropertyList(propertyList);
}
