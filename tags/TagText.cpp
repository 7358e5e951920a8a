#include "tags/TagText.h"

#include <tfile.h>
#include <tpropertymap.h>
#include <tstring.h>

namespace krl::tags {

std::string utf8Of(const TagLib::String& text) {
    return text.to8Bit(/*unicode=*/true);
}

std::string textOf(TagLib::File& file, const TagLib::String& inTag, const char* property) {
    return utf8Of(inTag.isEmpty() ? file.properties()[property].toString() : inTag);
}

} // namespace krl::tags
