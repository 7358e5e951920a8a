/// Objects from XML property lists. Internal.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <string>
#include <string_view>

namespace krl::cf {

/// How many elements may stand inside each other, and objects that are written.
constexpr int kDepthLimit = 512;

/// The objects that a document stands for.
/// @param document    in UTF-8, without a byte order mark.
/// @param mutability  see kCFPropertyListImmutable and the like.
/// @param error       receives what is wrong with a document that is refused.
/// @return null when it is refused. Memory that runs out is thrown.
CFRef<CFTypeRef> readPropertyList(std::string_view document, CFOptionFlags mutability,
                                  std::string& error);

} // namespace krl::cf
