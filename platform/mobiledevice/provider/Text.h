// Texts between CoreFoundation and the wire.
#ifndef KRL_PROVIDER_TEXT_H
#define KRL_PROVIDER_TEXT_H

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

namespace krl::provider {

/** In UTF-8; nothing for null, for an object that is no string, and for text that UTF-8 cannot
 *  express. */
std::optional<std::string> utf8(CFStringRef string);

} // namespace krl::provider

#endif
